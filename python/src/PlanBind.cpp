// The scan planners: kelscan.FineScan (CCleverFineScan) and kelscan.TrackScan (CCleverTrkScan),
// both kelscan.ScanPlan (CCleverScanBase), the type the scan project fills.
#include "Common.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace kel_py {

namespace {

const char kAngles[] =
    "Angles in degrees: V the zenith angle (0 up, 90 level), H the horizontal circle reading; "
    "with dms=True every angle and spacing is packed DDD.MMSS.";

void SetBox(CCleverScanBase& p, const py::handle& start, const py::handle& end, bool dms) {
    const std::vector<double> s = Vector(start, 2, "start");
    const std::vector<double> e = Vector(end, 2, "end");
    p.SetSEVH(s[0], s[1], e[0], e[1], dms ? 0 : 1);
}

void SetRegion(CCleverScanBase& p, const py::object& region) {
    p.m_polyline = CPolyline(CPolyline::kClosed);
    if (region.is_none()) return;
    const Doubles r = Rows(region, 2, "region");
    if (r.shape(0) < 3) throw py::value_error("region: expected at least 3 vertices (or None)");
    p.m_polyline = ToPolyline(r);
}

template <class Plan>
void Setup(Plan& p, const py::object& start, const py::object& end, const py::object& region,
           bool dms) {
    if (!start.is_none() || !end.is_none()) {
        if (start.is_none() || end.is_none()) throw py::value_error("start and end: give both");
        SetBox(p, start, end, dms);
    }
    SetRegion(p, region);
}

}  // namespace

void BindPlanning(py::module_& m) {
    py::class_<CCleverScanBase>(m, "ScanPlan",
                                "The angular box, spacing and region common to both planners. "
                                "The region (K x 2, in the plane it was drawn in, e.g. image "
                                "pixels) is mapped linearly onto the box: its min x to start H, "
                                "max x to end H, min y to start V, max y to end V.")
        .def(
            "set_box",
            [](CCleverScanBase& p, const py::handle& start, const py::handle& end, bool dms) {
                SetBox(p, start, end, dms);
            },
            py::arg("start"), py::arg("end"), py::arg("dms") = false,
            (std::string("The angular box from start (V, H) to end (V, H), each axis run the "
                         "shorter way round. ") +
             kAngles)
                .c_str())
        .def_property(
            "region",
            [](const CCleverScanBase& p) -> py::object {
                if (p.m_polyline.GetVertexSize() < 3) return py::none();
                return FromPolyline(p.m_polyline);
            },
            &SetRegion, "The region polygon (K x 2, closed) or None for the whole box.")
        .def_property_readonly(
            "box",
            [](const CCleverScanBase& p) {
                return py::make_tuple(p.m_startV, p.m_startH, p.m_endV, p.m_endH);
            },
            "(start V, start H, end V, end H), degrees; the end may lie 360 beyond after a plan "
            "across 0/360.")
        .def_property_readonly(
            "spacing", [](const CCleverScanBase& p) { return py::make_tuple(p.m_dV, p.m_dH); },
            "(dV, dH), degrees.");

    py::class_<CCleverFineScan, CCleverScanBase>(
        m, "FineScan",
        (std::string("A fine-scan plan: single target directions on a grid over the angular box "
                     "(or the region mapped onto it), in serpentine order. ") +
         kAngles)
            .c_str())
        .def(py::init([](const py::object& start, const py::object& end, const py::object& spacing,
                         const py::object& region, bool dms) {
                 auto p = std::make_unique<CCleverFineScan>();
                 Setup(*p, start, end, region, dms);
                 if (!spacing.is_none()) {
                     const std::vector<double> d = Vector(spacing, 2, "spacing");
                     p->SetDVH(d[0], d[1], dms ? 0 : 1);
                 }
                 return p;
             }),
             py::arg("start") = py::none(), py::arg("end") = py::none(),
             py::arg("spacing") = py::none(), py::arg("region") = py::none(),
             py::arg("dms") = false, "start, end: (V, H); spacing: (dV, dH).")
        .def(
            "set_spacing",
            [](CCleverFineScan& p, double dv, double dh, bool dms) {
                p.SetDVH(dv, dh, dms ? 0 : 1);
            },
            py::arg("dv"), py::arg("dh"), py::arg("dms") = false, "Spacing, degrees.")
        .def(
            "plan",
            [](CCleverFineScan& p, bool exact) {
                Call call;
                const int n = p.CalcPtAngle(exact);
                if (n == 0)
                    call.Fail(
                        "FineScan.plan: nothing planned (a degenerate region or box, more "
                        "than 4000000 cells along an axis or 16000000 targets, or no memory)");
                return n;
            },
            py::arg("exact") = true,
            "Plans the targets and returns their count. exact: row crossings of the region to "
            "2^-52 (else 1e-12).")
        .def_property_readonly("count", &CCleverFineScan::GetPtCount)
        .def_property_readonly(
            "targets",
            [](const CCleverFineScan& p) {
                const int n = p.GetPtCount();
                Doubles out = NewRows(n, 2);
                for (int i = 0; i < n; ++i) {
                    out.mutable_data()[2 * i] = p.m_planH[i];
                    out.mutable_data()[2 * i + 1] = p.m_planV[i];
                }
                return out;
            },
            "Targets in measuring order, N x 2: H, V degrees (not reduced: a plan across north "
            "runs e.g. 350 .. 370).")
        .def(
            "time",
            [](const CCleverFineScan& p, bool resume) {
                return p.CalcTime(
                    resume ? CCleverFineScan::MEAS_MODE_RESUME : CCleverFineScan::MEAS_MODE_NORMAL,
                    CCleverFineScan::INSTRUMENT_HALVEX);
            },
            py::arg("resume") = false,
            "Estimated seconds for the plan: (6.4 - 0.00075 N) s per target, plus 60 s of set-up "
            "unless resume (the estimate is too low above 4266 targets and meaningless above "
            "8533).");

    py::class_<CCleverTrkScan, CCleverScanBase>(
        m, "TrackScan",
        (std::string("A tracking-scan plan: horizontal sweep lines dV apart at a rotation speed "
                     "setting. ") +
         kAngles)
            .c_str())
        .def(py::init([](const py::object& start, const py::object& end, const py::object& spacing,
                         int speed, const py::object& region, bool dms) {
                 auto p = std::make_unique<CCleverTrkScan>();
                 Setup(*p, start, end, region, dms);
                 if (!spacing.is_none()) {
                     const std::vector<double> d = Vector(spacing, 2, "spacing");
                     p->SetDVH(d[0], d[1], speed, dms ? 0 : 1);
                 }
                 return p;
             }),
             py::arg("start") = py::none(), py::arg("end") = py::none(),
             py::arg("spacing") = py::none(), py::arg("speed") = 1, py::arg("region") = py::none(),
             py::arg("dms") = false, "start, end: (V, H); spacing: (dV, dH); speed: the setting.")
        .def(
            "set_spacing",
            [](CCleverTrkScan& p, double dv, double dh, int speed, bool dms) {
                p.SetDVH(dv, dh, speed, dms ? 0 : 1);
            },
            py::arg("dv"), py::arg("dh"), py::arg("speed"), py::arg("dms") = false)
        .def(
            "plan",
            [](CCleverTrkScan& p, bool exact) {
                Call call;
                const int n = p.CalcLineAngle(exact);
                if (n == 0)
                    call.Fail(
                        "TrackScan.plan: no line planned (a degenerate region or box, more "
                        "than 4000000 rows, or no memory)");
                return n;
            },
            py::arg("exact") = true, "Plans the lines and returns their count.")
        .def_property_readonly("count", &CCleverTrkScan::GetLineCount)
        .def_property_readonly(
            "lines",
            [](const CCleverTrkScan& p) {
                const int n = p.GetLineCount();
                Doubles out = NewRows(n, 3);
                for (int i = 0; i < n; ++i) {
                    out.mutable_data()[3 * i] = p.m_lineV[i];
                    out.mutable_data()[3 * i + 1] = p.m_lineStartH[i];
                    out.mutable_data()[3 * i + 2] = p.m_lineEndH[i];
                }
                return out;
            },
            "Sweep lines, L x 3: V, start H, end H (degrees).")
        .def_readonly("speed", &CCleverTrkScan::m_speed)
        .def(
            "time",
            [](CCleverTrkScan& p, bool quorin) {
                const int t = p.CalcTime(quorin);
                if (t < 0) throw py::value_error("speed: not a setting of this instrument family");
                return t;
            },
            py::arg("quorin") = false,
            "Estimated seconds: each line's length at the speed's rate (the Halvex table, or "
            "Quorin's), rounded, plus 10 s to turn; also counts total_points.")
        .def_readonly("total_points", &CCleverTrkScan::m_totalPoints,
                      "Points of the plan (one every dH along each line), set by time().")
        .def(
            "rate",
            [](const CCleverTrkScan& p, bool quorin) {
                return quorin ? CCleverTrkScan::DegreesFromSpeed_Quorin(p.m_speed)
                              : CCleverTrkScan::DegreesFromSpeed_Halvex(p.m_speed);
            },
            py::arg("quorin") = false, "Rotation rate of the speed setting, degrees per second.");
}

}  // namespace kel_py
