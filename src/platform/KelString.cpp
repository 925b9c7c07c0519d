#include "platform/KelString.h"

#include <vector>

namespace kel_text {
namespace detail {

namespace {

// Length modifiers and flags that may stand between '%' and the conversion character.
template <class T>
bool IsFormatPrefixChar(T c) {
    return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '.' || c == '*' ||
           (c >= '1' && c <= '9') || c == 'l' || c == 'h' || c == 'L' || c == 'z' ||
           c == 'j' || c == 't' || c == 'q' || c == 'I' || c == 'w';
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

bool VFormat(std::wstring& out, const wchar_t* fmt, va_list args) {
    const std::wstring f = TranslateFormat(fmt);
    std::vector<wchar_t> buf(256);
    for (int attempt = 0; attempt < 24; ++attempt) {
        va_list copy;
        va_copy(copy, args);
        const int n = std::vswprintf(buf.data(), buf.size(), f.c_str(), copy);
        va_end(copy);
        if (n >= 0 && static_cast<std::size_t>(n) < buf.size()) {
            out.assign(buf.data(), static_cast<std::size_t>(n));
            return true;
        }
        // vswprintf reports both "too small" and "invalid" as -1: grow up to 64 MiB, then give up.
        if (buf.size() >= (std::size_t{1} << 24)) break;
        buf.resize(buf.size() * 4);
    }
    out.clear();
    return false;
}

bool VFormat(std::string& out, const char* fmt, va_list args) {
    const std::string f = TranslateFormat(fmt);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, f.c_str(), copy);
    va_end(copy);
    if (n < 0) {
        out.clear();
        return false;
    }
    std::vector<char> buf(static_cast<std::size_t>(n) + 1);
    std::vsnprintf(buf.data(), buf.size(), f.c_str(), args);
    out.assign(buf.data(), static_cast<std::size_t>(n));
    return true;
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
