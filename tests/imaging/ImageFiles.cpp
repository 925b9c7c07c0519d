#include "ImageFiles.h"

// jpeglib.h uses FILE and size_t without including their headers: kept in this order.
// clang-format off
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include <jpeglib.h>
// clang-format on

#include "platform/Bytes.h"

namespace kel_imgtest {

std::vector<std::uint8_t> Unpadded(HBITMAP b) {
    std::vector<std::uint8_t> out;
    for (LONG y = 0; y < b->height; ++y) {
        const BYTE* row = b->bits + static_cast<std::size_t>(y) * b->bytesPerLine;
        if (b->bitsPerPixel <= 8) {
            for (LONG x = 0; x < b->width; ++x)
                out.push_back(
                    static_cast<std::uint8_t>(kel_bitmap::PixelIndex(row, x, b->bitsPerPixel)));
        } else {
            out.insert(out.end(), row, row + b->width * (b->bitsPerPixel / 8));
        }
    }
    return out;
}

Picture Pattern(int width, int height, int bitsPerPixel) {
    Picture p;
    p.width = width;
    p.height = height;
    p.bitsPerPixel = bitsPerPixel;
    if (bitsPerPixel <= 8) {
        const int n = 1 << bitsPerPixel;
        for (int i = 0; i < n; ++i) {
            p.palette.push_back(static_cast<std::uint8_t>(i * 7));
            p.palette.push_back(static_cast<std::uint8_t>(255 - i));
            p.palette.push_back(static_cast<std::uint8_t>(i * 3 + 1));
            p.palette.push_back(0);
        }
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                p.pixels.push_back(static_cast<std::uint8_t>((x * 3 + y * 5) % n));
    } else {
        const int bpp = bitsPerPixel / 8;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < bpp; ++c)
                    p.pixels.push_back(static_cast<std::uint8_t>(x * 40 + y * 11 + c * 67));
    }
    return p;
}

namespace {

std::size_t Stride(int width, int bitsPerPixel) {
    return ((static_cast<std::size_t>(width) * bitsPerPixel + 31) / 32) * 4;
}

// Packs one picture row into its file form.
void PackRow(const Picture& p, int y, std::uint8_t* out) {
    const int bpp = p.bitsPerPixel;
    if (bpp > 8) {
        const std::size_t n = static_cast<std::size_t>(p.width) * (bpp / 8);
        for (std::size_t i = 0; i < n; ++i) out[i] = p.pixels[y * n + i];
        return;
    }
    for (int x = 0; x < p.width; ++x) {
        const int v = p.pixels[static_cast<std::size_t>(y) * p.width + x];
        const int bit = x * bpp;
        out[bit / 8] = static_cast<std::uint8_t>(out[bit / 8] | (v << (8 - bpp - bit % 8)));
    }
}

}  // namespace

std::string BmpRaw(int width, int height, int bitsPerPixel, std::uint32_t compression,
                   const std::vector<std::uint8_t>& palette,
                   const std::vector<std::uint8_t>& data) {
    const std::size_t off = 54 + palette.size();
    std::string file(off + data.size(), '\0');
    auto* b = reinterpret_cast<std::uint8_t*>(&file[0]);
    using namespace kel_bytes;
    b[0] = 'B';
    b[1] = 'M';
    PutU32(b, 2, static_cast<std::uint32_t>(file.size()));
    PutU32(b, 10, static_cast<std::uint32_t>(off));
    PutU32(b, 14, 40);
    PutI32(b, 18, width);
    PutI32(b, 22, height);
    PutU16(b, 26, 1);
    PutU16(b, 28, static_cast<std::uint16_t>(bitsPerPixel));
    PutU32(b, 30, compression);
    PutU32(b, 34, static_cast<std::uint32_t>(data.size()));
    PutU32(b, 46, static_cast<std::uint32_t>(palette.size() / 4));
    for (std::size_t i = 0; i < palette.size(); ++i) b[54 + i] = palette[i];
    for (std::size_t i = 0; i < data.size(); ++i) b[off + i] = data[i];
    return file;
}

std::string BmpBytes(const Picture& p, bool topDown) {
    const std::size_t stride = Stride(p.width, p.bitsPerPixel);
    std::vector<std::uint8_t> data(stride * p.height, 0);
    for (int r = 0; r < p.height; ++r) {
        const int y = topDown ? r : p.height - 1 - r;
        PackRow(p, y, &data[r * stride]);
    }
    return BmpRaw(p.width, topDown ? -p.height : p.height, p.bitsPerPixel, 0, p.palette, data);
}

std::string JpegBytes(int width, int height, bool grey, int quality) {
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&cinfo, &out, &size);
    cinfo.image_width = static_cast<JDIMENSION>(width);
    cinfo.image_height = static_cast<JDIMENSION>(height);
    cinfo.input_components = grey ? 1 : 3;
    cinfo.in_color_space = grey ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, quality, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    std::vector<unsigned char> row(static_cast<std::size_t>(width) * 3);
    while (cinfo.next_scanline < cinfo.image_height) {
        const int y = static_cast<int>(cinfo.next_scanline);
        for (int x = 0; x < width; ++x) {
            const int c = cinfo.input_components;
            for (int k = 0; k < c; ++k)
                row[x * c + k] = static_cast<unsigned char>(
                    (x * (k + 1) * 255 / width + y * 128 / height) & 0xFF);
        }
        JSAMPROW rp = row.data();
        jpeg_write_scanlines(&cinfo, &rp, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    std::string bytes(reinterpret_cast<char*>(out), size);
    std::free(out);
    return bytes;
}

bool DecodeReference(const std::string& jpeg, int scaleDenom, int& width, int& height,
                     std::vector<std::uint8_t>& pixels) {
    jpeg_decompress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, reinterpret_cast<const unsigned char*>(jpeg.data()),
                 static_cast<unsigned long>(jpeg.size()));
    if (jpeg_read_header(&cinfo, TRUE) != JPEG_HEADER_OK) return false;
    cinfo.scale_num = 1;
    cinfo.scale_denom = static_cast<unsigned int>(scaleDenom);
    if (cinfo.jpeg_color_space != JCS_GRAYSCALE) cinfo.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&cinfo);
    width = static_cast<int>(cinfo.output_width);
    height = static_cast<int>(cinfo.output_height);
    const std::size_t stride = static_cast<std::size_t>(width) * cinfo.output_components;
    pixels.assign(stride * height, 0);
    while (cinfo.output_scanline < cinfo.output_height) {
        JSAMPROW rp = &pixels[cinfo.output_scanline * stride];
        jpeg_read_scanlines(&cinfo, &rp, 1);
    }
    jpeg_finish_decompress(&cinfo);
    jpeg_destroy_decompress(&cinfo);
    return true;
}

}  // namespace kel_imgtest
