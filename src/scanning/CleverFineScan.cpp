// CCleverFineScan: grids, region spans, the serpentine target list and the time estimates.
#include "scanning/CleverFineScan.h"

#include <cmath>
#include <new>

#include "scanning/ScanTime.h"

CCleverFineScan::~CCleverFineScan() = default;

void CCleverFineScan::SetDVH(double dV, double dH, int unit) { StoreDVH(dV, dH, unit); }

int CCleverFineScan::CalcPtAngle(bool flag) {
    m_nextIndex = 0;
    m_signV = DirectionSign(m_startV, m_endV);
    const int signH = DirectionSign(m_startH, m_endH);
    try {
        m_gridH.RemoveAll();
        m_gridV.RemoveAll();
        m_planH.RemoveAll();
        m_planV.RemoveAll();
        const int nH = GridCount(m_startH, m_endH, m_dH);
        const int nV = GridCount(m_startV, m_endV, m_dV);
        if (nH < 0 || nV < 0 || static_cast<long long>(nH) * nV > kMaxTargets) return 0;
        m_gridH.Reserve(nH);
        for (int k = 0; k < nH; ++k) m_gridH.Add(m_startH + (k * signH) * m_dH);
        m_gridV.Reserve(nV);
        for (int k = 0; k < nV; ++k) m_gridV.Add(m_startV + (m_signV * k) * m_dV);
        const int ok = m_polyline.GetVertexSize() >= 3 ? PolyToPt(flag) : NoImgToPt();
        if (ok == 0) return 0;
    } catch (const std::bad_alloc&) {
        m_gridH.RemoveAll();
        m_gridV.RemoveAll();
        m_planH.RemoveAll();
        m_planV.RemoveAll();
        return 0;
    }
    return m_planH.GetSize();
}

int CCleverFineScan::NoImgToPt() {
    const int nH = m_gridH.GetSize();
    const int nV = m_gridV.GetSize();
    if (nH == 0 || nV == 0) return 0;
    m_planH.RemoveAll();
    m_planV.RemoveAll();
    m_planH.Reserve(nH * nV);
    m_planV.Reserve(nH * nV);
    int i = 0;
    int step = 1;
    for (int j = 0; j < nV; ++j) {
        for (int k = 0; k < nH; ++k, i += step) AddTarget(m_gridH[i], m_gridV[j]);
        // i stepped one past the row's last cell: put it back there and turn round.
        i -= step;
        step = -step;
    }
    return 1;
}

void CCleverFineScan::AddTarget(double h, double v) {
    m_planH.Add(h);
    m_planV.Add(v);
}

int CCleverFineScan::PolyToPt(bool flag) {
    PolyMap map;
    if (MapPolygon(0.0, map) == 0) return 0;
    const double eps = flag ? kEpsExact : kEpsLoose;
    // The grid's direction: the H grid rises (+1) or falls (-1) with its index.
    const int signH = m_gridH.GetSize() > 1 && m_gridH[1] < m_gridH[0] ? -1 : 1;
    const kel_templ::CKelArray<double> grid(m_gridH);
    m_gridH.RemoveAll();
    m_gridV.RemoveAll();
    m_planH.RemoveAll();
    m_planV.RemoveAll();

    kel_templ::CKelArray<double> xs;
    kel_templ::CKelArray<double> merged;
    bool ascending = true;
    double y = map.minY;
    for (int row = 0; row < map.maxRows && y <= map.maxY; ++row) {
        RowCrossings(y, eps, xs);
        if (xs.GetSize() % 2 != 0) {
            // A row through a vertex where the outline crosses the row hears of that vertex
            // from both its edges: count coincident crossings once.
            merged.RemoveAll();
            for (int k = 0; k < xs.GetSize(); ++k)
                if (merged.IsEmpty() || std::fabs(xs[k] - merged[merged.GetUpperBound()]) >= eps)
                    merged.Add(xs[k]);
            xs.Copy(merged);
        }
        if (xs.GetSize() % 2 == 0) {
            const double v = map.V(y);
            const int pairs = xs.GetSize() / 2;
            for (int p = 0; p < pairs; ++p) {
                const int q = ascending ? p : pairs - 1 - p;
                PlanSpan(grid, signH, map.H(xs[2 * q]), map.H(xs[2 * q + 1]), ascending, v);
            }
        }
        ascending = !ascending;
        if (map.rowStep == 0.0) break;
        y += map.rowStep;
    }
    return 1;
}

void CCleverFineScan::PlanSpan(const kel_templ::CKelArray<double>& grid, int signH, double hFirst,
                               double hLast, bool ascending, double v) {
    // Positions along the grid: u = signH * H rises with the grid index, and so do the span's
    // ends (the polygon's x order maps onto the grid's order).
    const int last = grid.GetUpperBound();
    const double u1 = signH * hFirst;
    const double u2 = signH * hLast;
    auto emit = [&](int i) {
        const double h = grid[i];
        AddTarget(h, v);
        m_gridH.Add(h);
        m_gridV.Add(v);
    };
    if (ascending) {
        int i = 0;
        while (i <= last && !(signH * grid[i] > u1)) ++i;
        if (i > last) return;  // the whole grid lies before the span
        if (i > 0) --i;
        for (; i <= last; ++i) {
            emit(i);
            if (signH * grid[i] > u2) break;
        }
    } else {
        int i = last;
        while (i >= 0 && !(signH * grid[i] < u2)) --i;
        if (i < last) ++i;
        for (; i >= 0; --i) {
            emit(i);
            if (signH * grid[i] < u1) break;
        }
    }
}

int CCleverFineScan::NextPt(double& h, double& v) {
    if (m_nextIndex >= m_planH.GetSize()) return -1;
    m_curH = m_planH[m_nextIndex];
    m_curV = m_planV[m_nextIndex];
    h = m_curH;
    v = m_curV;
    ++m_nextIndex;
    return 1;
}

double CCleverFineScan::SecondsPerTarget() const {
    return kSecPerTarget - kSecPerTargetSlope * m_planH.GetSize();
}

int CCleverFineScan::CalcTime(EMeasMode mode, EInstrumentType) const {
    int seconds = kel_scan::RoundSeconds((m_planH.GetSize() - m_nextIndex) * SecondsPerTarget());
    if (m_nextIndex == 0 && mode == MEAS_MODE_NORMAL) seconds += kSetupSeconds;
    return seconds;
}

int CCleverFineScan::CalcRemainingTime(int count, EMeasMode, EInstrumentType) const {
    return kel_scan::RoundSeconds(count * SecondsPerTarget());
}

int CCleverFineScan::CalcRemainingTime(EMeasMode, EInstrumentType) const {
    return kel_scan::RoundSeconds(m_planH.GetSize() * SecondsPerTarget());
}
