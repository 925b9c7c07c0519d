#pragma once
// CSimInstrument: a simulated total station over a known ("true") surface, for trying scans
// and checking the planners' time estimates without an instrument.
//
// Geometry. The station and its three values are those of CKelScanProject::SetOccBs, and a
// direction (H, V) is read exactly as TaskInverse computes one: the line of sight leaves the
// axis point A = station + (0, 0, instrument height) at azimuth H + bsAzimuth - bsReading
// (H itself when either value is kTaskInverseNotSet) and zenith angle V; the sight's first
// point on the true surface is the point seen. Without noise TaskInverse(station, point, ...)
// gives back H and V (to about 1e-12 degrees).
//
// Noise. The telescope points exactly where it is told; what it reports carries the noise:
// circle readings H + eH and V + eV (eH, eV of sigma m_sigmaAngle degrees) and slope
// distance s + eS (sigma m_sigmaDist metres), and the reported point is A + (s + eS) along
// the reported angles, as an instrument computes it. The three errors are normal deviates
// drawn from a generator seeded by the seed and the bits of the commanded (H, V), so a
// direction measured again, in this run or in a scan resumed after an interruption, gives
// the same shot. Same seed, same directions, same shots, on every run of one build.
//
// Time. The clock advances by the planners' own timing, so a scan's simulated duration is
// what the planner's CalcTime estimates (up to its rounding to whole seconds):
// - fine scan of N targets: a fresh BeginFine takes CCleverFineScan::kSetupSeconds; each
//   Measure takes t = kSecPerTarget - kSecPerTargetSlope * N seconds (the turn included;
//   taken as 0 where the linear rule turns negative, above 8533 targets);
// - tracking line: BeginSweep takes CCleverTrkScan::kTurnSeconds, the telescope then passes
//   H at |H - hFrom| / rate seconds, and EndSweep ends the line at |hTo - hFrom| / rate.
// A miss costs the same time as a hit.
#include <cstdint>

#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "scanning/Instrument.h"
#include "surface/Tin.h"

class KELSCAN_API CSimInstrument : public CInstrument {
public:
    KEL_DECLARE_ALLOCATOR

    // Two H of a tracking line closer than this (degrees) are the same place: a shot this
    // little behind the previous one, or beyond the line's end, is still accepted.
    static constexpr double kSweepTolDeg = 1e-9;

    CSimInstrument();
    CSimInstrument(const CSimInstrument&) = default;
    CSimInstrument& operator=(const CSimInstrument&) = default;
    ~CSimInstrument() override;

    // The true surface in the computation frame (x east, y north, z height, millimetres), as
    // CSinOriToTin takes it; copied. 1, or 0 after one trace line when it has no triangle
    // (nothing changes then; CTin's own line when the copy runs out of memory).
    int SetSurface(const CTin& tinMath);
    // The station (surveying frame) and its values, as CKelScanProject::SetOccBs takes them:
    // instrument height (m), backsight azimuth and the circle reading set on it (degrees;
    // kTaskInverseNotSet for either: the circle reads the azimuth).
    void SetOccBs(const CXYZ& station, double instHeight, double bsAzimuth, double bsReading);
    // Standard deviations of the reported angles (degrees) and slope distance (metres), and
    // the seed of their generator. Negative sigmas are taken as 0. Default: no noise, seed 0.
    void SetNoise(double sigmaAngleDeg, double sigmaDistM, std::uint64_t seed);
    // Sets the clock (seconds); it starts at 0.
    void SetClock(double seconds) { m_clock = seconds; }

    // The true point where the sight (h, v) first meets the surface (surveying frame) and its
    // slope distance from the axis point (metres); no noise, no time. 1, or 0 when it misses.
    int TruePoint(double h, double v, CXYZ& point, double& slope) const;

    int BeginFine(int nTargets, int fresh) override;
    int TurnTo(double h, double v) override;
    // 1, or 0 after one trace line when no surface is set.
    int Measure(SInstrumentShot& shot) override;
    // 0 after one trace line without a surface or for a rate that is not > 0.
    int BeginSweep(double v, double hFrom, double hTo, double degPerSec) override;
    // 0 after one trace line outside a line, for h outside [hFrom, hTo] or behind the
    // previous shot (kSweepTolDeg allowed).
    int SweepShot(double h, SInstrumentShot& shot) override;
    // 0 after one trace line outside a line.
    int EndSweep() override;
    double Clock() const override { return m_clock; }

    double m_sigmaAngle;  // degrees
    double m_sigmaDist;   // metres
    std::uint64_t m_seed;

private:
    // The one crossing between the surveying frame (m, x north) and the surface's frame.
    static void ToMath(CXYZ& p);
    static void ToSoku(CXYZ& p);
    // Unit direction of the sight (h, v) in the surveying frame.
    CXYZ SightDir(double h, double v) const;
    // The shot at (h, v), noise included; no time.
    void Shoot(double h, double v, SInstrumentShot& shot) const;

    CTin m_tin;             // computation frame
    CXYZ m_station;         // surveying frame
    double m_instHeight;    // m
    double m_bsAzimuth;     // degrees
    double m_bsReading;     // degrees
    double m_clock;         // seconds
    double m_secPerTarget;  // of the fine scan under way
    double m_curH, m_curV;  // where the telescope points
    // The tracking line under way.
    int m_inSweep;
    double m_sweepV, m_sweepFrom, m_sweepTo, m_sweepRate, m_sweepStart, m_sweepLast;
};
