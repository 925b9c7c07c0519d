#pragma once
// CSinOri: exterior orientation of one photograph (space resection) for a camera of known
// focal length, from at least four named control points.
//
// Frames: object points in the control frame; photo points in millimetres RELATIVE TO THE
// PRINCIPAL POINT (there is no principal-point term), already corrected for distortion. With
// (X', Y', Z') = R (P - C), the collinearity equations are x = -c X'/Z', y = -c Y'/Z': the
// camera looks along its negative z axis. R is built from the angles by the rotation system
// (default ROT_KPW).
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/Rot.h"
#include "geometry/WPK.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CSinOri {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kDefaultIteLim = 20;

    CSinOri();
    CSinOri(const CSinOri& src);
    CSinOri& operator=(const CSinOri& src);
    virtual ~CSinOri();

    void Init();
    void Copy(const CSinOri& src);
    // Pairs the points by name; 0 (no message) with fewer than 3 pairs or focal <= 0.
    int Create(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc,
               double focal);
    // Initial values from the plane DLT, then iterated collinearity least squares.
    int CalSinOri();
    // CalSinOri from 40 trial attitudes (first angle 0, +-45, +-90 degrees; second angle 0,
    // +-45, +-90, +-135, 180 degrees); the trial with the smallest RMS residual wins.
    int CalSinOri2();
    // Partial derivatives of the rotation matrix of sys by omega (dR1), phi (dR2) and kappa
    // (dR3), each 9 values row-major. 1, or 0 for an unknown sys.
    int CalCorp(ROT_SYSTEM sys, CWPK& ang, double* dR1, double* dR2, double* dR3);
    // Projects an object point; phc takes obj's name. 0 when the point lies in the camera's
    // plane (Z' == 0).
    int ObjToPhc(const CXYZ& obj, CXYZ& phc);

    double m_focal;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_obj;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_phc;
    CXYZ m_pos;
    CWPK m_ang;
    CRot m_rot;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_res;
    CXYZ m_rms;
    std::int32_t m_iteLim;
    double m_dStdLim;
    double m_stdLim;
    ROT_SYSTEM m_rotSys;

    // Standard errors of the last SinIte's unknowns (X0, Y0, Z0, omega, phi, kappa) from the
    // engine's covariance scaled by its variance factor; zeros before a solve.
    double m_sigma[6];

private:
    void InitParam();
    int CalInitExt();
    // Initial values for a camera looking roughly along the vertical: the object points are
    // reduced by their centroid and a Helmert fit maps the photo onto them; its scale m gives
    // the height (Z0 = c m + centroid Z), its rotation the third angle, and its shift the plan
    // position of the centre (the photo origin's place; X0, Y0 = shift + centroid).
    int CalInitExt2();
    int SinIte();
    int CalResiduals();
};
