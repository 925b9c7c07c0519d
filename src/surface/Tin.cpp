// CTin: data, point insertion, the start hull and the incremental Delaunay triangulation.
#include "surface/Tin.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/Trace.h"

namespace {

int Next(int i) { return i == 2 ? 0 : i + 1; }

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

// Cross measure of point (px, py) against the directed line A -> B: negative on the left,
// positive on the right.
inline double CrossOf(const CXYZ& A, const CXYZ& B, double px, double py) {
    return (B.y - A.y) * (px - A.x) - (B.x - A.x) * (py - A.y);
}

// The circumcircle test of CheckOptim: 1 when D lies strictly outside the circle through A, P
// and B, computed from the circumcentre relative to A; 0 also when A, P, B are collinear.
inline int OutsideCircle(const CXYZ& A, const CXYZ& P, const CXYZ& B, const CXYZ& D) {
    const double px = P.x - A.x, py = P.y - A.y;
    const double bx = B.x - A.x, by = B.y - A.y;
    const double dx = D.x - A.x, dy = D.y - A.y;
    const double det = px * by - py * bx;
    if (det == 0.0) return 0;
    const double p2 = px * px + py * py, b2 = bx * bx + by * by;
    const double inv = 0.5 / det;
    const double ux = (by * p2 - py * b2) * inv;
    const double uy = (px * b2 - bx * p2) * inv;
    const double r2 = ux * ux + uy * uy;
    const double d2 = (dx - ux) * (dx - ux) + (dy - uy) * (dy - uy);
    return d2 > r2 ? 1 : 0;
}

// Asks the processor to fetch memory that is about to be read (a hint only).
inline void Prefetch(const void* p) {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p);
#else
    (void)p;
#endif
}

// CheckSwapTri on points: the flip of the diagonal A - C of quadrilateral (A, B, C, D) makes
// (B, C, D) and (B, D, A); in FindTri's measure a counter-clockwise triangle is negative.
inline int FlipKeepsOrientation(const CXYZ& A, const CXYZ& B, const CXYZ& C, const CXYZ& D) {
    const double z1 = CrossOf(B, C, D.x, D.y);
    const double z2 = CrossOf(B, D, A.x, A.y);
    if (z1 >= 0.0 || z2 >= 0.0) {
        KEL_TRACE_ALWAYS(L"CTin::CheckSwapTri z1 >= 0.0 || z2 >= 0.0");
        return 0;
    }
    return 1;
}

double Dist2(const CXYZ& a, const CXYZ& b) {
    return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}
int Prev(int i) { return i == 0 ? 2 : i - 1; }

// The slot of links that names `to`, the first of equals; 3 when none does. Written so that the
// compiler selects instead of branching: which slot matches is a coin toss for the predictor.
inline int SlotOf(const std::int32_t* links, int to) {
    int k = 3;
    k = links[2] == to ? 2 : k;
    k = links[1] == to ? 1 : k;
    k = links[0] == to ? 0 : k;
    return k;
}

// The cell index of AddPoint. Cells are kCellEps tolerances wide; a cell coordinate is clamped
// so that a huge value over a tiny tolerance still gives a valid one (clamped cells only hold
// more candidates).
constexpr double kCellEps = 32.0;

std::int64_t CellOf(double v, double size) {
    const double c = std::floor(v / size);
    constexpr double kLimit = 1e15;
    if (!(c > -kLimit)) return static_cast<std::int64_t>(-kLimit);
    if (!(c < kLimit)) return static_cast<std::int64_t>(kLimit);
    return static_cast<std::int64_t>(c);
}

std::uint64_t CellHash(std::int64_t cx, std::int64_t cy) {
    std::uint64_t h = static_cast<std::uint64_t>(cx) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint64_t>(cy) * 0xC2B2AE3D27D4EB4Full;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 32);
}

}  // namespace

CTin::CTin() { InitData(); }

CTin::CTin(const CTin& src) : CTin() { Copy(src); }

CTin& CTin::operator=(const CTin& src) {
    Copy(src);
    return *this;
}

void CTin::InitData() {
    DropRayIndex();
    m_name.Empty();
    m_point.RemoveAll();
    m_tri.RemoveAll();
    m_hull.RemoveAll();
    m_breakLine.RemoveAll();
    m_depth.RemoveAll();
    m_texU.RemoveAll();
    m_texV.RemoveAll();
    m_range[0].SetXYZ(0.0, 0.0, 0.0);
    m_range[1].SetXYZ(0.0, 0.0, 0.0);
    m_iOptim = 0;
    m_nAdd = 0;
    SetEPS(kDefaultEps);
    ResetCellIndex();
}

void CTin::Copy(const CTin& src) {
    if (this == &src) return;
    DropRayIndex();
    m_name = src.m_name;
    m_point.Copy(src.m_point);
    m_tri.Copy(src.m_tri);
    m_hull.Copy(src.m_hull);
    m_breakLine.Copy(src.m_breakLine);
    m_depth.Copy(src.m_depth);
    m_texU.Copy(src.m_texU);
    m_texV.Copy(src.m_texV);
    m_range[0] = src.m_range[0];
    m_range[1] = src.m_range[1];
    m_eps = src.m_eps;
    m_eps2 = src.m_eps2;
    m_iOptim = src.m_iOptim;
    m_nAdd = src.m_nAdd;
    m_boundary = src.m_boundary;
    ResetCellIndex();
}

void CTin::SetEPS(double eps) {
    m_eps = eps;
    m_eps2 = eps * eps;
}

void CTin::ResetCellIndex() {
    std::vector<std::uint64_t>().swap(m_cellSlot);
    std::vector<int>().swap(m_cellNext);
    m_nIndexed = 0;
    m_nCells = 0;
    m_indexEps = m_eps;
}

// The slot of cell (cx, cy) in the open-addressing table: the cell's own slot, or the empty
// one where it would go. A slot holds a fingerprint of the cell in its upper half and the
// index + 1 of the cell's newest point in its lower half (0: empty); the cell itself is
// confirmed from that point's coordinates.
std::size_t CTin::CellSlot(std::int64_t cx, std::int64_t cy) const {
    const std::uint64_t h = CellHash(cx, cy);
    const std::uint64_t tag = h >> 32;
    const std::size_t mask = m_cellSlot.size() - 1;
    const double size = m_indexEps * kCellEps;
    for (std::size_t k = static_cast<std::size_t>(h) & mask;; k = (k + 1) & mask) {
        const std::uint64_t slot = m_cellSlot[k];
        if (slot == 0) return k;
        if ((slot >> 32) == tag) {
            const CXYZ& p = m_point[static_cast<int>(slot & 0xFFFFFFFFu) - 1];
            if (CellOf(p.x, size) == cx && CellOf(p.y, size) == cy) return k;
        }
    }
}

void CTin::IndexPoint(int i) {
    if (2 * (static_cast<std::size_t>(m_nCells) + 1) > m_cellSlot.size()) {
        // Grow to keep the table at most half full; every cell moves with its newest point.
        std::vector<std::uint64_t> old;
        old.swap(m_cellSlot);
        m_cellSlot.assign(old.empty() ? 1024 : 2 * old.size(), 0);
        const double size = m_indexEps * kCellEps;
        for (std::uint64_t slot : old) {
            if (slot == 0) continue;
            const CXYZ& p = m_point[static_cast<int>(slot & 0xFFFFFFFFu) - 1];
            m_cellSlot[CellSlot(CellOf(p.x, size), CellOf(p.y, size))] = slot;
        }
    }
    const double size = m_indexEps * kCellEps;
    const std::int64_t cx = CellOf(m_point[i].x, size), cy = CellOf(m_point[i].y, size);
    std::uint64_t& slot = m_cellSlot[CellSlot(cx, cy)];
    if (slot == 0) ++m_nCells;
    m_cellNext.push_back(slot == 0 ? -1 : static_cast<int>(slot & 0xFFFFFFFFu) - 1);
    slot = (CellHash(cx, cy) >> 32 << 32) | static_cast<std::uint64_t>(i + 1);
    m_nIndexed = i + 1;
}

int CTin::AddPoint(double x, double y, double z) {
    const int n = m_point.GetSize();
    // A match has |q.x - x| <= m_eps as computed, so q.x lies in [x - 2 m_eps, x + 2 m_eps]
    // (rounding is monotone), which covers one or two cells along each axis.
    const double size = m_eps * kCellEps;
    const bool indexed = m_eps > 0.0 && std::isfinite(size) && std::isfinite(x) &&
                         std::isfinite(y) && std::isfinite(2.0 * m_eps + std::fabs(x)) &&
                         std::isfinite(2.0 * m_eps + std::fabs(y));
    std::int64_t x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    if (indexed) {
        x0 = CellOf(x - 2.0 * m_eps, size);
        x1 = CellOf(x + 2.0 * m_eps, size);
        y0 = CellOf(y - 2.0 * m_eps, size);
        y1 = CellOf(y + 2.0 * m_eps, size);
    }
    if (!indexed || x1 - x0 > 2 || y1 - y0 > 2) {
        // No usable cell: the plain linear first-match search.
        for (int i = 0; i < n; ++i)
            if (std::fabs(m_point[i].x - x) <= m_eps && std::fabs(m_point[i].y - y) <= m_eps)
                return i;
        CXYZ p(x, y, z);
        return m_point.Add(p);
    }
    if (m_nIndexed > n || m_indexEps != m_eps) ResetCellIndex();
    while (m_nIndexed < n) IndexPoint(m_nIndexed);
    int best = -1;
    for (std::int64_t cx = x0; cx <= x1 && !m_cellSlot.empty(); ++cx)
        for (std::int64_t cy = y0; cy <= y1; ++cy) {
            const std::uint64_t slot = m_cellSlot[CellSlot(cx, cy)];
            for (int i = static_cast<int>(slot & 0xFFFFFFFFu) - 1; i >= 0;
                 i = m_cellNext[static_cast<std::size_t>(i)]) {
                const CXYZ& p = m_point[i];
                if (std::fabs(p.x - x) <= m_eps && std::fabs(p.y - y) <= m_eps &&
                    (best < 0 || i < best))
                    best = i;
            }
        }
    if (best >= 0) return best;
    CXYZ p(x, y, z);
    const int index = m_point.Add(p);
    IndexPoint(index);
    return index;
}

void CTin::BeginAddPoint(int n) {
    m_point.SetSize(n < 0 ? 0 : n);
    m_nAdd = 0;
}

int CTin::AddPoint2(double x, double y, double z) {
    if (m_nAdd >= m_point.GetSize()) {
        CXYZ p(x, y, z);
        m_point.Add(p);
    } else {
        m_point[m_nAdd].SetXYZ(x, y, z);
    }
    return m_nAdd++;
}

void CTin::EndAddPoint() {
    m_point.SetSize(m_nAdd);
    m_nAdd = 0;
}

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

int CTin::CreateTin(double angle) {
    DropRayIndex();
    try {
        if (m_point.GetSize() < 3) {
            KEL_TRACE_ALWAYS(L"CTin::CreateTin nPt < 3");
            InitData();
            return 0;
        }
        ResetCellIndex();  // rebuilt by the next AddPoint; frees its memory meanwhile
        m_tri.RemoveAll();
        if (!MakeBoundaryFromPts() || !MakeConvexHull() || !MakeTinForConvexHull() ||
            !Triangulation()) {
            InitData();
            return 0;
        }
        if (m_breakLine.GetSize() > 0) BreakLine();
        if (angle > 0.0 && !DelTriWithAngle(angle, 1)) {
            InitData();
            return 0;
        }
        UpdateTinRange();
        UpdateDepth();
        UpdateTextureCoord();
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::CreateTin CMemoryException");
        InitData();
        return 0;
    }
}

int CTin::MakeBoundaryFromPts() {
    const int n = m_point.GetSize();
    if (n < 3 || !UpdatePtRange()) return 0;
    if (((m_range[1].x - m_range[0].x) <= m_eps) && ((m_range[1].y - m_range[0].y) <= m_eps)) {
        KEL_TRACE_ALWAYS(
            L"CTin::MakeBoundaryFromPts (( m_range[1].x - m_range[0].x ) <= m_eps ) && (( "
            L"m_range[1].y - m_range[0].y ) <= m_eps )");
        return 0;
    }
    const double cx = (m_range[0].x + m_range[1].x) * 0.5;
    const double cy = (m_range[0].y + m_range[1].y) * 0.5;
    kel_templ::CKelArray<double, double> angles;
    kel_templ::CKelArray<int, int> order;
    angles.SetSize(n);
    order.SetSize(n);
    double* key = angles.GetData();
    int* index = order.GetData();
    bool ordered = true;  // no angle is NaN
    for (int i = 0; i < n; ++i) {
        key[i] = std::atan2(m_point[i].y - cy, m_point[i].x - cx);
        index[i] = i;
        ordered = ordered && key[i] == key[i];
    }
    // The library's key sort and a stable radix sort order the angles alike and differ only
    // in the order of equal angles, which matters only when two points at the same angle tie
    // for the farthest; then the key sort decides, as it always did.
    if (!ordered || !SortKeys(key, index, n) || !KeepFarthest(angles, order, cx, cy)) {
        for (int i = 0; i < n; ++i) key[i] = std::atan2(m_point[i].y - cy, m_point[i].x - cx);
        QuickSortKey(angles, order, 1);
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
}

int CTin::MakeTinForConvexHull() {
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
}

namespace {

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

}  // namespace

int CTin::Triangulation() {
    const int start = m_tri.GetSize();
    if (start < 1) return 0;
    const int n = m_point.GetSize();
    std::vector<char> inHull(static_cast<std::size_t>(n), 0);
    for (int i = 0; i < m_hull.GetSize(); ++i) inHull[static_cast<std::size_t>(m_hull[i])] = 1;
    m_tri.SetSize(2 * n > start ? 2 * n : start);
    m_iOptim = 0;
    int count = start;
    int lastTri = 0;
    if (!m_locateGrid) {
        for (int i = 0; i < n; ++i) {
            if (inHull[static_cast<std::size_t>(i)]) continue;
            DivideTri(i, count, lastTri);
        }
        m_tri.SetSize(count);
        return 1;
    }
    // The hull's corners span the points' range.
    double x0 = m_point[m_hull[0]].x, x1 = x0, y0 = m_point[m_hull[0]].y, y1 = y0;
    for (int k = 1; k < m_hull.GetSize(); ++k) {
        const CXYZ& p = m_point[m_hull[k]];
        x0 = std::min(x0, p.x);
        x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y);
        y1 = std::max(y1, p.y);
    }
    CLocateGrid grid(x0, y0, x1, y1, lastTri);
    int lastPt = -1, inserted = m_hull.GetSize();
    const CXYZ* pts = m_point.GetData();
    const CTri* tris = m_tri.GetData();
    for (int i = 0; i < n; ++i) {
        if (inHull[static_cast<std::size_t>(i)]) continue;
        grid.Fit(inserted);
        // Points in no spatial order find their start triangles in cold memory: fetch the
        // cell's triangle two points ahead and that triangle's corners one point ahead.
        if (i + 2 < n) {
            const CLocateGrid::CEntry& ahead = grid.At(pts[i + 2].x, pts[i + 2].y);
            Prefetch(tris + ahead.tri);
            if (ahead.pt >= 0) Prefetch(pts + ahead.pt);
        }
        if (i + 1 < n) {
            const CTri& ahead = tris[grid.At(pts[i + 1].x, pts[i + 1].y).tri];
            for (int k = 0; k < 3; ++k) Prefetch(pts + ahead.v[k]);
        }
        const CXYZ& p = m_point[i];
        CLocateGrid::CEntry& cell = grid.At(p.x, p.y);
        // The walk starts at whichever of the previous point and the cell's point is nearer:
        // for the previous point, at the first triangle its split added. That triangle keeps
        // the point as a corner through the flips, as the one it was found in does, but on scan
        // rows it lies toward the next point far more often: a million-point scan took 3 walk
        // steps per point from it against 11 from the found triangle.
        int tri = lastTri;
        if (cell.pt >= 0 && (lastPt < 0 || Dist2(p, m_point[cell.pt]) < Dist2(p, m_point[lastPt])))
            tri = cell.tri;
        const int added = count;
        if (DivideTri(i, count, tri)) {
            lastTri = added;
            lastPt = i;
            cell = CLocateGrid::CEntry{tri, i};
            ++inserted;
        }
    }
    m_tri.SetSize(count);
    return 1;
}

int CTin::DivideTri(int pt, int& ntri, int& tri) {
    DropRayIndex();
    int status = 0, side = 0;
    const CXYZ& p = m_point[pt];
    const int it = FindTri(tri, p.x, p.y, status, side);
    if (it < 0 || status < 0 || status == 1) {
        KEL_TRACE_ALWAYS(L"CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1");
        return 0;
    }
    tri = it;
    if (status == 0)
        DivideTriInside(pt, ntri, it);
    else
        DivideTriOnSide(pt, ntri, it, side);
    return 1;
}

int CTin::DivideTri(const double& x, const double& y, const double& z) {
    DropRayIndex();
    try {
        const int nTri = m_tri.GetSize();
        if (nTri < 1) return 0;
        int status = 0, side = 0;
        const int tri = FindTri(0, x, y, status, side);
        if (tri < 0 || status < 0 || status == 1) {
            KEL_TRACE_ALWAYS(L"CTin::DivideTri tri < 0 || status < 0 || status == 1");
            return 0;
        }
        CXYZ p(x, y, z);
        const int pt = m_point.Add(p);
        m_tri.SetSize(nTri + 2);
        int count = nTri;
        m_iOptim = 0;
        if (status == 0)
            DivideTriInside(pt, count, tri);
        else
            DivideTriOnSide(pt, count, tri, side);
        m_tri.SetSize(count);
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::DivideTri CMemoryException");
        return 0;
    }
}

int CTin::FindTri(int start, const double& x, const double& y, int& status, int& side) const {
    status = -2;
    side = 0;
    const int nTri = m_tri.GetSize();
    if (nTri < 1 || start < 0 || start >= nTri) return -1;
    int cur = start;
    // The next triangle depends on the current one only, so a walk that comes back to a
    // triangle circles for ever (it can, in a mesh that is not exactly Delaunay) and would end
    // at the step bound with the same -1. Brent's test spots the return early: `mark` is
    // moved to the current triangle after 1, 2, 4, ... steps.
    int mark = start;
    long long sinceMark = 0, span = 1;
    const CTri* tris = m_tri.GetData();
    const CXYZ* pts = m_point.GetData();
    const unsigned nPt = static_cast<unsigned>(m_point.GetSize());
    const double eps = m_eps;
    for (int steps = 0; steps <= nTri; ++steps) {
        if (cur >= nTri) (void)m_tri[cur];  // a broken link: the array's fatal error
        const CTri& t = tris[cur];
        for (int k = 0; k < 3; ++k)
            if (static_cast<unsigned>(t.v[k]) >= nPt) (void)m_point[t.v[k]];
        const CXYZ* v[3] = {pts + t.v[0], pts + t.v[1], pts + t.v[2]};
        // A coincident vertex first: the edge measure below grows with the edge's length, so
        // a point within m_eps of a vertex can pass every edge test of a long triangle.
        const double dx0 = x - v[0]->x, dy0 = y - v[0]->y;
        const double dx1 = x - v[1]->x, dy1 = y - v[1]->y;
        const double dx2 = x - v[2]->x, dy2 = y - v[2]->y;
        if ((std::fabs(dx0) <= eps && std::fabs(dy0) <= eps) ||
            (std::fabs(dx1) <= eps && std::fabs(dy1) <= eps) ||
            (std::fabs(dx2) <= eps && std::fabs(dy2) <= eps)) {
            status = 1;
            return cur;
        }
        // All three edge measures at once (they are independent; the tests below read them in
        // edge order as before).
        const double crs[3] = {(v[1]->y - v[0]->y) * dx0 - (v[1]->x - v[0]->x) * dy0,
                               (v[2]->y - v[1]->y) * dx1 - (v[2]->x - v[1]->x) * dy1,
                               (v[0]->y - v[2]->y) * dx2 - (v[0]->x - v[2]->x) * dy2};
        int next = -2;
        for (int k = 0; k < 3; ++k) {
            const CXYZ& A = *v[k];
            const CXYZ& B = *v[Next(k)];
            const double cr = crs[k];
            if (std::fabs(cr) <= m_eps) {
                if ((std::fabs(x - A.x) <= m_eps && std::fabs(y - A.y) <= m_eps) ||
                    (std::fabs(x - B.x) <= m_eps && std::fabs(y - B.y) <= m_eps)) {
                    status = 1;
                    return cur;
                }
                const double dxa = x - A.x, dya = y - A.y;
                const double dxb = B.x - x, dyb = B.y - y;
                const double ex = B.x - A.x, ey = B.y - A.y;
                if (dxa * dxb >= 0.0 && dya * dyb >= 0.0 &&
                    dxa * dxa + dya * dya <= ex * ex + ey * ey) {
                    status = 2;
                    side = k;
                    return cur;
                }
                // On the line within m_eps but beyond the edge's ends. On the inner side the
                // edge is passed; on the outer side the walk crosses it. Passing it there too
                // would call a point inside a sliver triangle (three nearly collinear points of
                // a scan row) that it lies beyond, and the split would fold the mesh over.
                if (cr <= 0.0) continue;
            }
            if (cr > 0.0) {
                next = t.nb[Next(k)];
                if (next < 0) {
                    status = -1;
                    return -1;
                }
                break;
            }
        }
        if (next == -2) {
            status = 0;
            return cur;
        }
        cur = next;
        if (cur == mark) return -1;
        if (++sinceMark == span) {
            mark = cur;
            sinceMark = 0;
            span *= 2;
        }
    }
    return -1;
}

namespace {
// Redirects the link of triangle q that named `from` to `to` (q may be -1).
inline void Relink(kel_templ::CKelArray<CTin::CTri, CTin::CTri&>& tri, int q, int from, int to) {
    if (q < 0) return;
    std::int32_t* links = tri[q].nb;
    const int k = SlotOf(links, from);
    if (k < 3) links[k] = to;
}

// SwapTri's flip once CheckSwapTri has allowed it: the diagonal a - b shared by t1 = (a, p, b)
// (p at slot e1) and t2 (the slot of t1 in t2's links is e2, d opposite) becomes p - d.
inline void FlipDiagonal(kel_templ::CKelArray<CTin::CTri, CTin::CTri&>& tri, int t1, int e1,
                         int t2, int e2) {
    CTin::CTri& A = *(tri.GetData() + t1);
    CTin::CTri& B = *(tri.GetData() + t2);
    const int ne2 = Next(e2);
    const int p = A.v[e1], d = B.v[ne2];
    const int outerA = A.nb[e1];   // across a - p, goes to t2
    const int outerB = B.nb[ne2];  // across b - d, goes to t1
    A.v[Prev(e1)] = d;
    B.v[e2] = p;
    A.nb[e1] = t2;
    B.nb[ne2] = t1;
    A.nb[Prev(e1)] = outerB;
    B.nb[e2] = outerA;
    Relink(tri, outerB, t2, t1);
    Relink(tri, outerA, t1, t2);
}

void SetTri(CTin::CTri& t, int v0, int v1, int v2, int n0, int n1, int n2) {
    t.v[0] = v0;
    t.v[1] = v1;
    t.v[2] = v2;
    t.nb[0] = n0;
    t.nb[1] = n1;
    t.nb[2] = n2;
    t.flag = 0;
}
}  // namespace

void CTin::DivideTriInside(int pt, int& ntri, int t) {
    const CTri old = m_tri[t];
    const int a = old.v[0], b = old.v[1], c = old.v[2];
    const int q0 = old.nb[0], q1 = old.nb[1], q2 = old.nb[2];
    const int t1 = ntri, t2 = ntri + 1;
    SetTri(m_tri[t], pt, a, b, t1, t2, q1);
    SetTri(m_tri[t1], pt, b, c, t2, t, q2);
    SetTri(m_tri[t2], pt, c, a, t, t1, q0);
    Relink(m_tri, q0, t, t2);
    Relink(m_tri, q2, t, t1);
    ntri += 2;
    Optimization(t, 0);
    Optimization(t1, 0);
    Optimization(t2, 0);
}

void CTin::DivideTriOnSide(int pt, int& ntri, int t, int side) {
    // The point lies on edge a -> b of t = (a, b, c); n is the triangle across it.
    const CTri old = m_tri[t];
    const int a = old.v[side], b = old.v[Next(side)], c = old.v[Prev(side)];
    const int n = old.nb[Next(side)];
    const int qbc = old.nb[Prev(side)], qca = old.nb[side];
    const int t1 = ntri;
    if (n < 0) {
        SetTri(m_tri[t], pt, b, c, t1, -1, qbc);
        SetTri(m_tri[t1], pt, c, a, -1, t, qca);
        Relink(m_tri, qca, t, t1);
        ntri += 1;
        Optimization(t, 0);
        Optimization(t1, 0);
        return;
    }
    const CTri on = m_tri[n];
    int i = SlotOf(on.nb, t);
    if (i >= 3) i = 0;  // broken links cannot come from the splits; keep the mesh addressable
    const int d = on.v[Next(i)];
    const int qad = on.nb[Next(i)], qdb = on.nb[Prev(i)];
    const int t2 = ntri + 1;
    SetTri(m_tri[t], pt, b, c, t1, t2, qbc);
    SetTri(m_tri[t1], pt, c, a, n, t, qca);
    SetTri(m_tri[n], pt, a, d, t2, t1, qad);
    SetTri(m_tri[t2], pt, d, b, t, n, qdb);
    Relink(m_tri, qca, t, t1);
    Relink(m_tri, qdb, n, t2);
    ntri += 2;
    Optimization(t, 0);
    Optimization(t1, 0);
    Optimization(n, 0);
    Optimization(t2, 0);
}

void CTin::Optimization(int t, int e) {
    // Depth-first edge legalisation. Each pending call is a (triangle, edge, depth) triple on
    // an explicit stack instead of the machine stack: a flip cascade may go OPTIM_LEVEL deep,
    // too deep for small thread stacks. A flip schedules (t, e) and then (n, i) one level
    // deeper, (t, e) on top so that its whole cascade runs first, as a recursive call would;
    // m_iOptim holds the depth of the call being worked on. The flip is SwapTri's on the
    // quadrilateral already loaded.
    (void)m_tri[t];  // the array's fatal index error for a bad argument
    if (e < 0 || e > 2) {
        KEL_TRACE_ALWAYS(L"CTin::Optimization e < 0 || e > 2");
        return;
    }
    CTri* tri = m_tri.GetData();
    const CXYZ* pt = m_point.GetData();
    const unsigned nTri = static_cast<unsigned>(m_tri.GetSize());
    const unsigned nPt = static_cast<unsigned>(m_point.GetSize());
    std::vector<int>& stack = m_optimStack;  // scratch: entries [0, top) are pending
    if (stack.size() < 96) stack.resize(96);
    int* s = stack.data();
    std::size_t top = 0;
    const int base = m_iOptim;
    // (t, e, depth) is the call being worked on. After a flip it is (t, e) again one level
    // deeper, so that one stays in registers and only (n, i) is pushed.
    int depth = base;
    for (;;) {
        m_iOptim = depth;
        bool flipped = false;
        int n = -1, i = 3;
        if (depth >= OPTIM_LEVEL) {
            KEL_TRACE_ALWAYS(L"CTin::Optimization m_iOptim >= OPTIM_LEVEL");
        } else {
            CTri& tt = tri[t];
            const int pe = Prev(e);
            n = tt.nb[pe];
            if (n >= 0) {
                if (static_cast<unsigned>(n) >= nTri) (void)m_tri[n];  // a broken link: fatal
                CTri& nn = tri[n];
                i = SlotOf(nn.nb, t);
                if (i >= 3) {
                    KEL_TRACE_ALWAYS(L"CTin::Optimization i >= 3");
                } else {
                    const int a = tt.v[pe], p = tt.v[e], b = tt.v[Next(e)];
                    const int d = nn.v[Next(i)];
                    if (static_cast<unsigned>(a) >= nPt || static_cast<unsigned>(p) >= nPt ||
                        static_cast<unsigned>(b) >= nPt || static_cast<unsigned>(d) >= nPt)
                        (void)m_point[-1];  // a vertex out of range: fatal
                    flipped = OutsideCircle(pt[a], pt[p], pt[b], pt[d]) != 1 &&
                              FlipKeepsOrientation(pt[a], pt[p], pt[b], pt[d]);
                }
            }
        }
        if (flipped) {
            FlipDiagonal(m_tri, t, e, n, i);
            if (top + 3 > stack.size()) {
                stack.resize(2 * stack.size());
                s = stack.data();
            }
            s[top] = n;
            s[top + 1] = i;
            s[top + 2] = depth + 1;
            top += 3;
            ++depth;
            continue;
        }
        if (top == 0) break;
        top -= 3;
        t = s[top];
        e = s[top + 1];
        depth = s[top + 2];
    }
    m_iOptim = base;
}

int CTin::CheckOptim(int a, int p, int b, int d) const {
    return OutsideCircle(m_point[a], m_point[p], m_point[b], m_point[d]);
}

int CTin::CheckSwapTri(int a, int b, int c, int d) const {
    return FlipKeepsOrientation(m_point[a], m_point[b], m_point[c], m_point[d]);
}

int CTin::SwapTri(int t1, int e1, int t2, int e2) {
    DropRayIndex();
    (void)m_tri[t1];
    (void)m_tri[t2];
    if (e1 < 0 || e1 > 2 || e2 < 0 || e2 > 2) {
        KEL_TRACE_ALWAYS(L"CTin::SwapTri e1 < 0 || e1 > 2 || e2 < 0 || e2 > 2");
        return 0;
    }
    const CTri& A = m_tri[t1];
    const int a = A.v[Prev(e1)], p = A.v[e1], b = A.v[Next(e1)];
    const int d = m_tri[t2].v[Next(e2)];
    for (int v : {a, p, b, d}) (void)m_point[v];
    if (!FlipKeepsOrientation(m_point[a], m_point[p], m_point[b], m_point[d])) return 0;
    FlipDiagonal(m_tri, t1, e1, t2, e2);
    return 1;
}

int CTin::AddTri(int v1, int v2, int v3) {
    DropRayIndex();
    const int nPt = m_point.GetSize();
    if (v1 >= nPt || v1 < 0 || v2 >= nPt || v2 < 0 || v3 >= nPt || v3 < 0) {
        KEL_TRACE_ALWAYS(
            L"CTin::AddTri v1 >= nPt || v1 < 0 || v2 >= nPt || v2 < 0 || v3 >= nPt || v3 < 0");
        return -1;
    }
    CTri t;
    SetTri(t, v1, v2, v3, -1, -1, -1);
    return m_tri.Add(t);
}

int CTin::DelTri(int triId) {
    DropRayIndex();
    const int nTri = m_tri.GetSize();
    if (triId < 0 || triId >= nTri) {
        KEL_TRACE_ALWAYS(L"CTin::DelTri triId < 0 || triId >= nTri");
        return 0;
    }
    for (int k = 0; k < 3; ++k) Relink(m_tri, m_tri[triId].nb[k], triId, -1);
    const int last = nTri - 1;
    if (triId != last) {
        m_tri[triId] = m_tri[last];
        for (int k = 0; k < 3; ++k) Relink(m_tri, m_tri[triId].nb[k], last, triId);
    }
    m_tri.SetSize(last);
    return 1;
}

void CTin::UpdateTopology() {
    const int nTri = m_tri.GetSize();
    for (int i = 0; i < nTri; ++i)
        for (int k = 0; k < 3; ++k) m_tri[i].nb[k] = -1;
    for (int i = 0; i < nTri; ++i)
        for (int j = i + 1; j < nTri; ++j)
            for (int k = 0; k < 3; ++k) {
                // Slot k of i is the edge v[k-1] - v[k].
                const int a = m_tri[i].v[Prev(k)], b = m_tri[i].v[k];
                for (int l = 0; l < 3; ++l) {
                    const int c = m_tri[j].v[Prev(l)], d = m_tri[j].v[l];
                    if ((a == c && b == d) || (a == d && b == c)) {
                        m_tri[i].nb[k] = j;
                        m_tri[j].nb[l] = i;
                    }
                }
            }
}
