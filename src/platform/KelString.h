#pragma once
// kel_text::CKelStringT: the value-semantics string of the library, MFC CString-like.
//
// It is exactly one pointer wide and an empty string allocates nothing: every CXYZ carries two
// of them and a surface holds millions of points. A non-empty string points at its characters,
// which follow a small header (length and capacity) in one heap block.
//
// Format keeps Windows' meaning of the type characters: in a wide format string `%s` takes a
// wide string and `%S` a narrow one; in a narrow format string `%s` takes a narrow string and
// `%S` a wide one (`%c`/`%C` likewise). Numbers never depend on the process locale: the
// floating conversions (%f %e %g %a) are written by platform/NumText.h, the others take no
// locale-dependent flag ("%'d" is refused). %n is refused, as Windows refuses it.
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <cwctype>
#include <new>
#include <string>

#include "platform/Export.h"

namespace kel_text {

namespace detail {
inline std::size_t StrLen(const char* s) { return std::strlen(s); }
inline std::size_t StrLen(const wchar_t* s) { return std::wcslen(s); }
inline int ToLower(char c) { return (c >= 'A' && c <= 'Z') ? c - 'A' + 'a' : c; }
inline int ToLower(wchar_t c) {
    if (c >= L'A' && c <= L'Z') return c - L'A' + L'a';
    if (c < 0x80) return c;
    return static_cast<int>(std::towlower(static_cast<wint_t>(c)));
}
inline int ToUpper(char c) { return (c >= 'a' && c <= 'z') ? c - 'a' + 'A' : c; }
inline int ToUpper(wchar_t c) {
    if (c >= L'a' && c <= L'z') return c - L'a' + L'A';
    if (c < 0x80) return c;
    return static_cast<int>(std::towupper(static_cast<wint_t>(c)));
}
inline bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
inline bool IsSpace(wchar_t c) {
    return c == L' ' || c == L'\t' || c == L'\n' || c == L'\r' || c == L'\v' || c == L'\f';
}
// Rewrites a Windows-style format so that the C library gives it the same meaning.
KELSCAN_API std::wstring TranslateFormat(const wchar_t* fmt);
KELSCAN_API std::string TranslateFormat(const char* fmt);
// Formats into out; returns false (out empty) when the format is invalid.
KELSCAN_API bool VFormat(std::wstring& out, const wchar_t* fmt, va_list args);
KELSCAN_API bool VFormat(std::string& out, const char* fmt, va_list args);
}  // namespace detail

template <class T>
class CKelStringT {
public:
    CKelStringT() noexcept : m_pch(nullptr) {}
    CKelStringT(const CKelStringT& s) : m_pch(nullptr) { Assign(s.GetString(), s.GetLength()); }
    CKelStringT(CKelStringT&& s) noexcept : m_pch(s.m_pch) { s.m_pch = nullptr; }
    CKelStringT(const T* s) : m_pch(nullptr) {  // NOLINT: implicit as CString's
        if (s != nullptr) Assign(s, static_cast<int>(detail::StrLen(s)));
    }
    CKelStringT(const T* s, int len) : m_pch(nullptr) {
        if (s != nullptr && len > 0) Assign(s, len);
    }
    CKelStringT(T ch, int repeat) : m_pch(nullptr) {
        if (repeat > 0) {
            Reserve(repeat);
            for (int i = 0; i < repeat; ++i) m_pch[i] = ch;
            SetLen(repeat);
        }
    }
    ~CKelStringT() { Release(); }

    CKelStringT& operator=(const CKelStringT& s) {
        if (this != &s) Assign(s.GetString(), s.GetLength());
        return *this;
    }
    CKelStringT& operator=(CKelStringT&& s) noexcept {
        if (this != &s) {
            Release();
            m_pch = s.m_pch;
            s.m_pch = nullptr;
        }
        return *this;
    }
    CKelStringT& operator=(const T* s) {
        if (s == nullptr) {
            Empty();
        } else {
            Assign(s, static_cast<int>(detail::StrLen(s)));
        }
        return *this;
    }
    CKelStringT& operator=(T ch) {
        Assign(&ch, 1);
        return *this;
    }

    // The characters, never null: an empty string gives "".
    const T* GetString() const noexcept { return m_pch != nullptr ? m_pch : EmptyChars(); }
    operator const T*() const noexcept { return GetString(); }  // NOLINT: CString's conversion

    int GetLength() const noexcept { return m_pch != nullptr ? Header()->len : 0; }
    bool IsEmpty() const noexcept { return GetLength() == 0; }
    void Empty() noexcept { Release(); }

    // Character i, or 0 when i is outside [0, GetLength()).
    T GetAt(int i) const noexcept { return (i >= 0 && i < GetLength()) ? m_pch[i] : T(0); }
    // Sets character i when i is inside [0, GetLength()); otherwise does nothing.
    void SetAt(int i, T ch) noexcept {
        if (i >= 0 && i < GetLength()) m_pch[i] = ch;
    }
    T operator[](int i) const noexcept { return GetAt(i); }

    CKelStringT& operator+=(const CKelStringT& s) {
        Append(s.GetString(), s.GetLength());
        return *this;
    }
    CKelStringT& operator+=(const T* s) {
        if (s != nullptr) Append(s, static_cast<int>(detail::StrLen(s)));
        return *this;
    }
    CKelStringT& operator+=(T ch) {
        Append(&ch, 1);
        return *this;
    }
    friend CKelStringT operator+(const CKelStringT& a, const CKelStringT& b) {
        CKelStringT r(a);
        r += b;
        return r;
    }
    friend CKelStringT operator+(const CKelStringT& a, const T* b) {
        CKelStringT r(a);
        r += b;
        return r;
    }
    friend CKelStringT operator+(const T* a, const CKelStringT& b) {
        CKelStringT r(a);
        r += b;
        return r;
    }
    friend bool operator==(const CKelStringT& a, const CKelStringT& b) {
        return a.Compare(b.GetString()) == 0;
    }
    friend bool operator==(const CKelStringT& a, const T* b) { return a.Compare(b) == 0; }
    friend bool operator!=(const CKelStringT& a, const CKelStringT& b) { return !(a == b); }
    friend bool operator!=(const CKelStringT& a, const T* b) { return !(a == b); }
    friend bool operator<(const CKelStringT& a, const CKelStringT& b) {
        return a.Compare(b.GetString()) < 0;
    }

    // Replaces the contents with the formatted text (Windows type characters, see above).
    // An invalid format leaves the string empty.
    void Format(const T* fmt, ...) {
        va_list args;
        va_start(args, fmt);
        FormatV(fmt, args);
        va_end(args);
    }
    void FormatV(const T* fmt, va_list args) {
        std::basic_string<T> out;
        if (fmt == nullptr || !detail::VFormat(out, fmt, args)) {
            Empty();
            return;
        }
        Assign(out.data(), static_cast<int>(out.size()));
    }
    void AppendFormat(const T* fmt, ...) {
        va_list args;
        va_start(args, fmt);
        std::basic_string<T> out;
        if (fmt != nullptr && detail::VFormat(out, fmt, args))
            Append(out.data(), static_cast<int>(out.size()));
        va_end(args);
    }

    // Index of the first ch at or after start, or -1.
    int Find(T ch, int start = 0) const noexcept {
        const int n = GetLength();
        for (int i = start < 0 ? 0 : start; i < n; ++i)
            if (m_pch[i] == ch) return i;
        return -1;
    }
    // Index of the first occurrence of sub at or after start, or -1 (an empty sub gives start).
    int Find(const T* sub, int start = 0) const noexcept {
        if (sub == nullptr) return -1;
        const int n = GetLength();
        const int m = static_cast<int>(detail::StrLen(sub));
        if (start < 0) start = 0;
        for (int i = start; i + m <= n; ++i) {
            int k = 0;
            while (k < m && m_pch[i + k] == sub[k]) ++k;
            if (k == m) return i;
        }
        return -1;
    }
    int ReverseFind(T ch) const noexcept {
        for (int i = GetLength() - 1; i >= 0; --i)
            if (m_pch[i] == ch) return i;
        return -1;
    }
    // Index of the first character that is one of set, or -1.
    int FindOneOf(const T* set) const noexcept {
        if (set == nullptr) return -1;
        const int n = GetLength();
        for (int i = 0; i < n; ++i)
            for (const T* p = set; *p != 0; ++p)
                if (m_pch[i] == *p) return i;
        return -1;
    }

    // The first n characters (all of them when n exceeds the length; none when n <= 0).
    CKelStringT Left(int n) const {
        if (n <= 0) return CKelStringT();
        return CKelStringT(GetString(), n < GetLength() ? n : GetLength());
    }
    // The last n characters.
    CKelStringT Right(int n) const {
        const int len = GetLength();
        if (n <= 0) return CKelStringT();
        if (n >= len) return *this;
        return CKelStringT(m_pch + len - n, n);
    }
    // n characters from first (to the end when n < 0).
    CKelStringT Mid(int first, int n = -1) const {
        const int len = GetLength();
        if (first < 0) first = 0;
        if (first >= len) return CKelStringT();
        if (n < 0 || first + n > len) n = len - first;
        return CKelStringT(m_pch + first, n);
    }

    CKelStringT& TrimLeft() {
        int i = 0;
        const int n = GetLength();
        while (i < n && detail::IsSpace(m_pch[i])) ++i;
        return DropFront(i);
    }
    CKelStringT& TrimLeft(T ch) {
        int i = 0;
        const int n = GetLength();
        while (i < n && m_pch[i] == ch) ++i;
        return DropFront(i);
    }
    CKelStringT& TrimRight() {
        int n = GetLength();
        while (n > 0 && detail::IsSpace(m_pch[n - 1])) --n;
        return Truncate(n);
    }
    CKelStringT& TrimRight(T ch) {
        int n = GetLength();
        while (n > 0 && m_pch[n - 1] == ch) --n;
        return Truncate(n);
    }
    CKelStringT& Trim() { return TrimRight().TrimLeft(); }

    CKelStringT& MakeLower() {
        for (int i = 0; i < GetLength(); ++i) m_pch[i] = static_cast<T>(detail::ToLower(m_pch[i]));
        return *this;
    }
    CKelStringT& MakeUpper() {
        for (int i = 0; i < GetLength(); ++i) m_pch[i] = static_cast<T>(detail::ToUpper(m_pch[i]));
        return *this;
    }

    // <0, 0, >0 as the character codes compare (ordinal, case-sensitive).
    int Compare(const T* s) const noexcept {
        const T* a = GetString();
        const T* b = s != nullptr ? s : EmptyChars();
        while (*a != 0 && *a == *b) ++a, ++b;
        return (*a < *b) ? -1 : (*a > *b ? 1 : 0);
    }
    int CompareNoCase(const T* s) const noexcept {
        const T* a = GetString();
        const T* b = s != nullptr ? s : EmptyChars();
        for (;; ++a, ++b) {
            const int ca = detail::ToLower(*a);
            const int cb = detail::ToLower(*b);
            if (ca != cb) return ca < cb ? -1 : 1;
            if (ca == 0) return 0;
        }
    }

    // A writable buffer of at least minLen characters plus the terminator. The contents are
    // kept. Call ReleaseBuffer after writing to set the length (to the terminator when -1).
    T* GetBuffer(int minLen = 0) {
        const int len = GetLength();
        Reserve(minLen > len ? minLen : len);
        if (m_pch == nullptr) Reserve(1);
        return m_pch;
    }
    void ReleaseBuffer(int newLen = -1) {
        if (m_pch == nullptr) return;
        if (newLen < 0) newLen = static_cast<int>(detail::StrLen(m_pch));
        if (newLen > Header()->cap) newLen = Header()->cap;
        SetLen(newLen);
        if (newLen == 0) Release();
    }

    void Replace(T from, T to) noexcept {
        for (int i = 0; i < GetLength(); ++i)
            if (m_pch[i] == from) m_pch[i] = to;
    }

private:
    struct Hdr {
        int len;
        int cap;
    };
    static const T* EmptyChars() noexcept {
        static const T kEmpty[1] = {T(0)};
        return kEmpty;
    }
    Hdr* Header() const noexcept {
        return reinterpret_cast<Hdr*>(reinterpret_cast<char*>(m_pch) - sizeof(Hdr));
    }
    void Release() noexcept {
        if (m_pch != nullptr) {
            std::free(Header());
            m_pch = nullptr;
        }
    }
    // Makes room for cap characters plus the terminator, keeping the contents.
    void Reserve(int cap) {
        if (m_pch != nullptr && Header()->cap >= cap) return;
        int newCap = cap < 15 ? 15 : cap;
        if (m_pch != nullptr && newCap < Header()->cap * 2) newCap = Header()->cap * 2;
        void* block = std::malloc(sizeof(Hdr) + (static_cast<std::size_t>(newCap) + 1) * sizeof(T));
        if (block == nullptr) throw std::bad_alloc();
        Hdr* h = static_cast<Hdr*>(block);
        T* chars = reinterpret_cast<T*>(static_cast<char*>(block) + sizeof(Hdr));
        const int len = GetLength();
        if (len > 0) std::memcpy(chars, m_pch, static_cast<std::size_t>(len) * sizeof(T));
        chars[len] = T(0);
        h->len = len;
        h->cap = newCap;
        Release();
        m_pch = chars;
    }
    void SetLen(int n) noexcept {
        Header()->len = n;
        m_pch[n] = T(0);
    }
    void Assign(const T* s, int n) {
        if (n <= 0) {
            Empty();
            return;
        }
        if (m_pch != nullptr && s >= m_pch && s <= m_pch + GetLength()) {  // aliasing
            CKelStringT tmp(s, n);
            *this = std::move(tmp);
            return;
        }
        if (m_pch == nullptr || Header()->cap < n) {
            Release();
            Reserve(n);
        }
        std::memcpy(m_pch, s, static_cast<std::size_t>(n) * sizeof(T));
        SetLen(n);
    }
    void Append(const T* s, int n) {
        if (n <= 0) return;
        const int len = GetLength();
        if (m_pch != nullptr && s >= m_pch && s <= m_pch + len) {
            CKelStringT tmp(s, n);
            Append(tmp.m_pch, n);
            return;
        }
        Reserve(len + n);
        std::memcpy(m_pch + len, s, static_cast<std::size_t>(n) * sizeof(T));
        SetLen(len + n);
    }
    CKelStringT& DropFront(int k) {
        if (k <= 0) return *this;
        const int n = GetLength() - k;
        if (n <= 0) {
            Empty();
            return *this;
        }
        std::memmove(m_pch, m_pch + k, static_cast<std::size_t>(n) * sizeof(T));
        SetLen(n);
        return *this;
    }
    CKelStringT& Truncate(int n) {
        if (n <= 0) {
            Empty();
        } else if (n < GetLength()) {
            SetLen(n);
        }
        return *this;
    }

    T* m_pch;
};

// The wide string every class of the library uses.
typedef CKelStringT<wchar_t> CKelString;

// Wide text to the single-byte text every file stores: U+0000..U+00FF become the byte of the
// same value, anything else becomes '?'. Stops at the first NUL.
KELSCAN_API std::string WideToSingleByte(const wchar_t* s);
KELSCAN_API std::string WideToSingleByte(const wchar_t* s, std::size_t n);
// Single-byte file text back to wide text: each byte becomes the code point of the same value.
KELSCAN_API CKelString SingleByteToWide(const char* s);
KELSCAN_API CKelString SingleByteToWide(const char* s, std::size_t n);

// Host file names and command-line arguments are UTF-8 on POSIX hosts; these two convert
// between them and the wide strings of the library (invalid UTF-8 bytes become U+FFFD).
KELSCAN_API std::string WideToUtf8(const wchar_t* s);
KELSCAN_API CKelString Utf8ToWide(const char* s);

}  // namespace kel_text
