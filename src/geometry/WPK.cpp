#include "geometry/WPK.h"

#include <cmath>

#include "platform/KelMath.h"

void CWPK::NormalizeAngle(double& a) {
    const double twoPi = kel_math::kPi * 2.0;
    double alt;
    if (a >= 0.0) {
        a = std::fmod(a, twoPi);
        alt = a - twoPi;
    } else {
        a = std::fmod(a, -twoPi);
        alt = a + twoPi;
    }
    if (std::fabs(a) > std::fabs(alt)) a = alt;
}

void CWPK::Normalize() {
    NormalizeAngle(omega);
    NormalizeAngle(phi);
    NormalizeAngle(kappa);
}

double CWPK::SubtractAngle(double a, double b) {
    NormalizeAngle(a);
    NormalizeAngle(b);
    const double d = a - b;
    const double alt = kel_math::kPi * 2.0 - d;
    return d * d <= alt * alt ? d : alt;
}

CWPK CWPK::Subtract(CWPK& other) {
    return CWPK(SubtractAngle(omega, other.omega), SubtractAngle(phi, other.phi),
                SubtractAngle(kappa, other.kappa));
}

CWPK CWPK::operator+(const CWPK& b) const {
    CWPK r(omega + b.omega, phi + b.phi, kappa + b.kappa);
    r.Normalize();
    return r;
}

CWPK CWPK::operator-(const CWPK& b) const {
    CWPK r(omega - b.omega, phi - b.phi, kappa - b.kappa);
    r.Normalize();
    return r;
}

CWPK& CWPK::operator+=(const CWPK& b) {
    *this = *this + b;
    return *this;
}

CWPK& CWPK::operator-=(const CWPK& b) {
    *this = *this - b;
    return *this;
}
