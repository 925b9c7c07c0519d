#include "photogrammetry/ControlSpread.h"

#include <cmath>
#include <utility>

namespace kel_photo {

namespace {

// Eigenvalues and eigenvectors of a symmetric 3x3 matrix by cyclic Jacobi rotations. On
// return a holds the eigenvalues on its diagonal and the columns of v the eigenvectors.
void Jacobi3(double a[3][3], double v[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) v[i][j] = i == j ? 1.0 : 0.0;
    for (int sweep = 0; sweep < 50; ++sweep) {
        const double off = a[0][1] * a[0][1] + a[0][2] * a[0][2] + a[1][2] * a[1][2];
        const double diag = a[0][0] * a[0][0] + a[1][1] * a[1][1] + a[2][2] * a[2][2];
        if (off <= 1e-36 * diag || off == 0.0) return;
        for (int p = 0; p < 2; ++p) {
            for (int q = p + 1; q < 3; ++q) {
                if (a[p][q] == 0.0) continue;
                const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
                const double t = (theta >= 0.0 ? 1.0 : -1.0) /
                                 (std::fabs(theta) + std::sqrt(theta * theta + 1.0));
                const double c = 1.0 / std::sqrt(t * t + 1.0), s = t * c;
                for (int k = 0; k < 3; ++k) {  // columns p, q of a
                    const double akp = a[k][p], akq = a[k][q];
                    a[k][p] = c * akp - s * akq;
                    a[k][q] = s * akp + c * akq;
                }
                for (int k = 0; k < 3; ++k) {  // rows p, q of a
                    const double apk = a[p][k], aqk = a[q][k];
                    a[p][k] = c * apk - s * aqk;
                    a[q][k] = s * apk + c * aqk;
                }
                for (int k = 0; k < 3; ++k) {
                    const double vkp = v[k][p], vkq = v[k][q];
                    v[k][p] = c * vkp - s * vkq;
                    v[k][q] = s * vkp + c * vkq;
                }
            }
        }
    }
}

}  // namespace

CXYZ ControlSpread::ToPlane(const CXYZ& p) const {
    const double d[3] = {p.x - centroid.x, p.y - centroid.y, p.z - centroid.z};
    double r[3];
    for (int k = 0; k < 3; ++k) r[k] = axis[k][0] * d[0] + axis[k][1] * d[1] + axis[k][2] * d[2];
    return CXYZ(r[0], r[1], r[2]);
}

CXYZ ControlSpread::FromPlane(double u, double v, double w) const {
    return CXYZ(axis[0][0] * u + axis[1][0] * v + axis[2][0] * w,
                axis[0][1] * u + axis[1][1] * v + axis[2][1] * w,
                axis[0][2] * u + axis[1][2] * v + axis[2][2] * w);
}

ControlSpread CalControlSpread(const kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    ControlSpread s;
    s.centroid.SetXYZ(0.0, 0.0, 0.0);
    const int n = pts.GetSize();
    for (int i = 0; i < n; ++i) {
        s.centroid.x += pts[i].x;
        s.centroid.y += pts[i].y;
        s.centroid.z += pts[i].z;
    }
    if (n > 0) s.centroid /= static_cast<double>(n);
    double a[3][3] = {{0, 0, 0}, {0, 0, 0}, {0, 0, 0}};
    for (int i = 0; i < n; ++i) {
        const double d[3] = {pts[i].x - s.centroid.x, pts[i].y - s.centroid.y,
                             pts[i].z - s.centroid.z};
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) a[r][c] += d[r] * d[c];
    }
    if (n > 0)
        for (auto& row : a)
            for (double& e : row) e /= n;
    double v[3][3];
    Jacobi3(a, v);
    int order[3] = {0, 1, 2};
    for (int i = 0; i < 3; ++i)
        for (int j = i + 1; j < 3; ++j)
            if (a[order[j]][order[j]] > a[order[i]][order[i]]) std::swap(order[i], order[j]);
    for (int k = 0; k < 3; ++k) {
        s.spread[k] = std::fmax(a[order[k]][order[k]], 0.0);
        for (int j = 0; j < 3; ++j) s.axis[k][j] = v[j][order[k]];
    }
    // Right-handed: the normal is the cross product of the two in-plane axes.
    const double* e1 = s.axis[0];
    const double* e2 = s.axis[1];
    s.axis[2][0] = e1[1] * e2[2] - e1[2] * e2[1];
    s.axis[2][1] = e1[2] * e2[0] - e1[0] * e2[2];
    s.axis[2][2] = e1[0] * e2[1] - e1[1] * e2[0];
    return s;
}

}  // namespace kel_photo
