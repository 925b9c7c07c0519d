#pragma once
// CVertex: a polyline vertex, a CXYZ plus one 32-bit flag word.
//
// Flag bits: 8 = produced by spline sampling, 16 = spline frame (control) vertex, 32 = created
// by the polyline itself (resizing, spline sampling, densifying).
#include <cstdint>

#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CVertex : public CXYZ {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kSplineVertex = 8;
    static constexpr int kSplineFrame = 16;
    static constexpr int kCreated = 32;

    // A vertex at the origin with code "0". The default flag is the one every vertex the
    // polyline creates carries, so a resized polyline's new elements are CVertex(32).
    explicit CVertex(int flag = kCreated);
    CVertex(double x, double y, double z, int flag);
    // Copies p, its strings included.
    CVertex(const CXYZ& p, int flag);
    CVertex(const CVertex& v);
    ~CVertex() = default;
    // Copies the point (strings included) and the flag.
    CVertex& operator=(const CVertex& v);

    // 1 when every bit of mask is set.
    int CheckVertexFlag(int mask) const;
    void SetSplineVertex(int on);
    void SetSplineFrame(int on);
    int IsSplineFrame() const;

    int GetVertexFlag() const { return m_vertexFlag; }
    void SetVertexFlag(int flag) { m_vertexFlag = flag; }

private:
    void SetBit(int bit, int on);

    std::int32_t m_vertexFlag;
};
