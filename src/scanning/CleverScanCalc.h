#pragma once
// CCleverScanCalc: the scan-region polygon of a scan planner, and the crossings of one planning
// row with it.
//
// The polygon lies in the plane the region was drawn in (image x to the right, y along the
// rows; z is ignored). The planners map its bounding box linearly onto their angular box:
// min x -> start H, max x -> end H, min y -> start V, max y -> end V.
#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CCleverScanCalc {
public:
    KEL_DECLARE_ALLOCATOR

    // Tolerances of the row crossings in polygon units: `flag` true of CalcPtAngle /
    // CalcLineAngle selects the machine epsilon, false the looser one.
    static constexpr double kEpsExact = 2.220446049250313e-16;  // 2^-52
    static constexpr double kEpsLoose = 1e-12;

    CCleverScanCalc() = default;
    CCleverScanCalc(const CCleverScanCalc&) = default;
    CCleverScanCalc& operator=(const CCleverScanCalc&) = default;
    virtual ~CCleverScanCalc();

    // The region; fewer than 3 vertices means "no region, plan the whole box". The chain is
    // always treated as closed.
    CPolyline m_polyline;

protected:
    // The abscissas where the row at height y meets the polygon's edges (vertex i to i+1, the
    // last vertex closing to vertex 0), sorted ascending. Two values are "near" when they
    // differ by less than eps:
    // - a horizontal edge (end heights near) lying on the row gives both end abscissas;
    // - else a row near the start vertex's height gives its x, else near the end vertex's
    //   height the end's x;
    // - else a row strictly between the end heights gives the interpolated abscissa.
    // So a row through a vertex receives that vertex's x once from each edge meeting there.
    void RowCrossings(double y, double eps, kel_templ::CKelArray<double>& xs) const;
};
