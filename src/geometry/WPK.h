#pragma once
// CWPK: rotation angles omega, phi, kappa in radians, about the first, second and third axis.
// Sums and differences are normalised into [-pi, pi].
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CWPK {
public:
    KEL_DECLARE_ALLOCATOR

    CWPK() : omega(0.0), phi(0.0), kappa(0.0) {}
    CWPK(double w, double p, double k) : omega(w), phi(p), kappa(k) {}
    CWPK(const CWPK&) = default;
    CWPK& operator=(const CWPK&) = default;

    // Brings a into the closed range [-pi, pi]: fmod by 2pi, then the alternative a -+ 2pi
    // when it is strictly smaller in magnitude (so +pi stays +pi and -pi stays -pi).
    static void NormalizeAngle(double& a);
    void Normalize();
    // The angular difference a - b after normalising both: d, or 2pi - d when that is smaller
    // in square. Deliberately asymmetric: near +2pi it gives the small positive 2pi - d, near
    // -2pi it gives d unchanged. Callers use it as a magnitude.
    static double SubtractAngle(double a, double b);
    CWPK Subtract(CWPK& other);

    // Component-wise, each result normalised.
    CWPK operator+(const CWPK& b) const;
    CWPK operator-(const CWPK& b) const;
    CWPK& operator+=(const CWPK& b);
    CWPK& operator-=(const CWPK& b);
    CWPK operator+() const { return *this; }
    // Negates each angle without normalising.
    CWPK operator-() const { return CWPK(-omega, -phi, -kappa); }

    void Trace() const {}

    double omega;
    double phi;
    double kappa;
};
