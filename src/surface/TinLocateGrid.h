#pragma once
// The locate grid of CTin::Triangulation (internal to the surface folder).
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "platform/PageBlock.h"

namespace kel_tin {

// Start triangles for the walks of Triangulation: a grid over the points' range whose cells
// remember the last point inserted in them and the triangle in which it was found. The grid
// starts with one cell and is refined, each cell into four that inherit its entry, whenever
// the points outnumber the cells kPointsPerCell times, so a cell's point is near any point
// that falls in the cell, in whatever order the points come. Triangle indices stay valid for
// the whole triangulation and splits and flips keep the found triangle's index on a triangle
// of the inserted point, so a remembered triangle is at worst a poor start, never a wrong one.
class CLocateGrid {
public:
    struct CEntry {
        int tri;  // start triangle
        int pt;   // the point found in it, -1 for none yet
    };
    using Cells = std::vector<CEntry, kel_pages::Allocator<CEntry>>;

    CLocateGrid(double x0, double y0, double x1, double y1, int tri)
        : m_x0(x0), m_y0(y0), m_w(x1 - x0), m_h(y1 - y0) {
        m_size = std::max(m_w, m_h);
        if (!(m_size > 0.0) || !std::isfinite(m_size)) m_size = 1.0;
        m_inv = 1.0 / m_size;
        m_cell.assign(1, CEntry{tri, -1});
    }

    CEntry& At(double x, double y) {
        const std::size_t ix = Index(x - m_x0, m_nx), iy = Index(y - m_y0, m_ny);
        return m_cell[iy * static_cast<std::size_t>(m_nx) + ix];
    }

    // Refines while `points` outnumber the cells kPointsPerCell times.
    void Fit(int points) {
        while (static_cast<double>(points) > kPointsPerCell * static_cast<double>(m_cell.size()) &&
               m_cell.size() < kMaxCells) {
            const int nx = Count(m_w, 0.5 * m_size), ny = Count(m_h, 0.5 * m_size);
            Cells finer(static_cast<std::size_t>(nx) * static_cast<std::size_t>(ny));
            for (int iy = 0; iy < ny; ++iy)
                for (int ix = 0; ix < nx; ++ix)
                    finer[static_cast<std::size_t>(iy) * static_cast<std::size_t>(nx) +
                          static_cast<std::size_t>(ix)] =
                        m_cell[static_cast<std::size_t>(std::min(iy / 2, m_ny - 1)) *
                                   static_cast<std::size_t>(m_nx) +
                               static_cast<std::size_t>(std::min(ix / 2, m_nx - 1))];
            m_cell.swap(finer);
            m_size *= 0.5;
            m_inv = 1.0 / m_size;
            m_nx = nx;
            m_ny = ny;
        }
    }

private:
    static constexpr double kPointsPerCell = 4.0;
    static constexpr std::size_t kMaxCells = std::size_t(1) << 24;

    // Cells of side `size` along an extent (at least one).
    static int Count(double extent, double size) {
        const double c = std::ceil(extent / size);
        return c >= 1.0 ? static_cast<int>(std::min(c, 65536.0)) : 1;
    }
    std::size_t Index(double offset, int count) const {
        const double f = offset * m_inv;
        if (!(f > 0.0)) return 0;  // below the range, or not a number
        return static_cast<std::size_t>(f < count ? std::min(static_cast<int>(f), count - 1)
                                                  : count - 1);
    }

    double m_x0, m_y0, m_w, m_h;
    double m_size;  // side of a cell (m)
    double m_inv;   // its reciprocal
    int m_nx = 1, m_ny = 1;
    Cells m_cell;
};

}  // namespace kel_tin
