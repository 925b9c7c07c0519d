// The headless image view: zoom and scroll, view <-> image pixels, and the RGB raster.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <vector>

#include "ImageFiles.h"
#include "common/KelTest.h"
#include "imaging/ImgViewEx.h"
#include "imaging/PngFile.h"

namespace {

class ImgViewTest : public kel_imgtest::ImagingTest {};

std::uint32_t At(const std::vector<unsigned char>& rgb, int w, int x, int y) {
    const unsigned char* p = &rgb[(static_cast<std::size_t>(y) * w + x) * 3];
    return (std::uint32_t(p[0]) << 16) | (std::uint32_t(p[1]) << 8) | p[2];
}

TEST_F(ImgViewTest, PhotoZoomScrollAndOverlays) {
    const kel_imgtest::Picture pic = kel_imgtest::Pattern(8, 6, 24);
    Write("pic.bmp", kel_imgtest::BmpBytes(pic, false));
    CImgViewEx view;
    view.SetViewSize(16, 12);
    ASSERT_EQ(view.LoadImage(L"\\pic.bmp", 1), SC_IMG_OK);
    EXPECT_EQ(view.GetZoom(), 2.0);  // fitted: two view pixels a photo pixel
    EXPECT_EQ(view.GetImageWidth(), 8);
    std::vector<unsigned char> rgb;
    ASSERT_EQ(view.Render(rgb), 1);
    ASSERT_EQ(rgb.size(), 16u * 12u * 3u);
    for (int y = 0; y < 12; ++y)
        for (int x = 0; x < 16; ++x) {
            const std::uint8_t* bgr =
                &pic.pixels[(static_cast<std::size_t>(y / 2) * 8 + x / 2) * 3];
            const std::uint32_t want =
                (std::uint32_t(bgr[2]) << 16) | (std::uint32_t(bgr[1]) << 8) | bgr[0];
            ASSERT_EQ(At(rgb, 16, x, y), want) << x << "," << y;
        }

    // View <-> image, with a load rate of 2: image = (view / zoom + scroll) * 2.
    view.GetBitmap().SetRate_Res(2, 2);
    view.SetScroll(1.5, -0.5);
    double ix = 0.0, iy = 0.0, vx = 0.0, vy = 0.0;
    view.ViewToImg(4.0, 6.0, ix, iy);
    EXPECT_EQ(ix, (4.0 / 2.0 + 1.5) * 2.0);
    EXPECT_EQ(iy, (6.0 / 2.0 - 0.5) * 2.0);
    view.ImgToView(ix, iy, vx, vy);
    EXPECT_EQ(vx, 4.0);
    EXPECT_EQ(vy, 6.0);
    // Zooming at a view pixel keeps the image point under it.
    view.ZoomAt(5.0, 3.0, 7.0);
    view.ViewToImg(3.0, 7.0, vx, vy);
    EXPECT_NEAR(vx, (3.0 / 2.0 + 1.5) * 2.0, 1e-12);
    EXPECT_NEAR(vy, (7.0 / 2.0 - 0.5) * 2.0, 1e-12);
    view.SetZoom(1e9);
    EXPECT_EQ(view.GetZoom(), CImgView::kMaxZoom);

    // Overlays on a black background without the photo's pixels in the way: zoom 1, scroll
    // far away, rate 1.
    view.GetBitmap().SetRate_Res(1, 1);
    view.SetZoom(1.0);
    view.SetScroll(-100.0, -100.0);
    view.SetBackground(0x000000);
    kel_templ::CKelArray<CXYZ, CXYZ&> pts;
    CXYZ p(-95.0, -96.0, 0.0);  // view (5, 4)
    pts.Add(p);
    view.AddPoints(pts, 0x00FF00, 3, CImgViewEx::MARK_CROSS);
    CPolyline line;
    for (const auto& c : {CXYZ(-1e12, -98.0, 0.0), CXYZ(1e12, -98.0, 0.0)}) {  // row 2, huge
        CVertex v(c, 0);
        line.AddVertex(v);
    }
    view.AddPolyline(line, 0x0000FF, 1);
    CPolyline region(CPolyline::kClosed);
    for (const auto& c :
         {CXYZ(-90.0, -92.0, 0.0), CXYZ(-87.0, -92.0, 0.0), CXYZ(-87.0, -90.0, 0.0)}) {
        CVertex v(c, 0);
        region.AddVertex(v);
    }
    view.SetRegion(region);
    view.SetRegionStyle(0xFF0000, 1);
    ASSERT_EQ(view.Render(rgb), 1);
    EXPECT_EQ(At(rgb, 16, 5, 4), 0x00FF00u);  // the cross's centre and arms
    EXPECT_EQ(At(rgb, 16, 4, 4), 0x00FF00u);
    EXPECT_EQ(At(rgb, 16, 5, 5), 0x00FF00u);
    EXPECT_EQ(At(rgb, 16, 4, 5), 0u);  // not a square
    for (int x = 0; x < 16; ++x) EXPECT_EQ(At(rgb, 16, x, 2), 0x0000FFu) << x;
    EXPECT_EQ(At(rgb, 16, 10, 8), 0xFF0000u);  // the region's corners and its edges
    EXPECT_EQ(At(rgb, 16, 13, 8), 0xFF0000u);
    EXPECT_EQ(At(rgb, 16, 13, 10), 0xFF0000u);
    EXPECT_EQ(At(rgb, 16, 12, 8), 0xFF0000u);
    EXPECT_EQ(At(rgb, 16, 11, 9), 0u);  // inside, not on an edge
    EXPECT_EQ(At(rgb, 16, 0, 11), 0u);

    // The view written as PNG reads back as the raster it rendered (blue, green, red rows).
    ASSERT_EQ(view.WritePng("\\view.png"), 1);
    HBITMAP png = LoadPngFromFile(L"\\view.png");
    ASSERT_NE(png, nullptr);
    const std::uint8_t* row = png->bits + 2 * png->bytesPerLine;
    EXPECT_EQ(row[3 * 7 + 0], 0xFF);  // blue line on view row 2
    EXPECT_EQ(row[3 * 7 + 2], 0x00);
    DeleteObject(png);

    // The region drawn in view pixels lands in image pixels.
    view.ClearRegion();
    view.AddRegionVertexView(5.0, 4.0);
    EXPECT_EQ(view.GetRegion().m_vertex[0].x, -95.0);
    EXPECT_EQ(view.GetRegion().m_vertex[0].y, -96.0);
}

}  // namespace
