// CTin: the spatially ordered triangulation. The vertices are renumbered into a biased
// randomised insertion order (rounds of doubling size, each round along a Hilbert curve over
// the points' range) and then triangulated in that order, so that each walk starts next to
// the point it looks for and the triangles it touches are still in the caches.
#include <algorithm>
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

// Position of cell (x, y) along the Hilbert curve through the 2^kCurveBits square. Branch
// free: which way each quadrant turns is a coin toss for the predictor.
std::uint32_t HilbertKey(std::uint32_t x, std::uint32_t y) {
    const std::uint32_t mask = (std::uint32_t(1) << kCurveBits) - 1;
    std::uint32_t d = 0;
    for (std::uint32_t s = std::uint32_t(1) << (kCurveBits - 1); s > 0; s >>= 1) {
        const std::uint32_t rx = (x & s) ? 1 : 0, ry = (y & s) ? 1 : 0;
        d += s * s * ((3 * rx) ^ ry);
        // Where ry is 0 the quadrant is rotated so that the curve enters it at its corner:
        // mirrored when rx is 1, then x and y swapped.
        const std::uint32_t turn = 0u - (ry ^ 1u);
        const std::uint32_t flip = mask & turn & (0u - rx);
        x ^= flip;
        y ^= flip;
        const std::uint32_t swap = (x ^ y) & turn;
        x ^= swap;
        y ^= swap;
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

void CTin::SpatialOrder(std::vector<int>& from) {
    const int n = m_point.GetSize();
    CXYZ* p = m_point.GetData();
    double x0 = p[0].x, x1 = x0, y0 = p[0].y, y1 = y0;
    for (int i = 1; i < n; ++i) {
        x0 = std::min(x0, p[i].x);
        x1 = std::max(x1, p[i].x);
        y0 = std::min(y0, p[i].y);
        y1 = std::max(y1, p[i].y);
    }
    const double cells = static_cast<double>(1u << kCurveBits);
    const double sx = x1 > x0 ? cells / (x1 - x0) : 0.0, sy = y1 > y0 ? cells / (y1 - y0) : 0.0;
    int rounds = 0;  // the last round's number
    while (rounds < 30 && (n >> (rounds + 1)) >= kFirstRound) ++rounds;
    // Key: round (5 bits) and curve position (2 kCurveBits bits) above the index (32 bits).
    // A stable radix sort on the upper half lists the points in insertion order, ties in
    // index order.
    using Keys = std::vector<std::uint64_t, kel_pages::Allocator<std::uint64_t>>;
    Keys key(static_cast<std::size_t>(n)), spare(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        // Half of the points go to the last round, a quarter to the one before, and so on.
        const int level = std::min(TrailingZeros(Mix(static_cast<std::uint64_t>(i))), rounds);
        const std::uint64_t round = static_cast<std::uint64_t>(rounds - level);
        const std::uint64_t curve = HilbertKey(CellOf(p[i].x, x0, sx), CellOf(p[i].y, y0, sy));
        key[static_cast<std::size_t>(i)] =
            (round << 59) | (curve << 32) | static_cast<std::uint32_t>(i);
    }
    constexpr int kDigitBits = 11;
    constexpr std::size_t kDigits = std::size_t(1) << kDigitBits;
    for (int shift = 32; shift < 64; shift += kDigitBits) {
        std::size_t count[kDigits + 1] = {};
        for (std::uint64_t k : key) ++count[((k >> shift) & (kDigits - 1)) + 1];
        for (std::size_t d = 0; d < kDigits; ++d) count[d + 1] += count[d];
        for (std::uint64_t k : key) spare[count[(k >> shift) & (kDigits - 1)]++] = k;
        key.swap(spare);
    }
    spare = Keys();
    from.resize(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k)
        from[static_cast<std::size_t>(k)] =
            static_cast<int>(key[static_cast<std::size_t>(k)] & 0xFFFFFFFFu);
    key = Keys();
    // Everything that needs memory is had before anything changes.
    kel_templ::CKelArray<CXYZ, CXYZ&> moved;
    moved.SetSize(n);
    std::vector<int> newIndex(m_breakLine.GetSize() > 0 ? static_cast<std::size_t>(n) : 0);
    if (m_breakLine.GetSize() > 0) {
        for (int k = 0; k < n; ++k) newIndex[static_cast<std::size_t>(from[static_cast<std::size_t>(k)])] = k;
        for (int s = 0; s < m_breakLine.GetSize(); ++s)
            for (int e = 0; e < 2; ++e)
                m_breakLine[s].v[e] = newIndex[static_cast<std::size_t>(m_breakLine[s].v[e])];
    }
    // The points are gathered into a new block in their new order (reading ahead of the
    // scattered sources) rather than moved round the permutation's cycles in place, which
    // jumps through memory one dependent miss at a time. Names move, they are not copied.
    CXYZ* q = moved.GetData();
    constexpr int kAhead = 8;
    for (int k = 0; k < n; ++k) {
        if (k + kAhead < n) kel_tin::Prefetch(p + from[static_cast<std::size_t>(k + kAhead)]);
        CXYZ& src = p[from[static_cast<std::size_t>(k)]];
        CXYZ& dst = q[k];
        dst.x = src.x;
        dst.y = src.y;
        dst.z = src.z;
        std::copy(src.m_aux, src.m_aux + 5, dst.m_aux);
        std::swap(dst.m_code, src.m_code);
        std::swap(dst.m_name, src.m_name);
    }
    m_point = std::move(moved);
}

int CTin::CreateTinSpatial(double angle) {
    const int n = m_point.GetSize();
    if (n < 3) return CreateTin(angle);  // CreateTin traces and empties
    DropRayIndex();
    try {
        std::vector<int> from;  // from[new index] = index before the reordering
        ResetCellIndex();       // the points move; rebuilt by the next AddPoint
        SpatialOrder(from);
        m_tri.RemoveAll();
        if (!MakeBoundaryFromCandidates() || !MakeConvexHull() || !MakeTinForConvexHull()) {
            InitData();
            return 0;
        }
        // Consecutive points lie close together along the curve: each walk starts next to the
        // previous point (only the first point of each round walks far), and no locate grid
        // is needed.
        int left = 0;
        if (!InsertVertices(false, left)) {
            InitData();
            return 0;
        }
        if (left > 0) {
            // A point was left out: points within m_eps of each other (which AddPoint never
            // lets in). Rebuilt in index order, where the first of them is kept, as CreateTin
            // does.
            std::vector<CXYZ> moved(m_point.GetData(), m_point.GetData() + n);
            for (int k = 0; k < n; ++k)
                m_point[from[static_cast<std::size_t>(k)]] = moved[static_cast<std::size_t>(k)];
            for (int s = 0; s < m_breakLine.GetSize(); ++s)
                for (int e = 0; e < 2; ++e)
                    m_breakLine[s].v[e] = from[static_cast<std::size_t>(m_breakLine[s].v[e])];
            ResetCellIndex();
            return CreateTin(angle);
        }
        return FinishTin(angle);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::CreateTinSpatial CMemoryException");
        InitData();
        return 0;
    }
}
