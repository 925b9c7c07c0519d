#pragma once
// CDlt: orientation of one photograph by the direct linear transformation.
//
// Frames: object points (X, Y, Z) in the control points' frame and units; photo points (x, y)
// in the units of the focal length (mm).
//   - The spatial solutions (CalDlt3D, CalDltIte3D, the self-calibrating ones) take the photo
//     points in whatever photo frame the caller measured them: the recovered principal point
//     m_pp is where the principal point lies in that frame.
//   - The plane solution (CalDlt2D) cannot find the principal point: it takes it as given,
//     m_fixedPp (default the photo origin), together with the focal length given to Create.
// Lens distortion (m_dist) is evaluated relative to m_pp and corrects a measured point to its
// ideal position; ObjToPhc goes from the ideal projection to the measured point.
//
// Spatial DLT (11 parameters):
//   x = (b1 X + b2 Y + b3 Z + b4) / (b9 X + b10 Y + b11 Z + 1)
//   y = (b5 X + b6 Y + b7 Z + b8) / (b9 X + b10 Y + b11 Z + 1)
// Plane DLT (8 parameters, Z not used):
//   x = (b1 X + b2 Y + b3) / (b7 X + b8 Y + 1),  y = (b4 X + b5 Y + b6) / (b7 X + b8 Y + 1)
// The rotation m_rot maps object differences to the camera frame, whose z axis points back
// from the scene (points in front of the camera have a negative camera z), ROT_KPW angles; it
// is a proper rotation (determinant +1) or the solution fails.
//
// Every solution works on the object points reduced to their centroid, so that control given
// in surveying coordinates (thousands of metres from the origin) solves as well as local
// control, and hands m_b and m_pos back in the caller's frame. On exact data the results are
// those of the unreduced equations; on noisy data the linear solutions minimise the DLT's
// algebraic residuals in the reduced frame, which differ from the unreduced ones by a factor
// per solution, so they may differ within the noise.
//
// Which solution applies is decided by the shape of the control (kel_photo::kCoplanarLimit):
// the spatial solutions refuse coplanar control (their 11 parameters are then not determined),
// the plane solution refuses control that is not coplanar or whose plane is too steep for a
// map from (X, Y) (a vertical wall), and CalDlt takes the one that applies. The plane solution,
// which is given the focal length, also refuses photo points farther than
// kel_photo::kMaxFieldRatio focal lengths from its principal point (pixels where millimetres
// belong, which over planar control fit a camera close to the plane exactly).
//
// Every failure writes one trace line and returns 0; a failed solution empties m_b.
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/Rot.h"
#include "geometry/WPK.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Dist.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class CLeastSq;

class KELSCAN_API CDlt {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kDefaultIteLim = 60;

    CDlt();
    CDlt(const CDlt& src);
    CDlt& operator=(const CDlt& src);
    ~CDlt() = default;

    void Init();
    void Copy(const CDlt& src);
    // Pairs object and photo points by name; at least 4 pairs. Stores focal (mm) for the
    // plane solution. 1 or 0.
    int Create(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc,
               double focal);
    // The plane solution for coplanar control, the spatial one otherwise (at least 6 pairs);
    // 4 or 5 pairs that are not coplanar are refused.
    int CalDlt();
    int CalDlt3D();
    int CalDlt2D();
    // Gauss-Newton on the 11 parameters, started from CalDlt3D; when the iteration ends with
    // a larger RMS residual than the linear solution, the linear solution is kept.
    int CalDltIte3D();
    // The spatial DLT solved together with the distortion of model 1, 2 or 3 (at least 8
    // pairs and a spatial start from CalDlt).
    int CalDltSelfCalib_k1k2k3k4();
    int CalDltSelfCalib_k1k2p1p2();
    int CalDltSelfCalib_k1k2k3p1p2();
    // Projects an object point to the photo; withDist != 0 moves the ideal projection to the
    // measured position through the distortion (spatial solution only), searching to eps.
    // phc takes obj's name; phc.z is not set.
    int ObjToPhc(const CXYZ& obj, CXYZ& phc, int withDist, double eps);
    // The principal point of the plane solution, in the frame of the photo points (mm).
    void SetPrincipalPoint(double x0, double y0) { m_fixedPp.SetXYZ(x0, y0, 0.0); }

    kel_templ::CKelArray<CXYZ, CXYZ&> m_obj;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_phc;
    kel_templ::CKelArray<double, double> m_b;
    double m_fixedFocal;
    double m_focal;
    double m_focalX;
    double m_focalY;
    CXYZ m_pp;
    CDist m_dist;
    CXYZ m_pos;
    CWPK m_ang;
    CRot m_rot;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_res;
    CXYZ m_rms;
    std::int32_t m_iteLim;
    double m_dStdLim;
    double m_stdLim;
    kel_text::CKelString m_info;
    // Passes of the last iterative or self-calibrating solution; 0 after a linear one.
    std::int32_t m_ite;
    // Principal point used by the plane solution (SetPrincipalPoint); kept by InitParam.
    CXYZ m_fixedPp;

private:
    void InitParam();
    int SetPoints(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc);
    int CalPrincipalPoint();
    int CalFocalLength();
    int CalCameraPosition();
    int CalCameraAngle();
    int CalExtWithDlt2D();
    int CalResiduals();
    // The solutions proper, in the frame reduced by m_origin; the public methods wrap them.
    int Dlt3D();
    int Dlt2D();
    int ChooseDlt();
    int Ite3D();
    // BeginLocal sets m_origin to the centroid of m_obj; EndLocal(r), after a solution with
    // result r, converts m_b and m_pos back into the caller's frame (when r is 1), clears
    // m_origin and returns the final result.
    void BeginLocal();
    int EndLocal(int r);
    // Object point i reduced by m_origin (without its name).
    CXYZ Local(int i) const;
    // Runs the four interior/exterior steps in order; 0 at the first failure.
    int CalOrientation();
    // The shared loop of the three self-calibrating methods.
    int SelfCalib(const wchar_t* name, DIST_MODEL model, int nDist);
    // Fills the plane rows (8 unknowns) into obeq.
    void AddPlaneRows(CLeastSq& obeq) const;

    // The local origin of the running solution (zero outside a solution).
    CXYZ m_origin;
};
