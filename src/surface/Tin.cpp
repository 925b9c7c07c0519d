// CTin: data, the incremental Delaunay triangulation, point location, splits and flips.
#include "surface/Tin.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "platform/PageBlock.h"
#include "platform/Trace.h"
#include "surface/TinLocateGrid.h"
#include "surface/TinMesh.h"

using kel_tin::CLocateGrid;
using kel_tin::CrossOf;
using kel_tin::FixedBit;
using kel_tin::Next;
using kel_tin::Prefetch;
using kel_tin::Prev;
using kel_tin::SlotOf;

namespace {

// The circumcircle test of CheckOptim: 1 when D lies strictly outside the circle through A, P
// and B, computed from the circumcentre relative to A; 0 also when A, P, B are collinear.
inline int OutsideCircle(double ax, double ay, double Px, double Py, double Bx, double By,
                         double Dx, double Dy) {
    const double px = Px - ax, py = Py - ay;
    const double bx = Bx - ax, by = By - ay;
    const double dx = Dx - ax, dy = Dy - ay;
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

// CheckSwapTri on points: the flip of the diagonal A - C of quadrilateral (A, B, C, D) makes
// (B, C, D) and (B, D, A); in FindTri's measure a counter-clockwise triangle is negative.
inline int FlipKeepsOrientation(double ax, double ay, double bx, double by, double cx, double cy,
                                double dx, double dy) {
    const double z1 = (cy - by) * (dx - bx) - (cx - bx) * (dy - by);
    const double z2 = (dy - by) * (ax - bx) - (dx - bx) * (ay - by);
    if (z1 >= 0.0 || z2 >= 0.0) {
        KEL_TRACE_ALWAYS(L"CTin::CheckSwapTri z1 >= 0.0 || z2 >= 0.0");
        return 0;
    }
    return 1;
}

// True when an index is outside [0, n): one test, for the rare fatal path.
inline bool Beyond(unsigned n, int a, int b, int c, int d = 0) {
    return (static_cast<unsigned>(a) >= n) | (static_cast<unsigned>(b) >= n) |
           (static_cast<unsigned>(c) >= n) | (static_cast<unsigned>(d) >= n);
}

// Plan coordinates of the vertices for the walk and the flips: from the points themselves, or
// from a packed copy (x, y per vertex, four vertices to a cache line where a point takes one),
// which Triangulation makes for the time it inserts.
struct CPointXY {
    const CXYZ* p;
    double X(int i) const { return p[i].x; }
    double Y(int i) const { return p[i].y; }
};
struct CPackedXY {
    const double* xy;
    double X(int i) const { return xy[2 * static_cast<std::size_t>(i)]; }
    double Y(int i) const { return xy[2 * static_cast<std::size_t>(i) + 1]; }
};

double Dist2(const CXYZ& a, const CXYZ& b) {
    return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
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
    try {
        CopyData(src);
    } catch (const std::bad_alloc&) {
        InitData();
        KEL_TRACE_ALWAYS(L"CTin::Copy CMemoryException");
    }
}

void CTin::CopyData(const CTin& src) {
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
        return FinishTin(angle);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::CreateTin CMemoryException");
        InitData();
        return 0;
    }
}

int CTin::FinishTin(double angle, bool rangeKept) {
    // Depth and texture are derived on request (UpdateDepth, UpdateTextureCoord; the version 2
    // writer derives the texture itself): made with every build, they cost 24 bytes a point
    // and, at ten million points, 4% of the time. Arrays left from before describe other
    // points.
    m_depth.RemoveAll();
    m_texU.RemoveAll();
    m_texV.RemoveAll();
    if ((m_breakLine.GetSize() > 0 && !BreakLine()) ||
        (angle > 0.0 && !DelTriWithAngle(angle, 1)) || (!rangeKept && !UpdateTinRange())) {
        InitData();
        return 0;
    }
    return 1;
}

int CTin::Triangulation() {
    int left = 0;
    return InsertVertices(m_locateGrid, left);
}

int CTin::InsertVertices(bool grid, int& left) {
    left = 0;
    const int start = m_tri.GetSize();
    if (start < 1) return 0;
    int count = start;  // the triangles made so far
    try {
        ReserveOptimStack();
        const int n = m_point.GetSize();
        std::vector<char> inHull(static_cast<std::size_t>(n), 0);
        for (int i = 0; i < m_hull.GetSize(); ++i) inHull[static_cast<std::size_t>(m_hull[i])] = 1;
        m_tri.SetSize(2 * n > start ? 2 * n : start);
        m_iOptim = 0;
        // The walks and flips read x and y from a packed copy (unless the caller gave one):
        // a quarter of the memory the points take, so that more of the vertices they meet are
        // still in the caches.
        std::vector<double, kel_pages::Allocator<double>> packed;
        CPackedScope scope(m_packedXY);
        if (m_packedXY == nullptr) {
            packed.resize(2 * static_cast<std::size_t>(n));
            for (int i = 0; i < n; ++i) {
                packed[2 * static_cast<std::size_t>(i)] = m_point[i].x;
                packed[2 * static_cast<std::size_t>(i) + 1] = m_point[i].y;
            }
            scope.Use(packed.data());
        }
        int lastTri = 0;
        if (!grid) {
            // Each walk starts at the first triangle of the previous split, which keeps that
            // point as a corner through the flips.
            for (int i = 0; i < n; ++i) {
                if (inHull[static_cast<std::size_t>(i)]) continue;
                int tri = lastTri;
                const int added = count;
                if (DivideTri(i, count, tri))
                    lastTri = added;
                else
                    ++left;
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
        const CXYZ* pts = m_point.GetData();  // the packed copy is theirs (index order)
        const CTri* tris = m_tri.GetData();
        for (int i = 0; i < n; ++i) {
            if (inHull[static_cast<std::size_t>(i)]) continue;
            grid.Fit(inserted);
            // Points in no spatial order find their start triangles in cold memory: fetch the
            // cell's triangle two points ahead and that triangle's corners one point ahead.
            if (i + 2 < n) {
                const CLocateGrid::CEntry& ahead = grid.At(pts[i + 2].x, pts[i + 2].y);
                Prefetch(tris + ahead.tri);
                if (ahead.pt >= 0) Prefetch(m_packedXY + 2 * static_cast<std::size_t>(ahead.pt));
            }
            if (i + 1 < n) {
                const CTri& ahead = tris[grid.At(pts[i + 1].x, pts[i + 1].y).tri];
                for (int k = 0; k < 3; ++k)
                    Prefetch(m_packedXY + 2 * static_cast<std::size_t>(ahead.v[k]));
            }
            const CXYZ& p = m_point[i];
            CLocateGrid::CEntry& cell = grid.At(p.x, p.y);
            // The walk starts at whichever of the previous point and the cell's point is nearer:
            // for the previous point, at the first triangle its split added. That triangle keeps
            // the point as a corner through the flips, as the one it was found in does, but on scan
            // rows it lies toward the next point far more often: a million-point scan took 3 walk
            // steps per point from it against 11 from the found triangle.
            int tri = lastTri;
            if (cell.pt >= 0 &&
                (lastPt < 0 || Dist2(p, m_point[cell.pt]) < Dist2(p, m_point[lastPt])))
                tri = cell.tri;
            const int added = count;
            if (DivideTri(i, count, tri)) {
                lastTri = added;
                lastPt = i;
                cell = CLocateGrid::CEntry{tri, i};
                ++inserted;
            } else {
                ++left;
            }
        }
        m_tri.SetSize(count);
        return 1;
    } catch (const std::bad_alloc&) {
        // The mesh of the points inserted so far stays consistent.
        if (m_tri.GetSize() > count) m_tri.SetSize(count);
        KEL_TRACE_ALWAYS(L"CTin::Triangulation CMemoryException");
        return 0;
    }
}

int CTin::DivideTri(int pt, int& ntri, int& tri) {
    DropRayIndex();
    try {
        ReserveOptimStack();
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::DivideTri CMemoryException");
        return 0;
    }
    int status = 0, side = 0;
    const CXYZ& p = m_point[pt];
    // While the packed copy is in use it is the vertices' plan position (CreateTinSpatial
    // numbers them in its insertion order then).
    const double x = m_packedXY ? m_packedXY[2 * static_cast<std::size_t>(pt)] : p.x;
    const double y = m_packedXY ? m_packedXY[2 * static_cast<std::size_t>(pt) + 1] : p.y;
    int it = FindTri(tri, x, y, status, side);
    // A walk that circled (it can, where rounding kept a flip from being made and the mesh is
    // not exactly Delaunay) tries again, choosing among the edges to cross at random.
    if (it < 0 && status == -2) it = FindTriOrWander(tri, x, y, status, side, true);
    if (it < 0 || status < 0 || status == 1) {
        if (!m_quietLeftOut)
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
        int tri = FindTri(0, x, y, status, side);
        if (tri < 0 && status == -2) tri = FindTriOrWander(0, x, y, status, side, true);
        if (tri < 0 || status < 0 || status == 1) {
            KEL_TRACE_ALWAYS(L"CTin::DivideTri tri < 0 || status < 0 || status == 1");
            return 0;
        }
        ReserveOptimStack();
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
    return FindTriOrWander(start, x, y, status, side, false);
}

int CTin::FindTriOrWander(int start, double x, double y, int& status, int& side,
                          bool wander) const {
    if (m_packedXY != nullptr)
        return FindTriIn(CPackedXY{m_packedXY}, start, x, y, status, side, wander);
    return FindTriIn(CPointXY{m_point.GetData()}, start, x, y, status, side, wander);
}

template <class XY>
int CTin::FindTriIn(const XY& xy, int start, double x, double y, int& status, int& side,
                    bool wander) const {
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
    const unsigned nPt = static_cast<unsigned>(m_point.GetSize());
    const double eps = m_eps;
    for (int steps = 0; steps <= nTri; ++steps) {
        if (cur >= nTri) (void)m_tri[cur];  // a broken link: the array's fatal error
        const CTri& t = tris[cur];
        if (Beyond(nPt, t.v[0], t.v[1], t.v[2]))
            for (int k = 0; k < 3; ++k) (void)m_point[t.v[k]];  // a broken index: fatal
        const double vx[3] = {xy.X(t.v[0]), xy.X(t.v[1]), xy.X(t.v[2])};
        const double vy[3] = {xy.Y(t.v[0]), xy.Y(t.v[1]), xy.Y(t.v[2])};
        // A coincident vertex first: the edge measure below grows with the edge's length, so
        // a point within m_eps of a vertex can pass every edge test of a long triangle.
        const double dx0 = x - vx[0], dy0 = y - vy[0];
        const double dx1 = x - vx[1], dy1 = y - vy[1];
        const double dx2 = x - vx[2], dy2 = y - vy[2];
        if ((std::fabs(dx0) <= eps && std::fabs(dy0) <= eps) ||
            (std::fabs(dx1) <= eps && std::fabs(dy1) <= eps) ||
            (std::fabs(dx2) <= eps && std::fabs(dy2) <= eps)) {
            status = 1;
            return cur;
        }
        // All three edge measures at once (they are independent; the tests below read them in
        // edge order as before).
        const double crs[3] = {(vy[1] - vy[0]) * dx0 - (vx[1] - vx[0]) * dy0,
                               (vy[2] - vy[1]) * dx1 - (vx[2] - vx[1]) * dy1,
                               (vy[0] - vy[2]) * dx2 - (vx[0] - vx[2]) * dy2};
        int next = -2;
        // Wandering, the edges are tried from a pseudo-random one on: such a walk cannot
        // circle for ever in any triangulation.
        const int first =
            wander ? static_cast<int>((static_cast<unsigned>(steps) * 2654435761u >> 16) % 3) : 0;
        if (std::fabs(crs[0]) > eps && std::fabs(crs[1]) > eps && std::fabs(crs[2]) > eps) {
            // No edge within m_eps (the common case): the first edge the point lies beyond is
            // crossed, or the point is inside. Selected without a branch per edge, which way
            // the walk goes being a coin toss for the predictor.
            int k = crs[0] > eps ? 0 : crs[1] > eps ? 1 : crs[2] > eps ? 2 : 3;
            if (wander && k < 3)
                for (int j = 0; j < 3; ++j)
                    if (crs[(first + j) % 3] > eps) {
                        k = (first + j) % 3;
                        break;
                    }
            if (k == 3) {
                status = 0;
                return cur;
            }
            next = t.nb[Next(k)];
            if (next < 0) {
                status = -1;
                return -1;
            }
        } else {
            for (int j = 0; j < 3; ++j) {
                const int k = wander ? (first + j) % 3 : j;
                const double cr = crs[k];
                if (!(cr >= -eps)) continue;  // clearly inside this edge (or not a number)
                if (cr > eps) {               // clearly outside: cross
                    next = t.nb[Next(k)];
                    if (next < 0) {
                        status = -1;
                        return -1;
                    }
                    break;
                }
                // On the edge's line within m_eps. (A coincident vertex was found above.)
                const double Ax = vx[k], Ay = vy[k], Bx = vx[Next(k)], By = vy[Next(k)];
                const double dxa = x - Ax, dya = y - Ay;
                const double dxb = Bx - x, dyb = By - y;
                const double ex = Bx - Ax, ey = By - Ay;
                const double len2 = ex * ex + ey * ey;
                if (dxa * dxb >= 0.0 && dya * dyb >= 0.0 && dxa * dxa + dya * dya <= len2) {
                    status = 2;
                    side = k;
                    return cur;
                }
                // Beyond the edge's ends. On the inner side the edge is passed; on the outer side
                // the walk crosses it. Passing it there too would call a point inside a sliver
                // triangle (three nearly collinear points of a scan row) that it lies beyond, and
                // the split would fold the mesh over.
                if (cr <= 0.0) continue;
                next = t.nb[Next(k)];
                // Beyond the ends of an edge of the outline: the walk goes on round the end vertex
                // to the next piece of the outline.
                if (next < 0) {
                    const double along = dxa * ex + dya * ey;  // (P - A) . (B - A)
                    next = along > 0.5 * len2 ? BoundaryStep(cur, Next(k), true)
                                              : BoundaryStep(cur, k, false);
                }
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
        if (cur == mark && !wander) return -1;  // a wandering walk may come back and go on
        if (++sinceMark == span) {
            mark = cur;
            sinceMark = 0;
            span *= 2;
        }
    }
    return -1;
}

int CTin::BoundaryStep(int t, int corner, bool after) const {
    // Round vertex c = corner of t, across each triangle's edge out of c (after: counter-
    // clockwise) or into c (before: clockwise), to the first triangle whose such edge has no
    // neighbour; -1 when that is t itself (the point lies beyond a corner of the outline) or
    // a link does not turn round c.
    const int c = m_tri[t].v[corner];
    int cur = t, j = corner;
    for (int guard = 0; guard < m_tri.GetSize(); ++guard) {
        const int across = m_tri[cur].nb[after ? Next(j) : j];
        if (across < 0) return cur == t ? -1 : cur;
        cur = across;
        j = 0;
        while (j < 3 && m_tri[cur].v[j] != c) ++j;
        if (j == 3) return -1;
    }
    return -1;
}

namespace {
// Bit `from` of flag moved to bit `to`.
inline std::int32_t MoveBit(std::int32_t flag, int from, int to) {
    return ((flag >> from) & 1) << to;
}

// Redirects the link of triangle q that named `from` to `to` (q a triangle of the block, or
// -1).
inline void RelinkIn(CTin::CTri* tri, int q, int from, int to) {
    if (q < 0) return;
    std::int32_t* links = tri[q].nb;
    const int k = SlotOf(links, from);
    if (k < 3) links[k] = to;
}
// The same, q checked against the array first (its fatal index error for a broken link).
inline void Relink(kel_templ::CKelArray<CTin::CTri, CTin::CTri&>& tri, int q, int from, int to) {
    if (q >= 0) (void)tri[q];
    RelinkIn(tri.GetData(), q, from, to);
}

// SwapTri's flip once CheckSwapTri has allowed it: the diagonal a - b shared by t1 = (a, p, b)
// (p at slot e1) and t2 (the slot of t1 in t2's links is e2, d opposite) becomes p - d.
#if defined(__GNUC__) || defined(__clang__)
__attribute__((always_inline))
#endif
inline void
FlipDiagonal(kel_templ::CKelArray<CTin::CTri, CTin::CTri&>& tris, int t1, int e1, int t2, int e2) {
    CTin::CTri* tri = tris.GetData();
    CTin::CTri& A = tri[t1];
    CTin::CTri& B = tri[t2];
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
    // Break-line marks go with their edges: b - d to A's slot Prev(e1), a - p to B's slot e2;
    // the new diagonal is not one (the old one was not, or it would not be flipped).
    const std::int32_t fa = A.flag, fb = B.flag;
    if (((fa | fb) & kel_tin::kFixedBits) != 0) {
        A.flag = (fa & ~(FixedBit(Prev(e1)) | FixedBit(e1))) | MoveBit(fb, ne2, Prev(e1));
        B.flag = (fb & ~(FixedBit(e2) | FixedBit(ne2))) | MoveBit(fa, e1, e2);
    }
    const unsigned nTri = static_cast<unsigned>(tris.GetSize());
    for (int q : {outerA, outerB})
        if (q >= 0 && static_cast<unsigned>(q) >= nTri) (void)tris[q];  // a broken link: fatal
    RelinkIn(tri, outerB, t2, t1);
    RelinkIn(tri, outerA, t1, t2);
}

void SetTri(CTin::CTri& t, int v0, int v1, int v2, int n0, int n1, int n2, std::int32_t flag = 0) {
    t.v[0] = v0;
    t.v[1] = v1;
    t.v[2] = v2;
    t.nb[0] = n0;
    t.nb[1] = n1;
    t.nb[2] = n2;
    t.flag = flag;
}
}  // namespace

void CTin::DivideTriInside(int pt, int& ntri, int t) {
    const CTri old = m_tri[t];
    const int a = old.v[0], b = old.v[1], c = old.v[2];
    const int q0 = old.nb[0], q1 = old.nb[1], q2 = old.nb[2];
    const int t1 = ntri, t2 = ntri + 1;
    // Each old edge (and its break-line mark) becomes slot 2 of a new triangle.
    SetTri(m_tri[t], pt, a, b, t1, t2, q1, MoveBit(old.flag, 1, 2));
    SetTri(m_tri[t1], pt, b, c, t2, t, q2, MoveBit(old.flag, 2, 2));
    SetTri(m_tri[t2], pt, c, a, t, t1, q0, MoveBit(old.flag, 0, 2));
    Relink(m_tri, q0, t, t2);
    Relink(m_tri, q2, t, t1);
    ntri += 2;
    const int split[3] = {t, t1, t2}, edge[3] = {0, 0, 0};
    OptimizeEach(split, edge, 3);
}

void CTin::SplitOnBoundary(int pt, int& ntri, int t, int side) {
    const CTri old = m_tri[t];
    const int a = old.v[side], b = old.v[Next(side)], c = old.v[Prev(side)];
    const int qbc = old.nb[Prev(side)], qca = old.nb[side];
    const int t1 = ntri;
    // Both halves of a split break-line edge stay break-line edges.
    const std::int32_t ab = (old.flag >> Next(side)) & 1;
    SetTri(m_tri[t], pt, b, c, t1, -1, qbc, MoveBit(old.flag, Prev(side), 2) | ab << 1);
    SetTri(m_tri[t1], pt, c, a, -1, t, qca, MoveBit(old.flag, side, 2) | ab);
    Relink(m_tri, qca, t, t1);
    ntri += 1;
    const int split[2] = {t, t1}, edge[2] = {0, 0};
    OptimizeEach(split, edge, 2);
}

void CTin::DivideTriOnSide(int pt, int& ntri, int t, int side) {
    // The point lies on edge a -> b of t = (a, b, c); n is the triangle across it.
    const CTri old = m_tri[t];
    const int a = old.v[side], b = old.v[Next(side)], c = old.v[Prev(side)];
    const int n = old.nb[Next(side)];
    const int qbc = old.nb[Prev(side)], qca = old.nb[side];
    const int t1 = ntri;
    if (n < 0) {
        SplitOnBoundary(pt, ntri, t, side);
        return;
    }
    const CTri on = m_tri[n];
    const int i = SlotOf(on.nb, t);
    if (i >= 3) {
        // n does not name t back (a mesh edited by hand): split t alone, as on the boundary,
        // and leave n as it is; t's halves face no triangle across the split edge.
        KEL_TRACE_ALWAYS(L"CTin::DivideTriOnSide i >= 3");
        SplitOnBoundary(pt, ntri, t, side);
        return;
    }
    const int d = on.v[Next(i)];
    const int qad = on.nb[Next(i)], qdb = on.nb[Prev(i)];
    const int t2 = ntri + 1;
    const std::int32_t ab = (old.flag >> Next(side)) & 1;
    SetTri(m_tri[t], pt, b, c, t1, t2, qbc, MoveBit(old.flag, Prev(side), 2) | ab << 1);
    SetTri(m_tri[t1], pt, c, a, n, t, qca, MoveBit(old.flag, side, 2) | ab);
    SetTri(m_tri[n], pt, a, d, t2, t1, qad, MoveBit(on.flag, Next(i), 2) | ab << 1);
    SetTri(m_tri[t2], pt, d, b, t, n, qdb, MoveBit(on.flag, Prev(i), 2) | ab);
    Relink(m_tri, qca, t, t1);
    Relink(m_tri, qdb, n, t2);
    ntri += 2;
    const int split[4] = {t, t1, n, t2}, edge[4] = {0, 0, 0, 0};
    OptimizeEach(split, edge, 4);
}

void CTin::Optimization(int t, int e) {
    const int edge[1] = {e};
    OptimizeEach(&t, edge, 1);
}

void CTin::OptimizeEach(const int* tris, const int* edges, int count) {
    if (m_packedXY != nullptr)
        OptimizationIn(CPackedXY{m_packedXY}, tris, edges, count);
    else
        OptimizationIn(CPointXY{m_point.GetData()}, tris, edges, count);
}

template <class XY>
void CTin::OptimizationIn(const XY& xy, const int* tris, const int* edges, int count) {
    for (int c = 0; c < count; ++c) {
        (void)m_tri[tris[c]];  // the array's fatal index error for a bad argument
        if (edges[c] < 0 || edges[c] > 2) {
            KEL_TRACE_ALWAYS(L"CTin::Optimization e < 0 || e > 2");
            return;
        }
    }
    int t = tris[0], e = edges[0];
    // Depth-first edge legalisation. Each pending call is a (triangle, edge, depth) triple on
    // an explicit stack instead of the machine stack: a flip cascade may go OPTIM_LEVEL deep,
    // too deep for small thread stacks. A flip schedules (t, e) and then (n, i) one level
    // deeper, (t, e) on top so that its whole cascade runs first, as a recursive call would.
    // The depth of the call being worked on is kept here; m_iOptim, read at the start, is as
    // it was when this returns. The flip is SwapTri's on the quadrilateral already loaded.
    CTri* tri = m_tri.GetData();
    const unsigned nTri = static_cast<unsigned>(m_tri.GetSize());
    const unsigned nPt = static_cast<unsigned>(m_point.GetSize());
    try {
        ReserveOptimStack();
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::Optimization CMemoryException");
        return;
    }
    int* s = m_optimStack.data();  // scratch: entries [0, top) are pending
    std::size_t top = 0;
    const int base = m_iOptim;
    // (t, e, depth) is the call being worked on. After a flip it is (t, e) again one level
    // deeper, so that one stays in registers and only (n, i) is pushed. A negative depth
    // counts as 0.
    int depth = base < 0 ? 0 : base;
    // The calls after the first wait at the bottom of the stack, the second on top: each
    // runs when the whole cascade of the one before it has, as consecutive calls would.
    for (int c = count - 1; c >= 1; --c) {
        s[top] = tris[c];
        s[top + 1] = edges[c];
        s[top + 2] = depth;
        top += 3;
    }
    for (;;) {
        bool flipped = false;
        int n = -1, i = 3;
        if (depth >= OPTIM_LEVEL) {
            KEL_TRACE_ALWAYS(L"CTin::Optimization m_iOptim >= OPTIM_LEVEL");
        } else {
            CTri& tt = tri[t];
            const int pe = Prev(e);
            n = tt.nb[pe];
            if (n >= 0 && (tt.flag & FixedBit(pe)) == 0) {             // a break-line edge stays
                if (static_cast<unsigned>(n) >= nTri) (void)m_tri[n];  // a broken link: fatal
                CTri& nn = tri[n];
                i = SlotOf(nn.nb, t);
                if (i >= 3) {
                    KEL_TRACE_ALWAYS(L"CTin::Optimization i >= 3");
                } else {
                    const int a = tt.v[pe], p = tt.v[e], b = tt.v[Next(e)];
                    const int d = nn.v[Next(i)];
                    if (Beyond(nPt, a, p, b, d))
                        for (int v : {a, p, b, d}) (void)m_point[v];  // a broken index: fatal
                    const double ax = xy.X(a), ay = xy.Y(a), px = xy.X(p), py = xy.Y(p);
                    const double bx = xy.X(b), by = xy.Y(b), dx = xy.X(d), dy = xy.Y(d);
                    flipped = OutsideCircle(ax, ay, px, py, bx, by, dx, dy) != 1 &&
                              FlipKeepsOrientation(ax, ay, px, py, bx, by, dx, dy);
                }
            }
        }
        if (flipped) {
            FlipDiagonal(m_tri, t, e, n, i);
            assert(top + 3 <= m_optimStack.size());  // see ReserveOptimStack
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

void CTin::ReserveOptimStack() {
    // The pending calls of one cascade hold strictly rising depths, each at most OPTIM_LEVEL
    // (a flip is made below it only): OPTIM_LEVEL triples at the most, plus the calls that
    // OptimizeEach lines up (three at the most).
    constexpr std::size_t kInts = 3 * (static_cast<std::size_t>(OPTIM_LEVEL) + kMaxEach);
    if (m_optimStack.size() < kInts) m_optimStack.resize(kInts);
}

int CTin::CheckOptim(int a, int p, int b, int d) const {
    const CXYZ &A = m_point[a], &P = m_point[p], &B = m_point[b], &D = m_point[d];
    return OutsideCircle(A.x, A.y, P.x, P.y, B.x, B.y, D.x, D.y);
}

int CTin::CheckSwapTri(int a, int b, int c, int d) const {
    const CXYZ &A = m_point[a], &B = m_point[b], &C = m_point[c], &D = m_point[d];
    return FlipKeepsOrientation(A.x, A.y, B.x, B.y, C.x, C.y, D.x, D.y);
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
    if ((A.flag & FixedBit(Prev(e1))) != 0) {
        KEL_TRACE_ALWAYS(L"CTin::SwapTri (A.flag & FixedBit(Prev(e1))) != 0");
        return 0;
    }
    const int a = A.v[Prev(e1)], p = A.v[e1], b = A.v[Next(e1)];
    const int d = m_tri[t2].v[Next(e2)];
    for (int v : {a, p, b, d}) (void)m_point[v];
    if (!CheckSwapTri(a, p, b, d)) return 0;
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
    try {
        return m_tri.Add(t);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::AddTri CMemoryException");
        return -1;
    }
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
