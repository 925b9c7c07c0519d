#pragma once
// CCleverScanBase: the common base of the fine-scan and the tracking-scan planners, the region
// polygon (CCleverScanCalc) joined with the angular box and spacing (CCleverScanValues). The
// scan project takes either planner through a const reference to this class.
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "scanning/CleverScanCalc.h"
#include "scanning/CleverScanValues.h"

class KELSCAN_API CCleverScanBase : public CCleverScanCalc, public CCleverScanValues {
public:
    KEL_DECLARE_ALLOCATOR

    // Largest number of grid cells along one axis (and of polygon rows) a plan may have. A box
    // whose gap divided by its spacing exceeds it is refused: the plan would not fit the
    // controller's memory, and the count must not overflow an int.
    static constexpr int kMaxGridCount = 4000000;
    // Largest number of targets (cells of the whole grid) a fine plan may have.
    static constexpr long long kMaxTargets = 16000000;

    CCleverScanBase() = default;
    CCleverScanBase(const CCleverScanBase&) = default;
    CCleverScanBase& operator=(const CCleverScanBase&) = default;
    ~CCleverScanBase() override;

protected:
    // The direction rule between a start and an end angle, degrees: -1 when start > end, else
    // +1; when the gap exceeds 180 the shorter way round is taken instead: the sign flips and
    // end moves by 360 towards that side (+360 for a now rising run, -360 for a falling one).
    static int DirectionSign(double start, double& end);

    // Grid cells from start to end at spacing d: (int)(|start - end| / d + 1). A zero spacing
    // gives one cell (the plan is the start direction alone). -1 when the count is not finite
    // or exceeds kMaxGridCount.
    static int GridCount(double start, double end, double d);

    // The linear map of the polygon's bounding box onto the angular box, and its planning rows.
    struct PolyMap {
        double minX = 0.0, minY = 0.0, maxY = 0.0;
        double startH = 0.0, startV = 0.0;
        double scaleH = 0.0;   // degrees of H per polygon x unit (negative for a falling H)
        double scaleV = 0.0;   // degrees of V per polygon y unit (negative for a falling V)
        double rowStep = 0.0;  // polygon y between rows, >= 0 (0 for a zero spacing: one row)
        int maxRows = 0;       // most rows the walk from min y upwards may take
        double H(double x) const { return (x - minX) * scaleH + startH; }
        double V(double y) const { return (y - minY) * scaleV + startV; }
    };
    // The map for the current polygon and box, for a row walk that stops above max y +
    // stopTol. 0 when the polygon's extent or the box is degenerate (max x ~ min x, max y ~
    // min y, end H ~ start H or end V ~ start V within 2^-52) or the rows would exceed
    // kMaxGridCount; else 1.
    int MapPolygon(double stopTol, PolyMap& map) const;
};
