// kelscan camera show|table and kelscan helmert: the camera file and the plane similarity.
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
        case DIST_K1K2K3K4: return "radial k1 k2 k3 k4";
        case DIST_K1K2P1P2: return "radial k1 k2, decentring p1 p2";
        case DIST_K1K2K3P1P2: return "radial k1 k2 k3, decentring p1 p2";
        case DIST_POLY8: return "radial k1 k2, affine and second order a1..a6";
        default: return "none";
    }
}

const char* const kParaNames[5][8] = {{},
                                      {"k1", "k2", "k3", "k4"},
                                      {"k1", "k2", "p1", "p2"},
                                      {"k1", "k2", "k3", "p1", "p2"},
                                      {"k1", "k2", "a1", "a2", "a3", "a4", "a5", "a6"}};

int LoadCamera(const std::string& path, CCamera& cam) {
    if (cam.Read(kel_text::Utf8ToWide(path.c_str())) == 1) return 0;
    if (cam.GetLastReadLine() == 0) return Fail("cannot read " + path);
    return Fail(path + ":" + std::to_string(cam.GetLastReadLine()) +
                ": missing or unreadable camera line");
}

void PrintCamera(std::ostream& out, const CCamera& cam) {
    const CDist& d = cam.m_dist;
    out << "camera: " << kel_text::WideToUtf8(cam.m_name) << '\n'
        << "focal length: " << Fixed(cam.m_focal, 6) << " mm\n"
        << "principal point: " << Fixed(cam.m_principal.x, 6) << ", "
        << Fixed(cam.m_principal.y, 6) << " mm\n"
        << "pixel size: " << Fixed(cam.m_resolution.x, 6) << " x " << Fixed(cam.m_resolution.y, 6)
        << " mm/pixel\n"
        << "distortion model: " << static_cast<int>(d.GetDistModel()) << " ("
        << ModelName(d.GetDistModel()) << ")\n";
    const int model = static_cast<int>(d.GetDistModel());
    for (int i = 0; i < d.GetNumPara() && i < 8; ++i) {
        char buf[64];
        std::snprintf(buf, sizeof buf, "%.6e", d.m_para[i]);
        out << "  " << kParaNames[model][i] << " = " << buf << '\n';
    }
    out << "fiducial marks: " << cam.m_fiducialMark.GetSize() << '\n';
    for (int i = 0; i < cam.m_fiducialMark.GetSize(); ++i) {
        const CXYZ& f = cam.m_fiducialMark[i];
        out << "  " << kel_text::WideToUtf8(f.m_name) << ": " << Fixed(f.x, 6) << ", "
            << Fixed(f.y, 6) << " mm\n";
    }
    const int k = std::min(d.m_radius.GetSize(), d.m_distortion.GetSize());
    out << "radial table: " << k << " values\n";
    for (int j = 0; j < k; ++j)
        out << "  r = " << Fixed(d.m_radius[j], 6) << " mm: " << Fixed(d.m_distortion[j], 6)
            << " mm\n";
}

// Points with names from a CSV file: name,x,y[,z].
int ReadNamedPoints(const std::string& path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    if (!kelscan_cli::ReadCsvRows(path, 2, rows, error)) return Fail(error);
    for (const auto& r : rows) {
        if (r.name.empty())
            return Fail(path + ":" + std::to_string(r.line) + ": a point needs a name");
        CXYZ p(kel_text::Utf8ToWide(r.name.c_str()), r.values[0], r.values[1],
               r.values.size() > 2 ? r.values[2] : 0.0);
        pts.Add(p);
    }
    return 0;
}

int RunHelmert(std::ostream& out, const std::string& target, const std::string& source) {
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
    out << "pairs: " << pairs << '\n'
        << "a = " << Fixed(a, 9) << ", b = " << Fixed(b, 9) << ", c = " << Fixed(h.m_para[2], 4)
        << ", d = " << Fixed(h.m_para[3], 4) << '\n'
        << "scale: " << Fixed(std::hypot(a, b), 9) << '\n'
        << "rotation: " << Fixed(std::atan2(b, a) * kel_math::kRadToDeg, 6) << " deg\n"
        << "name,dx,dy\n";
    for (int i = 0; i < h.GetResiduals().GetSize(); ++i) {
        const CXYZ& r = h.GetResiduals()[i];
        out << kel_text::WideToUtf8(r.m_name) << ',' << Fixed(r.x, 4) << ',' << Fixed(r.y, 4)
            << '\n';
    }
    out << "RMS: " << Fixed(h.GetRmsResidual().x, 4) << ", " << Fixed(h.GetRmsResidual().y, 4)
        << '\n';
    return 0;
}

void Setup(CLI::App& app) {
    CLI::App* camera = app.add_subcommand("camera", "The camera file");
    camera->require_subcommand(1);

    static std::string showFile;
    CLI::App* show = camera->add_subcommand("show", "Print a camera file");
    show->add_option("file", showFile, "Camera file")->required();
    show->callback([]() {
        CCamera cam;
        if (const int rc = LoadCamera(showFile, cam)) return SetExit(rc);
        PrintCamera(std::cout, cam);
        SetExit(0);
    });

    struct TableArgs {
        std::string file;
        double step = 0.5;
        int count = 10;
    };
    static TableArgs ta;
    CLI::App* table = camera->add_subcommand(
        "table", "The radial distortion table from the parameters (model 1)");
    table->add_option("file", ta.file, "Camera file")->required();
    table->add_option("--step", ta.step, "Radius step (mm)")->capture_default_str();
    table->add_option("--count", ta.count, "Number of radii")
        ->check(CLI::Range(1, 100000))
        ->capture_default_str();
    table->callback([]() {
        CCamera cam;
        if (const int rc = LoadCamera(ta.file, cam)) return SetExit(rc);
        if (!std::isfinite(ta.step) || ta.step <= 0.0)
            return SetExit(Fail("--step must be a positive number of millimetres"));
        if (!cam.m_dist.ParaToDist(ta.step, ta.count))
            return SetExit(Fail("the radial table needs distortion model 1 (k1..k4), this camera "
                                "has model " +
                                std::to_string(static_cast<int>(cam.m_dist.GetDistModel()))));
        std::cout << "radius_mm,correction_mm\n";
        for (int j = 0; j < cam.m_dist.m_radius.GetSize(); ++j)
            std::cout << Fixed(cam.m_dist.m_radius[j], 6) << ','
                      << Fixed(cam.m_dist.m_distortion[j], 6) << '\n';
        SetExit(0);
    });

    struct HelmertArgs {
        std::string target, source;
    };
    static HelmertArgs ha;
    CLI::App* helmert = app.add_subcommand(
        "helmert", "Fit a plane similarity (Helmert) from source to target points");
    helmert->add_option("--target", ha.target, "Target points CSV: name,x,y[,z]")->required();
    helmert->add_option("--source", ha.source, "Source points CSV: name,x,y[,z]")->required();
    helmert->callback([]() { SetExit(RunHelmert(std::cout, ha.target, ha.source)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    CCamera cam;
    if (const int rc = LoadCamera(dataDir + "/camera.cam", cam)) return rc;
    PrintCamera(out, cam);
    out << "\nHelmert fit of helmert_source.csv onto helmert_target.csv:\n";
    return RunHelmert(out, dataDir + "/helmert_target.csv", dataDir + "/helmert_source.csv");
}

kelscan_cli::CommandRegistrar reg("camera", &Setup);
kelscan_cli::DemoRegistrar demo(20, "The camera and a Helmert fit", &Demo);

}  // namespace
