// CTin: the spatially ordered triangulation. The vertices are renumbered into a biased
// randomised insertion order (rounds of doubling size, each round along a Hilbert curve over
// the points' range) and then triangulated in that order, so that each walk starts next to
// the point it looks for and the triangles it touches are still in the caches.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/Trace.h"
#include "surface/Tin.h"

namespace {

// Cells per axis of the curve: 2^kCurveBits. Points in one cell keep their index order.
constexpr int kCurveBits = 13;
// The first round holds at least this many points (or all of them); each later one about
// as many as all rounds before it.
constexpr int kFirstRound = 128;

// Position of cell (x, y) along the Hilbert curve through the 2^kCurveBits square.
std::uint32_t HilbertKey(std::uint32_t x, std::uint32_t y) {
    const std::uint32_t mask = (std::uint32_t(1) << kCurveBits) - 1;
    std::uint32_t d = 0;
    for (std::uint32_t s = std::uint32_t(1) << (kCurveBits - 1); s > 0; s >>= 1) {
        const std::uint32_t rx = (x & s) ? 1 : 0, ry = (y & s) ? 1 : 0;
        d += s * s * ((3 * rx) ^ ry);
        if (ry == 0) {  // rotate the quadrant so that the curve enters it at its corner
            if (rx == 1) {
                x = mask ^ x;
                y = mask ^ y;
            }
            std::swap(x, y);
        }
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
    // Key: round (5 bits), curve position (2 kCurveBits bits), index (32 bits); sorted, the
    // keys list the points in insertion order, ties in index order.
    std::vector<std::uint64_t> key(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        // Half of the points go to the last round, a quarter to the one before, and so on.
        const int level = std::min(TrailingZeros(Mix(static_cast<std::uint64_t>(i))), rounds);
        const std::uint64_t round = static_cast<std::uint64_t>(rounds - level);
        const std::uint64_t curve = HilbertKey(CellOf(p[i].x, x0, sx), CellOf(p[i].y, y0, sy));
        key[static_cast<std::size_t>(i)] =
            (round << 59) | (curve << 32) | static_cast<std::uint32_t>(i);
    }
    std::sort(key.begin(), key.end());
    from.resize(static_cast<std::size_t>(n));
    for (int k = 0; k < n; ++k)
        from[static_cast<std::size_t>(k)] =
            static_cast<int>(key[static_cast<std::size_t>(k)] & 0xFFFFFFFFu);
    auto src = [&key](int k) {
        return static_cast<int>(key[static_cast<std::size_t>(k)] & 0xFFFFFFFFu);
    };
    if (m_breakLine.GetSize() > 0) {
        std::vector<int> newIndex(static_cast<std::size_t>(n));
        for (int k = 0; k < n; ++k) newIndex[static_cast<std::size_t>(src(k))] = k;
        for (int s = 0; s < m_breakLine.GetSize(); ++s)
            for (int e = 0; e < 2; ++e)
                m_breakLine[s].v[e] = newIndex[static_cast<std::size_t>(m_breakLine[s].v[e])];
    }
    // Moves the points along the cycles of the permutation; a finished slot names itself.
    for (int k = 0; k < n; ++k) {
        if (src(k) == k) continue;
        const CXYZ first = p[k];
        int j = k;
        for (;;) {
            const int was = src(j);
            key[static_cast<std::size_t>(j)] = static_cast<std::uint64_t>(j);
            if (was == k) {
                p[j] = first;
                break;
            }
            p[j] = p[was];
            j = was;
        }
    }
}

int CTin::CreateTinSpatial(double angle) {
    const int n = m_point.GetSize();
    if (n < 3) return CreateTin(angle);  // CreateTin traces and empties
    try {
        std::vector<int> from;  // from[new index] = index before the reordering
        ResetCellIndex();       // the points move; rebuilt by the next AddPoint
        SpatialOrder(from);
        if (!CreateTin(0.0)) return 0;  // traced and emptied
        std::vector<char> used(static_cast<std::size_t>(n), 0);
        for (int i = 0; i < m_tri.GetSize(); ++i)
            for (int k = 0; k < 3; ++k)
                if (m_tri[i].v[k] < n) used[static_cast<std::size_t>(m_tri[i].v[k])] = 1;
        if (std::find(used.begin(), used.end(), 0) != used.end()) {
            // A point was left out: coincident points, or runs of collinear points on the
            // boundary, which the walk can miss when it reaches them in this order. Rebuilt
            // in index order, where such a point is placed or left out as CreateTin does.
            std::vector<CXYZ> moved(m_point.GetData(), m_point.GetData() + n);
            m_point.SetSize(n);  // drops the vertices that break lines inserted
            for (int k = 0; k < n; ++k)
                m_point[from[static_cast<std::size_t>(k)]] = moved[static_cast<std::size_t>(k)];
            for (int s = 0; s < m_breakLine.GetSize(); ++s)
                for (int e = 0; e < 2; ++e)
                    m_breakLine[s].v[e] = from[static_cast<std::size_t>(m_breakLine[s].v[e])];
            ResetCellIndex();
            return CreateTin(angle);
        }
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CTin::CreateTinSpatial CMemoryException");
        InitData();
        return 0;
    }
    if (angle > 0.0 && (!DelTriWithAngle(angle, 1) || !UpdateTinRange() || !UpdateDepth() ||
                        !UpdateTextureCoord())) {
        InitData();
        return 0;
    }
    return 1;
}
