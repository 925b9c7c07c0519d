#pragma once
// CTin: a triangulated irregular network of measured points, built in the XY plane by
// incremental Delaunay insertion with edge flipping (Lawson's algorithm). Only x and y take part
// in the triangulation; z is the height of a vertex. Units are the caller's (metres in the
// surveying frame). x points right and y up: every triangle is counter-clockwise in XY.
//
// Triangle slots: nb[i] is the triangle across the edge from v[(i+2) mod 3] to v[i], that is
// the edge opposite v[(i+1) mod 3]; -1 marks an edge on the outer boundary.
#include <cstdint>
#include <memory>
#include <vector>

#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"
#include "platform/PageBlock.h"

class CFile;
class CTinRayIndex;

class KELSCAN_API CTin {
public:
    KEL_DECLARE_ALLOCATOR

    // One triangle: vertex indices (counter-clockwise), neighbour triangles, flag word; 28
    // bytes, packed. Some straddle two cache lines, but 32-byte slots measured slower on large
    // surfaces, where the array's size costs more than the split reads (ten million points:
    // 5.39 s against 5.15 s, and 80 MB more). The files write the fields one by one.
    struct CTri {
        std::int32_t v[3];
        std::int32_t nb[3];
        // Bits 0 to 2: the edge of that slot is a break-line edge (see BreakLine); the other
        // bits are free. Not stored in the surface files.
        std::int32_t flag;
    };
    // One registered break-line segment: two vertex indices.
    struct CBreakLine {
        std::int32_t v[2];
    };

    static constexpr int OPTIM_LEVEL = 10000;    // deepest recursion of Optimization
    static constexpr double kDefaultEps = 1e-6;  // coordinate tolerance (m)
    static constexpr int kNameBytes = 256;       // name field of the surface files

    CTin();
    CTin(const CTin& src);
    CTin& operator=(const CTin& src);
    ~CTin() = default;

    // Empties name, vertices, triangles, hull, break lines, texture and depth; range to 0,
    // m_iOptim and the batch counter to 0, m_eps to 1e-6.
    void InitData();
    // Deep copy; when memory runs out, logs its line and leaves this surface empty (InitData).
    void Copy(const CTin& src);
    void SetEPS(double eps);
    double GetEPS() const { return m_eps; }
    void SetName(const wchar_t* name) { m_name = name; }
    const kel_text::CKelString& GetName() const { return m_name; }

    // Index of the first vertex (in index order) whose x and y each lie within m_eps of the
    // new ones (its z is kept), else the index of the appended point; -1 when memory runs out
    // (nothing is appended). A cell index makes the search constant time on average with the
    // same result as the linear search (see m_point for what callers may not do).
    int AddPoint(double x, double y, double z);
    // Batch insertion without duplicate test: BeginAddPoint(n) sizes m_point to n slots,
    // AddPoint2 fills them in order (appending beyond n) and returns the slot or -1 when memory
    // runs out, EndAddPoint trims m_point to the points given. A BeginAddPoint that cannot get
    // n slots logs its line and leaves m_point as it was; the batch then appends.
    void BeginAddPoint(int n);
    int AddPoint2(double x, double y, double z);
    void EndAddPoint();

    // Triangulates all vertices; forces registered break lines in; with angle > 0 (degrees)
    // removes thin boundary triangles (DelTriWithAngle(angle, 1)). Sets the range; leaves depth
    // and texture empty (UpdateDepth, UpdateTextureCoord). 1, or 0 after InitData().
    int CreateTin(double angle);
    // CreateTin in a spatial order, for callers that need no particular triangle numbering:
    // the points are inserted in rounds of doubling size chosen by a fixed pseudo-random draw,
    // each round sorted along a Hilbert curve over the points' range, which is several times
    // faster on large sets. The vertices keep the points' numbers (so do the break lines);
    // the triangles are numbered as they come. For points in general position the triangles
    // are those of CreateTin, as sets of three vertices, and the hull and heights follow
    // them. The order depends on the points alone, so the same input gives the
    // same numbering. When a vertex is left out of the mesh (points within m_eps of each
    // other, which AddPoint never lets in) CreateTin builds the surface again in index order,
    // so that the first of them is kept: slower, but the same surface as CreateTin's. 1, or 0
    // as CreateTin.
    int CreateTinSpatial(double angle);
    // Inserts a new point into a finished mesh (a walk that circles tries again, as below).
    // 1, or 0 (coincident vertex, outside, empty).
    int DivideTri(const double& x, const double& y, const double& z);
    // Inserts existing vertex pt; ntri is the running triangle count, tri the start of the
    // walk and receives the triangle that contained the point. A walk that circles (possible
    // where rounding kept a flip from being made) is tried again crossing pseudo-randomly
    // chosen edges, so that the point is not lost.
    int DivideTri(int pt, int& ntri, int& tri);
    // Walking point location from triangle start. Returns the triangle or -1; status -2 not
    // searched, -1 outside, 0 inside, 1 on vertex, 2 on edge `side` (edge v[side]-v[side+1]).
    // Two readings of the edge-by-edge rule: (1) all three corners are tested for a coincident
    // vertex (x and y each within m_eps) before any edge, because the edge measure grows with
    // the edge's length and a point near a corner of a long triangle could pass every edge
    // test; (2) a point within m_eps of an edge's line (in that measure) but beyond its ends
    // passes the edge on the inner side (cr <= 0) and crosses it on the outer side (cr > 0),
    // where passing would call a point inside a sliver it lies beyond; (3) on the outer side of
    // an edge of the outline (no neighbour) the walk goes on round the edge's end vertex to
    // the next piece of the outline instead of calling the point outside: a run of nearly
    // collinear points on the outline is left out of the start hull, and its points, each
    // within m_eps of the outline, would otherwise be lost when the walk meets them from a
    // neighbouring piece of it. The walk stops with -1
    // when it comes back to a triangle (Brent's cycle test) or takes more steps than there are
    // triangles.
    int FindTri(int start, const double& x, const double& y, int& status, int& side) const;
    // The splits and the edge legalisation after them (Lawson flips, at most OPTIM_LEVEL
    // deep). Optimization keeps its pending calls on a stack sized once for the deepest
    // cascade; when that memory cannot be had it writes "CTin::Optimization CMemoryException"
    // and flips nothing (the mesh stays consistent). The operations above that flip size it
    // first, so for them it is a failure result.
    void DivideTriInside(int pt, int& ntri, int tri);
    void DivideTriOnSide(int pt, int& ntri, int tri, int side);
    void Optimization(int tri, int edge);
    // 1 when d lies strictly outside the circumcircle of (a, p, b) (the edge is kept), else 0.
    int CheckOptim(int a, int p, int b, int d) const;
    int SwapTri(int t1, int e1, int t2, int e2);
    // 1 when the flip of quadrilateral (a, p, b, d) yields two counter-clockwise triangles.
    int CheckSwapTri(int a, int b, int c, int d) const;

    // Appends (v1, v2, v3) unlinked; returns its index, or -1 for a bad index or no memory.
    int AddTri(int v1, int v2, int v3);
    // Deletes a triangle: its neighbours' links to it become -1, and the last triangle moves
    // into its slot (links to the moved triangle are renamed). 1 or 0.
    int DelTri(int triId);
    // Recomputes every neighbour link from the vertex indices (quadratic; for AddTri meshes).
    void UpdateTopology();

    // Start triangulation steps of CreateTin, each 1, or 0 (after "CTin::<step>
    // CMemoryException" when memory runs out). MakeConvexHull removes every corner of the
    // outline that does not turn the convex way (CheckTurn), three-vertex outlines included:
    // three collinear points would otherwise make a degenerate start triangle.
    int MakeBoundaryFromPts();
    // MakeBoundaryFromPts on the points that can be on the convex hull only (CreateTinSpatial):
    // those not deep inside the polygon of the points farthest along eight directions. The
    // start hull is the same where no run of nearly collinear points lies on it.
    // allFinite (if given) receives whether every coordinate of every point is finite.
    int MakeBoundaryFromCandidates(bool* allFinite = nullptr);
    int MakeConvexHull();
    int MakeTinForConvexHull();
    int Triangulation();
    int UpdatePtRange();
    // 1 when b is a strictly convex corner of the counter-clockwise chain a -> b -> c (b lies
    // more than m_eps, in the cross-product measure of FindTri, outside the line a -> c),
    // else -1: a collinear corner counts as not convex, so the start hull has corners only
    // and points on its edges are inserted later as boundary splits.
    int CheckTurn(int a, int b, int c) const;
    // Where Triangulation starts each walk: on (the default) from a coarse grid of recently
    // found triangles over the points' range, which keeps the walk short whatever the order
    // of the points; off next to the previous point only. For points in
    // general position both find the same triangles, so the mesh is the same; off is kept as
    // the reference for tests. (A point within m_eps, in FindTri's measure, of the line of an
    // edge can be placed differently by walks that arrive from different sides: on the edge,
    // it is reported by either of the edge's triangles, and the split makes the same triangles
    // numbered differently.)
    void UseLocateGrid(bool on) { m_locateGrid = on; }

    // Registers a break-line segment between vertices a and b; 1, or 0 for a bad index or no
    // memory.
    int AddBreakLine(int a, int b);
    // Forces every registered segment, in order, into the mesh as a chain of edges, walking
    // from its first vertex to its second: where an edge crosses the segment a vertex is
    // inserted there, on the segment, with the height of the segment (linear in XY between its
    // ends), so heights along a break line are linear between its vertices. Where the segment
    // crosses an earlier break line the vertex takes the earlier line's height instead (the
    // two cannot both hold; the line registered first stays linear). A vertex within m_eps of
    // the segment joins the chain with its own height. The edges of the chains are marked in
    // the triangles' flag words and no later flip (Optimization, SwapTri) removes them, so
    // the mesh is Delaunay except across break lines (a constrained triangulation), and
    // DelTriWithAngle keeps the triangles that hold them on the boundary. 1; 0 with < 3
    // vertices or no triangle, and 0 with "CTin::BreakLine segment s (a - b) not recovered"
    // when a segment could not be forced in (its end outside the mesh, say).
    int BreakLine();
    // Deletes boundary triangles in which an XY angle at an end of a boundary edge is at most
    // angle (degrees); mode 1 only triangles with one boundary edge, mode 0 also two; never a
    // triangle whose boundary edge is a break-line edge. Passes repeat until nothing is
    // deleted. 1, or 0 when memory runs out.
    int DelTriWithAngle(double angle, int mode);
    // XY angle (degrees, 0..180) at vertex b between the rays to a and to c.
    double GetAngleXY(int a, int b, int c) const;

    // m_range from the vertices of the triangles (all vertices when there is no triangle).
    // Each of these three returns 1, or 0 when memory runs out (the values are then left as
    // they were).
    int UpdateTinRange();
    // Depth of every vertex below the highest one: m_range[1].z - z (m). The file readers call
    // it; after CreateTin and CreateTinSpatial depth and texture are empty until asked for.
    int UpdateDepth();
    // u = (x - min x) / (max x - min x), v likewise in y, over m_range; 0 on a zero extent.
    int UpdateTextureCoord();

    // Queries. The triangle containing (x, y) or -1.
    int FindTriXY(double x, double y) const;
    // Height at (x, y) on the plane of its triangle; 1, or 0 outside the mesh.
    int GetHeight(double x, double y, double& z) const;
    // Unit normal of a triangle, pointing up (z >= 0 for counter-clockwise triangles); 1 or 0.
    int GetNormal(int tri, CXYZ& normal) const;
    // Plan (XY) and slope (3-D) area of all triangles (m²), compensated sums.
    double GetPlanArea() const;
    double GetSlopeArea() const;
    // First intersection with the surface of the ray origin + t dir, t > 0; 1 with the point
    // and its triangle, 0 when the ray misses. The smallest t wins, the lowest triangle index
    // among equal t. The first call builds a bounding-volume hierarchy (surface/TinRay.h)
    // that later calls reuse; the answer is the same as testing every triangle.
    int IntersectRay(const CXYZ& origin, const CXYZ& dir, CXYZ& hit, int& tri) const;
    // Drops the ray query's hierarchy. The mesh operations call it; call it after editing
    // coordinates of m_point or m_tri in place (a change of their counts is noticed).
    void DropRayIndex() { m_rayIndex.reset(); }

    int GetPointSize() const { return m_point.GetSize(); }
    int GetTriSize() const { return m_tri.GetSize(); }
    const CTri& GetTri(int i) const { return m_tri[i]; }
    const kel_templ::CKelArray<int, int>& GetHull() const { return m_hull; }
    const kel_templ::CKelArray<double, double>& GetDepth() const { return m_depth; }
    const kel_templ::CKelArray<double, double>& GetTexU() const { return m_texU; }
    const kel_templ::CKelArray<double, double>& GetTexV() const { return m_texV; }
    int GetBreakLineSize() const { return m_breakLine.GetSize(); }
    const CBreakLine& GetBreakLine(int i) const { return m_breakLine[i]; }

    // Surface files (little-endian; version 0: one surface, versions 1 and 2: arrays behind
    // the magics "TIN_1.00" / "TIN_2.00"). The 256-byte name field holds the UTF-16LE bytes
    // of the name up to the first zero byte, then zeros (so "Surf" leaves "S"). Readers set the
    // name from those bytes.
    int WriteBIN_VER0(const wchar_t* fname);
    static int WriteBIN_VER1(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins);
    static int WriteBIN_VER2(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins);
    int WriteBIN_VER1_SUB(CFile& file);
    int WriteBIN_VER2_SUB(CFile& file);
    int ReadBIN_VER0(const wchar_t* fname);
    static int ReadBIN_VER1(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins);
    static int ReadBIN_VER2(const wchar_t* fname, kel_templ::CKelArray<CTin, CTin&>& tins);
    int ReadBIN_VER1_SUB(CFile& file);
    int ReadBIN_VER2_SUB(CFile& file);

    // Vertices, in insertion order. Callers may read them, change z, and append points; they
    // must not change x or y of a point in place nor remove points other than through this
    // class: AddPoint's cell index would no longer describe them, and AddPoint could miss an
    // existing point or return a wrong one. (Every operation of this class that rewrites or
    // removes points, InitData, Copy, SetEPS and the batch calls included, keeps the index
    // exact.)
    kel_templ::CKelArray<CXYZ, CXYZ&> m_point;
    kel_templ::CKelArray<CTri, CTri&> m_tri;  // triangles
    CXYZ m_range[2];                          // min and max corner
    double m_eps;                             // coordinate tolerance (m)
    double m_eps2;                            // m_eps squared (m²)
    int m_iOptim;                             // current Optimization depth
    CPolyline m_boundary;                     // outer boundary drawn by the host

private:
    // Blocks shared by the file layouts.
    int WriteMesh(CFile& file) const;
    int ReadMesh(CFile& file);
    void WriteName(CFile& file) const;
    int ReadName(CFile& file);
    void ClearTexture();
    // The range spans more than m_eps (else its line, as MakeBoundaryFromPts writes it).
    int RangeIsWide() const;
    // The outline of the points listed in order (their indices in ascending order; rearranged
    // here): m_hull. 1 when it has three vertices or more. May throw std::bad_alloc.
    int OutlineOf(kel_templ::CKelArray<int, int>& order);
    // The hull-vertex list from angles sorted with their point indices: the farthest point
    // of each angle. 0 when two points at one angle tie for the farthest.
    int KeepFarthest(const kel_templ::CKelArray<double, double>& angles,
                     const kel_templ::CKelArray<int, int>& order, double cx, double cy);
    void ResetCellIndex();
    // Sizes Optimization's stack for the deepest cascade, so that no flip allocates; throws
    // std::bad_alloc. Every operation that flips calls it before its first change.
    void ReserveOptimStack();
    // DivideTriOnSide's split of t alone into two (an edge without a neighbour).
    void SplitOnBoundary(int pt, int& ntri, int tri, int side);
    void CopyData(const CTin& src);
    int FindOrAppend(double x, double y, double z);
    std::size_t CellSlot(std::int64_t cx, std::int64_t cy) const;
    void IndexPoint(int i);
    double Cross(int a, int b, double px, double py) const;
    // Break lines: the corner of t at vertex v (3 for none); the triangulated vertex at v's
    // place (v, or the vertex within m_eps that kept v out) and a triangle round it, or -1;
    // the triangles round u, from t0 which has it as a corner; marks the edge u - v of the
    // triangles round u (0 when it is no edge); forces segment s in, tri a walk start.
    int CornerOf(int t, int v) const;
    int MeshVertex(int v, int& tri) const;
    void StarOf(int u, int t0, std::vector<int>& star) const;
    int FixEdge(int u, int v, int tri);
    int ForceSegment(int s, int& tri);
    // CreateTinSpatial's insertion order: from[k] is the point inserted k-th; the returned
    // array (in block) holds x, y of point from[k] at 2k, 2k + 1, and m_hull is renumbered
    // to insertion order. The curve spans m_range (brought up to date by the caller). Throws
    // std::bad_alloc.
    double* SpatialOrder(std::vector<int>& from, kel_pages::CBlock& block);
    // Triangulation, each walk starting from the locate grid or (grid false) next to the
    // previous point; left receives the count of vertices left out (one DivideTri line each).
    int InsertVertices(bool grid, int& left);
    // CreateTinSpatial's points left out. One within m_eps of a vertex (counted in
    // coincident) stays out, but where the vertex is a later point than it, the vertex takes
    // its number and position (from, packed), as index order would have kept it; one that a
    // walk missed is inserted now. False when a point cannot be settled so, when there are
    // many, or when a triangle round the vertex would turn over.
    bool SettleLeftOut(std::vector<int>& from, double* packed, int& coincident);
    // FindTri's step along the outline: round the end vertex `corner` of t's boundary edge to
    // the triangle of the next (after) or previous boundary edge.
    int BoundaryStep(int t, int corner, bool after) const;
    // FindTri and Optimization on the plan coordinates of xy (the points, or m_packedXY).
    template <class XY>
    int FindTriIn(const XY& xy, int start, double x, double y, int& status, int& side,
                  bool wander) const;
    // FindTri; with wander, the walk crosses a pseudo-randomly chosen edge of those the point
    // lies beyond, which ends in any triangulation (DivideTri's second try).
    int FindTriOrWander(int start, double x, double y, int& status, int& side, bool wander) const;
    template <class XY>
    void OptimizationIn(const XY& xy, const int* tris, const int* edges, int count);
    // Optimization(tris[0], edges[0]), then the next, up to count (at most kMaxEach), in one
    // pass over the stack.
    void OptimizeEach(const int* tris, const int* edges, int count);
    static constexpr std::size_t kMaxEach = 4;
    // CreateTin after the triangulation: break lines, the angle filter and the range; depth and
    // texture emptied. 1, or 0 after InitData(). rangeKept: m_range already is the range of the
    // triangulated vertices, as UpdateTinRange would fold it (the caller made sure).
    int FinishTin(double angle, bool rangeKept = false);
    // A boundary triangle that DelTriWithAngle removes.
    bool IsThinOnBoundary(const CTri& t, double angle, int mode) const;

    kel_text::CKelString m_name;
    kel_templ::CKelArray<int, int> m_hull;  // start-triangulation vertices
    kel_templ::CKelArray<CBreakLine, CBreakLine&> m_breakLine;
    kel_templ::CKelArray<double, double> m_depth;         // per vertex (m)
    kel_templ::CKelArray<double, double> m_texU, m_texV;  // per vertex, 0..1
    int m_nAdd;                                           // batch counter
    bool m_locateGrid = true;                             // see UseLocateGrid
    std::vector<int> m_optimStack;  // pending Optimization calls: triangle, edge, depth
    // x, y of every vertex, packed, while the triangulation inserts (no vertex is added
    // meanwhile); null otherwise. Never copied. CPackedScope sets it for a scope, or keeps
    // one set by an outer scope.
    const double* m_packedXY = nullptr;
    // DivideTri leaves its line about a point it cannot insert to the caller (CreateTinSpatial).
    bool m_quietLeftOut = false;
    class CPackedScope {
    public:
        explicit CPackedScope(const double*& packed) : m_packed(packed), m_outer(packed) {}
        ~CPackedScope() { m_packed = m_outer; }
        CPackedScope(const CPackedScope&) = delete;
        CPackedScope& operator=(const CPackedScope&) = delete;
        void Use(const double* xy) { m_packed = xy; }

    private:
        const double*& m_packed;
        const double* m_outer;
    };

    // Cell index of AddPoint: cells kCellEps tolerances wide in an open-addressing table
    // (m_cellSlot, a power of two in size, at most half full), each chaining its points from
    // the newest through m_cellNext. Brought up to date on each call, rebuilt when points
    // were removed or m_eps changed; dropped by CreateTin, which does not need it.
    std::vector<std::uint64_t> m_cellSlot;
    std::vector<int> m_cellNext;
    int m_nIndexed;
    int m_nCells;
    double m_indexEps;

    // The ray query's hierarchy, built by the first IntersectRay, null until then.
    mutable std::shared_ptr<CTinRayIndex> m_rayIndex;
};
