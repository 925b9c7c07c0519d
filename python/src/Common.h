#pragma once
// Shared by the binding's files: the error every failure raises, the trace capture around each
// call, and the checks that keep bad arrays away from the library.
//
// Every call into the library runs inside a Call: it captures the library's trace lines (the
// previous sink is restored afterwards) and, on failure, raises kelscan.Error whose message
// carries them. Arrays are checked for shape, dtype and finite values before the library sees
// them, and indexes before any array is touched: an out-of-range CKelArray index aborts the
// process by design.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <vector>

#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "geometry/XYZ.h"

namespace py = pybind11;

namespace kel_py {

// kelscan.Error: message, and the library's trace lines in `lines`.
class Error : public std::exception {
public:
    Error(std::string message, std::vector<std::string> lines)
        : m_message(std::move(message)), m_lines(std::move(lines)) {}
    const char* what() const noexcept override { return m_message.c_str(); }
    const std::vector<std::string>& Lines() const { return m_lines; }

private:
    std::string m_message;
    std::vector<std::string> m_lines;
};

// Captures the trace lines written while it lives; the lines of the last call stay readable
// through kelscan.last_trace().
class Call {
public:
    Call();
    ~Call();
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;
    // Raises kelscan.Error: "what: <trace lines>" (or what alone when the library wrote none).
    [[noreturn]] void Fail(const std::string& what);
    const std::vector<std::string>& Lines() const { return m_lines; }

private:
    static void Sink(void* context, int level, const wchar_t* line);
    void* m_prevContext = nullptr;
    void (*m_prevSink)(void*, int, const wchar_t*) = nullptr;
    std::vector<std::string> m_lines;   // every line
    std::vector<std::string> m_errors;  // the failure lines (level 0)
};

std::vector<std::string> LastTrace();

// ---- arrays ------------------------------------------------------------------------------
typedef py::array_t<double, py::array::c_style> Doubles;

// An N x cols array of real numbers (any integer or floating dtype, or nested sequences of
// them) as float64, C order. TypeError for another dtype, ValueError for another shape or a
// value that is not finite. `what` names the argument in the message.
Doubles Rows(const py::handle& obj, int cols, const char* what);
// A fixed-length vector of finite reals (a tuple, list or 1-d array of n numbers).
std::vector<double> Vector(const py::handle& obj, int n, const char* what);
// A new N x cols float64 array, and its data.
Doubles NewRows(py::ssize_t n, int cols);
// Rows of an N x in array through f(row, out) -> ok into a new N x outCols array, NaN where f
// says no (a point without an answer), inside a Call.
template <class F>
Doubles MapRows(const py::handle& a, int in, int outCols, const char* what, F f) {
    const Doubles rows = Rows(a, in, what);
    Doubles out = NewRows(rows.shape(0), outCols);
    double* o = out.mutable_data();
    Call call;
    for (py::ssize_t i = 0; i < rows.shape(0); ++i)
        if (!f(rows.data() + i * in, o + i * outCols))
            for (int k = 0; k < outCols; ++k)
                o[i * outCols + k] = std::numeric_limits<double>::quiet_NaN();
    return out;
}
// The first n coordinates of a point into out; true.
inline bool Put(const CXYZ& p, double* out, int n) {
    const double v[3] = {p.x, p.y, p.z};
    for (int k = 0; k < n; ++k) out[k] = v[k];
    return true;
}
// Names of N points: None gives "0", "1", ...; otherwise a sequence of N distinct strings.
std::vector<std::string> Names(const py::handle& obj, py::ssize_t n, const char* what);

// Points into the library's array: (x, y[, z]) per row, named.
kel_templ::CKelArray<CXYZ, CXYZ&> ToXYZ(const Doubles& rows, const std::vector<std::string>& names);
// A closed polygon from a K x 2 array (K >= 3 enforced by the caller where needed).
CPolyline ToPolyline(const Doubles& rows);
// The polygon's vertices as a K x 2 array.
Doubles FromPolyline(const CPolyline& pl);

// Text the library holds (wide) as Python text, and back.
std::string Utf8(const wchar_t* s);
std::wstring Wide(const std::string& s);

// Binding of each area.
void BindSurface(py::module_& m);
void BindOrientation(py::module_& m);
void BindPlanning(py::module_& m);
void BindStorage(py::module_& m);
void BindImaging(py::module_& m);
void BindScanProject(py::module_& m);

}  // namespace kel_py
