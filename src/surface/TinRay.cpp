// CTin's ray query: the brute force and the bounding-volume hierarchy.
#include "surface/TinRay.h"

#include <algorithm>
#include <cfloat>
#include <cstring>
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

// A float no greater (Below) or no smaller (Above) than x; NaN stays NaN. Written with a
// select rather than a branch: whether the conversion rounded up is a coin toss.
inline std::uint32_t FloatBits(float f) {
    std::uint32_t b = 0;
    std::memcpy(&b, &f, sizeof b);
    return b;
}
inline float BitsFloat(std::uint32_t b) {
    float f = 0.0f;
    std::memcpy(&f, &b, sizeof f);
    return f;
}
inline float FloatBelow(double x) {
    if (x < -FLT_MAX) return -std::numeric_limits<float>::infinity();
    if (x > FLT_MAX) return FLT_MAX;
    const float f = static_cast<float>(x);
    const std::uint32_t b = FloatBits(f);
    // The next float down: from +-0 the smallest negative; the pattern of a positive value
    // decreases, that of a negative one increases.
    const std::uint32_t down =
        (b & 0x7FFFFFFFu) == 0 ? 0x80000001u : (b >> 31 != 0 ? b + 1 : b - 1);
    return BitsFloat(static_cast<double>(f) > x ? down : b);
}
inline float FloatAbove(double x) { return -FloatBelow(-x); }

#if defined(__SSE2__)
// RayTriangle on two triangles at once: lane k tests (ak, bk, ck). Each lane runs
// RayTriangle's operations in its order (a multiplication by the sign is the exact flip of the
// sign bit, a rejecting comparison is tested in its negated form so that NaN passes alike), so
// a lane is accepted exactly when RayTriangle accepts and its t has the same bits. Returns the
// mask of accepted lanes (bit k) and, when it is not 0, t of both lanes.
inline int RayTriangle2(const __m128d o[3], const __m128d d[3], const double* a0, const double* b0,
                        const double* c0, const double* a1, const double* b1, const double* c1,
                        __m128d& t) {
    const __m128d ax = _mm_set_pd(a1[0], a0[0]), ay = _mm_set_pd(a1[1], a0[1]),
                  az = _mm_set_pd(a1[2], a0[2]);
    const __m128d e1x = _mm_sub_pd(_mm_set_pd(b1[0], b0[0]), ax),
                  e1y = _mm_sub_pd(_mm_set_pd(b1[1], b0[1]), ay),
                  e1z = _mm_sub_pd(_mm_set_pd(b1[2], b0[2]), az);
    const __m128d e2x = _mm_sub_pd(_mm_set_pd(c1[0], c0[0]), ax),
                  e2y = _mm_sub_pd(_mm_set_pd(c1[1], c0[1]), ay),
                  e2z = _mm_sub_pd(_mm_set_pd(c1[2], c0[2]), az);
    const __m128d px = _mm_sub_pd(_mm_mul_pd(d[1], e2z), _mm_mul_pd(d[2], e2y));
    const __m128d py = _mm_sub_pd(_mm_mul_pd(d[2], e2x), _mm_mul_pd(d[0], e2z));
    const __m128d pz = _mm_sub_pd(_mm_mul_pd(d[0], e2y), _mm_mul_pd(d[1], e2x));
    const __m128d det =
        _mm_add_pd(_mm_add_pd(_mm_mul_pd(e1x, px), _mm_mul_pd(e1y, py)), _mm_mul_pd(e1z, pz));
    const __m128d signBit = _mm_set1_pd(-0.0), zero = _mm_setzero_pd();
    __m128d ok = _mm_cmpnlt_pd(_mm_andnot_pd(signBit, det), _mm_set1_pd(kel_tinray::kParallel));
    const __m128d sx = _mm_sub_pd(o[0], ax), sy = _mm_sub_pd(o[1], ay), sz = _mm_sub_pd(o[2], az);
    const __m128d qx = _mm_sub_pd(_mm_mul_pd(sy, e1z), _mm_mul_pd(sz, e1y));
    const __m128d qy = _mm_sub_pd(_mm_mul_pd(sz, e1x), _mm_mul_pd(sx, e1z));
    const __m128d qz = _mm_sub_pd(_mm_mul_pd(sx, e1y), _mm_mul_pd(sy, e1x));
    const __m128d sign = _mm_and_pd(_mm_cmplt_pd(det, zero), signBit);
    const __m128d adet = _mm_xor_pd(det, sign);
    const __m128d u = _mm_xor_pd(
        _mm_add_pd(_mm_add_pd(_mm_mul_pd(sx, px), _mm_mul_pd(sy, py)), _mm_mul_pd(sz, pz)), sign);
    ok = _mm_and_pd(ok, _mm_and_pd(_mm_cmpnlt_pd(u, zero), _mm_cmpngt_pd(u, adet)));
    const __m128d v = _mm_xor_pd(
        _mm_add_pd(_mm_add_pd(_mm_mul_pd(d[0], qx), _mm_mul_pd(d[1], qy)), _mm_mul_pd(d[2], qz)),
        sign);
    ok = _mm_and_pd(ok, _mm_and_pd(_mm_cmpnlt_pd(v, zero), _mm_cmpngt_pd(_mm_add_pd(u, v), adet)));
    const int mask = _mm_movemask_pd(ok);
    if (mask != 0)
        t = _mm_div_pd(
            _mm_add_pd(_mm_add_pd(_mm_mul_pd(e2x, qx), _mm_mul_pd(e2y, qy)), _mm_mul_pd(e2z, qz)),
            det);
    return mask;
}
#endif

// The float box test of CTinRayIndex::Intersect runs only while the inverse direction, the
// origin and the slab parameters stay below this size (and the inverse above its inverse), far
// from the float range's ends.
constexpr double kFloatRange = 1e30;

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

    // The vertices packed (x y z each, in the mesh's order: for measured points the order of
    // the scan, which keeps a leaf's vertices as close in memory as a renumbering did, and
    // costs nothing), their range (the Morton cells span it: it holds every centroid) and
    // the coordinate scale for the padding.
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
    double scale = 0.0, ext = 0.0;
    for (int a = 0; a < 3; ++a) {
        scale = std::max(scale, std::max(std::fabs(cmin[a]), std::fabs(cmax[a])));
        ext = std::max(ext, cmax[a] - cmin[a]);
    }
    m_pad = kPadRel * (scale > 0.0 ? scale : 1.0);
    for (int a = 0; a < 3; ++a) m_centre[a] = 0.5 * (cmin[a] + cmax[a]);
    m_reach = 0.5 * ext + m_pad + 1.0;

    // Morton codes of the triangles' centroids in cubic cells, 1024 along the longest extent
    // (finer cells would only order the few triangles of a leaf), each with its triangle's
    // index below it in one 64-bit item, sorted by an LSD radix sort of three 10-bit digits
    // (the counts of all three taken while the codes are made).
    constexpr int kBits = 10, kDigits = 3;
    constexpr std::uint32_t kMask = (1u << kBits) - 1;
    const double cell = ext > 0.0 ? 1023.0 / (3.0 * ext) : 0.0;  // of the vertex sum
    Array<std::uint64_t> item(static_cast<std::size_t>(n)), tmp(item.size());
    std::vector<std::size_t> count(static_cast<std::size_t>(kDigits) << kBits, 0);
    for (int i = 0; i < n; ++i) {
        std::uint32_t code = 0;
        const std::int32_t* v = tr[i].v;
        for (int k = 0; k < 3; ++k)
            if (v[k] < 0 || v[k] >= m_nPt) {
                m_nTri = -1;  // not Valid(): the caller keeps the brute force
                return;
            }
        const double* p0 = &m_xyz[static_cast<std::size_t>(v[0]) * 3];
        const double* p1 = &m_xyz[static_cast<std::size_t>(v[1]) * 3];
        const double* p2 = &m_xyz[static_cast<std::size_t>(v[2]) * 3];
        for (int a = 0; a < 3; ++a) {
            // max before min: a NaN sum gives cell 0
            const double q =
                std::min(1023.0, std::max(0.0, (p0[a] + p1[a] + p2[a] - 3.0 * cmin[a]) * cell));
            code |= Spread3(static_cast<std::uint32_t>(q)) << a;
        }
        item[static_cast<std::size_t>(i)] =
            static_cast<std::uint64_t>(code) << 32 | static_cast<std::uint32_t>(i);
        for (int dg = 0; dg < kDigits; ++dg)
            ++count[(static_cast<std::size_t>(dg) << kBits) + (code >> (kBits * dg) & kMask)];
    }
    for (int dg = 0; dg < kDigits; ++dg) {
        std::size_t* c = &count[static_cast<std::size_t>(dg) << kBits];
        std::size_t sum = 0;
        for (std::size_t b = 0; b <= kMask; ++b) {
            const std::size_t k = c[b];
            c[b] = sum;
            sum += k;
        }
        const int shift = 32 + kBits * dg;
        for (const std::uint64_t it : item) tmp[c[it >> shift & kMask]++] = it;
        item.swap(tmp);
    }
    tmp = Array<std::uint64_t>();
    // The triangles in sorted order: their vertices and their index in the mesh.
    m_tri.resize(static_cast<std::size_t>(n) * 4);
    for (int j = 0; j < n; ++j) {
        const int i = static_cast<int>(item[static_cast<std::size_t>(j)] & 0xFFFFFFFFu);
        const std::int32_t* tv = tr[i].v;
        std::int32_t* q = &m_tri[static_cast<std::size_t>(j) * 4];
        q[0] = tv[0];
        q[1] = tv[1];
        q[2] = tv[2];
        q[3] = i;
    }
    // Room for the nodes of a typical mesh (about one a dozen triangles); more are appended.
    m_node.reserve(static_cast<std::size_t>(n / 8 + 1));
    double lo[3], hi[3];
    if (n <= kLeafSize) {  // one leaf under a root of one child
        m_node.emplace_back();
        Node root = {};
        for (std::uint8_t& o : root.order) o = 0xE4;  // slots 3, 2, 1, 0: any permutation
        SetChild(root, 0, 0, n, item, lo, hi);
        m_node[0] = root;
        return;
    }
    Build(0, n, item, lo, hi);
}

int CTinRayIndex::Split(int begin, int end, const Array<std::uint64_t>& code, int& axis) {
    const std::uint32_t c0 =
        static_cast<std::uint32_t>(code[static_cast<std::size_t>(begin)] >> 32);
    const std::uint32_t c1 =
        static_cast<std::uint32_t>(code[static_cast<std::size_t>(end - 1)] >> 32);
    axis = 0;
    if (c0 == c1) return begin + (end - begin) / 2;
    int bit = 31;
    while (((c0 ^ c1) >> bit & 1u) == 0) --bit;
    axis = bit % 3;  // bit 3 k + a of a code is bit k of axis a
    const std::uint64_t splitBit = std::uint64_t(1) << (32 + bit);
    return static_cast<int>(
        std::partition_point(code.begin() + begin, code.begin() + end,
                             [&](std::uint64_t c) { return (c & splitBit) == 0; }) -
        code.begin());
}

void CTinRayIndex::LeafBox(int begin, int end, double lo[3], double hi[3]) const {
    // Local bounds: the arrays passed in could alias m_xyz, which would make the compiler
    // store and reload them on every vertex.
    double x0 = DBL_MAX, y0 = DBL_MAX, z0 = DBL_MAX, x1 = -DBL_MAX, y1 = -DBL_MAX, z1 = -DBL_MAX;
    for (int j = begin; j < end; ++j)
        for (int k = 0; k < 3; ++k) {
            const double* p =
                &m_xyz[static_cast<std::size_t>(m_tri[static_cast<std::size_t>(j) * 4 + k]) * 3];
            x0 = std::min(x0, p[0]);
            x1 = std::max(x1, p[0]);
            y0 = std::min(y0, p[1]);
            y1 = std::max(y1, p[1]);
            z0 = std::min(z0, p[2]);
            z1 = std::max(z1, p[2]);
        }
    lo[0] = x0;
    lo[1] = y0;
    lo[2] = z0;
    hi[0] = x1;
    hi[1] = y1;
    hi[2] = z1;
}

void CTinRayIndex::SetChild(Node& nd, int c, int begin, int end, const Array<std::uint64_t>& code,
                            double lo[3], double hi[3]) {
    if (end - begin <= kLeafSize) {
        LeafBox(begin, end, lo, hi);
        nd.first[c] = begin;
        nd.count[c] = static_cast<std::int8_t>(end - begin);
    } else {
        nd.first[c] = Build(begin, end, code, lo, hi);
        nd.count[c] = 0;
    }
    for (int a = 0; a < 3; ++a) {
        nd.lo[a][c] = FloatBelow(lo[a] - m_pad - m_centre[a]);
        nd.hi[a][c] = FloatAbove(hi[a] + m_pad - m_centre[a]);
    }
    nd.used = static_cast<std::uint8_t>(nd.used | 1u << c);
}

int CTinRayIndex::Build(int begin, int end, const Array<std::uint64_t>& code, double lo[3],
                        double hi[3]) {
    const int node = static_cast<int>(m_node.size());
    m_node.emplace_back();
    // The node's children: its range split in two, then the part with the most triangles split
    // again while there are fewer than four parts and one holds more than a leaf. The splits
    // form a small binary tree (entry 0 its root), whose ends are the parts.
    struct Entry {
        int begin, end, axis, side[2];  // side[0] < 0: a part
    };
    Entry entry[7];
    int nEntry = 1, nPart = 1;
    entry[0] = {begin, end, 0, {-1, -1}};
    auto divide = [&](int i) {
        Entry& en = entry[i];
        const int mid = Split(en.begin, en.end, code, en.axis);
        en.side[0] = nEntry;
        entry[nEntry++] = {en.begin, mid, 0, {-1, -1}};
        en.side[1] = nEntry;
        entry[nEntry++] = {mid, en.end, 0, {-1, -1}};
        ++nPart;
    };
    divide(0);
    while (nPart < 4) {
        int widest = -1;
        for (int i = 0; i < nEntry; ++i) {
            const int n = entry[i].end - entry[i].begin;
            if (entry[i].side[0] < 0 && n > kLeafSize &&
                (widest < 0 || n > entry[widest].end - entry[widest].begin))
                widest = i;
        }
        if (widest < 0) break;
        divide(widest);
    }

    Node nd = {};  // filled here, stored at the end: m_node may move while the children are built
    for (int c = 0; c < 4; ++c) nd.count[c] = -1;
    for (int a = 0; a < 3; ++a) {
        lo[a] = DBL_MAX;
        hi[a] = -DBL_MAX;
    }
    int slot[7], nSlot = 0;
    for (int i = 0; i < nEntry; ++i) {
        if (entry[i].side[0] >= 0) continue;
        slot[i] = nSlot++;
        double clo[3], chi[3];
        SetChild(nd, slot[i], entry[i].begin, entry[i].end, code, clo, chi);
        for (int a = 0; a < 3; ++a) {
            lo[a] = std::min(lo[a], clo[a]);
            hi[a] = std::max(hi[a], chi[a]);
        }
    }
    // Per direction sign: the parts near to far (at each split the side the ray meets first),
    // pushed after the unused slots, farthest first.
    for (int sign = 0; sign < 8; ++sign) {
        int nearToFar[4], n = 0, stack[8], sp = 0;
        stack[sp++] = 0;
        while (sp > 0) {
            const Entry& en = entry[stack[--sp]];
            if (en.side[0] < 0) {
                nearToFar[n++] = slot[&en - entry];
                continue;
            }
            const int nearSide = sign >> en.axis & 1;
            stack[sp++] = en.side[nearSide ^ 1];
            stack[sp++] = en.side[nearSide];
        }
        unsigned order = 0;
        int k = 0;
        for (int c = nSlot; c < 4; ++c, k += 2) order |= static_cast<unsigned>(c) << k;
        for (int j = n - 1; j >= 0; --j, k += 2) order |= static_cast<unsigned>(nearToFar[j]) << k;
        nd.order[sign] = static_cast<std::uint8_t>(order);
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
    // The origin relative to the boxes' centre, the inverse direction and its signs. A zero
    // component gets a huge finite inverse instead of an infinite one: the slab of that axis
    // is then (-huge, +huge) when the origin lies in it, never NaN; outside it a box may be
    // entered needlessly, which costs time only.
    double oc[3], inv[3], ocInv[3];
    int sign = 0;  // bit a: the ray runs towards lower coordinates along axis a
    for (int a = 0; a < 3; ++a) {
        oc[a] = o[a] - m_centre[a];
        inv[a] = d[a] != 0.0 ? 1.0 / d[a] : 1e300;
        ocInv[a] = oc[a] * inv[a];
        sign |= (d[a] < 0.0 ? 1 : 0) << a;
    }
    constexpr double kMiss = std::numeric_limits<double>::infinity();
    double bestT = kMiss;
    int best = -1;
#if defined(__SSE2__)
    const __m128d vo[3] = {_mm_set1_pd(o[0]), _mm_set1_pd(o[1]), _mm_set1_pd(o[2])};
    const __m128d vd[3] = {_mm_set1_pd(d[0]), _mm_set1_pd(d[1]), _mm_set1_pd(d[2])};
    // The boxes are tested in floats, four a register, where that is safe: every direction
    // component non-zero, and the values far inside the float range. The float test takes the
    // ray from oLo to the lower faces and from oHi to the upper ones, oLo above and oHi below
    // the exact origin by its rounding and by a margin W, so it sees each box widened by W on
    // every side. A slab parameter (a subtraction and a multiplication by the inverse
    // direction rounded to float: three float roundings, below 2^-22 of it) then errs by less
    // than the margin moves it outwards, W being 2^-20 of the largest |box face - origin|; so
    // the float test never misses a box the ray meets. Otherwise the boxes are tested in
    // doubles.
    __m128 oLo[3], oHi[3], invF[3];
    bool floatBoxes = true;
    for (int a = 0; a < 3 && floatBoxes; ++a) {
        floatBoxes = d[a] != 0.0 && std::fabs(inv[a]) > 1.0 / kFloatRange &&
                     std::fabs(oc[a]) < kFloatRange &&
                     (m_reach + std::fabs(oc[a])) * std::fabs(inv[a]) < kFloatRange;
        if (!floatBoxes) break;
        // |oc - (o - centre)| <= 2^-53 |oc|; the margin covers it many times over.
        const double margin = 0x1p-20 * (m_reach + std::fabs(oc[a]));
        oLo[a] = _mm_set1_ps(FloatAbove(oc[a] + margin));
        oHi[a] = _mm_set1_ps(FloatBelow(oc[a] - margin));
        invF[a] = _mm_set1_ps(static_cast<float>(inv[a]));
    }
    float bestTf = std::numeric_limits<float>::infinity();  // bestT rounded up
#endif

    struct Item {
        std::int32_t first, count;  // count 0: node m_node[first]; > 0: triangles
        double tEnter;              // not above the parameter where the ray enters its box
    };
    // Each node adds at most three items (and writes a fourth that it does not keep); a path
    // through the tree passes at most 61 nodes, each taking at least one split on it: 30 of
    // the Morton bits and 31 halvings of equal codes at most.
    Item stack[3 * 61 + 4];
    int sp = 0;
    stack[sp++] = {0, 0, -kMiss};
    while (sp > 0) {
        const Item it = stack[--sp];
        if (it.tEnter > bestT) continue;
        if (it.count > 0) {
            const int end = it.first + it.count;
#if defined(__SSE2__)
            for (int j = it.first; j < end; j += 2) {
                const bool pair = j + 1 < end;
                const std::int32_t* q0 = &m_tri[static_cast<std::size_t>(j) * 4];
                const std::int32_t* q1 = pair ? q0 + 4 : q0;
                auto vertex = [&](std::int32_t v) {
                    return &m_xyz[static_cast<std::size_t>(v) * 3];
                };
                __m128d tt = _mm_setzero_pd();
                const int mask = RayTriangle2(vo, vd, vertex(q0[0]), vertex(q0[1]), vertex(q0[2]),
                                              vertex(q1[0]), vertex(q1[1]), vertex(q1[2]), tt) &
                                 (pair ? 3 : 1);
                if (mask == 0) continue;
                double ti[2];
                _mm_storeu_pd(ti, tt);
                for (int k = 0; k < 2; ++k)
                    if ((mask >> k & 1) != 0 && ti[k] <= bestT)
                        Keep(ti[k], (k == 0 ? q0 : q1)[3], bestT, best);
                bestTf = bestT < kFloatRange ? FloatAbove(bestT)
                                             : std::numeric_limits<float>::infinity();
            }
#else
            for (int j = it.first; j < end; ++j) {
                const std::int32_t* q = &m_tri[static_cast<std::size_t>(j) * 4];
                double ti = 0.0;
                if (kel_tinray::RayTriangle(o, d, &m_xyz[static_cast<std::size_t>(q[0]) * 3],
                                            &m_xyz[static_cast<std::size_t>(q[1]) * 3],
                                            &m_xyz[static_cast<std::size_t>(q[2]) * 3], ti) &&
                    ti <= bestT)
                    Keep(ti, q[3], bestT, best);
            }
#endif
            continue;
        }
        const Node& nd = m_node[static_cast<std::size_t>(it.first)];
        // Entry parameters of the ray into the children's boxes, and the mask of the children
        // it enters before the best hit so far (bit c for slot c).
        double tn[4];
        int mask = 0;
#if defined(__SSE2__)
        if (floatBoxes) {
            const __m128 tx0 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.lo[0]), oLo[0]), invF[0]);
            const __m128 tx1 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.hi[0]), oHi[0]), invF[0]);
            const __m128 ty0 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.lo[1]), oLo[1]), invF[1]);
            const __m128 ty1 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.hi[1]), oHi[1]), invF[1]);
            const __m128 tz0 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.lo[2]), oLo[2]), invF[2]);
            const __m128 tz1 = _mm_mul_ps(_mm_sub_ps(_mm_load_ps(nd.hi[2]), oHi[2]), invF[2]);
            const __m128 tn4 = _mm_max_ps(_mm_max_ps(_mm_min_ps(tx0, tx1), _mm_min_ps(ty0, ty1)),
                                          _mm_min_ps(tz0, tz1));
            const __m128 tf4 = _mm_min_ps(_mm_min_ps(_mm_max_ps(tx0, tx1), _mm_max_ps(ty0, ty1)),
                                          _mm_max_ps(tz0, tz1));
            const __m128 in =
                _mm_and_ps(_mm_and_ps(_mm_cmple_ps(tn4, tf4), _mm_cmpge_ps(tf4, _mm_setzero_ps())),
                           _mm_cmple_ps(tn4, _mm_set1_ps(bestTf)));
            mask = _mm_movemask_ps(in) & nd.used;
            _mm_storeu_pd(tn, _mm_cvtps_pd(tn4));
            _mm_storeu_pd(tn + 2, _mm_cvtps_pd(_mm_movehl_ps(tn4, tn4)));
        } else {
            // Two children a register. lo inv - oc inv errs by about 1e-16 (|lo| + |oc|) |inv|,
            // inside the padding for origins up to about 1e7 times the mesh's coordinates from
            // it. max(x, tn) and min(x, tf) keep tn, tf when x is NaN (an axis the ray runs
            // along, in the plane of a box face): that axis is then ignored, which can only
            // enter more boxes.
            __m128d tn01 = _mm_set1_pd(-kMiss), tn23 = tn01, tf01 = _mm_set1_pd(kMiss), tf23 = tf01;
            for (int a = 0; a < 3; ++a) {
                const __m128d ia = _mm_set1_pd(inv[a]), oa = _mm_set1_pd(ocInv[a]);
                const __m128 lo = _mm_load_ps(nd.lo[a]), hi = _mm_load_ps(nd.hi[a]);
                const __m128d l01 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(lo), ia), oa);
                const __m128d l23 =
                    _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(lo, lo)), ia), oa);
                const __m128d h01 = _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(hi), ia), oa);
                const __m128d h23 =
                    _mm_sub_pd(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(hi, hi)), ia), oa);
                tn01 = _mm_max_pd(_mm_min_pd(l01, h01), tn01);
                tn23 = _mm_max_pd(_mm_min_pd(l23, h23), tn23);
                tf01 = _mm_min_pd(_mm_max_pd(l01, h01), tf01);
                tf23 = _mm_min_pd(_mm_max_pd(l23, h23), tf23);
            }
            const __m128d zero = _mm_setzero_pd(), bt = _mm_set1_pd(bestT);
            const __m128d in01 =
                _mm_and_pd(_mm_and_pd(_mm_cmple_pd(tn01, tf01), _mm_cmpge_pd(tf01, zero)),
                           _mm_cmple_pd(tn01, bt));
            const __m128d in23 =
                _mm_and_pd(_mm_and_pd(_mm_cmple_pd(tn23, tf23), _mm_cmpge_pd(tf23, zero)),
                           _mm_cmple_pd(tn23, bt));
            mask = (_mm_movemask_pd(in01) | _mm_movemask_pd(in23) << 2) & nd.used;
            _mm_storeu_pd(tn, tn01);
            _mm_storeu_pd(tn + 2, tn23);
        }
#else
        for (int c = 0; c < 4; ++c) {
            double tnc = -kMiss, tfc = kMiss;
            for (int a = 0; a < 3; ++a) {
                // As in the SSE2 test above.
                double t0 = nd.lo[a][c] * inv[a] - ocInv[a], t1 = nd.hi[a][c] * inv[a] - ocInv[a];
                if (t0 > t1) std::swap(t0, t1);
                tnc = std::max(tnc, t0);
                tfc = std::min(tfc, t1);
            }
            tn[c] = tnc;
            if (tnc <= tfc && tfc >= 0.0 && tnc <= bestT) mask |= 1 << c;
        }
        mask &= nd.used;
#endif
        // Pushed far first, each item written and kept only when entered, so that no branch
        // depends on which were.
        const unsigned order = nd.order[sign];
        for (int k = 0; k < 8; k += 2) {
            const unsigned c = order >> k & 3u;
            stack[sp] = {nd.first[c], nd.count[c], tn[c]};
            sp += mask >> c & 1;
        }
    }
    if (best < 0) return 0;
    t = bestT;
    tri = best;
    return 1;
}
