#pragma once
// Small pieces of mesh arithmetic shared by the files of CTin (internal to the surface folder).
#include <cstdint>

#include "geometry/XYZ.h"

namespace kel_tin {

// The corner or slot after / before i in a triangle's cyclic order, read from a table rather
// than by a comparison, which the compiler may make a branch that the flips, turning every
// way, would mispredict.
inline int Next(int i) {
    static constexpr int kNext[3] = {1, 2, 0};
    return kNext[i];
}
inline int Prev(int i) {
    static constexpr int kPrev[3] = {2, 0, 1};
    return kPrev[i];
}

// Cross measure of point (px, py) against the directed line A -> B: negative on the left,
// positive on the right.
inline double CrossOf(const CXYZ& A, const CXYZ& B, double px, double py) {
    return (B.y - A.y) * (px - A.x) - (B.x - A.x) * (py - A.y);
}

// The slot of links that names `to`, the first of equals; 3 when none does. Computed without a
// branch: which slot matches is a coin toss for the predictor.
inline int SlotOf(const std::int32_t* links, int to) {
    const unsigned match = static_cast<unsigned>(links[0] == to) |
                           static_cast<unsigned>(links[1] == to) << 1 |
                           static_cast<unsigned>(links[2] == to) << 2 | 8u;
#if defined(__GNUC__) || defined(__clang__)
    return __builtin_ctz(match);
#else
    return (match & 1u) ? 0 : (match & 2u) ? 1 : (match & 4u) ? 2 : 3;
#endif
}

// Bit `slot` of a triangle's flag word: the edge of that slot is a break-line edge, which no
// flip may remove (both triangles of the edge carry the bit).
inline std::int32_t FixedBit(int slot) { return std::int32_t(1) << slot; }
constexpr std::int32_t kFixedBits = 7;

// Asks the processor to fetch memory that is about to be read (a hint only).
inline void Prefetch(const void* p) {
#if defined(__GNUC__) || defined(__clang__)
    __builtin_prefetch(p);
#else
    (void)p;
#endif
}

}  // namespace kel_tin
