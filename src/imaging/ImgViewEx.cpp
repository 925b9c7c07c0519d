#include "imaging/ImgViewEx.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "imaging/PngFile.h"
#include "platform/Trace.h"

namespace {

// Sets one raster pixel when it lies in the view.
void Plot(std::vector<unsigned char>& rgb, int w, int h, long long x, long long y,
          std::uint32_t colour) {
    if (x < 0 || y < 0 || x >= w || y >= h) return;
    unsigned char* p = &rgb[(static_cast<std::size_t>(y) * static_cast<std::size_t>(w) +
                             static_cast<std::size_t>(x)) *
                            3];
    p[0] = static_cast<unsigned char>((colour >> 16) & 0xFF);
    p[1] = static_cast<unsigned char>((colour >> 8) & 0xFF);
    p[2] = static_cast<unsigned char>(colour & 0xFF);
}

// Clips the segment to the rectangle [lo, hi]^2 (Liang-Barsky); false when nothing is left.
bool Clip(double& x0, double& y0, double& x1, double& y1, double xlo, double ylo, double xhi,
          double yhi) {
    double t0 = 0.0, t1 = 1.0;
    const double dx = x1 - x0, dy = y1 - y0;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {x0 - xlo, xhi - x0, y0 - ylo, yhi - y0};
    for (int i = 0; i < 4; ++i) {
        if (p[i] == 0.0) {
            if (q[i] < 0.0) return false;
            continue;
        }
        const double r = q[i] / p[i];
        if (p[i] < 0.0)
            t0 = std::max(t0, r);
        else
            t1 = std::min(t1, r);
        if (t0 > t1) return false;
    }
    x1 = x0 + t1 * dx;
    y1 = y0 + t1 * dy;
    x0 = x0 + t0 * dx;
    y0 = y0 + t0 * dy;
    return true;
}

}  // namespace

CImgViewEx::CImgViewEx()
    : m_region(CPolyline::kClosed),
      m_regionRgb(0xFF0000),
      m_regionWidth(1),
      m_backgroundRgb(0x000000) {}

CImgViewEx::~CImgViewEx() = default;

void CImgViewEx::AddRegionVertexView(double vx, double vy) {
    double ix = 0.0, iy = 0.0;
    ViewToImg(vx, vy, ix, iy);
    CVertex v(ix, iy, 0.0, 0);
    m_region.AddVertex(v);
}

void CImgViewEx::SetRegion(const CPolyline& region) {
    m_region = region;
    m_region.Close();
}

void CImgViewEx::AddPoints(const kel_templ::CKelArray<CXYZ, CXYZ&>& pts, std::uint32_t rgb,
                           int size, EMark mark) {
    Overlay o{{}, false, false, rgb, std::max(1, size), mark};
    for (int i = 0; i < pts.GetSize(); ++i) o.pts.push_back(pts[i]);
    m_overlays.push_back(std::move(o));
}

void CImgViewEx::AddPolyline(const CPolyline& line, std::uint32_t rgb, int width) {
    Overlay o{{}, true, line.IsClose() != 0, rgb, std::max(1, width), MARK_SQUARE};
    for (int i = 0; i < line.GetVertexSize(); ++i) o.pts.push_back(line.m_vertex[i]);
    m_overlays.push_back(std::move(o));
}

void CImgViewEx::ClearOverlays() { m_overlays.clear(); }

int CImgViewEx::WritePng(const char* path) const {
    std::vector<unsigned char> rgb;
    if (!Render(rgb)) {
        KEL_TRACE_ALWAYS(L"CImgViewEx::WritePng CMemoryException");
        return 0;
    }
    return kel_png::WritePng(path, rgb.data(), m_viewWidth, m_viewHeight);
}

int CImgViewEx::Render(std::vector<unsigned char>& rgb) const {
    try {
        rgb.assign(
            static_cast<std::size_t>(m_viewWidth) * static_cast<std::size_t>(m_viewHeight) * 3, 0);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    DrawPhoto(rgb);
    for (const Overlay& o : m_overlays) {
        if (o.isLine) {
            DrawChain(rgb, o.pts, o.closed, o.rgb, o.size);
            continue;
        }
        for (const CXYZ& p : o.pts) {
            double vx = 0.0, vy = 0.0;
            ImgToView(p.x, p.y, vx, vy);
            DrawMark(rgb, vx, vy, o.rgb, o.size, o.mark);
        }
    }
    std::vector<CXYZ> region;
    for (int i = 0; i < m_region.GetVertexSize(); ++i) region.push_back(m_region.m_vertex[i]);
    DrawChain(rgb, region, true, m_regionRgb, m_regionWidth);
    return 1;
}

void CImgViewEx::DrawPhoto(std::vector<unsigned char>& rgb) const {
    const int w = m_viewWidth, h = m_viewHeight;
    const HBITMAP b = m_bitmap.GethBitmap();
    for (int y = 0; y < h; ++y) {
        // The bitmap pixel under the view pixel's centre (nearest neighbour).
        const double by = std::floor((y + 0.5) / m_zoom + m_scrollY);
        const bool rowIn = b != nullptr && by >= 0.0 && by < static_cast<double>(b->height);
        const BYTE* row = rowIn ? b->bits + static_cast<std::size_t>(by) *
                                                static_cast<std::size_t>(b->bytesPerLine)
                                : nullptr;
        for (int x = 0; x < w; ++x) {
            const double bx = std::floor((x + 0.5) / m_zoom + m_scrollX);
            if (row == nullptr || bx < 0.0 || bx >= static_cast<double>(b->width)) {
                Plot(rgb, w, h, x, y, m_backgroundRgb);
                continue;
            }
            const LONG px = static_cast<LONG>(bx);
            std::uint32_t c = 0;
            switch (b->bitsPerPixel) {
                case 24:
                case 32: {
                    const BYTE* q = row + static_cast<std::size_t>(px) * (b->bitsPerPixel / 8);
                    c = (std::uint32_t(q[2]) << 16) | (std::uint32_t(q[1]) << 8) | q[0];
                    break;
                }
                case 16: {  // 5-5-5, blue in the low bits
                    const unsigned v = row[px * 2] | (unsigned(row[px * 2 + 1]) << 8);
                    const unsigned r5 = (v >> 10) & 31, g5 = (v >> 5) & 31, b5 = v & 31;
                    c = ((r5 * 255 / 31) << 16) | ((g5 * 255 / 31) << 8) | (b5 * 255 / 31);
                    break;
                }
                default: {
                    const int i = kel_bitmap::PixelIndex(row, px, b->bitsPerPixel);
                    if (b->palette != nullptr && static_cast<DWORD>(i) < b->paletteSize) {
                        const RGBQUAD& e = b->palette[i];
                        c = (std::uint32_t(e.rgbRed) << 16) | (std::uint32_t(e.rgbGreen) << 8) |
                            e.rgbBlue;
                    }
                }
            }
            Plot(rgb, w, h, x, y, c);
        }
    }
}

void CImgViewEx::DrawChain(std::vector<unsigned char>& rgb, const std::vector<CXYZ>& pts,
                           bool closed, std::uint32_t colour, int width) const {
    const std::size_t n = pts.size();
    if (n == 0) return;
    const std::size_t segments = closed && n > 2 ? n : n - 1;
    const int half = (width - 1) / 2;
    for (std::size_t s = 0; s < segments; ++s) {
        double x0 = 0.0, y0 = 0.0, x1 = 0.0, y1 = 0.0;
        ImgToView(pts[s].x, pts[s].y, x0, y0);
        ImgToView(pts[(s + 1) % n].x, pts[(s + 1) % n].y, x1, y1);
        const double m = width;  // keep thick lines entering from just outside
        if (!Clip(x0, y0, x1, y1, -m, -m, m_viewWidth + m, m_viewHeight + m)) continue;
        const double len = std::max(std::fabs(x1 - x0), std::fabs(y1 - y0));
        const long long steps = static_cast<long long>(std::ceil(len));
        for (long long k = 0; k <= steps; ++k) {
            const double t = steps > 0 ? static_cast<double>(k) / steps : 0.0;
            const long long px = static_cast<long long>(std::floor(x0 + t * (x1 - x0)));
            const long long py = static_cast<long long>(std::floor(y0 + t * (y1 - y0)));
            for (int dy = -half; dy <= width - 1 - half; ++dy)
                for (int dx = -half; dx <= width - 1 - half; ++dx)
                    Plot(rgb, m_viewWidth, m_viewHeight, px + dx, py + dy, colour);
        }
    }
}

void CImgViewEx::DrawMark(std::vector<unsigned char>& rgb, double vx, double vy,
                          std::uint32_t colour, int size, EMark mark) const {
    if (!(std::fabs(vx) < 1e9 && std::fabs(vy) < 1e9)) return;
    const long long cx = static_cast<long long>(std::floor(vx));
    const long long cy = static_cast<long long>(std::floor(vy));
    const int lo = -(size - 1) / 2, hi = size / 2;
    for (int dy = lo; dy <= hi; ++dy)
        for (int dx = lo; dx <= hi; ++dx)
            if (mark == MARK_SQUARE || dx == 0 || dy == 0)
                Plot(rgb, m_viewWidth, m_viewHeight, cx + dx, cy + dy, colour);
}
