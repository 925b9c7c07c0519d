#include "platform/NumText.h"

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>
#include <vector>

namespace kel_num {

namespace {

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

int ClampDecimals(int decimals) {
    return decimals < 0 ? 0 : (decimals > kMaxDecimals ? kMaxDecimals : decimals);
}

}  // namespace

int ToFixed(char* buffer, std::size_t size, double value, int decimals) {
    if (size == 0) return -1;
    buffer[0] = '\0';
    const std::to_chars_result r = std::to_chars(buffer, buffer + size - 1, value,
                                                 std::chars_format::fixed, ClampDecimals(decimals));
    if (r.ec != std::errc()) return -1;
    *r.ptr = '\0';
    return static_cast<int>(r.ptr - buffer);
}

std::string Fixed(double value, int decimals) {
    char buffer[kFixedChars + 1];
    const int n = ToFixed(buffer, sizeof buffer, value, decimals);
    return n < 0 ? std::string() : std::string(buffer, static_cast<std::size_t>(n));
}

std::string Exact(double value) {
    char buffer[64];
    const std::to_chars_result r = std::to_chars(buffer, buffer + sizeof buffer, value);
    return r.ec == std::errc() ? std::string(buffer, r.ptr) : std::string();
}

std::string Full(double value) {
    char buffer[64];
    const std::to_chars_result r =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 17);
    return r.ec == std::errc() ? std::string(buffer, r.ptr) : std::string();
}

std::string Sci(double value, int decimals) {
    return Printf(value, 'e', ClampDecimals(decimals), false);
}

namespace {

// to_chars into a buffer large enough for any value of F at `precision`.
template <class F, class... Form>
std::string ToChars(F value, int precision, Form... form) {
    std::vector<char> buf(static_cast<std::size_t>(precision) + LDBL_MAX_10_EXP + 64);
    const std::to_chars_result r =
        std::to_chars(buf.data(), buf.data() + buf.size(), value, form...);
    return r.ec == std::errc() ? std::string(buf.data(), r.ptr) : std::string();
}

// The decimal exponent of `text` in exponent form ("1.5e-07" gives -7).
int ExponentOf(const std::string& text) {
    const std::size_t e = text.find('e');
    int x = 0;
    if (e != std::string::npos)
        std::from_chars(text.data() + e + 1 + (text[e + 1] == '+'), text.data() + text.size(), x);
    return x;
}

template <class F>
std::string PrintfT(F value, char conversion, int precision, bool alternate) {
    if (precision > kMaxPrintfPrecision) return std::string();
    const bool upper = conversion >= 'A' && conversion <= 'Z';
    const char conv = upper ? static_cast<char>(conversion - 'A' + 'a') : conversion;
    std::string s;
    if (!std::isfinite(value)) {
        s = std::signbit(value) ? "-" : "";
        s += std::isnan(value) ? "nan" : "inf";
    } else if (conv == 'f') {
        s = ToChars(value, precision, std::chars_format::fixed, precision < 0 ? 6 : precision);
    } else if (conv == 'e') {
        s = ToChars(value, precision, std::chars_format::scientific, precision < 0 ? 6 : precision);
    } else if (conv == 'g') {
        const int p = precision < 0 ? 6 : (precision == 0 ? 1 : precision);
        if (!alternate) {
            s = ToChars(value, p, std::chars_format::general, p);
        } else {
            // '#' keeps the trailing zeros: the style follows the exponent after rounding.
            const int x = ExponentOf(ToChars(value, p, std::chars_format::scientific, p - 1));
            s = (p > x && x >= -4) ? ToChars(value, p, std::chars_format::fixed, p - 1 - x)
                                   : ToChars(value, p, std::chars_format::scientific, p - 1);
        }
    } else if (conv == 'a') {
        s = precision < 0 ? ToChars(value, 0, std::chars_format::hex)
                          : ToChars(value, precision, std::chars_format::hex, precision);
        s.insert(s[0] == '-' ? 1 : 0, "0x");
    } else {
        return std::string();
    }
    if (alternate && std::isfinite(value) && s.find('.') == std::string::npos) {
        const std::size_t mark = s.find_first_of(conv == 'a' ? "p" : "e");
        s.insert(mark == std::string::npos ? s.size() : mark, ".");
    }
    if (upper)
        for (char& c : s)
            if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    return s;
}

}  // namespace

std::string Printf(double value, char conversion, int precision, bool alternate) {
    return PrintfT(value, conversion, precision, alternate);
}

std::string Printf(long double value, char conversion, int precision, bool alternate) {
    return PrintfT(value, conversion, precision, alternate);
}

bool ParsePrefix(const char* text, double& value, const char** end, bool allowNonFinite) {
    if (text == nullptr) return false;
    const char* p = text;
    while (*p == ' ' || *p == '\t') ++p;
    bool negative = false;
    if (*p == '+' || *p == '-') {
        negative = *p == '-';
        ++p;
    }
    // from_chars takes no '+' and would take a second sign: the sign is ours alone.
    if (*p == '+' || *p == '-') return false;
    const char* last = p + std::strlen(p);
    double v = 0.0;
    const std::from_chars_result r = std::from_chars(p, last, v, std::chars_format::general);
    if (r.ec != std::errc() || r.ptr == p) return false;
    if (!allowNonFinite && !std::isfinite(v)) return false;
    value = negative ? -v : v;
    if (end != nullptr) *end = r.ptr;
    return true;
}

bool Parse(const char* text, double& value) {
    const char* end = nullptr;
    double v = 0.0;
    if (!ParsePrefix(text, v, &end)) return false;
    while (IsBlank(*end)) ++end;
    if (*end != '\0') return false;
    value = v;
    return true;
}

bool Parse(const std::string& text, double& value) {
    // An embedded NUL would end the C string early and pass a partial field.
    if (text.find('\0') != std::string::npos) return false;
    return Parse(text.c_str(), value);
}

bool ParseInt(const char* text, int& value) {
    if (text == nullptr) return false;
    const char* p = text;
    while (IsBlank(*p)) ++p;
    if (*p == '+') ++p;
    const char* last = p + std::strlen(p);
    int v = 0;
    const std::from_chars_result r = std::from_chars(p, last, v);
    if (r.ec != std::errc() || r.ptr == p) return false;
    const char* q = r.ptr;
    while (IsBlank(*q)) ++q;
    if (*q != '\0') return false;
    value = v;
    return true;
}

}  // namespace kel_num
