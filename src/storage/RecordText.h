#pragma once
// Text fields of the storage records: single-byte text in a fixed, NUL-padded field.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>

#include "platform/KelString.h"
#include "platform/NumText.h"

namespace kel_storage_detail {

// Appends ",value" for each value with six decimals and '.' whatever the locale: the number
// fields of the storage text files.
inline void AppendFixed6(std::string& out, std::initializer_list<double> values) {
    for (double v : values) {
        out += ',';
        out += kel_num::Fixed(v, 6);
    }
}

// Writes s as single-byte text into field [off, off + len) of b: at most maxChars characters,
// the rest zero.
// Allocates nothing, so that the record writers have no failure of memory.
inline void PutText(std::uint8_t* b, std::size_t off, std::size_t len, const wchar_t* s,
                    std::size_t maxChars) {
    std::memset(b + off, 0, len);
    for (std::size_t i = 0; s != nullptr && i < maxChars && i < len && s[i] != 0; ++i) {
        const unsigned long c = static_cast<unsigned long>(s[i]);
        b[off + i] = c <= 0xFF ? static_cast<std::uint8_t>(c) : static_cast<std::uint8_t>('?');
    }
}

// The text of field [off, off + len): up to the first NUL or the end of the field.
inline kel_text::CKelString GetText(const std::uint8_t* b, std::size_t off, std::size_t len) {
    std::size_t n = 0;
    while (n < len && b[off + n] != 0) ++n;
    return kel_text::SingleByteToWide(reinterpret_cast<const char*>(b + off), n);
}

}  // namespace kel_storage_detail
