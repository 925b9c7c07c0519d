#include "imaging/ImgView.h"

#include <algorithm>

CImgView::CImgView()
    : m_viewWidth(640), m_viewHeight(480), m_zoom(1.0), m_scrollX(0.0), m_scrollY(0.0) {}

CImgView::~CImgView() = default;

SC_IMG_ERRORS CImgView::LoadImage(const wchar_t* path, int noSetResRate) {
    const SC_IMG_ERRORS r = m_bitmap.LoadImgFile(path, noSetResRate);
    if (r == SC_IMG_OK) FitToView();
    return r;
}

int CImgView::GetRate() const {
    const int r = m_bitmap.GetRate_Res();
    return r >= 1 ? r : 1;
}

int CImgView::GetImageWidth() const {
    const HBITMAP b = m_bitmap.GethBitmap();
    return b != nullptr ? static_cast<int>(b->width) * GetRate() : 0;
}

int CImgView::GetImageHeight() const {
    const HBITMAP b = m_bitmap.GethBitmap();
    return b != nullptr ? static_cast<int>(b->height) * GetRate() : 0;
}

void CImgView::SetViewSize(int width, int height) {
    m_viewWidth = std::max(1, width);
    m_viewHeight = std::max(1, height);
}

void CImgView::SetZoom(double zoom) {
    if (!(zoom >= kMinZoom)) zoom = kMinZoom;  // NaN too
    m_zoom = std::min(zoom, kMaxZoom);
}

void CImgView::ZoomAt(double zoom, double vx, double vy) {
    const double bx = vx / m_zoom + m_scrollX, by = vy / m_zoom + m_scrollY;
    SetZoom(zoom);
    m_scrollX = bx - vx / m_zoom;
    m_scrollY = by - vy / m_zoom;
}

void CImgView::SetScroll(double x, double y) {
    m_scrollX = x;
    m_scrollY = y;
}

void CImgView::ScrollBy(double dxView, double dyView) {
    m_scrollX += dxView / m_zoom;
    m_scrollY += dyView / m_zoom;
}

void CImgView::FitToView() {
    const HBITMAP b = m_bitmap.GethBitmap();
    if (b == nullptr) {
        SetZoom(1.0);
        SetScroll(0.0, 0.0);
        return;
    }
    const double w = static_cast<double>(b->width), h = static_cast<double>(b->height);
    SetZoom(std::min(m_viewWidth / w, m_viewHeight / h));
    m_scrollX = (w - m_viewWidth / m_zoom) * 0.5;
    m_scrollY = (h - m_viewHeight / m_zoom) * 0.5;
}

void CImgView::ViewToImg(double vx, double vy, double& ix, double& iy) const {
    const double r = GetRate();
    ix = (vx / m_zoom + m_scrollX) * r;
    iy = (vy / m_zoom + m_scrollY) * r;
}

void CImgView::ImgToView(double ix, double iy, double& vx, double& vy) const {
    const double r = GetRate();
    vx = (ix / r - m_scrollX) * m_zoom;
    vy = (iy / r - m_scrollY) * m_zoom;
}
