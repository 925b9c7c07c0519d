// kelscan orient and kelscan centroid: camera orientation from control points, and the centre
// of a target in a grey-value patch.
#include <cmath>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Dlt.h"
#include "photogrammetry/Moment.h"
#include "photogrammetry/SinOri.h"
#include "platform/KelMath.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;
typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;

int ReadPoints(const std::string& path, int minValues, Points& pts) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    if (!kelscan_cli::ReadCsvRows(path, minValues, rows, error)) return Fail(error);
    for (const auto& r : rows) {
        if (r.name.empty())
            return Fail(path + ":" + std::to_string(r.line) + ": a point needs a name");
        CXYZ p(kel_text::Utf8ToWide(r.name.c_str()), r.values[0], r.values[1],
               r.values.size() > 2 ? r.values[2] : 0.0);
        pts.Add(p);
    }
    return 0;
}

// Image pixels (column right, row down from the top-left pixel) to photo millimetres relative
// to the principal point (y up), corrected for the camera's distortion: the conversion the
// scan project makes.
void ImgToPhc(const CCamera& cam, Points& pts) {
    for (int i = 0; i < pts.GetSize(); ++i) {
        CXYZ& p = pts[i];
        const double x = p.x * cam.m_resolution.x - cam.m_principal.x;
        const double y = cam.m_principal.y - p.y * cam.m_resolution.y;
        double dx = 0.0, dy = 0.0;
        cam.m_dist.CalDist(x, y, dx, dy);
        p.x = x + dx;
        p.y = y + dy;
        p.z = 0.0;
    }
}

std::string Deg(double rad) { return Fixed(rad * kel_math::kRadToDeg, 6); }

void PrintResiduals(std::ostream& out, const Points& res, const CXYZ& rms) {
    out << "name,dx_mm,dy_mm\n";
    for (int i = 0; i < res.GetSize(); ++i)
        out << kel_text::WideToUtf8(res[i].m_name) << ',' << Fixed(res[i].x, 5) << ','
            << Fixed(res[i].y, 5) << '\n';
    out << "RMS: " << Fixed(rms.x, 5) << ", " << Fixed(rms.y, 5) << " mm\n";
}

const char* const kMethods[] = {"dlt",
                                "dlt2d",
                                "dlt3d",
                                "dlt-iterative",
                                "selfcal-k1k2k3k4",
                                "selfcal-k1k2p1p2",
                                "selfcal-k1k2k3p1p2",
                                "resection",
                                "resection-multistart"};

int RunDlt(std::ostream& out, const std::string& method, Points& obj, Points& phc, double focal) {
    CDlt dlt;
    if (!dlt.Create(obj, phc, focal))
        return Fail("need at least 4 control points with the same name in both files");
    int ok = 0;
    if (method == "dlt") ok = dlt.CalDlt();
    if (method == "dlt2d") ok = dlt.CalDlt2D();
    if (method == "dlt3d") ok = dlt.CalDlt3D();
    if (method == "dlt-iterative") ok = dlt.CalDltIte3D();
    if (method == "selfcal-k1k2k3k4") ok = dlt.CalDltSelfCalib_k1k2k3k4();
    if (method == "selfcal-k1k2p1p2") ok = dlt.CalDltSelfCalib_k1k2p1p2();
    if (method == "selfcal-k1k2k3p1p2") ok = dlt.CalDltSelfCalib_k1k2k3p1p2();
    if (!ok) return Fail("the " + method + " solution failed on these points (-v shows why)");
    out << "method: " << method << (dlt.m_b.GetSize() == 8 ? " (plane DLT)" : " (spatial DLT)")
        << '\n'
        << "pairs: " << dlt.m_obj.GetSize() << '\n'
        << "projection centre: " << Fixed(dlt.m_pos.x, 4) << ", " << Fixed(dlt.m_pos.y, 4)
        << ", " << Fixed(dlt.m_pos.z, 4) << '\n'
        << "angles (omega, phi, kappa): " << Deg(dlt.m_ang.omega) << ", " << Deg(dlt.m_ang.phi)
        << ", " << Deg(dlt.m_ang.kappa) << " deg\n"
        << "focal length: " << Fixed(dlt.m_focal, 5) << " mm (x " << Fixed(dlt.m_focalX, 5)
        << ", y " << Fixed(dlt.m_focalY, 5) << ")\n"
        << "principal point: " << Fixed(dlt.m_pp.x, 5) << ", " << Fixed(dlt.m_pp.y, 5) << " mm\n";
    if (dlt.m_dist.GetDistModel() != DIST_NONE) {
        out << "distortion model " << static_cast<int>(dlt.m_dist.GetDistModel()) << ":";
        for (int i = 0; i < dlt.m_dist.GetNumPara(); ++i) {
            char buf[32];
            std::snprintf(buf, sizeof buf, " %.6e", dlt.m_dist.m_para[i]);
            out << buf;
        }
        out << '\n';
    }
    PrintResiduals(out, dlt.m_res, dlt.m_rms);
    return 0;
}

int RunResection(std::ostream& out, bool multistart, Points& obj, Points& phc, double focal) {
    CSinOri so;
    if (!so.Create(obj, phc, focal))
        return Fail("need at least 3 control points with the same name in both files and a "
                    "positive focal length");
    const int ok = multistart ? so.CalSinOri2() : so.CalSinOri();
    if (!ok)
        return Fail(std::string(multistart ? "resection-multistart" : "resection") +
                    " failed on these points (-v shows why)");
    out << "method: " << (multistart ? "resection-multistart" : "resection") << '\n'
        << "pairs: " << so.m_obj.GetSize() << '\n'
        << "projection centre: " << Fixed(so.m_pos.x, 4) << ", " << Fixed(so.m_pos.y, 4) << ", "
        << Fixed(so.m_pos.z, 4) << " (+- " << Fixed(so.m_sigma[0], 4) << ", "
        << Fixed(so.m_sigma[1], 4) << ", " << Fixed(so.m_sigma[2], 4) << ")\n"
        << "angles (omega, phi, kappa): " << Deg(so.m_ang.omega) << ", " << Deg(so.m_ang.phi)
        << ", " << Deg(so.m_ang.kappa) << " deg\n"
        << "focal length: " << Fixed(so.m_focal, 5) << " mm\n";
    PrintResiduals(out, so.m_res, so.m_rms);
    return 0;
}

int Orient(std::ostream& out, const std::string& method, const std::string& objectFile,
           const std::string& photoFile, const std::string& cameraFile,
           const std::string& imageFile, double focal) {
    Points obj, phc;
    if (const int rc = ReadPoints(objectFile, 3, obj)) return rc;
    if (!cameraFile.empty()) {
        CCamera cam;
        if (cam.Read(kel_text::Utf8ToWide(cameraFile.c_str())) != 1)
            return Fail(cam.GetLastReadLine() == 0
                            ? "cannot read " + cameraFile
                            : cameraFile + ":" + std::to_string(cam.GetLastReadLine()) +
                                  ": missing or unreadable camera line");
        if (const int rc = ReadPoints(imageFile, 2, phc)) return rc;
        ImgToPhc(cam, phc);
        if (!(focal > 0.0)) focal = cam.m_focal;
    } else {
        if (const int rc = ReadPoints(photoFile, 2, phc)) return rc;
    }
    if (!(focal > 0.0)) return Fail("give a positive --focal (mm) or a --camera");
    if (method.rfind("resection", 0) == 0)
        return RunResection(out, method == "resection-multistart", obj, phc, focal);
    return RunDlt(out, method, obj, phc, focal);
}

// A binary PGM (P5, 8 bits) or plain PGM (P2).
bool ReadPgm(const std::string& path, int& w, int& h, std::vector<unsigned char>& px,
             std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    std::string magic;
    in >> magic;
    auto next = [&in](long& v) {
        in >> std::ws;
        while (in.peek() == '#') {
            std::string skip;
            std::getline(in, skip);
            in >> std::ws;
        }
        return static_cast<bool>(in >> v);
    };
    long lw = 0, lh = 0, maxv = 0;
    if ((magic != "P5" && magic != "P2") || !next(lw) || !next(lh) || !next(maxv) || lw <= 0 ||
        lh <= 0 || lw > CMoment::kMaxSide || lh > CMoment::kMaxSide || maxv <= 0 || maxv > 255) {
        error = path + ": not an 8-bit PGM image (P5 or P2) of at most " +
                std::to_string(CMoment::kMaxSide) + " pixels a side";
        return false;
    }
    w = static_cast<int>(lw);
    h = static_cast<int>(lh);
    px.assign(static_cast<std::size_t>(w) * h, 0);
    if (magic == "P5") {
        in.get();
        in.read(reinterpret_cast<char*>(px.data()), static_cast<std::streamsize>(px.size()));
        if (in.gcount() != static_cast<std::streamsize>(px.size())) {
            error = path + ": the image data are shorter than its size";
            return false;
        }
    } else {
        for (auto& p : px) {
            long v = 0;
            if (!next(v) || v < 0 || v > maxv) {
                error = path + ": bad or missing pixel value";
                return false;
            }
            p = static_cast<unsigned char>(v);
        }
    }
    return true;
}

void Setup(CLI::App& app) {
    struct OrientArgs {
        std::string object, photo, camera, image, method = "dlt";
        double focal = 0.0;
    };
    static OrientArgs oa;
    CLI::App* orient = app.add_subcommand(
        "orient", "Orient the camera from control points (DLT variants or resection)");
    orient->add_option("--object", oa.object, "Control points CSV: name,X,Y,Z")->required();
    orient->add_option("--photo", oa.photo,
                       "Photo points CSV: name,x,y in mm (relative to the principal point for "
                       "the resection, any photo frame for the DLT)");
    orient->add_option("--focal", oa.focal, "Focal length (mm); default the camera's");
    orient->add_option("--camera", oa.camera, "Camera file, with --image");
    orient->add_option("--image", oa.image,
                       "Image points CSV: name,column,row in pixels from the top-left pixel, "
                       "converted through the camera (principal point, pixel size, distortion)");
    orient->add_option("--method", oa.method, "Solution method")
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(kMethods), std::end(kMethods))))
        ->capture_default_str();
    orient->callback([]() {
        if (oa.camera.empty() == oa.photo.empty() || oa.camera.empty() != oa.image.empty())
            return SetExit(Fail("give either --photo, or --camera with --image"));
        SetExit(Orient(std::cout, oa.method, oa.object, oa.photo, oa.camera, oa.image, oa.focal));
    });

    struct CentroidArgs {
        std::string file;
        bool dark = false, binary = false;
        int percent = 50;
        std::vector<int> seed;
    };
    static CentroidArgs ca;
    CLI::App* centroid = app.add_subcommand(
        "centroid", "Centre of a target in a grey-value patch (PGM) by image moments");
    centroid->add_option("patch", ca.file, "8-bit PGM patch")->required();
    centroid->add_flag("--dark", ca.dark, "The target is darker than its surround");
    centroid->add_flag("--binary", ca.binary, "Count every pixel with weight 1");
    centroid->add_option("--percent", ca.percent, "Threshold, percent of the grey range")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    centroid->add_option("--seed", ca.seed,
                         "Seed pixel X Y: polarity from the centre pixel, only pixels inside "
                         "the inscribed circle that see the seed count")
        ->expected(2);
    centroid->callback([]() {
        int w = 0, h = 0;
        std::vector<unsigned char> px;
        std::string error;
        if (!ReadPgm(ca.file, w, h, px, error)) return SetExit(Fail(error));
        CMoment m;
        if (!m.SetData(CSize(w, h), ca.dark ? 1 : 0, ca.binary ? 1 : 0, ca.percent))
            return SetExit(Fail("cannot hold a patch of " + std::to_string(w) + " x " +
                                std::to_string(h) + " pixels"));
        std::copy(px.begin(), px.end(), m.GetBuffer());
        double cx = 0.0, cy = 0.0;
        int ok = 0;
        if (ca.seed.size() == 2) {
            if (ca.seed[0] < 0 || ca.seed[1] < 0 || ca.seed[0] >= w || ca.seed[1] >= h)
                return SetExit(Fail("--seed lies outside the " + std::to_string(w) + " x " +
                                    std::to_string(h) + " patch"));
            ok = m.DoMoment2(ca.seed[0], ca.seed[1], &cx, &cy);
        } else {
            ok = m.DoMoment(&cx, &cy);
        }
        if (!ok) return SetExit(Fail("no target found (too little contrast or nothing past the threshold)"));
        std::cout << "centre: " << Fixed(cx, 3) << ", " << Fixed(cy, 3)
                  << " (pixels, pixel centres at index + 0.5)\n";
        SetExit(0);
    });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string obj = dataDir + "/control_object.csv";
    out << "DLT from the photo coordinates in control_photo.csv:\n";
    if (const int rc = Orient(out, "dlt", obj, dataDir + "/control_photo.csv", "", "", 8.8))
        return rc;
    out << "\nResection from the image positions in control_image.csv through camera.cam:\n";
    return Orient(out, "resection", obj, "", dataDir + "/camera.cam",
                  dataDir + "/control_image.csv", 0.0);
}

kelscan_cli::CommandRegistrar reg("orient", &Setup);
kelscan_cli::DemoRegistrar demo(30, "Camera orientation from control points", &Demo);

}  // namespace
