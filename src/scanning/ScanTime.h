#pragma once
// Conversions of the planners' estimates to int (internal to the scanning folder).
#include <climits>

namespace kel_scan {

// (int)x, truncated toward zero; values beyond the int range (a fine plan far past its linear
// per-target formula, a line far longer than its spacing) are clamped instead of converted,
// which would be undefined. NaN gives INT_MIN.
inline int TruncInt(double x) {
    if (!(x > static_cast<double>(INT_MIN))) return INT_MIN;
    if (!(x < static_cast<double>(INT_MAX))) return INT_MAX;
    return static_cast<int>(x);
}

// (int)(seconds + 0.5), as every time estimate rounds.
inline int RoundSeconds(double seconds) { return TruncInt(seconds + 0.5); }

}  // namespace kel_scan
