#include "platform/KelMath.h"

#include <cmath>

double atan3(double y, double x) {
    if (x == 0.0) {
        if (y > 0.0) return kel_math::kPi / 2.0;
        if (y < 0.0) return -kel_math::kPi / 2.0;
        return 0.0;
    }
    return std::atan(y / x);
}

double ModDeg360(double deg, bool positive) {
    if (!positive || !std::isfinite(deg)) return deg;
    double r = std::fmod(deg, 360.0);
    if (r < 0.0) r += 360.0;
    if (r >= 360.0) r = 0.0;
    return r;
}

double Deg2DDDMMSS(double deg, int places, bool truncate) {
    if (!std::isfinite(deg)) return deg;
    if (places < 4) places = 4;
    if (places > 12) places = 12;
    const double sign = deg < 0.0 ? -1.0 : 1.0;
    const double a = std::fabs(deg);
    // Work in units of the last kept decimal of the seconds, as an integer count.
    const double unitsPerSecond = std::pow(10.0, places - 4);
    const double totalUnits = a * 3600.0 * unitsPerSecond;
    const double units = truncate ? std::floor(totalUnits + 1e-9) : std::floor(totalUnits + 0.5);
    const double perMinute = 60.0 * unitsPerSecond;
    const double perDegree = 3600.0 * unitsPerSecond;
    const double d = std::floor(units / perDegree);
    const double restD = units - d * perDegree;
    const double m = std::floor(restD / perMinute);
    const double s = (restD - m * perMinute) / unitsPerSecond;
    return sign * (d + m / 100.0 + s / 10000.0);
}

double DDDMMSS2Deg(double dms) {
    if (!std::isfinite(dms)) return dms;
    const double sign = dms < 0.0 ? -1.0 : 1.0;
    const double a = std::fabs(dms);
    double d = std::floor(a);
    // Read minutes and seconds from the fraction with a small guard against representation
    // error (10.3 is 10.2999999...).
    const double frac = (a - d) * 100.0;
    double m = std::floor(frac + 1e-7);
    double s = (frac - m) * 100.0;
    if (s < 0.0) s = 0.0;
    return sign * (d + m / 60.0 + s / 3600.0);
}
