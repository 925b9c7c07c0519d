// CTin: break lines forced into the mesh, and the removal of thin boundary triangles.
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "platform/KelMath.h"
#include "platform/Trace.h"
#include "surface/Tin.h"
#include "surface/TinMesh.h"

using kel_tin::Next;
using kel_tin::Prev;

int CTin::AddBreakLine(int a, int b) {
    const int n = m_point.GetSize();
    if (a < 0 || a >= n || b < 0 || b >= n || a == b) {
        KEL_TRACE_ALWAYS(L"CTin::AddBreakLine a < 0 || a >= nPt || b < 0 || b >= nPt || a == b");
        return 0;
    }
    CBreakLine s;
    s.v[0] = a;
    s.v[1] = b;
    try {
        m_breakLine.Add(s);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::AddBreakLine CMemoryException");
        return 0;
    }
    return 1;
}

int CTin::CornerOf(int t, int v) const {
    const CTri& tr = m_tri[t];
    return tr.v[0] == v ? 0 : tr.v[1] == v ? 1 : tr.v[2] == v ? 2 : 3;
}

int CTin::MeshVertex(int v, int& tri) const {
    int status = 0, side = 0;
    const CXYZ& p = m_point[v];
    const int t = FindTri(tri, p.x, p.y, status, side);
    if (t >= 0 && status == 1) {
        // The corner that made the status: v itself, or the vertex that kept v out.
        const CTri& tr = m_tri[t];
        for (int k = 0; k < 3; ++k) {
            const CXYZ& q = m_point[tr.v[k]];
            if (std::fabs(q.x - p.x) <= m_eps && std::fabs(q.y - p.y) <= m_eps) {
                tri = t;
                return tr.v[k];
            }
        }
    }
    for (int i = 0; i < m_tri.GetSize(); ++i)  // the walk failed (a mesh edited by hand)
        if (CornerOf(i, v) < 3) {
            tri = i;
            return v;
        }
    return -1;
}

void CTin::StarOf(int u, int t0, std::vector<int>& star) const {
    star.clear();
    const int limit = m_tri.GetSize();
    // Counter-clockwise around u (across the edge v[j-1] - u) until the ring closes or meets
    // the boundary; on the boundary, also clockwise from t0.
    int t = t0;
    do {
        star.push_back(t);
        t = m_tri[t].nb[CornerOf(t, u)];
    } while (t >= 0 && t != t0 && CornerOf(t, u) < 3 && static_cast<int>(star.size()) < limit);
    if (t >= 0) return;
    t = m_tri[t0].nb[Next(CornerOf(t0, u))];
    while (t >= 0 && t != t0 && CornerOf(t, u) < 3 && static_cast<int>(star.size()) < limit) {
        star.push_back(t);
        t = m_tri[t].nb[Next(CornerOf(t, u))];
    }
}

int CTin::FixEdge(int u, int v, int tri) {
    std::vector<int> star;
    StarOf(u, tri, star);
    for (int t : star) {
        const int j = CornerOf(t, u);
        // Slot Next(j) is the edge u - v[j+1], slot j the edge v[j-1] - u.
        const int k = m_tri[t].v[Next(j)] == v ? Next(j) : m_tri[t].v[Prev(j)] == v ? j : 3;
        if (k == 3) continue;
        m_tri[t].flag |= kel_tin::FixedBit(k);
        const int n = m_tri[t].nb[k];
        if (n >= 0) {
            const int back = kel_tin::SlotOf(m_tri[n].nb, t);
            if (back < 3) m_tri[n].flag |= kel_tin::FixedBit(back);
        }
        return 1;
    }
    return 0;
}

int CTin::ForceSegment(int s, int& tri) {
    const int a = m_breakLine[s].v[0], b = m_breakLine[s].v[1];
    int u = MeshVertex(a, tri);
    const int w = MeshVertex(b, tri);
    if (u < 0 || w < 0) return 0;
    if (u == w) return 1;  // both ends at one spot: nothing to force
    MeshVertex(u, tri);    // a triangle round u
    // New vertices lie on the line from a to b and take their height from it.
    const CXYZ A(m_point[a].x, m_point[a].y, m_point[a].z);
    const double ex = m_point[b].x - A.x, ey = m_point[b].y - A.y, dz = m_point[b].z - A.z;
    const double len2 = ex * ex + ey * ey;
    const double len = std::sqrt(len2);
    auto along = [&](const CXYZ& p) { return ((p.x - A.x) * ex + (p.y - A.y) * ey) / len2; };
    std::vector<int> star;
    // Each step reaches a vertex further along the segment; each inserted vertex splits an edge
    // that crossed the rest of the segment, and the flips after it add edges at that vertex
    // only, so the steps are bounded by the crossings.
    for (int step = 0; step <= m_point.GetSize() + m_tri.GetSize(); ++step) {
        StarOf(u, tri, star);
        const CXYZ U = m_point[u], W = m_point[w];
        const double tu = along(U);
        int next = -1, cross = -1, corner = 0;
        for (int t : star) {
            const int j = CornerOf(t, u);
            const int p = m_tri[t].v[Next(j)], q = m_tri[t].v[Prev(j)];
            for (int v : {p, q}) {
                const CXYZ& V = m_point[v];
                const double tv = along(V);
                if (v == w ||
                    (tv > tu && tv < 1.0 &&
                     std::fabs(kel_tin::CrossOf(m_point[a], m_point[b], V.x, V.y)) <= m_eps * len))
                    next = v;  // the segment runs along the edge u - v
            }
            if (next >= 0) break;
            // w lies strictly inside the angle of t at u: the segment leaves t across p - q.
            if (kel_tin::CrossOf(U, m_point[p], W.x, W.y) < 0.0 &&
                kel_tin::CrossOf(U, m_point[q], W.x, W.y) > 0.0) {
                cross = t;
                corner = j;
            }
        }
        if (next < 0 && cross >= 0) {
            const int p = m_tri[cross].v[Next(corner)], q = m_tri[cross].v[Prev(corner)];
            const CXYZ P = m_point[p], Q = m_point[q];
            const double cp = kel_tin::CrossOf(U, W, P.x, P.y);
            const double cq = kel_tin::CrossOf(U, W, Q.x, Q.y);
            const double f = cp / (cp - cq);  // along p -> q
            const double x = P.x + f * (Q.x - P.x), y = P.y + f * (Q.y - P.y);
            if (std::fabs(x - P.x) <= m_eps && std::fabs(y - P.y) <= m_eps) {
                next = p;  // the segment passes p within m_eps
            } else if (std::fabs(x - Q.x) <= m_eps && std::fabs(y - Q.y) <= m_eps) {
                next = q;
            } else {
                // Where the segment crosses another break line the vertex takes that line's
                // height, so the line registered first stays linear.
                const bool fixed = (m_tri[cross].flag & kel_tin::FixedBit(Prev(corner))) != 0;
                CXYZ pt(x, y, fixed ? P.z + f * (Q.z - P.z) : A.z + along(CXYZ(x, y, 0.0)) * dz);
                next = m_point.Add(pt);
                int count = m_tri.GetSize();
                m_tri.SetSize(count + 2);
                m_iOptim = 0;
                DivideTriOnSide(next, count, cross, Next(corner));
                m_tri.SetSize(count);
                tri = cross;  // still holds the new vertex (as its corner 0)
                if (!FixEdge(next, u, tri)) return 0;
                u = next;
                continue;
            }
        }
        if (next < 0 || !FixEdge(u, next, tri)) return 0;
        if (next == w) return 1;
        // A triangle round next: one of u's that holds the edge u - next.
        for (int t : star)
            if (CornerOf(t, next) < 3) tri = t;
        u = next;
    }
    return 0;
}

int CTin::BreakLine() {
    DropRayIndex();
    if (m_point.GetSize() < 3 || m_tri.GetSize() < 1) return 0;
    try {
        ReserveOptimStack();
        m_point.Reserve(m_point.GetSize() + m_tri.GetSize());
        m_tri.Reserve(5 * m_tri.GetSize());
        int tri = 0;
        for (int s = 0; s < m_breakLine.GetSize(); ++s)
            if (!ForceSegment(s, tri)) {
                KEL_TRACE_ALWAYS(L"CTin::BreakLine segment %d (%d - %d) not recovered", s,
                                 m_breakLine[s].v[0], m_breakLine[s].v[1]);
                return 0;
            }
        m_point.FreeExtra();
        m_tri.FreeExtra();
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::BreakLine CMemoryException");
        return 0;
    }
}

double CTin::GetAngleXY(int a, int b, int c) const {
    const double ux = m_point[a].x - m_point[b].x, uy = m_point[a].y - m_point[b].y;
    const double wx = m_point[c].x - m_point[b].x, wy = m_point[c].y - m_point[b].y;
    return std::atan2(std::fabs(ux * wy - uy * wx), ux * wx + uy * wy) * 180.0 / kel_math::kPi;
}

int CTin::DelTriWithAngle(double angle, int mode) {
    DropRayIndex();
    if (angle == 0.0 || m_tri.GetSize() < 1) return 1;
    try {
        for (int pass = 0; pass < m_tri.GetSize() + 1; ++pass) {
            std::vector<int> doomed;
            for (int i = 0; i < m_tri.GetSize(); ++i)
                if (IsThinOnBoundary(m_tri[i], angle, mode)) doomed.push_back(i);
            if (doomed.empty()) break;
            // Descending order: DelTri moves the last triangle into the freed slot.
            for (auto it = doomed.rbegin(); it != doomed.rend(); ++it) DelTri(*it);
        }
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::DelTriWithAngle CMemoryException");
        return 0;
    }
    return 1;
}

bool CTin::IsThinOnBoundary(const CTri& t, double angle, int mode) const {
    int nBoundary = 0;
    for (int k = 0; k < 3; ++k) {
        if (t.nb[k] >= 0) continue;
        // A break-line edge on the boundary would leave the mesh with the triangle.
        if ((t.flag & kel_tin::FixedBit(k)) != 0) return false;
        ++nBoundary;
    }
    if (nBoundary == 0 || nBoundary == 3 || (mode == 1 && nBoundary != 1)) return false;
    for (int k = 0; k < 3; ++k) {
        if (t.nb[k] >= 0) continue;
        // Boundary edge v[k-1] - v[k]; the third vertex is v[k+1].
        const int u = t.v[Prev(k)], w = t.v[k], c = t.v[Next(k)];
        if (GetAngleXY(w, u, c) <= angle || GetAngleXY(u, w, c) <= angle) return true;
    }
    return false;
}
