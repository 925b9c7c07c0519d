// CTin::IntersectRay through its hierarchy against the test of every triangle.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "TinCheck.h"
#include "surface/Tin.h"
#include "surface/TinRay.h"

namespace {

// The same hit as the brute force: found or not, the same triangle and the same point, bit
// for bit. Counts the hits.
int CompareRays(const CTin& tin, const CXYZ& o, const CXYZ& d, int& hits) {
    CXYZ hit;
    int tri = -1;
    const int found = tin.IntersectRay(o, d, hit, tri);
    double t = 0.0;
    int tri0 = -1;
    const int found0 = kel_tinray::IntersectAll(tin, o, d, t, tri0);
    EXPECT_EQ(found, found0) << o.x << " " << o.y << " " << o.z << " dir " << d.x << " " << d.y
                             << " " << d.z;
    if (found && found0) {
        EXPECT_EQ(tri, tri0);
        EXPECT_EQ(hit.x, o.x + t * d.x);
        EXPECT_EQ(hit.y, o.y + t * d.y);
        EXPECT_EQ(hit.z, o.z + t * d.z);
        ++hits;
    }
    return found == found0 && (!found || tri == tri0) ? 1 : 0;
}

// A bumpy surface far from the origin (surveying coordinates), and a flat grid whose rows,
// vertices and cocircular quadrilaterals make ties.
void Bumpy(CTin& tin, unsigned seed, int n) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(0.0, 100.0);
    for (int i = 0; i < n; ++i) {
        const double x = u(rng), y = u(rng);
        tin.AddPoint(5000.0 + x, 3000.0 + y, 100.0 + 2.0 * std::sin(x / 5.0) * std::cos(y / 7.0));
    }
    ASSERT_EQ(tin.CreateTin(0.0), 1);
}

TEST(TinRay, SameAnswerAsTheBruteForce) {
    CTin bumpy;
    Bumpy(bumpy, 3, 1000);
    CTin grid;
    for (int r = 0; r <= 30; ++r)
        for (int c = 0; c <= 30; ++c) grid.AddPoint(c, r, 0.0);
    ASSERT_EQ(grid.CreateTin(0.0), 1);

    std::mt19937 rng(2026);
    std::uniform_real_distribution<double> u(0.0, 1.0);
    int hits = 0, same = 0, rays = 0;
    for (int i = 0; i < 3000; ++i, ++rays) {  // from above and beside, any direction
        const CXYZ o(4980.0 + 140.0 * u(rng), 2980.0 + 140.0 * u(rng), 95.0 + 30.0 * u(rng));
        const CXYZ d(u(rng) - 0.5, u(rng) - 0.5, u(rng) - 0.7);
        same += CompareRays(bumpy, o, d, hits);
    }
    for (int i = 0; i < 1000; ++i, ++rays) {  // at vertices and at points on edges
        const CTin::CTri& t = bumpy.GetTri(static_cast<int>(u(rng) * bumpy.GetTriSize()));
        const CXYZ& a = bumpy.m_point[t.v[0]];
        const CXYZ& b = bumpy.m_point[t.v[1]];
        const CXYZ target = i % 2 == 0 ? a : (a + b) * 0.5;
        const CXYZ o(target.x + 20.0 * (u(rng) - 0.5), target.y + 20.0 * (u(rng) - 0.5), 130.0);
        same += CompareRays(bumpy, o, target - o, hits);
    }
    for (int i = 0; i < 800; ++i, ++rays) {  // grazing: 1e-9 to 0.1 above a triangle's plane
        const int k = static_cast<int>(u(rng) * bumpy.GetTriSize());
        const CTin::CTri& t = bumpy.GetTri(k);
        const CXYZ &a = bumpy.m_point[t.v[0]], &b = bumpy.m_point[t.v[1]],
                   &c = bumpy.m_point[t.v[2]];
        const double wb = u(rng), wc = (1.0 - wb) * u(rng);
        const CXYZ target = a + (b - a) * wb + (c - a) * wc;
        CXYZ n;
        ASSERT_EQ(bumpy.GetNormal(k, n), 1);
        CXYZ along(u(rng) - 0.5, u(rng) - 0.5, 0.0);
        along = along - n * along.Inn(n);
        const CXYZ d = along - n * (std::pow(10.0, -9.0 + 8.0 * u(rng)) * along.Len());
        same += CompareRays(bumpy, target - d * (5.0 + 50.0 * u(rng)), d, hits);
    }
    for (int i = 0; i < 500; ++i, ++rays) {  // a zero component; far origins; any scale
        CXYZ o(5000.0 + 100.0 * u(rng), 3000.0 + 100.0 * u(rng), 100.0 + 4.0 * (u(rng) - 0.5));
        CXYZ d(u(rng) - 0.5, u(rng) - 0.5, u(rng) - 0.5);
        switch (i % 5) {
            case 0:
                d.z = 0.0;  // level, through the bumps
                break;
            case 1:
                d.SetXYZ(0.0, 0.0, i % 2 == 0 ? -1.0 : 1.0);  // vertical, from above or below
                o.z = 130.0 - 60.0 * (i % 2);
                break;
            case 2:  // downwards in a plane of constant x or y
                (u(rng) < 0.5 ? d.x : d.y) = 0.0;
                o.z = 110.0;
                d.z = -std::fabs(d.z);
                break;
            case 3: {  // from a kilometre to a thousand kilometres away, onto a vertex
                const CTin::CTri& t = bumpy.GetTri(static_cast<int>(u(rng) * bumpy.GetTriSize()));
                d = CXYZ(u(rng) - 0.5, u(rng) - 0.5, -0.3 * u(rng));
                o = bumpy.m_point[t.v[i % 3]] - d * (1e3 * std::pow(10.0, 3.0 * u(rng)) / d.Len());
                break;
            }
            default:  // directions from 1e-30 to 1e30 long
                o.z = 120.0;
                d.z = -0.5;
                d = d * std::pow(10.0, 60.0 * (u(rng) - 0.5));
                break;
        }
        same += CompareRays(bumpy, o, d, hits);
    }
    // The grid: straight down on a vertex, onto an edge's line, onto the diagonal's midpoint,
    // in the plane and grazing it. Origins relative to a vertex (x, y), or at x = -3.
    struct GridRay {
        bool fromLeft;
        double ox, oy, oz, dx, dy, dz;
    };
    const GridRay gridRays[5] = {{false, 0.0, 0.0, 5.0, 0.0, 0.0, -1.0},
                                 {false, 0.5, 0.0, 5.0, 0.1, 0.0, -1.0},
                                 {false, 0.5, 0.5, 5.0, 0.0, 0.0, -1.0},
                                 {true, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0},
                                 {true, 0.0, 0.25, 1e-12, 1.0, 0.01, -1e-13}};
    for (int i = 0; i < 1000; ++i, ++rays) {
        const double x = std::floor(u(rng) * 30.0), y = std::floor(u(rng) * 30.0);
        const GridRay& g = gridRays[i % 5];
        const CXYZ o((g.fromLeft ? -3.0 : x) + g.ox, y + g.oy, g.oz);
        same += CompareRays(grid, o, CXYZ(g.dx, g.dy, g.dz), hits);
    }
    // A dense cluster in a kilometre-wide mesh: thousands of triangles share a Morton cell
    // and are split in halves of equal codes.
    CTin cluster;
    for (const CXYZ& c : {CXYZ(0, 0, 0), CXYZ(1000, 0, 5), CXYZ(0, 1000, 3), CXYZ(1000, 1000, 9)})
        cluster.AddPoint(c.x, c.y, c.z);
    for (int i = 0; i < 2000; ++i)
        cluster.AddPoint(500.0 + 0.01 * u(rng), 500.0 + 0.01 * u(rng), 0.001 * u(rng));
    ASSERT_EQ(cluster.CreateTin(0.0), 1);
    for (int i = 0; i < 200; ++i, ++rays) {
        const CXYZ target(500.0 + 0.01 * u(rng), 500.0 + 0.01 * u(rng), 0.0);
        const CXYZ o(target.x + u(rng) - 0.5, target.y + u(rng) - 0.5, 1.0);
        same += CompareRays(cluster, o, target - o, hits);
    }
    // A mesh of one or two triangles: a root with one leaf.
    for (int nPt : {3, 4}) {
        CTin tiny;
        tin_test::AddPoints(tiny, {{0, 0, 0}, {1, 0, 0}, {0, 1, 1}});
        if (nPt == 4) tiny.AddPoint(1.0, 1.0, 0.5);
        ASSERT_EQ(tiny.CreateTin(0.0), 1);
        for (int i = 0; i < 50; ++i, ++rays) {
            const CXYZ o(2.0 * u(rng) - 0.5, 2.0 * u(rng) - 0.5, 3.0);
            same += CompareRays(tiny, o, CXYZ(u(rng) - 0.5, u(rng) - 0.5, -1.0), hits);
        }
    }
    EXPECT_EQ(same, rays);
    EXPECT_GT(hits, rays / 2);  // the cases did reach the surface

    // The hierarchy follows the mesh: a new point, then a vertex moved in place.
    const CXYZ o(5050.0, 3050.0, 200.0), d(0.0, 0.0, -1.0);
    CXYZ hit0;
    int tri = -1;
    ASSERT_EQ(bumpy.IntersectRay(o, d, hit0, tri), 1);
    ASSERT_EQ(bumpy.DivideTri(5050.0, 3050.0, 150.0), 1);
    CXYZ hit;
    ASSERT_EQ(bumpy.IntersectRay(o, d, hit, tri), 1);
    EXPECT_EQ(hit.z, 150.0);
    const int v = bumpy.GetTri(tri).v[0];
    bumpy.m_point[v].z = 160.0;
    bumpy.DropRayIndex();
    EXPECT_EQ(CompareRays(bumpy, o, d, hits), 1);
}

}  // namespace
