#pragma once
// CSinOriToTin: the oriented camera over a surface. It intersects the ray of a photo point
// with the surface (PhcToXYZ), projects an object point back onto the photograph (ObjToPhc,
// ObjToImg) and casts any other ray onto the surface (RayToXYZ).
//
// Frames and units: everything here is in the computation frame (x east, y north, z height,
// millimetres): the surface given to SetTin, the orientation given to SetOrientation and every
// point in and out. This class converts nothing. The scan project is the one place that
// converts from and to the surveying frame (CKelScanProject::ToMath and ToSoku, over
// CCalcXYZHV::CnvSokuToMath and CnvMathToSoku).
//
// Camera model: photo points are millimetres relative to the principal point; with
// (X', Y', Z') = R (P - C) for an object point P, the ideal (distortion-free) photo point is
// x = -c X'/Z', y = -c Y'/Z' (CSinOri's collinearity equations): the camera looks along its
// negative z axis, and the ray of the photo point (x, y) is P(t) = C + t R^T (x, y, -c), t > 0.
// Image pixels: x to the right, y down the rows, full resolution; the measured photo point of
// pixel (u, v) is (u resx - ppx, ppy - v resy), and ideal = measured + D(measured) with the
// camera's CDist (the camera file's sense).
#include "geometry/Rot.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/SinOri.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "surface/Tin.h"

class KELSCAN_API CSinOriToTin {
public:
    KEL_DECLARE_ALLOCATOR

    CSinOriToTin();
    CSinOriToTin(const CSinOriToTin& src);
    CSinOriToTin& operator=(const CSinOriToTin& src);
    virtual ~CSinOriToTin();

    // Reset: empty surface, default camera, no orientation (identity, focal 0), ready 0.
    void Init();
    void Copy(const CSinOriToTin& src);

    // The surface, computation frame (mm). Copies it and sets the ready state to 0 (the
    // orientation values are kept; set the orientation again to become ready). 1, or 0 after
    // one trace line when the surface has no triangle (nothing changes then).
    int SetTin(const CTin& tin);
    const CTin& GetTin() const { return m_tin; }
    CTin& GetTin() { return m_tin; }
    // The interior orientation used by ObjToImg (principal point, pixel size, distortion).
    void SetCamera(const CCamera& camera) { m_camera = camera; }
    const CCamera& GetCamera() const { return m_camera; }
    // The exterior orientation: focal length c (mm), projection centre C and rotation R
    // (object to camera, as above), computation frame. Sets the ready state to 1. 0 after one
    // trace line when c <= 0 (nothing changes).
    int SetOrientation(double focal, const CXYZ& centre, const CRot& rot);
    // SetOrientation with a solved resection's m_focal, m_pos and m_rot.
    int SetSinOri(const CSinOri& ori) { return SetOrientation(ori.m_focal, ori.m_pos, ori.m_rot); }
    // 1 once an orientation is set, 0 after Init or a new surface.
    int GetReady() const { return m_ready; }
    double GetFocal() const { return m_focal; }
    const CXYZ& GetCentre() const { return m_centre; }
    const CRot& GetRot() const { return m_rot; }

    // The first point (smallest t > 0) where the ray of the ideal photo point phc (mm, z not
    // used) meets the surface; xyz takes phc's name. 1, or 0 when not ready or the ray
    // misses (xyz unchanged). No trace line: a miss is an ordinary answer.
    int PhcToXYZ(const CXYZ& phc, CXYZ& xyz) const;
    // The first point of the ray origin + t dir, t > 0, on the surface (any ray, e.g. the
    // instrument's line of sight); xyz keeps its name. 1, or 0 when it misses.
    int RayToXYZ(const CXYZ& origin, const CXYZ& dir, CXYZ& xyz) const;
    // The ideal photo point of an object point; phc takes obj's name. 1, or 0 when not ready
    // or the point lies in the camera's plane (Z' == 0) or behind the camera (Z' > 0).
    int ObjToPhc(const CXYZ& obj, CXYZ& phc) const;
    // The full-resolution pixel where an object point is seen: its ideal photo point taken
    // to the measured one and to pixels by the camera (CCamera::PhcToImg). 1, or 0 as
    // ObjToPhc, for a zero pixel size, or when the camera's inversion does not settle.
    int ObjToImg(const CXYZ& obj, CXYZ& img) const;

private:
    CTin m_tin;
    CCamera m_camera;
    double m_focal;
    CXYZ m_centre;
    CRot m_rot;
    int m_ready;
};
