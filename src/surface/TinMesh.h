#pragma once
// Small pieces of mesh arithmetic shared by the files of CTin (internal to the surface folder).
#include <cstdint>

#include "geometry/XYZ.h"

namespace kel_tin {

// The corner or slot after / before i in a triangle's cyclic order.
inline int Next(int i) { return i == 2 ? 0 : i + 1; }
inline int Prev(int i) { return i == 0 ? 2 : i - 1; }

// Cross measure of point (px, py) against the directed line A -> B: negative on the left,
// positive on the right.
inline double CrossOf(const CXYZ& A, const CXYZ& B, double px, double py) {
    return (B.y - A.y) * (px - A.x) - (B.x - A.x) * (py - A.y);
}

// The slot of links that names `to`, the first of equals; 3 when none does. Written so that the
// compiler selects instead of branching: which slot matches is a coin toss for the predictor.
inline int SlotOf(const std::int32_t* links, int to) {
    int k = 3;
    k = links[2] == to ? 2 : k;
    k = links[1] == to ? 1 : k;
    k = links[0] == to ? 0 : k;
    return k;
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
