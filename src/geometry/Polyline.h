#pragma once
// CPolyline: an open or closed chain of CVertex, used for scan regions drawn on the image, for
// break lines and boundaries of the surface, and for drawn polylines. Plan questions (inside,
// orientation, extent) use x and y; lengths come in 3-D and in plan.
//
// QuickSortKey, the index sort every caller of the geometry core shares, is declared here too.
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/Vertex.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class KELSCAN_API CPolyline {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kClosed = 1;           // polyline flag bit
    static constexpr int kSplineBSpline = 6;     // uniform cubic B-spline
    static constexpr int kSplineCatmullRom = 1000;
    // Heights of four control points that differ by less than this in sum are one height.
    static constexpr double kFlatHeightTol = 1e-12;
    // A last vertex within this of the first (in x, y and z) repeats it.
    static constexpr double kRepeatTol = 1e-12;

    // Name "0", no vertices; both values are stored unchanged.
    explicit CPolyline(int flags = 0, int splineFlag = 0);
    CPolyline(const CPolyline& src);
    CPolyline& operator=(const CPolyline& src);
    ~CPolyline() = default;

    int CheckPolylineFlag(int mask) const;
    void Close();
    void Open();
    int IsClose() const;
    // 6 or 1000 are stored and give 1; anything else stores 0 and gives 0.
    int SetSplineFlag(int f);
    int GetSplineFlag() const;

    int GetVertexSize() const;
    // Pointer into the vertex array, or null (with one trace line) for an index past the end.
    // An index that is negative as an int is refused the same way.
    CVertex* GetVertex(unsigned int index);
    const CVertex* GetVertex(unsigned int index) const;
    int SetVertex(unsigned int index, const CVertex& v);
    // Appends a copy; returns the new upper bound.
    int AddVertex(CVertex& v);
    // Inserts before an existing index (appending is AddVertex's job); 1 or 0.
    int InsertVertex(unsigned int index, CVertex& v);
    int DelVertex(unsigned int index);
    void DelAllVertex();
    // New vertices are CVertex(32).
    void SetVertexSize(unsigned int n);
    void Reverse();
    // Reverses when CheckTurn() >= 0, so the chain turns counter-clockwise (x right, y up).
    void Normalize();

    // Sign of the summed turns: 1 predominantly clockwise (x right, y up), -1 counter-
    // clockwise, 0 with fewer than 3 vertices or a zero sum.
    int CheckTurn() const;
    // Even-odd test in plan over the closing edge too (whatever the closed flag). Edges are
    // half-open in y and a crossing counts when it lies at or right of x, so on an axis-
    // parallel square the right and bottom edges are inside, the left and top ones outside.
    int PtInPolyline(double x, double y) const;
    // The same test with every edge's y interval shifted down by tol (not widened); x has no
    // tolerance.
    int PolyPtIn(double x, double y, double tol) const;
    // Extent over all vertices; 1, or 0 with all six zero when there are no vertices.
    int GetRange(double& xmin, double& xmax, double& ymin, double& ymax, double& zmin,
                 double& zmax) const;
    // 3-D and plan distance between vertices i and j; 0.0 for an invalid index.
    double GetDistance(int i, int j) const;
    double GetDistanceXY(int i, int j) const;
    // Sum of the edges, plus the closing edge when closed with at least 2 vertices.
    double GetTotalLength() const;
    double GetTotalLengthXY() const;

    // Replace the vertices by k samples per span of a uniform cubic B-spline (Spline) or a
    // Catmull-Rom curve (CtmlRomSpline), wrapping when closed, clamped at the ends when open
    // (open chains get extra samples at t = -1 and t = n, the ends of the clamped curve).
    // k below 1 counts as 1. Fewer than 3 vertices: nothing happens. Every sample carries the
    // flags 32 (created) and 8 (spline vertex); none is marked as a frame vertex, as the
    // control vertices are gone. Always 1.
    int Spline(int k);
    int CtmlRomSpline(int k);
    // Inserts vertices (flag 32) along every edge longer than step (the closing edge too when
    // closed) at 3-D distances step, 2 step, ... below the edge's length. step <= 0 gives 0.
    int InterpolateVertex(double step);

    kel_text::CKelString m_name;
    kel_templ::CKelArray<CVertex, CVertex&> m_vertex;

private:
    typedef CXYZ (*CurveEval)(const kel_templ::CKelArray<CVertex, CVertex&>& pts, double t);
    int SampleCurve(int k, CurveEval open, CurveEval closed);
    double EdgeSum(bool plan) const;
    int CrossingTest(double x, double y, double tol) const;

    [[maybe_unused]] std::int32_t m_reserved1[2];  // reserved words of the record layout
    std::int32_t m_polylineFlag;
    std::int32_t m_splineFlag;
    [[maybe_unused]] std::int32_t m_reserved2[2];
};

// Sorts keys in place and fills index (resized to the key count) with the keys' former
// positions in sorted order. order != 0 sorts ascending (the surface's outline passes 1),
// 0 descending. The sort is a quicksort and does not keep equal keys in their original order
// (it is deterministic for a given input).
KELSCAN_API void QuickSortKey(kel_templ::CKelArray<double, double>& keys,
                              kel_templ::CKelArray<int, int>& index, int order);
