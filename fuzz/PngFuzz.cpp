// The PNG reader over arbitrary bytes: the size query, the loader and the photograph bitmap's
// load; a picture that loads is written again and read back.
#include <cstdint>
#include <vector>

#include "FuzzFiles.h"
#include "imaging/FCIMGBitmap.h"
#include "imaging/PngFile.h"

namespace {
// Larger images are only sized, not decoded: a header may claim 65535 x 65535 pixels.
constexpr unsigned long kMaxDecodeBytes = 16ul << 20;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.png", data, size);
    const unsigned long bytes = GetPngFileSizeFromFile(L"\\fuzz.png");
    if (bytes == 0 || bytes > kMaxDecodeBytes) return 0;
    HBITMAP b = LoadPngFromFile(L"\\fuzz.png");
    if (b != nullptr && b->bitsPerPixel == 24) {
        std::vector<unsigned char> rgb;
        for (LONG y = 0; y < b->height; ++y)
            for (LONG x = 0; x < b->width; ++x)
                for (int c = 2; c >= 0; --c)
                    rgb.push_back(b->bits[y * b->bytesPerLine + 3 * x + c]);
        std::vector<unsigned char> png;
        if (!kel_png::EncodePng(rgb.data(), b->width, b->height, png)) std::abort();
    }
    DeleteObject(b);
    CFCIMGBitmap img;
    if (img.LoadImgFile(L"\\fuzz.png", 1) == SC_IMG_OK) img.IsGrayScale();
    return 0;
}
