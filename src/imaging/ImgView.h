#pragma once
// CImgView: a view of the photograph without a window: the photograph (CFCIMGBitmap), the
// size of the view in view pixels, its zoom and scroll state, and the conversion between view
// pixels and full-resolution image pixels.
//
// Three pixel grids meet here, all with x to the right and y down the rows:
// - full-resolution image pixels (the camera's grid; what every other class is given);
// - bitmap pixels: the photograph as loaded, reduced by the load rate r = GetRate_Res()
//   (1, 2, 4 or 8): bitmap = image / r;
// - view pixels: view = (bitmap - scroll) * zoom, where scroll is the bitmap point shown at
//   the view's top-left corner and zoom the view pixels per bitmap pixel.
// So image = (view / zoom + scroll) * r, and view = (image / r - scroll) * zoom.
#include "imaging/FCIMGBitmap.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CImgView {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr double kMinZoom = 1.0 / 64.0;  // view pixels per bitmap pixel
    static constexpr double kMaxZoom = 64.0;

    CImgView();
    CImgView(const CImgView&) = delete;
    CImgView& operator=(const CImgView&) = delete;
    virtual ~CImgView();

    // Loads the photograph (CFCIMGBitmap::LoadImgFile with the full-resolution flag) and
    // fits it into the view. Returns the loader's result (SC_IMG_OK on success).
    SC_IMG_ERRORS LoadImage(const wchar_t* path, int noSetResRate);
    CFCIMGBitmap& GetBitmap() { return m_bitmap; }
    const CFCIMGBitmap& GetBitmap() const { return m_bitmap; }
    // The load rate r (1 when nothing is loaded or the loader reported 0).
    int GetRate() const;
    // Full-resolution image size in pixels (the loaded bitmap's size times r); 0 without one.
    int GetImageWidth() const;
    int GetImageHeight() const;

    // View size in view pixels; values below 1 count as 1.
    void SetViewSize(int width, int height);
    int GetViewWidth() const { return m_viewWidth; }
    int GetViewHeight() const { return m_viewHeight; }
    // Zoom clamped into [kMinZoom, kMaxZoom]; the scroll is kept.
    void SetZoom(double zoom);
    double GetZoom() const { return m_zoom; }
    // Zoom keeping the image pixel under view pixel (vx, vy) where it is.
    void ZoomAt(double zoom, double vx, double vy);
    // The bitmap point at the view's top-left corner (bitmap pixels, not clamped).
    void SetScroll(double x, double y);
    void ScrollBy(double dxView, double dyView);  // by view pixels
    double GetScrollX() const { return m_scrollX; }
    double GetScrollY() const { return m_scrollY; }
    // Zoom and scroll that show the whole photograph centred in the view.
    void FitToView();

    // View pixels <-> full-resolution image pixels (see the top of this file).
    void ViewToImg(double vx, double vy, double& ix, double& iy) const;
    void ImgToView(double ix, double iy, double& vx, double& vy) const;

protected:
    CFCIMGBitmap m_bitmap;
    int m_viewWidth;
    int m_viewHeight;
    double m_zoom;
    double m_scrollX;
    double m_scrollY;
};
