#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <string>

#include "common/KelTest.h"
#include "geometry/Rot.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/OpenCvCamera.h"
#include "surface/SinOriToTin.h"

namespace {

class OpenCvCameraTest : public kel_test::KelFixture {
protected:
    CCamera SampleCamera() {
        CCamera cam;
        EXPECT_EQ(cam.Read(kel_text::Utf8ToWide(KELSCAN_TEST_DATA_DIR "/camera.cam")), 1);
        return cam;
    }
};

constexpr int kWidth = 4000, kHeight = 3000;  // the sample camera's sensor, pixels
constexpr double kPx = 0.01;                  // agreement asked of a conversion, pixels

// OpenCV's pixel of an object point for a kelscan pose, through the library's own model of
// OpenCV (the Python suite checks the same against OpenCV itself).
void OpenCvPixel(const COpenCvCamera& cv, const CRot& rot, const CXYZ& centre, const CXYZ& p,
                 double& u, double& v) {
    double r[9], t[3];
    COpenCvCamera::PoseToOpenCv(rot, centre, r, t);
    const double X = r[0] * p.x + r[1] * p.y + r[2] * p.z + t[0];
    const double Y = r[3] * p.x + r[4] * p.y + r[5] * p.z + t[1];
    const double Z = r[6] * p.x + r[7] * p.y + r[8] * p.z + t[2];
    double xd = 0.0, yd = 0.0;
    cv.Distort(X / Z, Y / Z, xd, yd);
    cv.NormToPixel(xd, yd, u, v);
}

// Both ways round: the sample camera exported and imported back projects object points where
// kelscan does, and the exact part of the mapping is exact.
TEST_F(OpenCvCameraTest, ExportAndImportProjectLikeTheCameraFile) {
    const CCamera cam = SampleCamera();
    COpenCvCamera cv;
    ASSERT_EQ(cv.FromCamera(cam, kWidth, kHeight, 8), 1);
    EXPECT_DOUBLE_EQ(cv.m_matrix[0], 8.8 / 0.00167);
    EXPECT_DOUBLE_EQ(cv.m_matrix[2], 3.341 / 0.00167 - 0.5);
    EXPECT_DOUBLE_EQ(cv.m_matrix[5], 2.503 / 0.00167 - 0.5);
    EXPECT_EQ(cv.GetGridPoints(), 65 * 49);
    EXPECT_LT(cv.GetMaxResidual(), 1e-3);
    // Five coefficients cannot follow this lens as closely; the residual says so.
    COpenCvCamera five;
    ASSERT_EQ(five.FromCamera(cam, kWidth, kHeight, 5), 1);
    EXPECT_GT(five.GetMaxResidual(), 10 * cv.GetMaxResidual());

    CCamera back;
    ASSERT_EQ(cv.ToCamera(0.00167, 0.00167, DIST_K1K2K3K4, back), 1);
    EXPECT_DOUBLE_EQ(back.m_focal, 8.8);
    EXPECT_NEAR(back.m_principal.x, 3.341, 1e-12);
    EXPECT_NEAR(back.m_principal.y, 2.503, 1e-12);
    EXPECT_LT(cv.GetMaxResidual(), kPx);

    // Object points seen from a turned camera, pixels from kelscan's chain and OpenCV's model.
    CSinOriToTin ori;
    CRot rot;
    rot.SetMatrix(ROT_KPW, CWPK(0.3, -0.2, 1.1));
    const CXYZ centre(10.0, -20.0, 5.0);
    std::mt19937 rng(18);
    std::uniform_real_distribution<double> px(0.0, 1.0);
    for (const CCamera* c : {&cam, static_cast<const CCamera*>(&back)}) {
        ori.SetCamera(*c);
        ASSERT_EQ(ori.SetOrientation(c->m_focal, centre, rot), 1);
        for (int i = 0; i < 200; ++i) {
            // A point on the ray of a random pixel, 50 m away.
            double x = 0.0, y = 0.0, u = 0.0, v = 0.0;
            cam.ImgToPhc(px(rng) * kWidth, px(rng) * kHeight, x, y);
            CRot objFromCam = rot;
            objFromCam.T();
            CXYZ dir;
            objFromCam.Rotate(x, y, -cam.m_focal, dir.x, dir.y, dir.z);
            const CXYZ p = centre + dir * (50.0 / dir.Len());
            CXYZ img;
            ASSERT_EQ(ori.ObjToImg(p, img), 1);
            OpenCvPixel(cv, rot, centre, p, u, v);
            EXPECT_NEAR(u, img.x - 0.5, kPx) << "seed 18, point " << i;
            EXPECT_NEAR(v, img.y - 0.5, kPx) << "seed 18, point " << i;
        }
    }

    // Bad requests: one line each, the camera unchanged.
    CCamera zero;
    ClearLines();
    EXPECT_EQ(cv.FromCamera(zero, kWidth, kHeight, 8), 0);
    EXPECT_EQ(cv.FromCamera(cam, kWidth, kHeight, 6), 0);
    EXPECT_EQ(cv.ToCamera(0.00167, 0.0018, DIST_K1K2K3K4, back), 0);  // 8 % off c / fy
    ASSERT_EQ(Lines().size(), 3u);
    EXPECT_EQ(Lines()[1], "COpenCvCamera::FromCamera numCoef != 5 && numCoef != 8");
    EXPECT_EQ(Lines()[2], "COpenCvCamera::ToCamera |c / fy - sy| > kAspectTol sy");
    EXPECT_DOUBLE_EQ(back.m_focal, 8.8);
}

// A typical OpenCV calibration (barrel distortion, a little decentring) imported: the model
// the residual names is the one that reprojects, and a purely radial one takes model 1.
TEST_F(OpenCvCameraTest, ImportFitsTheInverseAndReportsItsResidual) {
    COpenCvCamera cv;
    cv.m_width = 1280;
    cv.m_height = 720;
    const double k[9] = {1025.0, 0.0, 639.5, 0.0, 1025.0, 359.5, 0.0, 0.0, 1.0};
    std::copy(k, k + 9, cv.m_matrix);
    cv.m_numCoef = 5;
    cv.m_coef[0] = -0.1;
    cv.m_coef[1] = 0.05;
    EXPECT_EQ(cv.DefaultModel(), DIST_K1K2K3K4);
    CCamera cam;
    ASSERT_EQ(cv.ToCamera(0.003, 0.003, cv.DefaultModel(), cam), 1);
    EXPECT_LT(cv.GetMaxResidual(), kPx);
    const double radial = cv.GetMaxResidual();
    // Pixels of grid points and off-grid points agree within the residual reported.
    for (double u : {0.0, 333.3, 640.0, 1280.0})
        for (double v : {0.0, 101.7, 720.0}) {
            double x = 0.0, y = 0.0, xd = 0.0, yd = 0.0, cu = 0.0, cv2 = 0.0;
            cam.ImgToPhc(u, v, x, y);  // ideal mm, y up
            cv.Distort(x / cam.m_focal, -y / cam.m_focal, xd, yd);
            cv.NormToPixel(xd, yd, cu, cv2);
            EXPECT_NEAR(cu, u - 0.5, 1.5 * radial + 1e-9);
            EXPECT_NEAR(cv2, v - 0.5, 1.5 * radial + 1e-9);
        }
    cv.m_coef[2] = 2e-4;
    EXPECT_EQ(cv.DefaultModel(), DIST_K1K2K3P1P2);
    ASSERT_EQ(cv.ToCamera(0.003, 0.003, DIST_K1K2K3P1P2, cam), 1);
    EXPECT_EQ(cam.m_dist.GetDistModel(), DIST_K1K2K3P1P2);
    EXPECT_GT(cv.GetMaxResidual(), 0.0);
    // Model 0 keeps no distortion: the residual is the lens's own displacement.
    ASSERT_EQ(cv.ToCamera(0.003, 0.003, DIST_NONE, cam), 1);
    EXPECT_GT(cv.GetMaxResidual(), 10.0);
}

// What OpenCV 4.6's FileStorage wrote for this camera, byte for byte.
const char kOpenCvYaml[] =
    "%YAML:1.0\n"
    "---\n"
    "camera_matrix: !!opencv-matrix\n"
    "   rows: 3\n"
    "   cols: 3\n"
    "   dt: d\n"
    "   data: [ 1.0253554897936328e+03, 0., 6.3950000000000000e+02, 0.,\n"
    "       1.0250999999999999e+03, 3.5950000000000000e+02, 0., 0., 1. ]\n"
    "distortion_coefficients: !!opencv-matrix\n"
    "   rows: 1\n"
    "   cols: 5\n"
    "   dt: d\n"
    "   data: [ -2.1073331688296268e-01, 1.6938513226521010e-01, 0., 0.,\n"
    "       -6.0219213826525696e-02 ]\n"
    "image_width: 1280\n"
    "image_height: 720\n";

TEST_F(OpenCvCameraTest, ReadsAndWritesWhatOpenCvWrites) {
    COpenCvCamera cv;
    ASSERT_EQ(cv.ParseYaml(kOpenCvYaml, sizeof kOpenCvYaml - 1), 1);
    EXPECT_EQ(cv.m_matrix[0], 1025.3554897936328);
    EXPECT_EQ(cv.m_matrix[4], 1025.1);
    EXPECT_EQ(cv.m_numCoef, 5);
    EXPECT_EQ(cv.m_coef[4], -0.060219213826525697);
    EXPECT_EQ(cv.m_width, 1280);
    EXPECT_EQ(cv.FormatYaml(), kOpenCvYaml);
    ASSERT_EQ(cv.WriteYaml(kel_text::Utf8ToWide(HostPath("out.yml").c_str())), 1);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("out.yml")), kOpenCvYaml);

    // The other forms OpenCV writes: floats, a column of coefficients, keys of its
    // calibration sample (comments, quoted text, multi-channel matrices), CR LF.
    const std::string other =
        "%YAML:1.0\r\n---\r\ncalibration_time: \"Tue 12 Mar\"\r\n# flags: +fix_k3\r\n"
        "image_points: !!opencv-matrix\r\n   rows: 1\r\n   cols: 2\r\n   dt: \"2f\"\r\n"
        "   data: [ 1., 2., 3.,\r\n       4. ]\r\n"
        "camera_matrix: !!opencv-matrix\r\n   rows: 3\r\n   cols: 3\r\n   dt: f\r\n"
        "   data: [ 1.02535547e+03, 0., 6.39500000e+02, 0., 1.02509998e+03,\r\n"
        "       3.59500000e+02, 0., 0., 1. ]\r\n"
        "distortion_coefficients: !!opencv-matrix\r\n   rows: 4\r\n   cols: 1\r\n   dt: d\r\n"
        "   data: [ -2.1e-01, 1.6e-01, 0., 0. ]\r\n"
        "image_width: 1280\r\nimage_height: 720\r\navg_reprojection_error: 2.5e-01\r\n";
    ASSERT_EQ(cv.ParseYaml(other.data(), other.size()), 1);
    EXPECT_EQ(cv.m_numCoef, 4);
    EXPECT_EQ(cv.m_coef[1], 0.16);
    EXPECT_EQ(cv.m_matrix[4], 1025.09998);

    // One change at a time: the line and the reason, one trace line, the camera unchanged.
    const struct {
        const char* from;
        const char* to;
        int line;
        const char* reason;
    } bad[] = {
        {"%YAML:1.0", "%YAML:1.2", 1, "expected \"%YAML:1.0\""},
        {"   cols: 3", "   cols: x", 5, "cols is not a positive whole number"},
        {"   dt: d", "   dt: q", 6, "dt \"q\" is no element type"},
        {", 0., 1. ]", ", 0., 1. ]]", 8, "text after the data list's \"]\""},
        {"0., 0., 1. ]", "0., 1. ]", 8, "data holds 8 values, rows x cols is 9"},
        {"0., 0.,\n", "0., ,\n", 13, "an empty data item"},
        {"6.3950000000000000e+02", ".Nan", 7, "data item \".Nan\" is not a finite number"},
        {"   rows: 3\n   cols: 3", "   rows: 1\n   cols: 9", 4, "camera_matrix is not 3 x 3"},
        {"image_width: 1280", "image_width: {a: 1}", 15,
         "image_width is not a whole number from 1 to 1000000"},
        {"image_height: 720", "flags: [1, 2]", 16,
         "the value of flags is neither a plain scalar nor an !!opencv-matrix"},
        {"image_height: 720", "image_width: 720", 16, "key image_width given twice"},
        {"   dt: d\n   data: [ -2", "   data: [ -2", 12, "expected an indented \"dt:\" line"},
        {"0., 0., 1. ]", "0., 0., 2. ]", 7,
         "camera_matrix is not [fx skew cx; 0 fy cy; 0 0 1] with fx, fy > 0"},
        {"image_height: 720\n", "", 0, "no image_height"},
    };
    for (const auto& b : bad) {
        std::string text = kOpenCvYaml;
        const std::size_t at = text.find(b.from);
        ASSERT_NE(at, std::string::npos) << b.from;
        text.replace(at, std::string(b.from).size(), b.to);
        COpenCvCamera kept(cv);
        ClearLines();
        EXPECT_EQ(kept.ParseYaml(text.data(), text.size()), 0) << b.to;
        EXPECT_EQ(kept.GetErrorLine(), b.line) << b.to;
        EXPECT_EQ(kept.GetError(), b.reason) << b.to;
        ASSERT_EQ(Lines().size(), 1u) << b.to;
        EXPECT_EQ(kept.m_numCoef, 4) << b.to;
    }
    EXPECT_EQ(Lines()[0], "COpenCvCamera::ParseYaml no image_height");
}

}  // namespace
