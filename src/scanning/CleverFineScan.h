#pragma once
// CCleverFineScan: plans a fine scan, a grid of single target directions (H, V in degrees),
// over an angular box or over a region polygon mapped onto that box, hands the targets out one
// by one in serpentine order and estimates the measuring time.
//
// Calling order: SetSEVH, SetDVH, (fill m_polyline), CalcPtAngle, optionally CalcTime, Start,
// NextPt until it returns -1, End. CalcPtAngle may be called again at any time; it restarts.
// The planner never writes trace lines: it reports through its results only.
#include <cstdint>

#include "geometry/KelArray.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "scanning/CleverScanBase.h"

class KELSCAN_API CCleverFineScan : public CCleverScanBase {
public:
    KEL_DECLARE_ALLOCATOR

    // Measuring mode of the time estimates. Only MEAS_MODE_NORMAL (0) changes a result: a
    // fresh scan in that mode pays the one-off set-up allowance before its first target.
    enum EMeasMode : std::int32_t {
        MEAS_MODE_NORMAL = 0,  // a fresh scan: set-up allowance before the first target
        MEAS_MODE_RESUME = 1,  // the instrument is already set up: no allowance
    };
    // Instrument family. Accepted by every time estimate and used by none: the per-target
    // time is the same for every instrument.
    enum EInstrumentType : std::int32_t {
        INSTRUMENT_HALVEX = 0,
        INSTRUMENT_QUORIN = 1,
    };

    // Per-target time t = kSecPerTarget - kSecPerTargetSlope * N seconds for a plan of N
    // targets: bigger plans run faster per target. Linear and unclamped, so it turns
    // negative above 8533 targets; callers keep their plans below that.
    static constexpr double kSecPerTarget = 6.4;
    static constexpr double kSecPerTargetSlope = 0.00075;
    // Set-up allowance, seconds, of a fresh scan in MEAS_MODE_NORMAL.
    static constexpr int kSetupSeconds = 60;

    CCleverFineScan() = default;
    CCleverFineScan(const CCleverFineScan& src) = default;
    CCleverFineScan& operator=(const CCleverFineScan& src) = default;
    ~CCleverFineScan() override;

    // Stores the spacing as absolute values, degrees; unit != 1 means packed DDD.MMSS.
    void SetDVH(double dV, double dH, int unit);

    // Builds the grids and the target list and restarts NextPt. Returns the number of targets
    // N, or 0 when nothing was planned: a degenerate region box (see MapPolygon), a grid of
    // more than kMaxGridCount cells along an axis or kMaxTargets in all, or exhausted memory.
    // The previous plan is dropped first, so after a 0 NextPt has nothing to hand out.
    // `flag` selects the crossing tolerance of a region plan (true 2^-52, false 1e-12).
    //
    // Direction: each of V and H runs from start towards end the shorter way round; when the
    // gap exceeds 180 degrees the run crosses 0/360 and m_endV / m_endH are moved by 360
    // (stored), so grid values may lie outside [0, 360) (e.g. H 350 .. 370).
    //
    // Without a region (fewer than 3 vertices) every cell of the nH x nV grid is planned,
    // rows in V order, the first row in H order, the next reversed (serpentine), so
    // consecutive rows start where the previous one ended.
    //
    // With a region, rows start at the polygon's min y (start V) and step dV upwards; each row
    // is cut by the polygon into spans between pairs of crossings (1st-2nd, 3rd-4th, ...) and
    // every span plans the H grid cells from one cell before its first crossing to one cell
    // past its second, so the region's edges are covered. Rows alternate direction, first
    // ascending; a descending row visits its spans from the last to the first. Choices of
    // this implementation where the rule is open:
    // - a row with an odd number of crossings (it passes through a vertex where the outline
    //   crosses the row, which that vertex's two edges report twice) is mended by merging
    //   coincident crossings; a row still odd after that plans nothing;
    // - "before" and "past" follow the H grid's own direction, so a box whose H falls
    //   (end H < start H) is cut the same way as a rising one.
    // After a region plan the H and V grids hold the same per-target values as the plan.
    int CalcPtAngle(bool flag);

    int Start(int) { return 1; }  // no effect
    // Copies the next target into h, v (and m_curH, m_curV) and returns 1; -1 once every
    // target has been handed out, leaving h and v untouched.
    int NextPt(double& h, double& v);
    int End() { return 1; }  // no effect

    // Seconds for the targets not yet handed out, (int)((N - next) t + 0.5), plus
    // kSetupSeconds when no target has been handed out yet and mode is MEAS_MODE_NORMAL.
    int CalcTime(EMeasMode mode, EInstrumentType type) const;
    // Seconds for `count` targets at the plan's per-target time: (int)(count t + 0.5).
    int CalcRemainingTime(int count, EMeasMode mode, EInstrumentType type) const;
    // Seconds for all N targets, those already handed out included; never the allowance.
    int CalcRemainingTime(EMeasMode mode, EInstrumentType type) const;

    int GetPtCount() const { return m_planH.GetSize(); }  // N
    int GetNextIndex() const { return m_nextIndex; }

    std::int32_t m_signV = 1;      // vertical step sign of the last plan, +1 or -1
    std::int32_t m_nextIndex = 0;  // index of the target NextPt hands out next
    double m_curV = 0.0;           // the target last handed out
    double m_curH = 0.0;
    kel_templ::CKelArray<double> m_gridH;  // H of one row, in the first row's order
    kel_templ::CKelArray<double> m_gridV;  // V of the rows, in row order
    kel_templ::CKelArray<double> m_planH;  // H of every target, in measuring order
    kel_templ::CKelArray<double> m_planV;  // V of every target, same order

private:
    // Per-target time, seconds, of the current plan.
    double SecondsPerTarget() const;
    // The target list over the region; 1, or 0 for a degenerate region box.
    int PolyToPt(bool flag);
    // The target list over the whole box; 1, or 0 when a grid is empty.
    int NoImgToPt();
    // Plans one span of a region row: the cells of `grid` (in the grid's direction `signH`)
    // from one before hFirst to one past hLast.
    void PlanSpan(const kel_templ::CKelArray<double>& grid, int signH, double hFirst, double hLast,
                  bool ascending, double v);
    void AddTarget(double h, double v);
};
