#pragma once
// CCleverTrkScan: plans a tracking scan, horizontal sweep lines (each at one zenith angle V,
// from a start H to an end H, degrees) measured while the instrument turns at a set rotation
// speed, over an angular box or a region polygon mapped onto it; hands the lines out one by one
// and estimates the measuring time from the speed tables of the two instrument families.
//
// Calling order: SetSEVH, SetDVH, (fill m_polyline), CalcLineAngle, CalcTime, Start, NextLine
// until it returns 0, End. The planner never writes trace lines.
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "scanning/CleverScanBase.h"

class KELSCAN_API CCleverTrkScan : public CCleverScanBase {
public:
    KEL_DECLARE_ALLOCATOR

    // One row of a speed table: the instrument's rotation-speed setting and its rate.
    struct DegreesPerSecond {
        std::int32_t speed;
        double degPerSec;
    };
    // The tables, ascending in speed and in rate.
    static const DegreesPerSecond NewDegPerSec_Halvex[24];
    static const DegreesPerSecond NewDegPerSec_Quorin[8];

    // Highest speed setting each family accepts (the Halvex table ends at 125; 126 and 127
    // are accepted and run at the rate of 125). The lowest is 1 for both.
    static constexpr int kMaxSpeedHalvex = 127;
    static constexpr int kMaxSpeedQuorin = 16;
    // Turn-around allowance, seconds, of every line.
    static constexpr int kTurnSeconds = 10;
    // A region row above max y by more than this (polygon units) ends the plan.
    static constexpr double kRowStopTol = 1e-5;

    CCleverTrkScan() = default;
    CCleverTrkScan(const CCleverTrkScan& src) = default;
    CCleverTrkScan& operator=(const CCleverTrkScan& src) = default;
    ~CCleverTrkScan() override;

    // Stores the spacing (absolute values, degrees; unit != 1 means packed DDD.MMSS) and the
    // absolute value of the speed setting.
    void SetDVH(double dV, double dH, int speed, int unit);

    // Builds the lines and restarts NextLine; returns the number of lines. V and H follow the
    // fine planner's direction rule (m_endV / m_endH stored moved by 360 when the gap exceeds
    // 180).
    // Without a region every line runs from start H to end H (no back-and-forth: the
    // instrument sweeps each line the same way), one line per V grid value.
    // With a region, rows walk up from the polygon's min y, dV apart; each row's crossings
    // pair into lines (1st-2nd, 3rd-4th, ...), left to right. A row with an odd number of
    // crossings ends the plan: the lines planned before it stay and are counted. `flag`
    // selects the crossing tolerance (true 2^-52, false 1e-12). A degenerate region box, more
    // than kMaxGridCount rows, or exhausted memory plan no line (0): the previous lines are
    // always dropped first, so NextLine never hands out a stale plan.
    int CalcLineAngle(bool flag);

    int Start(int) { return 1; }  // no effect
    // Copies the next line's start H into h and its V into v and returns 1; 0 once every line
    // has been handed out, leaving h and v untouched.
    int NextLine(double& h, double& v);
    int End() { return 1; }                                             // no effect
    int MeasureArray(kel_templ::CKelArray<CXYZ, CXYZ&>&) { return 1; }  // no effect

    // Whole-plan time in seconds: for every line, (int)(length / rate + 0.5) + kTurnSeconds,
    // where length is the line's H span the shorter way round and rate comes from the speed
    // table (quorin true: Quorin, false: Halvex). Also stores the points of the plan
    // (length / dH + 1 per line; 1 for a zero dH) in m_totalPoints and m_lastLinePoints.
    // -1 for a speed setting below 1 or above the family's maximum.
    int CalcTime(bool quorin);
    // The same sum without storing the counts.
    int CalcRemainingTime(bool quorin) const;
    // Time from H = currentH on line `line` to the end of the plan: the rest of that line
    // (|currentH - end H|, currentH taken the same way round as the line), then every
    // following line in full. 0 when line is not an index of the plan; -1 for a bad speed.
    int CalcRemainingTime(int line, double currentH, bool quorin) const;

    // Speed setting for a rate in degrees per second: the first tabulated rate at or above it
    // (clamped to the table's first and last rows).
    static int SpeedFromDegrees_Halvex(double degPerSec);
    static int SpeedFromDegrees_Quorin(double degPerSec);
    // Rate in degrees per second for a speed setting: that of the first tabulated speed at or
    // above it (clamped to the table's first and last rows).
    static double DegreesFromSpeed_Halvex(int speed);
    static double DegreesFromSpeed_Quorin(int speed);

    int GetLineCount() const { return m_lineV.GetSize(); }

    std::int32_t m_speed = 0;                   // rotation-speed setting, never negative
    std::int32_t m_signV = 1;                   // vertical step sign of the last plan
    std::int32_t m_signH = 1;                   // horizontal sweep sign of the last plan
    std::int32_t m_nextLine = 0;                // index of the line NextLine hands out next
    kel_templ::CKelArray<double> m_lineV;       // V of each line
    kel_templ::CKelArray<double> m_lineStartH;  // H where each line starts
    kel_templ::CKelArray<double> m_lineEndH;    // H where each line ends
    // Sweep direction of each line: the horizontal sweep sign in a box plan, 1 in a region plan
    // (region lines always run towards rising polygon x).
    kel_templ::CKelArray<std::int32_t> m_lineDir;
    std::int32_t m_totalPoints = 0;     // written by CalcTime
    std::int32_t m_lastLinePoints = 0;  // written by CalcTime

private:
    // Rate of the stored speed in the chosen table, or a negative value for a bad speed.
    double Rate(bool quorin) const;
    // Seconds to sweep a line from a to b at rate, the shorter way round, with the turn.
    static int LineSeconds(double a, double b, double rate);
    int PolyToLine(bool flag);
    int NoImgToLine();
    void ClearLines();
    void AddLine(double v, double startH, double endH, int dir);
};
