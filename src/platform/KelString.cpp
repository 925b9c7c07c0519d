#include "platform/KelString.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string>
#include <vector>

#include "platform/NumText.h"

namespace kel_text {
namespace detail {

namespace {

// Length modifiers and flags that may stand between '%' and the conversion character.
template <class T>
bool IsFormatPrefixChar(T c) {
    return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '.' || c == '*' ||
           (c >= '1' && c <= '9') || c == 'l' || c == 'h' || c == 'L' || c == 'z' || c == 'j' ||
           c == 't' || c == 'q' || c == 'I' || c == 'w';
}

// Copies a format, rewriting the string and character conversions. `wide` tells whether the
// format is a wide one (then an unqualified %s means a wide string).
template <class T>
std::basic_string<T> Translate(const T* fmt, bool wide) {
    std::basic_string<T> out;
    for (const T* p = fmt; *p != 0;) {
        if (*p != '%') {
            out += *p++;
            continue;
        }
        out += *p++;
        if (*p == '%') {
            out += *p++;
            continue;
        }
        std::basic_string<T> flags;
        while (*p != 0 && IsFormatPrefixChar(*p)) flags += *p++;
        if (*p == 0) {
            out += flags;
            break;
        }
        T conv = *p++;
        // Size qualifiers already present: h = narrow, l or w = wide.
        const bool hasH = flags.find(T('h')) != std::basic_string<T>::npos;
        const bool hasL = flags.find(T('l')) != std::basic_string<T>::npos ||
                          flags.find(T('w')) != std::basic_string<T>::npos;
        if (conv == 's' || conv == 'S' || conv == 'c' || conv == 'C') {
            bool argWide;
            if (hasH) {
                argWide = false;
            } else if (hasL) {
                argWide = true;
            } else {
                const bool upper = (conv == 'S' || conv == 'C');
                argWide = wide ? !upper : upper;
            }
            std::basic_string<T> cleaned;
            for (T c : flags)
                if (c != 'h' && c != 'l' && c != 'w') cleaned += c;
            out += cleaned;
            if (argWide) out += T('l');
            out += (conv == 's' || conv == 'S') ? T('s') : T('c');
        } else {
            // Windows' I64 prefix means a 64-bit integer.
            const std::size_t i64 = flags.find(T('I'));
            if (i64 != std::basic_string<T>::npos && flags.size() >= i64 + 3 &&
                flags[i64 + 1] == '6' && flags[i64 + 2] == '4') {
                flags.replace(i64, 3, 2, T('l'));
            }
            out += flags;
            out += conv;
        }
    }
    return out;
}

}  // namespace

std::wstring TranslateFormat(const wchar_t* fmt) { return Translate(fmt, true); }
std::string TranslateFormat(const char* fmt) { return Translate(fmt, false); }

namespace {

// One C-library call for one conversion whose number text does not depend on the locale
// (integers, characters, strings, pointers): the directive holds no '*' any more.
template <class A>
bool CallC(std::string& out, const std::string& format, A value) {
    const int n = std::snprintf(nullptr, 0, format.c_str(), value);
    if (n < 0) return false;
    std::vector<char> buf(static_cast<std::size_t>(n) + 1);
    std::snprintf(buf.data(), buf.size(), format.c_str(), value);
    out.append(buf.data(), static_cast<std::size_t>(n));
    return true;
}

template <class A>
bool CallC(std::wstring& out, const std::wstring& format, A value) {
    std::vector<wchar_t> buf(64);
    for (;;) {
        const int n = std::swprintf(buf.data(), buf.size(), format.c_str(), value);
        if (n >= 0 && static_cast<std::size_t>(n) < buf.size()) {
            out.append(buf.data(), static_cast<std::size_t>(n));
            return true;
        }
        // swprintf reports both "too small" and "invalid" as -1: grow up to 64 MiB, then give up.
        if (buf.size() >= (std::size_t{1} << 24)) return false;
        buf.resize(buf.size() * 4);
    }
}

// A parsed conversion: flags, width and precision (resolved, -1 when absent), length, type.
template <class T>
struct Directive {
    std::basic_string<T> flags;
    int width = -1;
    int precision = -1;
    std::string length;
    T conv = 0;

    std::basic_string<T> Rebuilt() const {
        std::basic_string<T> s(1, T('%'));
        s += flags;
        if (width >= 0)
            for (char c : std::to_string(width)) s += T(c);
        if (precision >= 0) {
            s += T('.');
            for (char c : std::to_string(precision)) s += T(c);
        }
        for (char c : length) s += T(c);
        s += conv;
        return s;
    }
    bool Has(char f) const { return flags.find(T(f)) != std::basic_string<T>::npos; }
};

// A floating conversion through the locale-independent number text, padded as printf pads.
template <class T, class F>
bool FloatText(std::basic_string<T>& out, const Directive<T>& directive, F value) {
    std::string s = kel_num::Printf(value, static_cast<char>(directive.conv), directive.precision,
                                    directive.Has('#'));
    if (s.empty()) return false;
    std::size_t body = 0;  // where zero padding goes: after the sign and "0x"
    if (s[0] == '-') {
        body = 1;
    } else if (directive.Has('+') || directive.Has(' ')) {
        s.insert(0, 1, directive.Has('+') ? '+' : ' ');
        body = 1;
    }
    if (s.size() > body + 1 && s[body] == '0' && (s[body + 1] == 'x' || s[body + 1] == 'X'))
        body += 2;
    const std::size_t width = directive.width > 0 ? static_cast<std::size_t>(directive.width) : 0;
    if (s.size() < width) {
        const std::size_t pad = width - s.size();
        if (directive.Has('-'))
            s.append(pad, ' ');
        else if (directive.Has('0') && std::isfinite(value))
            s.insert(body, pad, '0');
        else
            s.insert(0, pad, ' ');
    }
    for (char c : s) out += T(static_cast<unsigned char>(c));
    return true;
}

bool IsFlag(int c) { return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0'; }
bool IsDigit(int c) { return c >= '0' && c <= '9'; }
bool IsLength(int c) {
    return c == 'h' || c == 'l' || c == 'L' || c == 'q' || c == 'j' || c == 'z' || c == 't' ||
           c == 'I' || c == 'w';
}

// printf over a translated format, with the floating conversions written by kel_num so that
// the process locale never changes a number. %n is refused, as Windows refuses it.
template <class T>
bool Walk(std::basic_string<T>& out, const std::basic_string<T>& f, va_list args) {
    va_list ap;
    va_copy(ap, args);
    bool ok = true;
    const T* p = f.c_str();
    while (ok && *p != 0) {
        if (*p != '%') {
            out += *p++;
            continue;
        }
        ++p;
        if (*p == '%') {
            out += *p++;
            continue;
        }
        Directive<T> directive;
        while (IsFlag(*p)) directive.flags += *p++;
        if (*p == '*') {
            ++p;
            directive.width = va_arg(ap, int);
            if (directive.width < 0) {
                directive.flags += T('-');
                directive.width = directive.width == INT_MIN ? INT_MAX : -directive.width;
            }
        } else {
            for (; IsDigit(*p); ++p)
                directive.width = (directive.width < 0 ? 0 : directive.width) * 10 + (*p - '0');
        }
        if (*p == '.') {
            ++p;
            directive.precision = 0;
            if (*p == '*') {
                ++p;
                directive.precision = va_arg(ap, int);
                if (directive.precision < 0) directive.precision = -1;
            } else {
                for (; IsDigit(*p); ++p)
                    directive.precision = directive.precision * 10 + (*p - '0');
            }
        }
        for (; IsLength(*p); ++p) {
            // Windows' I64, I32 and bare I (pointer-sized).
            if (*p == 'I') {
                if (p[1] == '6' && p[2] == '4') {
                    directive.length += "ll";
                    p += 2;
                } else if (p[1] == '3' && p[2] == '2') {
                    p += 2;
                } else {
                    directive.length += 'z';
                }
                continue;
            }
            if (*p != 'w') directive.length += static_cast<char>(*p);  // w: wide, for %s/%c only
        }
        directive.conv = *p;
        if (*p != 0) ++p;
        const std::string& len = directive.length;
        const bool ll = len == "ll" || len == "q" || len == "L";
        const std::basic_string<T> c = directive.Rebuilt();
        switch (directive.conv) {
            case 'd':
            case 'i':
                if (ll)
                    ok = CallC(out, c, va_arg(ap, long long));
                else if (len == "l")
                    ok = CallC(out, c, va_arg(ap, long));
                else if (len == "j")
                    ok = CallC(out, c, va_arg(ap, std::intmax_t));
                else if (len == "z" || len == "t")
                    ok = CallC(out, c, va_arg(ap, std::ptrdiff_t));
                else
                    ok = CallC(out, c, va_arg(ap, int));
                break;
            case 'u':
            case 'o':
            case 'x':
            case 'X':
                if (ll)
                    ok = CallC(out, c, va_arg(ap, unsigned long long));
                else if (len == "l")
                    ok = CallC(out, c, va_arg(ap, unsigned long));
                else if (len == "j")
                    ok = CallC(out, c, va_arg(ap, std::uintmax_t));
                else if (len == "z" || len == "t")
                    ok = CallC(out, c, va_arg(ap, std::size_t));
                else
                    ok = CallC(out, c, va_arg(ap, unsigned int));
                break;
            case 'c':
                ok =
                    len == "l" ? CallC(out, c, va_arg(ap, wint_t)) : CallC(out, c, va_arg(ap, int));
                break;
            case 's':
                ok = len == "l" ? CallC(out, c, va_arg(ap, const wchar_t*))
                                : CallC(out, c, va_arg(ap, const char*));
                break;
            case 'p':
                ok = CallC(out, c, va_arg(ap, void*));
                break;
            case 'f':
            case 'F':
            case 'e':
            case 'E':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                ok = len == "L" ? FloatText(out, directive, va_arg(ap, long double))
                                : FloatText(out, directive, va_arg(ap, double));
                break;
            default:
                ok = false;  // %n, an unknown type or a format cut short
        }
    }
    va_end(ap);
    return ok;
}

}  // namespace

bool VFormat(std::wstring& out, const wchar_t* fmt, va_list args) {
    out.clear();
    if (Walk(out, TranslateFormat(fmt), args)) return true;
    out.clear();
    return false;
}

bool VFormat(std::string& out, const char* fmt, va_list args) {
    out.clear();
    if (Walk(out, TranslateFormat(fmt), args)) return true;
    out.clear();
    return false;
}

}  // namespace detail

std::string WideToSingleByte(const wchar_t* s, std::size_t n) {
    std::string out;
    if (s == nullptr) return out;
    out.reserve(n);
    for (std::size_t i = 0; i < n && s[i] != 0; ++i) {
        const unsigned long c = static_cast<unsigned long>(s[i]);
        out += c <= 0xFF ? static_cast<char>(static_cast<unsigned char>(c)) : '?';
    }
    return out;
}

std::string WideToSingleByte(const wchar_t* s) {
    return s == nullptr ? std::string() : WideToSingleByte(s, std::wcslen(s));
}

CKelString SingleByteToWide(const char* s, std::size_t n) {
    CKelString out;
    if (s == nullptr || n == 0) return out;
    std::size_t len = 0;
    while (len < n && s[len] != 0) ++len;
    wchar_t* buf = out.GetBuffer(static_cast<int>(len));
    for (std::size_t i = 0; i < len; ++i)
        buf[i] = static_cast<wchar_t>(static_cast<unsigned char>(s[i]));
    out.ReleaseBuffer(static_cast<int>(len));
    return out;
}

CKelString SingleByteToWide(const char* s) {
    return s == nullptr ? CKelString() : SingleByteToWide(s, std::strlen(s));
}

std::string WideToUtf8(const wchar_t* s) {
    std::string out;
    if (s == nullptr) return out;
    for (; *s != 0; ++s) {
        unsigned long c = static_cast<unsigned long>(*s);
        if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = 0xFFFD;
        if (c < 0x80) {
            out += static_cast<char>(c);
        } else if (c < 0x800) {
            out += static_cast<char>(0xC0 | (c >> 6));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else if (c < 0x10000) {
            out += static_cast<char>(0xE0 | (c >> 12));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        } else {
            out += static_cast<char>(0xF0 | (c >> 18));
            out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
            out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
            out += static_cast<char>(0x80 | (c & 0x3F));
        }
    }
    return out;
}

CKelString Utf8ToWide(const char* s) {
    std::wstring out;
    if (s == nullptr) return CKelString();
    const unsigned char* p = reinterpret_cast<const unsigned char*>(s);
    while (*p != 0) {
        unsigned long c = *p;
        int extra = 0;
        if (c < 0x80) {
            extra = 0;
        } else if ((c & 0xE0) == 0xC0) {
            c &= 0x1F;
            extra = 1;
        } else if ((c & 0xF0) == 0xE0) {
            c &= 0x0F;
            extra = 2;
        } else if ((c & 0xF8) == 0xF0) {
            c &= 0x07;
            extra = 3;
        } else {
            out += static_cast<wchar_t>(0xFFFD);
            ++p;
            continue;
        }
        ++p;
        bool ok = true;
        for (int k = 0; k < extra; ++k) {
            if ((*p & 0xC0) != 0x80) {
                ok = false;
                break;
            }
            c = (c << 6) | (*p & 0x3F);
            ++p;
        }
        if (!ok || (sizeof(wchar_t) == 2 && c > 0xFFFF)) c = 0xFFFD;
        out += static_cast<wchar_t>(c);
    }
    return CKelString(out.c_str(), static_cast<int>(out.size()));
}

}  // namespace kel_text
