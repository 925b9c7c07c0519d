#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "PlanTestUtil.h"
#include "common/KelTest.h"
#include "scanning/CleverTrkScan.h"

namespace {

using plan_test::BoxMap;

struct Line {
    double h, v;
};

std::vector<Line> Drain(CCleverTrkScan& ts) {
    std::vector<Line> out;
    double h = 0.0, v = 0.0;
    while (ts.NextLine(h, v) == 1) out.push_back({h, v});
    return out;
}

CCleverTrkScan Planner(double sV, double sH, double eV, double eH, double dV, double dH,
                       int speed) {
    CCleverTrkScan ts;
    ts.SetSEVH(sV, sH, eV, eH, 1);
    ts.SetDVH(dV, dH, speed, 1);
    return ts;
}

class TrkScanTest : public kel_test::KelFixture {
protected:
    void TearDown() override {
        EXPECT_TRUE(Lines().empty());  // the planners never log
        kel_test::KelFixture::TearDown();
    }
};

// Every tabulated row maps onto itself both ways; between rows a rate rounds up to the next
// tabulated one, beyond the table it saturates.
TEST_F(TrkScanTest, SpeedTablesRoundTripAndRoundUp) {
    for (const auto& r : CCleverTrkScan::NewDegPerSec_Halvex) {
        EXPECT_EQ(CCleverTrkScan::DegreesFromSpeed_Halvex(r.speed), r.degPerSec);
        EXPECT_EQ(CCleverTrkScan::SpeedFromDegrees_Halvex(r.degPerSec), r.speed);
    }
    for (const auto& r : CCleverTrkScan::NewDegPerSec_Quorin)
        EXPECT_EQ(CCleverTrkScan::SpeedFromDegrees_Quorin(r.degPerSec), r.speed);
    EXPECT_EQ(CCleverTrkScan::SpeedFromDegrees_Halvex(3.1), 45);  // up to 3.49 deg/s
    EXPECT_EQ(CCleverTrkScan::SpeedFromDegrees_Quorin(3.0), 13);
    EXPECT_EQ(CCleverTrkScan::SpeedFromDegrees_Quorin(100.0), 16);
}

TEST_F(TrkScanTest, BoxLinesAndTheirTime) {
    CCleverTrkScan ts = Planner(80, 0, 80, 90, 1, 1, 100);
    ASSERT_EQ(ts.CalcLineAngle(true), 1);
    // (int)(90 / 14.21266548 + 0.5) + 10 = 6 + 10
    EXPECT_EQ(ts.CalcTime(false), 16);
    EXPECT_EQ(ts.m_totalPoints, 91);
    EXPECT_EQ(ts.m_lastLinePoints, 91);
    EXPECT_EQ(ts.CalcRemainingTime(false), 16);
    double h = -1, v = -1;
    EXPECT_EQ(ts.NextLine(h, v), 1);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(v, 80.0);
    EXPECT_EQ(ts.NextLine(h, v), 0);
    EXPECT_EQ(ts.NextLine(h, v), 0);
    EXPECT_EQ(h, 0.0);

    // Across 0/360 in both directions: every line runs start H -> end H, the same way.
    CCleverTrkScan wrap = Planner(100, 350, 90, 20, 2.5, 0.5, 11);  // Quorin 1 deg/s
    ASSERT_EQ(wrap.CalcLineAngle(true), 5);
    EXPECT_EQ(wrap.m_endH, 380.0);
    EXPECT_EQ(wrap.m_signV, -1);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(wrap.m_lineV[i], 100.0 - 2.5 * i);
        EXPECT_EQ(wrap.m_lineStartH[i], 350.0);
        EXPECT_EQ(wrap.m_lineEndH[i], 380.0);
        EXPECT_EQ(wrap.m_lineDir[i], 1);
    }
    EXPECT_EQ(wrap.CalcTime(true), 5 * (30 + 10));
    EXPECT_EQ(wrap.m_totalPoints, 5 * 61);
    CCleverTrkScan back = Planner(90, 20, 90, 350, 1, 1, 11);
    ASSERT_EQ(back.CalcLineAngle(false), 1);
    EXPECT_EQ(back.m_endH, -10.0);
    EXPECT_EQ(back.m_lineDir[0], -1);
    EXPECT_EQ(back.CalcTime(true), 30 + 10);
    // Zero spacings: one line, one point per line.
    CCleverTrkScan zero = Planner(80, 0, 90, 10, 0, 0, 11);
    ASSERT_EQ(zero.CalcLineAngle(true), 1);
    EXPECT_EQ(zero.CalcTime(true), 20);
    EXPECT_EQ(zero.m_totalPoints, 1);
    // Nothing planned yet: no lines, no time.
    CCleverTrkScan none;
    none.SetDVH(1, 1, 11, 1);
    EXPECT_EQ(none.CalcTime(true), 0);
    EXPECT_EQ(none.CalcRemainingTime(0, 0.0, true), 0);
}

TEST_F(TrkScanTest, BadSpeedsGiveMinusOne) {
    CCleverTrkScan ts = Planner(80, 0, 80, 90, 1, 1, 17);
    ts.CalcLineAngle(true);
    EXPECT_EQ(ts.CalcTime(true), -1);
    EXPECT_EQ(ts.CalcRemainingTime(true), -1);
    EXPECT_EQ(ts.CalcRemainingTime(0, 10.0, true), -1);
    EXPECT_EQ(ts.m_totalPoints, 0);  // untouched
    ts.SetDVH(1, 1, 127, 1);         // accepted, at the rate of 125
    EXPECT_EQ(ts.CalcTime(false), static_cast<int>(90 / 47.54284172 + 0.5) + 10);
    ts.SetDVH(1, 1, 128, 1);
    EXPECT_EQ(ts.CalcTime(false), -1);
    ts.SetDVH(1, 1, 0, 1);
    EXPECT_EQ(ts.CalcTime(false), -1);
    ts.SetDVH(-1, -2, -16, 1);  // stored as absolute values
    EXPECT_EQ(ts.m_speed, 16);
    EXPECT_EQ(ts.m_dH, 2.0);
    EXPECT_EQ(ts.CalcTime(true), static_cast<int>(90 / 32.0 + 0.5) + 10);
    ts.SetDVH(1, 1, INT32_MIN, 1);
    EXPECT_EQ(ts.CalcTime(false), -1);
}

TEST_F(TrkScanTest, RemainingTimeFromInsideALine) {
    CCleverTrkScan ts = Planner(80, 0, 80, 90, 1, 1, 11);  // Quorin 1 deg/s
    ts.CalcLineAngle(true);
    // Two lines stored the long way round: 350 -> 20 sweeps 30 degrees through 0.
    ts.m_lineV.Add(81);
    ts.m_lineStartH.Add(350);
    ts.m_lineEndH.Add(20);
    ts.m_lineDir.Add(1);
    ts.m_lineV.Add(82);
    ts.m_lineStartH.Add(20);
    ts.m_lineEndH.Add(350);
    ts.m_lineDir.Add(1);
    EXPECT_EQ(ts.CalcRemainingTime(true), 100 + 40 + 40);
    EXPECT_EQ(ts.CalcRemainingTime(0, 30.0, true), 60 + 10 + 80);
    // On the line 350 -> 20 (end raised to 380) H 5 is 365: 15 degrees to go.
    EXPECT_EQ(ts.CalcRemainingTime(1, 5.0, true), 15 + 10 + 40);
    EXPECT_EQ(ts.CalcRemainingTime(1, 355.0, true), 25 + 10 + 40);
    // On the line 20 -> 350 (end lowered to -10) H 355 is -5.
    EXPECT_EQ(ts.CalcRemainingTime(2, 355.0, true), 5 + 10);
    EXPECT_EQ(ts.CalcRemainingTime(3, 0.0, true), 0);
    EXPECT_EQ(ts.CalcRemainingTime(-1, 0.0, true), 0);
    EXPECT_EQ(ts.CalcTime(true), 180);
    EXPECT_EQ(ts.m_totalPoints, 91 + 31 + 31);
    EXPECT_EQ(ts.m_lastLinePoints, 31);
}

// Each region line lies inside the region and ends on its outline.
void CheckRegionLines(const CCleverTrkScan& ts, const CPolyline& region) {
    const BoxMap m(region, ts.m_startH, ts.m_endH, ts.m_startV, ts.m_endV);
    for (int i = 0; i < ts.GetLineCount(); ++i) {
        const double y = m.Y(ts.m_lineV[i]);
        const double x0 = m.X(ts.m_lineStartH[i]), x1 = m.X(ts.m_lineEndH[i]);
        EXPECT_LE(x0, x1) << i;  // region lines run towards rising x
        EXPECT_EQ(ts.m_lineDir[i], 1);
        if (x1 - x0 > 1e-6) {
            EXPECT_EQ(region.PtInPolyline(0.5 * (x0 + x1), y), 1) << i;
        }
        EXPECT_EQ(region.PtInPolyline(x0 - 1e-6, y), 0) << i;
        EXPECT_EQ(region.PtInPolyline(x1 + 1e-6, y), 0) << i;
    }
}

TEST_F(TrkScanTest, RegionLines) {
    const CPolyline region = plan_test::Notched();
    CCleverTrkScan ts = Planner(80, 30, 100, 60, 0.5, 0.1, 40);
    ts.m_polyline = region;
    // 41 rows at y = 0, 2.5, ..., 100; the 15 between the notch (57.7) and the upper left
    // vertex (96.2) give two lines; the top vertex row gives one zero-length line.
    ASSERT_EQ(ts.CalcLineAngle(true), 41 + 15);
    CheckRegionLines(ts, region);
    EXPECT_EQ(Drain(ts).size(), 56u);
    for (int i = 1; i < ts.GetLineCount(); ++i) EXPECT_GE(ts.m_lineV[i], ts.m_lineV[i - 1]);
    EXPECT_GT(ts.CalcTime(false), 56 * 10);

    // A falling V box walks the same rows (upwards in y) and still ends.
    CCleverTrkScan down = Planner(100, 60, 80, 30, 0.5, 0.1, 40);
    down.m_polyline = region;
    ASSERT_EQ(down.CalcLineAngle(true), 56);
    CheckRegionLines(down, region);
    EXPECT_EQ(down.m_lineV[0], 100.0);
    // Packed input far outside one turn: the walk is bounded and the plan sane.
    CCleverTrkScan packed;
    packed.SetSEVH(0, 0, 600, 10, 0);
    packed.SetDVH(1, 1, 40, 0);
    packed.m_polyline = region;
    const int n = packed.CalcLineAngle(true);
    EXPECT_GT(n, 0);
    EXPECT_LT(n, 1000);

    CCleverTrkScan flat = Planner(80, 30, 100, 60, 0.5, 0.1, 40);
    flat.m_polyline = plan_test::Region({{0, 1}, {5, 1}, {9, 1}});
    EXPECT_EQ(flat.CalcLineAngle(true), 0);

    // A row with an odd number of crossings ends the plan, keeping the lines before it. Rows at
    // y = 0, 1, ..., 10; the row y = 5 runs through the vertex (10, 5), which its two edges both
    // report, and meets the left edge once: three crossings.
    CCleverTrkScan tri = Planner(0, 0, 10, 10, 1, 1, 40);
    tri.m_polyline = plan_test::Region({{0, 0}, {10, 5}, {0, 10}});
    ASSERT_EQ(tri.CalcLineAngle(true), 5);
    CheckRegionLines(tri, tri.m_polyline);
    EXPECT_EQ(tri.m_lineV[4], 4.0);
    EXPECT_EQ(tri.m_lineEndH[4], 8.0);  // x = 10 * 4 / 5
}

// A copy and an assignment carry the lines and the position; a failing plan drops its lines.
TEST_F(TrkScanTest, CopyAndAssignmentCarryTheLinesAndTheirPosition) {
    CCleverTrkScan ts = Planner(80, 30, 100, 60, 0.5, 0.1, 12);
    ts.m_polyline = plan_test::Notched();
    const int n = ts.CalcLineAngle(true);
    double h, v;
    ts.NextLine(h, v);
    CCleverTrkScan assigned;
    assigned = CCleverTrkScan(ts);
    EXPECT_EQ(assigned.CalcRemainingTime(true), ts.CalcRemainingTime(true));
    EXPECT_EQ(Drain(assigned).size(), static_cast<std::size_t>(n - 1));
    ts.m_endH = ts.m_startH;
    EXPECT_EQ(ts.CalcLineAngle(true), 0);
    EXPECT_EQ(ts.NextLine(h, v), 0);
}

}  // namespace
