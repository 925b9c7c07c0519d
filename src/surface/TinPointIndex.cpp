// CTin: adding points, and the cell index that keeps AddPoint's duplicate search short.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/Trace.h"
#include "surface/Tin.h"

namespace {

// The cell index of AddPoint. Cells are kCellEps tolerances wide; a cell coordinate is clamped
// so that a huge value over a tiny tolerance still gives a valid one (clamped cells only hold
// more candidates).
constexpr double kCellEps = 32.0;

std::int64_t CellOf(double v, double size) {
    const double c = std::floor(v / size);
    constexpr double kLimit = 1e15;
    if (!(c > -kLimit)) return static_cast<std::int64_t>(-kLimit);
    if (!(c < kLimit)) return static_cast<std::int64_t>(kLimit);
    return static_cast<std::int64_t>(c);
}

std::uint64_t CellHash(std::int64_t cx, std::int64_t cy) {
    std::uint64_t h = static_cast<std::uint64_t>(cx) * 0x9E3779B97F4A7C15ull ^
                      static_cast<std::uint64_t>(cy) * 0xC2B2AE3D27D4EB4Full;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 32);
}

}  // namespace

void CTin::ResetCellIndex() {
    std::vector<std::uint64_t>().swap(m_cellSlot);
    std::vector<int>().swap(m_cellNext);
    m_nIndexed = 0;
    m_nCells = 0;
    m_indexEps = m_eps;
}

// The slot of cell (cx, cy) in the open-addressing table: the cell's own slot, or the empty
// one where it would go. A slot holds a fingerprint of the cell in its upper half and the
// index + 1 of the cell's newest point in its lower half (0: empty); the cell itself is
// confirmed from that point's coordinates.
std::size_t CTin::CellSlot(std::int64_t cx, std::int64_t cy) const {
    const std::uint64_t h = CellHash(cx, cy);
    const std::uint64_t tag = h >> 32;
    const std::size_t mask = m_cellSlot.size() - 1;
    const double size = m_indexEps * kCellEps;
    for (std::size_t k = static_cast<std::size_t>(h) & mask;; k = (k + 1) & mask) {
        const std::uint64_t slot = m_cellSlot[k];
        if (slot == 0) return k;
        if ((slot >> 32) == tag) {
            const CXYZ& p = m_point[static_cast<int>(slot & 0xFFFFFFFFu) - 1];
            if (CellOf(p.x, size) == cx && CellOf(p.y, size) == cy) return k;
        }
    }
}

void CTin::IndexPoint(int i) {
    if (2 * (static_cast<std::size_t>(m_nCells) + 1) > m_cellSlot.size()) {
        // Grow to keep the table at most half full; every cell moves with its newest point.
        std::vector<std::uint64_t> old;
        old.swap(m_cellSlot);
        m_cellSlot.assign(old.empty() ? 1024 : 2 * old.size(), 0);
        const double size = m_indexEps * kCellEps;
        for (std::uint64_t slot : old) {
            if (slot == 0) continue;
            const CXYZ& p = m_point[static_cast<int>(slot & 0xFFFFFFFFu) - 1];
            m_cellSlot[CellSlot(CellOf(p.x, size), CellOf(p.y, size))] = slot;
        }
    }
    const double size = m_indexEps * kCellEps;
    const std::int64_t cx = CellOf(m_point[i].x, size), cy = CellOf(m_point[i].y, size);
    std::uint64_t& slot = m_cellSlot[CellSlot(cx, cy)];
    if (slot == 0) ++m_nCells;
    m_cellNext.push_back(slot == 0 ? -1 : static_cast<int>(slot & 0xFFFFFFFFu) - 1);
    slot = (CellHash(cx, cy) >> 32 << 32) | static_cast<std::uint64_t>(i + 1);
    m_nIndexed = i + 1;
}

int CTin::AddPoint(double x, double y, double z) {
    const int n = m_point.GetSize();
    try {
        return FindOrAppend(x, y, z);
    } catch (const std::bad_alloc&) {
        // Nothing half done stays: the point is taken back and the index rebuilt later.
        if (m_point.GetSize() > n) m_point.SetSize(n);
        ResetCellIndex();
        KEL_TRACE_ALWAYS(L"CTin::AddPoint CMemoryException");
        return -1;
    }
}

int CTin::FindOrAppend(double x, double y, double z) {
    const int n = m_point.GetSize();
    // A match has |q.x - x| <= m_eps as computed, so q.x lies in [x - 2 m_eps, x + 2 m_eps]
    // (rounding is monotone), which covers one or two cells along each axis.
    const double size = m_eps * kCellEps;
    const bool indexed = m_eps > 0.0 && std::isfinite(size) && std::isfinite(x) &&
                         std::isfinite(y) && std::isfinite(2.0 * m_eps + std::fabs(x)) &&
                         std::isfinite(2.0 * m_eps + std::fabs(y));
    std::int64_t x0 = 0, x1 = 0, y0 = 0, y1 = 0;
    if (indexed) {
        x0 = CellOf(x - 2.0 * m_eps, size);
        x1 = CellOf(x + 2.0 * m_eps, size);
        y0 = CellOf(y - 2.0 * m_eps, size);
        y1 = CellOf(y + 2.0 * m_eps, size);
    }
    if (!indexed || x1 - x0 > 2 || y1 - y0 > 2) {
        // No usable cell: the plain linear first-match search.
        for (int i = 0; i < n; ++i)
            if (std::fabs(m_point[i].x - x) <= m_eps && std::fabs(m_point[i].y - y) <= m_eps)
                return i;
        CXYZ p(x, y, z);
        return m_point.Add(p);
    }
    if (m_nIndexed > n || m_indexEps != m_eps) ResetCellIndex();
    while (m_nIndexed < n) IndexPoint(m_nIndexed);
    int best = -1;
    for (std::int64_t cx = x0; cx <= x1 && !m_cellSlot.empty(); ++cx)
        for (std::int64_t cy = y0; cy <= y1; ++cy) {
            const std::uint64_t slot = m_cellSlot[CellSlot(cx, cy)];
            for (int i = static_cast<int>(slot & 0xFFFFFFFFu) - 1; i >= 0;
                 i = m_cellNext[static_cast<std::size_t>(i)]) {
                const CXYZ& p = m_point[i];
                if (std::fabs(p.x - x) <= m_eps && std::fabs(p.y - y) <= m_eps &&
                    (best < 0 || i < best))
                    best = i;
            }
        }
    if (best >= 0) return best;
    CXYZ p(x, y, z);
    const int index = m_point.Add(p);
    IndexPoint(index);
    return index;
}

void CTin::BeginAddPoint(int n) {
    // The slots are rewritten in place by AddPoint2: the cell index no longer describes them.
    ResetCellIndex();
    m_nAdd = 0;
    try {
        m_point.SetSize(n < 0 ? 0 : n);
    } catch (const std::bad_alloc&) {
        // The array is as it was; AddPoint2 overwrites it and appends beyond it.
        KEL_TRACE_ALWAYS(L"CTin::BeginAddPoint CMemoryException");
    }
}

int CTin::AddPoint2(double x, double y, double z) {
    if (m_nAdd < m_nIndexed) ResetCellIndex();  // an indexed point is about to change
    if (m_nAdd >= m_point.GetSize()) {
        CXYZ p(x, y, z);
        try {
            m_point.Add(p);
        } catch (const std::bad_alloc&) {
            KEL_TRACE_ALWAYS(L"CTin::AddPoint2 CMemoryException");
            return -1;
        }
    } else {
        m_point[m_nAdd].SetXYZ(x, y, z);
    }
    return m_nAdd++;
}

void CTin::EndAddPoint() {
    m_point.SetSize(std::min(m_nAdd, m_point.GetSize()));  // shrinks only: no allocation
    m_nAdd = 0;
    if (m_nIndexed > m_point.GetSize()) ResetCellIndex();
}
