#include "photogrammetry/OpenCvCamera.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <vector>

#include "adjustment/LeastSq.h"
#include "photogrammetry/Camera.h"
#include "platform/Trace.h"

namespace {

// Linear least squares through the library's engine: rows of n coefficients and an observed
// value. The columns are scaled to a largest magnitude of 1 before the solve (the powers of r
// span many orders of magnitude) and the solution is scaled back.
class RowFit {
public:
    explicit RowFit(int n) : m_n(n) {}
    void Add(const double* a, double observed) {
        m_a.insert(m_a.end(), a, a + m_n);
        m_l.push_back(observed);
    }
    // 1 with x[0..n-1], or 0 after the engine's trace line.
    int Solve(double* x) const {
        const int m = static_cast<int>(m_l.size());
        std::vector<double> scale(static_cast<std::size_t>(m_n), 0.0);
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < m_n; ++j)
                scale[j] =
                    std::max(scale[j], std::fabs(m_a[static_cast<std::size_t>(i) * m_n + j]));
        for (double& s : scale)
            if (s == 0.0) s = 1.0;
        CLeastSq ls(m, m_n);
        for (int i = 0; i < m; ++i) {
            for (int j = 0; j < m_n; ++j)
                ls.SetObeq(j, m_a[static_cast<std::size_t>(i) * m_n + j] / scale[j]);
            ls.SetObeq(m_n, m_l[static_cast<std::size_t>(i)]);
        }
        if (!ls.Solve()) return 0;
        for (int j = 0; j < m_n; ++j) x[j] = ls.GetBcor(j) / scale[j];
        return 1;
    }

private:
    int m_n;
    std::vector<double> m_a;
    std::vector<double> m_l;
};

// The coefficients of a camera file model's parameters in its correction (dx, dy) of the
// photo point (x, y), in m_para order (CDist::CalDist): ax for dx, ay for dy. Returns the count.
int CorrectionRow(DIST_MODEL model, double x, double y, double ax[8], double ay[8]) {
    const double r2 = y * y + x * x, r4 = r2 * r2, r6 = r4 * r2, r8 = r6 * r2;
    const double xy2 = 2 * x * y, tx = 2 * x * x + r2, ty = 2 * y * y + r2;
    switch (model) {
        case DIST_K1K2K3K4: {
            const double c[4] = {r2, r4, r6, r8};
            for (int k = 0; k < 4; ++k) {
                ax[k] = x * c[k];
                ay[k] = y * c[k];
            }
            return 4;
        }
        case DIST_K1K2P1P2: {
            const double rx[4] = {x * r2, x * r4, tx, xy2}, ry[4] = {y * r2, y * r4, xy2, ty};
            std::copy(rx, rx + 4, ax);
            std::copy(ry, ry + 4, ay);
            return 4;
        }
        case DIST_K1K2K3P1P2: {
            const double rx[5] = {x * r2, x * r4, x * r6, tx, xy2};
            const double ry[5] = {y * r2, y * r4, y * r6, xy2, ty};
            std::copy(rx, rx + 5, ax);
            std::copy(ry, ry + 5, ay);
            return 5;
        }
        case DIST_POLY8: {
            const double rx[8] = {x * r2, x * r4, x, y, x * y, y * y, 0.0, 0.0};
            const double ry[8] = {y * r2, y * r4, 0.0, 0.0, 0.0, 0.0, x * y, x * x};
            std::copy(rx, rx + 8, ax);
            std::copy(ry, ry + 8, ay);
            return 8;
        }
        default:
            return 0;
    }
}

// One grid point of a conversion: kelscan's pixel (u, v), its ideal normalised point in
// OpenCV's frame (x, y) and the distorted normalised point OpenCV must give it (xd, yd).
struct GridPoint {
    double u, v, x, y, xd, yd;
};

}  // namespace

COpenCvCamera::COpenCvCamera() { Init(); }

void COpenCvCamera::Init() {
    m_width = 0;
    m_height = 0;
    for (int i = 0; i < 9; ++i) m_matrix[i] = (i % 4 == 0) ? 1.0 : 0.0;
    m_numCoef = 0;
    for (double& c : m_coef) c = 0.0;
    m_maxResidual = 0.0;
    m_rmsResidual = 0.0;
    m_gridPoints = 0;
    m_error.clear();
    m_errorLine = 0;
}

void COpenCvCamera::Distort(double x, double y, double& xd, double& yd) const {
    const double* k = m_coef;
    const double r2 = x * x + y * y, r4 = r2 * r2, r6 = r4 * r2;
    const double q =
        (1.0 + k[0] * r2 + k[1] * r4 + k[4] * r6) / (1.0 + k[5] * r2 + k[6] * r4 + k[7] * r6);
    xd = x * q + 2 * k[2] * x * y + k[3] * (r2 + 2 * x * x) + k[8] * r2 + k[9] * r4;
    yd = y * q + k[2] * (r2 + 2 * y * y) + 2 * k[3] * x * y + k[10] * r2 + k[11] * r4;
}

int COpenCvCamera::Undistort(double xd, double yd, double& x, double& y) const {
    x = xd;
    y = yd;
    constexpr double h = 1e-6;  // central-difference step of the Jacobian (normalised units)
    for (int ite = 0; ite < kUndistortIteLim; ++ite) {
        double fx = 0.0, fy = 0.0;
        Distort(x, y, fx, fy);
        fx -= xd;
        fy -= yd;
        if (!std::isfinite(fx) || !std::isfinite(fy)) return 0;
        if (std::fabs(fx) + std::fabs(fy) <= kUndistortTol) return 1;
        double ax = 0.0, ay = 0.0, bx = 0.0, by = 0.0, cx = 0.0, cy = 0.0, dx = 0.0, dy = 0.0;
        Distort(x + h, y, ax, ay);
        Distort(x - h, y, bx, by);
        Distort(x, y + h, cx, cy);
        Distort(x, y - h, dx, dy);
        const double j11 = (ax - bx) / (2 * h), j21 = (ay - by) / (2 * h);
        const double j12 = (cx - dx) / (2 * h), j22 = (cy - dy) / (2 * h);
        const double det = j11 * j22 - j12 * j21;
        if (det == 0.0 || !std::isfinite(det)) return 0;
        x -= (j22 * fx - j12 * fy) / det;
        y -= (j11 * fy - j21 * fx) / det;
    }
    double fx = 0.0, fy = 0.0;
    Distort(x, y, fx, fy);
    return std::fabs(fx - xd) + std::fabs(fy - yd) <= kUndistortTol ? 1 : 0;
}

void COpenCvCamera::NormToPixel(double xd, double yd, double& u, double& v) const {
    u = m_matrix[0] * xd + m_matrix[1] * yd + m_matrix[2];
    v = m_matrix[4] * yd + m_matrix[5];
}

void COpenCvCamera::PixelToNorm(double u, double v, double& xd, double& yd) const {
    yd = (v - m_matrix[5]) / m_matrix[4];
    xd = (u - m_matrix[2] - m_matrix[1] * yd) / m_matrix[0];
}

double COpenCvCamera::GridPixel(int i, int count, int side) {
    return i == count - 1 ? side : static_cast<double>(side) * i / (count - 1);
}

void COpenCvCamera::GridSize(int& nx, int& ny) const {
    const double step = static_cast<double>(std::max(m_width, m_height)) / kGridIntervals;
    nx = static_cast<int>(std::ceil(m_width / step - 1e-9)) + 1;
    ny = static_cast<int>(std::ceil(m_height / step - 1e-9)) + 1;
}

void COpenCvCamera::SetResiduals(double sum2, double max, int n) {
    m_gridPoints = n;
    m_maxResidual = max;
    m_rmsResidual = n > 0 ? std::sqrt(sum2 / n) : 0.0;
}

void COpenCvCamera::PoseToOpenCv(const CRot& rot, const CXYZ& centre, double rotCv[9],
                                 double t[3]) {
    for (int j = 0; j < 3; ++j) {
        rotCv[j] = rot.m[j];
        rotCv[3 + j] = -rot.m[3 + j];
        rotCv[6 + j] = -rot.m[6 + j];
    }
    for (int i = 0; i < 3; ++i)
        t[i] =
            -(rotCv[3 * i] * centre.x + rotCv[3 * i + 1] * centre.y + rotCv[3 * i + 2] * centre.z);
}

int COpenCvCamera::FromCamera(const CCamera& cam, int width, int height, int numCoef) {
    if (width < 1 || height < 1 || width > kMaxImageSide || height > kMaxImageSide) {
        KEL_TRACE_ALWAYS(
            L"COpenCvCamera::FromCamera width < 1 || height < 1 || "
            L"width > kMaxImageSide || height > kMaxImageSide");
        return 0;
    }
    if (numCoef != 5 && numCoef != 8) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::FromCamera numCoef != 5 && numCoef != 8");
        return 0;
    }
    const double c = cam.m_focal, resx = cam.m_resolution.x, resy = cam.m_resolution.y;
    if (!(c > 0.0) || !(resx > 0.0) || !(resy > 0.0) || !std::isfinite(c) || !std::isfinite(resx) ||
        !std::isfinite(resy)) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::FromCamera !(c > 0.0) || !(resx > 0.0) || !(resy > 0.0)");
        return 0;
    }
    try {
        COpenCvCamera cv;
        cv.m_width = width;
        cv.m_height = height;
        const double m[9] = {c / resx, 0.0,      cam.m_principal.x / resx - 0.5,
                             0.0,      c / resy, cam.m_principal.y / resy - 0.5,
                             0.0,      0.0,      1.0};
        std::copy(m, m + 9, cv.m_matrix);
        cv.m_numCoef = numCoef;
        int nx = 0, ny = 0;
        cv.GridSize(nx, ny);
        // Each grid pixel's ideal point through the camera file's correction, in OpenCV's frame
        // (y down: the photo y negated), and the distorted point OpenCV must give it: the
        // measured one, i.e. that of the same pixel.
        std::vector<GridPoint> grid;
        grid.reserve(static_cast<std::size_t>(nx) * ny);
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) {
                GridPoint g{GridPixel(i, nx, width), GridPixel(j, ny, height), 0, 0, 0, 0};
                double ix = 0.0, iy = 0.0;
                cam.ImgToPhc(g.u, g.v, ix, iy);
                g.x = ix / c;
                g.y = -iy / c;
                cv.PixelToNorm(g.u - 0.5, g.v - 0.5, g.xd, g.yd);
                grid.push_back(g);
            }
        const double fx = cv.m_matrix[0], fy = cv.m_matrix[4];
        // One Gauss-Newton step on the coefficients listed in `unknowns`, rows in pixels (times
        // fx, fy). OpenCV's distortion is linear in k1 k2 p1 p2 k3 while k4 = k5 = k6 = 0, so
        // the first step from zero is their least-squares solution.
        auto step = [&grid, &cv, fx, fy](const std::vector<int>& unknowns) {
            const int n = static_cast<int>(unknowns.size());
            RowFit fit(n);
            const double* k = cv.m_coef;
            std::vector<double> sx(unknowns.size()), sy(unknowns.size());
            for (const GridPoint& g : grid) {
                const double x = g.x, y = g.y, r2 = x * x + y * y, r4 = r2 * r2, r6 = r4 * r2;
                const double num = 1.0 + k[0] * r2 + k[1] * r4 + k[4] * r6;
                const double den = 1.0 + k[5] * r2 + k[6] * r4 + k[7] * r6;
                const double a = 1.0 / den, b = -num / (den * den);
                const double ax[8] = {x * r2 * a, x * r4 * a, 2 * x * y,  r2 + 2 * x * x,
                                      x * r6 * a, x * r2 * b, x * r4 * b, x * r6 * b};
                const double ay[8] = {y * r2 * a, y * r4 * a, r2 + 2 * y * y, 2 * x * y,
                                      y * r6 * a, y * r2 * b, y * r4 * b,     y * r6 * b};
                for (int u = 0; u < n; ++u) {
                    sx[u] = ax[unknowns[u]] * fx;
                    sy[u] = ay[unknowns[u]] * fy;
                }
                double xd = 0.0, yd = 0.0;
                cv.Distort(x, y, xd, yd);
                fit.Add(sx.data(), (g.xd - xd) * fx);
                fit.Add(sy.data(), (g.yd - yd) * fy);
            }
            std::vector<double> d(unknowns.size());
            if (!fit.Solve(d.data())) return false;
            for (int u = 0; u < n; ++u) cv.m_coef[unknowns[u]] += d[u];
            return true;
        };
        // Residuals of the coefficients held: largest and summed squares (pixels).
        auto residuals = [&grid, &cv](double& max, double& sum2) {
            max = 0.0;
            sum2 = 0.0;
            for (const GridPoint& g : grid) {
                double xd = 0.0, yd = 0.0, u = 0.0, v = 0.0;
                cv.Distort(g.x, g.y, xd, yd);
                cv.NormToPixel(xd, yd, u, v);
                const double d2 =
                    (u - g.u + 0.5) * (u - g.u + 0.5) + (v - g.v + 0.5) * (v - g.v + 0.5);
                if (!std::isfinite(d2)) return false;
                max = std::max(max, std::sqrt(d2));
                sum2 += d2;
            }
            return true;
        };
        // A radial lens keeps p1 = p2 = 0, so that it comes back radial.
        const DIST_MODEL model = cam.m_dist.GetDistModel();
        const bool radial = model == DIST_NONE || model == DIST_K1K2K3K4;
        const std::vector<int> linear =
            radial ? std::vector<int>{0, 1, 4} : std::vector<int>{0, 1, 2, 3, 4};
        const std::vector<int> rational =
            radial ? std::vector<int>{0, 1, 4, 5, 6, 7} : std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7};
        double max = 0.0, sum2 = 0.0;
        if (!step(linear)) return 0;
        if (!residuals(max, sum2)) {
            KEL_TRACE_ALWAYS(L"COpenCvCamera::FromCamera !std::isfinite(residual)");
            return 0;
        }
        if (numCoef == 8 && max > kExactFitPx) {
            // The rational part by Gauss-Newton from the five-coefficient fit. Its normal
            // equations are poorly conditioned (numerator and denominator nearly cancel), so the
            // passes are judged by their residuals, and the best one is kept.
            double best[8], bestSum2 = sum2, bestMax = max;
            std::copy(cv.m_coef, cv.m_coef + 8, best);
            int stall = 0;
            for (int ite = 0; ite < kFitIteLim && stall < kFitStallPasses; ++ite) {
                if (!step(rational)) break;
                if (residuals(max, sum2) && sum2 < bestSum2) {
                    bestSum2 = sum2;
                    bestMax = max;
                    std::copy(cv.m_coef, cv.m_coef + 8, best);
                    stall = 0;
                } else {
                    ++stall;
                }
            }
            std::copy(best, best + 8, cv.m_coef);
            max = bestMax;
            sum2 = bestSum2;
        }
        cv.SetResiduals(sum2, max, static_cast<int>(grid.size()));
        *this = cv;
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::FromCamera CMemoryException");
        return 0;
    }
}

int COpenCvCamera::CentredImageSize(const CCamera& cam, int& width, int& height) {
    const double resx = cam.m_resolution.x, resy = cam.m_resolution.y;
    if (!(resx > 0.0) || !(resy > 0.0)) return 0;
    const double w = std::round(2.0 * cam.m_principal.x / resx);
    const double h = std::round(2.0 * cam.m_principal.y / resy);
    if (!(w >= 1.0 && h >= 1.0 && w <= kMaxImageSide && h <= kMaxImageSide)) return 0;
    width = static_cast<int>(w);
    height = static_cast<int>(h);
    return 1;
}

DIST_MODEL COpenCvCamera::DefaultModel() const {
    const int others[6] = {2, 3, 8, 9, 10, 11};
    for (const int k : others)
        if (m_coef[k] != 0.0) return DIST_K1K2K3P1P2;
    return DIST_K1K2K3K4;
}

int COpenCvCamera::ToCamera(double sx, double sy, DIST_MODEL model, CCamera& cam) {
    if (!(sx > 0.0) || !(sy > 0.0) || !std::isfinite(sx) || !std::isfinite(sy)) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera !(sx > 0.0) || !(sy > 0.0)");
        return 0;
    }
    const double* k = m_matrix;
    if (!(k[0] > 0.0) || !(k[4] > 0.0) || k[3] != 0.0 || k[6] != 0.0 || k[7] != 0.0 ||
        k[8] != 1.0) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera matrix is not [fx skew cx; 0 fy cy; 0 0 1]");
        return 0;
    }
    if (m_width < 1 || m_height < 1 || m_width > kMaxImageSide || m_height > kMaxImageSide) {
        KEL_TRACE_ALWAYS(
            L"COpenCvCamera::ToCamera m_width < 1 || m_height < 1 || "
            L"m_width > kMaxImageSide || m_height > kMaxImageSide");
        return 0;
    }
    if (static_cast<int>(model) < 0 || static_cast<int>(model) > 4) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera model < 0 || model > 4");
        return 0;
    }
    if (m_coef[12] != 0.0 || m_coef[13] != 0.0) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera tauX != 0.0 || tauY != 0.0");
        return 0;
    }
    const double c = k[0] * sx, resx = sx, resy = c / k[4];
    if (std::fabs(resy - sy) > kAspectTol * sy) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera |c / fy - sy| > kAspectTol sy");
        return 0;
    }
    try {
        CCamera out;
        out.m_focal = c;
        out.m_principal.SetXYZ((k[2] + 0.5) * resx, (k[5] + 0.5) * resy, 0.0);
        out.m_resolution.SetXYZ(resx, resy, 0.0);
        out.m_dist.SetDistModel(model);
        int nx = 0, ny = 0;
        GridSize(nx, ny);
        // Each grid pixel's measured photo point (mm) and the ideal one OpenCV gives it.
        std::vector<GridPoint> grid;
        grid.reserve(static_cast<std::size_t>(nx) * ny);
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) {
                GridPoint g{GridPixel(i, nx, m_width), GridPixel(j, ny, m_height), 0, 0, 0, 0};
                double xd = 0.0, yd = 0.0, x = 0.0, y = 0.0;
                PixelToNorm(g.u - 0.5, g.v - 0.5, xd, yd);
                if (!Undistort(xd, yd, x, y)) {
                    KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera Undistort(pixel %d %d) == 0",
                                     static_cast<int>(g.u), static_cast<int>(g.v));
                    return 0;
                }
                g.x = x * c;  // ideal photo point, mm, y up
                g.y = -y * c;
                g.xd = g.u * resx - out.m_principal.x;  // measured photo point, mm
                g.yd = out.m_principal.y - g.v * resy;
                grid.push_back(g);
            }
        // The correction D(measured) = ideal - measured is linear in every model's parameters.
        // Rows in pixels (divided by the pixel size).
        double ax[8] = {}, ay[8] = {};
        const int n = CorrectionRow(model, 0.0, 0.0, ax, ay);
        if (n > 0) {
            RowFit fit(n);
            for (const GridPoint& g : grid) {
                CorrectionRow(model, g.xd, g.yd, ax, ay);
                for (int p = 0; p < n; ++p) {
                    ax[p] /= resx;
                    ay[p] /= resy;
                }
                fit.Add(ax, (g.x - g.xd) / resx);
                fit.Add(ay, (g.y - g.yd) / resy);
            }
            double para[8] = {};
            if (!fit.Solve(para)) return 0;
            for (int p = 0; p < n; ++p) out.m_dist.m_para[p] = para[p];
        }
        // How far the camera file's model puts each grid point's ideal point from its pixel.
        double max = 0.0, sum2 = 0.0;
        for (const GridPoint& g : grid) {
            double u = 0.0, v = 0.0;
            if (!out.PhcToImg(g.x, g.y, u, v)) {
                KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera PhcToImg(pixel %d %d) == 0",
                                 static_cast<int>(g.u), static_cast<int>(g.v));
                return 0;
            }
            const double d2 = (u - g.u) * (u - g.u) + (v - g.v) * (v - g.v);
            max = std::max(max, std::sqrt(d2));
            sum2 += d2;
        }
        SetResiduals(sum2, max, static_cast<int>(grid.size()));
        cam = out;
        return 1;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::ToCamera CMemoryException");
        return 0;
    }
}
