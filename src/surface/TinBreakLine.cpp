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
