// kelscan camera show|table|export-opencv|import-opencv and kelscan helmert: the camera file,
// its interchange with OpenCV's camera files, and the plane similarity.
#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Helmert.h"
#include "photogrammetry/OpenCvCamera.h"
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

// "A,B" as two numbers; false when it is not exactly two finite numbers.
bool ParsePair(const std::string& text, double& a, double& b) {
    const std::size_t comma = text.find(',');
    return comma != std::string::npos && kelscan_cli::ParseDouble(text.substr(0, comma), a) &&
           kelscan_cli::ParseDouble(text.substr(comma + 1), b);
}

const char kFittedNote[] =
    "fitted, not copied: OpenCV's lens model moves an ideal point to where it is seen, the "
    "camera file's corrects a seen point to its ideal place";

// The largest residual; text says the rest in its note, csv and json give them as values.
void AddResidual(kelscan_cli::Report& r, const COpenCvCamera& cv, kelscan_cli::Format format) {
    using kelscan_cli::Value;
    const bool text = format == kelscan_cli::Format::kText;
    r.Add("largest_residual", "px", Value::Num(cv.GetMaxResidual(), 6),
          text ? " (rms " + Fixed(cv.GetRmsResidual(), 6) + " px over " +
                     std::to_string(cv.GetGridPoints()) + " grid points; " + kFittedNote + ")"
               : "");
    if (text) return;
    r.Add("rms_residual", "px", Value::Num(cv.GetRmsResidual(), 6));
    r.Add("grid_points", "", Value::Int(cv.GetGridPoints()));
}

struct ExportArgs {
    std::string camera, output, size;
    int coefficients = 8;
    kelscan_cli::Format format = kelscan_cli::Format::kText;
};

int RunExport(const ExportArgs& a) {
    using kelscan_cli::Value;
    CCamera cam;
    if (const int rc = LoadCamera(a.camera, cam)) return rc;
    if (!(cam.m_focal > 0.0) || !(cam.m_resolution.x > 0.0) || !(cam.m_resolution.y > 0.0))
        return Fail(a.camera + ": the focal length and the pixel size must be positive");
    int w = 0, h = 0;
    const bool given = !a.size.empty();
    if (given) {
        double dw = 0.0, dh = 0.0;
        if (!ParsePair(a.size, dw, dh) || dw != std::round(dw) || dh != std::round(dh))
            return Fail("--image-size: expected W,H in whole pixels, found \"" + a.size + "\"");
        if (!(dw >= 1 && dh >= 1 && dw <= COpenCvCamera::kMaxImageSide &&
              dh <= COpenCvCamera::kMaxImageSide))
            return Fail("--image-size: each side must be 1 to " +
                        std::to_string(COpenCvCamera::kMaxImageSide) + " pixels");
        w = static_cast<int>(dw);
        h = static_cast<int>(dh);
    } else if (!COpenCvCamera::CentredImageSize(cam, w, h)) {
        return Fail("the principal point does not give an image size: give --image-size W,H");
    }
    COpenCvCamera cv;
    if (!cv.FromCamera(cam, w, h, a.coefficients))
        return Fail("cannot fit OpenCV's lens model to " + a.camera + " (-v shows why)");
    if (const int rc = kelscan_cli::WriteOutputStream(a.output, {a.camera}, [&](std::ostream& o) {
            o << cv.FormatYaml();
            return static_cast<bool>(o);
        }))
        return rc;
    kelscan_cli::Report r;
    r.Add("camera", "", Value::Text(a.camera));
    r.Add("image_width", "px", Value::Int(cv.m_width),
          given ? "" : " (twice the principal point; --image-size sets it)");
    r.Add("image_height", "px", Value::Int(cv.m_height));
    r.Add("fx", "px", Value::Num(cv.m_matrix[0], 6));
    r.Add("fy", "px", Value::Num(cv.m_matrix[4], 6));
    r.Add("cx", "px", Value::Num(cv.m_matrix[2], 6), " (pixel centres at whole numbers)");
    r.Add("cy", "px", Value::Num(cv.m_matrix[5], 6));
    r.Add("coefficients", "", Value::Int(cv.m_numCoef),
          cv.m_numCoef == 8 ? " (k1 k2 p1 p2 k3 k4 k5 k6)" : " (k1 k2 p1 p2 k3)");
    AddResidual(r, cv, a.format);
    r.Add("written", "", Value::Text(a.output));
    kelscan_cli::PrintReport(kelscan_cli::ReportStream(a.output), r, a.format);
    return 0;
}

struct ImportArgs {
    std::string input, output, pixelSize;
    int model = -1;
    kelscan_cli::Format format = kelscan_cli::Format::kText;
};

int RunImport(const ImportArgs& a) {
    using kelscan_cli::Value;
    double sx = 0.0, sy = 0.0;
    if (!ParsePair(a.pixelSize, sx, sy) || !(sx > 0.0) || !(sy > 0.0))
        return Fail("--pixel-size: expected SX,SY, two positive numbers of millimetres, found \"" +
                    a.pixelSize + "\"");
    COpenCvCamera cv;
    if (!cv.ReadYaml(kel_text::Utf8ToWide(a.input.c_str()))) {
        if (cv.GetErrorLine() > 0)
            return Fail(a.input + ":" + std::to_string(cv.GetErrorLine()) + ": " + cv.GetError());
        return Fail(cv.GetError() == "cannot read the file" ? "cannot read " + a.input
                                                            : a.input + ": " + cv.GetError());
    }
    if (cv.m_coef[12] != 0.0 || cv.m_coef[13] != 0.0)
        return Fail(a.input + ": a tilted sensor (tauX, tauY) has no counterpart in a camera file");
    const double implied = cv.m_matrix[0] * sx / cv.m_matrix[4];
    if (std::fabs(implied - sy) > COpenCvCamera::kAspectTol * sy)
        return Fail("--pixel-size: the camera matrix makes the pixels " + Fixed(implied, 6) +
                    " mm high (fx SX / fy), more than 1 % from " +
                    a.pixelSize.substr(a.pixelSize.find(',') + 1));
    const DIST_MODEL model = a.model < 0 ? cv.DefaultModel() : static_cast<DIST_MODEL>(a.model);
    CCamera cam;
    if (!cv.ToCamera(sx, sy, model, cam))
        return Fail("cannot convert " + a.input + " (-v shows why)");
    if (const int rc =
            kelscan_cli::WriteOutputFile(a.output, {a.input}, [&](const std::string& path) {
                return cam.Write(kel_text::Utf8ToWide(path.c_str())) == 1;
            }))
        return rc;
    kelscan_cli::Report r;
    r.Add("opencv_camera", "", Value::Text(a.input));
    r.Add("image_width", "px", Value::Int(cv.m_width));
    r.Add("image_height", "px", Value::Int(cv.m_height));
    r.Add("focal_length", "mm", Value::Num(cam.m_focal, 6), " (fx times the pixel width)");
    r.Add("principal_point_x", "mm", Value::Num(cam.m_principal.x, 6));
    r.Add("principal_point_y", "mm", Value::Num(cam.m_principal.y, 6));
    r.Add("pixel_size_x", "mm", Value::Num(cam.m_resolution.x, 6));
    r.Add("pixel_size_y", "mm", Value::Num(cam.m_resolution.y, 6), " (focal length / fy)");
    r.Add("distortion_model", "", Value::Int(static_cast<int>(model)),
          std::string(" (") + ModelName(model) + (a.model < 0 ? "; --model sets it)" : ")"));
    AddResidual(r, cv, a.format);
    r.Add("written", "", Value::Text(a.output));
    kelscan_cli::PrintReport(kelscan_cli::ReportStream(a.output), r, a.format);
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

    static ExportArgs ea;
    CLI::App* exp = camera->add_subcommand(
        "export-opencv", "Write a camera file as OpenCV's camera YAML (lens model fitted)");
    exp->add_option("camera", ea.camera, "Camera file")->required();
    exp->add_option("output", ea.output, "OpenCV YAML file to write (- for standard output)")
        ->required();
    exp->add_option("--image-size", ea.size,
                    "W,H: image size in pixels (default twice the principal point)");
    exp->add_option("--coefficients", ea.coefficients, "5 (k1 k2 p1 p2 k3) or 8 (and k4 k5 k6)")
        ->check(CLI::IsMember({5, 8}))
        ->capture_default_str();
    kelscan_cli::AddFormatOption(exp, ea.format);
    exp->callback([]() { SetExit(RunExport(ea)); });

    static ImportArgs ia;
    CLI::App* imp = camera->add_subcommand(
        "import-opencv", "Make a camera file from OpenCV's camera YAML (lens model fitted)");
    imp->add_option("input", ia.input, "OpenCV YAML file")->required();
    imp->add_option("--pixel-size", ia.pixelSize, "SX,SY: the sensor's pixel size (mm)")
        ->required();
    imp->add_option("--model", ia.model,
                    "Distortion model 0..4 (default 1 for a radial lens, else 3)")
        ->check(CLI::Range(0, 4));
    imp->add_option("output", ia.output, "Camera file to write (- for standard output)")
        ->required();
    kelscan_cli::AddFormatOption(imp, ia.format);
    imp->callback([]() { SetExit(RunImport(ia)); });

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
