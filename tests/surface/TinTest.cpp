// Triangulation, point insertion, edits and queries of CTin against independent checks.
#include <array>
#include <cmath>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include "TinCheck.h"
#include "common/KelTest.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

using tin_test::AddPoints;
using tin_test::CheckMesh;
using tin_test::Triangles;

namespace {

class TinTest : public kel_test::KelFixture {};

void RandomPoints(CTin& tin, int n, unsigned seed, double size) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.0, size);
    for (int i = 0; i < n; ++i) {
        const double x = u(rng), y = u(rng);
        tin.AddPoint(x, y, std::sin(x) + std::cos(y));
    }
}

TEST_F(TinTest, RandomSetsAreDelaunayAndUseEveryPoint) {
    for (unsigned seed : {1u, 2u, 3u}) {
        for (int n : {3, 4, 10, 200, 2000}) {
            CTin tin;
            RandomPoints(tin, n, seed, 1000.0);
            ASSERT_EQ(tin.CreateTin(0.0), 1) << "seed " << seed << " n " << n;
            EXPECT_EQ(static_cast<int>(CheckMesh(tin, true).size()), tin.GetPointSize())
                << "seed " << seed << " n " << n;
        }
    }
    // Far from the origin, as surveying coordinates are.
    CTin far;
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(0.0, 50.0);
    for (int i = 0; i < 500; ++i) far.AddPoint(2.5e6 + u(rng), 1.2e6 + u(rng), u(rng));
    ASSERT_EQ(far.CreateTin(0.0), 1);
    EXPECT_EQ(static_cast<int>(CheckMesh(far, true).size()), 500);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(TinTest, SpatialOrderMakesTheIndexOrderTriangles) {
    // Random points, and a scan: rows swept left to right, one after the other, on a slope.
    CTin random, scan, lines;
    RandomPoints(random, 1500, 11, 1000.0);
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> jitter(-0.01, 0.01);
    for (int r = 0; r < 30; ++r)
        for (int c = 0; c < 50; ++c)
            scan.AddPoint(c * 0.5 + jitter(rng) + r * 0.003, r * 0.7 + jitter(rng), r * 0.1);
    // Break lines, crossing forced vertices included.
    RandomPoints(lines, 400, 12, 100.0);
    const int a = lines.AddPoint(10.5, 20.25, 3.0), b = lines.AddPoint(90.25, 70.5, 5.0);
    const int c = lines.AddPoint(15.75, 85.5, 1.0), d = lines.AddPoint(80.5, 12.25, 2.0);
    ASSERT_EQ(lines.AddBreakLine(a, b) + lines.AddBreakLine(c, d), 2);
    // A fan of rows from a station, noise in range only: each side of the outline is a run
    // of collinear row ends, which the spatial order reaches out of turn.
    CTin sides;
    std::uniform_real_distribution<double> noise(-0.002, 0.002);
    for (int r = 0; r < 40; ++r)
        for (int c = 0; c < 40; ++c) {
            const double az = -0.5 + c / 39.0, range = 10.0 + 0.4 * r + noise(rng);
            sides.AddPoint(range * std::cos(az), range * std::sin(az), 0.01 * r);
        }
    for (CTin* tin : {&random, &scan, &lines, &sides}) {
        CTin index(*tin), spatial(*tin);
        ASSERT_EQ(index.CreateTin(0.0), 1);
        ASSERT_EQ(spatial.CreateTinSpatial(0.0), 1);
        CheckMesh(spatial, tin != &lines);
        EXPECT_EQ(spatial.GetPointSize(), index.GetPointSize());
        EXPECT_EQ(Triangles(spatial), Triangles(index));
        for (int c = 0; c < 2; ++c)
            EXPECT_TRUE(spatial.m_range[c].x == index.m_range[c].x &&
                        spatial.m_range[c].y == index.m_range[c].y &&
                        spatial.m_range[c].z == index.m_range[c].z);
        // The vertices keep their numbers; the triangles come in another order (no fallback
        // to the index order).
        for (int i = 0; i < tin->GetPointSize(); ++i)
            ASSERT_TRUE(tin->m_point[i].x == spatial.m_point[i].x &&
                        tin->m_point[i].y == spatial.m_point[i].y);
        int renumbered = 0;
        for (int i = 0; i < index.GetTriSize(); ++i)
            renumbered += index.GetTri(i).v[0] != spatial.GetTri(i).v[0];
        EXPECT_GT(renumbered, index.GetTriSize() / 2);
        // The same input gives the same numbering.
        CTin again(*tin);
        ASSERT_EQ(again.CreateTinSpatial(0.0), 1);
        ASSERT_EQ(again.GetTriSize(), spatial.GetTriSize());
        int differ = 0;
        for (int i = 0; i < spatial.GetTriSize(); ++i)
            for (int k = 0; k < 3; ++k)
                differ += again.GetTri(i).v[k] != spatial.GetTri(i).v[k] ||
                          again.GetTri(i).nb[k] != spatial.GetTri(i).nb[k];
        EXPECT_EQ(differ, 0);
    }
    EXPECT_TRUE(Lines().empty());
    // Batch duplicates (which AddPoint never lets in), a later point repeating an earlier one
    // and the other way round: the first in index order is the vertex, as in index order.
    // A few are settled in place; many send the build back to index order, numbering and all.
    for (int dups : {20, 100}) {
        CTin dup, ref;
        for (CTin* tin : {&dup, &ref}) {
            tin->BeginAddPoint(0);
            for (int i = 0; i < dups / 2; ++i)  // repeated later, at 50 + 7 i
                tin->AddPoint2(random.m_point[50 + 7 * i].x, random.m_point[50 + 7 * i].y, -1.0);
            for (int i = 0; i < 1200; ++i)
                tin->AddPoint2(random.m_point[i].x, random.m_point[i].y, i);
            for (int i = 0; i < dups / 2; ++i)  // repeating earlier ones
                tin->AddPoint2(random.m_point[3 * i].x, random.m_point[3 * i].y, -2.0);
            tin->EndAddPoint();
        }
        ClearLines();
        ASSERT_EQ(ref.CreateTin(0.0), 1);
        const std::size_t lines = Lines().size();
        ClearLines();
        ASSERT_EQ(dup.CreateTinSpatial(0.0), 1);
        EXPECT_EQ(Lines().size(), lines);  // one line for each point left out, as in index order
        ClearLines();
        ASSERT_EQ(dup.GetTriSize(), ref.GetTriSize());
        EXPECT_EQ(Triangles(dup), Triangles(ref));
        std::vector<char> usedDup(dup.GetPointSize(), 0), usedRef(ref.GetPointSize(), 0);
        int renumbered = 0;
        for (int i = 0; i < ref.GetTriSize(); ++i)
            for (int k = 0; k < 3; ++k) {
                usedDup[dup.GetTri(i).v[k]] = 1;
                usedRef[ref.GetTri(i).v[k]] = 1;
                renumbered += dup.GetTri(i).v[k] != ref.GetTri(i).v[k];
            }
        EXPECT_TRUE(usedDup == usedRef);
        if (dups > 64)
            EXPECT_EQ(renumbered, 0);
        else
            EXPECT_GT(renumbered, ref.GetTriSize());
    }
}

TEST_F(TinTest, CreateTinFailuresEmptyTheSurface) {
    struct Case {
        std::vector<CXYZ> pts;
        const char* line;
    };
    const std::vector<Case> cases = {
        {{CXYZ(0, 0, 0), CXYZ(1, 1, 1)}, "CTin::CreateTin nPt < 3"},
        {{CXYZ(5, 5, 0), CXYZ(5, 5 + 1e-7, 1), CXYZ(5 + 1e-7, 5, 2)},
         "CTin::MakeBoundaryFromPts (( m_range[1].x - m_range[0].x ) <= m_eps ) && (( "
         "m_range[1].y - m_range[0].y ) <= m_eps )"},
        {{CXYZ(0, 0, 0), CXYZ(1, 1, 0), CXYZ(2, 2, 0), CXYZ(4, 4, 0), CXYZ(3, 3, 0)},
         "CTin::MakeConvexHull count < 3"},
    };
    for (const auto& c : cases) {
        ClearLines();
        CTin tin;
        tin.SetName(L"x");
        tin.SetEPS(1e-6);
        tin.BeginAddPoint(static_cast<int>(c.pts.size()));
        for (const auto& p : c.pts) tin.AddPoint2(p.x, p.y, p.z);
        tin.EndAddPoint();
        EXPECT_EQ(tin.CreateTin(0.0), 0);
        EXPECT_EQ(Lines(), std::vector<std::string>{c.line});
        EXPECT_EQ(tin.GetPointSize(), 0);
        EXPECT_EQ(tin.GetTriSize(), 0);
        EXPECT_TRUE(tin.GetName().IsEmpty());
    }
}

TEST_F(TinTest, InsertionOnEdgesAndIntoAFinishedMesh) {
    CTin tin;
    AddPoints(tin, {{0, 0}, {4, 0}, {4, 4}, {0, 4}});
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    ASSERT_EQ(tin.GetTriSize(), 2);
    // The diagonal of the square is an interior edge: both triangles split, four result.
    const CTin::CTri& t0 = tin.GetTri(0);
    int a = -1, b = -1;
    for (int k = 0; k < 3; ++k)
        if (t0.nb[k] >= 0) {
            a = t0.v[(k + 2) % 3];
            b = t0.v[k];
        }
    ASSERT_GE(a, 0);
    const double mx = 0.5 * (tin.m_point[a].x + tin.m_point[b].x);
    const double my = 0.5 * (tin.m_point[a].y + tin.m_point[b].y);
    ASSERT_EQ(tin.DivideTri(mx, my, 1.0), 1);
    EXPECT_EQ(tin.GetTriSize(), 4);
    CheckMesh(tin, true);
    // A boundary edge: one triangle splits.
    ASSERT_EQ(tin.DivideTri(4.0, 1.0, 0.0), 1);
    EXPECT_EQ(tin.GetTriSize(), 5);
    CheckMesh(tin, true);
    EXPECT_TRUE(Lines().empty());
    // A coincident vertex and a point outside fail with the single-insertion line.
    EXPECT_EQ(tin.DivideTri(4.0, 4.0, 0.0), 0);
    EXPECT_EQ(tin.DivideTri(9.0, 1.0, 0.0), 0);
    EXPECT_EQ(Lines(),
              std::vector<std::string>(2, "CTin::DivideTri tri < 0 || status < 0 || status == 1"));
    EXPECT_EQ(tin.GetPointSize(), 6);
    // FindTri statuses from a fixed start.
    int status = 0, side = 0;
    EXPECT_EQ(tin.FindTri(99, 1, 1, status, side), -1);
    EXPECT_EQ(status, -2);
    for (const auto& q : {std::array<double, 3>{1.0, 0.5, 0}, {0.0, 4.0, 1}, {2.0, 0.0, 2}}) {
        EXPECT_GE(tin.FindTri(0, q[0], q[1], status, side), 0);
        EXPECT_EQ(status, q[2]) << q[0] << ", " << q[1];
    }
}

TEST_F(TinTest, CheckOptimTiesFlipAndCheckSwapTriRefusesConcave) {
    CTin tin;
    tin.AddPoint(0, 0, 0);      // a
    tin.AddPoint(1, 0, 0);      // p
    tin.AddPoint(1, 1, 0);      // b
    tin.AddPoint(0, 1, 0);      // d on the circle
    tin.AddPoint(0.2, 0.8, 0);  // inside
    tin.AddPoint(-3, 2, 0);     // outside
    tin.AddPoint(2, 0, 0);      // collinear with a and p
    tin.AddPoint(2, 3, 0);      // makes (a, p, b, d) concave
    EXPECT_EQ(tin.CheckOptim(0, 1, 2, 3), 0);
    EXPECT_EQ(tin.CheckOptim(0, 1, 2, 4), 0);
    EXPECT_EQ(tin.CheckOptim(0, 1, 2, 5), 1);
    EXPECT_EQ(tin.CheckOptim(0, 1, 6, 3), 0);  // collinear: left to CheckSwapTri
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(tin.CheckSwapTri(0, 1, 2, 3), 1);
    EXPECT_EQ(tin.CheckSwapTri(0, 1, 2, 7), 0);
    EXPECT_EQ(Lines(), std::vector<std::string>{"CTin::CheckSwapTri z1 >= 0.0 || z2 >= 0.0"});
}

TEST_F(TinTest, SwapTriFlipsTheDiagonalAndRelinksTheOuterNeighbour) {
    CTin tin;
    AddPoints(tin, {{0, 0}, {2, 0}, {2, 2}, {0, 2}, {1, -1}});
    ASSERT_EQ(tin.AddTri(0, 1, 2), 0);
    ASSERT_EQ(tin.AddTri(0, 2, 3), 1);
    ASSERT_EQ(tin.AddTri(0, 4, 1), 2);  // below the edge 0 - 1
    tin.UpdateTopology();
    // Slot 1 of triangle 0 faces the diagonal 0 - 2; triangle 1 links back through slot 1.
    ASSERT_EQ(tin.GetTri(1).nb[1], 0);
    EXPECT_EQ(tin.SwapTri(0, 3, 1, 1), 0);
    tin.Optimization(0, -1);
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{"CTin::SwapTri e1 < 0 || e1 > 2 || e2 < 0 || e2 > 2",
                                        "CTin::Optimization e < 0 || e > 2"}));
    ASSERT_EQ(tin.SwapTri(0, 1, 1, 1), 1);
    const CTin::CTri &a = tin.GetTri(0), &b = tin.GetTri(1), &c = tin.GetTri(2);
    EXPECT_EQ((std::array<int, 3>{a.v[0], a.v[1], a.v[2]}), (std::array<int, 3>{3, 1, 2}));
    EXPECT_EQ((std::array<int, 3>{b.v[0], b.v[1], b.v[2]}), (std::array<int, 3>{0, 1, 3}));
    // The edge 0 - 1 moved to triangle 1, and the triangle below now names it.
    EXPECT_EQ((std::array<int, 3>{b.nb[0], b.nb[1], b.nb[2]}), (std::array<int, 3>{-1, 2, 0}));
    EXPECT_EQ((std::array<int, 3>{a.nb[0], a.nb[1], a.nb[2]}), (std::array<int, 3>{-1, 1, -1}));
    EXPECT_EQ((std::array<int, 3>{c.nb[0], c.nb[1], c.nb[2]}), (std::array<int, 3>{1, -1, -1}));
    // The same links as a fresh topology of the flipped triangles.
    CTin fresh(tin);
    fresh.UpdateTopology();
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k) EXPECT_EQ(fresh.GetTri(i).nb[k], tin.GetTri(i).nb[k]);
    EXPECT_EQ(Lines().size(), 2u);
}

TEST_F(TinTest, BrokenLinksAreReportedNotFollowed) {
    // Two triangles of a square sharing the diagonal 0 - 2.
    CTin tin;
    AddPoints(tin, {{0, 0}, {2, 0}, {2, 2}, {0, 2}, {1, 1}});
    tin.AddTri(0, 1, 2);
    tin.AddTri(0, 2, 3);
    tin.UpdateTopology();
    CTin bad(tin);
    bad.m_tri[1].v[2] = 9;
    EXPECT_DEATH(bad.Optimization(0, 1), "index 9 out of range");
    // Triangle 1 no longer names triangle 0 across the diagonal: a point on it splits
    // triangle 0 alone, and the links stay mutual.
    for (int k = 0; k < 3; ++k)
        if (tin.m_tri[1].nb[k] == 0) tin.m_tri[1].nb[k] = -1;
    tin.m_tri.SetSize(4);
    int count = 2;
    tin.DivideTriOnSide(4, count, 0, 2);
    tin.m_tri.SetSize(count);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(Lines(), std::vector<std::string>{"CTin::DivideTriOnSide i >= 3"});
    CheckMesh(tin, false, false);
}

TEST_F(TinTest, AddTriTopologyAndDelTri) {
    CTin tin;
    AddPoints(tin, {{0, 0}, {0, 1}, {1, 0}, {1, 1}, {2, 0.5}});
    EXPECT_EQ(tin.AddTri(0, 2, 1), 0);
    EXPECT_EQ(tin.AddTri(2, 3, 1), 1);
    EXPECT_EQ(tin.AddTri(2, 4, 3), 2);
    EXPECT_EQ(tin.AddTri(0, 5, 1), -1);
    tin.UpdateTopology();
    CheckMesh(tin, false);
    EXPECT_EQ(tin.GetTri(0).nb[2], 1);  // edge 2 - 1
    EXPECT_EQ(tin.GetTri(1).nb[0], 0);  // edge 1 - 2
    EXPECT_EQ(tin.GetTri(1).nb[1], 2);  // edge 2 - 3
    EXPECT_EQ(tin.DelTri(0), 1);        // the last triangle moves into slot 0
    EXPECT_EQ(tin.GetTriSize(), 2);
    CheckMesh(tin, false);
    EXPECT_EQ(tin.DelTri(2), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "CTin::AddTri v1 >= nPt || v1 < 0 || v2 >= nPt || v2 < 0 || v3 >= nPt "
                           "|| v3 < 0",
                           "CTin::DelTri triId < 0 || triId >= nTri"}));
}

TEST_F(TinTest, AWalkThatCirclesTriesAgainAndThePointIsInserted) {
    // Flips by hand leave a mesh that is not Delaunay, in which the walk from triangle 0 to
    // this point goes round in a circle (as a mesh can be where rounding refused a flip).
    std::mt19937 rng(521);
    // Coordinates from the generator's raw words: the same on every platform.
    auto coord = [&rng]() { return static_cast<double>(rng() % 100000u) / 10000.0; };
    CTin tin;
    for (double c : {0.0, 10.0}) tin.AddPoint(c, 0.0, 0.0), tin.AddPoint(c, 10.0, 0.0);
    for (int i = 4; i < 12; ++i) {
        const double x = coord(), y = coord();  // in this order
        tin.AddPoint(x, y, 0.0);
    }
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    for (int f = 0; f < 40; ++f) {
        const int t1 = static_cast<int>(rng() % static_cast<unsigned>(tin.GetTriSize()));
        const int e1 = static_cast<int>(rng() % 3u);
        const int t2 = tin.GetTri(t1).nb[(e1 + 2) % 3];
        if (t2 < 0) continue;
        int e2 = 0;
        while (e2 < 3 && tin.GetTri(t2).nb[e2] != t1) ++e2;
        if (e2 < 3) tin.SwapTri(t1, e1, t2, e2);
    }
    ClearLines();  // the flips it refused
    const double x = 5.5109, y = 4.3186;
    int status = 0, side = 0;
    ASSERT_EQ(tin.FindTri(0, x, y, status, side), -1);
    ASSERT_EQ(status, -2);
    const int before = tin.GetPointSize();
    ASSERT_EQ(tin.DivideTri(x, y, 1.0), 1);
    CheckMesh(tin, false);
    int found = -1;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k)
            if (tin.GetTri(i).v[k] == before) found = i;
    EXPECT_GE(found, 0);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(TinTest, QueriesOnAPlane) {
    // z = 0.5 x + 0.25 y + 1 over [0, 8] x [0, 8]: heights are exact binary fractions.
    CTin tin;
    RandomPoints(tin, 300, 5, 8.0);
    for (double x : {0.0, 8.0})
        for (double y : {0.0, 8.0}) tin.AddPoint(x, y, 0.0);
    for (int i = 0; i < tin.GetPointSize(); ++i)
        tin.m_point[i].z = 0.5 * tin.m_point[i].x + 0.25 * tin.m_point[i].y + 1.0;
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    double z = 0.0;
    ASSERT_EQ(tin.GetHeight(3.0, 5.0, z), 1);
    EXPECT_NEAR(z, 3.75, 1e-12);
    EXPECT_EQ(tin.GetHeight(9.0, 5.0, z), 0);
    EXPECT_DOUBLE_EQ(tin.GetPlanArea(), 64.0);
    EXPECT_NEAR(tin.GetSlopeArea(), 64.0 * std::sqrt(1.0 + 0.25 + 0.0625), 1e-9);
    CXYZ n;
    ASSERT_EQ(tin.GetNormal(0, n), 1);
    const double s = std::sqrt(1.3125);
    EXPECT_NEAR(n.x, -0.5 / s, 1e-12);
    EXPECT_NEAR(n.y, -0.25 / s, 1e-12);
    EXPECT_NEAR(n.z, 1.0 / s, 1e-12);
    // A ray from above, slanted, meets the plane where its line does.
    CXYZ hit;
    int tri = -1;
    ASSERT_EQ(tin.IntersectRay(CXYZ(2.0, 2.0, 20.0), CXYZ(0.1, 0.2, -1.0), hit, tri), 1);
    // 20 - t = 0.5 (2 + 0.1 t) + 0.25 (2 + 0.2 t) + 1  ->  t = 17.5 / 1.1
    const double t = 17.5 / 1.1;
    EXPECT_NEAR(hit.x, 2.0 + 0.1 * t, 1e-9);
    EXPECT_NEAR(hit.z, 20.0 - t, 1e-9);
    EXPECT_EQ(tin.FindTriXY(hit.x, hit.y), tri);
    EXPECT_EQ(tin.IntersectRay(CXYZ(2.0, 2.0, 20.0), CXYZ(0, 0, 1), hit, tri), 0);
    // Derived values, on request: depth below the highest vertex, texture over the range.
    EXPECT_DOUBLE_EQ(tin.m_range[1].z, 7.0);
    EXPECT_EQ(tin.GetDepth().GetSize() + tin.GetTexU().GetSize() + tin.GetTexV().GetSize(), 0);
    ASSERT_TRUE(tin.UpdateDepth() && tin.UpdateTextureCoord());
    EXPECT_DOUBLE_EQ(tin.GetDepth()[tin.GetPointSize() - 4], 6.0);  // (0, 0)
    EXPECT_DOUBLE_EQ(tin.GetTexU()[tin.GetPointSize() - 1], 1.0);   // (8, 8)
}

TEST_F(TinTest, AreasOfHugeTrianglesStayFiniteWhereTheyFit) {
    // Corner differences overflow although the areas fit: 0.5 * 2e307 * 4 and, for the tilted
    // triangle, the same times sqrt(2). Areas beyond the range give inf, never NaN, and the
    // LandXML export then leaves them out.
    CTin tin;
    AddPoints(tin, {{-1e307, 0}, {1e307, 0}, {0, 4, 4}});
    ASSERT_GE(tin.AddTri(0, 1, 2), 0);
    EXPECT_DOUBLE_EQ(tin.GetPlanArea(), 4e307);
    EXPECT_DOUBLE_EQ(tin.GetSlopeArea(), 4e307 * std::sqrt(2.0));
    tin.m_point[1].x = 1.7e308;
    tin.m_point[2].y = 1.7e308;
    EXPECT_EQ(tin.GetPlanArea(), HUGE_VAL);
    EXPECT_EQ(tin.GetSlopeArea(), HUGE_VAL);
    std::ostringstream xml;
    ASSERT_EQ(WriteTinLandXml(tin, xml, "huge", SYSTEMTIME{}), 1);
    EXPECT_EQ(xml.str().find("area"), xml.str().find("areaUnit"));  // only the unit's name
}

// Builds random terrain with the given break lines (vertices x, y, z) and checks that every
// segment is a chain of mesh edges through the vertices lying on it, whose heights are linear
// between the segment's ends.
void CheckBreakLines(const std::vector<std::vector<CXYZ>>& lines, unsigned seed,
                     const std::vector<std::string>& logged) {
    CTin tin;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.0, 100.0), h(-3.0, 3.0);
    for (int i = 0; i < 400; ++i) tin.AddPoint(u(rng), u(rng), h(rng));
    for (const auto& line : lines)
        for (std::size_t k = 0; k + 1 < line.size(); ++k) {
            const int a = tin.AddPoint(line[k].x, line[k].y, line[k].z);
            const int b = tin.AddPoint(line[k + 1].x, line[k + 1].y, line[k + 1].z);
            ASSERT_EQ(tin.AddBreakLine(a, b), 1);
        }
    ASSERT_EQ(tin.CreateTin(0.0), 1) << "seed " << seed;
    EXPECT_TRUE(logged.empty()) << logged[0];
    CheckMesh(tin, false);
    std::set<std::pair<int, int>> edges;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) {
            const int v0 = tin.GetTri(i).v[k], v1 = tin.GetTri(i).v[(k + 1) % 3];
            edges.emplace(std::min(v0, v1), std::max(v0, v1));
        }
    for (std::size_t l = 0; l < lines.size(); ++l)
        for (std::size_t k = 0; k + 1 < lines[l].size(); ++k) {
            const CXYZ &a = lines[l][k], &b = lines[l][k + 1];
            const double ex = b.x - a.x, ey = b.y - a.y, len2 = ex * ex + ey * ey;
            std::vector<std::pair<double, int>> chain;
            for (int i = 0; i < tin.GetPointSize(); ++i) {
                const CXYZ& p = tin.m_point[i];
                const double t = ((p.x - a.x) * ex + (p.y - a.y) * ey) / len2;
                const double off = (p.y - a.y) * ex - (p.x - a.x) * ey;
                if (t < -1e-12 || t > 1.0 + 1e-12 || off * off > 1e-14 * len2) continue;
                chain.emplace_back(t, i);
                EXPECT_NEAR(p.z, a.z + t * (b.z - a.z), 1e-9) << "seed " << seed << " line " << l;
            }
            std::sort(chain.begin(), chain.end());
            ASSERT_GE(chain.size(), 2u);
            for (std::size_t c = 0; c + 1 < chain.size(); ++c) {
                const int v0 = chain[c].second, v1 = chain[c + 1].second;
                EXPECT_EQ(edges.count({std::min(v0, v1), std::max(v0, v1)}), 1u)
                    << "seed " << seed << " line " << l << " segment " << k << " piece " << c;
            }
        }
}

TEST_F(TinTest, BreakLinesHoldWhateverTheirOrderAndCrossings) {
    // A sharp V and a zigzag at 9 m spacing, with heights of their own.
    CheckBreakLines({{CXYZ(40, 90, 9), CXYZ(50, 10, -7), CXYZ(60, 90, 9)}}, 1, Lines());
    std::vector<CXYZ> zigzag;
    for (int k = 0; k <= 10; ++k) zigzag.emplace_back(5.0 + 9.0 * k, k % 2 ? 80.0 : 20.0, k % 3);
    CheckBreakLines({zigzag}, 2, Lines());
    // Random crossing lines; their heights from one plane, so that a crossing's height is right
    // for both lines.
    for (unsigned seed = 3; seed < 8; ++seed) {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<double> u(1.0, 99.0);
        std::vector<std::vector<CXYZ>> lines(6);
        for (auto& line : lines)
            for (int k = 0; k < 2 + static_cast<int>(rng() % 3); ++k) {
                const double x = u(rng), y = u(rng);
                line.emplace_back(x, y, 0.05 * x - 0.02 * y + 4.0);
            }
        CheckBreakLines(lines, seed, Lines());
    }
    // A segment that leaves the mesh fails the build and names itself.
    CTin gap;
    AddPoints(gap, {{0, 0}, {2, 0}, {0, 2}, {5, 5}, {6, 5}, {5, 6}});
    gap.AddTri(0, 1, 2);
    gap.AddTri(3, 4, 5);
    gap.UpdateTopology();
    gap.AddBreakLine(0, 3);
    EXPECT_EQ(gap.BreakLine(), 0);
    EXPECT_EQ(Lines(), std::vector<std::string>{"CTin::BreakLine segment 0 (0 - 3) not recovered"});
}

TEST_F(TinTest, DelTriWithAngleRemovesThinBoundaryTriangles) {
    // A bottom edge bulged slightly outward below points that start 3 m above it: the
    // triangles on it are thin at their ends.
    CTin tin;
    AddPoints(tin, {{0, 0}, {100, 0}, {50, -2}, {0, 100}, {100, 100}});
    std::mt19937 rng(9);
    std::uniform_real_distribution<double> u(0.0, 100.0), v(3.0, 100.0);
    for (int i = 0; i < 200; ++i) tin.AddPoint(u(rng), v(rng), 0.0);
    CTin thin(tin);
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    ASSERT_EQ(thin.CreateTin(15.0), 1);
    EXPECT_LT(thin.GetTriSize(), tin.GetTriSize());
    CheckMesh(thin, false, false);
    for (int i = 0; i < thin.GetTriSize(); ++i) {
        const CTin::CTri& t = thin.GetTri(i);
        int nb = 0;
        for (int k = 0; k < 3; ++k) nb += t.nb[k] < 0;
        if (nb != 1) continue;
        for (int k = 0; k < 3; ++k) {
            if (t.nb[k] >= 0) continue;
            const int u = t.v[(k + 2) % 3], w = t.v[k], c = t.v[(k + 1) % 3];
            EXPECT_GT(thin.GetAngleXY(w, u, c), 15.0);
            EXPECT_GT(thin.GetAngleXY(u, w, c), 15.0);
        }
    }
    double z = 0.0;
    EXPECT_EQ(thin.GetHeight(50.0, 50.0, z), 1);
    EXPECT_EQ(tin.DelTriWithAngle(0.0, 0), 1);
}

}  // namespace
