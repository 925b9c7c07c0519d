#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "common/KelTest.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Helmert.h"
#include "platform/KelMath.h"

namespace {

class CameraTest : public kel_test::KelFixture {
protected:
    std::wstring Dev(const char* name) { return kel_text::Utf8ToWide(HostPath(name).c_str()).GetString(); }
};

const char kSample[] =
    "35.500000\t\t\t// focul length [mm]\n"
    "0.012000\t\t\t// x of principal point [m]\n"
    "-0.034000\t\t\t// y of principal point [m]\n"
    "3\t\t\t\t\t// distortion model\n"
    "5\t\t\t\t\t// number of distortion parameters\n"
    "-2.000000e-04\t\t// distortion parameter 1\n"
    "3.000000e-06\t\t// distortion parameter 2\n"
    "0.000000e+00\t\t// distortion parameter 3\n"
    "1.000000e-05\t\t// distortion parameter 4\n"
    "-2.000000e-05\t\t// distortion parameter 5\n"
    "0.004700\t\t\t// x resolution [mm/pixel]\n"
    "0.004700\t\t\t// y resolution [mm/pixel]\n"
    "2\t\t\t\t\t// number of fiducial marks\n"
    "F1\t-12.500000\t8.250000\t// coordinates of fiducial mark 1 [mm]\n"
    "F2\t12.500000\t-8.250000\t// coordinates of fiducial mark 2 [mm]\n"
    "2\t\t\t\t\t// number of radial distortion values\n"
    "0.000000\t0.000000\t// radius and  radial distortion value 1 [mm]\n"
    "1.000000\t-0.000200\t// radius and  radial distortion value 2 [mm]\n";

TEST_F(CameraTest, ReadsAndWritesTheFileByteForByte) {
    kel_test::WriteFileBytes(HostPath("cam.txt"), kSample);
    CCamera cam;
    ASSERT_EQ(cam.Read(Dev("cam.txt").c_str()), 1);
    EXPECT_STREQ(cam.m_name, L"cam");
    EXPECT_EQ(cam.m_focal, 35.5);
    EXPECT_EQ(cam.m_principal.y, -0.034);
    EXPECT_EQ(cam.m_dist.GetDistModel(), DIST_K1K2K3P1P2);
    EXPECT_EQ(cam.m_dist.m_para[4], -2e-5);
    EXPECT_EQ(cam.m_fiducial, 1);
    ASSERT_EQ(cam.m_fiducialMark.GetSize(), 2);
    EXPECT_STREQ(cam.m_fiducialMark[1].m_name, L"F2");
    EXPECT_EQ(cam.m_fiducialMark[1].x, 12.5);
    ASSERT_EQ(cam.m_dist.m_radius.GetSize(), 2);
    EXPECT_EQ(cam.m_dist.m_distortion[1], -0.0002);
    ASSERT_EQ(cam.Write(Dev("copy.cam").c_str()), 1);
    EXPECT_STREQ(cam.m_name, L"copy");
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("copy.cam")), kSample);

    // Every model writes its own parameter count and reads back to the same bytes.
    for (int m = 0; m <= 4; ++m) {
        CCamera c(cam);
        c.m_dist.SetDistModel(static_cast<DIST_MODEL>(m));
        for (int i = 0; i < 10; ++i) c.m_dist.m_para[i] = (i + 1) * 1.25e-5;
        ASSERT_EQ(c.Write(Dev("m.cam").c_str()), 1);
        const std::string first = kel_test::ReadFileBytes(HostPath("m.cam"));
        CCamera r;
        ASSERT_EQ(r.Read(Dev("m.cam").c_str()), 1);
        EXPECT_EQ(r.m_dist.GetNumPara(), c.m_dist.GetNumPara());
        ASSERT_EQ(r.Write(Dev("m.cam").c_str()), 1);
        EXPECT_EQ(kel_test::ReadFileBytes(HostPath("m.cam")), first) << m;
    }
    // CR LF line ends read too.
    std::string crlf;
    for (char ch : std::string(kSample)) crlf += ch == '\n' ? std::string("\r\n") : std::string(1, ch);
    kel_test::WriteFileBytes(HostPath("crlf.cam"), crlf);
    CCamera w;
    ASSERT_EQ(w.Read(Dev("crlf.cam").c_str()), 1);
    EXPECT_STREQ(w.m_fiducialMark[0].m_name, L"F1");
    EXPECT_EQ(w.m_dist.m_distortion[1], -0.0002);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(CameraTest, OptionalPartsShortFilesAndLimits) {
    std::string text(kSample);
    const std::string head = text.substr(0, text.find("2\t\t\t\t\t// number of radial"));
    kel_test::WriteFileBytes(HostPath("noradial.cam"), head);
    CCamera cam;
    ASSERT_EQ(cam.Read(Dev("noradial.cam").c_str()), 1);
    EXPECT_EQ(cam.m_dist.m_radius.GetSize(), 0);

    // A required line missing or empty: 0, the camera filled so far.
    const std::string cut = text.substr(0, text.find("0.004700"));
    kel_test::WriteFileBytes(HostPath("cut.cam"), cut);
    EXPECT_EQ(cam.Read(Dev("cut.cam").c_str()), 0);
    EXPECT_EQ(cam.m_focal, 35.5);
    EXPECT_EQ(cam.m_resolution.x, 0.0);
    EXPECT_EQ(cam.GetLastReadLine(), 11);
    kel_test::WriteFileBytes(HostPath("empty.cam"), "35.5\n\n0.1\n");
    EXPECT_EQ(cam.Read(Dev("empty.cam").c_str()), 0);
    EXPECT_EQ(cam.GetLastReadLine(), 2);
    EXPECT_EQ(cam.Read(Dev("missing.cam").c_str()), 0);
    EXPECT_EQ(cam.Write(L""), 0);

    // Two parameter lines for model 3: two consumed, the count stays 5. Extra lines past
    // ten parameters are read and dropped. A fiducial line with blanks and a comment.
    kel_test::WriteFileBytes(HostPath("two.cam"),
                             "10\n0\n0\n3\n2\n1e-4\n2e-4\n0.005\n0.005\n1\n"
                             "F1  -12.5 8.25  // mark\n");
    ASSERT_EQ(cam.Read(Dev("two.cam").c_str()), 1);
    EXPECT_EQ(cam.m_dist.GetNumPara(), 5);
    EXPECT_EQ(cam.m_dist.m_para[1], 2e-4);
    EXPECT_EQ(cam.m_dist.m_para[2], 0.0);
    EXPECT_STREQ(cam.m_fiducialMark[0].m_name, L"F1");
    EXPECT_EQ(cam.m_fiducialMark[0].x, -12.5);
    EXPECT_EQ(cam.m_fiducialMark[0].y, 8.25);
    std::string many = "10\n0\n0\n1\n12\n";
    for (int i = 0; i < 12; ++i) many += std::to_string(i + 1) + "e-3\n";
    many += "0.005\n0.005\n1\n" + std::string(100000, 'N') + " 1 2\n1000000000\n";
    kel_test::WriteFileBytes(HostPath("many.cam"), many);
    ASSERT_EQ(cam.Read(Dev("many.cam").c_str()), 1);
    EXPECT_EQ(cam.m_dist.m_para[9], 10e-3);
    EXPECT_EQ(cam.m_fiducial, 1);
    EXPECT_EQ(cam.m_fiducialMark[0].m_name.GetLength(), CCamera::kMaxLineBytes);  // line cut
    EXPECT_EQ(cam.m_dist.m_radius.GetSize(), CCamera::kMaxRadialValues);  // huge count clamped

    // Tables of lengths 3 and 5 write 3 radial lines.
    CCamera t;
    for (int i = 0; i < 5; ++i) t.m_dist.m_distortion.Add(i * 0.1);
    for (int i = 0; i < 3; ++i) t.m_dist.m_radius.Add(i * 1.0);
    ASSERT_EQ(t.Write(Dev("t.cam").c_str()), 1);
    const std::string out = kel_test::ReadFileBytes(HostPath("t.cam"));
    EXPECT_NE(out.find("3\t\t\t\t\t// number of radial distortion values\n"), std::string::npos);
    EXPECT_EQ(out.find("value 4"), std::string::npos);
    EXPECT_TRUE(Lines().empty());
}

class HelmertTest : public kel_test::KelFixture {};

typedef kel_templ::CKelArray<CXYZ, CXYZ&> PointArray;

PointArray Points(std::initializer_list<CXYZ> pts) {
    PointArray a;
    for (CXYZ p : pts) a.Add(p);
    return a;
}

TEST_F(HelmertTest, RecoversAKnownSimilarityAndInvertsIt) {
    const double m = 1.0025, th = 0.3;
    const double a = m * std::cos(th), b = m * std::sin(th), c = 1000.0, d = -250.0;
    std::mt19937 rng(1);
    std::uniform_real_distribution<double> u(-100, 100);
    PointArray tgt, src;
    for (int i = 0; i < 8; ++i) {
        const double x = u(rng), y = u(rng);
        const std::wstring name = L"P" + std::to_wstring(i);
        CXYZ s(name.c_str(), x, y, i);
        CXYZ t(name.c_str(), a * x - b * y + c, b * x + a * y + d, 0);
        src.Add(s);
        tgt.InsertAt(0, t);  // other order: the names pair them
    }
    CHelmert h;
    EXPECT_EQ(h.GetRmsResidual().x, -1.0);
    ASSERT_EQ(h.SetPoints(tgt, src), 8);
    ASSERT_EQ(h.CalPara(), 1);
    EXPECT_NEAR(h.m_para[0], a, 1e-12);
    EXPECT_NEAR(h.m_para[1], b, 1e-12);
    EXPECT_NEAR(h.m_para[2], c, 1e-9);
    EXPECT_NEAR(h.m_para[3], d, 1e-9);
    EXPECT_LT(h.GetRmsResidual().x, 1e-9);
    EXPECT_STREQ(h.GetResiduals()[0].m_name, L"P7");
    CXYZ p(L"Q", 12.0, -7.0, 5.0), q, back;
    ASSERT_EQ(h.Transform(p, q, 1), 1);
    ASSERT_EQ(h.Transform(q, back, 0), 1);
    EXPECT_NEAR(back.x, 12.0, 1e-10);
    EXPECT_NEAR(back.y, -7.0, 1e-10);
    const CHelmert copy(h);
    EXPECT_EQ(copy.m_para[1], h.m_para[1]);
    EXPECT_TRUE(Lines().empty());

    // Residuals: transformed source minus target, the largest with its sign.
    PointArray t3 = Points({CXYZ(L"A", 0, 0, 0), CXYZ(L"B", 10, 0, 0), CXYZ(L"C", 0, 10, 0)});
    PointArray s3 = Points({CXYZ(L"A", 0, 0, 0), CXYZ(L"B", 10, 0, 0), CXYZ(L"C", 0, 10.3, 0)});
    CHelmert r;
    r.SetPoints(t3, s3);
    ASSERT_EQ(r.CalPara(), 1);
    double sx = 0, sy = 0;
    for (int i = 0; i < 3; ++i) {
        CXYZ f;
        r.Transform(s3[i], f, 1);
        EXPECT_NEAR(r.GetResiduals()[i].y, f.y - t3[i].y, 1e-12);
        sx += r.GetResiduals()[i].x * r.GetResiduals()[i].x;
        sy += r.GetResiduals()[i].y * r.GetResiduals()[i].y;
    }
    EXPECT_NEAR(r.GetRmsResidual().y, std::sqrt(sy / 3), 1e-12);
    EXPECT_NEAR(r.GetRmsResidual().x, std::sqrt(sx / 3), 1e-12);
    EXPECT_GT(std::fabs(r.GetMaxResidual().y), 0.0);
}

TEST_F(HelmertTest, PairingAndFailureMessages) {
    PointArray t = Points({CXYZ(L"P1", 0, 0, 0), CXYZ(L"P2", 1, 0, 0), CXYZ(L"P3", 0, 1, 0)});
    PointArray s = Points({CXYZ(L"P2", 5, 0, 0), CXYZ(L"P1", 4, 0, 0), CXYZ(L"X", 9, 9, 0)});
    CHelmert h;
    CXYZ out;
    EXPECT_EQ(h.Transform(t[0], out, 1), 0);
    ASSERT_EQ(h.SetPoints(t, s), 2);
    EXPECT_STREQ(h.m_target[0].m_name, L"P1");
    EXPECT_EQ(h.m_source[0].x, 4.0);
    EXPECT_STREQ(h.m_target[1].m_name, L"P2");

    PointArray one = Points({CXYZ(L"P1", 0, 0, 0)});
    CHelmert single;
    single.SetPoints(one, one);
    EXPECT_EQ(single.CalPara(), 0);

    // All source points at one place: the normal matrix is singular.
    PointArray same = Points({CXYZ(L"P1", 3, 3, 0), CXYZ(L"P2", 3, 3, 0)});
    CHelmert degenerate;
    degenerate.SetPoints(t, same);
    EXPECT_EQ(degenerate.CalPara(), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "CHelmert::Transform()", "CHelmert::CalPara() num < 2",
                           "CLeastSq::LUDivid fabs( noeqTmp.GetAt( posii ) ) < eps",
                           "CHelmert::CalPara() obeq.Solve() == FALSE"}));
    ClearLines();

    // All target points at one place: a = b = 0 fits; forwards works, backwards cannot.
    CHelmert flat;
    flat.SetPoints(same, t);
    ASSERT_EQ(flat.CalPara(), 1);
    EXPECT_NEAR(flat.m_para[0], 0.0, 1e-12);
    flat.m_para[0] = flat.m_para[1] = 0.0;
    EXPECT_EQ(flat.Transform(t[1], out, 1), 1);
    EXPECT_NEAR(out.x, 3.0, 1e-12);
    EXPECT_EQ(flat.Transform(t[1], out, 0), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"CHelmert::Transform() D == 0.0"}));
}

}  // namespace
