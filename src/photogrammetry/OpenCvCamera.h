#pragma once
// COpenCvCamera: a camera as OpenCV describes it (camera matrix, distortion coefficients and
// image size), its FileStorage YAML file, and the conversions to and from the camera file's
// CCamera.
//
// OpenCV's projection of a point (X, Y, Z) in its camera frame (x right, y down, z forward,
// Z > 0 in front), pixel centres at whole numbers:
//   x = X / Z, y = Y / Z (the ideal normalised point), r2 = x^2 + y^2,
//   q  = (1 + k1 r2 + k2 r2^2 + k3 r2^3) / (1 + k4 r2 + k5 r2^2 + k6 r2^3),
//   xd = x q + 2 p1 x y + p2 (r2 + 2 x^2) + s1 r2 + s2 r2^2,
//   yd = y q + p1 (r2 + 2 y^2) + 2 p2 x y + s3 r2 + s4 r2^2,
//   u = fx xd + skew yd + cx, v = fy yd + cy.
// Its distortion maps an IDEAL point to the DISTORTED one. The camera file's CDist goes the
// other way: it corrects a MEASURED photo point to its ideal position (ideal = measured +
// D(measured)). The two parameter sets are therefore not a renaming of each other (nor are the
// p1/p2 terms, whose roles and y direction differ): each conversion fits the target model by
// least squares (CLeastSq) to the source model on a grid of kGridIntervals + 1 pixels along
// the image's longer side (the edges included) and reports how far apart the two models put
// a point: GetMaxResidual, in pixels, measured by projecting with both, not taken from the fit.
//
// The exact part of the mapping, with c the focal length (mm), (ppx, ppy) the principal point
// (mm from the image's top-left corner, the camera file's values), (resx, resy) the pixel size
// (mm) and kelscan's pixel i spanning [i, i + 1) (its centre at i + 0.5, OpenCV's at i):
//   fx = c / resx, fy = c / resy, cx = ppx / resx - 0.5, cy = ppy / resy - 0.5, skew 0.
// Photo y points up where OpenCV's v points down; the fit's coordinates carry that.
//
// The YAML file: exactly what OpenCV's FileStorage writes ("%YAML:1.0", "---", then top-level
// "key: value" lines, matrices as "key: !!opencv-matrix" with indented rows, cols, dt and a
// data list in brackets over one or more lines); '#' comment lines pass. The four keys read are
// camera_matrix (3 x 3, [fx skew cx; 0 fy cy; 0 0 1]), distortion_coefficients (1 x N or N x 1,
// N = 4, 5, 8, 12 or 14), image_width and image_height; other keys must hold a plain scalar or
// a matrix of the same form and are skipped (OpenCV's calibration sample writes several).
// Anything else fails with the line it stands on.
#include <cstddef>
#include <string>

#include "geometry/Rot.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Dist.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class CCamera;

class KELSCAN_API COpenCvCamera {
public:
    KEL_DECLARE_ALLOCATOR

    // Coefficients in OpenCV's order: k1 k2 p1 p2 k3 k4 k5 k6 s1 s2 s3 s4 tauX tauY.
    static constexpr int kMaxCoefficients = 14;
    // Grid intervals along the image's longer side (the shorter side gets as many at the same
    // spacing): 64 x 48 intervals, 3185 points, for a 4:3 image.
    static constexpr int kGridIntervals = 64;
    // Largest image side, pixels.
    static constexpr int kMaxImageSide = 1000000;
    // Gauss-Newton passes of the rational fit (FromCamera with 8 coefficients); the fit keeps
    // its best pass and stops after kFitStallPasses passes without a better one.
    static constexpr int kFitIteLim = 50;
    static constexpr int kFitStallPasses = 3;
    // Largest residual (pixels) of the five-coefficient fit below which FromCamera with 8
    // coefficients keeps k4 = k5 = k6 = 0 (a lens without distortion leaves the rational part
    // undetermined).
    static constexpr double kExactFitPx = 1e-6;
    // Newton passes of Undistort and the residual (normalised units, |dx| + |dy|) that ends
    // them: 1e-12 is a few nanopixels for any focal length in use.
    static constexpr int kUndistortIteLim = 50;
    static constexpr double kUndistortTol = 1e-12;
    // ToCamera: the y pixel size that the camera matrix implies (c / fy) may differ from the one
    // given by at most this fraction.
    static constexpr double kAspectTol = 0.01;
    // The reader: most bytes of a line and most elements of any one matrix.
    static constexpr int kMaxLineBytes = 4096;
    static constexpr long kMaxMatrixElements = 1L << 22;

    COpenCvCamera();
    COpenCvCamera(const COpenCvCamera& src) = default;
    COpenCvCamera& operator=(const COpenCvCamera& src) = default;
    ~COpenCvCamera() = default;

    // Image 0 x 0, the identity camera matrix, no coefficients, no residuals.
    void Init();

    // ---- the model ------------------------------------------------------------------------
    // The distorted normalised point of the ideal one (x, y), with the coefficients held.
    void Distort(double x, double y, double& xd, double& yd) const;
    // The ideal point whose distorted point is (xd, yd), by Newton's method from (xd, yd). 1, or
    // 0 when it does not settle to kUndistortTol within kUndistortIteLim passes (x, y then hold
    // the last pass). Logs nothing.
    int Undistort(double xd, double yd, double& x, double& y) const;
    // OpenCV's pixel (centres at whole numbers) of the distorted normalised point, and back.
    void NormToPixel(double xd, double yd, double& u, double& v) const;
    void PixelToNorm(double u, double v, double& xd, double& yd) const;

    // ---- conversions ----------------------------------------------------------------------
    // This camera from a camera file's camera for an image of width x height pixels: the exact
    // matrix above and numCoef (5: k1 k2 p1 p2 k3, or 8: with k4 k5 k6) coefficients fitted to
    // the inverse of cam's correction; a radial lens (model 0 or 1) keeps p1 = p2 = 0, so that
    // it comes back radial. 1; 0 after one trace line for a size outside
    // 1..kMaxImageSide, numCoef not 5 or 8, a focal length or pixel size that is not positive,
    // or a failed fit (this camera then unchanged).
    int FromCamera(const CCamera& cam, int width, int height, int numCoef);
    // A camera file's camera from this one, for a sensor of pixel size (sx, sy) mm: focal length
    // c = fx sx, pixel size (sx, c / fy), the principal point from (cx, cy) as above, and the
    // distortion of `model` (0..4) fitted to OpenCV's. A skew has no counterpart but model 4's
    // shear (a2) and is fitted like the distortion. cam is Init'ed first and named nothing. 1; 0
    // after one trace line for a pixel size that is not positive, c / fy farther than
    // kAspectTol from sy, a matrix not of the form above, an unknown model, non-zero tilt
    // coefficients (tauX, tauY), a grid pixel that does not undistort, or a failed fit (cam
    // then unchanged).
    int ToCamera(double sx, double sy, DIST_MODEL model, CCamera& cam);
    // The image size of a camera file's camera, which does not store one, taken as the image
    // centred on the principal point: (round(2 ppx / resx), round(2 ppy / resy)). 1, or 0
    // (width, height untouched) when the pixel size is not positive or a side falls outside
    // 1..kMaxImageSide.
    static int CentredImageSize(const CCamera& cam, int& width, int& height);
    // The model ToCamera takes when none is asked for: 1 (k1..k4) for a purely radial lens
    // (p1, p2, s1..s4 all zero), else 3 (k1 k2 k3 p1 p2).
    DIST_MODEL DefaultModel() const;
    // The last conversion's largest and RMS distance between the two models' pixels of the
    // same point over the grid, and the grid's point count (0 before any conversion).
    double GetMaxResidual() const { return m_maxResidual; }
    double GetRmsResidual() const { return m_rmsResidual; }
    int GetGridPoints() const { return m_gridPoints; }

    // A pose of the camera file's convention (camera frame = R (P - C), looking along its
    // negative z axis, y up) as OpenCV's (camera frame = Rcv P + t, looking along +z, y down):
    // Rcv = diag(1, -1, -1) R, t = -Rcv C. rotCv row-major.
    static void PoseToOpenCv(const CRot& rot, const CXYZ& centre, double rotCv[9], double t[3]);

    // ---- the YAML file --------------------------------------------------------------------
    // Reads the file at a device path (ParseYaml). 1, or 0 after one trace line; this camera is
    // then unchanged, and GetError / GetErrorLine say what and where (line 0: the file as a
    // whole, e.g. it cannot be read or a key is missing).
    int ReadYaml(const wchar_t* path);
    int ParseYaml(const char* text, std::size_t size);
    const std::string& GetError() const { return m_error; }
    int GetErrorLine() const { return m_errorLine; }
    // The file as OpenCV writes it: numbers in its forms ("%.16e", or "N." for a whole number),
    // data lists wrapped as it wraps them; camera_matrix, distortion_coefficients, image_width
    // and image_height (1 x m_numCoef, or 1 x 5 when m_numCoef is no count OpenCV
    // takes).
    std::string FormatYaml() const;
    // Writes FormatYaml to a device path. 1, or 0 after one trace line.
    int WriteYaml(const wchar_t* path) const;

    int m_width;  // image size, pixels
    int m_height;
    double m_matrix[9];  // camera matrix, row-major: fx skew cx; 0 fy cy; 0 0 1 (pixels)
    int m_numCoef;       // coefficients given: 0, 4, 5, 8, 12 or 14
    double m_coef[kMaxCoefficients];  // the rest are 0

private:
    // The grid's pixel i along an axis of `side` pixels with `count` points (kelscan's frame).
    static double GridPixel(int i, int count, int side);
    void GridSize(int& nx, int& ny) const;
    // Fills m_maxResidual, m_rmsResidual, m_gridPoints from a sum of squares and a maximum.
    void SetResiduals(double sum2, double max, int n);
    int Fail(const wchar_t* operation, int line, const std::string& reason);

    double m_maxResidual;
    double m_rmsResidual;
    int m_gridPoints;
    std::string m_error;
    int m_errorLine;
};
