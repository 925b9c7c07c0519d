#pragma once
// Little-endian byte helpers: put and get integers and IEEE-754 doubles at an offset of a byte
// buffer. Every binary record of the library is built and parsed field by field through these,
// so files are identical on every compiler and processor. Callers check offsets against the
// buffer size; these helpers do not.
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kel_bytes {

inline void PutU8(std::uint8_t* b, std::size_t off, std::uint8_t v) { b[off] = v; }
inline void PutU16(std::uint8_t* b, std::size_t off, std::uint16_t v) {
    b[off] = static_cast<std::uint8_t>(v);
    b[off + 1] = static_cast<std::uint8_t>(v >> 8);
}
inline void PutU32(std::uint8_t* b, std::size_t off, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) b[off + i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void PutU64(std::uint8_t* b, std::size_t off, std::uint64_t v) {
    for (int i = 0; i < 8; ++i) b[off + i] = static_cast<std::uint8_t>(v >> (8 * i));
}
inline void PutI16(std::uint8_t* b, std::size_t off, std::int16_t v) {
    PutU16(b, off, static_cast<std::uint16_t>(v));
}
inline void PutI32(std::uint8_t* b, std::size_t off, std::int32_t v) {
    PutU32(b, off, static_cast<std::uint32_t>(v));
}
inline void PutI64(std::uint8_t* b, std::size_t off, std::int64_t v) {
    PutU64(b, off, static_cast<std::uint64_t>(v));
}
inline void PutF32(std::uint8_t* b, std::size_t off, float v) {
    std::uint32_t u;
    std::memcpy(&u, &v, sizeof u);
    PutU32(b, off, u);
}
inline void PutF64(std::uint8_t* b, std::size_t off, double v) {
    std::uint64_t u;
    std::memcpy(&u, &v, sizeof u);
    PutU64(b, off, u);
}

inline std::uint8_t GetU8(const std::uint8_t* b, std::size_t off) { return b[off]; }
inline std::uint16_t GetU16(const std::uint8_t* b, std::size_t off) {
    return static_cast<std::uint16_t>(b[off] | (b[off + 1] << 8));
}
inline std::uint32_t GetU32(const std::uint8_t* b, std::size_t off) {
    std::uint32_t v = 0;
    for (int i = 3; i >= 0; --i) v = (v << 8) | b[off + i];
    return v;
}
inline std::uint64_t GetU64(const std::uint8_t* b, std::size_t off) {
    std::uint64_t v = 0;
    for (int i = 7; i >= 0; --i) v = (v << 8) | b[off + i];
    return v;
}
inline std::int16_t GetI16(const std::uint8_t* b, std::size_t off) {
    return static_cast<std::int16_t>(GetU16(b, off));
}
inline std::int32_t GetI32(const std::uint8_t* b, std::size_t off) {
    return static_cast<std::int32_t>(GetU32(b, off));
}
inline std::int64_t GetI64(const std::uint8_t* b, std::size_t off) {
    return static_cast<std::int64_t>(GetU64(b, off));
}
inline float GetF32(const std::uint8_t* b, std::size_t off) {
    const std::uint32_t u = GetU32(b, off);
    float v;
    std::memcpy(&v, &u, sizeof v);
    return v;
}
inline double GetF64(const std::uint8_t* b, std::size_t off) {
    const std::uint64_t u = GetU64(b, off);
    double v;
    std::memcpy(&v, &u, sizeof v);
    return v;
}

}  // namespace kel_bytes
