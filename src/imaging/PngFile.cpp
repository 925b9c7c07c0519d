#include "imaging/PngFile.h"

#include <png.h>

#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "platform/File.h"
#include "platform/KelString.h"
#include "platform/Trace.h"

// libpng ends a failed call with a long jump back to the setjmp of the function that started
// it. A long jump must not pass a frame holding an object with a destructor, so each setjmp
// below sits in a function whose locals are plain data; the objects it works on (the open
// file, the output bytes, the bitmap) belong to its caller and are released there.

namespace {

constexpr int kGreyEntries = 256;
// Largest piece handed to one CFile::Write (bytes).
constexpr std::size_t kWriteChunk = std::size_t(1) << 30;

// libpng's error text for the one trace line, and the file or output the callbacks use.
struct PngIo {
    char message[128];
    CFile* file;                      // reading
    std::vector<unsigned char>* out;  // writing
};

[[noreturn]] void OnError(png_structp png, png_const_charp text) {
    PngIo* io = static_cast<PngIo*>(png_get_error_ptr(png));
    std::snprintf(io->message, sizeof io->message, "%s", text != nullptr ? text : "");
    png_longjmp(png, 1);
}

void OnWarning(png_structp, png_const_charp) {}

void ReadFromFile(png_structp png, png_bytep data, png_size_t length) {
    PngIo* io = static_cast<PngIo*>(png_get_io_ptr(png));
    UINT got = 0;
    bool failed = false;
    try {
        got = io->file->Read(data, static_cast<UINT>(length));
    } catch (const CFileException&) {
        failed = true;
    }
    if (failed) png_error(png, "read error");
    if (got != length) png_error(png, "the file ends early");
}

void WriteToVector(png_structp png, png_bytep data, png_size_t length) {
    PngIo* io = static_cast<PngIo*>(png_get_io_ptr(png));
    bool failed = false;
    try {
        io->out->insert(io->out->end(), data, data + length);
    } catch (const std::bad_alloc&) {
        failed = true;
    }
    if (failed) png_error(png, "CMemoryException");
}

void FlushNothing(png_structp) {}

// What the header says and, when asked, the pixels decoded into a new bitmap.
struct Decoded {
    png_uint_32 width;
    png_uint_32 height;
    int bitsPerPixel;
    DWORD paletteSize;
    HBITMAP dib;      // released by the caller, also after a failure
    png_bytep* rows;  // std::free'd by the caller
};

bool IsGrey(int colourType) { return (colourType & PNG_COLOR_MASK_COLOR) == 0; }

// Reads the header and, with pixels, the image. False after a libpng failure (io.message).
bool RunRead(png_structp png, png_infop info, bool pixels, Decoded& d) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_user_limits(png, static_cast<png_uint_32>(kel_bitmap::kMaxDimension),
                        static_cast<png_uint_32>(kel_bitmap::kMaxDimension));
    png_read_info(png, info);
    d.width = png_get_image_width(png, info);
    d.height = png_get_image_height(png, info);
    const int colourType = png_get_color_type(png, info);
    const bool grey = IsGrey(colourType);
    d.bitsPerPixel = grey ? 8 : 24;
    d.paletteSize = grey ? kGreyEntries : 0;
    if (!pixels) return true;

    png_set_strip_16(png);
    png_set_strip_alpha(png);
    if (colourType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (grey && png_get_bit_depth(png, info) < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (!grey) png_set_bgr(png);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const png_size_t rowBytes = png_get_rowbytes(png, info);
    if (rowBytes != static_cast<png_size_t>(d.width) * static_cast<png_size_t>(d.bitsPerPixel / 8))
        png_error(png, "unexpected row size after the transformations");

    d.dib = kel_bitmap::NewDib(static_cast<LONG>(d.width), static_cast<LONG>(d.height),
                               d.bitsPerPixel, d.paletteSize);
    if (d.dib == nullptr) png_error(png, "NewDib == NULL");
    for (int i = 0; i < static_cast<int>(d.paletteSize); ++i) {
        const BYTE v = static_cast<BYTE>(i);
        d.dib->palette[i] = RGBQUAD{v, v, v, 0};
    }
    d.rows = static_cast<png_bytep*>(std::malloc(sizeof(png_bytep) * d.height));
    if (d.rows == nullptr) png_error(png, "CMemoryException");
    for (png_uint_32 y = 0; y < d.height; ++y)
        d.rows[y] = d.dib->bits +
                    static_cast<std::size_t>(y) * static_cast<std::size_t>(d.dib->bytesPerLine);
    png_read_image(png, d.rows);
    return true;
}

// Opens the file and runs libpng over it. False after one trace line "<op> condition"; d.dib
// is the caller's either way.
bool ReadPng(const wchar_t* path, const wchar_t* op, bool pixels, Decoded& d) {
    d = Decoded{0, 0, 0, 0, nullptr, nullptr};
    if (path == nullptr) {
        KEL_TRACE_ALWAYS(L"%s path == NULL", op);
        return false;
    }
    CFile f;
    if (!f.Open(path, CFile::modeRead)) {
        KEL_TRACE_ALWAYS(L"%s cannot open %s", op, path);
        return false;
    }
    PngIo io{{0}, &f, nullptr};
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &io, &OnError, &OnWarning);
    png_infop info = png != nullptr ? png_create_info_struct(png) : nullptr;
    if (info == nullptr) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        KEL_TRACE_ALWAYS(L"%s CMemoryException", op);
        return false;
    }
    png_set_read_fn(png, &io, &ReadFromFile);
    const bool ok = RunRead(png, info, pixels, d);
    png_destroy_read_struct(&png, &info, nullptr);
    std::free(d.rows);
    d.rows = nullptr;
    if (!ok) KEL_TRACE_ALWAYS(L"%s libpng: %S", op, io.message);
    return ok;
}

bool RunWrite(png_structp png, png_infop info, const unsigned char* rgb, int width, int height) {
    if (setjmp(png_jmpbuf(png))) return false;
    png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8,
                 PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const std::size_t stride = 3 * static_cast<std::size_t>(width);
    for (int y = 0; y < height; ++y)
        png_write_row(png, const_cast<png_bytep>(rgb + static_cast<std::size_t>(y) * stride));
    png_write_end(png, info);
    return true;
}

}  // namespace

HBITMAP LoadPngFromFile(const wchar_t* path) {
    try {
        Decoded d;
        if (ReadPng(path, L"LoadPngFromFile", true, d)) return d.dib;
        DeleteObject(d.dib);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"LoadPngFromFile CMemoryException");
    }
    return nullptr;
}

unsigned long GetPngFileSizeFromFile(const wchar_t* path) {
    try {
        Decoded d;
        if (!ReadPng(path, L"GetPngFileSizeFromFile", false, d)) return 0;
        return static_cast<unsigned long>(kel_bitmap::DibBytes(static_cast<LONG>(d.width),
                                                               static_cast<LONG>(d.height),
                                                               d.bitsPerPixel, d.paletteSize));
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"GetPngFileSizeFromFile CMemoryException");
    }
    return 0;
}

namespace kel_png {

int EncodePng(const unsigned char* rgb, int width, int height, std::vector<unsigned char>& png) {
    if (rgb == nullptr || width <= 0 || height <= 0 || width > kel_bitmap::kMaxDimension ||
        height > kel_bitmap::kMaxDimension) {
        KEL_TRACE_ALWAYS(L"kel_png::EncodePng rgb == NULL || width or height out of range");
        return 0;
    }
    png.clear();
    PngIo io{{0}, nullptr, &png};
    png_structp w = png_create_write_struct(PNG_LIBPNG_VER_STRING, &io, &OnError, &OnWarning);
    png_infop info = w != nullptr ? png_create_info_struct(w) : nullptr;
    if (info == nullptr) {
        png_destroy_write_struct(&w, nullptr);
        KEL_TRACE_ALWAYS(L"kel_png::EncodePng CMemoryException");
        return 0;
    }
    png_set_write_fn(w, &io, &WriteToVector, &FlushNothing);
    const bool ok = RunWrite(w, info, rgb, width, height);
    png_destroy_write_struct(&w, &info);
    if (!ok) {
        png.clear();
        KEL_TRACE_ALWAYS(L"kel_png::EncodePng libpng: %S", io.message);
        return 0;
    }
    return 1;
}

int WritePng(const char* path, const unsigned char* rgb, int width, int height) {
    if (path == nullptr) {
        KEL_TRACE_ALWAYS(L"kel_png::WritePng path == NULL");
        return 0;
    }
    try {
        std::vector<unsigned char> bytes;
        if (!EncodePng(rgb, width, height, bytes)) return 0;
        const kel_text::CKelString file = kel_text::Utf8ToWide(path);
        CFile f;
        if (!f.Open(file.GetString(), CFile::modeCreate | CFile::modeWrite)) {
            KEL_TRACE_ALWAYS(L"kel_png::WritePng cannot open %s", file.GetString());
            return 0;
        }
        try {
            // In pieces: one CFile::Write takes a 32-bit count.
            for (std::size_t at = 0; at < bytes.size(); at += kWriteChunk) {
                const std::size_t n =
                    bytes.size() - at < kWriteChunk ? bytes.size() - at : kWriteChunk;
                f.Write(bytes.data() + at, static_cast<UINT>(n));
            }
            f.Flush();
            f.Close();
        } catch (const CFileException&) {
            f.Abort();
            DeleteFileW(file.GetString());
            KEL_TRACE_ALWAYS(L"kel_png::WritePng CFileException");
            return 0;
        }
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"kel_png::WritePng CMemoryException");
        return 0;
    }
    return 1;
}

}  // namespace kel_png
