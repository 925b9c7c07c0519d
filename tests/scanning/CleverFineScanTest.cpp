#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "PlanTestUtil.h"
#include "common/KelTest.h"
#include "scanning/CleverFineScan.h"

namespace {

using plan_test::BoxMap;

constexpr double kAngleTol = 1e-9;  // degrees

struct Target {
    double h, v;
};

std::vector<Target> Drain(CCleverFineScan& fs) {
    std::vector<Target> out;
    double h = 0.0, v = 0.0;
    while (fs.NextPt(h, v) == 1) out.push_back({h, v});
    return out;
}

CCleverFineScan Planner(double sV, double sH, double eV, double eH, double dV, double dH) {
    CCleverFineScan fs;
    fs.SetSEVH(sV, sH, eV, eH, 1);
    fs.SetDVH(dV, dH, 1);
    return fs;
}

class FineScanTest : public kel_test::KelFixture {
protected:
    void TearDown() override {
        EXPECT_TRUE(Lines().empty());  // the planners never log
        kel_test::KelFixture::TearDown();
    }
};

// Every cell of an nH x nV grid exactly once, each target one grid step from the previous one,
// rows in V order, H alternating.
void ExpectSerpentine(const std::vector<Target>& t, double h0, double stepH, int nH, double v0,
                      double stepV, int nV) {
    ASSERT_EQ(static_cast<int>(t.size()), nH * nV);
    std::set<std::pair<long, long>> seen;
    for (std::size_t k = 0; k < t.size(); ++k) {
        const double fi = (t[k].h - h0) / stepH, fj = (t[k].v - v0) / stepV;
        const long i = std::lround(fi), j = std::lround(fj);
        ASSERT_NEAR(fi, i, 1e-9) << k;
        ASSERT_NEAR(fj, j, 1e-9) << k;
        ASSERT_TRUE(i >= 0 && i < nH && j >= 0 && j < nV) << k;
        EXPECT_EQ(j, static_cast<long>(k) / nH) << k;  // rows in order
        EXPECT_TRUE(seen.insert({i, j}).second) << "cell visited twice at " << k;
        if (k > 0) {
            const long pi = std::lround((t[k - 1].h - h0) / stepH);
            const long pj = std::lround((t[k - 1].v - v0) / stepV);
            EXPECT_EQ(std::labs(i - pi) + std::labs(j - pj), 1) << "not neighbours at " << k;
        }
    }
}

TEST_F(FineScanTest, BoxPlanIsASerpentineOverEveryCell) {
    CCleverFineScan fs = Planner(80, 10, 82, 14, 1, 2);  // 3 x 3 cells
    ASSERT_EQ(fs.CalcPtAngle(true), 9);
    const std::vector<Target> t = Drain(fs);
    ASSERT_EQ(t.size(), 9u);
    const double wantH[9] = {10, 12, 14, 14, 12, 10, 10, 12, 14};
    for (int k = 0; k < 9; ++k) {
        EXPECT_EQ(t[k].h, wantH[k]) << k;
        EXPECT_EQ(t[k].v, 80 + k / 3) << k;
    }
    // Exhausted: -1 again and again, outputs untouched.
    double h = -7.0, v = -8.0;
    EXPECT_EQ(fs.NextPt(h, v), -1);
    EXPECT_EQ(fs.NextPt(h, v), -1);
    EXPECT_EQ(h, -7.0);
    EXPECT_EQ(v, -8.0);
    EXPECT_EQ(fs.m_curH, 14.0);
    EXPECT_EQ(fs.m_curV, 82.0);
    // Planning again restarts the list.
    EXPECT_EQ(fs.CalcPtAngle(false), 9);
    EXPECT_EQ(fs.NextPt(h, v), 1);
    EXPECT_EQ(h, 10.0);

    CCleverFineScan big = Planner(60, 100, 67.5, 130.25, 0.25, 0.25);  // 31 x 122, even rows
    ASSERT_EQ(big.CalcPtAngle(true), 31 * 122);
    ExpectSerpentine(Drain(big), 100, 0.25, 122, 60, 0.25, 31);
    CCleverFineScan odd = Planner(10, 0, 12, 3, 1, 1);  // an odd number of rows
    ASSERT_EQ(odd.CalcPtAngle(true), 12);
    ExpectSerpentine(Drain(odd), 0, 1, 4, 10, 1, 3);
}

TEST_F(FineScanTest, DegenerateBoxesAndSpacings) {
    CCleverFineScan one = Planner(90, 45, 90, 45, 1, 1);
    ASSERT_EQ(one.CalcPtAngle(true), 1);
    double h = 0, v = 0;
    EXPECT_EQ(one.NextPt(h, v), 1);
    EXPECT_EQ(h, 45.0);
    EXPECT_EQ(v, 90.0);
    // A zero spacing plans the start direction only, along that axis.
    CCleverFineScan zero = Planner(80, 10, 90, 20, 0, 5);
    ASSERT_EQ(zero.CalcPtAngle(true), 3);
    EXPECT_EQ(zero.m_gridV.GetSize(), 1);
    // A negative spacing counts as its absolute value.
    CCleverFineScan neg = Planner(80, 10, 90, 20, -5, -5);
    EXPECT_EQ(neg.m_dV, 5.0);
    EXPECT_EQ(neg.CalcPtAngle(true), 9);
    // A grid that would not fit is refused, and so is one of NaN extent.
    CCleverFineScan huge = Planner(0, 0, 100, 100, 1e-6, 1e-6);
    EXPECT_EQ(huge.CalcPtAngle(true), 0);
    EXPECT_EQ(huge.GetPtCount(), 0);
    EXPECT_EQ(huge.NextPt(h, v), -1);
    CCleverFineScan nan = Planner(0, 0, 10, 10, 1, 1);
    nan.m_endH = std::nan("");
    EXPECT_EQ(nan.CalcPtAngle(true), 0);
}

TEST_F(FineScanTest, DirectionAcrossZeroBothWays) {
    CCleverFineScan up = Planner(80, 350, 80, 10, 1, 5);
    ASSERT_EQ(up.CalcPtAngle(true), 5);
    EXPECT_EQ(up.m_endH, 370.0);
    const double upH[] = {350, 355, 360, 365, 370};
    std::vector<Target> t = Drain(up);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(t[k].h, upH[k]);

    CCleverFineScan down = Planner(80, 10, 80, 350, 1, 5);
    ASSERT_EQ(down.CalcPtAngle(true), 5);
    EXPECT_EQ(down.m_endH, -10.0);
    t = Drain(down);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(t[k].h, 10.0 - 5 * k);

    // The same rule on V, and a falling run inside one turn.
    CCleverFineScan v = Planner(355, 0, 5, 0, 5, 1);
    ASSERT_EQ(v.CalcPtAngle(true), 3);
    EXPECT_EQ(v.m_signV, 1);
    EXPECT_EQ(v.m_endV, 365.0);
    CCleverFineScan fall = Planner(100, 0, 80, 0, 10, 1);
    ASSERT_EQ(fall.CalcPtAngle(true), 3);
    EXPECT_EQ(fall.m_signV, -1);
    t = Drain(fall);
    EXPECT_EQ(t[2].v, 80.0);
    // Inputs are reduced into [0, 360) first: 370 is 10.
    CCleverFineScan red = Planner(80, 370, 80, -350, 1, 1);
    EXPECT_EQ(red.m_startH, 10.0);
    EXPECT_EQ(red.m_endH, 10.0);
}

TEST_F(FineScanTest, SexagesimalInputGivesTheDecimalPlan) {
    CCleverFineScan dms;
    dms.SetSEVH(80.3, 10.15, 81.3, 11.4530, 0);  // 80.5, 10.25, 81.5, 11.758333...
    dms.SetDVH(0.15, 0.1530, 0);                 // 0.25, 0.258333...
    CCleverFineScan dec = Planner(80.5, 10.25, 81.5, 11 + 45.5 / 60, 0.25, 15.5 / 60);
    ASSERT_EQ(dms.CalcPtAngle(true), dec.CalcPtAngle(true));
    EXPECT_EQ(dms.GetPtCount(), 5 * 6);
    const std::vector<Target> a = Drain(dms), b = Drain(dec);
    for (std::size_t k = 0; k < a.size(); ++k) {
        EXPECT_NEAR(a[k].h, b[k].h, kAngleTol) << k;
        EXPECT_NEAR(a[k].v, b[k].v, kAngleTol) << k;
    }
    // Sexagesimal values are reduced as packed numbers before unpacking: 370.3000 is 10.3000
    // (10.5 degrees), and -10.3000 is 349.7000, read as 349 degrees 70 minutes.
    dms.SetSEVH(370.3, -10.3, 0, 0, 0);
    EXPECT_NEAR(dms.m_startV, 10.5, kAngleTol);
    EXPECT_NEAR(dms.m_startH, 349 + 70.0 / 60, 1e-6);
    dms.SetDVH(-0.3, 0, 0);  // the sign goes before unpacking
    EXPECT_NEAR(dms.m_dV, 0.5, kAngleTol);
}

// Distance in degrees from (h, v) to the region mapped onto the angular box; 0 inside.
double DistanceToRegion(const CPolyline& region, const BoxMap& m, double h, double v) {
    if (region.PtInPolyline(m.X(h), m.Y(v)) == 1) return 0.0;
    const int n = region.GetVertexSize();
    double best = HUGE_VAL;
    for (int i = 0; i < n; ++i) {
        const CVertex& a = *region.GetVertex(static_cast<unsigned>(i));
        const CVertex& b = *region.GetVertex(static_cast<unsigned>((i + 1) % n));
        const double ah = m.H(a.x), av = m.V(a.y), bh = m.H(b.x), bv = m.V(b.y);
        const double eh = bh - ah, ev = bv - av;
        const double len2 = eh * eh + ev * ev;
        double s = len2 > 0 ? ((h - ah) * eh + (v - av) * ev) / len2 : 0.0;
        s = std::min(1.0, std::max(0.0, s));
        best = std::min(best, std::hypot(h - (ah + s * eh), v - (av + s * ev)));
    }
    return best;
}

// Plans fs over region and checks the plan against the region: every target lies within one H
// spacing of the region on its row, every grid cell whose centre is inside the region is planned,
// each row is walked monotonically and rows alternate, and the grids mirror the plan. Gives the
// targets.
std::vector<Target> CheckRegionPlan(CCleverFineScan fs, const CPolyline& region, int expectRows) {
    fs.m_polyline = region;
    const int n = fs.CalcPtAngle(true);
    EXPECT_GT(n, 0);
    const BoxMap m(region, fs.m_startH, fs.m_endH, fs.m_startV, fs.m_endV);
    EXPECT_EQ(fs.m_gridH.GetSize(), n);
    if (n <= 0 || fs.m_gridH.GetSize() != n) return {};
    std::vector<Target> t = Drain(fs);
    std::map<double, std::vector<double>> rows;  // V -> H in measuring order
    std::vector<double> rowOrder;
    for (std::size_t k = 0; k < t.size(); ++k) {
        EXPECT_EQ(fs.m_gridH[static_cast<int>(k)], t[k].h);
        EXPECT_EQ(fs.m_gridV[static_cast<int>(k)], t[k].v);
        if (rowOrder.empty() || rowOrder.back() != t[k].v) rowOrder.push_back(t[k].v);
        rows[t[k].v].push_back(t[k].h);
        EXPECT_LE(DistanceToRegion(region, m, t[k].h, t[k].v), fs.m_dH * (1 + 1e-9))
            << "target " << k << " H " << t[k].h << " V " << t[k].v;
    }
    EXPECT_EQ(static_cast<int>(rowOrder.size()), expectRows);
    EXPECT_EQ(rows.size(), rowOrder.size()) << "a row was visited twice";
    // Full box H grid, rebuilt here: start H + k dH towards end H.
    const double signH = fs.m_endH >= fs.m_startH ? 1.0 : -1.0;
    const int nH = static_cast<int>(std::fabs(fs.m_endH - fs.m_startH) / fs.m_dH + 1.0);
    for (std::size_t r = 0; r < rowOrder.size(); ++r) {
        const std::vector<double>& hs = rows[rowOrder[r]];
        const double y = m.Y(rowOrder[r]);
        // First row ascending along the grid, then alternating; single-span rows are monotonic.
        const double dir = (r % 2 == 0 ? 1.0 : -1.0) * signH;
        int turns = 0;
        for (std::size_t k = 1; k < hs.size(); ++k)
            if ((hs[k] - hs[k - 1]) * dir <= 0) ++turns;
        EXPECT_LE(turns, 1) << "row " << r;  // at most one jump back, between two spans
        for (int i = 0; i < nH; ++i) {
            const double h = fs.m_startH + signH * i * fs.m_dH;
            if (region.PtInPolyline(m.X(h), y) != 1) continue;
            EXPECT_TRUE(std::any_of(hs.begin(), hs.end(),
                                    [&](double p) { return std::fabs(p - h) < 1e-9; }))
                << "inside cell H " << h << " of row V " << rowOrder[r] << " not planned";
        }
    }
    return t;
}

TEST_F(FineScanTest, RegionPlanCoversTheRegionInEveryDirection) {
    const CPolyline region = plan_test::Notched();
    // 41 rows at y = 0, 2.5, ..., 100: every one meets the region. Rising, falling, H 350 .. 380
    // and H 20 .. -10.
    const double boxes[4][4] = {
        {80, 30, 100, 60}, {100, 60, 80, 30}, {80, 350, 100, 20}, {80, 20, 100, 350}};
    std::vector<Target> rising;
    for (const auto& b : boxes) {
        SCOPED_TRACE("H " + std::to_string(b[1]) + " .. " + std::to_string(b[3]));
        const std::vector<Target> t =
            CheckRegionPlan(Planner(b[0], b[1], b[2], b[3], 0.5, 0.5), region, 41);
        if (&b == &boxes[0]) rising = t;
    }

    // Above the notch a descending row visits the right span first: its first target lies
    // right of its last.
    std::vector<double> row;  // row 29 (y 72.5, descending)
    for (const Target& x : rising)
        if (std::fabs(x.v - 94.5) < 1e-9) row.push_back(x.h);
    ASSERT_GT(row.size(), 4u);
    EXPECT_GT(row.front(), 50.0);
    EXPECT_LT(row.back(), 40.0);
}

TEST_F(FineScanTest, RegionEdgeCases) {
    CCleverFineScan flat = Planner(80, 30, 100, 60, 1, 1);
    flat.m_polyline = plan_test::Region({{0, 5}, {10, 5}, {20, 5}});
    EXPECT_EQ(flat.CalcPtAngle(true), 0);
    CCleverFineScan noBox = Planner(80, 30, 100, 30, 1, 1);
    noBox.m_polyline = plan_test::Notched();
    EXPECT_EQ(noBox.CalcPtAngle(true), 0);
    EXPECT_EQ(noBox.NextPt(noBox.m_curH, noBox.m_curV), -1);

    // A triangle whose right vertex lies on the row y = 5: that row hears of x = 10 twice
    // and of x = 0 once; the planner still plans its whole span (11 cells, descending).
    CCleverFineScan tri = Planner(0, 0, 10, 10, 1, 1);
    tri.m_polyline = plan_test::Region({{0, 0}, {10, 5}, {0, 10}});
    ASSERT_GT(tri.CalcPtAngle(true), 0);
    std::vector<double> row;
    for (const Target& x : Drain(tri))
        if (x.v == 5.0) row.push_back(x.h);
    ASSERT_EQ(row.size(), 11u);
    EXPECT_EQ(row.front(), 10.0);
    EXPECT_EQ(row.back(), 0.0);

    // A lowest edge lying on the first row gives that row only its corners (each corner is
    // reported by two edges and the horizontal edge): the left corner widened by one cell; the
    // right corner sits on the grid's last cell, and a span with no grid value past its start
    // is skipped.
    CCleverFineScan square = Planner(0, 0, 10, 10, 1, 1);
    square.m_polyline = plan_test::Region({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
    ASSERT_GT(square.CalcPtAngle(true), 0);
    std::vector<double> first;
    for (const Target& x : Drain(square))
        if (x.v == 0.0) first.push_back(x.h);
    EXPECT_EQ(first, (std::vector<double>{0, 1}));
}

TEST_F(FineScanTest, TimeEstimates) {
    constexpr auto kNormal = CCleverFineScan::MEAS_MODE_NORMAL;
    constexpr auto kResume = CCleverFineScan::MEAS_MODE_RESUME;
    constexpr auto kHalvex = CCleverFineScan::INSTRUMENT_HALVEX;
    CCleverFineScan fs = Planner(80, 0, 89, 9, 1, 1);
    ASSERT_EQ(fs.CalcPtAngle(true), 100);  // t = 6.4 - 0.075 = 6.325 s
    EXPECT_EQ(fs.CalcTime(kNormal, kHalvex), 693);
    EXPECT_EQ(fs.CalcTime(kResume, CCleverFineScan::INSTRUMENT_QUORIN), 633);
    double h, v;
    for (int k = 0; k < 10; ++k) fs.NextPt(h, v);
    // 90 left: 569.25 + 0.5 -> 569, and no set-up allowance any more.
    EXPECT_EQ(fs.CalcTime(kNormal, kHalvex), 569);
    EXPECT_EQ(fs.CalcRemainingTime(kNormal, kHalvex), 633);
    EXPECT_EQ(fs.CalcRemainingTime(10, kNormal, kHalvex), 63);
    while (fs.NextPt(h, v) == 1) {
    }
    EXPECT_EQ(fs.CalcTime(kNormal, kHalvex), 0);
    // The formula runs unclamped: 10 000 targets cost -1.1 s each.
    CCleverFineScan big = Planner(0, 0, 99, 99, 1, 1);
    ASSERT_EQ(big.CalcPtAngle(true), 10000);
    EXPECT_EQ(big.CalcRemainingTime(kResume, kHalvex), -10999);
}

// A copy (made through the class's own allocator) and an assignment carry the region, the box,
// the plan and the position in it; a plan that then fails drops the previous one.
TEST_F(FineScanTest, CopyAndAssignmentCarryThePlanAndItsPosition) {
    CCleverFineScan fs = Planner(80, 30, 100, 60, 0.5, 0.5);
    fs.m_polyline = plan_test::Notched();
    const int n = fs.CalcPtAngle(true);
    double h, v;
    for (int k = 0; k < 7; ++k) fs.NextPt(h, v);
    CCleverFineScan* copy = new CCleverFineScan(fs);
    CCleverFineScan assigned;
    assigned = *copy;
    EXPECT_EQ(assigned.GetNextIndex(), 7);
    EXPECT_EQ(Drain(assigned).size(), static_cast<std::size_t>(n - 7));
    EXPECT_EQ(copy->CalcPtAngle(true), n);
    delete copy;
    fs.m_endV = fs.m_startV;
    EXPECT_EQ(fs.CalcPtAngle(true), 0);
    EXPECT_EQ(fs.NextPt(h, v), -1);
}

}  // namespace
