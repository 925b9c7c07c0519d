#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "common/KelTest.h"
#include "geometry/CalcXYZHV.h"
#include "geometry/NamePairing.h"
#include "platform/KelMath.h"
#include "platform/Time.h"

namespace {

using namespace CCalcXYZHV;

class CalcXYZHVTest : public kel_test::KelFixture {};

TEST_F(CalcXYZHVTest, XYZToHVQuadrantsVerticalSightAndRandomDirections) {
    const CXYZ st(0.0, 0.0, 0.0);
    const struct {
        double x, y, h;
    } cases[] = {{0, 10, 90.0}, {-10, 0, 180.0},  {0, -10, 270.0},  {10, -10, 315.0},
                 {10, 0, 0.0},  {-10, 10, 135.0}, {-10, -10, 225.0}};
    for (const auto& c : cases) {
        double v = -1.0, h = -1.0;
        ASSERT_EQ(XYZToHV(st, CXYZ(c.x, c.y, 0.0), 0.0, v, h), 1);
        EXPECT_NEAR(h, c.h, 1e-12) << c.x << "," << c.y;
        EXPECT_NEAR(v, 90.0, 1e-12);
    }
    double v = -1.0, h = -1.0;
    XYZToHV(st, CXYZ(10, 0, 10), 0.0, v, h);
    EXPECT_NEAR(v, 45.0, 1e-12);
    XYZToHV(st, CXYZ(10, 0, 10), 10.0, v, h);
    EXPECT_NEAR(v, 90.0, 1e-12);
    XYZToHV(st, CXYZ(10, 0, -10), 0.0, v, h);
    EXPECT_NEAR(v, 135.0, 1e-12);
    EXPECT_TRUE(Messages().empty());

    v = 12.5;
    h = 7.0;
    EXPECT_EQ(XYZToHV(st, CXYZ(0, 0, 5), 0.0, v, h), 0);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(v, 12.5);
    ASSERT_EQ(Messages().size(), 1u);
    EXPECT_EQ(Messages()[0], "CCalcXYZHV::XYZToHV||64");
    EXPECT_TRUE(Lines().empty());

    // Random directions from an offset station come back, h always in [0, 360).
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> hd(0.0, 360.0), vd(1.0, 179.0), dd(0.5, 500.0);
    const CXYZ st2(1000.0, -250.0, 12.0);
    for (int i = 0; i < 500; ++i) {
        const double h0 = hd(rng), v0 = vd(rng), d = dd(rng), ih = 1.5;
        const double hr = h0 / kel_math::kRadToDeg, vr = v0 / kel_math::kRadToDeg;
        const CXYZ t(st2.x + d * std::sin(vr) * std::cos(hr), st2.y + d * std::sin(vr) * std::sin(hr),
                     st2.z + ih + d * std::cos(vr));
        v = h = 0.0;
        ASSERT_EQ(XYZToHV(st2, t, ih, v, h), 1);
        double dh = std::fabs(h - h0);
        dh = std::fmin(dh, 360.0 - dh);
        EXPECT_LT(dh, 1e-8);
        EXPECT_NEAR(v, v0, 1e-8);
        EXPECT_GE(h, 0.0);
        EXPECT_LT(h, 360.0);
    }
}

TEST(CalcXYZHV, TaskInverseQuadrantsBacksightAndPlumbLine) {
    // Station 1.5 m below the axis; targets 10 m away in plan, 10 m above the axis (v = 45)
    // or level with it (v = 90), one in each quadrant.
    const CXYZ st(100.0, 200.0, 10.0);
    const double ih = 1.5, ns = kTaskInverseNotSet;
    const struct {
        double dn, de, dz, az;
    } cases[] = {{10, 0, 10, 0.0},    {0, 10, 0, 90.0},  {-10, 0, 0, 180.0},
                 {0, -10, 10, 270.0}, {5, 5, 0, 45.0},   {-5, 5, 0, 135.0},
                 {-5, -5, 0, 225.0},  {5, -5, 0, 315.0}, {8, 6, 0, 36.86989764584402}};
    for (const auto& c : cases) {
        const CXYZ t(st.x + c.dn, st.y + c.de, st.z + ih + c.dz);
        const double v0 = c.dz > 0.0 ? 45.0 : 90.0;
        double h = -1.0, v = -1.0;
        ASSERT_EQ(TaskInverse(st, t, ih, ns, ns, h, v), 1);
        EXPECT_NEAR(h, c.az, 1e-12) << c.dn << "," << c.de;
        EXPECT_NEAR(v, v0, 1e-12);
        // Backsight of azimuth 30 read as 100: the circle turns by +70 (wrapping past 360).
        ASSERT_EQ(TaskInverse(st, t, ih, 30.0, 100.0, h, v), 1);
        EXPECT_NEAR(h, std::fmod(c.az + 70.0, 360.0), 1e-12);
        // Backsight 300 read as 10: -290, i.e. +70 again once reduced.
        ASSERT_EQ(TaskInverse(st, t, ih, 300.0, 10.0, h, v), 1);
        EXPECT_NEAR(h, std::fmod(c.az + 70.0, 360.0), 1e-12);
        // Only one of the two set: the circle reads the azimuth.
        ASSERT_EQ(TaskInverse(st, t, ih, 30.0, ns, h, v), 1);
        EXPECT_NEAR(h, c.az, 1e-12);
    }
    double h = -1.0, v = -1.0;
    ASSERT_EQ(TaskInverse(st, CXYZ(110.0, 200.0, 1.5), ih, ns, ns, h, v), 1);
    EXPECT_NEAR(v, 135.0, 1e-12);  // 10 m below the axis
    EXPECT_EQ(TaskInverse(st, CXYZ(100.0, 200.0, 20.0), ih, 30.0, 100.0, h, v), 0);
    EXPECT_EQ(v, 0.0);
    EXPECT_NEAR(h, 70.0, 1e-12);
    EXPECT_EQ(TaskInverse(st, CXYZ(100.0, 200.0, 0.0), ih, ns, ns, h, v), 0);
    EXPECT_EQ(v, 180.0);
    EXPECT_EQ(h, 0.0);
    EXPECT_EQ(TaskInverse(st, CXYZ(100.0, 200.0, 11.5), ih, ns, ns, h, v), 0);
    EXPECT_EQ(v, 90.0);
}

TEST(CalcXYZHV, FramesSwapAxesAndScaleAndAngleFormats) {
    CXYZ p(L"A", 12.345, -6.5, 100.25);
    CnvSokuToMath(p);
    EXPECT_DOUBLE_EQ(p.x, -6500.0);
    EXPECT_DOUBLE_EQ(p.y, 12345.0);
    EXPECT_DOUBLE_EQ(p.z, 100250.0);
    CnvMathToSoku(p);
    EXPECT_NEAR(p.x, 12.345, 1e-12);
    EXPECT_NEAR(p.y, -6.5, 1e-12);
    EXPECT_NEAR(p.z, 100.25, 1e-12);
    EXPECT_STREQ(p.m_name, L"A");

    EXPECT_NEAR(Angle100To60(10.5, 0), 10.3, 1e-12);
    EXPECT_NEAR(Angle100To60(-10.5, 1), 349.3, 1e-12);
    EXPECT_NEAR(Angle60To100(10.3, 0), 10.5, 1e-12);
    // mode 1 reduces the packed value itself: 370.3000 -> 10.3000 -> 10.5 degrees.
    EXPECT_NEAR(Angle60To100(370.3, 1), 10.5, 1e-9);
}

TEST(CalcXYZHV, TimesAndTexts) {
    const SYSTEMTIME a{2026, 3, 0, 7, 23, 50, 0, 0}, b{2026, 3, 0, 7, 0, 5, 0, 0};
    EXPECT_EQ(GetTakenTime(a, b), -23 * 60 - 45);
    EXPECT_EQ(GetTakenTime(b, a), 23 * 60 + 45);
    EXPECT_STREQ(TimeToString(a), L"202603072350");

    EXPECT_STREQ(ByoToStr(3661), L"01:01:01");
    EXPECT_STREQ(ByoToStr(59), L"00:00:59");
    EXPECT_STREQ(ByoToStr(360000), L"100:00:00");
    EXPECT_STREQ(ByoToStr(0), L"00:00:00");

    kel_time::SetLocalOffset(true, 540);
    FILETIME f1{}, f2{};
    SystemTimeToFileTime(&a, &f1);
    f2 = kel_time::FromTicks(kel_time::ToTicks(f1) + 10000);  // one millisecond later
    EXPECT_EQ(FILETIMEFastRate(f1, f1), 2);
    EXPECT_EQ(FILETIMEFastRate(f2, f1), 1);
    EXPECT_EQ(FILETIMEFastRate(f1, f2), 0);
    kel_time::SetLocalOffset(false, 0);

    for (const wchar_t* bad : {L"", L".", L".a", L"a.", L"a..b", L"a/b", L"a|b", L"a\\b", L"c:",
                               L"a*", L"a?", L"\"a", L"<a", L"a>"})
        EXPECT_EQ(ChkFileFolderName(bad), 0) << kel_text::WideToUtf8(bad);
    EXPECT_EQ(ChkFileFolderName(L"a.b"), 1);
    EXPECT_EQ(ChkFileFolderName(L"Scan 01"), 1);
}

TEST(NamePairing, FirstMatchInOrderDuplicatesAndDrops) {
    kel_templ::CKelArray<CXYZ, CXYZ&> first, second, a, b;
    for (const wchar_t* n : {L"P1", L"P2", L"P3", L"P1"}) {
        CXYZ p(n, 1, 2, 3);
        first.Add(p);
    }
    const wchar_t* names[] = {L"P2", L"P1", L"X", L"P1", L"p3"};
    for (int i = 0; i < 5; ++i) {
        CXYZ p(names[i], i, 0, 0);
        second.Add(p);
    }
    ASSERT_EQ(kel_geom::PairPointsByName(first, second, a, b), 3);
    ASSERT_EQ(a.GetSize(), 3);
    ASSERT_EQ(b.GetSize(), 3);
    EXPECT_STREQ(a[0].m_name, L"P1");
    EXPECT_EQ(b[0].x, 1.0);  // the first P1 of the source list
    EXPECT_STREQ(a[1].m_name, L"P2");
    EXPECT_EQ(b[1].x, 0.0);
    EXPECT_STREQ(a[2].m_name, L"P1");  // a repeated target name matches the same source point
    EXPECT_EQ(b[2].x, 1.0);

    // More pairs than source points: three targets named Q against one source Q.
    kel_templ::CKelArray<CXYZ, CXYZ&> t3, s1;
    for (int i = 0; i < 3; ++i) {
        CXYZ p(L"Q", i, 0, 0);
        t3.Add(p);
    }
    CXYZ q(L"Q", 9, 9, 9);
    s1.Add(q);
    EXPECT_EQ(kel_geom::PairPointsByName(t3, s1, a, b), 3);
    EXPECT_EQ(b[2].x, 9.0);
}

}  // namespace
