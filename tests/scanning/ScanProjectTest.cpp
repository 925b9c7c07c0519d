#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "PlanTestUtil.h"
#include "common/KelTest.h"
#include "imaging/ImgViewEx.h"
#include "photogrammetry/SinOri.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"
#include "scanning/ScanProject.h"
#include "scanning/ScanScene.h"
#include "surface/SinOriToTin.h"
#include "surface/TinRay.h"

namespace {

using namespace kel_scene;
using CXYZArray = CKelScanProject::CXYZArray;

class ScanProjectTest : public kel_test::KelFixture {};

constexpr double kDegTol = 1e-9;  // degrees
constexpr double kPxTol = 1e-6;   // pixels

double AngleDiff(double a, double b) {
    const double d = std::fmod(std::fabs(a - b), 360.0);
    return std::fmin(d, 360.0 - d);
}

TEST_F(ScanProjectTest, LifecycleAndCoreConversions) {
    CKelScanProject p;
    EXPECT_EQ(p.m_flag, 1);
    EXPECT_EQ(p.m_value2, -180.0);
    double h = 0.0, v = 0.0;
    EXPECT_EQ(p.ImgToHV(CXYZ(800, 600, 0), h, v), 0);  // no project
    double x = 1.0, y = 2.0;
    EXPECT_EQ(p.CalDist(x, y), 0);
    EXPECT_EQ(x, 1.0);
    CXYZ img;
    EXPECT_EQ(p.PhcToImg(CXYZ(0, 0, 0), img), 0);
    p.DestroyProject();  // each Destroy works on nulls
    p.DestroyCamera();
    p.DestroyImage();
    p.DestroyScanArrays();

    MakeProject(p, false, false);
    ASSERT_NE(p.m_pImage, nullptr);
    ASSERT_NE(p.m_pScanHV, nullptr);
    EXPECT_EQ(p.ImgToHV(CXYZ(800, 600, 0), h, v), 0);  // surface set, not oriented
    Orient(p);
    EXPECT_EQ(p.ImgToHV(CXYZ(800, 600, 0), h, v), 1);

    // The principal point maps to photo (0, 0) and back; the name travels.
    CXYZ phc;
    p.ImgToPhc(CXYZ(L"P", 800.0, 600.0, 0.0), phc);
    EXPECT_EQ(phc.x, 0.0);
    EXPECT_EQ(phc.y, 0.0);
    EXPECT_TRUE(phc.m_name == L"P");
    ASSERT_EQ(p.PhcToImg(phc, img), 1);
    EXPECT_EQ(img.x, 800.0);
    EXPECT_EQ(img.y, 600.0);
    // With distortion the round trip misses by the correction over the pixel size.
    *p.m_pCamera = Camera(true);
    const CXYZ corner(100.0, 50.0, 0.0);
    p.ImgToPhc(corner, phc);
    double mx = corner.x * 0.005 - 4.0, my = 3.0 - corner.y * 0.005, dx = 0.0, dy = 0.0;
    p.m_pCamera->m_dist.CalDist(mx, my, dx, dy);
    ASSERT_EQ(p.PhcToImg(phc, img), 1);
    EXPECT_NEAR(img.x - corner.x, dx / 0.005, 1e-9);
    EXPECT_NEAR(img.y - corner.y, -dy / 0.005, 1e-9);
    CXYZArray list;
    list.Add(const_cast<CXYZ&>(corner));
    p.ImgToPhc(list);
    EXPECT_EQ(list[0].x, phc.x);
    p.m_pCamera->m_resolution.x = 0.0;
    EXPECT_EQ(p.PhcToImg(phc, img), 0);

    // The projection agrees with the resection class's own collinearity equations.
    CSinOri ori;
    ori.m_focal = kFocal;
    ori.m_pos = p.m_pSinOriToTin->GetCentre();
    ori.m_rot = p.m_pSinOriToTin->GetRot();
    CXYZ obj = PlaneHit(Camera(false), 300.0, 200.0), a, b;
    CCalcXYZHV::CnvSokuToMath(obj);
    ASSERT_EQ(p.m_pSinOriToTin->ObjToPhc(obj, a), 1);
    ASSERT_EQ(ori.ObjToPhc(obj, b), 1);
    EXPECT_NEAR(a.x, b.x, 1e-12);
    EXPECT_NEAR(a.y, b.y, 1e-12);
    // A new surface or a reset clears the ready state.
    CSinOriToTin copy(*p.m_pSinOriToTin);
    EXPECT_EQ(copy.GetReady(), 1);
    EXPECT_EQ(copy.SetTin(p.m_pSinOriToTin->GetTin()), 1);
    EXPECT_EQ(copy.GetReady(), 0);
    EXPECT_EQ(copy.PhcToXYZ(a, b), 0);
    p.m_pSinOriToTin->Init();
    EXPECT_EQ(p.m_pSinOriToTin->GetReady(), 0);

    p.DestroyProject();
    EXPECT_EQ(p.m_pSinOriToTin, nullptr);
    EXPECT_EQ(p.ImgToHV(CXYZ(800, 600, 0), h, v), 0);
    EXPECT_TRUE(Lines().empty());  // the core writes no trace line
}

// Pixel -> surface point -> instrument angles against the analytic hit on the plane; and the
// angles back through the instrument's line of sight and the camera to the same pixel.
TEST_F(ScanProjectTest, PixelToAnglesAndBackOverAPlane) {
    for (bool distortion : {false, true}) {
        CKelScanProject p;
        MakeProject(p, distortion, false);
        Orient(p);
        const CCamera cam = Camera(distortion);
        for (double u = 0.0; u <= kWidth; u += 200.0)
            for (double v = 0.0; v <= kHeight; v += 150.0) {
                const CXYZ truth = PlaneHit(cam, u, v);
                double h0 = 0.0, v0 = 0.0;
                TaskInverse(kStation, truth, kInstHeight, kBsAzimuth, kBsReading, h0, v0);
                double h = 0.0, vv = 0.0;
                ASSERT_EQ(p.ImgToHV(CXYZ(u, v, 0.0), h, vv), 1) << u << "," << v;
                EXPECT_LT(AngleDiff(h, h0), kDegTol) << u << "," << v;
                EXPECT_NEAR(vv, v0, kDegTol);
                CXYZ xyz;
                ASSERT_EQ(p.ImgToXYZ(CXYZ(u, v, 0.0), xyz), 1);
                EXPECT_LT(xyz.Len(truth), 1e-7);  // metres
                CXYZ back;
                ASSERT_EQ(p.HVToImg(h, vv, back), 1);
                // Through the line of sight: the angles carry 1e-12 degrees of rounding, which
                // is 1e-10 m at 20 m; the pixel comes back far inside the tolerance.
                EXPECT_NEAR(back.x, u, distortion ? 1e-5 : kPxTol) << u << "," << v;
                EXPECT_NEAR(back.y, v, distortion ? 1e-5 : kPxTol);
            }
    }
    EXPECT_TRUE(Lines().empty());
}

// A bumpy hillside: the angles of a pixel are those of the first point of the pixel's own ray
// (written out in ScanScene.h) on the mesh, found by testing every triangle; that point lies
// on the mesh, is seen at the pixel it came from, and the instrument's line of sight at its
// angles meets it again.
TEST_F(ScanProjectTest, PixelToAnglesAndBackOverABumpyTin) {
    for (bool distortion : {false, true}) {
        CKelScanProject p;
        MakeProject(p, distortion, true);
        Orient(p);
        const CCamera cam = Camera(distortion);
        const CTin& tin = p.m_pSinOriToTin->GetTin();
        std::mt19937 rng(15);
        std::uniform_real_distribution<double> uu(0.0, kWidth), vv(0.0, kHeight);
        for (int i = 0; i < 40; ++i) {
            const CXYZ pix(uu(rng), vv(rng), 0.0);
            CXYZ o = CameraCentre(), d = PixelRay(cam, pix.x, pix.y);
            CCalcXYZHV::CnvSokuToMath(o);
            CCalcXYZHV::CnvSokuToMath(d);
            double t = 0.0;
            int tri = -1;
            ASSERT_EQ(kel_tinray::IntersectAll(tin, o, d, t, tri), 1);
            CXYZ truth = o + d * t;
            CCalcXYZHV::CnvMathToSoku(truth);
            double h0 = 0.0, v0 = 0.0, h = 0.0, v = 0.0;
            TaskInverse(kStation, truth, kInstHeight, kBsAzimuth, kBsReading, h0, v0);
            ASSERT_EQ(p.ImgToHV(pix, h, v), 1) << pix.x << "," << pix.y;
            EXPECT_LT(AngleDiff(h, h0), kDegTol);
            EXPECT_NEAR(v, v0, kDegTol);

            CXYZ xyz;
            ASSERT_EQ(p.ImgToXYZ(pix, xyz), 1);
            CXYZ m = xyz;
            CCalcXYZHV::CnvSokuToMath(m);
            double z = 0.0;
            ASSERT_EQ(tin.GetHeight(m.x, m.y, z), 1);
            EXPECT_NEAR(z, m.z, 1e-6);  // mm
            CXYZ img;
            ASSERT_EQ(p.m_pSinOriToTin->ObjToImg(m, img), 1);
            EXPECT_NEAR(img.x, pix.x, distortion ? 1e-5 : kPxTol);
            EXPECT_NEAR(img.y, pix.y, distortion ? 1e-5 : kPxTol);
            CXYZ sight;
            ASSERT_EQ(p.HVToXYZ(h, v, sight), 1);
            EXPECT_LT(sight.Len(xyz), 1e-7);
        }
    }
}

// Control thousands of metres from the origin, pixels with distortion: the multi-start
// resection recovers the camera, so pixels give the angles of the true orientation.
TEST_F(ScanProjectTest, OrientCalcFromControlFarFromTheOrigin) {
    CKelScanProject p;
    MakeProject(p, true, false);
    const CCamera cam = Camera(true);
    CXYZArray img, obj;
    const double pix[6][3] = {{150, 120, 9},  {1450, 140, 25}, {800, 600, 14},
                              {200, 1050, 6}, {1400, 1000, 8}, {700, 300, 30}};
    for (int i = 0; i < 6; ++i) {
        const CXYZ d = PixelRay(cam, pix[i][0], pix[i][1]);
        CXYZ o = CameraCentre() + d * pix[i][2];
        CXYZ q(pix[i][0], pix[i][1], 0.0);
        o.m_name.Format(L"C%d", i);
        q.m_name.Format(L"C%d", i);
        obj.Add(o);
        img.InsertAt(0, q);  // names pair the lists, not the order
    }
    ASSERT_EQ(p.OrientCalc(img, obj), 1);
    CXYZ c = CameraCentre();
    CCalcXYZHV::CnvSokuToMath(c);
    EXPECT_LT(p.m_pSinOriToTin->GetCentre().Len(c), 1e-5);  // mm
    CKelScanProject q;
    MakeProject(q, true, false);
    Orient(q);
    for (double u = 0.0; u <= kWidth; u += 400.0)
        for (double v = 0.0; v <= kHeight; v += 300.0) {
            double h1 = 0.0, v1 = 0.0, h2 = 0.0, v2 = 0.0;
            ASSERT_EQ(p.ImgToHV(CXYZ(u, v, 0.0), h1, v1), 1);
            ASSERT_EQ(q.ImgToHV(CXYZ(u, v, 0.0), h2, v2), 1);
            EXPECT_LT(AngleDiff(h1, h2), kDegTol);
            EXPECT_NEAR(v1, v2, kDegTol);
        }

    // Failures: one line each, the resection's own when it is the one that fails.
    CXYZArray line = obj;  // the control on one straight line: no camera fits
    for (int i = 0; i < line.GetSize(); ++i)
        line[i].SetXYZ(kStation.x + 10.0 + i, kStation.y + 20.0 + 2.0 * i, 105.0 + 0.5 * i);
    ClearLines();
    EXPECT_EQ(p.OrientCalc(img, line), 0);
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0], "CSinOri::CalSinOri2 best == DBL_MAX");
    p.m_pCamera->m_focal = 0.0;  // a camera without its file
    ClearLines();
    EXPECT_EQ(p.OrientCalc(img, obj), 0);
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0], "CKelScanProject::OrientCalc !ori.Create(objPair, imgPair, focal)");
    ClearLines();
    while (obj.GetSize() > 3) obj.RemoveAt(0);
    EXPECT_EQ(p.OrientCalc(img, obj), 0);
    ASSERT_EQ(Lines().size(), 1u);
    EXPECT_EQ(Lines()[0], "CKelScanProject::OrientCalc nPair < 4");
}

// A region drawn on the photo, planned through the surface, equals the plan made directly
// from the true angles of the same outline; across north too.
TEST_F(ScanProjectTest, RegionPlannedThroughTheSurfaceEqualsThePlanFromTrueAngles) {
    for (double bsReading : {10.0, 100.0}) {  // the first puts circle 0 inside the region
        CKelScanProject p;
        MakeProject(p, false, false);
        p.SetOccBs(kStation, kInstHeight, kBsAzimuth, bsReading);
        Orient(p);
        const CPolyline region =
            plan_test::Region({{400, 300}, {1200, 350}, {1300, 900}, {800, 700}, {350, 950}});
        CCleverFineScan viaPhoto;
        ASSERT_EQ(p.ComputeInclineGrid(region, 0.5, viaPhoto), 1);
        ASSERT_GT(viaPhoto.CalcPtAngle(true), 10);

        // The same outline, densified as documented, with true angles.
        CPolyline truth(CPolyline::kClosed);
        const CCamera cam = Camera(false);
        double prevH = 0.0;
        for (unsigned i = 0; i < 5; ++i) {
            const CVertex& a = *region.GetVertex(i);
            const CVertex& b = *region.GetVertex((i + 1) % 5);
            const int steps = static_cast<int>(
                std::ceil(std::hypot(b.x - a.x, b.y - a.y) / CKelScanProject::kDensifyPx));
            for (int k = 0; k < steps; ++k) {
                const double t = static_cast<double>(k) / steps;
                double h = 0.0, v = 0.0;
                TaskInverse(kStation, PlaneHit(cam, a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)),
                            kInstHeight, kBsAzimuth, bsReading, h, v);
                if (truth.GetVertexSize() > 0) h += 360.0 * std::round((prevH - h) / 360.0);
                prevH = h;
                CVertex vx(h, v, 0.0, 0);
                truth.AddVertex(vx);
            }
        }
        ASSERT_EQ(truth.GetVertexSize(), viaPhoto.m_polyline.GetVertexSize());
        double hmin = 0, hmax = 0, vmin = 0, vmax = 0, z0 = 0, z1 = 0;
        truth.GetRange(hmin, hmax, vmin, vmax, z0, z1);
        EXPECT_EQ(std::floor(hmin / 360.0) != std::floor(hmax / 360.0), bsReading == 10.0);
        CCleverFineScan direct;
        direct.m_polyline = truth;
        direct.SetSEVH(vmin, hmin, vmax, hmax, 1);
        direct.SetDVH(viaPhoto.m_dV, viaPhoto.m_dH, 1);
        ASSERT_EQ(direct.CalcPtAngle(true), viaPhoto.GetPtCount());
        for (int i = 0; i < direct.GetPtCount(); ++i) {
            EXPECT_NEAR(direct.m_planH[i], viaPhoto.m_planH[i], kDegTol);
            EXPECT_NEAR(direct.m_planV[i], viaPhoto.m_planV[i], kDegTol);
        }
        // Half a metre at the region's distance.
        EXPECT_NEAR(2.0 * p.m_ptRegionSight.x * std::tan(viaPhoto.m_dV / 2.0 / kel_math::kRadToDeg),
                    0.5, 1e-12);

        // The tracking planner is filled the same way.
        CCleverTrkScan trk;
        ASSERT_EQ(p.ComputeInclineGrid(region, 0.5, trk), 1);
        trk.m_speed = 50;
        EXPECT_GT(trk.CalcLineAngle(true), 5);
    }
}

TEST_F(ScanProjectTest, InverseDirectionAndRegionHelpers) {
    CKelScanProject p;
    MakeProject(p, true, false);
    Orient(p);
    // The box of a plan by angles alone drawn back onto the photo lies where those angles are
    // seen: every outline point maps back to an angle on the box's edge.
    CCleverFineScan plan;
    plan.SetSEVH(90.0, 5.0, 94.0, 25.0, 1);
    CPolyline outline;
    ASSERT_EQ(p.NoImgToImg(plan, outline), 1);
    ASSERT_GT(outline.GetVertexSize(), 4 * 8);
    for (int i = 0; i < outline.GetVertexSize(); ++i) {
        double h = 0.0, v = 0.0;
        ASSERT_EQ(p.ImgToHV(outline.m_vertex[i], h, v), 1);
        const double edge = std::fmin(std::fmin(std::fabs(h - 5.0), std::fabs(h - 25.0)),
                                      std::fmin(std::fabs(v - 90.0), std::fabs(v - 94.0)));
        EXPECT_LT(edge, 1e-6);
    }

    CXYZArray pix, hv;
    CXYZ a(L"A", 100.0, 100.0, 0.0), b(L"B", 800.0, 600.0, 0.0);
    pix.Add(a);
    pix.Add(b);
    EXPECT_EQ(p.PointsToHV(pix, hv), 2);
    EXPECT_TRUE(hv[1].m_name == L"B");
    double h = 0.0, v = 0.0;
    p.ImgToHV(b, h, v);
    EXPECT_EQ(hv[1].x, h);
    EXPECT_EQ(hv[1].y, v);

    const CPolyline region = plan_test::Region({{10, 10}, {400, 10}, {400, 300}});
    CXYZArray xyz;
    p.m_flag = 0;  // vertices only
    ASSERT_EQ(p.PolyToXYZ(region, xyz), 1);
    ASSERT_EQ(xyz.GetSize(), 3);
    CXYZ x2;
    p.ImgToXYZ(CXYZ(400, 300, 0), x2);
    EXPECT_EQ(xyz[2].Len(x2), 0.0);
    EXPECT_TRUE(xyz[2].m_name == L"2");

    ClearLines();
    CPolyline got;
    EXPECT_EQ(p.GetPolylineFromImage(got), 0);
    p.m_pImage->SetRegion(region);
    EXPECT_EQ(p.GetPolylineFromImage(got), 1);
    EXPECT_EQ(got.GetVertexSize(), 3);
    EXPECT_EQ(p.AdjustSEVH(plan_test::Region({{0, 90}, {200, 90}, {100, 95}}), plan), 0);
    double dV = 0.0, dH = 0.0;
    EXPECT_EQ(p.AdjustVH(xyz, 0.0, dV, dH), 0);
    ASSERT_EQ(Lines().size(), 3u);
    EXPECT_EQ(Lines()[0],
              "CKelScanProject::GetPolylineFromImage m_pImage == nullptr || nVertex < 3");
    EXPECT_EQ(Lines()[1], "CKelScanProject::AdjustSEVH hmax - hmin >= 180.0");
}

TEST(ScanProject, RemainingTimeEstimate) {
    CKelScanProject p;
    EXPECT_EQ(p.EstimateRemainingTime(5000), 0);  // N = 0
    p.SetEstimateParams(10, 100);
    EXPECT_EQ(p.EstimateRemainingTime(0), 100);  // (10 * 5 + 0) / 5 * 10
    p.SetEstimateRemaining(4);
    EXPECT_EQ(p.EstimateRemainingTime(30000), 20);  // 4 / 6 * 30
    p.SetEstimateRemaining(7);                      // ((10 * 2 + 12) / 5) * 7 = 44.8
    EXPECT_EQ(p.EstimateRemainingTime(12000), 44);
    p.SetEstimateRemaining(0);
    EXPECT_EQ(p.EstimateRemainingTime(30000), 0);
    p.SetEstimateRemaining(-3);  // clamped to 0
    EXPECT_EQ(p.EstimateRemainingTime(30000), 0);
    p.SetEstimateRemaining(25);  // clamped to N
    EXPECT_EQ(p.EstimateRemainingTime(0), 100);
    p.SetEstimateParams(1, 42);
    EXPECT_EQ(p.EstimateRemainingTime(9000), 42);  // one point, not measured: the plan
    p.SetEstimateRemaining(0);
    EXPECT_EQ(p.EstimateRemainingTime(9000), 0);
}

}  // namespace
