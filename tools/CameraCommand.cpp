// kelscan camera show|table and kelscan helmert: the camera file and the plane similarity.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Helmert.h"
#include "platform/KelMath.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;

const char* ModelName(DIST_MODEL m) {
    switch (m) {
        case DIST_K1K2K3K4:
            return "radial k1 k2 k3 k4";
        case DIST_K1K2P1P2:
            return "radial k1 k2, decentring p1 p2";
        case DIST_K1K2K3P1P2:
            return "radial k1 k2 k3, decentring p1 p2";
        case DIST_POLY8:
            return "radial k1 k2, affine and second order a1..a6";
        default:
            return "none";
    }
}

const char* const kParaNames[5][8] = {{},
                                      {"k1", "k2", "k3", "k4"},
                                      {"k1", "k2", "p1", "p2"},
                                      {"k1", "k2", "k3", "p1", "p2"},
                                      {"k1", "k2", "a1", "a2", "a3", "a4", "a5", "a6"}};

// The radial table of a distortion: radius and correction (mm).
kelscan_cli::Table RadialTable(const CDist& d) {
    using kelscan_cli::Value;
    kelscan_cli::Table t{"radial_table", {"radius_mm", "correction_mm"}, {}};
    const int k = std::min(d.m_radius.GetSize(), d.m_distortion.GetSize());
    for (int j = 0; j < k; ++j)
        t.rows.push_back({Value::Num(d.m_radius[j], 6), Value::Num(d.m_distortion[j], 6)});
    return t;
}

int LoadCamera(const std::string& path, CCamera& cam) {
    if (cam.Read(kel_text::Utf8ToWide(path.c_str())) == 1) return 0;
    if (cam.GetLastReadLine() == 0) return Fail("cannot read " + path);
    return Fail(path + ":" + std::to_string(cam.GetLastReadLine()) +
                ": missing or unreadable camera line");
}

kelscan_cli::Report CameraReport(const CCamera& cam) {
    using kelscan_cli::Value;
    const CDist& d = cam.m_dist;
    kelscan_cli::Report r;
    r.Add("camera", "", Value::Text(kel_text::WideToUtf8(cam.m_name)));
    r.Add("focal_length", "mm", Value::Num(cam.m_focal, 6));
    r.Add("principal_point_x", "mm", Value::Num(cam.m_principal.x, 6));
    r.Add("principal_point_y", "mm", Value::Num(cam.m_principal.y, 6));
    r.Add("pixel_size_x", "mm", Value::Num(cam.m_resolution.x, 6));
    r.Add("pixel_size_y", "mm", Value::Num(cam.m_resolution.y, 6));
    const int model = static_cast<int>(d.GetDistModel());
    r.Add("distortion_model", "", Value::Int(model),
          std::string(" (") + ModelName(d.GetDistModel()) + ")");
    kelscan_cli::Table para{"parameters", {"parameter", "value"}, {}};
    for (int i = 0; i < d.GetNumPara() && i < 8; ++i)
        para.rows.push_back({Value::Text(kParaNames[model][i]), Value::Num(d.m_para[i], -1)});
    kelscan_cli::Table marks{"fiducial_marks", {"name", "x_mm", "y_mm"}, {}};
    for (int i = 0; i < cam.m_fiducialMark.GetSize(); ++i) {
        const CXYZ& f = cam.m_fiducialMark[i];
        marks.rows.push_back(
            {Value::Text(kel_text::WideToUtf8(f.m_name)), Value::Num(f.x, 6), Value::Num(f.y, 6)});
    }
    r.tables = {para, marks, RadialTable(d)};
    return r;
}

// Points with names from a CSV file: name,x,y[,z].
int ReadNamedPoints(const std::string& path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    const kelscan_cli::CsvShape shape{{2, 3}, kelscan_cli::CsvShape::kName, "name,x,y[,z]"};
    if (!kelscan_cli::ReadCsvRows(path, shape, rows, error)) return Fail(error);
    for (const auto& r : rows) {
        CXYZ p(kel_text::Utf8ToWide(r.name.c_str()), r.values[0], r.values[1],
               r.values.size() > 2 ? r.values[2] : 0.0);
        pts.Add(p);
    }
    return 0;
}

int RunHelmert(std::ostream& out, const std::string& target, const std::string& source,
               kelscan_cli::Format format) {
    using kelscan_cli::Value;
    kel_templ::CKelArray<CXYZ, CXYZ&> tgt, src;
    if (const int rc = ReadNamedPoints(target, tgt)) return rc;
    if (const int rc = ReadNamedPoints(source, src)) return rc;
    CHelmert h;
    const int pairs = h.SetPoints(tgt, src);
    if (pairs < 2)
        return Fail("need at least 2 points with the same name in both files, found " +
                    std::to_string(pairs));
    if (!h.CalPara()) return Fail("the points do not determine a similarity");
    const double a = h.m_para[0], b = h.m_para[1];
    kelscan_cli::Report r;
    r.Add("pairs", "", Value::Int(pairs));
    r.Add("a", "", Value::Num(a, 9));
    r.Add("b", "", Value::Num(b, 9));
    r.Add("c", "m", Value::Num(h.m_para[2], 4));
    r.Add("d", "m", Value::Num(h.m_para[3], 4));
    r.Add("scale", "", Value::Num(std::hypot(a, b), 9));
    r.Add("rotation", "deg", Value::Num(std::atan2(b, a) * kel_math::kRadToDeg, 6));
    r.Add("rms_x", "m", Value::Num(h.GetRmsResidual().x, 4));
    r.Add("rms_y", "m", Value::Num(h.GetRmsResidual().y, 4));
    kelscan_cli::Table t{"residuals", {"name", "dx_m", "dy_m"}, {}};
    for (int i = 0; i < h.GetResiduals().GetSize(); ++i) {
        const CXYZ& res = h.GetResiduals()[i];
        t.rows.push_back({Value::Text(kel_text::WideToUtf8(res.m_name)), Value::Num(res.x, 4),
                          Value::Num(res.y, 4)});
    }
    r.tables.push_back(t);
    kelscan_cli::PrintReport(out, r, format);
    return 0;
}

void Setup(CLI::App& app) {
    CLI::App* camera = app.add_subcommand("camera", "The camera file");
    camera->require_subcommand(1);

    static std::string showFile;
    static kelscan_cli::Format showFormat = kelscan_cli::Format::kText;
    CLI::App* show = camera->add_subcommand("show", "Print a camera file");
    show->add_option("file", showFile, "Camera file")->required();
    kelscan_cli::AddFormatOption(show, showFormat);
    show->callback([]() {
        CCamera cam;
        if (const int rc = LoadCamera(showFile, cam)) return SetExit(rc);
        kelscan_cli::PrintReport(std::cout, CameraReport(cam), showFormat);
        SetExit(0);
    });

    struct TableArgs {
        std::string file;
        double step = 0.5;
        int count = 10;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static TableArgs ta;
    CLI::App* table = camera->add_subcommand(
        "table", "The radial distortion table from the parameters (model 1)");
    table->add_option("file", ta.file, "Camera file")->required();
    kelscan_cli::AddNumberOption(table, "--step", ta.step, "Radius step (mm), default 0.5");
    table->add_option("--count", ta.count, "Number of radii")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    kelscan_cli::AddFormatOption(table, ta.format);
    table->callback([]() {
        CCamera cam;
        if (const int rc = LoadCamera(ta.file, cam)) return SetExit(rc);
        if (ta.step <= 0.0) return SetExit(Fail("--step must be a positive number of millimetres"));
        if (!cam.m_dist.ParaToDist(ta.step, ta.count))
            return SetExit(
                Fail("the radial table needs distortion model 1 (k1..k4), this camera "
                     "has model " +
                     std::to_string(static_cast<int>(cam.m_dist.GetDistModel()))));
        kelscan_cli::Report report;
        report.tables.push_back(RadialTable(cam.m_dist));
        kelscan_cli::PrintReport(std::cout, report, ta.format);
        SetExit(0);
    });

    struct HelmertArgs {
        std::string target, source;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static HelmertArgs ha;
    CLI::App* helmert = app.add_subcommand(
        "helmert", "Fit a plane similarity (Helmert) from source to target points");
    helmert->add_option("--target", ha.target, "Target points CSV: name,x,y[,z] (m)")->required();
    helmert->add_option("--source", ha.source, "Source points CSV: name,x,y[,z] (m)")->required();
    kelscan_cli::AddFormatOption(helmert, ha.format);
    helmert->callback([]() { SetExit(RunHelmert(std::cout, ha.target, ha.source, ha.format)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    CCamera cam;
    if (const int rc = LoadCamera(dataDir + "/camera.cam", cam)) return rc;
    kelscan_cli::PrintReport(out, CameraReport(cam), kelscan_cli::Format::kText);
    out << "\nHelmert fit of helmert_source.csv onto helmert_target.csv:\n";
    return RunHelmert(out, dataDir + "/helmert_target.csv", dataDir + "/helmert_source.csv",
                      kelscan_cli::Format::kText);
}

kelscan_cli::CommandRegistrar reg("camera", &Setup);
kelscan_cli::DemoRegistrar demo(20, "The camera and a Helmert fit", &Demo);

}  // namespace
