// Built into a folder without the JPEG codec module: every JPEG load returns 5 and JPEG sizes
// are 0, while BMP files still load.
#include <string>
#include <vector>

#include "ImageFiles.h"
#include "common/KelTest.h"
#include "imaging/FCIMGBitmap.h"

namespace {

class NoCodecTest : public kel_test::KelFixture {};

TEST_F(NoCodecTest, JpegLoadsFailWithDecodeErrorAndSizesAreZero) {
    kel_test::WriteFileBytes(HostPath("p.jpg"), kel_imgtest::JpegBytes(32, 32, false, 80));
    kel_test::WriteFileBytes(HostPath("p.bmp"),
                             kel_imgtest::BmpBytes(kel_imgtest::Pattern(3, 3, 24), false));
    CFCIMGBitmap img;
    for (int noSetResRate : {0, 1}) {
        for (int rateSum : {0, 1}) {
            img.SetRate_Res(1, rateSum);
            ClearLines();
            EXPECT_EQ(img.LoadImgFile(L"\\p.jpg", noSetResRate), SC_IMG_ERR_DECODE);
            EXPECT_EQ(img.GetNoImgFlg(), 1);
            EXPECT_EQ(img.GethBitmap(), nullptr);
            ASSERT_FALSE(Lines().empty());
            EXPECT_EQ(Lines().back(), "GetLibraryFunction module not found: JPEG_LIB.dll");
        }
    }
    kel_text::CKelString jpg(L"\\p.jpg"), bmp(L"\\p.bmp");
    EXPECT_EQ(img.GetImgFileSize(jpg), 0u);
    EXPECT_EQ(GetScanningImageFileSize(jpg), 0u);
    EXPECT_EQ(img.GetImgFileSize(bmp), 40u + 12u * 3);
    EXPECT_EQ(img.LoadImgFile(L"\\p.bmp", 0), SC_IMG_OK);
}

}  // namespace
