#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "common/KelTest.h"
#include "photogrammetry/Dlt.h"
#include "photogrammetry/Moment.h"
#include "photogrammetry/SinOri.h"
#include "platform/KelMath.h"

namespace {

typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;

// A known camera: focal 8.8 mm, principal point (0.021, -0.013) mm, about 30 m above a
// control field of 30 m x 30 m, slightly tilted and turned, ROT_KPW angles.
struct Camera {
    double c = 8.8;
    double x0 = 0.021, y0 = -0.013;
    CXYZ centre{1000.0, 2000.0, 130.0};
    CWPK ang{0.05, -0.03, 0.4};
    CDist dist;  // corrects measured to ideal, relative to the principal point

    CRot Rot() const {
        CRot r;
        r.SetMatrix(ROT_KPW, ang);
        return r;
    }
    // The ideal photo point relative to the principal point.
    CXYZ Ideal(const CXYZ& p) const {
        const CXYZ q = Rot() * (p - centre);
        return CXYZ(p.m_name, -c * q.x / q.z, -c * q.y / q.z, 0.0);
    }
    // Where the point is measured, in the frame whose origin is not the principal point.
    CXYZ Measured(const CXYZ& p) const {
        CXYZ i = Ideal(p);
        double dx = 0, dy = 0;
        dist.CalDistInv(i.x, i.y, dx, dy, 1e-15);
        return CXYZ(p.m_name, i.x + dx + x0, i.y + dy + y0, 0.0);
    }
};

// n control points over 30 m x 30 m, heights from 98 m up to 98 m + relief (or all at
// `flatZ` when planar).
Points Field(int n, bool planar, unsigned seed, double relief = 12.0, double flatZ = 0.0,
             const CXYZ& origin = CXYZ(1000.0, 2000.0, 98.0)) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> u(-15.0, 15.0), h(0.0, relief);
    Points pts;
    for (int i = 0; i < n; ++i) {
        const std::wstring name = L"G" + std::to_wstring(i + 1);
        CXYZ p(name.c_str(), origin.x + u(rng), origin.y + u(rng),
               planar ? flatZ : origin.z + h(rng));
        pts.Add(p);
    }
    return pts;
}

Points Photo(const Camera& cam, const Points& obj, bool relative) {
    Points out;
    for (int i = 0; i < obj.GetSize(); ++i) {
        CXYZ m = cam.Measured(obj[i]);
        if (relative) {
            m.x -= cam.x0;
            m.y -= cam.y0;
        }
        out.Add(m);
    }
    return out;
}

double AngleGap(const CRot& a, const CRot& b) {
    double g = 0;
    for (int k = 0; k < 9; ++k) g = std::fmax(g, std::fabs(a.m[k] - b.m[k]));
    return g;
}

bool HasLine(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

class OrientationTest : public kel_test::KelFixture {};

TEST_F(OrientationTest, SpatialDltAndItsIterationRecoverAnExactCamera) {
    const Camera cam;
    Points obj = Field(12, false, 1), phc = Photo(cam, obj, false);
    const double tolPos = 30.0 * 1e-6;
    for (int method = 0; method < 2; ++method) {
        ClearLines();
        CDlt dlt;
        ASSERT_EQ(dlt.Create(obj, phc, 8.0), 1);
        ASSERT_EQ(method == 0 ? dlt.CalDlt() : dlt.CalDltIte3D(), 1) << method;
        ASSERT_EQ(dlt.m_b.GetSize(), 11);
        EXPECT_LE(dlt.m_pos.Len(cam.centre), tolPos);
        EXPECT_LT(AngleGap(dlt.m_rot, cam.Rot()), 1e-8);
        EXPECT_NEAR(dlt.m_ang.kappa, cam.ang.kappa, 1e-8);
        EXPECT_NEAR(dlt.m_focal, cam.c, 1e-7);
        EXPECT_NEAR(dlt.m_pp.x, cam.x0, 1e-8);
        EXPECT_NEAR(dlt.m_pp.y, cam.y0, 1e-8);
        EXPECT_LT(dlt.m_rms.Len(), 1e-9);
        // The iteration starts from the plane solution and must walk to the exact one.
        EXPECT_TRUE(HasLine(Lines(), method == 0 ? "CDlt::CalDlt ok"
                                                 : "CDlt::CalDltIte3D std <= m_stdLim"));
        CXYZ p;
        ASSERT_EQ(dlt.ObjToPhc(obj[3], p, 1, 1e-12), 1);
        EXPECT_NEAR(p.x, phc[3].x, 1e-9);
        EXPECT_STREQ(p.m_name, L"G4");
    }
}

TEST_F(OrientationTest, SelfCalibrationRecoversEachModelsDistortion) {
    struct Case {
        DIST_MODEL model;
        int (CDlt::*solve)();
        const char* done;
        std::vector<double> para;
    };
    const Case cases[] = {
        {DIST_K1K2K3K4, &CDlt::CalDltSelfCalib_k1k2k3k4,
         "CDlt::CalDltSelfCalib_k1k2k3k4 std <= m_stdLim", {-2e-4, 3e-6, -2e-8, 1e-10}},
        {DIST_K1K2P1P2, &CDlt::CalDltSelfCalib_k1k2p1p2,
         "CDlt::CalDltSelfCalib_k1k2p1p2 std <= m_stdLim", {-2e-4, 3e-6, 1.5e-5, -2e-5}},
        {DIST_K1K2K3P1P2, &CDlt::CalDltSelfCalib_k1k2k3p1p2,
         "CDlt::CalDltSelfCalib_k1k2k3p1p2 std <= m_stdLim", {-2e-4, 3e-6, -2e-8, 1.5e-5, -2e-5}}};
    // In a local frame: with coordinates of a few thousand metres the normal equations of 15
    // unknowns lose too many digits for the standard deviation to reach 1e-12.
    for (const Case& k : cases) {
        Camera cam;
        cam.centre = CXYZ(0.0, 0.0, 32.0);
        cam.dist.SetDistModel(k.model);
        for (std::size_t i = 0; i < k.para.size(); ++i) cam.dist.m_para[i] = k.para[i];
        Points obj = Field(30, false, 7, 12.0, 0.0, CXYZ(0.0, 0.0, 0.0));
        Points phc = Photo(cam, obj, false);
        CDlt dlt;
        ASSERT_EQ(dlt.Create(obj, phc, 8.8), 1);
        ASSERT_EQ((dlt.*k.solve)(), 1) << k.model << " " << (Lines().empty() ? "" : Lines().back());
        EXPECT_EQ(Lines().back(), k.done);
        ClearLines();
        EXPECT_EQ(dlt.m_dist.GetDistModel(), k.model);
        for (std::size_t i = 0; i < k.para.size(); ++i)
            EXPECT_NEAR(dlt.m_dist.m_para[i], k.para[i], std::fabs(k.para[i]) * 1e-6)
                << k.model << " parameter " << i;
        EXPECT_NEAR(dlt.m_pos.z, cam.centre.z, 30e-6);
        EXPECT_LT(dlt.m_rms.Len(), 1e-8);
    }
    // Seven pairs are too few for every method.
    Points obj = Field(7, false, 3), phc = Photo(Camera(), obj, false);
    CDlt dlt;
    ASSERT_EQ(dlt.Create(obj, phc, 8.8), 1);
    ClearLines();
    for (const Case& k : cases) EXPECT_EQ((dlt.*k.solve)(), 0) << k.model;
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::CalDltSelfCalib_k1k2k3k4 num < 8",
                                                 "CDlt::CalDltSelfCalib_k1k2p1p2 num < 8",
                                                 "CDlt::CalDltSelfCalib_k1k2k3p1p2 num < 8"}));
    // A limit of one pass cannot be met: the method fails and the distortion is reset.
    Camera bent;
    bent.dist.SetDistModel(DIST_K1K2K3K4);
    bent.dist.m_para[0] = -2e-4;
    Points o2 = Field(20, false, 5), p2 = Photo(bent, o2, false);
    CDlt lim;
    lim.Create(o2, p2, 8.8);
    lim.m_iteLim = 1;
    ClearLines();
    EXPECT_EQ(lim.CalDltSelfCalib_k1k2k3k4(), 0);
    EXPECT_EQ(Lines().back(), "CDlt::CalDltSelfCalib_k1k2k3k4 ite >= m_iteLim");
    EXPECT_EQ(lim.m_dist.GetDistModel(), DIST_NONE);
    CXYZ p;
    ClearLines();
    EXPECT_EQ(lim.ObjToPhc(o2[0], p, 0, 0.0), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::ObjToPhc nPara <= 0"}));
}

TEST_F(OrientationTest, FewPointsAndPlanarControlChooseThePlaneSolution) {
    const Camera cam;
    // Five points that are not coplanar: neither solution applies.
    Points obj = Field(5, false, 2), phc = Photo(cam, obj, false);
    CDlt five;
    ASSERT_EQ(five.Create(obj, phc, 8.8), 1);
    ClearLines();
    EXPECT_EQ(five.CalDlt(), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::CalDlt nGcp < 6 && !coplanar"}));
    // Five coplanar points: the plane solution, with the focal length given.
    Points flat5 = Field(5, true, 2), flatPhc = Photo(cam, flat5, false);
    ASSERT_EQ(five.Create(flat5, flatPhc, 8.8), 1);
    ClearLines();
    ASSERT_EQ(five.CalDlt(), 1);
    EXPECT_EQ(five.m_b.GetSize(), 8);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::CalDlt nGcp < 6"}));
    EXPECT_EQ(five.m_pp.x, 0.0);
    EXPECT_EQ(five.m_focalX, 8.8);
    EXPECT_EQ(five.m_focalY, 8.8);

    // Planar control on the plane Z = 0: the spatial solution has no Z columns to solve, the
    // plane solution wins and is exact for a camera without principal point offset; its
    // decomposition gives the true centre and attitude.
    Camera flat;
    flat.x0 = flat.y0 = 0.0;
    flat.centre.z = 30.0;
    Points po = Field(16, true, 4), pp = Photo(flat, po, false);
    CDlt plane;
    ASSERT_EQ(plane.Create(po, pp, flat.c), 1);
    ClearLines();
    ASSERT_EQ(plane.CalDlt(), 1);
    EXPECT_EQ(plane.m_b.GetSize(), 8);
    EXPECT_EQ(Lines().back(), "CDlt::CalDlt m_b.GetSize() == 8");
    EXPECT_LE(plane.m_pos.Len(flat.centre), 1e-6);
    EXPECT_LT(AngleGap(plane.m_rot, flat.Rot()), 1e-9);

    CSinOri so;
    Points rel = Photo(flat, po, true);
    ASSERT_EQ(so.Create(po, rel, flat.c), 1);
    ASSERT_EQ(so.CalSinOri(), 1);
    EXPECT_NEAR(so.m_pos.y, flat.centre.y, 30e-6);

    // Without a focal length the plane solution cannot be decomposed.
    CDlt noFocal;
    ASSERT_EQ(noFocal.Create(po, pp, 0.0), 1);
    ClearLines();
    EXPECT_EQ(noFocal.CalDlt2D(), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::CalExtWithDlt2D !( m_focal > 0.0 )"}));

    Points three;
    for (int i = 0; i < 3; ++i) three.Add(po[i]);
    CDlt few;
    ClearLines();
    EXPECT_EQ(few.Create(three, pp, 8.8), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::Create num < 4"}));

    // A point on the vanishing plane cannot be projected.
    CXYZ out;
    CXYZ vanishing(L"V", 0.0, 0.0, 0.0);
    vanishing.y = -(plane.m_b[6] * vanishing.x + 1.0) / plane.m_b[7];
    ClearLines();
    EXPECT_EQ(plane.ObjToPhc(vanishing, out, 0, 0.0), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CDlt::ObjToPhc nPara == 8 && D == 0.0"}));
}

TEST_F(OrientationTest, ResectionExactNoisyAndTurnedAround) {
    const Camera cam;
    // The resection starts from the plane DLT: a relief of 3 m at 30 m keeps it close enough.
    Points obj = Field(16, false, 11, 3.0), rel = Photo(cam, obj, true);
    CSinOri so;
    ASSERT_EQ(so.Create(obj, rel, cam.c), 1);
    ASSERT_EQ(so.CalSinOri(), 1);
    EXPECT_TRUE(HasLine(Lines(), "CSinOri::SinIte std <= m_stdLim"));
    EXPECT_LE(so.m_pos.Len(cam.centre), 30e-6);
    EXPECT_NEAR(so.m_ang.omega, cam.ang.omega, 1e-8);
    EXPECT_NEAR(so.m_ang.phi, cam.ang.phi, 1e-8);
    EXPECT_NEAR(so.m_ang.kappa, cam.ang.kappa, 1e-8);
    EXPECT_LT(so.m_rms.Len(), 1e-9);

    // Turned about 180 degrees about the vertical and tilted strongly: the search over
    // starting attitudes finds it.
    Camera turned;
    turned.ang = CWPK(0.6, -0.2, kel_math::kPi - 0.1);
    turned.centre = CXYZ(1010.0, 1985.0, 125.0);
    Points tp = Photo(turned, obj, true);
    CSinOri t2;
    ASSERT_EQ(t2.Create(obj, tp, turned.c), 1);
    ASSERT_EQ(t2.CalSinOri2(), 1);
    EXPECT_LE(t2.m_pos.Len(turned.centre), 30e-6);
    EXPECT_LT(AngleGap(t2.m_rot, turned.Rot()), 1e-8);
    EXPECT_LT(t2.m_rms.Len(), 1e-9);
    EXPECT_STREQ(t2.m_obj[0].m_name, L"G1");
    EXPECT_EQ(t2.m_obj[0].x, obj[0].x);  // the given object points are back

    // Four points, one 25 m above the other three, under a camera looking down: the plane
    // start (the best-fitting plane is far from the ground) does not converge, the Helmert
    // start of a vertical camera does; the failed start leaves no trace line.
    Camera down;
    down.centre = CXYZ(10.0, 6.0, 45.0);
    down.ang = CWPK(0.02, -0.03, 0.4);
    Points tall;
    const double corners[4][3] = {{0, 0, 0}, {20, 0, 0}, {10, 17, 0}, {10, 6, 25}};
    for (int i = 0; i < 4; ++i) {
        CXYZ p(std::to_wstring(i).c_str(), corners[i][0], corners[i][1], corners[i][2]);
        tall.Add(p);
    }
    Points tallPhc = Photo(down, tall, true);
    CSinOri t4;
    ASSERT_EQ(t4.Create(tall, tallPhc, down.c), 1);
    ClearLines();
    ASSERT_EQ(t4.CalSinOri(), 1);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CSinOri::SinIte std <= m_stdLim"}));
    EXPECT_LT(t4.m_pos.Len(down.centre), 1e-9);
    EXPECT_LT(AngleGap(t4.m_rot, down.Rot()), 1e-10);

    Points three;
    for (int i = 0; i < 3; ++i) three.Add(obj[i]);
    CSinOri s3;
    ASSERT_EQ(s3.Create(three, rel, cam.c), 1);
    ClearLines();
    EXPECT_EQ(s3.CalSinOri(), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CSinOri::CalSinOri n0 < 4 || n0 != n1"}));
    EXPECT_EQ(s3.m_rms.x, -1.0);
    EXPECT_EQ(CSinOri().Create(obj, rel, 0.0), 0);
}

TEST(SinOri, RotationDerivativesMatchDifferences) {
    CSinOri so;
    const CWPK a(0.3, -0.7, 1.1);
    const double h = 1e-6;
    for (ROT_SYSTEM sys : {ROT_WPK, ROT_KPW, ROT_W, ROT_P, ROT_K}) {
        double d[3][9];
        CWPK ang = a;
        ASSERT_EQ(so.CalCorp(sys, ang, d[0], d[1], d[2]), 1);
        for (int k = 0; k < 3; ++k) {
            CWPK p = a, m = a;
            double* pp = k == 0 ? &p.omega : k == 1 ? &p.phi : &p.kappa;
            double* mm = k == 0 ? &m.omega : k == 1 ? &m.phi : &m.kappa;
            *pp += h;
            *mm -= h;
            CRot rp, rm;
            rp.SetMatrix(sys, p);
            rm.SetMatrix(sys, m);
            for (int j = 0; j < 9; ++j)
                EXPECT_NEAR(d[k][j], (rp.m[j] - rm.m[j]) / (2 * h), 1e-8) << sys << " " << k;
        }
    }
}

class MomentTest : public kel_test::KelFixture {};

// A Gaussian spot of standard deviation s and the given height (negative: dark) over a level
// grey, centred at (cx, cy) with pixel centres at half units.
void Spot(CMoment& m, int w, int h, double cx, double cy, double s, double level, double height) {
    for (int r = 0; r < h; ++r)
        for (int c = 0; c < w; ++c) {
            const double dx = c + 0.5 - cx, dy = r + 0.5 - cy;
            m.GetBuffer()[r * w + c] = static_cast<unsigned char>(
                std::lround(level + height * std::exp(-(dx * dx + dy * dy) / (2 * s * s))));
        }
}

TEST_F(MomentTest, GaussianSpotsAndSinglePixels) {
    CMoment m;
    ASSERT_EQ(m.SetData(CSize(21, 17), 0, 0, 30), 1);
    Spot(m, 21, 17, 10.3, 8.7, 1.6, 20.0, 200.0);
    double cx = 0, cy = 0;
    ASSERT_EQ(m.DoMoment(&cx, &cy), 1);
    EXPECT_NEAR(cx, 10.3, 0.1);
    EXPECT_NEAR(cy, 8.7, 0.1);
    ASSERT_EQ(m.DoMoment2(10, 8, &cx, &cy), 1);
    EXPECT_NEAR(cx, 10.3, 0.1);
    EXPECT_NEAR(cy, 8.7, 0.1);

    // A dark spot: DoMoment told so, DoMoment2 finds it from the centre pixel.
    CMoment d;
    ASSERT_EQ(d.SetData(CSize(16, 16), 1, 0, 40), 1);
    Spot(d, 16, 16, 7.6, 8.2, 1.4, 230.0, -180.0);
    ASSERT_EQ(d.DoMoment(&cx, &cy), 1);
    EXPECT_NEAR(cx, 7.6, 0.1);
    EXPECT_NEAR(cy, 8.2, 0.1);
    ASSERT_EQ(d.DoMoment2(7, 8, &cx, &cy), 1);
    EXPECT_NEAR(cx, 7.6, 0.1);

    CMoment one;
    ASSERT_EQ(one.SetData(CSize(6, 5), 0, 1, 50), 1);
    one.GetBuffer()[2 * 6 + 3] = 200;
    ASSERT_EQ(one.DoMoment(&cx, &cy), 1);
    EXPECT_EQ(cx, 3.5);
    EXPECT_EQ(cy, 2.5);
    one.SetData(CSize(6, 5), 0, 1, 100);
    one.GetBuffer()[2 * 6 + 3] = 200;
    EXPECT_EQ(one.DoMoment(&cx, &cy), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CMoment::DoMoment M00<=0"}));
    ClearLines();
    one.SetData(CSize(6, 5), 0, 1, 50);  // uniform
    EXPECT_EQ(one.DoMoment(&cx, &cy), 0);
    EXPECT_EQ(one.DoMoment2(3, 2, &cx, &cy), 0);
    EXPECT_TRUE(Lines().empty());
    EXPECT_EQ(one.SetData(CSize(0, 5), 0, 1, 50), 0);
    EXPECT_EQ(one.GetImageSize(), CSize(0, 0));
}

TEST_F(MomentTest, SecondMethodKeepsToTheSeedsBlobAndCircle) {
    // A bright blob at the centre and a second one beyond a dark gap: only the first counts.
    CMoment m;
    ASSERT_EQ(m.SetData(CSize(20, 20), 0, 1, 50), 1);
    unsigned char* px = m.GetBuffer();
    for (int r = 8; r <= 11; ++r)
        for (int c = 8; c <= 11; ++c) px[r * 20 + c] = 220;  // centre (10, 10)
    for (int r = 8; r <= 11; ++r)
        for (int c = 14; c <= 15; ++c) px[r * 20 + c] = 220;  // separated by columns 12, 13
    px[0] = 255;  // a corner outside the inscribed circle
    double cx = 0, cy = 0;
    ASSERT_EQ(m.DoMoment2(10, 10, &cx, &cy), 1);
    EXPECT_EQ(cx, 10.0);
    EXPECT_EQ(cy, 10.0);
    ASSERT_EQ(m.DoMoment(&cx, &cy), 1);  // the first method counts both blobs and the corner
    EXPECT_GT(cx, 10.0);
    EXPECT_EQ(m.DoMoment2(-1, 10, &cx, &cy), 0);  // a seed outside the patch is rejected
    EXPECT_EQ(m.DoMoment2(10, 20, &cx, &cy), 0);
    const CSize size(20, 20);
    EXPECT_EQ(m.CheckUnderOnLine(10, 10, 15, 10, px, size, 100), 0);
    EXPECT_EQ(m.CheckUnderOnLine(10, 10, 11, 8, px, size, 100), 1);
    EXPECT_EQ(m.CheckOverOnLine(0, 19, 5, 19, px, size, 100), 1);
    EXPECT_EQ(m.CheckOverOnLine(0, 19, 25, 19, px, size, 100), 0);
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
