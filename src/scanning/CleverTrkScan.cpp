// CCleverTrkScan: sweep lines over a box or a region, the speed tables and the time estimates.
#include "scanning/CleverTrkScan.h"

#include <cmath>
#include <new>

#include "scanning/ScanTime.h"

const CCleverTrkScan::DegreesPerSecond CCleverTrkScan::NewDegPerSec_Halvex[24] = {
    {10, 0.298544719},  {15, 0.899079667},  {20, 1.499614615},  {25, 1.899517733},
    {30, 2.299420851},  {35, 2.696913223},  {40, 3.094405594},  {45, 3.493479793},
    {50, 3.892553992},  {55, 4.243713953},  {60, 4.594873915},  {65, 5.030160238},
    {70, 5.465446562},  {75, 6.166244577},  {80, 6.867042593},  {85, 8.077894433},
    {90, 9.288746273},  {95, 11.75070588},  {100, 14.21266548}, {105, 16.90637204},
    {110, 20.18775692}, {115, 24.92711167}, {120, 32.76322968}, {125, 47.54284172},
};

const CCleverTrkScan::DegreesPerSecond CCleverTrkScan::NewDegPerSec_Quorin[8] = {
    {9, 0.25}, {10, 0.5}, {11, 1.0}, {12, 2.0}, {13, 4.0}, {14, 8.0}, {15, 16.0}, {16, 32.0},
};

namespace {

template <int N>
int SpeedFromDegrees(const CCleverTrkScan::DegreesPerSecond (&table)[N], double rate) {
    if (rate < table[0].degPerSec) return table[0].speed;
    if (rate > table[N - 1].degPerSec) return table[N - 1].speed;
    for (int i = 0; i < N; ++i)
        if (table[i].degPerSec >= rate) return table[i].speed;
    return table[N - 1].speed;  // a NaN rate
}

template <int N>
double DegreesFromSpeed(const CCleverTrkScan::DegreesPerSecond (&table)[N], int speed) {
    if (speed <= table[0].speed) return table[0].degPerSec;
    if (speed >= table[N - 1].speed) return table[N - 1].degPerSec;
    for (int i = 0; i < N; ++i)
        if (table[i].speed >= speed) return table[i].degPerSec;
    return table[N - 1].degPerSec;
}

// The end of a line taken the shorter way round from its start a (the sweep never turns more
// than 180 degrees); shifted is +1 or -1 when b moved by +-360, else 0.
double WrapEnd(double a, double b, int& shifted) {
    shifted = 0;
    if (a > b && std::fabs(a - b) > 180.0) {
        b += 360.0;
        shifted = 1;
    }
    if (a <= b && std::fabs(a - b) > 180.0) {
        b -= 360.0;
        shifted = -1;
    }
    return b;
}

}  // namespace

CCleverTrkScan::~CCleverTrkScan() = default;

int CCleverTrkScan::SpeedFromDegrees_Halvex(double r) {
    return SpeedFromDegrees(NewDegPerSec_Halvex, r);
}
int CCleverTrkScan::SpeedFromDegrees_Quorin(double r) {
    return SpeedFromDegrees(NewDegPerSec_Quorin, r);
}
double CCleverTrkScan::DegreesFromSpeed_Halvex(int s) {
    return DegreesFromSpeed(NewDegPerSec_Halvex, s);
}
double CCleverTrkScan::DegreesFromSpeed_Quorin(int s) {
    return DegreesFromSpeed(NewDegPerSec_Quorin, s);
}

void CCleverTrkScan::SetDVH(double dV, double dH, int speed, int unit) {
    StoreDVH(dV, dH, unit);
    // The most negative int has no absolute value; it is as bad a speed as any.
    m_speed = speed < 0 ? (speed == INT32_MIN ? INT32_MAX : -speed) : speed;
}

void CCleverTrkScan::ClearLines() {
    m_lineV.RemoveAll();
    m_lineStartH.RemoveAll();
    m_lineEndH.RemoveAll();
    m_lineDir.RemoveAll();
}

void CCleverTrkScan::AddLine(double v, double startH, double endH, int dir) {
    m_lineV.Add(v);
    m_lineStartH.Add(startH);
    m_lineEndH.Add(endH);
    m_lineDir.Add(dir);
}

int CCleverTrkScan::CalcLineAngle(bool flag) {
    m_signV = DirectionSign(m_startV, m_endV);
    m_signH = DirectionSign(m_startH, m_endH);
    m_nextLine = 0;
    try {
        if (m_polyline.GetVertexSize() >= 3)
            PolyToLine(flag);
        else
            NoImgToLine();
    } catch (const std::bad_alloc&) {
        ClearLines();
    }
    return m_lineV.GetSize();
}

int CCleverTrkScan::NoImgToLine() {
    ClearLines();
    const int nV = GridCount(m_startV, m_endV, m_dV);
    if (nV < 0) return 0;
    for (int k = 0; k < nV; ++k)
        AddLine(m_startV + (m_signV * k) * m_dV, m_startH, m_endH, m_signH);
    return nV;
}

int CCleverTrkScan::PolyToLine(bool flag) {
    ClearLines();
    PolyMap map;
    if (MapPolygon(kRowStopTol, map) == 0) return 0;
    const double eps = flag ? kEpsExact : kEpsLoose;
    kel_templ::CKelArray<double> xs;
    double y = map.minY;
    RowCrossings(y, eps, xs);
    // The row count is bounded by the map as well as by max y, so the walk always ends.
    for (int row = 0; xs.GetSize() % 2 == 0 && row < map.maxRows; ++row) {
        for (int p = 0; p + 1 < xs.GetSize(); p += 2)
            AddLine(map.V(y), map.H(xs[p]), map.H(xs[p + 1]), 1);
        if (map.rowStep == 0.0) return m_lineV.GetSize();
        y += map.rowStep;
        if (y > map.maxY + kRowStopTol) return m_lineV.GetSize();
        RowCrossings(y, eps, xs);
    }
    return xs.GetSize() % 2 == 0 ? m_lineV.GetSize() : 0;
}

int CCleverTrkScan::NextLine(double& h, double& v) {
    if (m_nextLine >= m_lineV.GetSize()) return 0;
    h = m_lineStartH[m_nextLine];
    v = m_lineV[m_nextLine];
    ++m_nextLine;
    return 1;
}

double CCleverTrkScan::Rate(bool quorin) const {
    if (m_speed < 1 || m_speed > (quorin ? kMaxSpeedQuorin : kMaxSpeedHalvex)) return -1.0;
    return quorin ? DegreesFromSpeed_Quorin(m_speed) : DegreesFromSpeed_Halvex(m_speed);
}

int CCleverTrkScan::LineSeconds(double a, double b, double rate) {
    int shifted = 0;
    const double length = std::fabs(a - WrapEnd(a, b, shifted));
    return kel_scan::RoundSeconds(length / rate) + kTurnSeconds;
}

int CCleverTrkScan::CalcTime(bool quorin) {
    const double rate = Rate(quorin);
    if (rate < 0.0) return -1;
    int seconds = 0;
    long long points = 0;
    int linePoints = 0;
    for (int i = 0; i < m_lineV.GetSize(); ++i) {
        const double a = m_lineStartH[i];
        int shifted = 0;
        const double length = std::fabs(a - WrapEnd(a, m_lineEndH[i], shifted));
        linePoints = m_dH == 0.0 ? 1 : kel_scan::TruncInt(length / m_dH) + 1;
        points += linePoints;
        seconds += LineSeconds(a, m_lineEndH[i], rate);
    }
    m_totalPoints = points > INT32_MAX ? INT32_MAX : static_cast<std::int32_t>(points);
    m_lastLinePoints = linePoints;
    return seconds;
}

int CCleverTrkScan::CalcRemainingTime(bool quorin) const {
    const double rate = Rate(quorin);
    if (rate < 0.0) return -1;
    int seconds = 0;
    for (int i = 0; i < m_lineV.GetSize(); ++i)
        seconds += LineSeconds(m_lineStartH[i], m_lineEndH[i], rate);
    return seconds;
}

int CCleverTrkScan::CalcRemainingTime(int line, double currentH, bool quorin) const {
    const double rate = Rate(quorin);
    if (rate < 0.0) return -1;
    if (line < 0 || line >= m_lineV.GetSize()) return 0;
    int shifted = 0;
    const double b = WrapEnd(m_lineStartH[line], m_lineEndH[line], shifted);
    if (shifted > 0 && currentH >= 0.0 && currentH < 180.0) currentH += 360.0;
    if (shifted < 0 && currentH >= 180.0 && currentH < 360.0) currentH -= 360.0;
    int seconds = kel_scan::RoundSeconds(std::fabs(currentH - b) / rate) + kTurnSeconds;
    for (int i = line + 1; i < m_lineV.GetSize(); ++i)
        seconds += LineSeconds(m_lineStartH[i], m_lineEndH[i], rate);
    return seconds;
}
