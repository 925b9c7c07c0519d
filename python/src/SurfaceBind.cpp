// kelscan.Tin: the triangulated surface (CTin), its files, exports and vectorised queries.
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>

#include "Common.h"
#include "platform/Time.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

namespace kel_py {

namespace {

typedef kel_templ::CKelArray<CTin, CTin&> TinArray;
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

std::unique_ptr<CTin> Build(const py::handle& points, const py::handle& breaklines, double angle,
                            const std::string& name, double eps, bool indexOrder) {
    const Doubles pts = Rows(points, 3, "points");
    std::vector<Doubles> lines;
    if (!breaklines.is_none()) {
        if (!py::isinstance<py::sequence>(breaklines))
            throw py::type_error("breaklines: expected a sequence of K x 3 arrays");
        for (const py::handle h : py::list(py::reinterpret_borrow<py::object>(breaklines)))
            lines.push_back(Rows(h, 3, "breaklines"));
    }
    if (!(eps > 0.0) || !std::isfinite(eps))
        throw py::value_error("eps: expected a positive number");
    if (!(angle >= 0.0 && angle < 90.0))
        throw py::value_error("angle: expected 0 <= angle < 90 degrees");
    Call call;
    auto tin = std::make_unique<CTin>();
    tin->SetEPS(eps);
    tin->SetName(Wide(name).c_str());
    const double* p = pts.data();
    for (py::ssize_t i = 0; i < pts.shape(0); ++i)
        if (tin->AddPoint(p[3 * i], p[3 * i + 1], p[3 * i + 2]) < 0)
            call.Fail("Tin.build: out of memory");
    for (const Doubles& l : lines) {
        const double* v = l.data();
        int prev = -1;
        for (py::ssize_t i = 0; i < l.shape(0); ++i) {
            const int k = tin->AddPoint(v[3 * i], v[3 * i + 1], v[3 * i + 2]);
            if (k < 0) call.Fail("Tin.build: out of memory");
            if (prev >= 0 && prev != k && !tin->AddBreakLine(prev, k))
                call.Fail("Tin.build: out of memory");
            prev = k;
        }
    }
    if (!(indexOrder ? tin->CreateTin(angle) : tin->CreateTinSpatial(angle)))
        call.Fail("Tin.build");
    return tin;
}

py::array_t<std::int32_t> TriangleField(const CTin& tin, bool neighbours) {
    const int n = tin.GetTriSize();
    py::array_t<std::int32_t> out({static_cast<py::ssize_t>(n), py::ssize_t{3}});
    std::int32_t* o = out.mutable_data();
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k)
            o[3 * i + k] = neighbours ? tin.GetTri(i).nb[k] : tin.GetTri(i).v[k];
    return out;
}

void WriteFile(CTin& tin, const std::string& path, int version) {
    if (version < 0 || version > 2) throw py::value_error("version: expected 0, 1 or 2");
    Call call;
    TinArray tins;
    int ok = 0;
    if (version == 0) {
        ok = tin.WriteBIN_VER0(Wide(path).c_str());
    } else {
        tins.Add(tin);
        ok = version == 1 ? CTin::WriteBIN_VER1(Wide(path).c_str(), tins)
                          : CTin::WriteBIN_VER2(Wide(path).c_str(), tins);
    }
    if (!ok) call.Fail("Tin.write " + path);
}

py::object Export(const CTin& tin, const py::object& path, const std::string& format,
                  const std::string& name) {
    if (format != "ply" && format != "obj" && format != "landxml" && format != "svg")
        throw py::value_error("format: expected 'ply', 'obj', 'landxml' or 'svg'");
    Call call;
    std::ostringstream out;
    int ok = 0;
    if (format == "ply") ok = WriteTinPly(tin, out);
    if (format == "obj") ok = WriteTinObj(tin, out);
    if (format == "svg") ok = WriteTinSvg(tin, out, nullptr);
    if (format == "landxml") {
        SYSTEMTIME now;
        GetLocalTime(&now);
        ok = WriteTinLandXml(tin, out, (name.empty() ? Utf8(tin.GetName()) : name).c_str(), now);
    }
    if (!ok) call.Fail("Tin.export");
    if (path.is_none()) return py::str(out.str());
    const std::string file = py::str(path).cast<std::string>();
    std::ofstream f(file, std::ios::binary | std::ios::trunc);
    f << out.str();
    f.close();
    if (!f) throw py::value_error("Tin.export: cannot write " + file);
    return py::none();
}

}  // namespace

void BindSurface(py::module_& m) {
    py::class_<CTin>(m, "Tin",
                     "A triangulated surface (TIN) built by Delaunay insertion in plan.\n\n"
                     "Coordinates are x, y, z as the surface holds them: in kelscan's surface "
                     "files x east, y north, z height, metres. Triangles are counter-clockwise in "
                     "x, y; neighbour slot i of a triangle is the triangle across the edge from "
                     "vertex (i + 2) % 3 to vertex i (-1 on the outer boundary).")
        .def(py::init<>(), "An empty surface.")
        .def_static("build", &Build, py::arg("points"), py::arg("breaklines") = py::none(),
                    py::arg("angle") = 0.0, py::arg("name") = "",
                    py::arg("eps") = CTin::kDefaultEps, py::arg("index_order") = false,
                    "Triangulates an N x 3 array of points (x east, y north, z height).\n\n"
                    "A point whose x and y both lie within eps of an earlier one is skipped (the "
                    "first height wins). breaklines: K x 3 arrays of vertices; each becomes a "
                    "chain of triangle edges (a vertex within eps of a point is that point, with "
                    "its height). angle > 0 removes thin boundary triangles whose angle at an end "
                    "of their boundary edge is at most angle degrees. The points are inserted in "
                    "a spatial order, or with index_order in the order given (slower; the "
                    "classic triangle numbering), as kelscan tin build --index-order; the "
                    "triangles are the same. Raises kelscan.Error with the library's line when "
                    "the points cannot be triangulated.")
        .def_static(
            "read",
            [](const std::string& path) {
                Call call;
                TinArray tins;
                if (!CTin::ReadBIN_VER2(Wide(path).c_str(), tins)) call.Fail("Tin.read " + path);
                std::vector<std::unique_ptr<CTin>> out;
                for (int i = 0; i < tins.GetSize(); ++i)
                    out.push_back(std::make_unique<CTin>(tins[i]));
                return out;
            },
            py::arg("path"), "Every surface of a surface file (version 0, 1 or 2), as a list.")
        .def_static(
            "write_all",
            [](const std::string& path, const std::vector<CTin*>& tins, int version) {
                if (version != 1 && version != 2) throw py::value_error("version: expected 1 or 2");
                TinArray all;
                for (const CTin* t : tins) {
                    if (t == nullptr) throw py::type_error("tins: expected Tin objects");
                    all.Add(*const_cast<CTin*>(t));
                }
                Call call;
                const int ok = version == 1 ? CTin::WriteBIN_VER1(Wide(path).c_str(), all)
                                            : CTin::WriteBIN_VER2(Wide(path).c_str(), all);
                if (!ok) call.Fail("Tin.write_all " + path);
            },
            py::arg("path"), py::arg("tins"), py::arg("version") = 2,
            "Writes several surfaces into one file of version 1 or 2.")
        .def("write", &WriteFile, py::arg("path"), py::arg("version") = 2,
             "Writes this surface as a surface file of version 0, 1 or 2 (little-endian, as the "
             "instrument writes them).")
        .def("export", &Export, py::arg("path") = py::none(), py::arg("format") = "ply",
             py::arg("name") = "",
             "The surface as ASCII PLY, Wavefront OBJ, LandXML 1.2 (named `name`, default the "
             "surface's name) or an SVG plan: written to path, or returned as text when path is "
             "None.")
        .def_property(
            "name", [](const CTin& t) { return Utf8(t.GetName()); },
            [](CTin& t, const std::string& s) { t.SetName(Wide(s).c_str()); },
            "The surface's name (the files keep the first 127 characters).")
        .def_property_readonly("eps", &CTin::GetEPS, "Coordinate tolerance (surface units).")
        .def_property_readonly(
            "points",
            [](const CTin& t) {
                Doubles out = NewRows(t.GetPointSize(), 3);
                double* o = out.mutable_data();
                for (int i = 0; i < t.GetPointSize(); ++i) {
                    o[3 * i] = t.m_point[i].x;
                    o[3 * i + 1] = t.m_point[i].y;
                    o[3 * i + 2] = t.m_point[i].z;
                }
                return out;
            },
            "Vertices, N x 3 (x, y, z), in insertion order (a copy).")
        .def_property_readonly(
            "triangles", [](const CTin& t) { return TriangleField(t, false); },
            "Vertex indices of each triangle, T x 3 int32, counter-clockwise.")
        .def_property_readonly(
            "neighbours", [](const CTin& t) { return TriangleField(t, true); },
            "Neighbour triangle of each edge slot, T x 3 int32, -1 on the boundary.")
        .def_property_readonly(
            "range",
            [](const CTin& t) {
                Doubles out = NewRows(2, 3);
                double* o = out.mutable_data();
                for (int k = 0; k < 2; ++k) {
                    o[3 * k] = t.m_range[k].x;
                    o[3 * k + 1] = t.m_range[k].y;
                    o[3 * k + 2] = t.m_range[k].z;
                }
                return out;
            },
            "Lower and upper corner of the vertices in triangles, 2 x 3.")
        .def_property_readonly("plan_area", &CTin::GetPlanArea,
                               "Plan (x, y) area of all triangles.")
        .def_property_readonly("slope_area", &CTin::GetSlopeArea, "3-D area of all triangles.")
        .def(
            "height",
            [](const CTin& t, const py::handle& xy) {
                const Doubles q = Rows(xy, 2, "xy");
                py::array_t<double> out(q.shape(0));
                double* o = out.mutable_data();
                const double* v = q.data();
                Call call;
                for (py::ssize_t i = 0; i < q.shape(0); ++i) {
                    double z = 0.0;
                    o[i] = t.GetHeight(v[2 * i], v[2 * i + 1], z) ? z : kNaN;
                }
                return out;
            },
            py::arg("xy"),
            "Heights at an N x 2 array of x, y on the plane of each one's triangle; NaN outside.")
        .def(
            "find_triangle",
            [](const CTin& t, const py::handle& xy) {
                const Doubles q = Rows(xy, 2, "xy");
                py::array_t<std::int32_t> out(q.shape(0));
                std::int32_t* o = out.mutable_data();
                const double* v = q.data();
                Call call;
                for (py::ssize_t i = 0; i < q.shape(0); ++i)
                    o[i] = t.FindTriXY(v[2 * i], v[2 * i + 1]);
                return out;
            },
            py::arg("xy"), "The triangle containing each x, y of an N x 2 array, -1 outside.")
        .def(
            "intersect",
            [](const CTin& t, const py::handle& origins, const py::handle& directions) {
                const Doubles o = Rows(origins, 3, "origins");
                const Doubles d = Rows(directions, 3, "directions");
                if (o.shape(0) != d.shape(0))
                    throw py::value_error(
                        "origins and directions: expected the same number of rows");
                Doubles hits = NewRows(o.shape(0), 3);
                py::array_t<std::int32_t> tri(o.shape(0));
                double* h = hits.mutable_data();
                std::int32_t* k = tri.mutable_data();
                Call call;
                for (py::ssize_t i = 0; i < o.shape(0); ++i) {
                    const CXYZ a(o.data()[3 * i], o.data()[3 * i + 1], o.data()[3 * i + 2]);
                    const CXYZ b(d.data()[3 * i], d.data()[3 * i + 1], d.data()[3 * i + 2]);
                    CXYZ hit;
                    int ti = -1;
                    if (t.IntersectRay(a, b, hit, ti)) {
                        h[3 * i] = hit.x;
                        h[3 * i + 1] = hit.y;
                        h[3 * i + 2] = hit.z;
                        k[i] = ti;
                    } else {
                        h[3 * i] = h[3 * i + 1] = h[3 * i + 2] = kNaN;
                        k[i] = -1;
                    }
                }
                return py::make_tuple(hits, tri);
            },
            py::arg("origins"), py::arg("directions"),
            "First hits of the rays origin + t direction, t > 0 (N x 3 each): (hits N x 3, NaN "
            "for a miss; triangles N int32, -1 for a miss). The smallest t wins.")
        .def("__len__", &CTin::GetTriSize, "The number of triangles.")
        .def("__repr__", [](const CTin& t) {
            return "<kelscan.Tin '" + Utf8(t.GetName()) + "': " + std::to_string(t.GetPointSize()) +
                   " points, " + std::to_string(t.GetTriSize()) + " triangles>";
        });
}

}  // namespace kel_py
