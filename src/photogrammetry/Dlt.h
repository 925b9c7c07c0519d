#pragma once
// CDlt: orientation of one photograph by the direct linear transformation.
//
// Frames: object points (X, Y, Z) in the control points' frame and units; photo points (x, y)
// in the units of the focal length (mm) in whatever photo frame the caller measured them: the
// recovered principal point m_pp is where the principal point lies in that frame. Lens
// distortion (m_dist) is evaluated relative to m_pp and corrects a measured point to its ideal
// position; ObjToPhc goes from the ideal projection to the measured point.
//
// Spatial DLT (11 parameters):
//   x = (b1 X + b2 Y + b3 Z + b4) / (b9 X + b10 Y + b11 Z + 1)
//   y = (b5 X + b6 Y + b7 Z + b8) / (b9 X + b10 Y + b11 Z + 1)
// Plane DLT (8 parameters, Z not used):
//   x = (b1 X + b2 Y + b3) / (b7 X + b8 Y + 1),  y = (b4 X + b5 Y + b6) / (b7 X + b8 Y + 1)
// The rotation m_rot maps object differences to the camera frame, whose z axis points back
// from the scene (points in front of the camera have a negative camera z), ROT_KPW angles.
//
// The equations use the coordinates as given. With object coordinates of thousands of metres
// (a national grid) the normal equations of the self-calibrating methods lose so many digits
// that the standard deviation stalls near 1e-9 mm and the stop rules are not met: reduce the
// object points to a local origin first.
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
    // Tries the spatial and the plane solution, keeps the one with the smaller RMS residual
    // (a tie keeps the spatial one) and runs it again so the members belong to it.
    int CalDlt();
    int CalDlt3D();
    int CalDlt2D();
    // Gauss-Newton on the 11 parameters from the plane solution's start.
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

private:
    void InitParam();
    int SetPoints(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc);
    int CalPrincipalPoint();
    int CalFocalLength();
    int CalCameraPosition();
    int CalCameraAngle();
    int CalExtWithDlt2D();
    int CalResiduals();
    // Runs the four interior/exterior steps in order; 0 at the first failure.
    int CalOrientation();
    // The shared loop of the three self-calibrating methods.
    int SelfCalib(const wchar_t* name, DIST_MODEL model, int nDist);
    // Fills the plane rows (8 unknowns) into obeq.
    void AddPlaneRows(CLeastSq& obeq) const;
};
