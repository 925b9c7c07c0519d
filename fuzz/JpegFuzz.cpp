// The JPEG path over arbitrary bytes: the size query through the codec module and, for images
// small enough to decode quickly, the load at a requested rate and at full resolution.
#include <cstdint>

#include "FuzzFiles.h"
#include "imaging/FCIMGBitmap.h"
#include "platform/DynLoad.h"

namespace {
// Larger images are only sized, not decoded: a header may claim 65535 x 65535 pixels.
constexpr unsigned long kMaxDecodeBytes = 16ul << 20;

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
    if (bytes == 0 || bytes > kMaxDecodeBytes) return 0;
    CFCIMGBitmap rated;
    rated.SetRate_Res(1, 1);
    rated.LoadImgFile(L"\\fuzz.jpg", 0);
    CFCIMGBitmap full;
    if (full.LoadImgFile(L"\\fuzz.jpg", 1) == SC_IMG_OK) full.IsGrayScale();
    return 0;
}
