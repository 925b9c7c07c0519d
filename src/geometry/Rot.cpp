#include "geometry/Rot.h"

#include <cmath>

#include "platform/KelMath.h"

namespace {

// Below this |cos phi| the two outer rotations share one axis (gimbal lock).
constexpr double kGimbalLock = 1e-12;

double ClampUnit(double v) {
    if (v >= 1.0) return 1.0;
    if (v <= -1.0) return -1.0;
    return v;
}

// The second solution of asin: pi - p for p >= 0, else -pi - p.
double OtherPhi(double p) { return p >= 0.0 ? kel_math::kPi - p : -kel_math::kPi - p; }

double Score(const CWPK& cand, const CWPK& prev) {
    return std::fabs(CWPK::SubtractAngle(cand.kappa, prev.kappa)) +
           std::fabs(CWPK::SubtractAngle(cand.phi, prev.phi)) +
           std::fabs(CWPK::SubtractAngle(cand.omega, prev.omega));
}

}  // namespace

CRot::CRot() { I(); }

CRot::CRot(const CRot& r) {
    for (int i = 0; i < 9; ++i) m[i] = r.m[i];
}

CRot& CRot::operator=(const CRot& r) {
    if (this != &r)
        for (int i = 0; i < 9; ++i) m[i] = r.m[i];
    return *this;
}

void CRot::I() {
    for (int i = 0; i < 9; ++i) m[i] = (i % 4 == 0) ? 1.0 : 0.0;
}

void CRot::SetMatrix_W(const double& omega) {
    const double c = std::cos(omega), s = std::sin(omega);
    m[0] = 1.0, m[1] = 0.0, m[2] = 0.0;
    m[3] = 0.0, m[4] = c, m[5] = -s;
    m[6] = 0.0, m[7] = s, m[8] = c;
}

void CRot::SetMatrix_P(const double& phi) {
    const double c = std::cos(phi), s = std::sin(phi);
    m[0] = c, m[1] = 0.0, m[2] = s;
    m[3] = 0.0, m[4] = 1.0, m[5] = 0.0;
    m[6] = -s, m[7] = 0.0, m[8] = c;
}

void CRot::SetMatrix_K(const double& kappa) {
    const double c = std::cos(kappa), s = std::sin(kappa);
    m[0] = c, m[1] = -s, m[2] = 0.0;
    m[3] = s, m[4] = c, m[5] = 0.0;
    m[6] = 0.0, m[7] = 0.0, m[8] = 1.0;
}

void CRot::SetMatrix_WPK(const double& omega, const double& phi, const double& kappa) {
    const double sw = std::sin(omega), cw = std::cos(omega);
    const double sp = std::sin(phi), cp = std::cos(phi);
    const double sk = std::sin(kappa), ck = std::cos(kappa);
    m[0] = ck * cp;
    m[1] = (ck * sp) * sw - sk * cw;
    m[2] = (ck * sp) * cw + sk * sw;
    m[3] = sk * cp;
    m[4] = (sk * sp) * sw + ck * cw;
    m[5] = (sk * sp) * cw - ck * sw;
    m[6] = -sp;
    m[7] = cp * sw;
    m[8] = cp * cw;
}

void CRot::SetMatrix_KPW(const double& omega, const double& phi, const double& kappa) {
    const double sw = std::sin(omega), cw = std::cos(omega);
    const double sp = std::sin(phi), cp = std::cos(phi);
    const double sk = std::sin(kappa), ck = std::cos(kappa);
    m[0] = ck * cp;
    m[1] = -(sk * cp);
    m[2] = sp;
    m[3] = (ck * sp) * sw + sk * cw;
    m[4] = ck * cw - (sk * sp) * sw;
    m[5] = -(cp * sw);
    m[6] = sk * sw - (ck * sp) * cw;
    m[7] = (sk * sp) * cw + ck * sw;
    m[8] = cp * cw;
}

int CRot::SetMatrix(ROT_SYSTEM sys, const CWPK& a) {
    switch (sys) {
        case ROT_W:
            SetMatrix_W(a.omega);
            return 1;
        case ROT_P:
            SetMatrix_P(a.phi);
            return 1;
        case ROT_K:
            SetMatrix_K(a.kappa);
            return 1;
        case ROT_WPK:
            SetMatrix_WPK(a.omega, a.phi, a.kappa);
            return 1;
        case ROT_KPW:
            SetMatrix_KPW(a.omega, a.phi, a.kappa);
            return 1;
        default:
            return 0;
    }
}

int CRot::AddMatrix(ROT_SYSTEM sys, const CWPK& a) {
    CRot r;
    if (!r.SetMatrix(sys, a)) return 0;
    AddMatrix(r);
    return 1;
}

void CRot::AddMatrix(const CRot& r) { *this = r * *this; }

void CRot::CalAngle_W(double& omega) const { omega = std::atan2(m[7], m[4]); }
void CRot::CalAngle_P(double& phi) const { phi = std::atan2(m[2], m[0]); }
void CRot::CalAngle_K(double& kappa) const { kappa = std::atan2(m[3], m[0]); }

void CRot::CalAngle_WPK(const CWPK& prev, CWPK& out) const {
    const double p1 = std::asin(ClampUnit(-m[6]));
    const double cand[2] = {p1, OtherPhi(p1)};
    CWPK best[2];
    for (int i = 0; i < 2; ++i) {
        const double p = cand[i];
        const double c = std::cos(p);
        CWPK& a = best[i];
        a.phi = p;
        if (std::fabs(c) > kGimbalLock) {
            a.omega = std::atan2(m[7] / c, m[8] / c);
            a.kappa = std::atan2(m[3] / c, m[0] / c);
        } else {
            a.omega = prev.omega;
            a.kappa = p >= 0.0 ? prev.omega + std::atan2(-m[1], m[2])
                               : std::atan2(-m[1], -m[2]) - prev.omega;
        }
    }
    out = Score(best[0], prev) <= Score(best[1], prev) ? best[0] : best[1];
    out.Normalize();
}

void CRot::CalAngle_KPW(const CWPK& prev, CWPK& out) const {
    const double p1 = std::asin(ClampUnit(m[2]));
    const double cand[2] = {p1, OtherPhi(p1)};
    CWPK best[2];
    for (int i = 0; i < 2; ++i) {
        const double p = cand[i];
        const double c = std::cos(p);
        CWPK& a = best[i];
        a.phi = p;
        if (std::fabs(c) > kGimbalLock) {
            a.omega = std::atan2(-m[5] / c, m[8] / c);
            a.kappa = std::atan2(-m[1] / c, m[0] / c);
        } else {
            a.omega = prev.omega;
            a.kappa = p >= 0.0 ? std::atan2(m[3], m[4]) - prev.omega
                               : prev.omega + std::atan2(m[3], m[4]);
        }
    }
    out = Score(best[0], prev) <= Score(best[1], prev) ? best[0] : best[1];
    out.Normalize();
}

int CRot::CalAngle(ROT_SYSTEM sys, CWPK& a) const {
    switch (sys) {
        case ROT_W: {
            double w;
            CalAngle_W(w);
            a = CWPK(w, 0.0, 0.0);
            return 1;
        }
        case ROT_P: {
            double p;
            CalAngle_P(p);
            a = CWPK(0.0, p, 0.0);
            return 1;
        }
        case ROT_K: {
            double k;
            CalAngle_K(k);
            a = CWPK(0.0, 0.0, k);
            return 1;
        }
        case ROT_WPK:
        case ROT_KPW: {
            const CWPK prev = a;
            a = CWPK();
            if (sys == ROT_WPK) {
                CalAngle_WPK(prev, a);
            } else {
                CalAngle_KPW(prev, a);
            }
            return 1;
        }
        default:
            return 0;
    }
}

void CRot::SetDIMat(double* const ang) {
    const double k = kel_math::kPi * 0.005555555555555556;
    SetMatrix_KPW(ang[0] * k, ang[1] * k, ang[2] * k);
}

void CRot::SetDIMatInv(double* const ang) {
    SetDIMat(ang);
    T();
}

void CRot::T() {
    double t = m[1];
    m[1] = m[3], m[3] = t;
    t = m[2];
    m[2] = m[6], m[6] = t;
    t = m[5];
    m[5] = m[7], m[7] = t;
}

void CRot::Rotate(double x, double y, double z, double& X, double& Y, double& Z) const {
    X = m[0] * x + m[1] * y + m[2] * z;
    Y = m[3] * x + m[4] * y + m[5] * z;
    Z = m[6] * x + m[7] * y + m[8] * z;
}

void CRot::Rotate(const CXYZ& in, CXYZ& out) const {
    const double x = in.x, y = in.y, z = in.z;  // in and out may be the same point
    out = in;
    Rotate(x, y, z, out.x, out.y, out.z);
}

CRot CRot::operator*(const CRot& b) const {
    CRot r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.m[i * 3 + j] =
                m[i * 3] * b.m[j] + m[i * 3 + 1] * b.m[3 + j] + m[i * 3 + 2] * b.m[6 + j];
    return r;
}

CRot& CRot::operator*=(const CRot& b) {
    *this = *this * b;
    return *this;
}

CXYZ CRot::operator*(const CXYZ& p) const {
    CXYZ r;
    Rotate(p, r);
    return r;
}
