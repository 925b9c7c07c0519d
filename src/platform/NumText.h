#pragma once
// Numbers as text, independent of the process locale: every number the library or the program
// writes to or reads from a text file, a trace line or the terminal goes through these, so a
// comma-decimal locale never changes a file (`P1,1.500000,...` stays that, everywhere).
// Built on std::to_chars / std::from_chars, which never consult the locale.
#include <cstddef>
#include <string>

#include "platform/Export.h"

namespace kel_num {

// The most characters Fixed/ToFixed can produce for any double with up to kMaxDecimals places:
// sign, 309 integer digits, point, decimals.
constexpr int kMaxDecimals = 30;
constexpr std::size_t kFixedChars = 1 + 309 + 1 + kMaxDecimals;

// `value` with exactly `decimals` places (0..kMaxDecimals, clamped), '.' as the decimal mark,
// as printf's "%.*f" in the C locale prints it ("nan", "inf", "-inf" for non-finite values).
KELSCAN_API std::string Fixed(double value, int decimals);

// As Fixed, into `buffer` of `size` bytes with a terminating NUL. Returns the length written,
// or -1 (and an empty string when size > 0) if it does not fit; never truncates silently.
KELSCAN_API int ToFixed(char* buffer, std::size_t size, double value, int decimals);

// Round-trip text: the shortest decimal that reads back as exactly `value` (std::to_chars'
// shortest form, e.g. "0.1", "1e+300", "-2.5"). Use where a value must survive a text file.
KELSCAN_API std::string Exact(double value);

// 17 significant digits in printf's "%.17g" form, as scripts and other tools expect for
// "full precision" columns.
KELSCAN_API std::string Full(double value);

// Exponent form with `decimals` places, as printf's "%.*e" in the C locale ("1.500000e+00").
KELSCAN_API std::string Sci(double value, int decimals);

// Largest precision Printf takes.
constexpr int kMaxPrintfPrecision = 4096;

// `value` as printf's floating conversion `conversion` (f F e E g G a A) prints it in the C
// locale, with `precision` (-1: the conversion's default) and the '#' flag `alternate`; the
// sign is included ("-" only), flags '+', ' ', '0' and the field width are the caller's. Empty
// for another conversion or a precision above kMaxPrintfPrecision.
KELSCAN_API std::string Printf(double value, char conversion, int precision, bool alternate);
KELSCAN_API std::string Printf(long double value, char conversion, int precision, bool alternate);

// Reads one number at text[0..]: optional leading blanks (space, tab), optional '+' or '-',
// then a decimal or exponent form ("12", "-0.5", "1e-3"); "nan"/"inf" only when allowNonFinite.
// Never reads hexadecimal floats. On success stores the value, sets *end (when given) to the
// first character after the number and returns true; returns false for no number, for a value
// out of the double range (no silent overflow to inf) and for non-finite text unless allowed.
KELSCAN_API bool ParsePrefix(const char* text, double& value, const char** end = nullptr,
                 bool allowNonFinite = false);

// The whole of `text` (leading and trailing blanks allowed, nothing else) is one finite number.
KELSCAN_API bool Parse(const char* text, double& value);
KELSCAN_API bool Parse(const std::string& text, double& value);

// The whole of `text` (blanks around allowed) is one decimal integer within int's range.
KELSCAN_API bool ParseInt(const char* text, int& value);

}  // namespace kel_num
