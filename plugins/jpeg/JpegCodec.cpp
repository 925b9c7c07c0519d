// The JPEG codec module "JPEG_LIB.dll" (libJPEG_LIB.so here): decodes a JPEG file into a
// bitmap at 1/1, 1/2, 1/4 or 1/8 of its size with libjpeg's DCT-domain scaling, so that a
// reduced picture costs a fraction of the full decode. libjpeg reports errors by calling an
// exit function; here it jumps back into the call that started the work, so no error leaves
// the module. Warnings about corrupt data (a truncated file, a bad marker) fail the decode too:
// a half-grey picture is not a photograph to measure on.
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>

#include "imaging/JpegInterface.h"

#define KELSCAN_MODULE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

// Rows handed to libjpeg per call.
constexpr int kRowBatch = 16;
// Largest file read into memory (bytes).
constexpr long kMaxFileBytes = 512L * 1024 * 1024;

struct ErrorJump {
    jpeg_error_mgr mgr;
    std::jmp_buf jump;
};

void ErrorExit(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<ErrorJump*>(cinfo->err)->jump, 1); }

// Level -1 is a warning about corrupt data: fatal here. Trace levels are ignored.
void EmitMessage(j_common_ptr cinfo, int level) {
    if (level < 0) ErrorExit(cinfo);
}

void NoOutput(j_common_ptr) {}

void InstallErrors(jpeg_decompress_struct& cinfo, ErrorJump& err) {
    cinfo.err = jpeg_std_error(&err.mgr);
    err.mgr.error_exit = &ErrorExit;
    err.mgr.emit_message = &EmitMessage;
    err.mgr.output_message = &NoOutput;
}

// The UTF-8 form of a wide host path.
std::string Utf8(const wchar_t* w) {
    std::string s;
    for (; w != nullptr && *w != 0; ++w) {
        const unsigned long c = static_cast<unsigned long>(*w);
        if (c < 0x80) {
            s += static_cast<char>(c);
        } else if (c < 0x800) {
            s += static_cast<char>(0xC0 | (c >> 6));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            s += static_cast<char>(0xE0 | (c >> 12));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            s += static_cast<char>(0xF0 | (c >> 18));
            s += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            s += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            s += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return s;
}

// Reads a whole file into a malloc block; null when it cannot be read or is empty.
unsigned char* ReadWholeFile(const wchar_t* hostPath, unsigned long& size) {
    size = 0;
    std::FILE* f = std::fopen(Utf8(hostPath).c_str(), "rb");
    if (f == nullptr) return nullptr;
    unsigned char* data = nullptr;
    if (std::fseek(f, 0, SEEK_END) == 0) {
        const long n = std::ftell(f);
        if (n > 0 && n <= kMaxFileBytes && std::fseek(f, 0, SEEK_SET) == 0) {
            data = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(n)));
            if (data != nullptr &&
                std::fread(data, 1, static_cast<std::size_t>(n), f) == static_cast<std::size_t>(n)) {
                size = static_cast<unsigned long>(n);
            } else {
                std::free(data);
                data = nullptr;
            }
        }
    }
    std::fclose(f);
    return data;
}

// Reads the header of a JPEG in memory; false when it is none.
bool ReadHeader(const unsigned char* data, unsigned long size, int& width, int& height,
                bool& grey) {
    jpeg_decompress_struct cinfo;
    ErrorJump err;
    InstallErrors(cinfo, err);
    if (setjmp(err.jump)) {
        jpeg_destroy_decompress(&cinfo);
        return false;
    }
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, data, size);
    jpeg_read_header(&cinfo, TRUE);
    width = static_cast<int>(cinfo.image_width);
    height = static_cast<int>(cinfo.image_height);
    grey = cinfo.jpeg_color_space == JCS_GRAYSCALE;
    jpeg_destroy_decompress(&cinfo);
    return true;
}

class CJpegCodec : public CJpegInterface {
public:
    CJpegCodec() = default;
    CJpegCodec(const CJpegCodec&) = delete;
    CJpegCodec& operator=(const CJpegCodec&) = delete;
    ~CJpegCodec() override { Close(); }

    int Open(const wchar_t* hostPath) override {
        Close();
        m_data = ReadWholeFile(hostPath, m_size);
        if (m_data == nullptr) return 0;
        if (!ReadHeader(m_data, m_size, m_width, m_height, m_grey)) {
            Close();
            return 0;
        }
        return 1;
    }
    int GetWidth() const override { return m_width; }
    int GetHeight() const override { return m_height; }

    int Decode(int scaleDenom, int flags) override {
        if (m_data == nullptr || flags != 0) return 0;
        if (scaleDenom != 1 && scaleDenom != 2 && scaleDenom != 4 && scaleDenom != 8) return 0;
        DeleteBitmap();
        jpeg_decompress_struct cinfo;
        ErrorJump err;
        InstallErrors(cinfo, err);
        if (setjmp(err.jump)) {
            jpeg_destroy_decompress(&cinfo);
            DeleteBitmap();
            return 0;
        }
        jpeg_create_decompress(&cinfo);
        jpeg_mem_src(&cinfo, m_data, m_size);
        jpeg_read_header(&cinfo, TRUE);
        cinfo.scale_num = 1;
        cinfo.scale_denom = static_cast<unsigned int>(scaleDenom);
        cinfo.out_color_space = m_grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
        jpeg_start_decompress(&cinfo);
        m_bitmap = kel_bitmap::NewDib(static_cast<LONG>(cinfo.output_width),
                                      static_cast<LONG>(cinfo.output_height), m_grey ? 8 : 24,
                                      m_grey ? 256 : 0);
        if (m_bitmap == nullptr) {
            jpeg_destroy_decompress(&cinfo);
            return 0;
        }
        for (DWORD i = 0; i < m_bitmap->paletteSize; ++i) {
            const BYTE v = static_cast<BYTE>(i);
            m_bitmap->palette[i] = RGBQUAD{v, v, v, 0};
        }
        JSAMPROW rows[kRowBatch];
        while (cinfo.output_scanline < cinfo.output_height) {
            const JDIMENSION first = cinfo.output_scanline;
            int n = 0;
            for (; n < kRowBatch && first + static_cast<JDIMENSION>(n) < cinfo.output_height; ++n)
                rows[n] = m_bitmap->bits + static_cast<std::size_t>(first + n) *
                                               static_cast<std::size_t>(m_bitmap->bytesPerLine);
            jpeg_read_scanlines(&cinfo, rows, static_cast<JDIMENSION>(n));
        }
        jpeg_finish_decompress(&cinfo);
        jpeg_destroy_decompress(&cinfo);
        return 1;
    }

    HBITMAP DetachBitmap() override {
        HBITMAP b = m_bitmap;
        m_bitmap = nullptr;
        return b;
    }

private:
    void DeleteBitmap() {
        kel_bitmap::FreeDib(m_bitmap);
        m_bitmap = nullptr;
    }
    void Close() {
        DeleteBitmap();
        std::free(m_data);
        m_data = nullptr;
        m_size = 0;
        m_width = m_height = 0;
        m_grey = false;
    }

    unsigned char* m_data = nullptr;  // the whole file
    unsigned long m_size = 0;
    int m_width = 0;
    int m_height = 0;
    bool m_grey = false;
    HBITMAP m_bitmap = nullptr;
};

}  // namespace

KELSCAN_MODULE_EXPORT CJpegInterface* Create_JpegInterface_ExplicitLoading() {
    return new (std::nothrow) CJpegCodec();
}

KELSCAN_MODULE_EXPORT void Destroy_JpegInterface_ExplicitLoading(CJpegInterface* jpeg) {
    delete static_cast<CJpegCodec*>(jpeg);
}

KELSCAN_MODULE_EXPORT unsigned long getJPEGFileSize_ExplicitLoading(const wchar_t* hostPath) {
    unsigned long size = 0;
    unsigned char* data = ReadWholeFile(hostPath, size);
    if (data == nullptr) return 0;
    int width = 0, height = 0;
    bool grey = false;
    const bool ok = ReadHeader(data, size, width, height, grey);
    std::free(data);
    if (!ok) return 0;
    return static_cast<unsigned long>(
        kel_bitmap::DibBytes(width, height, grey ? 8 : 24, grey ? 256 : 0));
}
