#include "geometry/Polyline.h"

#include <cfloat>
#include <cmath>
#include <utility>
#include <vector>

#include "platform/Trace.h"

typedef kel_templ::CKelArray<CVertex, CVertex&> VertexArray;

CPolyline::CPolyline(int flags, int splineFlag)
    : m_reserved1{0, 0}, m_polylineFlag(flags), m_splineFlag(splineFlag), m_reserved2{0, 0} {
    m_name = L"0";
}

CPolyline::CPolyline(const CPolyline& src)
    : m_name(src.m_name),
      m_vertex(src.m_vertex),
      m_reserved1{0, 0},
      m_polylineFlag(src.m_polylineFlag),
      m_splineFlag(src.m_splineFlag),
      m_reserved2{0, 0} {}

CPolyline& CPolyline::operator=(const CPolyline& src) {
    if (this != &src) {
        m_name = src.m_name;
        m_vertex = src.m_vertex;
        m_polylineFlag = src.m_polylineFlag;
        m_splineFlag = src.m_splineFlag;
    }
    return *this;
}

int CPolyline::CheckPolylineFlag(int mask) const { return (m_polylineFlag & mask) == mask; }
void CPolyline::Close() { m_polylineFlag |= kClosed; }
void CPolyline::Open() { m_polylineFlag &= ~kClosed; }
int CPolyline::IsClose() const { return CheckPolylineFlag(kClosed); }

int CPolyline::SetSplineFlag(int f) {
    if (f == kSplineBSpline || f == kSplineCatmullRom) {
        m_splineFlag = f;
        return 1;
    }
    m_splineFlag = 0;
    return 0;
}

int CPolyline::GetSplineFlag() const {
    if ((m_splineFlag & kSplineBSpline) == kSplineBSpline) return kSplineBSpline;
    if ((m_splineFlag & kSplineCatmullRom) == kSplineCatmullRom) return kSplineCatmullRom;
    return 0;
}

int CPolyline::GetVertexSize() const { return m_vertex.GetSize(); }

CVertex* CPolyline::GetVertex(unsigned int index) {
    const int i = static_cast<int>(index);
    if (m_vertex.GetUpperBound() < i || i < 0) {
        KEL_TRACE_ALWAYS(L"CPolyline::GetVertex vertex.GetUpperBound()<(int)index");
        return nullptr;
    }
    return &m_vertex[i];
}

const CVertex* CPolyline::GetVertex(unsigned int index) const {
    return const_cast<CPolyline*>(this)->GetVertex(index);
}

int CPolyline::SetVertex(unsigned int index, const CVertex& v) {
    const int i = static_cast<int>(index);
    if (m_vertex.GetUpperBound() < i || i < 0) {
        KEL_TRACE_ALWAYS(L"CPolyline::SetVertex vertex.GetUpperBound()<(int)index");
        return 0;
    }
    m_vertex[i] = v;
    return 1;
}

int CPolyline::AddVertex(CVertex& v) { return m_vertex.Add(v); }

int CPolyline::InsertVertex(unsigned int index, CVertex& v) {
    const int i = static_cast<int>(index);
    if (m_vertex.GetUpperBound() < i || i < 0) {
        KEL_TRACE_ALWAYS(L"CPolyline::InsertVertex vertex.GetUpperBound()<(int)index");
        return 0;
    }
    m_vertex.InsertAt(i, v);
    return 1;
}

int CPolyline::DelVertex(unsigned int index) {
    const int i = static_cast<int>(index);
    if (m_vertex.GetUpperBound() < i || i < 0) {
        KEL_TRACE_ALWAYS(L"CPolyline::DelVertex vertex.GetUpperBound()<(int)index");
        return 0;
    }
    m_vertex.RemoveAt(i);
    return 1;
}

void CPolyline::DelAllVertex() { m_vertex.RemoveAll(); }

void CPolyline::SetVertexSize(unsigned int n) {
    m_vertex.SetSize(static_cast<int>(n), CVertex(CVertex::kCreated));
}

void CPolyline::Reverse() {
    const VertexArray copy(m_vertex);
    const int n = copy.GetSize();
    for (int i = 0; i < n; ++i) m_vertex[i] = copy[n - 1 - i];
}

void CPolyline::Normalize() {
    if (CheckTurn() >= 0) Reverse();
}

int CPolyline::CheckTurn() const {
    const int n = m_vertex.GetSize();
    if (n < 3) return 0;
    double s = 0.0;
    for (int i = 0; i <= n - 2; ++i) {
        const CVertex& p0 = m_vertex[i];
        const CVertex& p1 = m_vertex[i + 1];
        const CVertex& p2 = (i == n - 2) ? m_vertex[0] : m_vertex[i + 2];
        s += (p2.x - p0.x) * (p1.y - p0.y) - (p1.x - p0.x) * (p2.y - p0.y);
    }
    if (s > 0.0) return 1;
    if (s < 0.0) return -1;
    return 0;
}

int CPolyline::CrossingTest(double x, double y, double tol) const {
    const int n = m_vertex.GetSize();
    int count = 0;
    for (int i = 0; i < n; ++i) {
        const CVertex& a = m_vertex[i];
        const CVertex& b = m_vertex[(i + 1) % n];
        const bool used = (a.y - tol <= y && y < b.y - tol) || (b.y - tol <= y && y < a.y - tol);
        if (!used) continue;
        const double dy = b.y - a.y;
        const double xi = dy == 0.0 ? a.x : a.x + (b.x - a.x) / dy * (y - a.y);
        if (xi >= x) ++count;
    }
    return count % 2;
}

int CPolyline::PtInPolyline(double x, double y) const { return CrossingTest(x, y, 0.0); }

int CPolyline::PolyPtIn(double x, double y, double tol) const { return CrossingTest(x, y, tol); }

int CPolyline::GetRange(double& xmin, double& xmax, double& ymin, double& ymax, double& zmin,
                        double& zmax) const {
    if (m_vertex.GetSize() == 0) {
        xmin = xmax = ymin = ymax = zmin = zmax = 0.0;
        return 0;
    }
    xmin = ymin = zmin = DBL_MAX;
    xmax = ymax = zmax = -DBL_MAX;
    for (int i = 0; i < m_vertex.GetSize(); ++i) {
        const CVertex& v = m_vertex[i];
        if (v.x < xmin) xmin = v.x;
        if (v.x > xmax) xmax = v.x;
        if (v.y < ymin) ymin = v.y;
        if (v.y > ymax) ymax = v.y;
        if (v.z < zmin) zmin = v.z;
        if (v.z > zmax) zmax = v.z;
    }
    return 1;
}

double CPolyline::GetDistance(int i, int j) const {
    // One line for a bad pair: the second index is not looked at when the first is bad.
    const CVertex* a = GetVertex(static_cast<unsigned int>(i));
    if (a == nullptr) return 0.0;
    const CVertex* b = GetVertex(static_cast<unsigned int>(j));
    if (b == nullptr) return 0.0;
    return a->Len(*b);
}

double CPolyline::GetDistanceXY(int i, int j) const {
    // One line for a bad pair: the second index is not looked at when the first is bad.
    const CVertex* a = GetVertex(static_cast<unsigned int>(i));
    if (a == nullptr) return 0.0;
    const CVertex* b = GetVertex(static_cast<unsigned int>(j));
    if (b == nullptr) return 0.0;
    return std::hypot(b->x - a->x, b->y - a->y);
}

double CPolyline::EdgeSum(bool plan) const {
    const int n = m_vertex.GetSize();
    double sum = 0.0;
    for (int i = 0; i + 1 < n; ++i) sum += plan ? GetDistanceXY(i, i + 1) : GetDistance(i, i + 1);
    if (IsClose() && n >= 2) sum += plan ? GetDistanceXY(n - 1, 0) : GetDistance(n - 1, 0);
    return sum;
}

double CPolyline::GetTotalLength() const { return EdgeSum(false); }
double CPolyline::GetTotalLengthXY() const { return EdgeSum(true); }

namespace {

// Uniform cubic B-spline basis.
double CubicBSpline(double t) {
    const double u = std::fabs(t);
    if (u >= 2.0) return 0.0;
    if (u <= 1.0) return (3.0 * u * u * u - 6.0 * u * u + 4.0) * 0.16666666666666666;
    return (u - 2.0) * (u - 2.0) * (u - 2.0) * -0.16666666666666666;
}

int ClampIndex(int i, int n) { return i < 0 ? 0 : (i > n - 1 ? n - 1 : i); }
int WrapIndex(int i, int n) { return ((i % n) + n) % n; }

// The four control points around parameter t, and f = t - floor(t).
void Window(const VertexArray& p, double t, bool wrap, const CVertex* q[4], double& f) {
    const int n = p.GetSize();
    const double fl = std::floor(t);
    const int i = static_cast<int>(fl);
    f = t - fl;
    for (int j = 0; j < 4; ++j) {
        const int k = i - 1 + j;
        q[j] = &p[wrap ? WrapIndex(k, n) : ClampIndex(k, n)];
    }
}

// Four equal control heights give that height exactly, so flat lines stay flat.
void KeepFlat(const CVertex* q[4], CXYZ& r) {
    const double d = std::fabs(q[1]->z - q[0]->z) + std::fabs(q[2]->z - q[1]->z) +
                     std::fabs(q[3]->z - q[2]->z);
    if (d < CPolyline::kFlatHeightTol) r.z = q[3]->z;
}

CXYZ BSplineAt(const VertexArray& p, double t, bool wrap) {
    const CVertex* q[4];
    double f = 0.0;
    Window(p, t, wrap, q, f);
    CXYZ r(0.0, 0.0, 0.0);
    for (int j = 0; j < 4; ++j) {
        const double w = CubicBSpline(1.0 - j + f);
        r.x += q[j]->x * w;
        r.y += q[j]->y * w;
        r.z += q[j]->z * w;
    }
    KeepFlat(q, r);
    return r;
}

double CatmullRom1(double q0, double q1, double q2, double q3, double f) {
    const double c0 = -q0 + 3.0 * q1 - 3.0 * q2 + q3;
    const double c1 = 2.0 * q0 - 5.0 * q1 + 4.0 * q2 - q3;
    const double c2 = -q0 + q2;
    const double c3 = 2.0 * q1;
    return 0.5 * (c0 * f * f * f + c1 * f * f + c2 * f + c3);
}

CXYZ CatmullRomAt(const VertexArray& p, double t, bool wrap) {
    const CVertex* q[4];
    double f = 0.0;
    Window(p, t, wrap, q, f);
    CXYZ r(CatmullRom1(q[0]->x, q[1]->x, q[2]->x, q[3]->x, f),
           CatmullRom1(q[0]->y, q[1]->y, q[2]->y, q[3]->y, f),
           CatmullRom1(q[0]->z, q[1]->z, q[2]->z, q[3]->z, f));
    KeepFlat(q, r);
    return r;
}

CXYZ BSplineOpen(const VertexArray& p, double t) { return BSplineAt(p, t, false); }
CXYZ BSplineClose(const VertexArray& p, double t) { return BSplineAt(p, t, true); }
CXYZ CtmlRomOpen(const VertexArray& p, double t) { return CatmullRomAt(p, t, false); }
CXYZ CtmlRomClose(const VertexArray& p, double t) { return CatmullRomAt(p, t, true); }

}  // namespace

int CPolyline::SampleCurve(int k, CurveEval open, CurveEval closed) {
    if (m_vertex.GetSize() < 3) return 1;
    VertexArray ctrl(m_vertex);
    const int last = ctrl.GetUpperBound();
    if (std::fabs(ctrl[last].x - ctrl[0].x) <= kRepeatTol &&
        std::fabs(ctrl[last].y - ctrl[0].y) <= kRepeatTol &&
        std::fabs(ctrl[last].z - ctrl[0].z) <= kRepeatTol)
        ctrl.RemoveAt(last);
    const int n = ctrl.GetSize();
    if (k < 1) k = 1;

    VertexArray out;
    out.Reserve((n + 1) * k);
    auto emit = [&out](const CXYZ& p) {
        CVertex v(p.x, p.y, p.z, CVertex::kCreated | CVertex::kSplineVertex);
        out.Add(v);
    };
    // Samples are counted with an integer, t = i / k: adding h up repeatedly drifts, and an
    // open curve then got a near-duplicate sample just before its end.
    if (IsClose()) {
        for (int i = 0; i <= n * k; ++i) emit(closed(ctrl, static_cast<double>(i) / k));
    } else {
        emit(open(ctrl, -1.0));
        for (int i = 0; i <= (n - 1) * k; ++i) emit(open(ctrl, static_cast<double>(i) / k));
        emit(open(ctrl, n));
    }
    m_vertex = out;
    return 1;
}

int CPolyline::Spline(int k) { return SampleCurve(k, &BSplineOpen, &BSplineClose); }
int CPolyline::CtmlRomSpline(int k) { return SampleCurve(k, &CtmlRomOpen, &CtmlRomClose); }

int CPolyline::InterpolateVertex(double step) {
    if (!(step > 0.0)) return 0;
    const int n = m_vertex.GetSize();
    VertexArray out;
    const int edges = IsClose() ? n : n - 1;
    for (int i = 0; i < n; ++i) {
        out.Add(m_vertex[i]);
        if (i >= edges) continue;
        const CVertex& a = m_vertex[i];
        const CVertex& b = m_vertex[(i + 1) % n];
        const double len = a.Len(b);
        if (!(len > step)) continue;
        for (double d = step; d < len; d += step) {
            const double s = d / len;
            CVertex v(a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s, a.z + (b.z - a.z) * s,
                      CVertex::kCreated);
            out.Add(v);
        }
    }
    m_vertex = out;
    return 1;
}

namespace {

bool Before(double a, double b, bool descending) { return descending ? a > b : a < b; }

// Hoare partition around the middle key; recursion on the smaller side keeps the depth
// logarithmic.
void QuickSortRange(double* keys, int* index, int lo, int hi, bool descending) {
    while (lo < hi) {
        const double pivot = keys[lo + (hi - lo) / 2];
        int i = lo;
        int j = hi;
        while (i <= j) {
            while (Before(keys[i], pivot, descending)) ++i;
            while (Before(pivot, keys[j], descending)) --j;
            if (i <= j) {
                std::swap(keys[i], keys[j]);
                std::swap(index[i], index[j]);
                ++i;
                --j;
            }
        }
        if (j - lo < hi - i) {
            QuickSortRange(keys, index, lo, j, descending);
            lo = i;
        } else {
            QuickSortRange(keys, index, i, hi, descending);
            hi = j;
        }
    }
}

}  // namespace

void QuickSortKey(kel_templ::CKelArray<double, double>& keys, kel_templ::CKelArray<int, int>& index,
                  int order) {
    const int n = keys.GetSize();
    index.SetSize(n);
    for (int i = 0; i < n; ++i) index[i] = i;
    if (n > 1) QuickSortRange(keys.GetData(), index.GetData(), 0, n - 1, order == 0);
}
