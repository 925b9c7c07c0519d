#include "platform/Time.h"

#include <chrono>
#include <ctime>

namespace kel_time {
namespace {

constexpr std::int64_t kTicksPerSecond = 10000000;
constexpr std::int64_t kTicksPerDay = kTicksPerSecond * 86400;
// Days from 1601-01-01 to 1970-01-01.
constexpr std::int64_t kDays1601To1970 = 134774;

std::uint64_t SystemClock(void* /*context*/) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() / 100;
    return static_cast<std::uint64_t>(ticks + kDays1601To1970 * kTicksPerDay);
}

Clock g_clock = &SystemClock;
void* g_context = nullptr;
bool g_fixedOffset = false;
int g_offsetMinutes = 0;

// Days since 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's days_from_civil).
std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const unsigned yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void CivilFromDays(std::int64_t z, std::int64_t& y, unsigned& m, unsigned& d) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const unsigned doe = static_cast<unsigned>(z - era * 146097);
    const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    y = static_cast<std::int64_t>(yoe) + era * 400;
    const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const unsigned mp = (5 * doy + 2) / 153;
    d = doy - (153 * mp + 2) / 5 + 1;
    m = mp < 10 ? mp + 3 : mp - 9;
    y += m <= 2;
}

int HostOffsetMinutes() {
    if (g_fixedOffset) return g_offsetMinutes;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
#if defined(_WIN32)
    localtime_s(&local, &now);
    std::tm utc{};
    gmtime_s(&utc, &now);
    return static_cast<int>(std::difftime(std::mktime(&local), std::mktime(&utc)) / 60);
#else
    localtime_r(&now, &local);
    return static_cast<int>(local.tm_gmtoff / 60);
#endif
}

}  // namespace

void SetClock(Clock clock, void* context) {
    g_clock = clock != nullptr ? clock : &SystemClock;
    g_context = clock != nullptr ? context : nullptr;
}

void SetLocalOffset(bool fixed, int minutesEastOfUtc) {
    g_fixedOffset = fixed;
    g_offsetMinutes = minutesEastOfUtc;
}

std::uint64_t NowTicks() { return g_clock(g_context); }
int LocalOffsetMinutes() { return HostOffsetMinutes(); }
std::int64_t TicksFromCivil(std::int64_t y, unsigned m, unsigned d) {
    return (DaysFromCivil(y, m, d) + kDays1601To1970) * kTicksPerDay;
}
void CivilFromTicks(std::uint64_t ticks, std::int64_t& y, unsigned& m, unsigned& d,
                    std::int64_t& dayTicks, int& dayOfWeek) {
    const std::int64_t days = static_cast<std::int64_t>(ticks / kTicksPerDay);
    dayTicks = static_cast<std::int64_t>(ticks % kTicksPerDay);
    CivilFromDays(days - kDays1601To1970, y, m, d);
    dayOfWeek = static_cast<int>((days + 1) % 7);  // 1601-01-01 was a Monday
}

}  // namespace kel_time

#if !defined(_WIN32)
using kel_time::ToTicks;
using kel_time::FromTicks;

BOOL FileTimeToSystemTime(const FILETIME* ft, SYSTEMTIME* st) {
    if (ft == nullptr || st == nullptr) return FALSE;
    const std::uint64_t ticks = ToTicks(*ft);
    if (ticks >= 0x8000000000000000ULL) return FALSE;
    std::int64_t y;
    unsigned m, d;
    std::int64_t dayTicks;
    int dow;
    kel_time::CivilFromTicks(ticks, y, m, d, dayTicks, dow);
    if (y > 30827) return FALSE;
    const std::int64_t ms = dayTicks / 10000;
    st->wYear = static_cast<WORD>(y);
    st->wMonth = static_cast<WORD>(m);
    st->wDay = static_cast<WORD>(d);
    st->wDayOfWeek = static_cast<WORD>(dow);
    st->wHour = static_cast<WORD>(ms / 3600000);
    st->wMinute = static_cast<WORD>((ms / 60000) % 60);
    st->wSecond = static_cast<WORD>((ms / 1000) % 60);
    st->wMilliseconds = static_cast<WORD>(ms % 1000);
    return TRUE;
}

BOOL SystemTimeToFileTime(const SYSTEMTIME* st, FILETIME* ft) {
    if (st == nullptr || ft == nullptr) return FALSE;
    static const unsigned kDaysIn[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (st->wYear < 1601 || st->wYear > 30827 || st->wMonth < 1 || st->wMonth > 12 ||
        st->wDay < 1 || st->wDay > kDaysIn[st->wMonth - 1] || st->wHour > 23 ||
        st->wMinute > 59 || st->wSecond > 59 || st->wMilliseconds > 999)
        return FALSE;
    const bool leap = (st->wYear % 4 == 0 && st->wYear % 100 != 0) || st->wYear % 400 == 0;
    if (st->wMonth == 2 && st->wDay == 29 && !leap) return FALSE;
    std::int64_t t = kel_time::TicksFromCivil(st->wYear, st->wMonth, st->wDay);
    t += ((static_cast<std::int64_t>(st->wHour) * 60 + st->wMinute) * 60 + st->wSecond) *
             std::int64_t{10000000} +
         static_cast<std::int64_t>(st->wMilliseconds) * 10000;
    *ft = FromTicks(static_cast<std::uint64_t>(t));
    return TRUE;
}

BOOL FileTimeToLocalFileTime(const FILETIME* ft, FILETIME* local) {
    if (ft == nullptr || local == nullptr) return FALSE;
    const std::int64_t t = static_cast<std::int64_t>(ToTicks(*ft)) +
                           static_cast<std::int64_t>(kel_time::LocalOffsetMinutes()) * 600000000;
    if (t < 0) return FALSE;
    *local = FromTicks(static_cast<std::uint64_t>(t));
    return TRUE;
}

void GetSystemTimeAsFileTime(FILETIME* ft) {
    if (ft != nullptr) *ft = FromTicks(kel_time::NowTicks());
}

void GetSystemTime(SYSTEMTIME* st) {
    FILETIME ft = FromTicks(kel_time::NowTicks());
    FileTimeToSystemTime(&ft, st);
}

void GetLocalTime(SYSTEMTIME* st) {
    FILETIME ft = FromTicks(kel_time::NowTicks());
    FILETIME local;
    if (!FileTimeToLocalFileTime(&ft, &local)) local = ft;
    FileTimeToSystemTime(&local, st);
}
#endif
