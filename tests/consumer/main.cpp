// Uses the installed package: headers under include/kelscan, the exported target, the codec
// module found with no KELSCAN_PLUGIN_PATH set, the installed sample data, and PNG files
// through the library's private libpng.
#include <cstdio>

#include "geometry/KelArray.h"
#include "imaging/FCIMGBitmap.h"
#include "imaging/PngFile.h"
#include "platform/KelMath.h"
#include "platform/KelString.h"

namespace {

int Failed(const char* what) {
    std::fprintf(stderr, "consumer: %s\n", what);
    return 1;
}

}  // namespace

int main() {
    kel_templ::CKelArray<double, double> a;
    a.Add(ModDeg360(-90.0, true));
    kel_text::CKelString s;
    s.Format(L"%.1lf", a[0]);
    if (s != L"270.0") return Failed("ModDeg360 / Format");

    CFCIMGBitmap photo;
    const kel_text::CKelString path = kel_text::Utf8ToWide(KELSCAN_SAMPLE_DATA "/photo.jpg");
    if (photo.LoadImgFile(path.GetString(), 1) != SC_IMG_OK || photo.GetImageWidth() != 320)
        return Failed("the sample photo did not load through the codec module");

    const unsigned char rgb[6] = {255, 0, 0, 0, 0, 255};
    if (!kel_png::WritePng("consumer.png", rgb, 2, 1)) return Failed("WritePng");
    CFCIMGBitmap png;
    if (png.LoadImgFile(L"consumer.png", 1) != SC_IMG_OK || png.GetImageWidth() != 2)
        return Failed("the PNG did not read back");
    return 0;
}
