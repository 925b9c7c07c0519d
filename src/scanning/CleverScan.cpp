// The planners' common base: the region's row crossings, the angular box and the direction and
// grid rules both planners share.
#include "scanning/CleverScan.h"

#include <cmath>

#include "geometry/CalcXYZHV.h"

namespace {

bool Near(double a, double b, double eps) { return std::fabs(a - b) < eps; }

// Sorts a short list ascending in place (insertion sort: a row meets a handful of edges).
void SortAscending(kel_templ::CKelArray<double>& xs) {
    double* p = xs.GetData();
    const int n = xs.GetSize();
    for (int i = 1; i < n; ++i) {
        const double key = p[i];
        int j = i - 1;
        while (j >= 0 && p[j] > key) {
            p[j + 1] = p[j];
            --j;
        }
        p[j + 1] = key;
    }
}

double ToDegrees(double value, int unit) {
    return unit == 1 ? value : CCalcXYZHV::Angle60To100(value, 1);
}

}  // namespace

CCleverScanCalc::~CCleverScanCalc() = default;

void CCleverScanCalc::RowCrossings(double y, double eps, kel_templ::CKelArray<double>& xs) const {
    xs.RemoveAll();
    const int n = m_polyline.GetVertexSize();
    const CVertex* v = m_polyline.m_vertex.GetData();
    for (int i = 0; i < n; ++i) {
        const CVertex& a = v[i];
        const CVertex& b = v[i + 1 < n ? i + 1 : 0];
        if (Near(a.y, b.y, eps)) {
            if (Near(y, a.y, eps) || Near(y, b.y, eps)) {
                xs.Add(a.x);
                xs.Add(b.x);
            }
        } else if (Near(y, a.y, eps)) {
            xs.Add(a.x);
        } else if (Near(y, b.y, eps)) {
            xs.Add(b.x);
        } else if ((a.y < y && y < b.y) || (b.y < y && y < a.y)) {
            const double dy = b.y - a.y;
            xs.Add(dy == 0.0 ? a.x : a.x + (b.x - a.x) / dy * (y - a.y));
        }
    }
    SortAscending(xs);
}

CCleverScanValues::~CCleverScanValues() = default;

void CCleverScanValues::SetSEVH(double startV, double startH, double endV, double endH, int unit) {
    if (unit == 1) {
        CCalcXYZHV::Angle0To360(startV);
        CCalcXYZHV::Angle0To360(startH);
        CCalcXYZHV::Angle0To360(endV);
        CCalcXYZHV::Angle0To360(endH);
    } else {
        startV = ToDegrees(startV, unit);
        startH = ToDegrees(startH, unit);
        endV = ToDegrees(endV, unit);
        endH = ToDegrees(endH, unit);
    }
    m_startV = startV;
    m_startH = startH;
    m_endV = endV;
    m_endH = endH;
}

void CCleverScanValues::StoreDVH(double dV, double dH, int unit) {
    // The magnitude is taken before unpacking: a packed value is reduced into [0, 360) on the
    // way, which would turn -0.3000 into 359.7000 instead of 0.5 degrees.
    m_dV = ToDegrees(std::fabs(dV), unit);
    m_dH = ToDegrees(std::fabs(dH), unit);
}

CCleverScanBase::~CCleverScanBase() = default;

int CCleverScanBase::DirectionSign(double start, double& end) {
    const bool longWay = std::fabs(start - end) > 180.0;
    if (start > end) {
        if (!longWay) return -1;
        end += 360.0;
        return 1;
    }
    if (!longWay) return 1;
    end -= 360.0;
    return -1;
}

int CCleverScanBase::GridCount(double start, double end, double d) {
    if (d == 0.0) return 1;
    const double cells = std::fabs(start - end) / d + 1.0;
    if (!(cells < static_cast<double>(kMaxGridCount) + 1.0)) return -1;  // NaN too
    return static_cast<int>(cells);
}

int CCleverScanBase::MapPolygon(double stopTol, PolyMap& map) const {
    double minX = 0.0, maxX = 0.0, minY = 0.0, maxY = 0.0, minZ = 0.0, maxZ = 0.0;
    m_polyline.GetRange(minX, maxX, minY, maxY, minZ, maxZ);
    if (Near(maxX, minX, kEpsExact) || Near(maxY, minY, kEpsExact) ||
        Near(m_endH, m_startH, kEpsExact) || Near(m_endV, m_startV, kEpsExact))
        return 0;
    map.minX = minX;
    map.minY = minY;
    map.maxY = maxY;
    map.startH = m_startH;
    map.startV = m_startV;
    map.scaleH = (m_endH - m_startH) / (maxX - minX);
    map.scaleV = (m_endV - m_startV) / (maxY - minY);
    // The rows always walk upwards in y: after the direction rule the V sign and scaleV agree,
    // so the row step (sign V) dV / scaleV is |dV / scaleV|. Taking the magnitude also keeps
    // the walk finite for a box whose stored angles were never reduced into [0, 360).
    map.rowStep = std::fabs(m_dV / map.scaleV);
    if (map.rowStep == 0.0) {
        map.maxRows = 1;
        return 1;
    }
    const double rows = (maxY - minY + stopTol) / map.rowStep + 2.0;
    if (!(rows < static_cast<double>(kMaxGridCount))) return 0;
    map.maxRows = static_cast<int>(rows);
    return 1;
}
