// CTin: derived per-vertex values and the queries.
#include <algorithm>
#include <cmath>
#include <new>
#include <utility>
#include <vector>

#include "platform/KelMath.h"
#include "platform/Trace.h"
#include "surface/Tin.h"
#include "surface/TinMesh.h"
#include "surface/TinRay.h"

using kel_tin::Next;

namespace {

// Neumaier's compensated sum.
struct Sum {
    double s = 0.0, c = 0.0;
    void Add(double v) {
        const double t = s + v;
        c += std::fabs(s) >= std::fabs(v) ? (s - t) + v : (v - t) + s;
        s = t;
    }
    double Get() const { return std::isfinite(s) ? s + c : s; }
};

// (b - a) x (c - a), and 0 in `scale`. Where that overflows although the corners are finite, or
// is too large for its length to be squared, it is computed again on the corners divided by 2^scale
// (exact), so that the true cross product is ldexp(result, 2 * scale) and a finite area stays
// finite. Ordinary surfaces never take the second path, so their areas keep every bit.
CXYZ EdgeCross(const CXYZ& a, const CXYZ& b, const CXYZ& c, int& scale) {
    scale = 0;
    const CXYZ n = (b - a).Out(c - a);
    constexpr double kSafe = 1e150;  // a length squared stays finite below this
    if (std::fabs(n.x) < kSafe && std::fabs(n.y) < kSafe && std::fabs(n.z) < kSafe) return n;
    for (const CXYZ* p : {&a, &b, &c})
        for (double v : {p->x, p->y, p->z}) {
            if (!std::isfinite(v)) return n;
            int e = 0;
            std::frexp(v, &e);
            scale = std::max(scale, e);
        }
    const auto down = [scale](const CXYZ& p) {
        return CXYZ(std::ldexp(p.x, -scale), std::ldexp(p.y, -scale), std::ldexp(p.z, -scale));
    };
    const CXYZ as = down(a);
    return (down(b) - as).Out(down(c) - as);
}

}  // namespace

int CTin::UpdateTinRange() {
    if (m_tri.GetSize() < 1) return UpdatePtRange();
    // The used vertices are marked first, then folded in index order: one pass over the
    // points instead of three scattered reads per triangle. The range starts from the first
    // triangle's first vertex, as a fold in triangle order would.
    const int nPt = m_point.GetSize();
    std::vector<char> used;
    try {
        used.assign(static_cast<std::size_t>(nPt), 0);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::UpdateTinRange CMemoryException");
        return 0;
    }
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
    kel_templ::CKelArray<double, double> depth;
    try {
        depth.SetSize(n);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::UpdateDepth CMemoryException");
        return 0;
    }
    for (int i = 0; i < n; ++i) depth[i] = m_range[1].z - m_point[i].z;
    m_depth = std::move(depth);
    return 1;
}

int CTin::UpdateTextureCoord() {
    const int n = m_point.GetSize();
    const double sx = m_range[1].x - m_range[0].x, sy = m_range[1].y - m_range[0].y;
    kel_templ::CKelArray<double, double> texU, texV;
    try {
        texU.SetSize(n);
        texV.SetSize(n);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::UpdateTextureCoord CMemoryException");
        return 0;
    }
    for (int i = 0; i < n; ++i) {
        const double u = sx > 0.0 ? (m_point[i].x - m_range[0].x) / sx : 0.0;
        const double v = sy > 0.0 ? (m_point[i].y - m_range[0].y) / sy : 0.0;
        texU[i] = std::min(1.0, std::max(0.0, u));
        texV[i] = std::min(1.0, std::max(0.0, v));
    }
    m_texU = std::move(texU);
    m_texV = std::move(texV);
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
        int scale = 0;
        const CXYZ n = EdgeCross(m_point[m_tri[i].v[0]], m_point[m_tri[i].v[1]],
                                 m_point[m_tri[i].v[2]], scale);
        s.Add(std::ldexp(0.5 * n.z, 2 * scale));
    }
    return s.Get();
}

double CTin::GetSlopeArea() const {
    Sum s;
    for (int i = 0; i < m_tri.GetSize(); ++i) {
        int scale = 0;
        const CXYZ n = EdgeCross(m_point[m_tri[i].v[0]], m_point[m_tri[i].v[1]],
                                 m_point[m_tri[i].v[2]], scale);
        // Scaled down, the components are small enough for their squares to underflow.
        const double len = scale == 0 ? n.Len() : std::hypot(std::hypot(n.x, n.y), n.z);
        s.Add(std::ldexp(0.5 * len, 2 * scale));
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
