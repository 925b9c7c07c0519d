#pragma once
// CXYZ: a named 3-D point or vector (x, y, z in double precision). Photo and image points use
// it too, with z unused; the name travels with the point. Units are the caller's (metres in
// the surveying frame, millimetres on the photo, pixels in the image).
#include <cstdint>

#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class KELSCAN_API CXYZ {
public:
    KEL_DECLARE_ALLOCATOR

    CXYZ();
    CXYZ(const CXYZ& p);
    CXYZ(double x, double y, double z);
    CXYZ(const wchar_t* name, double x, double y, double z);
    ~CXYZ() = default;

    // Both strings emptied; coordinates and the auxiliary block zeroed.
    void Init();
    void SetXYZ(double x, double y, double z);
    // Copies strings, coordinates and the auxiliary block.
    void Copy(const CXYZ& p);
    CXYZ& operator=(const CXYZ& p);

    // Dot product.
    double Inn(const CXYZ& b) const;
    // Cross product this x b (no strings).
    CXYZ Out(const CXYZ& b) const;
    double Len() const;
    // Euclidean distance to b.
    double Len(const CXYZ& b) const;
    // 1 when Len(b) <= tol (the bound counts as equal), else 0.
    int EQ(const CXYZ& b, double tol) const;

    // Component-wise arithmetic. Binary results carry no strings. Division by a CXYZ skips each
    // component whose divisor is exactly 0.0; division by a double 0.0 leaves the point as is.
    CXYZ& operator+=(const CXYZ& b);
    CXYZ& operator-=(const CXYZ& b);
    CXYZ& operator*=(const CXYZ& b);
    CXYZ& operator*=(double s);
    CXYZ& operator/=(const CXYZ& b);
    CXYZ& operator/=(double s);
    CXYZ operator+(const CXYZ& b) const;
    CXYZ operator-(const CXYZ& b) const;
    CXYZ operator*(const CXYZ& b) const;
    CXYZ operator*(double s) const;
    CXYZ operator/(const CXYZ& b) const;
    CXYZ operator/(double s) const;
    // Unary plus copies (strings included); unary minus negates the coordinates only.
    CXYZ operator+() const;
    CXYZ operator-() const;

    // Debugging hook kept in the interface; does nothing.
    void Trace() const {}

    kel_text::CKelString m_code;  // free text attribute of the point
    kel_text::CKelString m_name;  // point name
    double x;
    double y;
    double z;
    std::int32_t m_aux[5];  // auxiliary block: cleared by Init, carried by Copy, else untouched
};
