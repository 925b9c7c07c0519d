// kelscan.ScanProject (CKelScanProject): from a pixel of the photograph to the instrument's
// angles through the surface, and scan regions drawn on the photograph to planner boxes.
#include <memory>

#include "Common.h"
#include "geometry/CalcXYZHV.h"
#include "photogrammetry/Camera.h"
#include "scanning/CleverScanBase.h"
#include "scanning/ScanProject.h"
#include "surface/SinOriToTin.h"

namespace kel_py {

namespace {

std::unique_ptr<CKelScanProject> NewProject(const CCamera* camera) {
    auto p = std::make_unique<CKelScanProject>();
    Call call;
    if (!p->CreateProject() || !p->CreateCamera() || !p->CreateScanArrays())
        call.Fail("ScanProject: out of memory");
    if (camera != nullptr) *p->m_pCamera = *camera;
    return p;
}

CPolyline Region(const py::handle& region) {
    const Doubles r = Rows(region, 2, "region");
    if (r.shape(0) < 3) throw py::value_error("region: expected at least 3 vertices");
    return ToPolyline(r);
}

}  // namespace

void BindScanProject(py::module_& m) {
    py::class_<CKelScanProject>(
        m, "ScanProject",
        "The scan project's pixel-to-angles chain (CKelScanProject): pixel -> photo mm (the "
        "camera, distortion corrected) -> ray of the oriented camera -> first point on the surface "
        "-> H and V from the station. The camera sits beside the telescope, so a pixel's ray is "
        "never the line of sight.\n\n"
        "Object points are in the surveying frame (x north, y east, z height, metres); pixels "
        "full resolution (u right, v down); angles degrees (H the circle reading in [0, 360), V "
        "the zenith angle).")
        .def(py::init(&NewProject), py::arg("camera") = nullptr,
             "A project with a copy of camera (or an empty one).")
        .def_property(
            "camera",
            [](const CKelScanProject& p) { return *const_cast<CKelScanProject&>(p).GetCamera(); },
            [](CKelScanProject& p, const CCamera& c) { *p.m_pCamera = c; },
            "The project's camera (a copy; assign a Camera to replace it, then orient again).")
        .def(
            "set_surface",
            [](CKelScanProject& p, const py::handle& points) {
                const Doubles pts = Rows(points, 3, "points");
                const auto xyz = ToXYZ(pts, Names(py::none(), pts.shape(0), "points"));
                Call call;
                if (!p.SetSurface(xyz)) call.Fail("ScanProject.set_surface");
            },
            py::arg("points"),
            "The surface from measured points (N x 3, surveying frame); orient again afterwards.")
        .def(
            "orient",
            [](CKelScanProject& p, const py::handle& pixels, const py::handle& control,
               const py::handle& names) {
                const Doubles px = Rows(pixels, 2, "pixels");
                const Doubles obj = Rows(control, 3, "control");
                if (px.shape(0) != obj.shape(0))
                    throw py::value_error("pixels and control: expected the same number of rows");
                const auto n = Names(names, px.shape(0), "names");
                auto img = ToXYZ(px, n);
                auto xyz = ToXYZ(obj, n);
                Call call;
                if (!p.OrientCalc(img, xyz)) call.Fail("ScanProject.orient");
            },
            py::arg("pixels"), py::arg("control"), py::arg("names") = py::none(),
            "Orients the camera from control points: row i of pixels (N x 2) is seen at row i of "
            "control (N x 3, surveying frame); at least 4 pairs (the multi-start resection).")
        .def_property_readonly(
            "ready", [](CKelScanProject& p) { return p.GetSinOriToTin()->GetReady() == 1; },
            "Whether the camera is oriented over the current surface.")
        .def(
            "set_station",
            [](CKelScanProject& p, const py::handle& station, double height, double azimuth,
               double reading) {
                const std::vector<double> s = Vector(station, 3, "station");
                p.SetOccBs(CXYZ(s[0], s[1], s[2]), height, azimuth, reading);
            },
            py::arg("station"), py::arg("height") = 0.0,
            py::arg("backsight_azimuth") = kTaskInverseNotSet,
            py::arg("backsight_reading") = kTaskInverseNotSet,
            "The station (north, east, height m), the instrument height (m) and the backsight: its "
            "azimuth and the circle reading set on it (degrees; -180 for either: the circle reads "
            "the azimuth).")
        .def(
            "img_to_xyz",
            [](CKelScanProject& p, const py::handle& pixels) {
                return MapRows(pixels, 2, 3, "pixels", [&p](const double* in, double* out) {
                    CXYZ xyz;
                    return p.ImgToXYZ(CXYZ(in[0], in[1], 0.0), xyz) && Put(xyz, out, 3);
                });
            },
            py::arg("pixels"),
            "The surface point each pixel sees (N x 3, surveying frame); NaN where its ray misses.")
        .def(
            "img_to_hv",
            [](CKelScanProject& p, const py::handle& pixels) {
                return MapRows(pixels, 2, 2, "pixels", [&p](const double* in, double* out) {
                    return p.ImgToHV(CXYZ(in[0], in[1], 0.0), out[0], out[1]) == 1;
                });
            },
            py::arg("pixels"),
            "The instrument's angles to the surface point each pixel sees (N x 2: H, V); NaN where "
            "its ray misses.")
        .def(
            "hv_to_xyz",
            [](CKelScanProject& p, const py::handle& hv) {
                return MapRows(hv, 2, 3, "hv", [&p](const double* in, double* out) {
                    CXYZ xyz;
                    return p.HVToXYZ(in[0], in[1], xyz) && Put(xyz, out, 3);
                });
            },
            py::arg("hv"),
            "The first surface point along each line of sight (N x 2: H, V -> N x 3); NaN where it "
            "misses.")
        .def(
            "hv_to_img",
            [](CKelScanProject& p, const py::handle& hv) {
                return MapRows(hv, 2, 2, "hv", [&p](const double* in, double* out) {
                    CXYZ img;
                    return p.HVToImg(in[0], in[1], img) && Put(img, out, 2);
                });
            },
            py::arg("hv"),
            "The pixel where the surface point along each line of sight is seen; NaN where it "
            "misses or is not seen.")
        .def_property(
            "densify", [](const CKelScanProject& p) { return p.m_flag == 1; },
            [](CKelScanProject& p, bool on) { p.m_flag = on ? 1 : 0; },
            "Whether region outlines are densified every 4 pixels to follow the terrain (default "
            "True).")
        .def(
            "region_to_hv",
            [](CKelScanProject& p, const py::handle& region) {
                const CPolyline pl = Region(region);
                CPolyline hv;
                Call call;
                if (!p.PolyToHV(pl, hv)) call.Fail("ScanProject.region_to_hv");
                return FromPolyline(hv);
            },
            py::arg("region"),
            "A region drawn in pixels (K x 2) as a polygon of angles (M x 2: H unwrapped, V).")
        .def(
            "compute_incline_grid",
            [](CKelScanProject& p, const py::handle& region, double spacing,
               CCleverScanBase& planner) {
                const CPolyline pl = Region(region);
                Call call;
                if (!p.ComputeInclineGrid(pl, spacing, planner))
                    call.Fail("ScanProject.compute_incline_grid");
            },
            py::arg("region"), py::arg("spacing"), py::arg("planner"),
            "Fills a FineScan or TrackScan from a region drawn on the photograph (K x 2 pixels): "
            "its angles polygon, box, and the spacing that gives `spacing` metres between targets "
            "at the region's distance. Call planner.plan() next.")
        .def(
            "no_img_to_img",
            [](CKelScanProject& p, const CCleverScanBase& planner) {
                CPolyline region;
                Call call;
                if (!p.NoImgToImg(planner, region)) call.Fail("ScanProject.no_img_to_img");
                return FromPolyline(region);
            },
            py::arg("planner"), "A plan's angular box traced onto the photograph (K x 2 pixels).");
}

}  // namespace kel_py
