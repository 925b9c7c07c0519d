// The kelscan Python module: the error type, the trace capture, the array checks and the
// module itself; each area binds itself in its own file.
#include <cmath>
#include <set>

#include "Common.h"
#include "platform/File.h"
#include "platform/KelString.h"
#include "platform/Trace.h"

namespace kel_py {

namespace {

std::vector<std::string> g_lastTrace;
PyObject* g_error = nullptr;

}  // namespace

Call::Call() {
    kel_trace::GetTraceSink(&m_prevSink, &m_prevContext);
    kel_trace::SetTraceSink(&Sink, this);
}

Call::~Call() {
    kel_trace::SetTraceSink(m_prevSink, m_prevContext);
    g_lastTrace = m_lines;
}

void Call::Sink(void* context, int level, const wchar_t* line) {
    Call* c = static_cast<Call*>(context);
    c->m_lines.push_back(Utf8(line));
    if (level == kel_trace::kLevelAlways) c->m_errors.push_back(c->m_lines.back());
}

void Call::Fail(const std::string& what) {
    std::string message = what;
    for (std::size_t i = 0; i < m_errors.size(); ++i)
        message += (i == 0 ? ": " : "; ") + m_errors[i];
    throw Error(message, m_errors);
}

std::vector<std::string> LastTrace() { return g_lastTrace; }

std::string Utf8(const wchar_t* s) { return kel_text::WideToUtf8(s != nullptr ? s : L""); }

std::wstring Wide(const std::string& s) { return kel_text::Utf8ToWide(s.c_str()).GetString(); }

namespace {

std::string ShapeText(const py::array& a) {
    std::string s = "(";
    for (py::ssize_t i = 0; i < a.ndim(); ++i) s += (i ? ", " : "") + std::to_string(a.shape(i));
    return s + (a.ndim() == 1 ? ",)" : ")");
}

// An array of any real dtype as float64; TypeError for other dtypes.
py::array RealArray(const py::handle& obj, const char* what) {
    py::array a = py::array::ensure(obj);
    if (!a) throw py::type_error(std::string(what) + ": expected an array of numbers");
    const char kind = a.dtype().kind();
    if (kind != 'f' && kind != 'i' && kind != 'u')
        throw py::type_error(std::string(what) + ": expected real numbers, got dtype " +
                             py::str(a.dtype()).cast<std::string>());
    return a;
}

void CheckFinite(const double* v, py::ssize_t n, const char* what) {
    for (py::ssize_t i = 0; i < n; ++i)
        if (!std::isfinite(v[i]))
            throw py::value_error(std::string(what) + ": value " + std::to_string(i) +
                                  " is not a finite number");
}

}  // namespace

Doubles Rows(const py::handle& obj, int cols, const char* what) {
    py::array a = RealArray(obj, what);
    if (a.ndim() != 2 || a.shape(1) != cols)
        throw py::value_error(std::string(what) + ": expected an N x " + std::to_string(cols) +
                              " array, got shape " + ShapeText(a));
    Doubles d = Doubles::ensure(a);
    CheckFinite(d.data(), d.size(), what);
    return d;
}

std::vector<double> Vector(const py::handle& obj, int n, const char* what) {
    py::array a = RealArray(obj, what);
    if (a.ndim() != 1 || a.shape(0) != n)
        throw py::value_error(std::string(what) + ": expected " + std::to_string(n) +
                              " numbers, got shape " + ShapeText(a));
    Doubles d = Doubles::ensure(a);
    CheckFinite(d.data(), d.size(), what);
    return std::vector<double>(d.data(), d.data() + n);
}

Doubles NewRows(py::ssize_t n, int cols) { return Doubles({n, static_cast<py::ssize_t>(cols)}); }

std::vector<std::string> Names(const py::handle& obj, py::ssize_t n, const char* what) {
    std::vector<std::string> names;
    if (obj.is_none()) {
        for (py::ssize_t i = 0; i < n; ++i) names.push_back(std::to_string(i));
        return names;
    }
    if (py::isinstance<py::str>(obj) || !py::isinstance<py::sequence>(obj))
        throw py::type_error(std::string(what) + ": expected a sequence of strings");
    for (const py::handle h : py::list(py::reinterpret_borrow<py::object>(obj))) {
        if (!py::isinstance<py::str>(h))
            throw py::type_error(std::string(what) + ": expected strings");
        names.push_back(h.cast<std::string>());
    }
    if (static_cast<py::ssize_t>(names.size()) != n)
        throw py::value_error(std::string(what) + ": expected " + std::to_string(n) +
                              " names, got " + std::to_string(names.size()));
    std::set<std::string> seen;
    for (const auto& s : names)
        if (!seen.insert(s).second)
            throw py::value_error(std::string(what) + ": name " + s + " given twice");
    return names;
}

kel_templ::CKelArray<CXYZ, CXYZ&> ToXYZ(const Doubles& rows,
                                        const std::vector<std::string>& names) {
    kel_templ::CKelArray<CXYZ, CXYZ&> pts;
    const py::ssize_t n = rows.shape(0), cols = rows.shape(1);
    const double* v = rows.data();
    for (py::ssize_t i = 0; i < n; ++i) {
        CXYZ p(Wide(names[static_cast<std::size_t>(i)]).c_str(), v[i * cols], v[i * cols + 1],
               cols > 2 ? v[i * cols + 2] : 0.0);
        pts.Add(p);
    }
    return pts;
}

CPolyline ToPolyline(const Doubles& rows) {
    CPolyline pl(CPolyline::kClosed);
    const double* v = rows.data();
    for (py::ssize_t i = 0; i < rows.shape(0); ++i) {
        CVertex vx(v[2 * i], v[2 * i + 1], 0.0, 0);
        pl.AddVertex(vx);
    }
    return pl;
}

Doubles FromPolyline(const CPolyline& pl) {
    const int n = pl.GetVertexSize();
    Doubles out = NewRows(n, 2);
    double* o = out.mutable_data();
    for (int i = 0; i < n; ++i) {
        const CVertex* v = pl.GetVertex(static_cast<unsigned>(i));
        o[2 * i] = v->x;
        o[2 * i + 1] = v->y;
    }
    return out;
}

}  // namespace kel_py

PYBIND11_MODULE(kelscan, m) {
    using namespace kel_py;
    m.doc() =
        "kelscan from Python: surfaces, camera orientation, scan planning, scan files and "
        "photographs, with numpy arrays in and out.\n\n"
        "Frames and units, as the library keeps them:\n"
        "- surveying frame: x north, y east, z height, metres (scan points, station, control "
        "points of the scan project);\n"
        "- surface (Tin): x east, y north, z height, in the unit of its points (metres in "
        "kelscan's surface files);\n"
        "- image pixels: full resolution, u to the right, v down the rows, pixel i spanning "
        "[i, i + 1);\n"
        "- photo coordinates: millimetres relative to the principal point, y up;\n"
        "- instrument angles: degrees, H the horizontal circle reading, V the zenith angle.\n\n"
        "A failure raises kelscan.Error carrying the library's trace line(s) (also in "
        "Error.lines); a bad argument raises TypeError or ValueError before the library runs.";
    m.attr("__version__") = KELSCAN_VERSION;
    g_error = PyErr_NewExceptionWithDoc(
        "kelscan.Error",
        "A library operation failed. str(e) carries the library's trace line(s), which are also "
        "in e.lines.",
        PyExc_RuntimeError, nullptr);
    m.attr("Error") = py::handle(g_error);
    py::register_exception_translator([](std::exception_ptr p) {
        try {
            if (p) std::rethrow_exception(p);
        } catch (const Error& e) {
            py::object exc = py::reinterpret_borrow<py::object>(g_error)(e.what());
            exc.attr("lines") = py::cast(e.Lines());
            PyErr_SetObject(g_error, exc.ptr());
        }
    });
    m.def("last_trace", &LastTrace,
          "The library's trace lines written during the last call into it (informational lines "
          "included), oldest first.");
    m.def(
        "set_device_root",
        [](const py::object& path) {
            if (path.is_none()) {
                kel_platform::SetDeviceRoot(nullptr);
            } else {
                const std::string s = py::str(path).cast<std::string>();
                kel_platform::SetDeviceRoot(s.c_str());
            }
        },
        py::arg("path"),
        "Sets the folder under which device paths (those starting with a backslash, such as "
        "'\\\\temp\\\\SDB.log') live; None restores the default ($KELSCAN_ROOT, else the current "
        "folder).");
    m.def("device_root", &kel_platform::GetDeviceRoot, "The folder device paths live under.");
    BindSurface(m);
    BindOrientation(m);
    BindPlanning(m);
    BindStorage(m);
    BindImaging(m);
    BindScanProject(m);
}
