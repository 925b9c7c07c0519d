#pragma once
// CSPoint: one measured scan point in memory, and SPOINTREC, its 256-byte on-disk record shared
// by the scan point database (CSFile) and the scan log's point slot (CSDBLog).
//
// SPOINTREC layout (little-endian, texts single-byte and NUL-padded, spare bytes zero):
//   0   32  name              120  64  second text        217  4  integer, signed 32-bit,
//   32   8  X (double)        184   1  status ('D' =          unaligned, low byte first
//   40   8  Y (double)                 deleted)            221 35  zero
//   48   8  Z (double)        185  32  32-byte text
//   56  64  first text
#include <cstddef>
#include <cstdint>

#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"
#include "platform/Types.h"

// The record as bytes. Built and parsed only field by field (ConvSPoint2Rec, ConvRec2SPoint).
struct SPOINTREC {
    static constexpr std::size_t kSize = 256;
    static constexpr std::size_t kOffName = 0, kLenName = 32;
    static constexpr std::size_t kOffX = 32, kOffY = 40, kOffZ = 48;
    static constexpr std::size_t kOffText1 = 56, kLenText1 = 64;
    static constexpr std::size_t kOffText2 = 120, kLenText2 = 64;
    static constexpr std::size_t kOffStatus = 184;
    static constexpr std::size_t kOffCode = 185, kLenCode = 32;
    static constexpr std::size_t kOffValue = 217;
    std::uint8_t b[kSize];
};

// Status byte of a deleted record; every other value marks a live one.
constexpr BYTE kSPointDeleted = 'D';

class KELSCAN_API CSPoint {
public:
    KEL_DECLARE_ALLOCATOR

    CSPoint();
    CSPoint(const CSPoint& p);
    CSPoint& operator=(const CSPoint& p);
    ~CSPoint() = default;

    // Texts emptied, numbers, status and record number zeroed.
    void Init();
    // Copies every member, the record number included.
    void Set(const CSPoint& p);
    // Takes the name and the coordinates of p; the other members are kept.
    void Set(const CXYZ& p);
    // Gives p this point's name and coordinates; p's other members are kept.
    void Get(CXYZ& p) const;

    kel_text::CKelString m_name;  // point name; 31 single-byte characters are stored
    double m_X;                   // coordinates, metres in the surveying frame
    double m_Y;                   //   (north, east, height)
    double m_Z;
    kel_text::CKelString m_text1;  // first 64-byte text (63 characters stored)
    kel_text::CKelString m_text2;  // second 64-byte text (63 characters stored)
    BYTE m_status;                 // kSPointDeleted marks a deleted point; 0 after Init
    kel_text::CKelString m_code;   // 32-byte text, the point's code (31 characters stored)
    std::int32_t m_value;          // the point's integer
    int m_recNo;                   // record number it was read from or written to; 0 = none
};

// CSPoint -> record. Texts become single-byte text cut to their field less one byte, so that
// every stored text ends in a NUL; the rest of the field and the spare bytes are zero.
KELSCAN_API void ConvSPoint2Rec(const CSPoint& pt, SPOINTREC& rec);
// Record -> CSPoint (the record number is left as it is). A text field without a NUL is read
// to the end of its field.
KELSCAN_API void ConvRec2SPoint(const SPOINTREC& rec, CSPoint& pt);
