#pragma once
// A synthetic site for the scan-project tests: a station thousands of metres from the
// survey origin, a camera 0.12 m beside the telescope looking north-east and slightly down,
// and a hillside rising away from the station (a plane, optionally with bumps), all in the
// surveying frame (x north, y east, z height, metres).
#include <cmath>

#include "geometry/CalcXYZHV.h"
#include "geometry/Rot.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Camera.h"
#include "platform/KelMath.h"
#include "scanning/ScanProject.h"
#include "surface/SinOriToTin.h"

namespace kel_scene {

const CXYZ kStation(5000.0, 3000.0, 100.0);
constexpr double kInstHeight = 1.6;
constexpr double kBsAzimuth = 40.0, kBsReading = 10.0;  // circle = azimuth - 30
constexpr double kFocal = 8.0;                          // mm
constexpr int kWidth = 1600, kHeight = 1200;            // pixels of 0.005 mm

inline double Rad(double deg) { return deg / kel_math::kRadToDeg; }

// Height of the hillside at a plan position; bumps add a gentle wave.
inline double Ground(double x, double y, bool bumps) {
    const double dn = x - kStation.x, de = y - kStation.y;
    double z = 99.0 + 0.4 * dn + 0.25 * de;
    if (bumps) z += 0.3 * std::sin(dn / 3.0) * std::cos(de / 4.0);
    return z;
}

// The camera: interior values, optionally with distortion (about 20 pixels at the corners).
inline CCamera Camera(bool distortion) {
    CCamera cam;
    cam.m_focal = kFocal;
    cam.m_principal.SetXYZ(4.0, 3.0, 0.0);
    cam.m_resolution.SetXYZ(0.005, 0.005, 0.0);
    if (distortion) {
        cam.m_dist.SetDistModel(DIST_K1K2P1P2);
        const double k1k2p1p2[4] = {-8e-4, 1e-6, 2e-5, -1e-5};
        for (int i = 0; i < 4; ++i) cam.m_dist.AddPara(i, k1k2p1p2[i]);
    }
    return cam;
}

// Projection centre in the surveying frame.
inline CXYZ CameraCentre() {
    return CXYZ(kStation.x, kStation.y + 0.12, kStation.z + kInstHeight + 0.08);
}

// Object-to-camera rotation in the computation frame: rows right, up, backwards, for a camera
// looking at azimuth 30 degrees and zenith angle 92 degrees.
inline CRot CameraRot() {
    const double az = Rad(30.0), zen = Rad(92.0);
    const CXYZ f(std::sin(az) * std::sin(zen), std::cos(az) * std::sin(zen), std::cos(zen));
    CXYZ r = f.Out(CXYZ(0.0, 0.0, 1.0));
    r /= r.Len();
    const CXYZ u = r.Out(f);
    CRot rot;
    const double m[9] = {r.x, r.y, r.z, u.x, u.y, u.z, -f.x, -f.y, -f.z};
    for (int i = 0; i < 9; ++i) rot.m[i] = m[i];
    return rot;
}

// The ray of a pixel in the surveying frame (unit direction), from the camera model written
// out independently of the library's classes.
inline CXYZ PixelRay(const CCamera& cam, double u, double v) {
    double x = u * cam.m_resolution.x - cam.m_principal.x;
    double y = cam.m_principal.y - v * cam.m_resolution.y;
    double dx = 0.0, dy = 0.0;
    cam.m_dist.CalDist(x, y, dx, dy);
    x += dx;
    y += dy;
    CRot objFromCam = CameraRot();
    objFromCam.T();
    CXYZ d;
    objFromCam.Rotate(x, y, -kFocal, d.x, d.y, d.z);
    CXYZ s(d.y, d.x, d.z);  // computation (east, north, up) to surveying (north, east, up)
    s /= s.Len();
    return s;
}

// Where a pixel's ray meets the plain hillside (no bumps), surveying frame.
inline CXYZ PlaneHit(const CCamera& cam, double u, double v) {
    const CXYZ c = CameraCentre(), d = PixelRay(cam, u, v);
    // c.z + t d.z = 99 + 0.4 (c.x + t d.x - Sx) + 0.25 (c.y + t d.y - Sy)
    const double t = (Ground(c.x, c.y, false) - c.z) / (d.z - 0.4 * d.x - 0.25 * d.y);
    return CXYZ(c.x + t * d.x, c.y + t * d.y, c.z + t * d.z);
}

// Calls f with each point of the hillside on a 2 m grid, surveying frame.
template <class F>
void ForEachHillPoint(bool bumps, F f) {
    for (double dn = -4.0; dn <= 60.0; dn += 2.0)
        for (double de = -14.0; de <= 60.0; de += 2.0) {
            CXYZ q(kStation.x + dn, kStation.y + de, 0.0);
            q.z = Ground(q.x, q.y, bumps);
            f(q);
        }
}

// A project with camera, image view, scan arrays, station and a hillside surface of 2 m
// spacing, oriented directly from the true orientation.
inline void MakeProject(CKelScanProject& p, bool distortion, bool bumps) {
    p.CreateProject();
    p.CreateCamera();
    p.CreateImage();
    p.CreateScanArrays();
    *p.m_pCamera = Camera(distortion);
    p.SetOccBs(kStation, kInstHeight, kBsAzimuth, kBsReading);
    CKelScanProject::CXYZArray pts;
    ForEachHillPoint(bumps, [&](CXYZ& q) { pts.Add(q); });
    p.SetSurface(pts);
}

// Sets the true orientation into the project's surface intersection object.
inline void Orient(CKelScanProject& p) {
    CXYZ c = CameraCentre();
    CCalcXYZHV::CnvSokuToMath(c);
    p.m_pSinOriToTin->SetCamera(*p.m_pCamera);
    p.m_pSinOriToTin->SetOrientation(kFocal, c, CameraRot());
}

}  // namespace kel_scene
