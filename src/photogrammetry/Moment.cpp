#include "photogrammetry/Moment.h"

#include <cmath>
#include <cstdlib>
#include <new>

#include "platform/Trace.h"

CMoment::CMoment()
    : m_pixels(nullptr), m_width(0), m_height(0), m_dark(0), m_binary(0), m_percent(0) {}

CMoment::~CMoment() { delete[] m_pixels; }

int CMoment::SetData(CSize size, int darkTarget, int binaryWeights, int thresholdPercent) {
    delete[] m_pixels;
    m_pixels = nullptr;
    m_width = size.cx;
    m_height = size.cy;
    m_dark = darkTarget;
    m_binary = binaryWeights;
    m_percent = thresholdPercent;
    if (m_width <= 0 || m_height <= 0 || m_width > kMaxSide || m_height > kMaxSide) {
        m_width = m_height = 0;
        return 0;
    }
    try {
        m_pixels = new unsigned char[static_cast<std::size_t>(m_width) * m_height]();
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CMoment::SetData CMemoryException");
        m_pixels = nullptr;
    }
    return m_pixels != nullptr ? 1 : 0;
}

int CMoment::DoMoment(double* cx, double* cy) {
    if (m_pixels == nullptr) return 0;
    const int n = m_width * m_height;
    int mn = 255, mx = 0;
    for (int i = 0; i < n; ++i) {
        if (m_pixels[i] < mn) mn = m_pixels[i];
        if (m_pixels[i] > mx) mx = m_pixels[i];
    }
    const double range = mx - mn;
    if (range == 0.0) return 0;
    const int T = m_dark ? static_cast<int>(mx - m_percent * range * 0.01)
                         : static_cast<int>(m_percent * range * 0.01 + mn);
    double m00 = 0.0, m10 = 0.0, m01 = 0.0;
    for (int r = 0; r < m_height; ++r) {
        for (int c = 0; c < m_width; ++c) {
            const int g = m_pixels[r * m_width + c];
            if (m_dark ? g >= T : g <= T) continue;
            const double value = m_dark ? 255 - g : g;
            const double w = m_binary ? 1.0 : value;
            m00 += w;
            m10 += w * c;
            m01 += w * r;
        }
    }
    if (!(m00 > 0.0)) {
        KEL_TRACE_ALWAYS(L"CMoment::DoMoment M00<=0");
        return 0;
    }
    *cx = m10 * (1.0 / m00) + 0.5;
    *cy = m01 * (1.0 / m00) + 0.5;
    return 1;
}

int CMoment::DoMoment2(int seedX, int seedY, double* cx, double* cy) {
    if (m_pixels == nullptr) return 0;
    if (seedX < 0 || seedY < 0 || seedX >= m_width || seedY >= m_height) return 0;
    const double hx = m_width * 0.5, hy = m_height * 0.5;
    const double R = hy < hx ? hy : hx;
    auto inside = [&](int c, int r) { return std::sqrt((c - hx) * (c - hx) + (r - hy) * (r - hy)) <= R; };
    int mn = 255, mx = 0;
    for (int r = 0; r < m_height; ++r)
        for (int c = 0; c < m_width; ++c) {
            if (!inside(c, r)) continue;
            const int g = m_pixels[r * m_width + c];
            if (g < mn) mn = g;
            if (g > mx) mx = g;
        }
    const int cr = static_cast<int>(hy) < m_height ? static_cast<int>(hy) : m_height - 1;
    const int cc = static_cast<int>(hx) < m_width ? static_cast<int>(hx) : m_width - 1;
    const int v = m_pixels[cr * m_width + cc];
    const bool dark = std::abs(mx - v) > std::abs(mn - v);
    const double range = mx - mn;
    if (range < 5.0) return 0;
    const int T = dark ? static_cast<int>(mx - m_percent * range * 0.01)
                       : static_cast<int>(m_percent * range * 0.01 + mn);
    const CSize size(m_width, m_height);
    double m00 = 0.0, m10 = 0.0, m01 = 0.0;
    for (int r = 0; r < m_height; ++r) {
        for (int c = 0; c < m_width; ++c) {
            if (!inside(c, r)) continue;
            const int g = m_pixels[r * m_width + c];
            if (dark) {
                if (!(g < T) || !CheckOverOnLine(seedX, seedY, c, r, m_pixels, size, T)) continue;
            } else {
                if (!(g > T) || !CheckUnderOnLine(seedX, seedY, c, r, m_pixels, size, T)) continue;
            }
            const double value = dark ? 255 - g : g;
            const double w = m_binary ? 1.0 : value;
            m00 += w;
            m10 += w * c;
            m01 += w * r;
        }
    }
    if (!(m00 > 0.0)) {
        KEL_TRACE_ALWAYS(L"CMoment::DoMoment2 M00<=0");
        return 0;
    }
    *cx = m10 * (1.0 / m00) + 0.5;
    *cy = m01 * (1.0 / m00) + 0.5;
    return 1;
}

int CMoment::WalkLine(int x0, int y0, int x1, int y1, const unsigned char* pixels,
                      const CSize& size, int threshold, bool under) const {
    auto outside = [&size](int x, int y) { return x < 0 || y < 0 || x >= size.cx || y >= size.cy; };
    if (pixels == nullptr || outside(x0, y0) || outside(x1, y1)) return 0;
    const int dx = std::abs(x1 - x0), dy = std::abs(y1 - y0);
    const int sx = x1 >= x0 ? 1 : -1, sy = y1 >= y0 ? 1 : -1;
    const int longer = dx >= dy ? dx : dy, shorter = dx >= dy ? dy : dx;
    int x = x0, y = y0, err = 0;
    for (int step = 0; step <= longer; ++step) {
        const int g = pixels[y * size.cx + x];
        if (under ? g < threshold : g > threshold) return 0;
        err += shorter;
        if (dx >= dy) {
            x += sx;
            if (2 * err > longer) {
                y += sy;
                err -= longer;
            }
        } else {
            y += sy;
            if (2 * err > longer) {
                x += sx;
                err -= longer;
            }
        }
    }
    return 1;
}

int CMoment::CheckUnderOnLine(int x0, int y0, int x1, int y1, unsigned char* pixels,
                              const CSize& size, int threshold) {
    return WalkLine(x0, y0, x1, y1, pixels, size, threshold, true);
}

int CMoment::CheckOverOnLine(int x0, int y0, int x1, int y1, unsigned char* pixels,
                             const CSize& size, int threshold) {
    return WalkLine(x0, y0, x1, y1, pixels, size, threshold, false);
}
