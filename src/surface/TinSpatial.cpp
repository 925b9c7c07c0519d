// CTin: the spatially ordered triangulation. The points are inserted in a biased randomised
// order (rounds of doubling size, each round along a Hilbert curve over the points' range), so
// that each walk starts next to the point it looks for and the triangles it touches are still
// in the caches; the vertices keep the points' numbers.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include "platform/PageBlock.h"
#include "platform/Trace.h"
#include "surface/Tin.h"
#include "surface/TinMesh.h"

namespace {

// Cells per axis of the curve: 2^kCurveBits. Points in one cell keep their index order.
constexpr int kCurveBits = 13;
// The first round holds at least this many points (or all of them); each later one about
// as many as all rounds before it.
constexpr int kFirstRound = 128;

// The Hilbert curve one level at a time. Entry [state << 2 | x bit << 1 | y bit] holds the
// quadrant's position along the curve (bits 0-1) and the next state (bits 2-3). A state is the
// reflection that the levels above apply to the quadrant: bit 0 swaps x and y, bit 1 mirrors
// both, so that the curve enters each quadrant at its corner.
constexpr std::array<std::uint8_t, 16> MakeHilbertTable() {
    std::array<std::uint8_t, 16> t{};
    for (unsigned st = 0; st < 4; ++st)
        for (unsigned xb = 0; xb < 2; ++xb)
            for (unsigned yb = 0; yb < 2; ++yb) {
                const unsigned rx = ((st & 1) ? yb : xb) ^ (st >> 1);
                const unsigned ry = ((st & 1) ? xb : yb) ^ (st >> 1);
                const unsigned turn = ry == 0 ? (rx == 1 ? 3u : 1u) : 0u;
                t[st << 2 | xb << 1 | yb] =
                    static_cast<std::uint8_t>(((3 * rx) ^ ry) | (st ^ turn) << 2);
            }
    return t;
}
constexpr std::array<std::uint8_t, 16> kHilbertStep = MakeHilbertTable();

// Two levels at once: entry [state << 4 | x bits << 2 | y bits] holds the two quadrants'
// positions (bits 0-3) and the next state (bits 4-5).
constexpr std::array<std::uint8_t, 64> MakeHilbertTable2() {
    std::array<std::uint8_t, 64> t{};
    for (unsigned st = 0; st < 4; ++st)
        for (unsigned xb = 0; xb < 4; ++xb)
            for (unsigned yb = 0; yb < 4; ++yb) {
                const unsigned hi = kHilbertStep[st << 2 | (xb >> 1) << 1 | (yb >> 1)];
                const unsigned lo = kHilbertStep[(hi >> 2) << 2 | (xb & 1u) << 1 | (yb & 1u)];
                t[st << 4 | xb << 2 | yb] =
                    static_cast<std::uint8_t>((hi & 3u) << 2 | (lo & 3u) | (lo >> 2) << 4);
            }
    return t;
}
constexpr std::array<std::uint8_t, 64> kHilbertStep2 = MakeHilbertTable2();

// Position of cell (x, y) along the Hilbert curve through the 2^kCurveBits square.
std::uint32_t HilbertKey(std::uint32_t x, std::uint32_t y) {
    std::uint32_t d = 0, st = 0;
    int b = kCurveBits;
    if (b % 2 == 1) {  // the top level alone
        --b;
        const std::uint32_t e = kHilbertStep[((x >> b) & 1u) << 1 | ((y >> b) & 1u)];
        d = e & 3u;
        st = e >> 2;
    }
    while (b > 0) {
        b -= 2;
        const std::uint32_t e = kHilbertStep2[st << 4 | ((x >> b) & 3u) << 2 | ((y >> b) & 3u)];
        d = d << 4 | (e & 15u);
        st = e >> 4;
    }
    return d;
}

// A fixed pseudo-random 64-bit value of i (splitmix64): the order depends on the points only.
std::uint64_t Mix(std::uint64_t i) {
    std::uint64_t z = i + 0x9E3779B97F4A7C15ull;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

int TrailingZeros(std::uint64_t v) {
#if defined(__GNUC__) || defined(__clang__)
    if (v != 0) return __builtin_ctzll(v);
#endif
    int n = 0;
    while ((v & 1) == 0 && n < 63) {
        v >>= 1;
        ++n;
    }
    return n;
}

// Cell of coordinate c on an axis starting at lo with scale cells per unit.
std::uint32_t CellOf(double c, double lo, double scale) {
    const double q = (c - lo) * scale;
    const double top = static_cast<double>((1u << kCurveBits) - 1);
    if (!(q > 0.0)) return 0;  // below the range, or not a number
    return static_cast<std::uint32_t>(q < top ? q : top);
}

}  // namespace

double* CTin::SpatialOrder(std::vector<int>& from, kel_pages::CBlock& block) {
    const int n = m_point.GetSize();
    const std::size_t count = static_cast<std::size_t>(n);
    const CXYZ* p = m_point.GetData();
    const double x0 = m_range[0].x, x1 = m_range[1].x, y0 = m_range[0].y, y1 = m_range[1].y;
    const double cells = static_cast<double>(1u << kCurveBits);
    const double sx = x1 > x0 ? cells / (x1 - x0) : 0.0, sy = y1 > y0 ? cells / (y1 - y0) : 0.0;
    int rounds = 0;  // the last round's number
    while (rounds < 30 && (n >> (rounds + 1)) >= kFirstRound) ++rounds;
    // Key: round (5 bits) and curve position (2 kCurveBits bits) above the index (32 bits).
    // A stable radix sort on the upper half lists the points in insertion order, ties in
    // index order. Fresh memory costs page faults, which on some machines cost more than the
    // sort: the block that will hold the packed coordinates is the sort's second buffer, and
    // the keys' array ends as the table from point to insertion position.
    block = kel_pages::CBlock(2 * count * sizeof(double));
    std::vector<std::uint64_t, kel_pages::Allocator<std::uint64_t>> keys(count);
    std::uint64_t* key = keys.data();
    std::uint64_t* spare = block.As<std::uint64_t>(count);
    // The cells first, in a pass of their own: fused with the curve's dependent table steps,
    // the loads of the points stop streaming and the pass takes several times longer.
    constexpr int kAhead = 16;  // points read ahead, at a cache line each
    for (int i = 0; i < n; ++i) {
        if (i + kAhead < n) kel_tin::Prefetch(p + i + kAhead);
        key[i] = static_cast<std::uint64_t>(CellOf(p[i].x, x0, sx)) << 32 | CellOf(p[i].y, y0, sy);
    }
    for (int i = 0; i < n; ++i) {
        // Half of the points go to the last round, a quarter to the one before, and so on.
        const int level = std::min(TrailingZeros(Mix(static_cast<std::uint64_t>(i))), rounds);
        const std::uint64_t round = static_cast<std::uint64_t>(rounds - level);
        const std::uint64_t cell = key[i];
        const std::uint64_t curve = HilbertKey(static_cast<std::uint32_t>(cell >> 32),
                                               static_cast<std::uint32_t>(cell & 0xFFFFFFFFu));
        key[i] = (round << 59) | (curve << 32) | static_cast<std::uint32_t>(i);
    }
    constexpr int kDigitBits = 11;
    constexpr std::size_t kDigits = std::size_t(1) << kDigitBits;
    for (int shift = 32; shift < 64; shift += kDigitBits) {
        std::size_t at[kDigits + 1] = {};
        for (std::size_t i = 0; i < count; ++i) ++at[((key[i] >> shift) & (kDigits - 1)) + 1];
        for (std::size_t d = 0; d < kDigits; ++d) at[d + 1] += at[d];
        for (std::size_t i = 0; i < count; ++i)
            spare[at[(key[i] >> shift) & (kDigits - 1)]++] = key[i];
        std::swap(key, spare);
    }
    // key: the sorted keys, in one of the two buffers; spare, the other, becomes the position
    // of each point in insertion order.
    from.resize(count);
    for (std::size_t k = 0; k < count; ++k) {
        const std::uint32_t i = static_cast<std::uint32_t>(key[k] & 0xFFFFFFFFu);
        from[k] = static_cast<int>(i);
        spare[i] = k;
    }
    for (int h = 0; h < m_hull.GetSize(); ++h)
        m_hull[h] = static_cast<int>(spare[static_cast<std::size_t>(m_hull[h])]);
    keys = std::vector<std::uint64_t, kel_pages::Allocator<std::uint64_t>>();
    // The plan coordinates in insertion order, gathered reading ahead of the scattered points,
    // over whatever of the sort the block still holds.
    double* packed = block.As<double>(2 * count);
    for (std::size_t k = 0; k < count; ++k) {
        if (k + kAhead < count) kel_tin::Prefetch(p + from[k + kAhead]);
        const CXYZ& src = p[from[k]];
        packed[2 * k] = src.x;
        packed[2 * k + 1] = src.y;
    }
    return packed;
}

int CTin::CreateTinSpatial(double angle) {
    const int n = m_point.GetSize();
    if (n < 3) return CreateTin(angle);  // CreateTin traces and empties
    DropRayIndex();
    try {
        ResetCellIndex();  // rebuilt by the next AddPoint; frees its memory meanwhile
        m_tri.RemoveAll();
        bool finite = false;
        if (!MakeBoundaryFromCandidates(&finite) || !MakeConvexHull()) {
            InitData();
            return 0;
        }
        // The triangulation numbers the vertices in their insertion order (k is point
        // from[k]) and reads their plan coordinates from `packed`, in that order too, so that
        // the vertices a walk or a flip meets lie close together in memory. The triangles and
        // the hull get the points' own numbers back at the end.
        std::vector<int> from;
        kel_pages::CBlock block;
        double* const packed = SpatialOrder(from, block);
        int left = 0, coincident = 0;
        {
            CPackedScope scope(m_packedXY);
            scope.Use(packed);
            // Consecutive points lie close together along the curve: each walk starts next to
            // the previous point (only the first point of each round walks far), and no locate
            // grid is needed.
            // A point left out is written to the trace once it is known whether this build
            // stands (then here) or starts again in index order (then there).
            m_quietLeftOut = true;
            const int inserted = MakeTinForConvexHull() && InsertVertices(false, left);
            m_quietLeftOut = false;
            if (!inserted) {
                InitData();
                return 0;
            }
            if (left > 0 && SettleLeftOut(from, packed, coincident)) {
                for (int i = 0; i < coincident; ++i)
                    KEL_TRACE_ALWAYS(L"CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1");
                left = 0;
            }
        }
        block = kel_pages::CBlock();
        const int* own = from.data();
        CTri* tri = m_tri.GetData();
        for (int i = 0; i < m_tri.GetSize(); ++i)
            for (int k = 0; k < 3; ++k) tri[i].v[k] = own[tri[i].v[k]];
        for (int h = 0; h < m_hull.GetSize(); ++h) m_hull[h] = own[m_hull[h]];
        from = std::vector<int>();
        if (left > 0) {
            // Points were left out that SettleLeftOut could not settle: built again in
            // index order, as CreateTin does.
            return CreateTin(angle);
        }
        // Every point a vertex: UpdateTinRange would fold the range just made again, to
        // the same values unless a coordinate is not finite or the range holds a zero (whose
        // sign depends on the point the fold starts from). Break lines add vertices and the
        // angle filter may leave points out.
        const bool rangeKept = finite && coincident == 0 && m_breakLine.GetSize() == 0 &&
                               !(angle > 0.0) && m_range[0].x != 0.0 && m_range[0].y != 0.0 &&
                               m_range[0].z != 0.0 && m_range[1].x != 0.0 && m_range[1].y != 0.0 &&
                               m_range[1].z != 0.0;
        return FinishTin(angle, rangeKept);
    } catch (const std::bad_alloc&) {
        m_quietLeftOut = false;
        KEL_TRACE_ALWAYS(L"CTin::CreateTinSpatial CMemoryException");
        InitData();
        return 0;
    }
}

bool CTin::SettleLeftOut(std::vector<int>& from, double* packed, int& coincident) {
    coincident = 0;
    const int n = m_point.GetSize();
    std::vector<char> used(static_cast<std::size_t>(n), 0);
    for (int i = 0; i < m_tri.GetSize(); ++i)
        for (int k = 0; k < 3; ++k) used[static_cast<std::size_t>(m_tri[i].v[k])] = 1;
    constexpr int kMaxLeft = 64;  // beyond this, building again in index order is cheaper
    int left = 0;
    std::vector<int> star;
    for (int k = 0; k < n; ++k) {
        if (used[static_cast<std::size_t>(k)]) continue;
        if (++left > kMaxLeft) return false;
        const double x = packed[2 * static_cast<std::size_t>(k)];
        const double y = packed[2 * static_cast<std::size_t>(k) + 1];
        int status = 0, side = 0;
        const int found = FindTri(0, x, y, status, side);
        if (found < 0) return false;
        // A vertex within m_eps, a corner of the triangle found or of one next to it (a walk
        // from elsewhere can end in a sliver beside the vertex it met on the way in).
        int v = -1, t = -1;
        for (int q = -1; q < 3 && v < 0; ++q) {
            const int u = q < 0 ? found : m_tri[found].nb[q];
            for (int c = 0; u >= 0 && c < 3 && v < 0; ++c) {
                const int w = m_tri[u].v[c];
                if (std::fabs(x - packed[2 * static_cast<std::size_t>(w)]) <= m_eps &&
                    std::fabs(y - packed[2 * static_cast<std::size_t>(w) + 1]) <= m_eps) {
                    v = w;
                    t = u;
                }
            }
        }
        if (v < 0) {
            if (status != 0 && status != 2) return false;
            // A walk that went astray: the point is inserted now.
            int count = m_tri.GetSize(), start = found;
            m_tri.SetSize(count + 2);
            const int inserted = DivideTri(k, count, start);
            m_tri.SetSize(count);
            if (!inserted) return false;
            continue;
        }
        ++coincident;
        if (from[static_cast<std::size_t>(v)] < from[static_cast<std::size_t>(k)]) continue;
        // The vertex is the later point: it takes the left-out point's number and position,
        // where every triangle round it must stay counter-clockwise (negative in FindTri's
        // measure).
        StarOf(v, t, star);
        for (int s : star) {
            double cx[3], cy[3];
            for (int c = 0; c < 3; ++c) {
                const int w = m_tri[s].v[c];
                cx[c] = w == v ? x : packed[2 * static_cast<std::size_t>(w)];
                cy[c] = w == v ? y : packed[2 * static_cast<std::size_t>(w) + 1];
            }
            if (!((cy[1] - cy[0]) * (cx[2] - cx[0]) - (cx[1] - cx[0]) * (cy[2] - cy[0]) < 0.0))
                return false;
        }
        std::swap(from[static_cast<std::size_t>(v)], from[static_cast<std::size_t>(k)]);
        packed[2 * static_cast<std::size_t>(v)] = x;
        packed[2 * static_cast<std::size_t>(v) + 1] = y;
    }
    return true;
}
