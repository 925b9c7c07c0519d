#include "surface/SinOriToTin.h"

#include <cmath>

#include "platform/Trace.h"

CSinOriToTin::CSinOriToTin() { Init(); }

CSinOriToTin::CSinOriToTin(const CSinOriToTin& src) { Copy(src); }

CSinOriToTin& CSinOriToTin::operator=(const CSinOriToTin& src) {
    if (this != &src) Copy(src);
    return *this;
}

CSinOriToTin::~CSinOriToTin() = default;

void CSinOriToTin::Init() {
    m_tin.InitData();
    m_camera.Init();
    m_focal = 0.0;
    m_centre.Init();
    m_rot.I();
    m_ready = 0;
}

void CSinOriToTin::Copy(const CSinOriToTin& src) {
    m_tin = src.m_tin;
    m_camera = src.m_camera;
    m_focal = src.m_focal;
    m_centre = src.m_centre;
    m_rot = src.m_rot;
    m_ready = src.m_ready;
}

int CSinOriToTin::SetTin(const CTin& tin) {
    if (tin.GetTriSize() < 1) {
        KEL_TRACE_ALWAYS(L"CSinOriToTin::SetTin tin.GetTriSize() < 1");
        return 0;
    }
    m_tin = tin;
    m_ready = 0;
    return 1;
}

int CSinOriToTin::SetOrientation(double focal, const CXYZ& centre, const CRot& rot) {
    if (!(focal > 0.0)) {
        KEL_TRACE_ALWAYS(L"CSinOriToTin::SetOrientation !(focal > 0.0)");
        return 0;
    }
    m_focal = focal;
    m_centre.SetXYZ(centre.x, centre.y, centre.z);
    m_rot = rot;
    m_ready = 1;
    return 1;
}

int CSinOriToTin::PhcToXYZ(const CXYZ& phc, CXYZ& xyz) const {
    if (m_ready != 1) return 0;
    // Direction in the object frame: R^T (x, y, -c).
    CRot objFromCam = m_rot;
    objFromCam.T();
    CXYZ dir;
    objFromCam.Rotate(phc.x, phc.y, -m_focal, dir.x, dir.y, dir.z);
    CXYZ hit;
    if (!RayToXYZ(m_centre, dir, hit)) return 0;
    xyz = phc;
    xyz.SetXYZ(hit.x, hit.y, hit.z);
    return 1;
}

int CSinOriToTin::RayToXYZ(const CXYZ& origin, const CXYZ& dir, CXYZ& xyz) const {
    CXYZ hit;
    int tri = -1;
    if (!m_tin.IntersectRay(origin, dir, hit, tri)) return 0;
    xyz.SetXYZ(hit.x, hit.y, hit.z);
    return 1;
}

int CSinOriToTin::ObjToPhc(const CXYZ& obj, CXYZ& phc) const {
    if (m_ready != 1) return 0;
    double xc = 0.0, yc = 0.0, zc = 0.0;
    m_rot.Rotate(obj.x - m_centre.x, obj.y - m_centre.y, obj.z - m_centre.z, xc, yc, zc);
    if (!(zc < 0.0)) return 0;
    phc = obj;
    phc.SetXYZ(-m_focal * xc / zc, -m_focal * yc / zc, 0.0);
    return 1;
}

int CSinOriToTin::ObjToImg(const CXYZ& obj, CXYZ& img) const {
    CXYZ ideal;
    double u = 0.0, v = 0.0;
    if (!ObjToPhc(obj, ideal) || !m_camera.PhcToImg(ideal.x, ideal.y, u, v)) return 0;
    img = ideal;
    img.SetXYZ(u, v, 0.0);
    return 1;
}
