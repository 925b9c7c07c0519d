#pragma once
// The rays of the ray-query benchmarks: 100 000 rays through the pixels of a photograph taken
// from the scan's station (TinPoints.h's "scan" set), 400 columns across 32 to 88 degrees of
// azimuth and 250 rows from 9.5 to 2.5 degrees below the horizon, so nearly every ray meets
// the scanned ground, near rows first.
#include <cmath>
#include <vector>

#include "geometry/XYZ.h"

namespace tin_bench {

struct Ray {
    double o[3];
    double d[3];
};

constexpr int kRayCols = 400, kRayRows = 250;

inline std::vector<Ray> PhotoRays() {
    constexpr double kPi = 3.14159265358979323846;
    std::vector<Ray> rays;
    rays.reserve(kRayCols * kRayRows);
    for (int r = 0; r < kRayRows; ++r)
        for (int c = 0; c < kRayCols; ++c) {
            const double az = (32.0 + 56.0 * c / (kRayCols - 1)) * kPi / 180.0;
            const double dip = (9.5 - 7.0 * r / (kRayRows - 1)) * kPi / 180.0;
            rays.push_back(
                {{1000.0, 2000.0, 101.6},
                 {std::cos(az) * std::cos(dip), std::sin(az) * std::cos(dip), -std::sin(dip)}});
        }
    return rays;
}

inline CXYZ Origin(const Ray& r) { return CXYZ(r.o[0], r.o[1], r.o[2]); }
inline CXYZ Dir(const Ray& r) { return CXYZ(r.d[0], r.d[1], r.d[2]); }

}  // namespace tin_bench
