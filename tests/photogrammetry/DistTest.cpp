#include <cmath>

#include <gtest/gtest.h>

#include "common/KelTest.h"
#include "photogrammetry/Dist.h"

namespace {

class DistTest : public kel_test::KelFixture {};

CDist Model(DIST_MODEL m, std::initializer_list<double> para) {
    CDist d;
    d.SetDistModel(m);
    int i = 0;
    for (double p : para) d.m_para[i++] = p;
    return d;
}

TEST_F(DistTest, FormulasCountsAndParametersOfEveryModel) {
    const double x = 3.0, y = -2.0, r2 = 13.0;
    double dx = 0, dy = 0;
    Model(DIST_K1K2K3K4, {1e-3, 1e-5, 1e-7, 1e-9}).CalDist(x, y, dx, dy);
    const double s1 = 1e-3 * r2 + 1e-5 * r2 * r2 + 1e-7 * r2 * r2 * r2 + 1e-9 * r2 * r2 * r2 * r2;
    EXPECT_DOUBLE_EQ(dx, x * s1);
    EXPECT_DOUBLE_EQ(dy, y * s1);
    Model(DIST_K1K2P1P2, {1e-3, 1e-5, 2e-4, -3e-4}).CalDist(x, y, dx, dy);
    const double s2 = 1e-3 * r2 + 1e-5 * r2 * r2;
    EXPECT_DOUBLE_EQ(dx, x * s2 + 2e-4 * (2 * x * x + r2) + 2 * -3e-4 * x * y);
    EXPECT_DOUBLE_EQ(dy, y * s2 + -3e-4 * (2 * y * y + r2) + 2 * 2e-4 * x * y);
    Model(DIST_K1K2K3P1P2, {1e-3, 1e-5, 1e-7, 2e-4, -3e-4}).CalDist(x, y, dx, dy);
    const double s3 = s2 + 1e-7 * r2 * r2 * r2;
    EXPECT_DOUBLE_EQ(dx, x * s3 + 2e-4 * (2 * x * x + r2) + 2 * -3e-4 * x * y);
    Model(DIST_POLY8, {1e-3, 1e-5, 1, 2, 3, 4, 5, 6}).CalDist(x, y, dx, dy);
    EXPECT_DOUBLE_EQ(dx, x * s2 + 1 * x + 2 * y + 3 * x * y + 4 * y * y);
    EXPECT_DOUBLE_EQ(dy, y * s2 + 5 * x * y + 6 * x * x);  // no linear terms in y
    CDist none;
    none.CalDist(x, y, dx, dy);
    EXPECT_EQ(dx, 0.0);
    EXPECT_EQ(dy, 0.0);
    EXPECT_EQ(none.CalDistInv(x, y, dx, dy, 0.0), 1);
    EXPECT_EQ(dx, 0.0);

    // Parameter counts; an unknown model is none and leaves the parameters.
    CDist d;
    d.m_para[0] = 7.0;
    d.SetDistModel(static_cast<DIST_MODEL>(7));
    EXPECT_EQ(d.GetDistModel(), DIST_NONE);
    EXPECT_EQ(d.GetNumPara(), 0);
    EXPECT_EQ(d.m_para[0], 7.0);
    const int want[] = {0, 4, 4, 5, 8};
    for (int m = 0; m <= 4; ++m) {
        d.SetDistModel(static_cast<DIST_MODEL>(m));
        EXPECT_EQ(d.GetNumPara(), want[m]) << m;
    }
    CDist e;
    EXPECT_EQ(e.AddPara(9, 1.5), 1);
    EXPECT_EQ(e.GetNumPara(), 1);  // raised by one, not to 10
    EXPECT_EQ(e.AddPara(10, 1.0), 0);
    EXPECT_EQ(e.AddPara(-1, 1.0), 0);
    EXPECT_EQ(e.AddDist(1.0, 0.1), 1);
    EXPECT_EQ(e.AddDist(2.0, 0.2), 2);
    CDist f(e);
    EXPECT_EQ(f.m_para[9], 1.5);
    EXPECT_EQ(f.m_distortion[1], 0.2);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(DistTest, RadialTableAndFitUseTheirOwnPowers) {
    CDist d = Model(DIST_K1K2K3K4, {-2e-4, 3e-6, -1e-8, 2e-11});
    EXPECT_EQ(d.ParaToDist(0.5, 4), 1);
    ASSERT_EQ(d.m_radius.GetSize(), 4);
    EXPECT_EQ(d.m_radius[3], 1.5);
    EXPECT_EQ(d.m_distortion[0], 0.0);
    const double r = 1.5, r2 = r * r;
    EXPECT_DOUBLE_EQ(d.m_distortion[3],
                     r * (-2e-4 * r2 + 3e-6 * r2 * r2 - 1e-8 * r2 * r2 * r2 +
                          2e-11 * r2 * r2 * r2 * r2));
    CDist other = Model(DIST_K1K2P1P2, {1, 2, 3, 4});
    EXPECT_EQ(other.ParaToDist(0.5, 4), 0);

    // A table built with the powers r^2..r^8 gives k1..k4 back.
    CDist fit;
    fit.AddPara(0, 0.0);
    const double k[] = {-2e-4, 3e-6, -1e-8, 2e-11};
    for (int i = 0; i < 3; ++i) fit.AddDist(i + 1.0, 0.0);
    EXPECT_EQ(fit.DistToPara(), 0);  // three entries
    fit.m_radius.RemoveAll();
    fit.m_distortion.RemoveAll();
    for (int i = 1; i <= 12; ++i) {
        const double rr = 0.5 * i, q = rr * rr;
        fit.AddDist(rr, k[0] * q + k[1] * q * q + k[2] * q * q * q + k[3] * q * q * q * q);
    }
    ASSERT_EQ(fit.DistToPara(), 1);
    EXPECT_EQ(fit.GetDistModel(), DIST_K1K2K3K4);
    EXPECT_EQ(fit.GetNumPara(), 1);  // left as it was
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(fit.m_para[i], k[i], std::fabs(k[i]) * 1e-6) << i;
    EXPECT_TRUE(Lines().empty());

    CDist flat;
    for (int i = 0; i < 5; ++i) flat.AddDist(0.0, 1.0);
    EXPECT_EQ(flat.DistToPara(), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "CLeastSq::Solve LessquFast( m_equationNum , m_unKnownParaNum ) == FALSE",
                           "CDist::DistToPara obeq.Solve() == FALSE"}));
}

TEST_F(DistTest, InverseReturnsToTheIdealPointForEveryModel) {
    // Realistic lenses over a 6 mm half-diagonal: ideal = measured + D(measured).
    const CDist models[] = {Model(DIST_K1K2K3K4, {-2e-4, 2e-6, -1e-8, 1e-11}),
                            Model(DIST_K1K2P1P2, {-2e-4, 2e-6, 1e-5, -2e-5}),
                            Model(DIST_K1K2K3P1P2, {-2e-4, 2e-6, -1e-8, 1e-5, -2e-5}),
                            Model(DIST_POLY8, {-2e-4, 2e-6, 1e-4, -5e-5, 1e-6, 2e-6, -1e-6, 3e-6})};
    const double eps = 1e-7;
    for (const CDist& d : models) {
        for (double x = -4.8; x <= 4.8; x += 0.6) {
            for (double y = -3.6; y <= 3.6; y += 0.6) {
                double dx = 0, dy = 0;
                ASSERT_EQ(d.CalDistInv(x, y, dx, dy, eps), 1) << d.GetDistModel() << " " << x << "," << y;
                const double mx = x + dx, my = y + dy;  // where the ideal point is measured
                double cx = 0, cy = 0;
                d.CalDist(mx, my, cx, cy);
                EXPECT_LE(std::hypot(mx + cx - x, my + cy - y), eps);
            }
        }
    }
    EXPECT_TRUE(Lines().empty());

    // eps 0 succeeds only on an exact round trip; at (-5, -1) the search stalls: result 0,
    // the stall line, and the best correction is still written.
    const CDist& d = models[0];
    double dx = 0, dy = 0;
    EXPECT_EQ(d.CalDistInv(-5.0, -1.0, dx, dy, 0.0), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDist::CalDistInv x00 == x0 && y00 == y0"}));
    double cx = 0, cy = 0;
    d.CalDist(-5.0 + dx, -1.0 + dy, cx, cy);
    EXPECT_NE(dx, 0.0);
    EXPECT_LT(std::hypot(-5.0 + dx + cx + 5.0, -1.0 + dy + cy + 1.0), 1e-12);
}

}  // namespace
