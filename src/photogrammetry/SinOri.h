#pragma once
// CSinOri: exterior orientation of one photograph (space resection) for a camera of known
// focal length, from at least four named control points.
//
// Frames: object points in the control frame; photo points in millimetres RELATIVE TO THE
// PRINCIPAL POINT (there is no principal-point term), already corrected for distortion. With
// (X', Y', Z') = R (P - C), the collinearity equations are x = -c X'/Z', y = -c Y'/Z': the
// camera looks along its negative z axis. R is built from the angles by the rotation system
// (default ROT_KPW).
//
// Both methods solve on the object points reduced to their centroid (so that control given in
// surveying coordinates, thousands of metres from the origin, orients exactly as local control
// does) and give the centre, the angles and their standard errors back in the caller's frame.
//
// A solution is only returned when it passes these checks (one trace line each otherwise):
// centre and angles finite, every control point in front of the camera, the last correction
// small against the unknowns (kMaxLastStep), and the RMS residual at most kMaxRmsRatio of the
// photo extent of the control (the largest distance of a photo point from the principal
// point). Without them a diverging iteration can meet the relative stop rule and report a
// centre light-years away as a success. Before solving, both methods refuse photo points
// farther than kel_photo::kMaxFieldRatio focal lengths from the principal point (pixels given
// where millimetres belong).
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
    // The last correction of the centre may be at most this fraction of the distance from the
    // centre to the control's centroid, and the last angle correction at most this (rad).
    static constexpr double kMaxLastStep = 1e-4;
    // The RMS residual (length of the x and y RMS) may be at most this fraction of the photo
    // extent of the control: about 10 pixels at the edge of a 4000 x 3000 photo, far beyond
    // measuring noise. A false minimum of 4 or 5 points can leave residuals of 2 % of the
    // extent and a centre metres off.
    static constexpr double kMaxRmsRatio = 0.005;
    // CalSinOri2 stops at the first trial whose checked solution has an RMS residual at most
    // this fraction of the photo extent (exact data or very low noise; a false minimum leaves
    // much larger residuals), instead of running all 40 trials.
    static constexpr double kStopRmsRatio = 1e-3;

    CSinOri();
    CSinOri(const CSinOri& src);
    CSinOri& operator=(const CSinOri& src);
    virtual ~CSinOri();

    void Init();
    void Copy(const CSinOri& src);
    // Pairs the points by name; 0 (no message) with fewer than 3 pairs or focal <= 0.
    int Create(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc,
               double focal);
    // Initial values, then iterated collinearity least squares and the checks above. The start:
    // with 6 or more points that are not coplanar the spatial DLT's camera (which holds for
    // every attitude: horizontal, oblique, nadir or turned); otherwise, or when that fails,
    // the plane DLT in the plane of the control (its best-fitting plane for 4 or 5 points that
    // are not coplanar); as the last resort the Helmert start of a camera looking along the
    // vertical. The first start whose iteration passes the checks wins. For 4 or 5 points
    // that are not coplanar these starts may not reach a camera that does not look down; the
    // method then fails (CalSinOri2's turned trials find it).
    int CalSinOri();
    // CalSinOri's solution tried from up to 40 trial attitudes (the object points turned by
    // first angle 0, +-45, +-90 degrees and second angle 0, +-45, +-90, +-135, 180 degrees);
    // the checked trial with the smallest RMS residual wins. The first trial (not turned)
    // starts as CalSinOri does; the DLT starts would give the same camera in any turned
    // frame, so every other trial starts from a camera looking along its turned vertical (the
    // Helmert start), which makes the trials a search over attitudes. The search stops early:
    // - after the first trial when it passed the checks from a DLT that solves the control's
    //   shape directly (the spatial DLT of 6 or more points that are not coplanar, the plane
    //   DLT of coplanar control): its iteration started next to the least-squares camera, not
    //   from a guess, and no other start can do better than that minimum;
    // - at a trial whose RMS residual is at most kStopRmsRatio of the photo extent.
    // So the trials run where the start is a guess: 4 or 5 points that are not coplanar, or a
    // first trial that failed. The winner is
    // turned back and iterated once more in the given frame, so that its standard errors
    // (m_sigma) belong to the reported centre and angles. The trials write no trace lines;
    // when none succeeds one line says so.
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
    // Passes of the last SinIte (for CalSinOri2 the final pass in the given frame); 0 before.
    std::int32_t m_ite;

private:
    void InitParam();
    // Start (0 spatial DLT, 1 plane DLT, 2 Helmert), iteration and checks on m_obj as it is.
    int SolveFrom(int start);
    // Tries the starts in turn; lines of a start that is followed by another are not written.
    // *direct (when given) becomes 1 when the solution came from a DLT that solves the
    // control's shape directly (the spatial DLT, or the plane DLT of coplanar control).
    int SolveAnyStart(int* direct = nullptr);
    // The checks after the iteration; computes the residuals.
    int CheckSolution();
    // The spatial or the plane DLT start.
    int CalInitExt(int spatial);
    int CalInitExt() { return CalInitExt(0); }
    // Initial values for a camera looking roughly along the vertical: the object points are
    // reduced by their centroid and a Helmert fit maps the photo onto them; its scale m gives
    // the height (Z0 = c m + centroid Z), its rotation the third angle, and its shift the plan
    // position of the centre (the photo origin's place; X0, Y0 = shift + centroid).
    int CalInitExt2();
    int SinIte();
    int CalResiduals();

    // Length of the last centre correction and largest last angle correction of SinIte.
    double m_lastStep[2];
};
