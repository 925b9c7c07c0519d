#include "scanning/ScanProject.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "geometry/CalcXYZHV.h"
#include "geometry/NamePairing.h"
#include "imaging/ImgViewEx.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/SinOri.h"
#include "platform/KelMath.h"
#include "platform/Trace.h"
#include "scanning/CleverScanBase.h"
#include "scanning/ScanTime.h"
#include "surface/SinOriToTin.h"
#include "surface/Tin.h"

namespace {

// Surface tolerance in the computation frame: 1e-6 m, in millimetres.
constexpr double kTinEpsMm = 1e-3;

// A new default T, or null when memory is short (no exception leaves the project).
template <class T>
T* NewOrNull() {
    try {
        return new T();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

template <class T>
void DeleteAndNull(T*& p) {
    delete p;
    p = nullptr;
}

}  // namespace

CKelScanProject::CKelScanProject()
    : m_pImage(nullptr),
      m_pSinOriToTin(nullptr),
      m_pScanHV(nullptr),
      m_pScanXYZ(nullptr),
      m_pScanImg(nullptr),
      m_flag(1),
      m_value1(0.0),
      m_value2(-180.0),
      m_value3(-180.0),
      m_pCamera(nullptr),
      m_estCount(0),
      m_estSeconds(0),
      m_estRemain(0) {}

CKelScanProject::~CKelScanProject() {
    DestroyScanArrays();
    DestroyImage();
    DestroyCamera();
    DestroyProject();
}

int CKelScanProject::CreateProject() {
    DestroyProject();
    m_pSinOriToTin = NewOrNull<CSinOriToTin>();
    return m_pSinOriToTin != nullptr ? 1 : 0;
}

void CKelScanProject::DestroyProject() {
    DeleteAndNull(m_pSinOriToTin);
    m_regionXYZ.RemoveAll();
    m_regionHV.RemoveAll();
}

int CKelScanProject::CreateCamera() {
    DestroyCamera();
    m_pCamera = NewOrNull<CCamera>();
    return m_pCamera != nullptr ? 1 : 0;
}

void CKelScanProject::DestroyCamera() { DeleteAndNull(m_pCamera); }

int CKelScanProject::CreateImage() {
    DestroyImage();
    m_pImage = NewOrNull<CImgViewEx>();
    return m_pImage != nullptr ? 1 : 0;
}

void CKelScanProject::DestroyImage() { DeleteAndNull(m_pImage); }

int CKelScanProject::CreateScanArrays() {
    DestroyScanArrays();
    m_pScanHV = NewOrNull<CXYZArray>();
    m_pScanXYZ = NewOrNull<CXYZArray>();
    m_pScanImg = NewOrNull<CXYZArray>();
    return m_pScanHV != nullptr && m_pScanXYZ != nullptr && m_pScanImg != nullptr ? 1 : 0;
}

void CKelScanProject::DestroyScanArrays() {
    CXYZArray** arrays[3] = {&m_pScanHV, &m_pScanXYZ, &m_pScanImg};
    for (CXYZArray** a : arrays) {
        if (*a != nullptr) (*a)->RemoveAll();
        DeleteAndNull(*a);
    }
}

void CKelScanProject::SetOccBs(const CXYZ& station, double value1, double value2, double value3) {
    m_station = station;
    m_value1 = value1;
    m_value2 = value2;
    m_value3 = value3;
}

void CKelScanProject::XYZToHV(const CXYZ& target, double& h, double& v) {
    TaskInverse(m_station, target, m_value1, m_value2, m_value3, h, v);
    CCalcXYZHV::Angle0To360(h);
    CCalcXYZHV::Angle0To360(v);
}

void CKelScanProject::ImgToPhc(const CXYZ& img, CXYZ& phc) {
    phc = img;
    if (m_pCamera == nullptr) return;
    double x = 0.0, y = 0.0;
    m_pCamera->ImgToPhc(img.x, img.y, x, y);
    phc.x = x;
    phc.y = y;
}

void CKelScanProject::ImgToPhc(CXYZArray& pts) {
    if (m_pCamera == nullptr) return;
    for (int i = 0; i < pts.GetSize(); ++i) {
        const CXYZ img = pts[i];
        ImgToPhc(img, pts[i]);
    }
}

int CKelScanProject::PhcToImg(const CXYZ& phc, CXYZ& img) {
    if (m_pCamera == nullptr) return 0;
    const double resx = m_pCamera->m_resolution.x, resy = m_pCamera->m_resolution.y;
    if (resx == 0.0 || resy == 0.0) return 0;
    img = phc;
    img.x = (phc.x + m_pCamera->m_principal.x) / resx;
    img.y = (m_pCamera->m_principal.y - phc.y) / resy;
    return 1;
}

int CKelScanProject::CalDist(double& x, double& y) {
    if (m_pCamera == nullptr) return 0;
    double dx = 0.0, dy = 0.0;
    m_pCamera->m_dist.CalDist(x, y, dx, dy);
    x += dx;
    y += dy;
    return 1;
}

int CKelScanProject::ImgToXYZ(const CXYZ& img, CXYZ& xyz) {
    if (m_pSinOriToTin == nullptr || m_pSinOriToTin->GetReady() != 1 || m_pCamera == nullptr)
        return 0;
    CXYZ phc;
    ImgToPhc(img, phc);
    CXYZ p;
    if (m_pSinOriToTin->PhcToXYZ(phc, p) != 1) return 0;
    ToSoku(p);
    xyz = p;
    return 1;
}

int CKelScanProject::ImgToHV(const CXYZ& img, double& h, double& v) {
    CXYZ p;
    if (!ImgToXYZ(img, p)) return 0;
    XYZToHV(p, h, v);
    return 1;
}

void CKelScanProject::SetEstimateParams(int count, int seconds) {
    m_estCount = count;
    m_estRemain = count;
    m_estSeconds = seconds;
}

void CKelScanProject::SetEstimateRemaining(int count) { m_estRemain = count; }

int CKelScanProject::EstimateRemainingTime(unsigned long elapsedMilliseconds) {
    const int n = m_estCount;
    if (n <= 0) return 0;
    const int r = std::min(std::max(m_estRemain, 0), n);
    const int half = n / 2;
    const double e = static_cast<double>(elapsedMilliseconds) * 0.001;
    double estimate = 0.0;
    if (r > half) {
        if (half == 0) return m_estSeconds;  // one point, not yet measured: the plan
        const double rate = (static_cast<double>(m_estSeconds) / n * (r - half) + e) / half;
        estimate = rate * r;
    } else {
        estimate = static_cast<double>(r) / (n - r) * e;
    }
    return kel_scan::TruncInt(estimate);
}

// ---- surface and orientation -------------------------------------------------------------

void CKelScanProject::ToMath(CXYZ& p) { CCalcXYZHV::CnvSokuToMath(p); }

void CKelScanProject::ToSoku(CXYZ& p) { CCalcXYZHV::CnvMathToSoku(p); }

int CKelScanProject::SetSurface(const CXYZArray& pts) {
    if (m_pSinOriToTin == nullptr) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::SetSurface m_pSinOriToTin == nullptr");
        return 0;
    }
    try {
        CTin tin;
        tin.SetEPS(kTinEpsMm);
        tin.BeginAddPoint(pts.GetSize());
        for (int i = 0; i < pts.GetSize(); ++i) {
            CXYZ p = pts[i];
            ToMath(p);
            tin.AddPoint2(p.x, p.y, p.z);
        }
        tin.EndAddPoint();
        if (!tin.CreateTin(0.0)) return 0;  // CreateTin traced
        return m_pSinOriToTin->SetTin(tin);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::SetSurface CMemoryException");
        return 0;
    }
}

int CKelScanProject::OrientCalc(const CXYZArray& img, const CXYZArray& obj) {
    if (m_pSinOriToTin == nullptr || m_pCamera == nullptr) {
        KEL_TRACE_ALWAYS(
            L"CKelScanProject::OrientCalc m_pSinOriToTin == nullptr || m_pCamera == nullptr");
        return 0;
    }
    CXYZArray objPair, imgPair;
    const int nPair = kel_geom::PairPointsByName(obj, img, objPair, imgPair);
    if (nPair < 4) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::OrientCalc nPair < 4");
        return 0;
    }
    // Computation frame, reduced by the mean: the resection then sees coordinates of the
    // size of the site, not of the survey's false origin.
    CXYZ mean(0.0, 0.0, 0.0);
    for (int i = 0; i < nPair; ++i) {
        ToMath(objPair[i]);
        mean += objPair[i];
    }
    mean /= static_cast<double>(nPair);
    for (int i = 0; i < nPair; ++i) objPair[i] -= mean;
    ImgToPhc(imgPair);
    CSinOri ori;
    const double focal = m_pCamera->m_focal;
    if (!ori.Create(objPair, imgPair, focal)) {  // pairs were counted: the focal length
        KEL_TRACE_ALWAYS(L"CKelScanProject::OrientCalc !ori.Create(objPair, imgPair, focal)");
        return 0;
    }
    if (!ori.CalSinOri2()) return 0;  // the resection traced
    const CXYZ centre = ori.m_pos + mean;
    m_pSinOriToTin->SetCamera(*m_pCamera);
    return m_pSinOriToTin->SetOrientation(ori.m_focal, centre, ori.m_rot);
}

// ---- the inverse direction -----------------------------------------------------------------

int CKelScanProject::HVToXYZ(double h, double v, CXYZ& xyz) {
    if (m_pSinOriToTin == nullptr) return 0;
    // The circle reading back to an azimuth (the inverse of TaskInverse's orientation).
    double azimuth = h;
    if (m_value2 != kTaskInverseNotSet && m_value3 != kTaskInverseNotSet)
        azimuth = h + m_value2 - m_value3;
    const double a = azimuth / kel_math::kRadToDeg, z = v / kel_math::kRadToDeg;
    // Line of sight in the surveying frame (north, east, up), then in the computation frame.
    CXYZ axis(m_station.x, m_station.y, m_station.z + m_value1);
    CXYZ dir(std::sin(z) * std::cos(a), std::sin(z) * std::sin(a), std::cos(z));
    ToMath(axis);
    ToMath(dir);
    CXYZ p;
    if (!m_pSinOriToTin->RayToXYZ(axis, dir, p)) return 0;
    ToSoku(p);
    xyz.SetXYZ(p.x, p.y, p.z);
    return 1;
}

int CKelScanProject::HVToImg(double h, double v, CXYZ& img) {
    CXYZ p;
    if (!HVToXYZ(h, v, p)) return 0;
    ToMath(p);
    return m_pSinOriToTin->ObjToImg(p, img);
}

// ---- scan-region operations ----------------------------------------------------------------

int CKelScanProject::Outline(const CPolyline& region, CXYZArray& pts) const {
    const int n = region.GetVertexSize();
    pts.RemoveAll();
    if (n < 3) return 0;
    for (int i = 0; i < n; ++i) {
        const CVertex& a = region.m_vertex[i];
        const CVertex& b = region.m_vertex[(i + 1) % n];
        const double len = std::hypot(b.x - a.x, b.y - a.y);
        const int steps =
            m_flag == 1 ? std::max(1, static_cast<int>(std::ceil(len / kDensifyPx))) : 1;
        for (int k = 0; k < steps; ++k) {
            const double t = static_cast<double>(k) / steps;
            CXYZ p(a.x + t * (b.x - a.x), a.y + t * (b.y - a.y), 0.0);
            pts.Add(p);
        }
    }
    return 1;
}

int CKelScanProject::TraceOutline(const CXYZArray& pts) {
    m_regionXYZ.RemoveAll();
    m_regionHV.RemoveAll();
    double prevH = 0.0;
    for (int i = 0; i < pts.GetSize(); ++i) {
        CXYZ xyz;
        if (!ImgToXYZ(pts[i], xyz)) {
            m_regionXYZ.RemoveAll();
            m_regionHV.RemoveAll();
            return 0;
        }
        double h = 0.0, v = 0.0;
        XYZToHV(xyz, h, v);
        if (i > 0) h += 360.0 * std::round((prevH - h) / 360.0);
        prevH = h;
        m_regionXYZ.Add(xyz);
        CXYZ hv(h, v, 0.0);
        m_regionHV.Add(hv);
    }
    return 1;
}

int CKelScanProject::PolyToHV(const CPolyline& region, CPolyline& hv) {
    CXYZArray pts;
    if (!Outline(region, pts)) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::PolyToHV region.GetVertexSize() < 3");
        return 0;
    }
    if (!TraceOutline(pts)) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::PolyToHV !ImgToXYZ(pts[i], xyz)");
        return 0;
    }
    hv.DelAllVertex();
    hv.Close();
    CXYZ mean(0.0, 0.0, 0.0);
    const int n = m_regionHV.GetSize();
    for (int i = 0; i < n; ++i) {
        CVertex v(m_regionHV[i], 0);
        hv.AddVertex(v);
        mean += m_regionXYZ[i];
    }
    mean /= static_cast<double>(n);
    m_ptRegionMean.SetXYZ(mean.x, mean.y, mean.z);
    double zmin = 0.0, zmax = 0.0;
    hv.GetRange(m_ptRegionMin.x, m_ptRegionMax.x, m_ptRegionMin.y, m_ptRegionMax.y, zmin, zmax);
    return 1;
}

int CKelScanProject::PolyToXYZ(const CPolyline& region, CXYZArray& xyz) {
    CXYZArray pts;
    if (!Outline(region, pts)) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::PolyToXYZ region.GetVertexSize() < 3");
        return 0;
    }
    xyz.RemoveAll();
    for (int i = 0; i < pts.GetSize(); ++i) {
        CXYZ p;
        if (!ImgToXYZ(pts[i], p)) {
            xyz.RemoveAll();
            KEL_TRACE_ALWAYS(L"CKelScanProject::PolyToXYZ !ImgToXYZ(pts[i], p)");
            return 0;
        }
        p.m_name.Format(L"%d", i);
        xyz.Add(p);
    }
    return 1;
}

int CKelScanProject::PointsToHV(const CXYZArray& img, CXYZArray& hv) {
    hv.RemoveAll();
    for (int i = 0; i < img.GetSize(); ++i) {
        double h = 0.0, v = 0.0;
        if (!ImgToHV(img[i], h, v)) continue;
        CXYZ p = img[i];
        p.SetXYZ(h, v, 0.0);
        hv.Add(p);
    }
    return hv.GetSize();
}

int CKelScanProject::AdjustSEVH(const CPolyline& hv, CCleverScanBase& planner) {
    double hmin = 0.0, hmax = 0.0, vmin = 0.0, vmax = 0.0, zmin = 0.0, zmax = 0.0;
    if (hv.GetVertexSize() < 3) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::AdjustSEVH hv.GetVertexSize() < 3");
        return 0;
    }
    hv.GetRange(hmin, hmax, vmin, vmax, zmin, zmax);
    if (hmax - hmin >= 180.0) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::AdjustSEVH hmax - hmin >= 180.0");
        return 0;
    }
    planner.SetSEVH(vmin, hmin, vmax, hmax, 1);
    return 1;
}

int CKelScanProject::AdjustVH(const CXYZArray& xyz, double spacing, double& dV, double& dH) {
    const int n = xyz.GetSize();
    if (n < 1 || !(spacing > 0.0)) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::AdjustVH n < 1 || !(spacing > 0.0)");
        return 0;
    }
    const CXYZ axis(m_station.x, m_station.y, m_station.z + m_value1);
    double d = 0.0, v = 0.0;
    for (int i = 0; i < n; ++i) {
        const CXYZ r = xyz[i] - axis;
        d += r.Len();
        v += std::atan2(std::hypot(r.x, r.y), r.z);
    }
    d /= n;
    v /= n;
    const double s = std::sin(v);
    if (d == 0.0 || s < 1e-6) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::AdjustVH d == 0.0 || s < 1e-6");
        return 0;
    }
    m_ptRegionSight.SetXYZ(d, v * kel_math::kRadToDeg, 0.0);
    dV = 2.0 * std::atan(spacing / (2.0 * d)) * kel_math::kRadToDeg;
    dH = dV / s;
    return 1;
}

int CKelScanProject::ComputeInclineGrid(const CPolyline& region, double spacing,
                                        CCleverScanBase& planner) {
    CPolyline hv;
    double dV = 0.0, dH = 0.0;
    if (!PolyToHV(region, hv) || !AdjustSEVH(hv, planner) ||
        !AdjustVH(m_regionXYZ, spacing, dV, dH))
        return 0;
    planner.m_polyline = hv;
    planner.m_dV = dV;
    planner.m_dH = dH;
    return 1;
}

int CKelScanProject::NoImgToImg(const CCleverScanBase& planner, CPolyline& region) {
    // The box the planner runs: H and V from start to end the short way round.
    double endH = planner.m_endH, endV = planner.m_endV;
    const double h0 = planner.m_startH, v0 = planner.m_startV;
    if (std::fabs(endH - h0) > 180.0) endH += endH < h0 ? 360.0 : -360.0;
    if (std::fabs(endV - v0) > 180.0) endV += endV < v0 ? 360.0 : -360.0;
    const double corner[5][2] = {{h0, v0}, {endH, v0}, {endH, endV}, {h0, endV}, {h0, v0}};
    region.DelAllVertex();
    region.Close();
    for (int e = 0; e < 4; ++e) {
        const double dh = corner[e + 1][0] - corner[e][0], dv = corner[e + 1][1] - corner[e][1];
        const int steps = std::max(
            1,
            static_cast<int>(std::ceil(std::max(std::fabs(dh), std::fabs(dv)) / kOutlineStepDeg)));
        for (int k = 0; k < steps; ++k) {
            const double t = static_cast<double>(k) / steps;
            CXYZ img;
            if (!HVToImg(corner[e][0] + t * dh, corner[e][1] + t * dv, img)) continue;
            CVertex vx(img, 0);
            region.AddVertex(vx);
        }
    }
    if (region.GetVertexSize() < 3) {
        KEL_TRACE_ALWAYS(L"CKelScanProject::NoImgToImg region.GetVertexSize() < 3");
        return 0;
    }
    return 1;
}

int CKelScanProject::GetPolylineFromImage(CPolyline& region) {
    if (m_pImage == nullptr || m_pImage->GetRegion().GetVertexSize() < 3) {
        KEL_TRACE_ALWAYS(
            L"CKelScanProject::GetPolylineFromImage m_pImage == nullptr || nVertex < 3");
        return 0;
    }
    region = m_pImage->GetRegion();
    return 1;
}
