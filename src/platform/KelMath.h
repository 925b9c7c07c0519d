#pragma once
// Angle and direction helpers of the surveying frame, and the one value of pi. TaskInverse, the
// station-to-target angles, needs CXYZ and is declared in geometry/CalcXYZHV.h.
#include "platform/Export.h"

namespace kel_math {
constexpr double kPi = 3.141592653589793;
constexpr double kRadToDeg = 57.29577951308232;
}  // namespace kel_math

// The arctangent of y / x in radians, in (-pi/2, pi/2]: callers add the quadrant themselves.
// x == 0 gives +pi/2 for y > 0, -pi/2 for y < 0 and 0 for y == 0.
KELSCAN_API double atan3(double y, double x);

// deg reduced into [0, 360). A value that lands on 360 through rounding gives 0.
// The flag is kept for the host's signature; it must be true (false returns deg unchanged).
KELSCAN_API double ModDeg360(double deg, bool positive);

// Decimal degrees packed as DDD.MMSS: degrees, then two digits of minutes, then the seconds
// (DDD.MMSSsss...). `places` is the number of decimal places of the packed value, at least 4
// (9 keeps seconds to 1e-5 s). The seconds are rounded to that precision, and a rounding that
// reaches 60 seconds (or 60 minutes) carries into the minutes (or degrees). truncate == true
// cuts the seconds instead of rounding them. The sign of deg is kept.
KELSCAN_API double Deg2DDDMMSS(double deg, int places, bool truncate);

// DDD.MMSS to decimal degrees: degrees + minutes / 60 + seconds / 3600, with the sign of dms.
// Minutes and seconds are read as written (60 or more is not rejected).
KELSCAN_API double DDDMMSS2Deg(double dms);
