#pragma once
// CHelmert: the plane four-parameter similarity between two sets of named points, fitted by
// least squares. Only x and y take part; z is carried along untouched.
//
// Forward (source to target): X = a x - b y + c, Y = b x + a y + d, with a = m cos(theta),
// b = m sin(theta) for scale m and rotation theta.
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CHelmert {
public:
    KEL_DECLARE_ALLOCATOR

    CHelmert();
    CHelmert(const CHelmert& src);
    CHelmert& operator=(const CHelmert& src);
    ~CHelmert() = default;

    // Empties the lists; RMS residual (-1, -1, 0) means "no residuals computed yet".
    void Init();
    void Copy(const CHelmert& src);
    // Pairs target (first) and source (second) points by name; returns the number of pairs.
    int SetPoints(kel_templ::CKelArray<CXYZ, CXYZ&>& first,
                  kel_templ::CKelArray<CXYZ, CXYZ&>& second);
    // Fits a, b, c, d and computes the residuals; 1 or 0.
    int CalPara();
    // forward != 0: source to target; 0: target to source. Sets out.x and out.y only.
    int Transform(const CXYZ& in, CXYZ& out, int forward);

    const kel_templ::CKelArray<double, double>& GetPara() const { return m_para; }
    const kel_templ::CKelArray<CXYZ, CXYZ&>& GetResiduals() const { return m_residual; }
    const CXYZ& GetRmsResidual() const { return m_rms; }
    const CXYZ& GetMaxResidual() const { return m_max; }

    kel_templ::CKelArray<CXYZ, CXYZ&> m_target;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_source;
    kel_templ::CKelArray<double, double> m_para;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_residual;
    CXYZ m_rms;
    CXYZ m_max;

private:
    int CalResiduals();
};
