// CTin's ray query: the brute force and the bounding-volume hierarchy.
#include "surface/TinRay.h"

#include <algorithm>
#include <cfloat>
#include <limits>
#include <new>

#include "surface/Tin.h"

namespace {

// Keeps the better of two hits: the smaller t, the lower index on equal t.
inline void Keep(double t, int i, double& bestT, int& best) {
    if (t > 0.0 && (best < 0 || t < bestT || (t == bestT && i < best))) {
        bestT = t;
        best = i;
    }
}

// Spreads the low 21 bits of v to every third bit.
inline std::uint64_t Spread3(std::uint64_t v) {
    v &= 0x1FFFFF;
    v = (v | v << 32) & 0x1F00000000FFFFull;
    v = (v | v << 16) & 0x1F0000FF0000FFull;
    v = (v | v << 8) & 0x100F00F00F00F00Full;
    v = (v | v << 4) & 0x10C30C30C30C30C3ull;
    v = (v | v << 2) & 0x1249249249249249ull;
    return v;
}

// A float no greater (lo) or no smaller (hi) than x.
inline float FloatBelow(double x) {
    float f = static_cast<float>(x);
    if (static_cast<double>(f) > x) f = std::nextafter(f, -FLT_MAX);
    return f;
}
inline float FloatAbove(double x) {
    float f = static_cast<float>(x);
    if (static_cast<double>(f) < x) f = std::nextafter(f, FLT_MAX);
    return f;
}

}  // namespace

int kel_tinray::IntersectAll(const CTin& tin, const CXYZ& origin, const CXYZ& dir, double& t,
                             int& tri) {
    const double o[3] = {origin.x, origin.y, origin.z}, d[3] = {dir.x, dir.y, dir.z};
    double bestT = -1.0;
    int best = -1;
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        const CTin::CTri& tr = tin.GetTri(i);
        double ti = 0.0;
        if (RayTriangle(o, d, tin.m_point[tr.v[0]], tin.m_point[tr.v[1]], tin.m_point[tr.v[2]], ti))
            Keep(ti, i, bestT, best);
    }
    if (best < 0) return 0;
    t = bestT;
    tri = best;
    return 1;
}

CTinRayIndex::CTinRayIndex(const CTin& tin) {
    const int n = tin.GetTriSize();
    const CXYZ* pt = tin.m_point.GetData();
    const CTin::CTri* tr = tin.m_tri.GetData();
    m_nTri = n;
    m_nPt = tin.GetPointSize();
    m_triData = tr;
    m_ptData = pt;
    if (n == 0) return;
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k)
            if (tr[i].v[k] < 0 || tr[i].v[k] >= m_nPt) {
                m_nTri = -1;  // not Valid(): the caller keeps the brute force
                return;
            }

    // Triangle boxes, centroids and the coordinate scale.
    std::vector<double> box(static_cast<std::size_t>(n) * 6);
    double cmin[3] = {DBL_MAX, DBL_MAX, DBL_MAX}, cmax[3] = {-DBL_MAX, -DBL_MAX, -DBL_MAX};
    double scale = 0.0;
    for (int i = 0; i < n; ++i) {
        double* b = &box[static_cast<std::size_t>(i) * 6];
        for (int k = 0; k < 3; ++k) {
            const CXYZ& p = pt[tr[i].v[k]];
            const double c[3] = {p.x, p.y, p.z};
            for (int a = 0; a < 3; ++a) {
                if (k == 0 || c[a] < b[a]) b[a] = c[a];
                if (k == 0 || c[a] > b[3 + a]) b[3 + a] = c[a];
                scale = std::max(scale, std::fabs(c[a]));
            }
        }
        for (int a = 0; a < 3; ++a) {
            const double c = 0.5 * (b[a] + b[3 + a]);
            cmin[a] = std::min(cmin[a], c);
            cmax[a] = std::max(cmax[a], c);
        }
    }
    const double pad = kPadRel * (scale > 0.0 ? scale : 1.0);

    // Morton order of the centroids (21 bits an axis), by an LSD radix sort with the index.
    std::vector<std::uint64_t> key(static_cast<std::size_t>(n)), tmpKey(key.size());
    m_order.resize(key.size());
    std::vector<std::int32_t> tmpOrder(key.size());
    for (int i = 0; i < n; ++i) {
        const double* b = &box[static_cast<std::size_t>(i) * 6];
        std::uint64_t code = 0;
        for (int a = 0; a < 3; ++a) {
            const double ext = cmax[a] - cmin[a];
            const double c = 0.5 * (b[a] + b[3 + a]);
            const double q = ext > 0.0 ? (c - cmin[a]) / ext * 2097151.0 : 0.0;
            code |= Spread3(static_cast<std::uint64_t>(q)) << a;
        }
        key[static_cast<std::size_t>(i)] = code;
        m_order[static_cast<std::size_t>(i)] = i;
    }
    constexpr int kBits = 11;
    for (int shift = 0; shift < 63; shift += kBits) {
        std::vector<std::size_t> count((1u << kBits) + 1, 0);
        for (std::uint64_t k : key) ++count[((k >> shift) & ((1u << kBits) - 1)) + 1];
        for (std::size_t b = 1; b < count.size(); ++b) count[b] += count[b - 1];
        for (std::size_t i = 0; i < key.size(); ++i) {
            const std::size_t dst = count[(key[i] >> shift) & ((1u << kBits) - 1)]++;
            tmpKey[dst] = key[i];
            tmpOrder[dst] = m_order[i];
        }
        key.swap(tmpKey);
        m_order.swap(tmpOrder);
    }

    // Leaves of kLeafSize consecutive triangles, then each level pairs the one below.
    const int nLeaf = (n + kLeafSize - 1) / kLeafSize;
    m_node.reserve(static_cast<std::size_t>(2 * nLeaf));
    m_levelStart.push_back(0);
    for (int l = 0; l < nLeaf; ++l) {
        double lo[3] = {DBL_MAX, DBL_MAX, DBL_MAX}, hi[3] = {-DBL_MAX, -DBL_MAX, -DBL_MAX};
        for (int j = l * kLeafSize; j < std::min(n, (l + 1) * kLeafSize); ++j) {
            const double* b = &box[static_cast<std::size_t>(m_order[static_cast<std::size_t>(j)]) * 6];
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], b[a]);
                hi[a] = std::max(hi[a], b[3 + a]);
            }
        }
        Box nb;
        for (int a = 0; a < 3; ++a) {
            nb.lo[a] = FloatBelow(lo[a] - pad);
            nb.hi[a] = FloatAbove(hi[a] + pad);
        }
        m_node.push_back(nb);
    }
    int count = nLeaf;
    while (count > 1) {
        const int start = m_levelStart.back();
        m_levelStart.push_back(static_cast<std::int32_t>(m_node.size()));
        for (int i = 0; i < count; i += 2) {
            Box nb = m_node[static_cast<std::size_t>(start + i)];
            if (i + 1 < count) {
                const Box& o = m_node[static_cast<std::size_t>(start + i + 1)];
                for (int a = 0; a < 3; ++a) {
                    nb.lo[a] = std::min(nb.lo[a], o.lo[a]);
                    nb.hi[a] = std::max(nb.hi[a], o.hi[a]);
                }
            }
            m_node.push_back(nb);
        }
        count = (count + 1) / 2;
    }
}

bool CTinRayIndex::Matches(const CTin& tin) const {
    return tin.GetTriSize() == m_nTri && tin.GetPointSize() == m_nPt &&
           static_cast<const void*>(tin.m_tri.GetData()) == m_triData &&
           static_cast<const void*>(tin.m_point.GetData()) == m_ptData;
}

int CTinRayIndex::Intersect(const CTin& tin, const CXYZ& origin, const CXYZ& dir, double& t,
                            int& tri) const {
    if (m_nTri <= 0) return 0;
    const double o[3] = {origin.x, origin.y, origin.z}, d[3] = {dir.x, dir.y, dir.z};
    double inv[3];
    for (int a = 0; a < 3; ++a) inv[a] = d[a] != 0.0 ? 1.0 / d[a] : 0.0;
    const CXYZ* pt = tin.m_point.GetData();
    const CTin::CTri* trs = tin.m_tri.GetData();
    constexpr double kMiss = std::numeric_limits<double>::infinity();
    double bestT = kMiss;
    int best = -1;

    // Entry parameter of the ray into a box, or +inf when it misses or lies behind.
    auto enter = [&](const Box& b) {
        double tn = -std::numeric_limits<double>::infinity();
        double tf = std::numeric_limits<double>::infinity();
        for (int a = 0; a < 3; ++a) {
            if (d[a] == 0.0) {
                if (o[a] < b.lo[a] || o[a] > b.hi[a]) return kMiss;
                continue;
            }
            double t0 = (b.lo[a] - o[a]) * inv[a], t1 = (b.hi[a] - o[a]) * inv[a];
            if (t0 > t1) std::swap(t0, t1);
            tn = std::max(tn, t0);
            tf = std::min(tf, t1);
        }
        return tn <= tf && tf >= 0.0 ? tn : kMiss;
    };

    const int top = static_cast<int>(m_levelStart.size()) - 1;
    struct Item {
        int level, index;
        double tEnter;
    };
    Item stack[128];
    int sp = 0;
    const double tRoot = enter(m_node[static_cast<std::size_t>(m_levelStart[top])]);
    if (tRoot == kMiss) return 0;
    stack[sp++] = {top, 0, tRoot};
    while (sp > 0) {
        const Item it = stack[--sp];
        if (it.tEnter > bestT) continue;
        if (it.level == 0) {
            const int end = std::min(m_nTri, (it.index + 1) * kLeafSize);
            for (int j = it.index * kLeafSize; j < end; ++j) {
                const int i = m_order[static_cast<std::size_t>(j)];
                const CTin::CTri& tr = trs[i];
                double ti = 0.0;
                if (kel_tinray::RayTriangle(o, d, pt[tr.v[0]], pt[tr.v[1]], pt[tr.v[2]], ti))
                    Keep(ti, i, bestT, best);
            }
            continue;
        }
        const int below = m_levelStart[static_cast<std::size_t>(it.level - 1)];
        const int nBelow = m_levelStart[static_cast<std::size_t>(it.level)] - below;
        const int c0 = 2 * it.index, c1 = c0 + 1;
        const double t0 = enter(m_node[static_cast<std::size_t>(below + c0)]);
        const double t1 = c1 < nBelow ? enter(m_node[static_cast<std::size_t>(below + c1)]) : kMiss;
        const bool in0 = t0 < kMiss && t0 <= bestT, in1 = t1 < kMiss && t1 <= bestT;
        // The nearer child goes on top of the stack.
        if (t0 <= t1) {
            if (in1) stack[sp++] = {it.level - 1, c1, t1};
            if (in0) stack[sp++] = {it.level - 1, c0, t0};
        } else {
            if (in0) stack[sp++] = {it.level - 1, c0, t0};
            if (in1) stack[sp++] = {it.level - 1, c1, t1};
        }
    }
    if (best < 0) return 0;
    t = bestT;
    tri = best;
    return 1;
}
