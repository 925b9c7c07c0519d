#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>
#include <set>
#include <vector>

#include "common/KelTest.h"
#include "geometry/Polyline.h"
#include "platform/KelMath.h"

namespace {

CPolyline MakePolyline(std::initializer_list<std::array<double, 3>> pts, bool closed) {
    CPolyline pl(closed ? CPolyline::kClosed : 0, 0);
    for (const auto& p : pts) {
        CVertex v(p[0], p[1], p[2], 0);
        pl.AddVertex(v);
    }
    return pl;
}

CPolyline UnitSquare() { return MakePolyline({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}, true); }

class PolylineTest : public kel_test::KelFixture {};

TEST(Vertex, FlagsAndConstructors) {
    CVertex v;
    EXPECT_EQ(v.GetVertexFlag(), 32);
    EXPECT_STREQ(v.m_code, L"0");
    v.SetSplineFrame(1);
    v.SetSplineVertex(1);
    EXPECT_EQ(v.IsSplineFrame(), 1);
    EXPECT_EQ(v.CheckVertexFlag(8 | 16 | 32), 1);
    v.SetSplineFrame(0);
    EXPECT_EQ(v.IsSplineFrame(), 0);
    EXPECT_EQ(v.CheckVertexFlag(8 | 16), 0);
    CXYZ p(L"N", 1, 2, 3);
    p.m_code = L"C";
    const CVertex w(p, 16);
    CVertex u;
    u = w;
    EXPECT_STREQ(u.m_name, L"N");
    EXPECT_STREQ(u.m_code, L"C");
    EXPECT_EQ(u.GetVertexFlag(), 16);
}

// Winding number of a simple polygon at a point not on its boundary, computed by summing
// angles: an independent check of the crossing rule.
int Winding(const CPolyline& pl, double x, double y) {
    double sum = 0.0;
    const int n = pl.GetVertexSize();
    for (int i = 0; i < n; ++i) {
        const CVertex* a = pl.GetVertex(i);
        const CVertex* b = pl.GetVertex((i + 1) % n);
        sum += std::atan2((a->x - x) * (b->y - y) - (a->y - y) * (b->x - x),
                          (a->x - x) * (b->x - x) + (a->y - y) * (b->y - y));
    }
    return static_cast<int>(std::lround(sum / (2 * kel_math::kPi)));
}

TEST_F(PolylineTest, SquareBoundariesAndStarPolygonsFollowTheCrossingRule) {
    const CPolyline sq = UnitSquare();
    EXPECT_EQ(sq.PtInPolyline(1, 0.5), 1);
    EXPECT_EQ(sq.PtInPolyline(0, 0.5), 0);
    EXPECT_EQ(sq.PtInPolyline(0.5, 0), 1);
    EXPECT_EQ(sq.PtInPolyline(0.5, 1), 0);
    EXPECT_EQ(sq.PtInPolyline(0.5, 0.5), 1);
    EXPECT_EQ(sq.PolyPtIn(0.5, 0.95, 0.1), 0);
    EXPECT_EQ(sq.PolyPtIn(0.5, -0.05, 0.1), 1);  // the y interval is [-0.1, 0.9)
    CPolyline open = sq;
    open.Open();
    EXPECT_EQ(open.PtInPolyline(0.5, 0.5), 1);  // the closing edge counts anyway
    EXPECT_TRUE(Lines().empty());

    // Random star polygons against the winding number.
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> r(0.3, 1.0), u(-1.1, 1.1);
    for (int poly = 0; poly < 20; ++poly) {
        CPolyline pl(CPolyline::kClosed, 0);
        const int n = 5 + poly;
        for (int i = 0; i < n; ++i) {
            const double a = 2 * kel_math::kPi * i / n, rad = r(rng);
            CVertex v(rad * std::cos(a), rad * std::sin(a), 0.0, 0);
            pl.AddVertex(v);
        }
        for (int k = 0; k < 400; ++k) {
            const double x = u(rng), y = u(rng);
            EXPECT_EQ(pl.PtInPolyline(x, y), std::abs(Winding(pl, x, y))) << x << "," << y;
        }
    }
}

TEST(Polyline, TurnOfConvexChainsAndNormalize) {
    for (int n = 3; n < 40; n += 3) {
        CPolyline pl(CPolyline::kClosed, 0);
        for (int i = 0; i < n; ++i) {
            const double a = 2 * kel_math::kPi * i / n;
            CVertex v(2.0 + std::cos(a), -1.0 + 0.5 * std::sin(a), 0.0, 0);
            pl.AddVertex(v);
        }
        EXPECT_EQ(pl.CheckTurn(), -1);  // counter-clockwise as built
        pl.Normalize();
        EXPECT_EQ(pl.CheckTurn(), -1);
        EXPECT_EQ(pl.GetVertex(1)->y, -1.0 + 0.5 * std::sin(2 * kel_math::kPi / n));
        pl.Reverse();
        EXPECT_EQ(pl.CheckTurn(), 1);
        pl.Normalize();
        EXPECT_EQ(pl.CheckTurn(), -1);
    }
    EXPECT_EQ(MakePolyline({{0, 0, 0}, {1, 1, 0}}, true).CheckTurn(), 0);
    CPolyline flat = MakePolyline({{0, 0, 0}, {1, 1, 0}, {2, 2, 0}}, false);
    flat.Normalize();  // degenerate: reversed too
    EXPECT_EQ(flat.GetVertex(0)->x, 2.0);
}

TEST_F(PolylineTest, IndexErrorsLogOneLineEach) {
    CPolyline pl = UnitSquare();
    CVertex v(5, 5, 5, 0);
    EXPECT_EQ(pl.InsertVertex(4, v), 0);
    EXPECT_EQ(pl.AddVertex(v), 4);
    EXPECT_EQ(pl.InsertVertex(0, v), 1);
    EXPECT_EQ(pl.GetVertexSize(), 6);
    EXPECT_EQ(pl.GetVertex(6), nullptr);
    EXPECT_EQ(pl.SetVertex(6, v), 0);
    EXPECT_EQ(pl.DelVertex(6), 0);
    EXPECT_EQ(pl.GetVertex(0xFFFFFFFFu), nullptr);  // -1 as an int
    EXPECT_EQ(pl.GetDistance(0, 9), 0.0);
    EXPECT_EQ(pl.GetDistanceXY(8, 9), 0.0);  // both bad: still one line
    const std::vector<std::string> want = {
        "CPolyline::InsertVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::GetVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::SetVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::DelVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::GetVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::GetVertex vertex.GetUpperBound()<(int)index",
        "CPolyline::GetVertex vertex.GetUpperBound()<(int)index"};
    EXPECT_EQ(Lines(), want);
    EXPECT_EQ(pl.DelVertex(0), 1);
    EXPECT_EQ(pl.GetVertexSize(), 5);
    pl.SetVertexSize(7);
    EXPECT_EQ(pl.GetVertex(6)->GetVertexFlag(), 32);
    EXPECT_STREQ(pl.GetVertex(6)->m_code, L"0");
}

TEST(Polyline, FlagsRangeAndLengths) {
    CPolyline pl(0, 0);
    EXPECT_STREQ(pl.m_name, L"0");
    EXPECT_EQ(pl.SetSplineFlag(5), 0);
    EXPECT_EQ(pl.GetSplineFlag(), 0);
    EXPECT_EQ(pl.SetSplineFlag(1000), 1);
    EXPECT_EQ(pl.GetSplineFlag(), 1000);
    EXPECT_EQ(CPolyline(0, 7).GetSplineFlag(), 6);  // both bits of 6 set
    EXPECT_EQ(CPolyline(0, 1000 | 1).GetSplineFlag(), 1000);

    double a, b, c, d, e, f;
    EXPECT_EQ(pl.GetRange(a, b, c, d, e, f), 0);
    EXPECT_EQ(a + b + c + d + e + f, 0.0);
    CVertex one(3, 4, 0, 0);
    pl.AddVertex(one);
    EXPECT_EQ(pl.GetTotalLength(), 0.0);
    pl.Close();
    EXPECT_EQ(pl.GetTotalLength(), 0.0);

    CPolyline tri = MakePolyline({{0, 0, 0}, {3, 0, 4}, {3, 4, -1}}, false);
    EXPECT_EQ(tri.GetRange(a, b, c, d, e, f), 1);
    EXPECT_EQ((std::vector<double>{a, b, c, d, e, f}), (std::vector<double>{0, 3, 0, 4, -1, 4}));
    EXPECT_DOUBLE_EQ(tri.GetTotalLengthXY(), 7.0);
    EXPECT_DOUBLE_EQ(tri.GetTotalLength(), 5.0 + std::sqrt(41.0));
    tri.Close();
    EXPECT_DOUBLE_EQ(tri.GetTotalLengthXY(), 12.0);
    EXPECT_DOUBLE_EQ(tri.GetDistanceXY(2, 0), 5.0);
}

TEST(Polyline, SplinesSampleCountsInterpolationAndFlatness) {
    // Closed Catmull-Rom passes through every control point at whole parameters.
    CPolyline cr = MakePolyline({{0, 0, 2}, {4, 0, 2}, {4, 3, 2}, {0, 3, 2}}, true);
    const CPolyline ctrl = cr;
    cr.CtmlRomSpline(4);
    ASSERT_EQ(cr.GetVertexSize(), 4 * 4 + 1);  // t = 0, 0.25, ..., 4
    for (int i = 0; i <= 4; ++i) {
        const CVertex* s = cr.GetVertex(i * 4);
        const CVertex* c = ctrl.GetVertex(i % 4);
        EXPECT_NEAR(s->x, c->x, 1e-12);
        EXPECT_NEAR(s->y, c->y, 1e-12);
    }
    for (int i = 0; i < cr.GetVertexSize(); ++i) {
        EXPECT_EQ(cr.GetVertex(i)->z, 2.0);  // exactly flat
        EXPECT_EQ(cr.GetVertex(i)->GetVertexFlag(), 32 | 8);
    }

    // An open B-spline over equally spaced collinear points reproduces the line inside and
    // gives the samples -1, 0, h, ..., n - 1, n.
    CPolyline line = MakePolyline({{0, 0, 0}, {1, 2, 1}, {2, 4, 2}, {3, 6, 3}, {4, 8, 4}}, false);
    line.Spline(3);
    ASSERT_EQ(line.GetVertexSize(), 1 + 4 * 3 + 1 + 1);
    for (int i = 4; i <= 9; ++i) {  // t in [1, 3): no clamped control point in the window
        const CVertex* s = line.GetVertex(i);
        EXPECT_NEAR(s->y, 2 * s->x, 1e-12);
        EXPECT_NEAR(s->z, s->x, 1e-12);
        EXPECT_NEAR(s->x, (i - 1) / 3.0, 1e-12);
    }
    // The count does not depend on rounding: 5 open vertices give (5 - 1) k + 3 samples, the
    // last one at the clamped end.
    for (const int k : {7, 100}) {
        CPolyline open =
            MakePolyline({{0, 0, 0}, {1, 2, 1}, {3, 1, 0}, {4, 5, 2}, {6, 0, 1}}, false);
        CPolyline cr = open;
        open.Spline(k);
        cr.CtmlRomSpline(k);
        EXPECT_EQ(open.GetVertexSize(), 4 * k + 3) << k;
        EXPECT_EQ(cr.GetVertexSize(), 4 * k + 3) << k;
    }
    // A repeated last vertex is dropped before sampling; fewer than 3 vertices: untouched.
    CPolyline rep = MakePolyline({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 0, 0}}, true);
    rep.Spline(2);
    EXPECT_EQ(rep.GetVertexSize(), 3 * 2 + 1);
    CPolyline two = MakePolyline({{0, 0, 0}, {1, 0, 0}}, false);
    EXPECT_EQ(two.Spline(5), 1);
    EXPECT_EQ(two.GetVertexSize(), 2);
}

TEST(Polyline, InterpolateVertexKeepsCornersAndSpacing) {
    CPolyline pl = MakePolyline({{0, 0, 0}, {10, 0, 0}, {10, 2.5, 0}}, true);
    EXPECT_EQ(pl.InterpolateVertex(0.0), 0);
    EXPECT_EQ(pl.InterpolateVertex(3.0), 1);
    // Edge 10: +3 (3, 6, 9); edge 2.5: none; closing edge sqrt(106.25) ~ 10.31: +3.
    ASSERT_EQ(pl.GetVertexSize(), 3 + 3 + 3);
    EXPECT_EQ(pl.GetVertex(1)->x, 3.0);
    EXPECT_EQ(pl.GetVertex(1)->GetVertexFlag(), 32);
    EXPECT_EQ(pl.GetVertex(4)->x, 10.0);
    EXPECT_EQ(pl.GetVertex(4)->GetVertexFlag(), 0);
    const double before = 10 + 2.5 + std::sqrt(106.25);
    EXPECT_NEAR(pl.GetTotalLength(), before, 1e-9);
    for (int i = 0; i < pl.GetVertexSize(); ++i)
        EXPECT_LE(pl.GetDistance(i, (i + 1) % pl.GetVertexSize()), 3.0 + 1e-12);
}

TEST(QuickSortKey, SortsKeysAndReportsFormerPositions) {
    std::mt19937 rng(3);
    std::uniform_int_distribution<int> d(0, 50);
    for (int order = 0; order <= 1; ++order) {
        kel_templ::CKelArray<double, double> keys, orig;
        for (int i = 0; i < 1000; ++i) keys.Add(d(rng));
        orig = keys;
        kel_templ::CKelArray<int, int> index;
        index.Add(99);
        QuickSortKey(keys, index, order);
        ASSERT_EQ(index.GetSize(), 1000);
        std::set<int> seen;
        for (int i = 0; i < 1000; ++i) {
            seen.insert(index[i]);
            EXPECT_EQ(keys[i], orig[index[i]]);
            if (i > 0) {
                if (order != 0)
                    EXPECT_LE(keys[i - 1], keys[i]);
                else
                    EXPECT_GE(keys[i - 1], keys[i]);
            }
        }
        EXPECT_EQ(seen.size(), 1000u);
    }
    kel_templ::CKelArray<double, double> none;
    kel_templ::CKelArray<int, int> idx;
    QuickSortKey(none, idx, 0);
    EXPECT_EQ(idx.GetSize(), 0);
}

}  // namespace
