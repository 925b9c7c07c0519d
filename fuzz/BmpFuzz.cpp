// The BMP/DIB reader over arbitrary bytes: the size query, the loader, and the photograph
// bitmap's load and palette checks.
#include <cstdint>

#include "FuzzFiles.h"
#include "imaging/BitmapFile.h"
#include "imaging/FCIMGBitmap.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.bmp", data, size);
    GetBitmapFileSizeFromFile(L"\\fuzz.bmp");
    HBITMAP b = LoadBitmapFromFile(L"\\fuzz.bmp");
    BITMAP bm;
    if (GetObjectW(b, static_cast<int>(sizeof bm), &bm) != 0 && bm.bmBits == nullptr) std::abort();
    DeleteObject(b);
    CFCIMGBitmap img;
    if (img.LoadImgFile(L"\\fuzz.bmp", 1) == SC_IMG_OK) img.IsGrayScale();
    return 0;
}
