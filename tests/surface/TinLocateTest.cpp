// Point location and the indexes behind CreateTin and AddPoint, against plain reference
// implementations: the grid-started walk against the walk from the previous triangle, the
// start hull against the array-removal passes, AddPoint against the linear first match.
#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "../../bench/TinPoints.h"
#include "TinCheck.h"
#include "common/KelTest.h"
#include "geometry/Polyline.h"
#include "surface/Tin.h"

using tin_test::CheckMesh;
using tin_test::Triangles;

namespace {

class TinLocateTest : public kel_test::KelFixture {};

// Builds the same points twice, with and without the locate grid.
void BuildBoth(const std::vector<CXYZ>& pts, CTin& grid, CTin& plain) {
    for (CTin* tin : {&grid, &plain}) {
        tin->BeginAddPoint(static_cast<int>(pts.size()));
        for (const CXYZ& p : pts) tin->AddPoint2(p.x, p.y, p.z);
        tin->EndAddPoint();
    }
    grid.UseLocateGrid(true);
    plain.UseLocateGrid(false);
    ASSERT_EQ(grid.CreateTin(0.0), 1);
    ASSERT_EQ(plain.CreateTin(0.0), 1);
}

void ExpectSameMesh(const CTin& a, const CTin& b) {
    ASSERT_EQ(a.GetTriSize(), b.GetTriSize());
    for (int i = 0; i < a.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) {
            ASSERT_EQ(a.GetTri(i).v[k], b.GetTri(i).v[k]) << "triangle " << i;
            ASSERT_EQ(a.GetTri(i).nb[k], b.GetTri(i).nb[k]) << "triangle " << i;
        }
}

TEST_F(TinLocateTest, GridStartFindsThePlainWalksTriangles) {
    // Points in general position, in three orders: random, rows (as a scan delivers them) and
    // rows in a random order. Every point is found in the same triangle either way, so the
    // two meshes agree slot for slot, not only as sets of triangles.
    std::mt19937 rng(17);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    for (int order = 0; order < 3; ++order) {
        std::vector<CXYZ> pts;
        if (order == 0) {
            for (int i = 0; i < 4000; ++i) pts.emplace_back(500.0 * u(rng), 300.0 * u(rng), u(rng));
        } else {
            for (int r = 0; r < 60; ++r)
                for (int c = 0; c < 60; ++c) {
                    const int cc = r % 2 == 0 ? c : 59 - c;
                    pts.emplace_back(cc + 0.3 * u(rng), r + 0.3 * u(rng), 0.0);
                }
            if (order == 2) {
                // Whole rows shuffled: long jumps between consecutive points.
                std::vector<std::vector<CXYZ>> rows;
                for (int r = 0; r < 60; ++r)
                    rows.emplace_back(pts.begin() + 60 * r, pts.begin() + 60 * (r + 1));
                std::shuffle(rows.begin(), rows.end(), rng);
                pts.clear();
                for (const auto& row : rows) pts.insert(pts.end(), row.begin(), row.end());
            }
        }
        CTin grid, plain;
        BuildBoth(pts, grid, plain);
        ExpectSameMesh(grid, plain);
        EXPECT_EQ(CheckMesh(grid, order != 0).size(), pts.size()) << order;
    }
    EXPECT_TRUE(Lines().empty());
}

// Rows of a scan: three consecutive points of a row are nearly collinear, so a new point can
// lie within the tolerance of a sliver triangle's edge lines while beyond the sliver. Every
// point must still land in the mesh, unfolded, whichever triangle the walk starts from.
TEST_F(TinLocateTest, ScanRowsAreTriangulatedWithEveryPoint) {
    std::vector<CXYZ> pts;
    tin_bench::MakePoints(tin_bench::PointSet::kScan, 160000,
                          [&](double x, double y, double z) { pts.emplace_back(x, y, z); });
    CTin grid, plain;
    BuildBoth(pts, grid, plain);
    for (const CTin* tin : {&grid, &plain}) EXPECT_EQ(CheckMesh(*tin, false).size(), pts.size());
    // Hundreds of these points lie on an edge within the tolerance, and which of the edge's
    // two triangles reports them depends on the side the walk arrives from. The split makes
    // the same four triangles either way, numbered differently, so here the meshes agree as
    // sets of triangles.
    EXPECT_EQ(Triangles(grid), Triangles(plain));
}

TEST_F(TinLocateTest, CocircularGridAndDuplicatesMatchThePlainWalk) {
    // A regular grid, every cell cocircular, in row order with repeated points: the flips on
    // ties and the skipped duplicates (each with its line) come out alike.
    const int m = 40;
    std::vector<CXYZ> pts;
    for (int r = 0; r < m; ++r)
        for (int c = 0; c < m; ++c) {
            pts.emplace_back(2.0 * c, 2.0 * r, r);
            if ((r * m + c) % 97 == 5) pts.emplace_back(2.0 * c, 2.0 * r + 4e-7, -1.0);
        }
    CTin grid, plain;
    BuildBoth(pts, grid, plain);
    ExpectSameMesh(grid, plain);
    EXPECT_EQ(static_cast<int>(CheckMesh(grid, false).size()), m * m);
    EXPECT_EQ(grid.GetTriSize(), 2 * m * m - 4 * (m - 1) - 2);
    ASSERT_EQ(Lines().size(), 2u * 17u);  // 17 duplicates, once per mesh
    EXPECT_EQ(Lines()[0], "CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1");
}

TEST_F(TinLocateTest, DeepFlipCascadeOnALargeGrid) {
    // Row order over a cocircular grid, every boundary point collinear with the corners, makes
    // long flip cascades; the mesh must come out whole (this also runs under the sanitizers,
    // where stack frames are large).
    const int m = 150;
    CTin tin;
    tin.BeginAddPoint(m * m);
    for (int r = 0; r < m; ++r)
        for (int c = 0; c < m; ++c) tin.AddPoint2(c, r, 0.0);
    tin.EndAddPoint();
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    EXPECT_EQ(tin.GetTriSize(), 2 * m * m - 4 * (m - 1) - 2);
    EXPECT_EQ(static_cast<int>(CheckMesh(tin, false).size()), m * m);
    EXPECT_EQ(tin.GetHull().GetSize(), 4);  // the start hull keeps the corners only
    EXPECT_EQ(tin.GetPlanArea(), (m - 1.0) * (m - 1.0));
    // Every interior edge locally Delaunay (cocircular ties allowed).
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        const CTin::CTri& t = tin.GetTri(i);
        for (int k = 0; k < 3; ++k) {
            const int n = t.nb[k];
            if (n < 0) continue;
            const CTin::CTri& o = tin.GetTri(n);
            int d = -1;
            for (int l = 0; l < 3; ++l)
                if (o.v[l] != t.v[0] && o.v[l] != t.v[1] && o.v[l] != t.v[2]) d = o.v[l];
            ASSERT_GE(d, 0);
            // Exact on these small integers: d is not strictly inside the circle.
            EXPECT_LE(tin_test::InCircle(tin.m_point[t.v[0]], tin.m_point[t.v[1]],
                                         tin.m_point[t.v[2]], tin.m_point[d]),
                      0.0)
                << "edge " << i << "/" << k;
        }
    }
}

TEST_F(TinLocateTest, OptimizationDepthBoundCountsLevelsAsRecursionWould) {
    // Two triangles on the long diagonal 0 - 1 of a flat kite: the diagonal is to be flipped.
    // Entered one level below the bound, the flip is made and both follow-up calls sit on the
    // bound: each logs, and the depth is back where it was.
    for (int start : {CTin::OPTIM_LEVEL - 1, CTin::OPTIM_LEVEL}) {
        ClearLines();
        CTin tin;
        tin_test::AddPoints(tin, {{0, 0}, {10, 0}, {5, 1}, {5, -1}});
        ASSERT_EQ(tin.AddTri(2, 0, 1), 0);
        ASSERT_EQ(tin.AddTri(1, 0, 3), 1);
        tin.UpdateTopology();
        tin.m_iOptim = start;
        tin.Optimization(0, 0);
        EXPECT_EQ(tin.m_iOptim, start);
        const bool flipped = start < CTin::OPTIM_LEVEL;
        ASSERT_EQ(Lines().size(), flipped ? 2u : 1u);
        for (const auto& line : Lines())
            EXPECT_EQ(line, "CTin::Optimization m_iOptim >= OPTIM_LEVEL");
        bool diagonal23 = false;
        for (int i = 0; i < 2; ++i)
            for (int k = 0; k < 3; ++k) {
                const int a = tin.GetTri(i).v[k], b = tin.GetTri(i).v[(k + 1) % 3];
                diagonal23 = diagonal23 || (a == 2 && b == 3) || (a == 3 && b == 2);
            }
        EXPECT_EQ(diagonal23, flipped);
        CheckMesh(tin, false);
    }
}

// The outline of MakeBoundaryFromPts by the library's key sort, as a reference: the points
// sorted by angle about the middle of their range; of each angle the farthest point, the first
// in sorted order winning a tie.
std::vector<int> ReferenceOutline(const CTin& tin) {
    const int n = tin.GetPointSize();
    double x0 = tin.m_point[0].x, x1 = x0, y0 = tin.m_point[0].y, y1 = y0;
    for (int i = 1; i < n; ++i) {
        x0 = std::min(x0, tin.m_point[i].x);
        x1 = std::max(x1, tin.m_point[i].x);
        y0 = std::min(y0, tin.m_point[i].y);
        y1 = std::max(y1, tin.m_point[i].y);
    }
    const double cx = (x0 + x1) * 0.5, cy = (y0 + y1) * 0.5;
    kel_templ::CKelArray<double, double> angles;
    kel_templ::CKelArray<int, int> order;
    angles.SetSize(n);
    for (int i = 0; i < n; ++i)
        angles[i] = std::atan2(tin.m_point[i].y - cy, tin.m_point[i].x - cx);
    QuickSortKey(angles, order, 1);
    std::vector<int> outline;
    for (int k = 0; k < n;) {
        int best = order[k], j = k;
        double bestD = -1.0;
        for (; j < n && angles[j] == angles[k]; ++j) {
            const CXYZ& p = tin.m_point[order[j]];
            const double d = (p.x - cx) * (p.x - cx) + (p.y - cy) * (p.y - cy);
            if (d > bestD) {
                bestD = d;
                best = order[j];
            }
        }
        outline.push_back(best);
        k = j;
    }
    return outline;
}

// The start hull by removal from an array, as a reference: passes over the closed outline
// remove every vertex that does not turn the convex way, stepping back after each removal.
std::vector<int> ReferenceHull(const CTin& tin, std::vector<int> h) {
    bool removed = true;
    while (removed && h.size() >= 3) {
        removed = false;
        for (std::size_t i = 0; i < h.size() && h.size() >= 3;) {
            const std::size_t n = h.size();
            if (tin.CheckTurn(h[(i + n - 1) % n], h[i], h[(i + 1) % n]) < 0) {
                h.erase(h.begin() + static_cast<std::ptrdiff_t>(i));
                removed = true;
                if (i > 0) --i;
            } else {
                ++i;
            }
        }
    }
    return h;
}

TEST_F(TinLocateTest, StartHullMatchesTheReferenceSortAndRemovalPasses) {
    // Small integer lattices: many points at one angle, repeated points (which tie for the
    // farthest), collinear and tied outline vertices; plus the collinear set, whose outline
    // collapses below three vertices; plus large random sets.
    std::mt19937 rng(5);
    for (int trial = 0; trial < 300; ++trial) {
        std::uniform_int_distribution<int> u(0, 2 + trial % 9);
        CTin tin;
        const int n = 3 + trial % 40;
        tin.BeginAddPoint(n);
        for (int i = 0; i < n; ++i) tin.AddPoint2(u(rng), u(rng), 0.0);
        tin.EndAddPoint();
        if (trial % 50 == 1) {
            std::uniform_real_distribution<double> r(-1e3, 1e3);
            tin.InitData();
            for (int i = 0; i < 20000; ++i) tin.AddPoint(r(rng), r(rng), 0.0);
        }
        if (trial == 299) {
            tin.InitData();
            for (int i = 0; i < 6; ++i) tin.AddPoint(i, 2 * i, 0.0);
        }
        if (!tin.MakeBoundaryFromPts()) continue;
        const kel_templ::CKelArray<int, int>& outline = tin.GetHull();
        std::vector<int> before;
        for (int i = 0; i < outline.GetSize(); ++i) before.push_back(outline[i]);
        ASSERT_EQ(before, ReferenceOutline(tin)) << "trial " << trial;
        const std::vector<int> want = ReferenceHull(tin, before);
        ClearLines();
        EXPECT_EQ(tin.MakeConvexHull(), want.size() >= 3 ? 1 : 0) << trial;
        std::vector<int> got;
        for (int i = 0; i < tin.GetHull().GetSize(); ++i) got.push_back(tin.GetHull()[i]);
        EXPECT_EQ(got, want) << "trial " << trial;
        EXPECT_EQ(Lines().size(), want.size() >= 3 ? 0u : 1u);
    }
}

TEST_F(TinLocateTest, AddPointMatchesTheLinearFirstMatchUnderEveryWriter) {
    CTin tin;
    // The first point within the tolerance in index order, else the next index.
    auto linear = [&](double x, double y) {
        for (int i = 0; i < tin.GetPointSize(); ++i)
            if (std::fabs(tin.m_point[i].x - x) <= tin.GetEPS() &&
                std::fabs(tin.m_point[i].y - y) <= tin.GetEPS())
                return i;
        return tin.GetPointSize();
    };
    tin.AddPoint(0, 0, 0);
    tin.BeginAddPoint(2);  // rewrites slot 0
    tin.AddPoint2(5, 5, 1);
    tin.AddPoint2(6, 6, 2);
    tin.EndAddPoint();
    EXPECT_EQ(tin.AddPoint(5, 5, 3), 0);
    // Random single and batch insertion, tolerance changes and resets. Coordinates on a 0.006 m
    // lattice: many points fall within the tolerance of earlier ones, some of several at once.
    std::mt19937 rng(11);
    std::uniform_int_distribution<int> u(0, 60), op(0, 99);
    auto coord = [&] { return u(rng) * 0.006; };
    for (int step = 0; step < 8000; ++step) {
        const int o = op(rng);
        if (o < 3) {
            const int n = u(rng) % 9, given = u(rng) % 9;
            tin.BeginAddPoint(n);
            for (int k = 0; k < given; ++k) tin.AddPoint2(coord(), coord(), step);
            tin.EndAddPoint();
            ASSERT_EQ(tin.GetPointSize(), given);
        } else if (o < 5) {
            tin.SetEPS(0.004 * (1 + u(rng) % 4));
        } else if (o == 5) {
            tin.InitData();
        } else {
            const double x = coord(), y = coord();
            const int want = linear(x, y);
            const double zBefore = want < tin.GetPointSize() ? tin.m_point[want].z : step;
            ASSERT_EQ(tin.AddPoint(x, y, step), want) << "step " << step;
            EXPECT_EQ(tin.m_point[want].z, zBefore);  // a match keeps its z
        }
    }
    // Coordinates on and beside the index's cell borders (multiples of 32 tolerances), at
    // tolerance distances, far from the origin and negative; the tolerance changes midway and
    // points are added to and removed from m_point directly, which the index must follow.
    tin.InitData();
    rng.seed(23);
    for (int round = 0; round < 4; ++round) {
        const double eps = round < 2 ? 1e-6 : 0.01;
        tin.SetEPS(eps);
        const double base = round % 2 == 0 ? 0.0 : -2.5e6;
        std::uniform_int_distribution<int> cell(-3, 3), step(-9, 9);
        for (int i = 0; i < 3000; ++i) {
            const double x = base + 32.0 * eps * cell(rng) + 0.25 * eps * step(rng);
            const double y = base / 2 + 32.0 * eps * cell(rng) + 0.5 * eps * step(rng);
            const int want = linear(x, y);
            ASSERT_EQ(tin.AddPoint(x, y, i), want) << "round " << round << " call " << i;
        }
        // Points added behind the index's back, then one fewer.
        CXYZ p5(base + 5.0 + round, base, 0.0), p6(base + 6.0 + round, base, 0.0);
        const int n5 = tin.m_point.Add(p5), n6 = tin.m_point.Add(p6);
        EXPECT_EQ(tin.AddPoint(p6.x + 0.5 * eps, base, 0.0), n6);
        tin.m_point.RemoveAt(n6);
        EXPECT_EQ(tin.AddPoint(p6.x + 0.5 * eps, base, 1.0), n6);  // added anew
        EXPECT_EQ(tin.m_point[n6].z, 1.0);
        EXPECT_EQ(tin.AddPoint(p5.x - 0.5 * eps, base + 0.75 * eps, 0.0), n5);
        const int want = linear(p5.x - eps, base + eps);  // at the tolerance, as rounded
        EXPECT_EQ(tin.AddPoint(p5.x - eps, base + eps, 0.0), want);
    }
    // No usable cell size: still the first match.
    tin.SetEPS(0.0);
    const double x7 = tin.m_point[7].x, y7 = tin.m_point[7].y;
    EXPECT_EQ(tin.AddPoint(x7, y7, 0.0), linear(x7, y7));
}

}  // namespace
