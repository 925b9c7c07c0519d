#pragma once
// CDist: the lens-distortion model of a camera.
//
// Photo coordinates are millimetres in the photo frame whose origin is the principal point;
// callers subtract the principal point first. The sense, as every caller uses it:
// CalDist(x, y) gives the correction D that takes a MEASURED photo point to its IDEAL
// (distortion-free) position, ideal = measured + D(measured). CalDistInv goes the other way:
// from an ideal point (x, y) it finds the measured point m with m + D(m) = (x, y) and returns
// the offset m - (x, y).
//
// Models (their numbers are stored in the camera file):
//   0 none; 1 radial k1..k4; 2 radial k1 k2 with decentring p1 p2; 3 radial k1..k3 with
//   decentring p1 p2; 4 radial k1 k2 with an affine and second-order part a1..a6 (x carries the
//   affine part alone: the y correction has no linear terms).
// A radial table (radius, value pairs in mm) can be built from or fitted to the parameters.
#include <cstdint>

#include "geometry/KelArray.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

enum DIST_MODEL : std::int32_t {
    DIST_NONE = 0,
    DIST_K1K2K3K4 = 1,
    DIST_K1K2P1P2 = 2,
    DIST_K1K2K3P1P2 = 3,
    DIST_POLY8 = 4
};

class KELSCAN_API CDist {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kMaxPara = 10;
    // Passes of CalDistInv's pattern search.
    static constexpr int kInvMaxPass = 100;

    CDist();
    CDist(const CDist& src);
    CDist& operator=(const CDist& src);
    ~CDist() = default;

    // Model 0, no parameters, all ten zero, both tables empty.
    void Init();
    void Copy(const CDist& src);
    // Sets the model and the parameter count (0, 4, 4, 5, 8); an unknown model gives model 0
    // and count 0. The parameter values are not touched.
    void SetDistModel(DIST_MODEL m);
    DIST_MODEL GetDistModel() const { return m_model; }
    int GetNumPara() const { return m_numPara; }
    double GetPara(int index) const { return index >= 0 && index < kMaxPara ? m_para[index] : 0.0; }
    // Sets parameter index (0..9, else 0). An index at or past the count raises the count by
    // exactly one (callers add parameters in ascending order). Returns 1.
    int AddPara(int index, double value);
    // Appends one table entry; returns the table length afterwards.
    int AddDist(double radius, double value);
    // Model 1 only (else 0): n entries at radii 0, step, 2 step, ... with the radial
    // correction r (k1 r^2 + k2 r^4 + k3 r^6 + k4 r^8) at each. Returns 1.
    int ParaToDist(double step, int n);
    // Fits k1..k4 of model 1 to the table, modelling each value as k1 r^2 + ... + k4 r^8 (one
    // power of r lower than ParaToDist writes: the two are deliberately not inverse). Needs
    // two tables of equal length with at least 4 entries. The parameter count is kept.
    int DistToPara();
    // The correction (dx, dy) of the measured point (x, y), mm.
    void CalDist(double x, double y, double& dx, double& dy) const;
    // From an ideal point (x, y): the offset (dx, dy) to the measured point, found by a
    // bounded 5 x 5 pattern search until the round trip misses (x, y) by at most eps. The
    // outputs are written also on failure (0), with the best offset found.
    int CalDistInv(double x, double y, double& dx, double& dy, double eps) const;
    void Trace() const {}

    double m_para[kMaxPara];
    kel_templ::CKelArray<double, double> m_radius;
    kel_templ::CKelArray<double, double> m_distortion;
    DIST_MODEL m_model;
    std::int32_t m_numPara;

private:
    double InvError2(double u, double v, double x, double y) const;
};
