// CTin: the start of the triangulation: the points' range, the outline of the points by angle
// around their centre, the convex hull and its fan of triangles.
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "platform/Trace.h"
#include "surface/Tin.h"
#include "surface/TinMesh.h"

using kel_tin::CrossOf;
using kel_tin::Prefetch;
using kel_tin::Prev;

namespace {

// Sorts n finite keys ascending, moving index along; equal keys end up in ascending index
// order. The keys are first spread by value over a few thousand buckets, which keeps their
// order and fits the caches, and each bucket is then sorted on its own. Returns false,
// leaving both as they were, when memory runs short.
bool SortKeys(double* key, int* index, int n) {
    if (n < 2) return true;
    const auto range = std::minmax_element(key, key + n);
    const double lo = *range.first, hi = *range.second;
    std::size_t buckets = 1;
    while (buckets * 256 < static_cast<std::size_t>(n) && buckets < 4096) buckets *= 2;
    const double scale = hi > lo ? static_cast<double>(buckets) / (hi - lo) : 0.0;
    auto bucketOf = [&](double k) {
        const double f = (k - lo) * scale;
        return f < static_cast<double>(buckets) ? static_cast<std::size_t>(f) : buckets - 1;
    };
    std::vector<std::pair<double, int>, kel_pages::Allocator<std::pair<double, int>>> sorted;
    try {
        sorted.resize(static_cast<std::size_t>(n));
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::vector<std::size_t> start(buckets + 1, 0);
    for (int i = 0; i < n; ++i) ++start[bucketOf(key[i]) + 1];
    for (std::size_t b = 0; b < buckets; ++b) start[b + 1] += start[b];
    std::vector<std::size_t> fill(start.begin(), start.end() - 1);
    for (int i = 0; i < n; ++i) sorted[fill[bucketOf(key[i])]++] = {key[i], index[i]};
    auto before = [](const std::pair<double, int>& a, const std::pair<double, int>& b) {
        return a.first < b.first || (!(b.first < a.first) && a.second < b.second);
    };
    for (std::size_t b = 0; b < buckets; ++b)
        std::sort(sorted.begin() + static_cast<std::ptrdiff_t>(start[b]),
                  sorted.begin() + static_cast<std::ptrdiff_t>(start[b + 1]), before);
    for (int i = 0; i < n; ++i) {
        key[i] = sorted[static_cast<std::size_t>(i)].first;
        index[i] = sorted[static_cast<std::size_t>(i)].second;
    }
    return true;
}
}  // namespace

int CTin::UpdatePtRange() {
    const int n = m_point.GetSize();
    if (n < 1) return 0;
    CXYZ lo(m_point[0].x, m_point[0].y, m_point[0].z), hi = lo;
    for (int i = 1; i < n; ++i) {
        const CXYZ& p = m_point[i];
        if (p.x < lo.x) lo.x = p.x;
        if (p.y < lo.y) lo.y = p.y;
        if (p.z < lo.z) lo.z = p.z;
        if (p.x > hi.x) hi.x = p.x;
        if (p.y > hi.y) hi.y = p.y;
        if (p.z > hi.z) hi.z = p.z;
    }
    m_range[0] = lo;
    m_range[1] = hi;
    return 1;
}
int CTin::MakeBoundaryFromPts() {
    try {
        const int n = m_point.GetSize();
        if (n < 3 || !UpdatePtRange() || !RangeIsWide()) return 0;
        kel_templ::CKelArray<int, int> order;
        order.SetSize(n);
        for (int i = 0; i < n; ++i) order[i] = i;
        return OutlineOf(order);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::MakeBoundaryFromPts CMemoryException");
        return 0;
    }
}

int CTin::MakeBoundaryFromCandidates(bool* allFinite) {
    try {
        const int n = m_point.GetSize();
        if (n < 3) return 0;
        // One pass for the range (as UpdatePtRange folds it) and the points farthest along
        // eight directions, counter-clockwise from east, the first of equals. They span a
        // convex polygon inside the hull; points deeper inside it than `margin` cannot be on
        // the outline that MakeConvexHull keeps. The farthest west point is the one that
        // lowers the range's x, and so on; along the diagonals, -x - y and x - y are the exact
        // negations of x + y and y - x, so the least of those gives the farthest the other
        // way. The loop keeps its few chains short so that the loads of the points stream.
        const CXYZ* pts = m_point.GetData();
        CXYZ lo(pts[0].x, pts[0].y, pts[0].z), hi = lo;
        double sumHi = pts[0].x + pts[0].y, sumLo = sumHi;
        double difHi = pts[0].y - pts[0].x, difLo = difHi;
        // x * 0 is zero for a finite x and NaN otherwise, so the sum stays zero while every
        // coordinate is finite.
        double nonFinite = pts[0].x * 0.0 + pts[0].y * 0.0 + pts[0].z * 0.0;
        int ext[8] = {0, 0, 0, 0, 0, 0, 0, 0};
        for (int i = 1; i < n; ++i) {
            const double x = pts[i].x, y = pts[i].y, z = pts[i].z;
            if (x > hi.x) {
                hi.x = x;
                ext[0] = i;
            }
            if (y > hi.y) {
                hi.y = y;
                ext[2] = i;
            }
            if (x < lo.x) {
                lo.x = x;
                ext[4] = i;
            }
            if (y < lo.y) {
                lo.y = y;
                ext[6] = i;
            }
            lo.z = z < lo.z ? z : lo.z;
            hi.z = z > hi.z ? z : hi.z;
            const double sum = x + y, dif = y - x;
            if (sum > sumHi) {
                sumHi = sum;
                ext[1] = i;
            }
            if (dif > difHi) {
                difHi = dif;
                ext[3] = i;
            }
            if (sum < sumLo) {
                sumLo = sum;
                ext[5] = i;
            }
            if (dif < difLo) {
                difLo = dif;
                ext[7] = i;
            }
            nonFinite += x * 0.0 + y * 0.0 + z * 0.0;
        }
        const bool finite = nonFinite == 0.0;
        m_range[0] = lo;
        m_range[1] = hi;
        if (allFinite != nullptr) *allFinite = finite;
        if (!RangeIsWide()) return 0;
        int corner[8], m = 0;
        for (int k = 0; k < 8; ++k)
            if (m == 0 || (ext[k] != corner[m - 1] && ext[k] != corner[0])) corner[m++] = ext[k];
        const double extent = std::max(m_range[1].x - m_range[0].x, m_range[1].y - m_range[0].y);
        const double margin = std::max(1e-3 * extent, 1e3 * m_eps);
        // Each edge as a x + b y < c for the points deep inside; the unused rows hold for
        // every point (a, b = 0, c = infinity), so that all eight are tested without a branch.
        double a[8] = {}, b[8] = {}, c[8];
        std::fill(c, c + 8, HUGE_VAL);
        int edges = 0;
        for (int k = 0; k < m; ++k) {
            const CXYZ& p = m_point[corner[k]];
            const CXYZ& q = m_point[corner[(k + 1) % m]];
            const double len = std::hypot(q.x - p.x, q.y - p.y);
            if (!(len > 0.0)) continue;
            a[edges] = (q.y - p.y) / len;  // outward normal of a counter-clockwise edge
            b[edges] = (p.x - q.x) / len;
            c[edges] = a[edges] * p.x + b[edges] * p.y - margin;
            ++edges;
        }
        kel_templ::CKelArray<int, int> order;
        if (edges < 3) {  // a thin set: every point is a candidate
            order.SetSize(n);
            for (int i = 0; i < n; ++i) order[i] = i;
            return OutlineOf(order);
        }
        // Read ahead: at one cache line a point the test alone would wait on every load.
        constexpr int kAhead = 16;
        for (int i = 0; i < n; ++i) {
            if (i + kAhead < n) Prefetch(pts + i + kAhead);
            const double x = pts[i].x, y = pts[i].y;
            const bool deep = (a[0] * x + b[0] * y < c[0]) & (a[1] * x + b[1] * y < c[1]) &
                              (a[2] * x + b[2] * y < c[2]) & (a[3] * x + b[3] * y < c[3]) &
                              (a[4] * x + b[4] * y < c[4]) & (a[5] * x + b[5] * y < c[5]) &
                              (a[6] * x + b[6] * y < c[6]) & (a[7] * x + b[7] * y < c[7]);
            if (!deep) order.Add(i);
        }
        return OutlineOf(order);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::MakeBoundaryFromPts CMemoryException");
        return 0;
    }
}

int CTin::RangeIsWide() const {
    if (((m_range[1].x - m_range[0].x) <= m_eps) && ((m_range[1].y - m_range[0].y) <= m_eps)) {
        KEL_TRACE_ALWAYS(
            L"CTin::MakeBoundaryFromPts (( m_range[1].x - m_range[0].x ) <= m_eps ) && (( "
            L"m_range[1].y - m_range[0].y ) <= m_eps )");
        return 0;
    }
    return 1;
}

int CTin::OutlineOf(kel_templ::CKelArray<int, int>& order) {
    // The outline: the points in order of their angle round the centre of the range, the
    // farthest of those at one angle. May throw std::bad_alloc.
    const int n = order.GetSize();
    const double cx = (m_range[0].x + m_range[1].x) * 0.5;
    const double cy = (m_range[0].y + m_range[1].y) * 0.5;
    kel_templ::CKelArray<double, double> angles;
    angles.SetSize(n);
    double* key = angles.GetData();
    int* index = order.GetData();
    bool ordered = true;  // no angle is NaN
    for (int i = 0; i < n; ++i) {
        key[i] = std::atan2(m_point[index[i]].y - cy, m_point[index[i]].x - cx);
        ordered = ordered && key[i] == key[i];
    }
    // The library's key sort and a stable radix sort order the angles alike and differ only
    // in the order of equal angles, which matters only when two points at the same angle tie
    // for the farthest; then the key sort decides, as it always did.
    if (!ordered || !SortKeys(key, index, n) || !KeepFarthest(angles, order, cx, cy)) {
        std::sort(index, index + n);  // the list as given, which was ascending
        const std::vector<int> listed(index, index + n);
        for (int i = 0; i < n; ++i)
            key[i] = std::atan2(m_point[listed[i]].y - cy, m_point[listed[i]].x - cx);
        QuickSortKey(angles, order, 1);  // fills order with positions in the list
        for (int i = 0; i < n; ++i) order[i] = listed[static_cast<std::size_t>(order[i])];
        KeepFarthest(angles, order, cx, cy);
    }
    return m_hull.GetSize() >= 3 ? 1 : 0;
}

int CTin::KeepFarthest(const kel_templ::CKelArray<double, double>& angles,
                       const kel_templ::CKelArray<int, int>& order, double cx, double cy) {
    const int n = angles.GetSize();
    m_hull.RemoveAll();
    m_hull.Reserve(n);
    bool tie = false;
    for (int k = 0; k < n;) {
        // Among points at exactly the same angle keep the farthest (the first wins a tie).
        int best = order[k];
        double bestD = -1.0;
        bool tieForBest = false;
        int j = k;
        if (k + 1 >= n || angles[k + 1] != angles[k]) j = k + 1;  // alone at its angle
        for (; j < n && angles[j] == angles[k]; ++j) {
            const CXYZ& p = m_point[order[j]];
            const double d = (p.x - cx) * (p.x - cx) + (p.y - cy) * (p.y - cy);
            if (d > bestD) {
                bestD = d;
                best = order[j];
                tieForBest = false;
            } else if (d == bestD) {
                tieForBest = true;
            }
        }
        tie = tie || tieForBest;
        m_hull.Add(best);
        k = j;
    }
    return tie ? 0 : 1;
}

// Cross measure of point (px, py) against the directed line a -> b, as FindTri uses it:
// negative on the left, positive on the right.
double CTin::Cross(int a, int b, double px, double py) const {
    return CrossOf(m_point[a], m_point[b], px, py);
}

int CTin::CheckTurn(int a, int b, int c) const {
    return Cross(a, c, m_point[b].x, m_point[b].y) > m_eps ? 1 : -1;
}

int CTin::MakeConvexHull() {
    try {
        const int h = m_hull.GetSize();
        if (h < 3) return 0;
        // Passes over the closed outline remove every vertex that does not turn the convex way
        // (three vertices are tested as well: three collinear points would otherwise make a
        // degenerate start triangle); after a removal the previous vertex is tested again. The
        // outline is a linked ring over the list positions, so a removal costs nothing even when
        // almost every point of a large set starts on the outline.
        std::vector<int, kel_pages::Allocator<int>> next(static_cast<std::size_t>(h)),
            prev(static_cast<std::size_t>(h));
        for (int k = 0; k < h; ++k) {
            next[static_cast<std::size_t>(k)] = k + 1 < h ? k + 1 : 0;
            prev[static_cast<std::size_t>(k)] = k > 0 ? k - 1 : h - 1;
        }
        auto nextOf = [&](int k) { return next[static_cast<std::size_t>(k)]; };
        auto prevOf = [&](int k) { return prev[static_cast<std::size_t>(k)]; };
        int first = 0, count = h;
        bool removed = true;
        while (removed && count >= 3) {
            removed = false;
            int c = first;
            while (count >= 3) {
                if (CheckTurn(m_hull[prevOf(c)], m_hull[c], m_hull[nextOf(c)]) < 0) {
                    next[static_cast<std::size_t>(prevOf(c))] = nextOf(c);
                    prev[static_cast<std::size_t>(nextOf(c))] = prevOf(c);
                    --count;
                    removed = true;
                    if (c == first)
                        c = first = nextOf(c);
                    else
                        c = prevOf(c);
                } else {
                    if (c == prevOf(first)) break;  // the last vertex of the outline: pass done
                    c = nextOf(c);
                    // The outline runs in angle order, scattered over memory: fetch ahead (on
                    // the first pass the vertices ahead are still those of the list).
                    Prefetch(m_point.GetData() + m_hull[(c + 16) % h]);
                }
            }
        }
        kel_templ::CKelArray<int, int> hull;
        hull.SetSize(count);
        for (int k = 0, c = first; k < count; ++k, c = nextOf(c)) hull[k] = m_hull[c];
        m_hull = std::move(hull);
        if (count < 3) {
            KEL_TRACE_ALWAYS(L"CTin::MakeConvexHull count < 3");
            return 0;
        }
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::MakeConvexHull CMemoryException");
        return 0;
    }
}

int CTin::MakeTinForConvexHull() {
    try {
        ReserveOptimStack();
        const int h = m_hull.GetSize();
        if (h < 3) return 0;
        m_tri.SetSize(h - 2);
        for (int i = 0; i < h - 2; ++i) {
            CTri& t = m_tri[i];
            t.v[0] = m_hull[0];
            t.v[1] = m_hull[i + 1];
            t.v[2] = m_hull[i + 2];
            t.nb[0] = -1;  // linked when triangle i + 1 is written
            t.nb[1] = -1;
            t.nb[2] = -1;
            t.flag = 0;
            if (i > 0) {
                // The fan edge H[0] - H[i+1] is held by whichever earlier triangle the flips left
                // it in, on a slot still marked -1.
                // (Searched from the newest triangle back: the edge is held by one triangle only,
                // usually one of the last few.)
                for (int j = i - 1; j >= 0; --j) {
                    CTri& o = m_tri[j];
                    int k = 0;
                    for (; k < 3; ++k)
                        if (o.nb[k] < 0 && o.v[Prev(k)] == t.v[1] && o.v[k] == t.v[0]) break;
                    if (k < 3) {
                        o.nb[k] = i;
                        t.nb[1] = j;
                        break;
                    }
                }
            }
            m_iOptim = 0;
            Optimization(i, 2);
        }
        m_tri.SetSize(h - 2);
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::MakeTinForConvexHull CMemoryException");
        return 0;
    }
}
