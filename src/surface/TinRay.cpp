// CTin's ray query: the brute force and the bounding-volume hierarchy.
#include "surface/TinRay.h"

#include <algorithm>
#include <cfloat>
#include <limits>
#include <new>

#include "surface/Tin.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Keeps the better of two hits: the smaller t, the lower index on equal t.
inline void Keep(double t, int i, double& bestT, int& best) {
    if (t > 0.0 && (best < 0 || t < bestT || (t == bestT && i < best))) {
        bestT = t;
        best = i;
    }
}

// Spreads the low 10 bits of v to every third bit.
inline std::uint32_t Spread3(std::uint32_t v) {
    v &= 0x3FF;
    v = (v | v << 16) & 0x30000FF;
    v = (v | v << 8) & 0x300F00F;
    v = (v | v << 4) & 0x30C30C3;
    v = (v | v << 2) & 0x9249249;
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
        const CXYZ& pa = tin.m_point[tr.v[0]];
        const CXYZ& pb = tin.m_point[tr.v[1]];
        const CXYZ& pc = tin.m_point[tr.v[2]];
        const double a[3] = {pa.x, pa.y, pa.z}, b[3] = {pb.x, pb.y, pb.z},
                     c[3] = {pc.x, pc.y, pc.z};
        double ti = 0.0;
        if (RayTriangle(o, d, a, b, c, ti)) Keep(ti, i, bestT, best);
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

    // The vertices packed, their range (the Morton cells span it: it holds every centroid)
    // and the coordinate scale for the padding.
    m_xyz.resize(static_cast<std::size_t>(m_nPt) * 3);
    double cmin[3] = {DBL_MAX, DBL_MAX, DBL_MAX}, cmax[3] = {-DBL_MAX, -DBL_MAX, -DBL_MAX};
    for (int p = 0; p < m_nPt; ++p) {
        double* q = &m_xyz[static_cast<std::size_t>(p) * 3];
        q[0] = pt[p].x;
        q[1] = pt[p].y;
        q[2] = pt[p].z;
        for (int a = 0; a < 3; ++a) {
            cmin[a] = std::min(cmin[a], q[a]);
            cmax[a] = std::max(cmax[a], q[a]);
        }
    }
    double scale = 0.0;
    for (int a = 0; a < 3; ++a)
        scale = std::max(scale, std::max(std::fabs(cmin[a]), std::fabs(cmax[a])));
    m_pad = kPadRel * (scale > 0.0 ? scale : 1.0);

    // Morton codes of the triangles' centroids (10 bits an axis: finer cells would only order
    // the few triangles of a leaf), sorted with their index by an LSD radix sort.
    auto centroid = [&](int i, int a) {
        return (m_xyz[static_cast<std::size_t>(tr[i].v[0]) * 3 + a] +
                m_xyz[static_cast<std::size_t>(tr[i].v[1]) * 3 + a] +
                m_xyz[static_cast<std::size_t>(tr[i].v[2]) * 3 + a]) /
               3.0;
    };
    std::vector<std::uint32_t> key(static_cast<std::size_t>(n)), tmpKey(key.size());
    std::vector<std::int32_t> order(key.size()), tmpOrder(key.size());
    for (int i = 0; i < n; ++i) {
        std::uint32_t code = 0;
        for (int a = 0; a < 3; ++a) {
            const double ext = cmax[a] - cmin[a];
            const double q = ext > 0.0 ? (centroid(i, a) - cmin[a]) / ext * 1023.0 : 0.0;
            code |= Spread3(static_cast<std::uint32_t>(q)) << a;
        }
        key[static_cast<std::size_t>(i)] = code;
        order[static_cast<std::size_t>(i)] = i;
    }
    constexpr int kBits = 10;
    constexpr std::uint32_t kMask = (1u << kBits) - 1;
    std::vector<std::size_t> count((1u << kBits) + 1);
    for (int shift = 0; shift < 30; shift += kBits) {
        std::fill(count.begin(), count.end(), 0);
        for (std::uint32_t k : key) ++count[((k >> shift) & kMask) + 1];
        for (std::size_t b = 1; b < count.size(); ++b) count[b] += count[b - 1];
        for (std::size_t i = 0; i < key.size(); ++i) {
            const std::size_t dst = count[(key[i] >> shift) & kMask]++;
            tmpKey[dst] = key[i];
            tmpOrder[dst] = order[i];
        }
        key.swap(tmpKey);
        order.swap(tmpOrder);
    }
    tmpKey = std::vector<std::uint32_t>();
    tmpOrder = std::vector<std::int32_t>();
    // The vertices renumbered in the order the sorted triangles first use them, so that a
    // leaf's vertices lie side by side in memory (the same doubles, moved).
    std::vector<std::int32_t> newIndex(static_cast<std::size_t>(m_nPt), -1);
    std::vector<double> xyz(static_cast<std::size_t>(m_nPt) * 3);
    int nUsed = 0;
    m_tri.resize(static_cast<std::size_t>(n) * 3);
    m_triIndex.assign(order.begin(), order.end());
    for (int j = 0; j < n; ++j) {
        const int i = order[static_cast<std::size_t>(j)];
        std::int32_t* q = &m_tri[static_cast<std::size_t>(j) * 3];
        for (int k = 0; k < 3; ++k) {
            std::int32_t& v = newIndex[static_cast<std::size_t>(tr[i].v[k])];
            if (v < 0) {
                v = nUsed++;
                for (int a = 0; a < 3; ++a)
                    xyz[static_cast<std::size_t>(v) * 3 + a] =
                        m_xyz[static_cast<std::size_t>(tr[i].v[k]) * 3 + a];
            }
            q[k] = v;
        }
    }
    xyz.resize(static_cast<std::size_t>(nUsed) * 3);
    m_xyz.swap(xyz);
    m_node.reserve(static_cast<std::size_t>((n + kLeafSize - 1) / kLeafSize / 2 + 1));
    double lo[3], hi[3];
    if (n <= kLeafSize) {  // one leaf under a root of one child
        m_node.emplace_back();
        Node& root = m_node[0];
        LeafBox(0, n, lo, hi);
        for (int c = 0; c < 4; ++c) {
            root.first[c] = 0;
            root.count[c] = -1;
            for (int a = 0; a < 3; ++a) root.lo[a][c] = root.hi[a][c] = 0.0f;
        }
        root.first[0] = 0;
        root.count[0] = n;
        for (int a = 0; a < 3; ++a) {
            root.lo[a][0] = FloatBelow(lo[a] - m_pad);
            root.hi[a][0] = FloatAbove(hi[a] + m_pad);
        }
        return;
    }
    Build(0, n, key, lo, hi);
}

int CTinRayIndex::Split(int begin, int end, const std::vector<std::uint32_t>& code) {
    const std::uint32_t c0 = code[static_cast<std::size_t>(begin)];
    const std::uint32_t c1 = code[static_cast<std::size_t>(end - 1)];
    if (c0 == c1) return begin + (end - begin) / 2;
    int bit = 31;
    while (((c0 ^ c1) >> bit & 1u) == 0) --bit;
    const std::uint32_t splitBit = 1u << bit;
    return static_cast<int>(
        std::partition_point(code.begin() + begin, code.begin() + end,
                             [&](std::uint32_t c) { return (c & splitBit) == 0; }) -
        code.begin());
}

void CTinRayIndex::LeafBox(int begin, int end, double lo[3], double hi[3]) const {
    for (int a = 0; a < 3; ++a) {
        lo[a] = DBL_MAX;
        hi[a] = -DBL_MAX;
    }
    for (int j = begin; j < end; ++j)
        for (int k = 0; k < 3; ++k) {
            const double* p =
                &m_xyz[static_cast<std::size_t>(m_tri[static_cast<std::size_t>(j) * 3 + k]) * 3];
            for (int a = 0; a < 3; ++a) {
                lo[a] = std::min(lo[a], p[a]);
                hi[a] = std::max(hi[a], p[a]);
            }
        }
}

int CTinRayIndex::Build(int begin, int end, const std::vector<std::uint32_t>& code, double lo[3],
                        double hi[3]) {
    // Two levels of Morton splits give up to four children.
    int range[5] = {begin, 0, 0, 0, 0}, nRange = 0;
    const int mid = Split(begin, end, code);
    const int halves[2][2] = {{begin, mid}, {mid, end}};
    for (const auto& h : halves) {
        if (h[1] - h[0] > kLeafSize) {
            const int m = Split(h[0], h[1], code);
            range[++nRange] = m;
        }
        range[++nRange] = h[1];
    }
    const int node = static_cast<int>(m_node.size());
    m_node.emplace_back();
    Node nd;  // filled here, stored at the end: m_node may move while the children are built
    for (int a = 0; a < 3; ++a) {
        lo[a] = DBL_MAX;
        hi[a] = -DBL_MAX;
    }
    for (int c = 0; c < 4; ++c) {
        nd.first[c] = 0;
        nd.count[c] = -1;
        for (int a = 0; a < 3; ++a) nd.lo[a][c] = nd.hi[a][c] = 0.0f;
    }
    for (int c = 0; c < nRange; ++c) {
        const int b = range[c], e = range[c + 1];
        double clo[3], chi[3];
        if (e - b <= kLeafSize) {
            LeafBox(b, e, clo, chi);
            nd.first[c] = b;
            nd.count[c] = e - b;
        } else {
            nd.first[c] = Build(b, e, code, clo, chi);
            nd.count[c] = 0;
        }
        for (int a = 0; a < 3; ++a) {
            nd.lo[a][c] = FloatBelow(clo[a] - m_pad);
            nd.hi[a][c] = FloatAbove(chi[a] + m_pad);
            lo[a] = std::min(lo[a], clo[a]);
            hi[a] = std::max(hi[a], chi[a]);
        }
    }
    m_node[static_cast<std::size_t>(node)] = nd;
    return node;
}

bool CTinRayIndex::Matches(const CTin& tin) const {
    return tin.GetTriSize() == m_nTri && tin.GetPointSize() == m_nPt &&
           static_cast<const void*>(tin.m_tri.GetData()) == m_triData &&
           static_cast<const void*>(tin.m_point.GetData()) == m_ptData;
}

int CTinRayIndex::Intersect(const CTin&, const CXYZ& origin, const CXYZ& dir, double& t,
                            int& tri) const {
    if (m_nTri <= 0) return 0;
    const double o[3] = {origin.x, origin.y, origin.z}, d[3] = {dir.x, dir.y, dir.z};
    // A zero component gets a huge finite inverse instead of an infinite one: the slab of that
    // axis is then (-huge, +huge) when the origin lies in it, never NaN; outside it a box may
    // be entered needlessly, which costs time only.
    double inv[3];
    double oinv[3];
    for (int a = 0; a < 3; ++a) {
        inv[a] = d[a] != 0.0 ? 1.0 / d[a] : 1e300;
        oinv[a] = o[a] * inv[a];
    }
    constexpr double kMiss = std::numeric_limits<double>::infinity();
    double bestT = kMiss;
    int best = -1;

    struct Item {
        std::int32_t first, count;  // count 0: node m_node[first]; > 0: triangles
        double tEnter;
    };
    Item stack[256];
    int sp = 0;
    stack[sp++] = {0, 0, -kMiss};
    while (sp > 0) {
        const Item it = stack[--sp];
        if (it.tEnter > bestT) continue;
        if (it.count > 0) {
            for (int j = it.first; j < it.first + it.count; ++j) {
                const std::int32_t* q = &m_tri[static_cast<std::size_t>(j) * 3];
                double ti = 0.0;
                if (kel_tinray::RayTriangle(o, d, &m_xyz[static_cast<std::size_t>(q[0]) * 3],
                                            &m_xyz[static_cast<std::size_t>(q[1]) * 3],
                                            &m_xyz[static_cast<std::size_t>(q[2]) * 3], ti) &&
                    ti > 0.0 && ti <= bestT)
                    Keep(ti, m_triIndex[static_cast<std::size_t>(j)], bestT, best);
            }
            continue;
        }
        const Node& nd = m_node[static_cast<std::size_t>(it.first)];
        // Entry parameters of the ray into the children's boxes; kMiss when a box is missed,
        // lies behind the origin or beyond the best hit so far.
        double tn[4], tf[4];
#if defined(__SSE2__)
        // Two children a register; max(x, tn) and min(x, tf) keep tn, tf when x is NaN (an
        // axis the ray runs along, in the plane of a box face): that axis is then ignored,
        // which can only enter more boxes.
        __m128d tn01 = _mm_set1_pd(-kMiss), tn23 = tn01, tf01 = _mm_set1_pd(kMiss), tf23 = tf01;
        for (int a = 0; a < 3; ++a) {
            const __m128d ia = _mm_set1_pd(inv[a]), oa = _mm_set1_pd(oinv[a]);
            const __m128 lo = _mm_load_ps(nd.lo[a]), hi = _mm_load_ps(nd.hi[a]);
            const __m128d l01 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(lo), ia), oa);
            const __m128d l23 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(lo, lo)), ia), oa);
            const __m128d h01 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(hi), ia), oa);
            const __m128d h23 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(hi, hi)), ia), oa);
            tn01 = _mm_max_pd(_mm_min_pd(l01, h01), tn01);
            tn23 = _mm_max_pd(_mm_min_pd(l23, h23), tn23);
            tf01 = _mm_min_pd(_mm_max_pd(l01, h01), tf01);
            tf23 = _mm_min_pd(_mm_max_pd(l23, h23), tf23);
        }
        _mm_storeu_pd(tn, tn01);
        _mm_storeu_pd(tn + 2, tn23);
        _mm_storeu_pd(tf, tf01);
        _mm_storeu_pd(tf + 2, tf23);
#else
        for (int c = 0; c < 4; ++c) {
            tn[c] = -kMiss;
            tf[c] = kMiss;
            for (int a = 0; a < 3; ++a) {
                // lo inv - o inv: rounding of order 1e-16 |lo inv|, far inside the padding.
                double t0 = nd.lo[a][c] * inv[a] - oinv[a], t1 = nd.hi[a][c] * inv[a] - oinv[a];
                if (t0 > t1) std::swap(t0, t1);
                tn[c] = std::max(tn[c], t0);
                tf[c] = std::min(tf[c], t1);
            }
        }
#endif
        double tc[4];
        for (int c = 0; c < 4; ++c)
            tc[c] = nd.count[c] >= 0 && tn[c] <= tf[c] && tf[c] >= 0.0 && tn[c] <= bestT ? tn[c]
                                                                                         : kMiss;
        // Push the hit children farthest first, so the nearest is taken next.
        int order[4], k = 0;
        for (int c = 0; c < 4; ++c)
            if (tc[c] < kMiss) {
                int m = k++;
                while (m > 0 && tc[order[m - 1]] < tc[c]) {
                    order[m] = order[m - 1];
                    --m;
                }
                order[m] = c;
            }
        for (int m = 0; m < k; ++m)
            stack[sp++] = {nd.first[order[m]], nd.count[order[m]], tc[order[m]]};
    }
    if (best < 0) return 0;
    t = bestT;
    tri = best;
    return 1;
}
