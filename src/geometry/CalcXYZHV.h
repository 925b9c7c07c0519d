#pragma once
// CCalcXYZHV: free functions between the instrument's surveying world and the library's
// geometry. Angles here are in degrees.
//
// Frames:
// - surveying frame: x = north, y = east, z = height, metres; horizontal angles from +x
//   towards +y (clockwise seen from above);
// - computation frame: x = east, y = north, z = height, millimetres.
// Angle formats: "100" is decimal degrees, "60" is sexagesimal packed as DDD.MMSS.
#include "geometry/XYZ.h"
#include "platform/Export.h"
#include "platform/KelString.h"
#include "platform/Time.h"

namespace CCalcXYZHV {

// Horizontal angle h in [0, 360) and zenith angle v (90 = horizontal sight, smaller upwards)
// from station to target, both in the surveying frame; `height` is subtracted from the
// target's height (an instrument height added to the station). Coincident plan positions
// give h = 0, v untouched, one information message box captioned "CCalcXYZHV::XYZToHV" and
// the result 0; otherwise 1.
KELSCAN_API int XYZToHV(const CXYZ& station, const CXYZ& target, double height, double& v,
                        double& h);

// Surveying frame (m, x north) to computation frame (mm, x east), and back.
KELSCAN_API void CnvSokuToMath(CXYZ& p);
KELSCAN_API void CnvMathToSoku(CXYZ& p);

// Decimal degrees to packed DDD.MMSS (9 decimal places, rounded). mode == 1 reduces the
// angle into [0, 360) first.
KELSCAN_API double Angle100To60(double deg, int mode);
// Packed DDD.MMSS to decimal degrees. mode == 1 reduces the packed value itself into
// [0, 360) before unpacking (a packed 370.3000 becomes 10.3000, i.e. 10.5 degrees).
KELSCAN_API double Angle60To100(double dms, int mode);
// deg reduced into [0, 360) in place.
KELSCAN_API void Angle0To360(double& deg);

// Elapsed whole minutes from start to end by hour and minute only: the date, seconds and
// milliseconds are ignored, so a span across midnight comes out negative.
KELSCAN_API int GetTakenTime(const SYSTEMTIME& start, const SYSTEMTIME& end);
// "YYYYMMDDhhmm": twelve digits, no seconds.
KELSCAN_API kel_text::CKelString TimeToString(const SYSTEMTIME& t);
// Compares two file times as local calendar times down to the millisecond: 1 when a is
// later, 0 when a is earlier, 2 when they are equal.
KELSCAN_API int FILETIMEFastRate(const FILETIME& a, const FILETIME& b);
// Seconds as "hh:mm:ss"; the hours are not limited to two digits (360000 -> "100:00:00").
// A negative count prints as the C library prints negative numbers ("00:00:-5").
KELSCAN_API kel_text::CKelString ByoToStr(int seconds);
// 1 when name can be a file or folder name on the device: not empty, not beginning or ending
// with '.', no "..", none of \ / : * ? " < > |. Otherwise 0.
KELSCAN_API int ChkFileFolderName(const wchar_t* name);

}  // namespace CCalcXYZHV

// The station value that marks the circle orientation of TaskInverse as not set.
constexpr double kTaskInverseNotSet = -180.0;

// Instrument angles from a station to a target, both in the surveying frame (x north, y east,
// z height, metres). The telescope's axis is at station.z + instHeight. The horizontal circle
// is oriented on a backsight: h = azimuth(station -> target) - bsAzimuth + bsReading, where
// bsAzimuth is the azimuth of the backsight and bsReading the circle reading set on it; when
// either is exactly kTaskInverseNotSet the circle reads the azimuth itself (0 north, 90 east).
// h is reduced into [0, 360). v is the zenith angle from the axis point, 0 straight up, 90
// level, 180 straight down. A target in plumb line with the axis (no plan distance) gives the
// circle reading of azimuth 0 as h, v 0 above the axis, 180 below and 90 on the axis point,
// and the result 0; otherwise 1. Writes no trace line and shows no message.
KELSCAN_API int TaskInverse(const CXYZ& station, const CXYZ& target, double instHeight,
                            double bsAzimuth, double bsReading, double& h, double& v);
