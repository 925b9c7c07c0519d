#pragma once
// Text fields of the storage records: single-byte text in a fixed, NUL-padded field.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "platform/KelString.h"

namespace kel_storage_detail {

// Writes s as single-byte text into field [off, off + len) of b: at most maxChars characters,
// the rest zero.
inline void PutText(std::uint8_t* b, std::size_t off, std::size_t len, const wchar_t* s,
                    std::size_t maxChars) {
    const std::string t = kel_text::WideToSingleByte(s);
    const std::size_t n = t.size() < maxChars ? t.size() : maxChars;
    std::memset(b + off, 0, len);
    std::memcpy(b + off, t.data(), n);
}

// The text of field [off, off + len): up to the first NUL or the end of the field.
inline kel_text::CKelString GetText(const std::uint8_t* b, std::size_t off, std::size_t len) {
    std::size_t n = 0;
    while (n < len && b[off + n] != 0) ++n;
    return kel_text::SingleByteToWide(reinterpret_cast<const char*>(b + off), n);
}

}  // namespace kel_storage_detail
