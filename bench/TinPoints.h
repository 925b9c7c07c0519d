#pragma once
// Point sets of the surface benchmarks, made the same way by TinBench and by the comparison
// program in cgal/: a scan in the planners' serpentine order, uniformly random points and a
// regular grid. Coordinates are metres; the generators are deterministic on every platform.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>

#include "surface/Tin.h"

namespace tin_bench {

enum class PointSet { kScan, kRandom, kGrid };

inline const char* Name(PointSet set) {
    switch (set) {
        case PointSet::kScan: return "scan";
        case PointSet::kRandom: return "random";
        case PointSet::kGrid: return "grid";
    }
    return "?";
}

inline bool Parse(const char* name, PointSet& set) {
    for (PointSet s : {PointSet::kScan, PointSet::kRandom, PointSet::kGrid})
        if (std::strcmp(name, Name(s)) == 0) {
            set = s;
            return true;
        }
    return false;
}

// splitmix64: a tiny generator whose sequence is fixed by its definition.
class Random {
public:
    explicit Random(std::uint64_t seed) : m_state(seed) {}
    std::uint64_t Next() {
        std::uint64_t z = (m_state += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1) with 53 random bits.
    double Unit() { return static_cast<double>(Next() >> 11) * 0x1.0p-53; }

private:
    std::uint64_t m_state;
};

// Calls add(x, y, z) for about n points of the set (exactly n for scan and random, the
// nearest square for grid), in the order an instrument or a program would deliver them.
//
// scan: an instrument 1.6 m above gently undulating ground (about 10 cm) scans rows of constant
//   zenith angle (100 to 92 degrees, near to far) across 60 degrees of horizontal angle,
//   alternately left to right and right to left. Each point is where the beam meets the
//   ground, with 2 mm of range noise. Rows are wavy arcs about the station, 9 to 46 m away,
//   a few millimetres to 18 cm apart.
// random: uniform over a 1000 m square.
// grid: 1 m spacing, row by row (every four neighbours are cocircular).
template <class F>
void MakePoints(PointSet set, int n, F add) {
    constexpr double kPi = 3.14159265358979323846;
    const double x0 = 1000.0, y0 = 2000.0;  // station / origin, away from (0, 0)
    Random rng(20240611);
    if (set == PointSet::kRandom) {
        for (int i = 0; i < n; ++i) {
            const double x = 1000.0 * rng.Unit(), y = 1000.0 * rng.Unit();
            add(x0 + x, y0 + y, 100.0 + 0.01 * x);
        }
        return;
    }
    const int side = static_cast<int>(std::lround(std::sqrt(static_cast<double>(n))));
    if (set == PointSet::kGrid) {
        for (int r = 0; r < side; ++r)
            for (int c = 0; c < side; ++c) add(x0 + c, y0 + r, 100.0);
        return;
    }
    // Ground height at (gx, gy) relative to the station, and its slope along a bearing; the
    // slope stays below that of the flattest beam (2 degrees), so every beam meets the ground
    // once and rows never cross.
    auto ground = [](double gx, double gy) {
        return 0.08 * std::sin(gx / 7.0) * std::cos(gy / 11.0) + 0.03 * std::sin(gx / 3.0 + gy / 5.0);
    };
    auto slope = [](double gx, double gy, double cx, double cy) {
        const double dx = 0.08 / 7.0 * std::cos(gx / 7.0) * std::cos(gy / 11.0) +
                          0.01 * std::cos(gx / 3.0 + gy / 5.0);
        const double dy = -0.08 / 11.0 * std::sin(gx / 7.0) * std::sin(gy / 11.0) +
                          0.006 * std::cos(gx / 3.0 + gy / 5.0);
        return dx * cx + dy * cy;
    };
    const int rows = side, cols = n / side;
    const double h = 1.6;
    for (int r = 0; r < rows; ++r) {
        const double dip = std::tan((10.0 - 8.0 * r / (rows - 1)) * kPi / 180.0);
        for (int k = 0; k < cols; ++k) {
            const int c = (r % 2 == 0) ? k : cols - 1 - k;
            const double az = (30.0 + 60.0 * c / (cols - 1)) * kPi / 180.0;
            const double cx = std::cos(az), cy = std::sin(az);
            // Horizontal distance t where the beam h - t dip meets the ground (Newton).
            double t = h / dip;
            for (int it = 0; it < 6; ++it) {
                const double f = h - t * dip - ground(t * cx, t * cy);
                t += f / (dip + slope(t * cx, t * cy, cx, cy));
            }
            t += 0.002 * (rng.Unit() - 0.5);  // range noise
            add(x0 + t * cx, y0 + t * cy, 100.0 + ground(t * cx, t * cy));
        }
    }
}

// The set loaded into an empty surface through the batch calls, as a host hands over a
// finished scan.
inline void Load(CTin& tin, PointSet set, int n) {
    tin.BeginAddPoint(n);
    MakePoints(set, n, [&](double x, double y, double z) { tin.AddPoint2(x, y, z); });
    tin.EndAddPoint();
}

}  // namespace tin_bench
