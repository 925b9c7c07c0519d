#pragma once
// The ray query of CTin::IntersectRay: the one ray-triangle test, and CTinRayIndex, a
// bounding-volume hierarchy over the triangles that CTin builds on the first query and drops
// when its mesh changes.
//
// The index answers exactly as the test of every triangle in index order would: the smallest
// ray parameter t > 0, and among equal t (a ray through a shared edge or vertex) the lowest
// triangle index. Its leaves run the very operations of RayTriangle, in the same order (two
// triangles a time in SSE2 lanes, whose arithmetic is the scalar IEEE arithmetic), so t and
// the point are bit for bit the brute force's. Its boxes are padded by kPadRel of the mesh's
// coordinate scale, far more than the rounding by which RayTriangle can accept a triangle the
// ray only grazes, and the box tests never cull a box the ray meets: in floats (four boxes a
// register) with margins that cover their rounding, or in doubles when a direction component
// is zero or values leave the float range (see Intersect). tests/surface/TinRayTest.cpp holds
// the index to the brute force on rays down to 1e-9 of a triangle's plane, through vertices
// and edges, from a thousand kilometres and of any length.
#include <cmath>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "geometry/XYZ.h"
#include "platform/Export.h"

class CTin;

namespace kel_tinray {

// |det| below this: the ray is taken as parallel to the triangle (no hit), as ever.
constexpr double kParallel = 1e-15;

// Moller-Trumbore: the ray o + t d against triangle (a, b, c), each a point of three doubles.
// true with t when the ray meets the closed triangle (barycentric u, v >= 0, u + v <= 1,
// tested as U = u det and V = v det against det, so that only t is divided) and |det| is not
// below kParallel; t may be any sign (callers keep t > 0). CTinRayIndex repeats these
// operations lane by lane: change both together.
inline bool RayTriangle(const double o[3], const double d[3], const double a[3], const double b[3],
                        const double c[3], double& t) {
    const double e1x = b[0] - a[0], e1y = b[1] - a[1], e1z = b[2] - a[2];
    const double e2x = c[0] - a[0], e2y = c[1] - a[1], e2z = c[2] - a[2];
    const double px = d[1] * e2z - d[2] * e2y, py = d[2] * e2x - d[0] * e2z,
                 pz = d[0] * e2y - d[1] * e2x;
    const double det = e1x * px + e1y * py + e1z * pz;
    if (std::fabs(det) < kParallel) return false;
    const double sx = o[0] - a[0], sy = o[1] - a[1], sz = o[2] - a[2];
    const double qx = sy * e1z - sz * e1y, qy = sz * e1x - sx * e1z, qz = sx * e1y - sy * e1x;
    // With det < 0 every comparison turns round: work with |det| and the signs flipped.
    const double sign = det < 0.0 ? -1.0 : 1.0, adet = det * sign;
    const double u = (sx * px + sy * py + sz * pz) * sign;
    if (u < 0.0 || u > adet) return false;
    const double v = (d[0] * qx + d[1] * qy + d[2] * qz) * sign;
    if (v < 0.0 || u + v > adet) return false;
    t = (e2x * qx + e2y * qy + e2z * qz) / det;
    return true;
}

// The brute force: every triangle in index order; the smallest t > 0 wins, the first of equal
// t stays. 1 with t and the triangle, else 0.
KELSCAN_API int IntersectAll(const CTin& tin, const CXYZ& origin, const CXYZ& dir, double& t,
                             int& tri);

}  // namespace kel_tinray

// Built from the mesh's triangles sorted along a Morton curve of their centroids (cells of one
// size on every axis, so that a flat site is split across its plan before its few centimetres
// of height), four children a node. It holds about 38 bytes a triangle on a scan surface (16
// for the triangle, 12 for its share of the vertices, 10 for the nodes), against the mesh's
// own 64 (its triangle and its share of the vertices).
class CTinRayIndex {
public:
    static constexpr int kLeafSize = 8;      // most triangles in a leaf
    static constexpr double kPadRel = 1e-9;  // box padding relative to the coordinate scale

    // Builds over the mesh as it is now. Throws std::bad_alloc when memory is short.
    explicit CTinRayIndex(const CTin& tin);
    // False when a triangle names a vertex that does not exist (the index is then empty).
    bool Valid() const { return m_nTri >= 0; }
    // True while the mesh still has the counts and storage it was built on (a cheap guard
    // against edits through the public arrays; CTin drops the index on its own changes).
    bool Matches(const CTin& tin) const;
    // As kel_tinray::IntersectAll on the mesh the index was built on (tin is not read).
    int Intersect(const CTin& tin, const CXYZ& origin, const CXYZ& dir, double& t, int& tri) const;

private:
    // The arrays' allocator: the heap's, where a new element is left uninitialised (every one
    // is written before it is read, so sizing an array writes nothing). Not the huge-page
    // blocks of the surface's own arrays: right after a triangulation the system had to
    // compact memory for each fresh huge page (milliseconds each, which doubled the build on a
    // busy machine), while the heap's small pages cost microseconds and are reused from one
    // build to the next. The queries lose about a tenth to the smaller pages.
    template <class T>
    struct Allocator : std::allocator<T> {
        template <class U>
        struct rebind {
            using other = Allocator<U>;
        };
        Allocator() noexcept = default;
        template <class U>
        Allocator(const Allocator<U>&) noexcept {}
        template <class U, class... A>
        void construct(U* p, A&&... a) {
            if constexpr (sizeof...(A) == 0)
                ::new (static_cast<void*>(p)) U;
            else
                ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
        }
    };
    template <class T>
    using Array = std::vector<T, Allocator<T>>;

    // A node of up to four children, the parts of its triangles (see Build). Each child's box
    // (floats relative to m_centre, rounded outwards, padded) is stored axis by axis, so that
    // one cache line holds all four of an axis pair; the child is another node, m_node[first]
    // (count 0), or the sorted triangles first .. first + count - 1 (count > 0). Bit c of used:
    // slot c holds a child. order[s]: the four slots in the order they are pushed (two bits
    // each from the lowest; unused slots first, then the children far to near) for a ray whose
    // direction has sign bits s (bit a set: negative along axis a).
    struct alignas(64) Node {
        float lo[3][4], hi[3][4];
        std::int32_t first[4];
        std::int8_t count[4];
        std::uint8_t order[8];
        std::uint8_t used;
    };
    // The node over the sorted triangles [begin, end), more than kLeafSize of them: returns
    // its index, and its box unpadded in lo, hi. Its range is split in two, then the part
    // with the most triangles again while there are fewer than four parts and one holds more
    // than a leaf; each part becomes a leaf or a node.
    int Build(int begin, int end, const Array<std::uint64_t>& code, double lo[3], double hi[3]);
    // Where [begin, end) splits and along which axis: where the highest differing bit of the
    // codes (the upper halves of the sorted items) turns on (the two halves of a Morton
    // cell), or the middle when all codes are equal.
    static int Split(int begin, int end, const Array<std::uint64_t>& code, int& axis);
    void LeafBox(int begin, int end, double lo[3], double hi[3]) const;
    // Sets slot c of nd to the triangles [begin, end), a leaf or a new node.
    void SetChild(Node& nd, int c, int begin, int end, const Array<std::uint64_t>& code,
                  double lo[3], double hi[3]);

    Array<double> m_xyz;        // the mesh's vertices, x y z each
    Array<std::int32_t> m_tri;  // per sorted triangle: its 3 vertices (of m_xyz), its mesh index
    Array<Node> m_node;         // m_node[0] is the root
    double m_pad = 0.0;
    double m_centre[3] = {0.0, 0.0, 0.0};  // the boxes are stored relative to this point
    double m_reach = 0.0;                  // above every |box coordinate| (relative to m_centre)
    std::int32_t m_nTri = 0, m_nPt = 0;
    const void* m_triData = nullptr;
    const void* m_ptData = nullptr;
};
