#pragma once
// CRot: a 3x3 rotation matrix, row-major m[0..8] (m0 m1 m2 the first row). Rotate maps
// (x, y, z) to M * (x, y, z). Angles in radians, except SetDIMat, which takes degrees.
//
// ROT_SYSTEM selects how SetMatrix composes the elementary rotations
//   Rx(a) = [1 0 0; 0 c -s; 0 s c], Ry(a) = [c 0 s; 0 1 0; -s 0 c], Rz(a) = [c -s 0; s c 0; 0 0 1]:
//   ROT_WPK: M = Rz(kappa) * Ry(phi) * Rx(omega);  ROT_KPW: M = Rx(omega) * Ry(phi) * Rz(kappa).
#include <cstdint>

#include "geometry/WPK.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

enum ROT_SYSTEM : std::int32_t {
    ROT_W = 0,    // Rx(omega) only
    ROT_P = 1,    // Ry(phi) only
    ROT_K = 2,    // Rz(kappa) only
    ROT_WPK = 3,  // Rz(kappa) * Ry(phi) * Rx(omega)
    ROT_KPW = 4   // Rx(omega) * Ry(phi) * Rz(kappa)
};

class KELSCAN_API CRot {
public:
    KEL_DECLARE_ALLOCATOR

    // The identity.
    CRot();
    CRot(const CRot& r);
    CRot& operator=(const CRot& r);

    // Builds the matrix of sys from a. Returns 1, or 0 for an unknown sys (matrix unchanged).
    int SetMatrix(ROT_SYSTEM sys, const CWPK& a);
    // this := R(sys, a) * this (pre-multiplication). 0 for an unknown sys (unchanged).
    int AddMatrix(ROT_SYSTEM sys, const CWPK& a);
    // this := r * this.
    void AddMatrix(const CRot& r);
    // The angles of the matrix for sys. For ROT_WPK and ROT_KPW, a holds on entry the previous
    // triple, which picks between the two solutions and fills gimbal lock (|cos phi| <= 1e-12);
    // the result is normalised into [-pi, pi]. Returns 1, or 0 for an unknown sys (a untouched).
    int CalAngle(ROT_SYSTEM sys, CWPK& a) const;

    // ang[0..2] in degrees: M = Rx(ang[0]) * Ry(ang[1]) * Rz(ang[2]).
    void SetDIMat(double* const ang);
    // SetDIMat, then transposed.
    void SetDIMatInv(double* const ang);
    // Transposes in place (the inverse of a rotation).
    void T();
    // Resets to the identity.
    void I();
    void Trace() const {}

    // (X, Y, Z) = M * (x, y, z).
    void Rotate(double x, double y, double z, double& X, double& Y, double& Z) const;
    // out := in (strings and auxiliary block included), then its coordinates := M * in.
    void Rotate(const CXYZ& in, CXYZ& out) const;

    // The product this * b.
    CRot operator*(const CRot& b) const;
    // this := this * b (post-multiplication; AddMatrix pre-multiplies).
    CRot& operator*=(const CRot& b);
    // A copy of p rotated as by Rotate.
    CXYZ operator*(const CXYZ& p) const;

    double m[9];

protected:
    void SetMatrix_W(const double& omega);
    void SetMatrix_P(const double& phi);
    void SetMatrix_K(const double& kappa);
    void SetMatrix_WPK(const double& omega, const double& phi, const double& kappa);
    void SetMatrix_KPW(const double& omega, const double& phi, const double& kappa);
    void CalAngle_W(double& omega) const;
    void CalAngle_P(double& phi) const;
    void CalAngle_K(double& kappa) const;
    void CalAngle_WPK(const CWPK& prev, CWPK& out) const;
    void CalAngle_KPW(const CWPK& prev, CWPK& out) const;
};
