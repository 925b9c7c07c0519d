// The JPEG path over arbitrary bytes: the size query through the codec module, the load at a
// requested rate (large images at 1/8, so they are decoded too), and for images small enough
// to decode quickly the load at full resolution and the fallback ladder (1/1, 1/2, 1/4, 1/8 in
// turn while decoding fails).
#include <cstdint>

#include "FuzzFiles.h"
#include "imaging/FCIMGBitmap.h"
#include "platform/DynLoad.h"

namespace {
// Largest bitmap decoded (bytes): a header may claim 65535 x 65535 pixels.
constexpr unsigned long kMaxDecodeBytes = 16ul << 20;
// A requested rate decodes an image whose longer side reaches 1025 pixels at 1/8, a 64th of
// its full-resolution bytes; smaller ones need less than kMaxDecodeBytes anyway.
constexpr unsigned long kMaxRatedBytes = 64 * kMaxDecodeBytes;

// The codec module stays loaded for the whole run: libFuzzer keeps pointers to the coverage
// counters of every instrumented module, and unloading one after each input (as the bitmap's
// holder does) would leave them dangling.
void PinCodecModule() {
    static HMODULE pinned = nullptr;
    if (pinned == nullptr)
        GetLibraryFunction(L"JPEG_LIB.dll", "Create_JpegInterface_ExplicitLoading", &pinned);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    PinCodecModule();
    kel_fuzz::WriteInput(L"\\fuzz.jpg", data, size);
    kel_text::CKelString path(L"\\fuzz.jpg");
    const unsigned long bytes = GetScanningImageFileSize(path);
    if (bytes == 0 || bytes > kMaxRatedBytes) return 0;
    CFCIMGBitmap rated;
    rated.SetRate_Res(1, 1);
    rated.LoadImgFile(L"\\fuzz.jpg", 0);
    if (bytes > kMaxDecodeBytes) return 0;
    CFCIMGBitmap full;
    if (full.LoadImgFile(L"\\fuzz.jpg", 1) == SC_IMG_OK) full.IsGrayScale();
    CFCIMGBitmap ladder;
    ladder.LoadImgFile(L"\\fuzz.jpg", 0);
    return 0;
}
