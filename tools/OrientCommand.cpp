// kelscan orient and kelscan centroid: camera orientation from control points, and the centre
// of a target in a grey-value patch.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "Cli.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/ControlSpread.h"
#include "photogrammetry/Dlt.h"
#include "photogrammetry/Moment.h"
#include "photogrammetry/SinOri.h"
#include "platform/KelMath.h"
#include "platform/NumText.h"
#include "platform/Trace.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;
typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;

// Named points, one a row, through the program's one CSV reader: a name and exactly `coords`
// numbers. The name is the first field whatever it holds (numbers make good point names); a
// first row without numbers is a header. Other field counts, a coordinate that is not a
// number, an empty or a repeated name fail with the file and line.
int ReadPoints(const std::string& path, int coords, Points& pts) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    const kelscan_cli::CsvShape shape{{coords},
                                      kelscan_cli::CsvShape::kName,
                                      "a name and " + std::to_string(coords) + " numbers"};
    if (!kelscan_cli::ReadCsvRows(path, shape, rows, error)) return Fail(error);
    std::set<std::string> seen;
    for (const kelscan_cli::CsvRow& r : rows) {
        const std::string where = path + ":" + std::to_string(r.line) + ": ";
        if (r.name.empty()) return Fail(where + "a point needs a name");
        if (!seen.insert(r.name).second) return Fail(where + "duplicate point name " + r.name);
        CXYZ p(kel_text::Utf8ToWide(r.name.c_str()), r.values[0], r.values[1],
               coords > 2 ? r.values[2] : 0.0);
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

// Counts the library's trace lines written while it lives (and passes them on), so that a
// failure says "-v shows why" only when there is something to show.
class TraceCount {
public:
    TraceCount() {
        kel_trace::GetTraceSink(&m_sink, &m_context);
        kel_trace::SetTraceSink(&Count, this);
    }
    ~TraceCount() { kel_trace::SetTraceSink(m_sink, m_context); }
    int Lines() const { return m_lines; }

private:
    static void Count(void* context, int level, const wchar_t* line) {
        TraceCount* t = static_cast<TraceCount*>(context);
        ++t->m_lines;
        if (t->m_sink) t->m_sink(t->m_context, level, line);
    }
    kel_trace::TraceSink m_sink = nullptr;
    void* m_context = nullptr;
    int m_lines = 0;
};

// Everything a solution reports, whichever class computed it.
struct Report {
    std::string method, variant;  // variant: "plane DLT" or "spatial DLT" for the DLT methods
    int pairs = 0, iterations = 0;
    CXYZ pos;
    CWPK ang;
    CRot rot;
    bool hasSigma = false;
    double sigma[6] = {0, 0, 0, 0, 0, 0};
    bool dlt = false;
    double focal = 0.0, focalX = 0.0, focalY = 0.0;
    CXYZ pp;
    std::vector<double> b;
    CDist dist;
    Points res;
    CXYZ rms;
};

std::string Deg(double rad) { return Fixed(rad * kel_math::kRadToDeg, 6); }

void PrintText(std::ostream& out, const Report& r) {
    out << "method: " << r.method;
    if (!r.variant.empty()) out << " (" << r.variant << ")";
    out << '\n' << "pairs: " << r.pairs << '\n';
    if (r.iterations > 0) out << "iterations: " << r.iterations << '\n';
    out << "projection centre: " << Fixed(r.pos.x, 4) << ", " << Fixed(r.pos.y, 4) << ", "
        << Fixed(r.pos.z, 4);
    if (r.hasSigma)
        out << " (+- " << Fixed(r.sigma[0], 4) << ", " << Fixed(r.sigma[1], 4) << ", "
            << Fixed(r.sigma[2], 4) << ")";
    out << '\n'
        << "angles (omega, phi, kappa): " << Deg(r.ang.omega) << ", " << Deg(r.ang.phi) << ", "
        << Deg(r.ang.kappa) << " deg";
    if (r.hasSigma)
        out << " (+- " << Deg(r.sigma[3]) << ", " << Deg(r.sigma[4]) << ", " << Deg(r.sigma[5])
            << ")";
    out << '\n' << "focal length: " << Fixed(r.focal, 5) << " mm";
    if (r.dlt) out << " (x " << Fixed(r.focalX, 5) << ", y " << Fixed(r.focalY, 5) << ")";
    out << '\n';
    if (r.dlt)
        out << "principal point: " << Fixed(r.pp.x, 5) << ", " << Fixed(r.pp.y, 5) << " mm\n";
    if (r.dist.GetDistModel() != DIST_NONE) {
        out << "distortion model " << static_cast<int>(r.dist.GetDistModel()) << ":";
        for (int i = 0; i < r.dist.GetNumPara(); ++i) {
            char buf[32];
            std::snprintf(buf, sizeof buf, " %.6e", r.dist.m_para[i]);
            out << buf;
        }
        out << '\n';
    }
    out << "name,dx_mm,dy_mm\n";
    for (int i = 0; i < r.res.GetSize(); ++i)
        out << kel_text::WideToUtf8(r.res[i].m_name) << ',' << Fixed(r.res[i].x, 5) << ','
            << Fixed(r.res[i].y, 5) << '\n';
    out << "RMS: " << Fixed(r.rms.x, 5) << ", " << Fixed(r.rms.y, 5) << " mm\n";
}

// The values of a report as named lists of numbers, in output order.
std::vector<std::pair<std::string, std::vector<double>>> Values(const Report& r) {
    std::vector<std::pair<std::string, std::vector<double>>> v;
    v.push_back({"centre", {r.pos.x, r.pos.y, r.pos.z}});
    v.push_back({"angles_rad", {r.ang.omega, r.ang.phi, r.ang.kappa}});
    v.push_back({"rotation", std::vector<double>(r.rot.m, r.rot.m + 9)});
    if (r.hasSigma) {
        v.push_back({"centre_sigma", {r.sigma[0], r.sigma[1], r.sigma[2]}});
        v.push_back({"angles_sigma_rad", {r.sigma[3], r.sigma[4], r.sigma[5]}});
    }
    v.push_back({"focal_mm", {r.focal}});
    if (r.dlt) {
        v.push_back({"focal_xy_mm", {r.focalX, r.focalY}});
        v.push_back({"principal_point_mm", {r.pp.x, r.pp.y}});
        v.push_back({"b", r.b});
        if (r.dist.GetDistModel() != DIST_NONE)
            v.push_back({"distortion",
                         std::vector<double>(r.dist.m_para, r.dist.m_para + r.dist.GetNumPara())});
    }
    v.push_back({"rms_mm", {r.rms.x, r.rms.y}});
    return v;
}

std::string JsonText(const std::string& s) {
    std::string out = "\"";
    for (const unsigned char c : s) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

std::string CsvText(const std::string& s) {
    if (s.find_first_of(",\"\n") == std::string::npos) return s;
    std::string out = "\"";
    for (const char c : s) out += c == '"' ? std::string("\"\"") : std::string(1, c);
    return out + "\"";
}

void PrintCsv(std::ostream& out, const Report& r) {
    out << "method," << r.method << '\n';
    if (!r.variant.empty()) out << "variant," << r.variant << '\n';
    out << "pairs," << r.pairs << '\n' << "iterations," << r.iterations << '\n';
    for (const auto& kv : Values(r)) {
        out << kv.first;
        for (const double x : kv.second) out << ',' << kel_num::Full(x);
        out << '\n';
    }
    for (int i = 0; i < r.res.GetSize(); ++i)
        out << "residual_mm," << CsvText(kel_text::WideToUtf8(r.res[i].m_name)) << ','
            << kel_num::Full(r.res[i].x) << ',' << kel_num::Full(r.res[i].y) << '\n';
}

void PrintJson(std::ostream& out, const Report& r) {
    out << "{\"method\": " << JsonText(r.method);
    if (!r.variant.empty()) out << ", \"variant\": " << JsonText(r.variant);
    out << ", \"pairs\": " << r.pairs << ", \"iterations\": " << r.iterations;
    for (const auto& kv : Values(r)) {
        out << ", " << JsonText(kv.first) << ": ";
        if (kv.second.size() == 1 && kv.first == "focal_mm") {
            out << kel_num::Full(kv.second[0]);
            continue;
        }
        out << '[';
        for (std::size_t k = 0; k < kv.second.size(); ++k)
            out << (k ? ", " : "") << kel_num::Full(kv.second[k]);
        out << ']';
    }
    out << ", \"residuals_mm\": [";
    for (int i = 0; i < r.res.GetSize(); ++i)
        out << (i ? ", " : "") << "{\"name\": " << JsonText(kel_text::WideToUtf8(r.res[i].m_name))
            << ", \"dx\": " << kel_num::Full(r.res[i].x)
            << ", \"dy\": " << kel_num::Full(r.res[i].y) << '}';
    out << "]}\n";
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

// The methods that need the focal length: the resections always, the plane DLT to decompose
// its solution (dlt takes the plane DLT on coplanar control).
bool NeedsFocal(const std::string& method, bool coplanar) {
    return method.rfind("resection", 0) == 0 || method == "dlt2d" || (method == "dlt" && coplanar);
}

std::string FailureText(const std::string& what, const TraceCount& lines, const std::string& why) {
    return what + (lines.Lines() > 0 ? " (-v shows why)" : ": " + why);
}

struct Input {
    std::string method;
    double focal = 0.0;         // 0: not given
    double x0 = 0.0, y0 = 0.0;  // principal point in the photo points' frame
};

// The members CDlt and CSinOri share.
template <class Solver>
void Fill(Report& r, const std::string& method, const Solver& s) {
    r.method = method;
    r.pairs = s.m_obj.GetSize();
    r.iterations = s.m_ite;
    r.pos = s.m_pos;
    r.ang = s.m_ang;
    r.rot = s.m_rot;
    r.focal = s.m_focal;
    r.res = s.m_res;
    r.rms = s.m_rms;
}

int RunDlt(const Input& in, Points& obj, Points& phc, Report& r) {
    CDlt dlt;
    if (!dlt.Create(obj, phc, in.focal))
        return Fail("need at least 4 control points with the same name in both files");
    const bool coplanar = kel_photo::CalControlSpread(dlt.m_obj).IsCoplanar() != 0;
    if (NeedsFocal(in.method, coplanar) && !(in.focal > 0.0))
        return Fail("give a positive --focal (mm) or a --camera: the plane DLT needs it");
    dlt.SetPrincipalPoint(in.x0, in.y0);
    const std::string& m = in.method;
    TraceCount lines;
    int ok = 0;
    if (m == "dlt") ok = dlt.CalDlt();
    if (m == "dlt2d") ok = dlt.CalDlt2D();
    if (m == "dlt3d") ok = dlt.CalDlt3D();
    if (m == "dlt-iterative") ok = dlt.CalDltIte3D();
    if (m == "selfcal-k1k2k3k4") ok = dlt.CalDltSelfCalib_k1k2k3k4();
    if (m == "selfcal-k1k2p1p2") ok = dlt.CalDltSelfCalib_k1k2p1p2();
    if (m == "selfcal-k1k2k3p1p2") ok = dlt.CalDltSelfCalib_k1k2k3p1p2();
    if (!ok) {
        const int n = dlt.m_obj.GetSize();
        const std::string why =
            coplanar ? "the control points are coplanar"
                     : "the control points are not coplanar (" + std::to_string(n) + " pairs)";
        return Fail(FailureText("the " + m + " solution failed on these points", lines, why));
    }
    Fill(r, m, dlt);
    r.variant = dlt.m_b.GetSize() == 8 ? "plane DLT" : "spatial DLT";
    r.dlt = true;
    r.focalX = dlt.m_focalX;
    r.focalY = dlt.m_focalY;
    r.pp = dlt.m_pp;
    r.b.assign(dlt.m_b.GetData(), dlt.m_b.GetData() + dlt.m_b.GetSize());
    r.dist = dlt.m_dist;
    return 0;
}

int RunResection(const Input& in, Points& obj, Points& phc, Report& r) {
    if (!(in.focal > 0.0)) return Fail("give a positive --focal (mm) or a --camera");
    for (int i = 0; i < phc.GetSize(); ++i) {
        phc[i].x -= in.x0;
        phc[i].y -= in.y0;
    }
    CSinOri so;
    if (!so.Create(obj, phc, in.focal))
        return Fail(
            "need at least 3 control points with the same name in both files and a "
            "positive focal length");
    const bool multistart = in.method == "resection-multistart";
    TraceCount lines;
    const int ok = multistart ? so.CalSinOri2() : so.CalSinOri();
    if (!ok)
        return Fail(FailureText(in.method + " failed on these points", lines,
                                "it needs at least 4 control points with the same name in both "
                                "files"));
    Fill(r, in.method, so);
    r.hasSigma = true;
    for (int k = 0; k < 6; ++k) r.sigma[k] = so.m_sigma[k];
    return 0;
}

int Orient(std::ostream& out, Input in, const std::string& format, const std::string& objectFile,
           const std::string& photoFile, const std::string& cameraFile,
           const std::string& imageFile) {
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
        ImgToPhc(cam, phc);  // relative to the principal point from here on
        in.x0 = in.y0 = 0.0;
        if (!(in.focal > 0.0)) in.focal = cam.m_focal;
    } else {
        if (const int rc = ReadPoints(photoFile, 2, phc)) return rc;
    }
    Report r;
    const int rc = in.method.rfind("resection", 0) == 0 ? RunResection(in, obj, phc, r)
                                                        : RunDlt(in, obj, phc, r);
    if (rc) return rc;
    if (format == "csv")
        PrintCsv(out, r);
    else if (format == "json")
        PrintJson(out, r);
    else
        PrintText(out, r);
    return 0;
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
        std::string object, photo, camera, image, method = "dlt", format = "text";
        double focal = 0.0;
        std::vector<double> principal;
    };
    static OrientArgs oa;
    CLI::App* orient = app.add_subcommand(
        "orient", "Orient the camera from control points (DLT variants or resection)");
    orient->add_option("--object", oa.object, "Control points CSV: name,X,Y,Z")->required();
    orient->add_option("--photo", oa.photo,
                       "Photo points CSV: name,x,y in mm, corrected for distortion (measured "
                       "for the self-calibrating methods). The spatial DLT methods take any "
                       "photo frame and find the principal point; the plane DLT (dlt2d, and "
                       "dlt on coplanar control) and the resections take the principal point "
                       "from --principal (default the photo origin)");
    orient
        ->add_option("--principal", oa.principal,
                     "Principal point X Y (mm) in the frame of --photo")
        ->expected(2);
    orient->add_option("--focal", oa.focal,
                       "Focal length (mm), for the resections and the plane DLT; default the "
                       "camera's");
    orient->add_option("--camera", oa.camera, "Camera file, with --image");
    orient->add_option("--image", oa.image,
                       "Image points CSV: name,column,row in pixels from the top-left pixel, "
                       "converted through the camera (principal point, pixel size, distortion) "
                       "to photo mm relative to the principal point");
    orient->add_option("--method", oa.method, "Solution method")
        ->check(CLI::IsMember(std::vector<std::string>(std::begin(kMethods), std::end(kMethods))))
        ->capture_default_str();
    orient
        ->add_option("--format", oa.format,
                     "text, or csv / json with every value at 17 significant digits")
        ->check(CLI::IsMember({"text", "csv", "json"}))
        ->capture_default_str();
    orient->callback([]() {
        if (oa.camera.empty() == oa.photo.empty() || oa.camera.empty() != oa.image.empty())
            return SetExit(Fail("give either --photo, or --camera with --image"));
        if (!oa.camera.empty() && !oa.principal.empty())
            return SetExit(Fail("--principal goes with --photo; the camera file has its own"));
        Input in;
        in.method = oa.method;
        in.focal = oa.focal;
        if (oa.principal.size() == 2) {
            in.x0 = oa.principal[0];
            in.y0 = oa.principal[1];
        }
        SetExit(Orient(std::cout, in, oa.format, oa.object, oa.photo, oa.camera, oa.image));
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
    centroid
        ->add_option("--seed", ca.seed,
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
        if (!ok)
            return SetExit(
                Fail("no target found (too little contrast or nothing past the threshold)"));
        std::cout << "centre: " << Fixed(cx, 3) << ", " << Fixed(cy, 3)
                  << " (pixels, pixel centres at index + 0.5)\n";
        SetExit(0);
    });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string obj = dataDir + "/control_object.csv";
    out << "DLT from the photo coordinates in control_photo.csv:\n";
    Input dlt;
    dlt.method = "dlt";
    dlt.focal = 8.8;
    if (const int rc = Orient(out, dlt, "text", obj, dataDir + "/control_photo.csv", "", ""))
        return rc;
    out << "\nResection from the image positions in control_image.csv through camera.cam:\n";
    Input res;
    res.method = "resection";
    return Orient(out, res, "text", obj, "", dataDir + "/camera.cam",
                  dataDir + "/control_image.csv");
}

kelscan_cli::CommandRegistrar reg("orient", &Setup);
kelscan_cli::DemoRegistrar demo(30, "Camera orientation from control points", &Demo);

}  // namespace
