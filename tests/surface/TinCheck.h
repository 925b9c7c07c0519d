#pragma once
// Independent checks of a triangulated surface, shared by the surface tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>
#include <set>
#include <utility>
#include <vector>

#include "surface/Tin.h"

namespace tin_test {

// Appends points given as {x, y, z} (z 0 where left out).
inline void AddPoints(CTin& tin, std::initializer_list<std::array<double, 3>> pts) {
    for (const auto& p : pts) tin.AddPoint(p[0], p[1], p[2]);
}

// The triangles as vertex triples, each rotated to start at its lowest vertex, sorted.
inline std::vector<std::array<int, 3>> Triangles(const CTin& tin) {
    std::vector<std::array<int, 3>> t;
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        std::array<int, 3> a{tin.GetTri(i).v[0], tin.GetTri(i).v[1], tin.GetTri(i).v[2]};
        std::rotate(a.begin(), std::min_element(a.begin(), a.end()), a.end());
        t.push_back(a);
    }
    std::sort(t.begin(), t.end());
    return t;
}

inline double Orient(const CXYZ& a, const CXYZ& b, const CXYZ& c) {
    return (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
}

// The in-circle determinant: positive when d lies inside the circle through the
// counter-clockwise a, b, c (exact for small integers).
inline double InCircle(const CXYZ& a, const CXYZ& b, const CXYZ& c, const CXYZ& d) {
    const double adx = a.x - d.x, ady = a.y - d.y, bdx = b.x - d.x, bdy = b.y - d.y;
    const double cdx = c.x - d.x, cdy = c.y - d.y;
    return (adx * adx + ady * ady) * (bdx * cdy - cdx * bdy) -
           (bdx * bdx + bdy * bdy) * (adx * cdy - cdx * ady) +
           (cdx * cdx + cdy * cdy) * (adx * bdy - bdx * ady);
}

// Area of the convex hull of the used vertices (Andrew's monotone chain).
inline double HullArea(std::vector<std::pair<double, double>> p) {
    std::sort(p.begin(), p.end());
    p.erase(std::unique(p.begin(), p.end()), p.end());
    std::vector<std::pair<double, double>> h(2 * p.size());
    std::size_t k = 0;
    auto cross = [](const std::pair<double, double>& o, const std::pair<double, double>& a,
                    const std::pair<double, double>& b) {
        return (a.first - o.first) * (b.second - o.second) -
               (a.second - o.second) * (b.first - o.first);
    };
    for (std::size_t i = 0; i < p.size(); ++i) {
        while (k >= 2 && cross(h[k - 2], h[k - 1], p[i]) <= 0) --k;
        h[k++] = p[i];
    }
    for (std::size_t i = p.size() - 1, t = k + 1; i > 0; --i) {
        while (k >= t && cross(h[k - 2], h[k - 1], p[i - 1]) <= 0) --k;
        h[k++] = p[i - 1];
    }
    double a = 0.0;  // relative to the first vertex: coordinates may be far from 0
    for (std::size_t i = 1; i + 1 < k; ++i)
        a += (h[i].first - h[0].first) * (h[i + 1].second - h[0].second) -
             (h[i + 1].first - h[0].first) * (h[i].second - h[0].second);
    return 0.5 * a;
}

// Topology: counter-clockwise triangles, mutual neighbour links over a shared edge, and the
// Euler count 2n - h - 2 for n used vertices of which h lie on boundary edges. With
// `delaunay`, no vertex lies inside a triangle's circumcircle by more than a relative tolerance
// (brute force). With `convex`, the plan area equals the convex hull's area. Returns the set
// of used vertices.
inline std::set<int> CheckMesh(const CTin& tin, bool delaunay, bool convex = true) {
    std::set<int> used, boundary;
    const int nTri = tin.GetTriSize();
    for (int i = 0; i < nTri; ++i) {
        const CTin::CTri& t = tin.GetTri(i);
        const CXYZ& a = tin.m_point[t.v[0]];
        const CXYZ& b = tin.m_point[t.v[1]];
        const CXYZ& c = tin.m_point[t.v[2]];
        EXPECT_GT(Orient(a, b, c), 0.0) << "triangle " << i << " not counter-clockwise";
        for (int k = 0; k < 3; ++k) {
            used.insert(t.v[k]);
            const int e0 = t.v[(k + 2) % 3], e1 = t.v[k];  // slot k: edge v[k-1] - v[k]
            const int n = t.nb[k];
            if (n < 0) {
                boundary.insert(e0);
                boundary.insert(e1);
                continue;
            }
            EXPECT_LT(n, nTri);
            if (n >= nTri) return used;
            const CTin::CTri& o = tin.GetTri(n);
            int back = 0;
            for (int l = 0; l < 3; ++l)
                if (o.nb[l] == i) {
                    ++back;
                    EXPECT_EQ(o.v[(l + 2) % 3], e1) << "tri " << i << " slot " << k;
                    EXPECT_EQ(o.v[l], e0) << "tri " << i << " slot " << k;
                }
            EXPECT_EQ(back, 1) << "link " << i << " -> " << n << " not mutual";
        }
    }
    if (nTri > 0) {
        EXPECT_EQ(nTri, 2 * static_cast<int>(used.size()) - static_cast<int>(boundary.size()) - 2);
    }
    if (delaunay) {
        for (int i = 0; i < nTri; ++i) {
            const CTin::CTri& t = tin.GetTri(i);
            const CXYZ& a = tin.m_point[t.v[0]];
            const CXYZ& b = tin.m_point[t.v[1]];
            const CXYZ& c = tin.m_point[t.v[2]];
            for (int v : used) {
                if (v == t.v[0] || v == t.v[1] || v == t.v[2]) continue;
                const CXYZ& d = tin.m_point[v];
                const double adx = a.x - d.x, ady = a.y - d.y, bdx = b.x - d.x, bdy = b.y - d.y;
                const double cdy = c.y - d.y;
                const double det = InCircle(a, b, c, d);
                const double scale = (adx * adx + ady * ady + bdx * bdx + bdy * bdy) *
                                     (std::fabs(bdx * cdy) + std::fabs(adx * cdy) + 1.0);
                EXPECT_LE(det, 1e-9 * scale) << "vertex " << v << " inside circle of " << i;
                if (det > 1e-9 * scale) return used;
            }
        }
    }
    if (convex && nTri > 0) {
        std::vector<std::pair<double, double>> pts;
        for (int v : used) pts.emplace_back(tin.m_point[v].x, tin.m_point[v].y);
        EXPECT_NEAR(tin.GetPlanArea(), HullArea(pts), 1e-9 * HullArea(pts));
    }
    return used;
}

}  // namespace tin_test
