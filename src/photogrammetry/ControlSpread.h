#pragma once
// The shape of a set of control points, shared by the orientation methods: their centroid (the
// local origin every method solves in, so that coordinates thousands of metres from the origin
// orient as well as local ones) and the principal axes of their scatter, which tell a spatial
// field from a plane and give the plane's own frame.
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Export.h"

namespace kel_photo {

// A field whose smallest scatter eigenvalue is below this fraction of the largest is treated
// as a plane (a spread across the plane of 1/1000 of the spread along it). Scale-free: the
// test gives the same answer in metres, millimetres or surveying coordinates.
constexpr double kCoplanarLimit = 1e-6;

// Photo points may lie at most this multiple of the focal length from the principal point (a
// field angle of 78.7 degrees off the axis): no lens that the collinearity equations describe
// sees farther out. Methods that are given the focal length refuse photo points beyond it,
// which are almost always pixels given where millimetres belong; over planar control such
// points fit a camera close to the plane exactly and would otherwise pass every other check.
constexpr double kMaxFieldRatio = 5.0;

struct KELSCAN_API ControlSpread {
    CXYZ centroid;
    // Unit principal axes (rows, largest spread first) and the mean squared spread along each.
    // axis[2] is the normal of the best-fitting plane; the rows form a right-handed frame.
    double axis[3][3];
    double spread[3];

    // 1 when the points lie (within kCoplanarLimit) in one plane; also for fewer than 3 points
    // and for points that coincide.
    int IsCoplanar() const { return spread[2] <= kCoplanarLimit * spread[0] ? 1 : 0; }
    // p - centroid in the plane frame (x, y in the plane, z along the normal).
    CXYZ ToPlane(const CXYZ& p) const;
    // The inverse of ToPlane, without the centroid (a direction or a centred point).
    CXYZ FromPlane(double u, double v, double w) const;
};

// Centroid and principal axes of pts (all three coordinates). An empty list gives the origin.
KELSCAN_API ControlSpread CalControlSpread(const kel_templ::CKelArray<CXYZ, CXYZ&>& pts);

}  // namespace kel_photo
