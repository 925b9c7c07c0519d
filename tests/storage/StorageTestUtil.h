#pragma once
// Shared pieces of the storage tests: a fixed clock, sample points, byte helpers, refused
// file operations.
#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "platform/File.h"
#include "platform/Time.h"
#include "storage/SPoint.h"

namespace storage_test {

// A clock fixed at 2024-03-05 06:07:08.009 UTC: date code (3 + 2024 * 12) * 31 + 5 = 753026,
// time code ((6 * 60 + 7) * 60 + 8) * 1000 + 9 = 22028009.
constexpr long kDateCode = 753026;
constexpr long kTimeCode = 22028009;

inline std::uint64_t FixedClock(void*) {
    SYSTEMTIME st{2024, 3, 2, 5, 6, 7, 8, 9};
    FILETIME ft;
    SystemTimeToFileTime(&st, &ft);
    return kel_time::ToTicks(ft);
}

// Point number i of a synthetic scan: every field derived from i, so a record read back can be
// checked against its number.
inline CSPoint ScanPoint(int i) {
    CSPoint p;
    p.m_name.Format(L"P%d", i);
    p.m_X = 1000.0 + i * 0.5;
    p.m_Y = -2000.0 - i * 0.25;
    p.m_Z = i * 0.125;
    p.m_text1.Format(L"first %d", i);
    p.m_text2.Format(L"second %d", i);
    p.m_code = L"WALL";
    p.m_value = i * 7;
    return p;
}

inline bool SamePoint(const CSPoint& a, const CSPoint& b) {
    return a.m_name == b.m_name && a.m_X == b.m_X && a.m_Y == b.m_Y && a.m_Z == b.m_Z &&
           a.m_text1 == b.m_text1 && a.m_text2 == b.m_text2 && a.m_status == b.m_status &&
           a.m_code == b.m_code && a.m_value == b.m_value;
}

inline std::vector<std::uint8_t> Bytes(const std::string& s) {
    return std::vector<std::uint8_t>(s.begin(), s.end());
}

// Writes text at off of b.
inline void Put(std::vector<std::uint8_t>& b, std::size_t off, const char* text) {
    for (std::size_t i = 0; text[i] != '\0'; ++i) b[off + i] = static_cast<std::uint8_t>(text[i]);
}

// Writes bytes at off of b.
inline void PutBytes(std::vector<std::uint8_t>& b, std::size_t off,
                     std::initializer_list<std::uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), b.begin() + static_cast<std::ptrdiff_t>(off));
}

// The record of P1 (1.5, -2, 0.25), texts "ab" / "cd", deleted, code WALL, integer 0x01020304.
inline std::vector<std::uint8_t> GoldenRecord() {
    std::vector<std::uint8_t> b(256, 0);
    Put(b, 0, "P1");                                  // 0: name
    PutBytes(b, 32, {0, 0, 0, 0, 0, 0, 0xF8, 0x3F});  // 32: 1.5
    PutBytes(b, 40, {0, 0, 0, 0, 0, 0, 0x00, 0xC0});  // 40: -2.0
    PutBytes(b, 48, {0, 0, 0, 0, 0, 0, 0xD0, 0x3F});  // 48: 0.25
    Put(b, 56, "ab");                                 // 56: first text
    Put(b, 120, "cd");                                // 120: second text
    b[184] = 'D';                                     // 184: status
    Put(b, 185, "WALL");                              // 185: code
    PutBytes(b, 217, {0x04, 0x03, 0x02, 0x01});       // 217: integer, unaligned, low byte first
    return b;                                         // 221..255: zero
}

inline CSPoint GoldenPoint() {
    CSPoint p;
    p.m_name = L"P1";
    p.m_X = 1.5;
    p.m_Y = -2.0;
    p.m_Z = 0.25;
    p.m_text1 = L"ab";
    p.m_text2 = L"cd";
    p.m_status = 'D';
    p.m_code = L"WALL";
    p.m_value = 0x01020304;
    return p;
}

// The record bytes of ScanPoint(i).
inline std::string ScanPointBytes(int i) {
    SPOINTREC rec;
    ConvSPoint2Rec(ScanPoint(i), rec);
    return std::string(reinterpret_cast<const char*>(rec.b), SPOINTREC::kSize);
}

// Adds a copy of p (the arrays take their elements by non-const reference).
template <class Array, class T>
void AddCopy(Array& a, T p) {
    a.Add(p);
}

// While one lives, the file layer refuses file operations of kind op (of every kind without
// one): all of them for nth 0, else only the nth (1-based) and none for a negative nth.
class FileFault {
public:
    explicit FileFault(kel_platform::FileOp op, int nth = 0)
        : m_anyKind(false), m_op(op), m_nth(nth) {
        kel_platform::SetFileFaultHook(&Hook, this);
    }
    explicit FileFault(int nth) : m_nth(nth) { kel_platform::SetFileFaultHook(&Hook, this); }
    ~FileFault() { kel_platform::SetFileFaultHook(nullptr, nullptr); }
    FileFault(const FileFault&) = delete;
    FileFault& operator=(const FileFault&) = delete;
    // How many operations of the kind were asked for so far.
    int Count() const { return m_count; }

private:
    static int Hook(void* self, kel_platform::FileOp op, const char*) {
        FileFault& f = *static_cast<FileFault*>(self);
        if (!f.m_anyKind && op != f.m_op) return 0;
        ++f.m_count;
        return f.m_nth == 0 || f.m_count == f.m_nth ? 1 : 0;
    }
    bool m_anyKind = true;
    kel_platform::FileOp m_op = kel_platform::FileOp::Open;
    int m_nth = 0, m_count = 0;
};

}  // namespace storage_test
