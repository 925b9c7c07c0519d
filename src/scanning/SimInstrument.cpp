#include "scanning/SimInstrument.h"

#include <cmath>
#include <cstring>

#include "geometry/CalcXYZHV.h"
#include "platform/KelMath.h"
#include "platform/Trace.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace {

// splitmix64's output function: a bijective mix of 64 bits.
std::uint64_t Mix(std::uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ULL;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBULL;
    return z ^ (z >> 31);
}

std::uint64_t Bits(double x) {
    std::uint64_t u;
    std::memcpy(&u, &x, sizeof u);
    return u;
}

// The shot noise generator of one direction: splitmix64 started from the seed and the bits of
// the commanded angles, normal deviates by the Box-Muller transform.
class CShotNoise {
public:
    CShotNoise(std::uint64_t seed, double h, double v)
        : m_state(Mix(Mix(Mix(seed ^ 0x6A09E667F3BCC909ULL) ^ Bits(h)) ^ Bits(v))) {}
    // Two independent standard normal deviates.
    void Normal2(double& a, double& b) {
        const double u1 = Uniform(), u2 = Uniform();
        const double r = std::sqrt(-2.0 * std::log(u1));
        a = r * std::cos(2.0 * kel_math::kPi * u2);
        b = r * std::sin(2.0 * kel_math::kPi * u2);
    }

private:
    // Uniform in (0, 1]: never 0, whose logarithm Box-Muller takes.
    double Uniform() {
        m_state += 0x9E3779B97F4A7C15ULL;
        return (static_cast<double>(Mix(m_state) >> 11) + 1.0) * 0x1.0p-53;
    }
    std::uint64_t m_state;
};

}  // namespace

CSimInstrument::CSimInstrument()
    : m_sigmaAngle(0.0),
      m_sigmaDist(0.0),
      m_seed(0),
      m_instHeight(0.0),
      m_bsAzimuth(kTaskInverseNotSet),
      m_bsReading(kTaskInverseNotSet),
      m_clock(0.0),
      m_secPerTarget(CCleverFineScan::kSecPerTarget - CCleverFineScan::kSecPerTargetSlope),
      m_curH(0.0),
      m_curV(0.0),
      m_inSweep(0),
      m_sweepV(0.0),
      m_sweepFrom(0.0),
      m_sweepTo(0.0),
      m_sweepRate(0.0),
      m_sweepStart(0.0),
      m_sweepLast(0.0) {}

CSimInstrument::~CSimInstrument() = default;

int CSimInstrument::SetSurface(const CTin& tinMath) {
    if (tinMath.GetTriSize() == 0) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::SetSurface tinMath.GetTriSize() == 0");
        return 0;
    }
    m_tin.Copy(tinMath);
    return m_tin.GetTriSize() > 0 ? 1 : 0;
}

void CSimInstrument::SetOccBs(const CXYZ& station, double instHeight, double bsAzimuth,
                              double bsReading) {
    m_station.SetXYZ(station.x, station.y, station.z);
    m_instHeight = instHeight;
    m_bsAzimuth = bsAzimuth;
    m_bsReading = bsReading;
}

void CSimInstrument::SetNoise(double sigmaAngleDeg, double sigmaDistM, std::uint64_t seed) {
    m_sigmaAngle = sigmaAngleDeg > 0.0 ? sigmaAngleDeg : 0.0;
    m_sigmaDist = sigmaDistM > 0.0 ? sigmaDistM : 0.0;
    m_seed = seed;
}

void CSimInstrument::ToMath(CXYZ& p) { CCalcXYZHV::CnvSokuToMath(p); }

void CSimInstrument::ToSoku(CXYZ& p) { CCalcXYZHV::CnvMathToSoku(p); }

CXYZ CSimInstrument::SightDir(double h, double v) const {
    // The circle reading back to an azimuth: the inverse of TaskInverse's orientation.
    double azimuth = h;
    if (m_bsAzimuth != kTaskInverseNotSet && m_bsReading != kTaskInverseNotSet)
        azimuth = h + m_bsAzimuth - m_bsReading;
    const double a = azimuth / kel_math::kRadToDeg, z = v / kel_math::kRadToDeg;
    return CXYZ(std::sin(z) * std::cos(a), std::sin(z) * std::sin(a), std::cos(z));
}

int CSimInstrument::TruePoint(double h, double v, CXYZ& point, double& slope) const {
    const CXYZ axis(m_station.x, m_station.y, m_station.z + m_instHeight);
    CXYZ originMath = axis, dirMath = SightDir(h, v);
    ToMath(originMath);
    ToMath(dirMath);
    CXYZ hit;
    int tri = -1;
    if (m_tin.GetTriSize() == 0 || !m_tin.IntersectRay(originMath, dirMath, hit, tri)) return 0;
    ToSoku(hit);
    point.SetXYZ(hit.x, hit.y, hit.z);
    slope = hit.Len(axis);
    return 1;
}

void CSimInstrument::Shoot(double h, double v, SInstrumentShot& shot) const {
    CXYZ truth;
    double slope = 0.0;
    shot.point.SetXYZ(0.0, 0.0, 0.0);
    if (!TruePoint(h, v, truth, slope)) {
        shot.hit = 0;
        shot.h = ModDeg360(h, true);
        shot.v = v;
        shot.slope = 0.0;
        return;
    }
    CShotNoise noise(m_seed, h, v);
    double eH = 0.0, eV = 0.0, eS = 0.0, unused = 0.0;
    noise.Normal2(eH, eV);
    noise.Normal2(eS, unused);
    const double hr = h + m_sigmaAngle * eH, vr = v + m_sigmaAngle * eV;
    const double sr = slope + m_sigmaDist * eS;
    const CXYZ dir = SightDir(hr, vr);
    shot.hit = 1;
    shot.h = ModDeg360(hr, true);
    shot.v = vr;
    shot.slope = sr;
    shot.point.SetXYZ(m_station.x + sr * dir.x, m_station.y + sr * dir.y,
                      m_station.z + m_instHeight + sr * dir.z);
}

int CSimInstrument::BeginFine(int nTargets, int fresh) {
    if (nTargets < 1) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::BeginFine nTargets < 1");
        return 0;
    }
    const double t =
        CCleverFineScan::kSecPerTarget - CCleverFineScan::kSecPerTargetSlope * nTargets;
    m_secPerTarget = t > 0.0 ? t : 0.0;
    if (fresh) m_clock += CCleverFineScan::kSetupSeconds;
    return 1;
}

int CSimInstrument::TurnTo(double h, double v) {
    m_curH = h;
    m_curV = v;
    return 1;
}

int CSimInstrument::Measure(SInstrumentShot& shot) {
    if (m_tin.GetTriSize() == 0) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::Measure m_tin.GetTriSize() == 0");
        return 0;
    }
    Shoot(m_curH, m_curV, shot);
    m_clock += m_secPerTarget;
    shot.seconds = m_secPerTarget;
    return 1;
}

int CSimInstrument::BeginSweep(double v, double hFrom, double hTo, double degPerSec) {
    if (m_tin.GetTriSize() == 0) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::BeginSweep m_tin.GetTriSize() == 0");
        return 0;
    }
    if (!(degPerSec > 0.0)) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::BeginSweep !(degPerSec > 0.0)");
        return 0;
    }
    m_clock += CCleverTrkScan::kTurnSeconds;
    m_inSweep = 1;
    m_sweepV = v;
    m_sweepFrom = hFrom;
    m_sweepTo = hTo;
    m_sweepRate = degPerSec;
    m_sweepStart = m_clock;
    m_sweepLast = hFrom;
    m_curH = hFrom;
    m_curV = v;
    return 1;
}

int CSimInstrument::SweepShot(double h, SInstrumentShot& shot) {
    if (!m_inSweep) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::SweepShot !m_inSweep");
        return 0;
    }
    // Positions along the line, degrees from its start in the sense of rotation.
    const double sign = m_sweepTo >= m_sweepFrom ? 1.0 : -1.0;
    const double pos = (h - m_sweepFrom) * sign, last = (m_sweepLast - m_sweepFrom) * sign;
    const double length = (m_sweepTo - m_sweepFrom) * sign;
    if (pos < last - kSweepTolDeg || pos > length + kSweepTolDeg) {
        KEL_TRACE_ALWAYS(
            L"CSimInstrument::SweepShot pos < last - kSweepTolDeg || pos > length + kSweepTolDeg");
        return 0;
    }
    const double t = m_sweepStart + (pos > 0.0 ? pos : 0.0) / m_sweepRate;
    const double now = t > m_clock ? t : m_clock;
    Shoot(h, m_sweepV, shot);
    shot.seconds = now - m_clock;
    m_clock = now;
    m_sweepLast = h;
    m_curH = h;
    return 1;
}

int CSimInstrument::EndSweep() {
    if (!m_inSweep) {
        KEL_TRACE_ALWAYS(L"CSimInstrument::EndSweep !m_inSweep");
        return 0;
    }
    const double end = m_sweepStart + std::fabs(m_sweepTo - m_sweepFrom) / m_sweepRate;
    if (end > m_clock) m_clock = end;
    m_curH = m_sweepTo;
    m_inSweep = 0;
    return 1;
}
