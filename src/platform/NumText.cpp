#include "platform/NumText.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <system_error>

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
