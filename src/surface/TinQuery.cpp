// CTin: break lines, thin-triangle removal, derived per-vertex values and the queries.
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "platform/KelMath.h"
#include "platform/Trace.h"
#include "surface/Tin.h"
#include "surface/TinRay.h"

namespace {

int Next(int i) { return i == 2 ? 0 : i + 1; }

// Neumaier's compensated sum.
struct Sum {
    double s = 0.0, c = 0.0;
    void Add(double v) {
        const double t = s + v;
        c += std::fabs(s) >= std::fabs(v) ? (s - t) + v : (v - t) + s;
        s = t;
    }
    double Get() const { return s + c; }
};

}  // namespace

int CTin::AddBreakLine(int a, int b) {
    const int n = m_point.GetSize();
    if (a < 0 || a >= n || b < 0 || b >= n || a == b) {
        KEL_TRACE_ALWAYS(L"CTin::AddBreakLine a < 0 || a >= nPt || b < 0 || b >= nPt || a == b");
        return 0;
    }
    CBreakLine s;
    s.v[0] = a;
    s.v[1] = b;
    m_breakLine.Add(s);
    return 1;
}

int CTin::SegmentIsEdge(int a, int b) const {
    for (int i = 0; i < m_tri.GetSize(); ++i) {
        const CTri& t = m_tri[i];
        for (int k = 0; k < 3; ++k)
            if ((t.v[k] == a && t.v[Next(k)] == b) || (t.v[k] == b && t.v[Next(k)] == a))
                return 1;
    }
    return 0;
}

int CTin::BreakLine() {
    if (m_point.GetSize() < 3 || m_tri.GetSize() < 1) return 0;
    try {
        m_point.Reserve(m_point.GetSize() + m_tri.GetSize());
        m_tri.Reserve(5 * m_tri.GetSize());
        int ok = 1;
        for (int s = 0; s < m_breakLine.GetSize(); ++s) {
            const int a = m_breakLine[s].v[0], b = m_breakLine[s].v[1];
            const double ax = m_point[a].x, ay = m_point[a].y, az = m_point[a].z;
            const double ex = m_point[b].x - ax, ey = m_point[b].y - ay;
            const double dz = m_point[b].z - az;
            const double len2 = ex * ex + ey * ey;
            if (len2 <= m_eps2) continue;
            const double len = std::sqrt(len2);
            bool done = false;
            for (int round = 0; round < kMaxBreakLineRounds && !done; ++round) {
                // The chain: a, the vertices lying on the segment in order along it, b.
                std::vector<std::pair<double, int>> chain;
                for (int i = 0; i < m_point.GetSize(); ++i) {
                    const double px = m_point[i].x - ax, py = m_point[i].y - ay;
                    const double t = (px * ex + py * ey) / len2;
                    if (i == a || i == b || t <= 0.0 || t >= 1.0) continue;
                    if (std::fabs(Cross(a, b, m_point[i].x, m_point[i].y)) / len <= m_eps)
                        chain.emplace_back(t, i);
                }
                std::sort(chain.begin(), chain.end());
                chain.insert(chain.begin(), std::make_pair(0.0, a));
                chain.emplace_back(1.0, b);
                done = true;
                bool inserted = false;
                for (std::size_t c = 0; c + 1 < chain.size(); ++c) {
                    const int u = chain[c].second, w = chain[c + 1].second;
                    if (SegmentIsEdge(u, w)) continue;
                    done = false;
                    // The crossing edge nearest u: a vertex goes in where it meets u - w.
                    double bestS = 2.0, bx = 0.0, by = 0.0;
                    for (int i = 0; i < m_tri.GetSize(); ++i)
                        for (int k = 0; k < 3; ++k) {
                            const int p = m_tri[i].v[k], q = m_tri[i].v[Next(k)];
                            const double cp = Cross(u, w, m_point[p].x, m_point[p].y);
                            const double cq = Cross(u, w, m_point[q].x, m_point[q].y);
                            const double cu = Cross(p, q, m_point[u].x, m_point[u].y);
                            const double cw = Cross(p, q, m_point[w].x, m_point[w].y);
                            if (!((cp > 0.0 && cq < 0.0) || (cp < 0.0 && cq > 0.0))) continue;
                            if (!((cu > 0.0 && cw < 0.0) || (cu < 0.0 && cw > 0.0))) continue;
                            const double f = cu / (cu - cw);  // along u -> w
                            if (f < bestS) {
                                bestS = f;
                                bx = m_point[u].x + f * (m_point[w].x - m_point[u].x);
                                by = m_point[u].y + f * (m_point[w].y - m_point[u].y);
                            }
                        }
                    if (bestS > 1.0) continue;
                    const double t = ((bx - ax) * ex + (by - ay) * ey) / len2;
                    if (DivideTri(bx, by, az + t * dz)) inserted = true;
                    break;  // the chain changed: gather it again
                }
                if (!done && !inserted) break;
            }
            if (!done) ok = 0;
        }
        m_point.FreeExtra();
        m_tri.FreeExtra();
        if (!ok) KEL_TRACE_ALWAYS(L"CTin::BreakLine segment not recovered");
        return ok;
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
    if (angle == 0.0 || m_tri.GetSize() < 1) return 1;
    for (int pass = 0; pass < m_tri.GetSize() + 1; ++pass) {
        std::vector<int> doomed;
        for (int i = 0; i < m_tri.GetSize(); ++i) {
            const CTri& t = m_tri[i];
            int nBoundary = 0;
            for (int k = 0; k < 3; ++k) nBoundary += t.nb[k] < 0 ? 1 : 0;
            if (nBoundary == 0 || nBoundary == 3 || (mode == 1 && nBoundary != 1)) continue;
            for (int k = 0; k < 3; ++k) {
                if (t.nb[k] >= 0) continue;
                // Boundary edge v[k-1] - v[k]; the third vertex is v[k+1].
                const int u = t.v[(k + 2) % 3], w = t.v[k], c = t.v[Next(k)];
                if (GetAngleXY(w, u, c) <= angle || GetAngleXY(u, w, c) <= angle) {
                    doomed.push_back(i);
                    break;
                }
            }
        }
        if (doomed.empty()) break;
        // Descending order: DelTri moves the last triangle into the freed slot.
        for (auto it = doomed.rbegin(); it != doomed.rend(); ++it) DelTri(*it);
    }
    return 1;
}

int CTin::UpdateTinRange() {
    if (m_tri.GetSize() < 1) return UpdatePtRange();
    // The used vertices are marked first, then folded in index order: one pass over the
    // points instead of three scattered reads per triangle. The range starts from the first
    // triangle's first vertex, as a fold in triangle order would.
    const int nPt = m_point.GetSize();
    std::vector<char> used(static_cast<std::size_t>(nPt), 0);
    for (int i = 0; i < m_tri.GetSize(); ++i)
        for (int k = 0; k < 3; ++k) {
            const int v = m_tri[i].v[k];
            if (v < 0 || v >= nPt) (void)m_point[v];  // the array's fatal index error
            used[static_cast<std::size_t>(v)] = 1;
        }
    const CXYZ& p0 = m_point[m_tri[0].v[0]];
    m_range[0].SetXYZ(p0.x, p0.y, p0.z);
    m_range[1].SetXYZ(p0.x, p0.y, p0.z);
    for (int i = 0; i < nPt; ++i) {
        if (!used[static_cast<std::size_t>(i)]) continue;
        const CXYZ& p = m_point[i];
        m_range[0].SetXYZ(std::min(m_range[0].x, p.x), std::min(m_range[0].y, p.y),
                          std::min(m_range[0].z, p.z));
        m_range[1].SetXYZ(std::max(m_range[1].x, p.x), std::max(m_range[1].y, p.y),
                          std::max(m_range[1].z, p.z));
    }
    return 1;
}

int CTin::UpdateDepth() {
    const int n = m_point.GetSize();
    m_depth.SetSize(n);
    for (int i = 0; i < n; ++i) m_depth[i] = m_range[1].z - m_point[i].z;
    return 1;
}

int CTin::UpdateTextureCoord() {
    const int n = m_point.GetSize();
    const double sx = m_range[1].x - m_range[0].x, sy = m_range[1].y - m_range[0].y;
    m_texU.SetSize(n);
    m_texV.SetSize(n);
    for (int i = 0; i < n; ++i) {
        const double u = sx > 0.0 ? (m_point[i].x - m_range[0].x) / sx : 0.0;
        const double v = sy > 0.0 ? (m_point[i].y - m_range[0].y) / sy : 0.0;
        m_texU[i] = std::min(1.0, std::max(0.0, u));
        m_texV[i] = std::min(1.0, std::max(0.0, v));
    }
    return 1;
}

int CTin::FindTriXY(double x, double y) const {
    int status = 0, side = 0;
    const int t = FindTri(0, x, y, status, side);
    if (t >= 0) return t;
    // The walk can stop at a boundary of a mesh made non-convex by DelTriWithAngle: scan.
    for (int i = 0; i < m_tri.GetSize(); ++i) {
        const CTri& tr = m_tri[i];
        int k = 0;
        while (k < 3 && Cross(tr.v[k], tr.v[Next(k)], x, y) <= m_eps) ++k;
        if (k == 3) return i;
    }
    return -1;
}

int CTin::GetHeight(double x, double y, double& z) const {
    const int t = FindTriXY(x, y);
    if (t < 0) return 0;
    const CXYZ& a = m_point[m_tri[t].v[0]];
    const CXYZ& b = m_point[m_tri[t].v[1]];
    const CXYZ& c = m_point[m_tri[t].v[2]];
    const double det = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    if (det == 0.0) return 0;
    const double wb = ((x - a.x) * (c.y - a.y) - (c.x - a.x) * (y - a.y)) / det;
    const double wc = ((b.x - a.x) * (y - a.y) - (x - a.x) * (b.y - a.y)) / det;
    z = a.z + wb * (b.z - a.z) + wc * (c.z - a.z);
    return 1;
}

int CTin::GetNormal(int tri, CXYZ& normal) const {
    if (tri < 0 || tri >= m_tri.GetSize()) return 0;
    const CXYZ& a = m_point[m_tri[tri].v[0]];
    const CXYZ n = (m_point[m_tri[tri].v[1]] - a).Out(m_point[m_tri[tri].v[2]] - a);
    const double len = n.Len();
    if (len == 0.0) return 0;
    normal.SetXYZ(n.x / len, n.y / len, n.z / len);
    return 1;
}

double CTin::GetPlanArea() const {
    Sum s;
    for (int i = 0; i < m_tri.GetSize(); ++i) {
        const CXYZ& a = m_point[m_tri[i].v[0]];
        const CXYZ& b = m_point[m_tri[i].v[1]];
        const CXYZ& c = m_point[m_tri[i].v[2]];
        s.Add(0.5 * ((b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y)));
    }
    return s.Get();
}

double CTin::GetSlopeArea() const {
    Sum s;
    for (int i = 0; i < m_tri.GetSize(); ++i) {
        const CXYZ& a = m_point[m_tri[i].v[0]];
        s.Add(0.5 * (m_point[m_tri[i].v[1]] - a).Out(m_point[m_tri[i].v[2]] - a).Len());
    }
    return s.Get();
}

int CTin::IntersectRay(const CXYZ& origin, const CXYZ& dir, CXYZ& hit, int& tri) const {
    double t = 0.0;
    int best = -1;
    int found = 0;
    try {
        if (!m_rayIndex || !m_rayIndex->Matches(*this))
            m_rayIndex = std::make_shared<CTinRayIndex>(*this);
    } catch (const std::bad_alloc&) {
        m_rayIndex.reset();  // short of memory: the brute force gives the same answer
    }
    if (m_rayIndex && m_rayIndex->Valid())
        found = m_rayIndex->Intersect(*this, origin, dir, t, best);
    else
        found = kel_tinray::IntersectAll(*this, origin, dir, t, best);
    if (!found) return 0;
    hit.SetXYZ(origin.x + t * dir.x, origin.y + t * dir.y, origin.z + t * dir.z);
    tri = best;
    return 1;
}
