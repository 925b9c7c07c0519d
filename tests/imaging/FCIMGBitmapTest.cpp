// The photograph holder: type by extension, JPEG decoding through the codec module against
// libjpeg's own decode, the rate ladder, the bytes an image needs, palettes and failures.
#include <string>
#include <vector>

#include "ImageFiles.h"
#include "common/KelTest.h"
#include "imaging/FCIMGBitmap.h"

namespace {

using kel_imgtest::BmpBytes;
using kel_imgtest::JpegBytes;
using kel_imgtest::Pattern;
using kel_imgtest::Picture;

class FCIMGBitmapTest : public kel_imgtest::ImagingTest {};

// The red, green, blue bytes a picture's pixel shows.
std::vector<std::uint8_t> Rgb(const Picture& p) {
    std::vector<std::uint8_t> out;
    const int n = p.bitsPerPixel <= 8 ? 1 : p.bitsPerPixel / 8;
    for (std::size_t i = 0; i < p.pixels.size(); i += static_cast<std::size_t>(n)) {
        const std::uint8_t* bgr = p.bitsPerPixel <= 8 ? &p.palette[4u * p.pixels[i]] : &p.pixels[i];
        out.insert(out.end(), {bgr[2], bgr[1], bgr[0]});
    }
    return out;
}

TEST_F(FCIMGBitmapTest, TypeComesFromTheExtensionInAnyCase) {
    CFCIMGBitmap img;
    for (const wchar_t* p : {L"a.jpg", L"B.JPG", L"c.Jpeg", L"d.jpe", L"e.JFIF", L"\\x.y\\f.jpg"})
        EXPECT_EQ(img.GetFileTypeExt(p), SC_IMG_EXT_JPEG) << kel_text::WideToUtf8(p);
    for (const wchar_t* p : {L"a.bmp", L"B.BMP", L"c.Dib"})
        EXPECT_EQ(img.GetFileTypeExt(p), SC_IMG_EXT_BMP);
    EXPECT_EQ(img.GetFileTypeExt(L"c.Png"), SC_IMG_EXT_PNG);
    for (const wchar_t* p : {L"a.gif", L"jpg", L"a.jpgx", L"", L"a.bm", L"a.pngx"})
        EXPECT_EQ(img.GetFileTypeExt(p), SC_IMG_EXT_UNKNOWN);

    EXPECT_EQ(img.LoadImgFile(L"\\photo.gif", 0), SC_IMG_ERR_TYPE);
    EXPECT_EQ(img.GetNoImgFlg(), 1);
    EXPECT_EQ(img.GethBitmap(), nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{
                           "CFCIMGBitmap::ReloadImgFile GetFileTypeExt == SC_IMG_EXT_UNKNOWN"});
}

TEST_F(FCIMGBitmapTest, JpegDecodesAsLibjpegDoesAtTheRequestedRate) {
    struct Case {
        int w, h, rate;
    };
    // The larger dimension picks the rate: < 321 -> 1, < 801 -> 2, < 1025 -> 4, else 8.
    for (const Case c : {Case{2000, 1500, 8}, Case{1024, 768, 4}, Case{640, 480, 2},
                         Case{320, 240, 1}, Case{240, 321, 2}, Case{1025, 8, 8}}) {
        SCOPED_TRACE(std::to_string(c.w) + "x" + std::to_string(c.h));
        const std::string jpeg = JpegBytes(c.w, c.h, false, 90);
        Write("photo.JPG", jpeg);
        CFCIMGBitmap img;
        img.SetRate_Res(1, 1);
        ClearLines();
        ASSERT_EQ(img.LoadImgFile(L"\\photo.JPG", 0), SC_IMG_OK);
        EXPECT_TRUE(Lines().empty());
        EXPECT_EQ(img.GetNoImgFlg(), 0);
        EXPECT_EQ(img.GetRate_Res(), c.rate);
        EXPECT_EQ(img.GetRate_ResSum(), 0);
        int w = 0, h = 0;
        std::vector<std::uint8_t> want;
        ASSERT_TRUE(kel_imgtest::DecodeReference(jpeg, c.rate, w, h, want));
        EXPECT_EQ(img.GetImageWidth(), (c.w + c.rate - 1) / c.rate);
        EXPECT_EQ(img.GetImageWidth(), w);
        EXPECT_EQ(img.GetImageHeight(), h);
        EXPECT_EQ(kel_imgtest::Unpadded(img.GethBitmap()), want);
        BITMAP bm;
        img.GetBitmap(&bm);
        EXPECT_EQ(bm.bmBitsPixel, 24);
        EXPECT_EQ(img.GetImageSizeInBytes(), static_cast<unsigned>(bm.bmWidthBytes * h));
        EXPECT_EQ(img.GetPaletteSize(), 0);
        EXPECT_EQ(img.IsGrayScale(), 0);
    }
}

TEST_F(FCIMGBitmapTest, WithoutARequestTheFullScaleIsTriedFirstAndLogged) {
    const std::string jpeg = JpegBytes(96, 64, true, 75);
    Write("grey.jpeg", jpeg);
    CFCIMGBitmap img;
    ASSERT_EQ(img.LoadImgFile(L"\\grey.jpeg", 0), SC_IMG_OK);
    EXPECT_EQ(Lines(), std::vector<std::string>{"************scaleDenom=1"});
    EXPECT_EQ(img.GetRate_Res(), 1);
    EXPECT_EQ(img.GetImageWidth(), 96);
    int w = 0, h = 0;
    std::vector<std::uint8_t> want;
    ASSERT_TRUE(kel_imgtest::DecodeReference(jpeg, 1, w, h, want));
    EXPECT_EQ(kel_imgtest::Unpadded(img.GethBitmap()), want);
    EXPECT_EQ(img.GetPaletteSize(), 256);
    EXPECT_EQ(img.IsGrayScale(), 1);
    ASSERT_NE(img.GethPalette(), nullptr);

    // Forced full resolution ignores a stale rate and logs nothing.
    img.SetRate_Res(8, 0);
    ClearLines();
    ASSERT_EQ(img.LoadImgFile(L"\\grey.jpeg", 1), SC_IMG_OK);
    EXPECT_EQ(img.GetRate_Res(), 1);
    EXPECT_TRUE(Lines().empty());
    // A reload of the same path gives the same picture.
    ASSERT_EQ(img.ReloadImgFile(), SC_IMG_OK);
    EXPECT_EQ(kel_imgtest::Unpadded(img.GethBitmap()), want);
}

TEST_F(FCIMGBitmapTest, BrokenJpegsFailAndLeaveNoBitmap) {
    const std::string jpeg = JpegBytes(64, 48, false, 80);
    CFCIMGBitmap img;
    Write("good.jpg", jpeg);
    ASSERT_EQ(img.LoadImgFile(L"\\good.jpg", 1), SC_IMG_OK);

    Write("garbage.jpg", std::string(300, 'x'));
    ClearLines();
    EXPECT_EQ(img.LoadImgFile(L"\\garbage.jpg", 1), SC_IMG_ERR_OPEN);
    EXPECT_EQ(Lines(), std::vector<std::string>{"CFCIMGBitmap::LoadJpeg Open(path) == 0"});
    EXPECT_EQ(img.GetNoImgFlg(), 1);
    EXPECT_EQ(img.GethBitmap(), nullptr);

    // Header intact, entropy data cut: every scale fails.
    Write("cut.jpg", jpeg.substr(0, jpeg.size() / 2));
    ClearLines();
    EXPECT_EQ(img.LoadImgFile(L"\\cut.jpg", 0), SC_IMG_ERR_DECODE);
    ASSERT_EQ(Lines().size(), 5u);
    EXPECT_EQ(Lines()[3], "************scaleDenom=8");
    EXPECT_EQ(Lines()[4], "CFCIMGBitmap::LoadJpeg Decode(scaleDenom, 0) == 0 for every scale");
    EXPECT_EQ(img.GethBitmap(), nullptr);
    EXPECT_EQ(img.GetRate_Res(), 8);

    for (std::size_t n : {std::size_t(0), std::size_t(2), std::size_t(100), jpeg.size() - 2}) {
        Write("t.jpg", jpeg.substr(0, n));
        EXPECT_NE(img.LoadImgFile(L"\\t.jpg", 1), SC_IMG_OK) << n;
        EXPECT_EQ(img.GethBitmap(), nullptr);
    }
    EXPECT_EQ(img.LoadImgFile(L"\\missing.jpg", 1), SC_IMG_ERR_OPEN);
}

TEST_F(FCIMGBitmapTest, BytesNeededFollowTheTypeAndTheSize) {
    Write("p.jpg", JpegBytes(100, 30, false, 80));
    Write("g.jpg", JpegBytes(100, 30, true, 80));
    Write("p.bmp", BmpBytes(Pattern(9, 4, 4), true));
    Write("p.gif", "not looked at");
    CFCIMGBitmap img;
    kel_text::CKelString jpg(L"\\p.jpg"), grey(L"\\g.jpg"), bmp(L"\\p.bmp"), gif(L"\\p.gif");
    const unsigned long header = 40;  // the information header of a DIB
    EXPECT_EQ(img.GetImgFileSize(jpg), header + 300u * 30);
    EXPECT_EQ(img.GetJPEGFileSize(jpg), header + 300u * 30);
    EXPECT_EQ(GetScanningImageFileSize(jpg), header + 300u * 30);
    EXPECT_EQ(img.GetImgFileSize(grey), header + 1024u + 100u * 30);
    EXPECT_EQ(img.GetImgFileSize(bmp), header + 64u + 8u * 4);
    EXPECT_EQ(img.GetImgFileSize(gif), 0u);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(FCIMGBitmapTest, PalettesAndCreate) {
    Picture p = Pattern(16, 2, 8);
    for (int i = 0; i < 256; ++i)
        for (int k = 0; k < 3; ++k) p.palette[4 * i + k] = static_cast<std::uint8_t>(i);
    Write("ramp.bmp", BmpBytes(p, false));
    p.palette[4 * 200 + 1] = 201;  // green of entry 200 off the ramp
    Write("off.bmp", BmpBytes(p, false));

    CFCIMGBitmap img;
    EXPECT_EQ(img.IsGrayScale(), 0);  // no bitmap
    ASSERT_EQ(img.LoadImgFile(L"\\ramp.bmp", 0), SC_IMG_OK);
    EXPECT_EQ(img.GetRate_Res(), 1);
    EXPECT_EQ(img.IsGrayScale(), 1);
    ASSERT_EQ(img.LoadImgFile(L"\\off.bmp", 0), SC_IMG_OK);
    EXPECT_EQ(img.IsGrayScale(), 0);

    // Create keeps the loaded size and makes a blank bitmap with the new palette.
    ASSERT_EQ(img.Create(8, 0, 1), 1);
    EXPECT_EQ(img.IsGrayScale(), 1);
    EXPECT_EQ(img.GetImageWidth(), 16);
    ASSERT_EQ(img.Create(8, 300, 0), 1);
    EXPECT_EQ(img.GetPaletteSize(), 256);
    EXPECT_EQ(img.IsGrayScale(), 0);  // entries start black
    ASSERT_EQ(img.Create(4, 0, 1), 1);
    EXPECT_EQ(img.GetPaletteSize(), 16);
    ASSERT_EQ(img.Create(24, 0, 0), 1);
    EXPECT_EQ(img.GetPaletteSize(), 0);
    EXPECT_EQ(img.GethPalette(), nullptr);
    ASSERT_NE(img.GethBitmap(), nullptr);
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(img.Create(12, 0, 0), 0);
    EXPECT_EQ(Lines(), std::vector<std::string>{
                           "CFCIMGBitmap::Create bitsPerPixel not 1, 4, 8, 16, 24 or 32"});
    EXPECT_EQ(img.GethBitmap(), nullptr);

    // An unreadable BMP cannot be described: 6, with the reader's one line.
    Write("bad.bmp", "BM");
    ClearLines();
    EXPECT_EQ(img.LoadImgFile(L"\\bad.bmp", 0), SC_IMG_ERR_GDI);
    EXPECT_EQ(Lines(), std::vector<std::string>{"LoadBitmapFromFile fileLength < 54"});
    EXPECT_EQ(img.GetNoImgFlg(), 1);
    img.Empty();
    EXPECT_EQ(img.GetPaletteSize(), 0);
    EXPECT_EQ(img.GetPaletteEntries(), nullptr);
}

// A rate chosen by the caller, and the pixels as RGB bytes whatever the depth.
TEST_F(FCIMGBitmapTest, AChosenRateAndRgbBytes) {
    const std::string jpeg = JpegBytes(640, 480, false, 90);
    Write("photo.jpg", jpeg);
    CFCIMGBitmap img;
    std::vector<std::uint8_t> rgb(3 * 160 * 120, 7);
    EXPECT_EQ(img.CopyRgb(rgb.data()), 0);  // nothing loaded: untouched
    EXPECT_EQ(rgb[0], 7);
    ASSERT_EQ(img.LoadImgFileAtRate(L"\\photo.jpg", 4), SC_IMG_OK);
    EXPECT_EQ(img.GetRate_Res(), 4);
    int w = 0, h = 0;
    std::vector<std::uint8_t> bgr;
    ASSERT_TRUE(kel_imgtest::DecodeReference(jpeg, 4, w, h, bgr));
    ASSERT_EQ(img.GetImageWidth() * img.GetImageHeight(), 160 * 120);
    ASSERT_EQ(img.CopyRgb(rgb.data()), 1);
    for (std::size_t i = 0; i < bgr.size(); i += 3) std::swap(bgr[i], bgr[i + 2]);
    EXPECT_EQ(rgb, bgr);
    ASSERT_EQ(img.ReloadImgFile(), SC_IMG_OK);  // the rate stays until the next load
    EXPECT_EQ(img.GetImageWidth(), 160);

    for (const int bits : {1, 4, 8, 24, 32}) {
        SCOPED_TRACE(bits);
        const Picture p = Pattern(13, 5, bits);
        Write("p.bmp", BmpBytes(p, false));
        ASSERT_EQ(img.LoadImgFileAtRate(L"\\p.bmp", 1), SC_IMG_OK);
        std::vector<std::uint8_t> out(3 * 13 * 5);
        ASSERT_EQ(img.CopyRgb(out.data()), 1);
        EXPECT_EQ(out, Rgb(p));
    }
    ClearLines();
    EXPECT_EQ(img.LoadImgFileAtRate(L"\\p.bmp", 2), SC_IMG_ERR_TYPE);
    EXPECT_EQ(img.LoadImgFileAtRate(L"\\photo.jpg", 3), SC_IMG_ERR_TYPE);
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "CFCIMGBitmap::LoadImgFileAtRate rate != 1 && GetFileTypeExt(path) != "
                           "SC_IMG_EXT_JPEG",
                           "CFCIMGBitmap::LoadImgFileAtRate rate != 1 && rate != 2 && rate != 4 && "
                           "rate != 8"}));
}

}  // namespace
