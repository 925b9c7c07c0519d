#pragma once
// Windows' calendar time and file time, with Windows semantics, over std::chrono.
//
// FILETIME counts 100-nanosecond intervals since 1601-01-01 00:00 UTC. SYSTEMTIME is a broken-
// down calendar time (wDayOfWeek 0 = Sunday). "Now" comes from a replaceable clock so that
// tests can fix it, and the local-time offset can be fixed the same way.
#include <cstdint>

#include "platform/Export.h"
#include "platform/Types.h"

#if !defined(_WIN32)
struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

// The current UTC time.
KELSCAN_API void GetSystemTime(SYSTEMTIME* st);
// The current local time.
KELSCAN_API void GetLocalTime(SYSTEMTIME* st);
KELSCAN_API void GetSystemTimeAsFileTime(FILETIME* ft);
// Returns FALSE (and leaves the output unset) for a field out of range.
KELSCAN_API BOOL SystemTimeToFileTime(const SYSTEMTIME* st, FILETIME* ft);
// Returns FALSE for a time beyond year 30827.
KELSCAN_API BOOL FileTimeToSystemTime(const FILETIME* ft, SYSTEMTIME* st);
// Adds the host's current offset from UTC (as Windows does: the offset in force now, not
// the one at the converted instant).
KELSCAN_API BOOL FileTimeToLocalFileTime(const FILETIME* ft, FILETIME* local);
#endif

namespace kel_time {
// Returns "now" as 100-ns intervals since 1601-01-01 UTC.
typedef std::uint64_t (*Clock)(void* context);
// Installs a clock; a null clock restores the system clock.
KELSCAN_API void SetClock(Clock clock, void* context);
// Fixes the local-time offset in minutes east of UTC; fixed == false restores the host's.
KELSCAN_API void SetLocalOffset(bool fixed, int minutesEastOfUtc);
// FILETIME <-> 64-bit count.
inline std::uint64_t ToTicks(const FILETIME& ft) {
    return (static_cast<std::uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
}
inline FILETIME FromTicks(std::uint64_t t) {
    FILETIME ft;
    ft.dwLowDateTime = static_cast<DWORD>(t & 0xFFFFFFFFu);
    ft.dwHighDateTime = static_cast<DWORD>(t >> 32);
    return ft;
}
}  // namespace kel_time
