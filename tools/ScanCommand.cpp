// kelscan scan run|resume|angles, and the demo's main job: from a photograph and named control
// to a recorded scan (see ScanJob.h).
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>

#include "Cli.h"
#include "ScanJob.h"
#include "geometry/CalcXYZHV.h"
#include "platform/KelMath.h"
#include "platform/NumText.h"
#include "surface/SinOriToTin.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::Report;
using kelscan_cli::ScanJob;
using kelscan_cli::ScanJobArgs;
using kelscan_cli::SetExit;
using kelscan_cli::Value;

// The job file of a scan's folder: `key,value` lines (the value is the rest of the line), the
// paths absolute, the numbers exact.
constexpr const char* kJobFile = "job.csv";

std::string Absolute(const std::string& p) {
    if (p.empty() || p == "-") return p;
    std::error_code ec;
    const auto a = std::filesystem::absolute(p, ec);
    return ec ? p : a.lexically_normal().string();
}

bool WriteJob(const ScanJobArgs& a, const std::string& path) {
    std::ofstream out(path, std::ios::binary);
    auto put = [&](const char* key, const std::string& v) { out << key << ',' << v << '\n'; };
    out << "# kelscan scan job: the inputs from which `kelscan scan resume` rebuilds the plan\n";
    put("camera", Absolute(a.camera));
    put("photo", Absolute(a.photo));
    put("object", Absolute(a.object));
    put("image", Absolute(a.image));
    put("refine", a.refine ? "1" : "0");
    put("surface", Absolute(a.surface));
    put("truth", Absolute(a.truth));
    put("region", Absolute(a.region));
    for (int i = 0; i < 3; ++i)
        put(i == 0   ? "station_north_m"
            : i == 1 ? "station_east_m"
                     : "station_height_m",
            kel_num::Exact(a.station[static_cast<std::size_t>(i)]));
    put("instrument_height_m", kel_num::Exact(a.height));
    put("backsight_azimuth_deg", kel_num::Exact(a.bsAzimuth));
    put("backsight_reading_deg", kel_num::Exact(a.bsReading));
    put("fine_spacing_m", kel_num::Exact(a.fine));
    put("track_spacing_m", kel_num::Exact(a.track));
    put("speed", std::to_string(a.speed));
    put("angle_sigma_deg", kel_num::Exact(a.angleSigma));
    put("distance_sigma_m", kel_num::Exact(a.distanceSigma));
    put("seed", std::to_string(a.seed));
    return static_cast<bool>(out.flush());
}

// Reads `key,value` lines ('#' lines skipped) into a map; "" or the failure.
std::string ReadKeyValues(const std::string& path, std::map<std::string, std::string>& kv) {
    std::vector<std::string> lines;
    const std::string error = kelscan_cli::ReadLines(path, lines);
    if (!error.empty()) return error;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& l = lines[i];
        if (l.empty() || l[0] == '#') continue;
        const std::size_t comma = l.find(',');
        if (comma == std::string::npos)
            return path + ":" + std::to_string(i + 1) + ": expected key,value";
        kv[l.substr(0, comma)] = l.substr(comma + 1);
    }
    return "";
}

// A number of a key-value file; "" or the failure.
std::string Number(const std::map<std::string, std::string>& kv, const std::string& path,
                   const std::string& key, double& v) {
    const auto it = kv.find(key);
    if (it == kv.end()) return path + ": no " + key;
    if (!kelscan_cli::ParseDouble(it->second, v))
        return path + ": " + key + " \"" + it->second + "\" is not a finite number";
    return "";
}

std::string ReadJob(const std::string& path, ScanJobArgs& a) {
    std::map<std::string, std::string> kv;
    std::string e = ReadKeyValues(path, kv);
    if (!e.empty()) return e;
    const char* texts[] = {"camera", "photo", "object", "image", "surface", "truth", "region"};
    std::string* fields[] = {&a.camera,  &a.photo, &a.object, &a.image,
                             &a.surface, &a.truth, &a.region};
    for (int i = 0; i < 7; ++i) {
        const auto it = kv.find(texts[i]);
        if (it == kv.end()) return path + ": no " + texts[i];
        *fields[i] = it->second;
    }
    a.refine = kv["refine"] == "1";
    a.station.assign(3, 0.0);
    double speed = 0.0, seed = 0.0;
    const std::pair<const char*, double*> numbers[] = {{"station_north_m", &a.station[0]},
                                                       {"station_east_m", &a.station[1]},
                                                       {"station_height_m", &a.station[2]},
                                                       {"instrument_height_m", &a.height},
                                                       {"backsight_azimuth_deg", &a.bsAzimuth},
                                                       {"backsight_reading_deg", &a.bsReading},
                                                       {"fine_spacing_m", &a.fine},
                                                       {"track_spacing_m", &a.track},
                                                       {"speed", &speed},
                                                       {"angle_sigma_deg", &a.angleSigma},
                                                       {"distance_sigma_m", &a.distanceSigma},
                                                       {"seed", &seed}};
    for (const auto& n : numbers)
        if (!(e = Number(kv, path, n.first, *n.second)).empty()) return e;
    a.speed = static_cast<int>(speed);
    a.seed = static_cast<unsigned>(seed);
    return "";
}

// The options that orient the camera (scan run and scan angles).
void AddOrientOptions(CLI::App* cmd, ScanJobArgs& a, std::vector<double>& backsight) {
    cmd->add_option("--camera", a.camera, "Camera file")->required();
    cmd->add_option("--photo", a.photo, "The photograph (needed by --refine and the picture)");
    cmd->add_option("--object", a.object, "Control points: name,north,east,height (m)")->required();
    cmd->add_option("--image", a.image,
                    "Their pixels on the photograph: name,column,row (rows downwards)")
        ->required();
    cmd->add_flag("--refine", a.refine,
                  "--image holds approximate clicks: find each target's centre by image moments");
    cmd->add_option("--surface", a.surface,
                    "The surface: a surface file (.tin) or points name,north,east,height (.csv)")
        ->required();
    kelscan_cli::AddNumbersOption(cmd, "--station", a.station, 3, "Station north, east, height (m)")
        ->required();
    kelscan_cli::AddNumberOption(cmd, "--height", a.height, "Instrument height (m)")->required();
    kelscan_cli::AddNumbersOption(cmd, "--backsight", backsight, 2,
                                  "Backsight azimuth and the circle reading set on it (degrees); "
                                  "without it the circle reads the azimuth");
}

void ApplyBacksight(ScanJobArgs& a, const std::vector<double>& backsight) {
    if (backsight.size() == 2) {
        a.bsAzimuth = backsight[0];
        a.bsReading = backsight[1];
    }
}

int RunAngles(ScanJobArgs a, const std::vector<double>& backsight,
              const std::vector<std::string>& pixelTexts, const std::string& pixelsFile,
              kelscan_cli::Format format) {
    ApplyBacksight(a, backsight);
    std::vector<kelscan_cli::ControlPixel> pixels;
    if (!pixelsFile.empty()) {
        std::vector<kelscan_cli::CsvRow> rows;
        std::string error;
        const kelscan_cli::CsvShape shape{
            {2}, kelscan_cli::CsvShape::kOptionalName, "[name,]column,row"};
        if (!kelscan_cli::ReadCsvRows(pixelsFile, shape, rows, error)) return Fail(error);
        for (const auto& r : rows)
            pixels.push_back({r.name, r.values[0], r.values[1], r.values[0], r.values[1]});
    }
    if (pixelTexts.size() % 2 != 0) return Fail("--pixel takes a column and a row");
    for (std::size_t i = 0; i + 1 < pixelTexts.size(); i += 2) {
        double c = 0.0, r = 0.0;
        if (!kelscan_cli::ParseDouble(pixelTexts[i], c) ||
            !kelscan_cli::ParseDouble(pixelTexts[i + 1], r))
            return Fail("--pixel: \"" + pixelTexts[i] + "," + pixelTexts[i + 1] +
                        "\" is not two finite numbers");
        pixels.push_back({"", c, r, c, r});
    }
    if (pixels.empty()) return Fail("give --pixel COLUMN,ROW or --pixels FILE.csv");
    ScanJob job(a);
    Report orientation, report;
    if (const int rc = job.Orient(orientation)) return rc;
    if (const int rc = job.Angles(pixels, report)) return rc;
    kelscan_cli::PrintReport(std::cout, report, format);
    return 0;
}

// Orients, plans, scans, records and finishes a job; prints the report. 0 or Fail's status.
int RunJob(const ScanJobArgs& a, bool resume, kelscan_cli::Format format) {
    ScanJob job(a);
    Report report;
    if (const int rc = job.Orient(report)) return rc;
    if (const int rc = job.Plan(report)) return rc;
    if (!resume) {
        std::error_code ec;
        std::filesystem::create_directories(a.out, ec);
        if (!WriteJob(a, a.out + "/" + kJobFile))
            return Fail("cannot write " + a.out + "/" + kJobFile);
    }
    CKelScanProject::CXYZArray measured;
    if (const int rc = job.Scan(resume, report, measured)) return rc;
    if (const int rc = job.Finish(measured, a.truth, report)) return rc;
    report.tables.clear();  // the control residuals: `kelscan scan angles` and `orient` show them
    kelscan_cli::PrintReport(std::cout, report, format);
    return 0;
}

int RunScan(ScanJobArgs a, const std::vector<double>& backsight, kelscan_cli::Format format) {
    ApplyBacksight(a, backsight);
    if ((a.fine > 0.0) == (a.track > 0.0)) return Fail("give one of --fine or --track");
    if (a.fine < 0.0 || a.track < 0.0) return Fail("a spacing must be positive");
    return RunJob(a, false, format);
}

int ResumeScan(const std::string& dir, kelscan_cli::Format format) {
    ScanJobArgs a;
    std::error_code ec;
    if (!std::filesystem::is_regular_file(dir + "/" + kJobFile, ec))
        return Fail(dir + " holds no scan job (" + kJobFile +
                    "): give the --out folder of a kelscan scan run");
    const std::string error = ReadJob(dir + "/" + kJobFile, a);
    if (!error.empty()) return Fail(error);
    a.out = dir;
    return RunJob(a, true, format);
}

void Setup(CLI::App& app) {
    CLI::App* scan = app.add_subcommand(
        "scan", "The main job: photograph, orientation, region, plan, scan, record");
    scan->require_subcommand(1);

    static ScanJobArgs angleArgs;
    static std::vector<double> angleBacksight;
    static std::vector<std::string> pixelTexts;
    static std::string pixelsFile;
    static kelscan_cli::Format angleFormat = kelscan_cli::Format::kText;
    CLI::App* angles = scan->add_subcommand(
        "angles",
        "Instrument angles H, V (degrees) of pixels, through the oriented camera and "
        "the surface");
    AddOrientOptions(angles, angleArgs, angleBacksight);
    angles->add_option("--pixel", pixelTexts, "A pixel COLUMN,ROW (repeatable)")
        ->delimiter(',')
        ->type_name("COLUMN,ROW");
    angles->add_option("--pixels", pixelsFile, "Pixels: [name,]column,row per row");
    kelscan_cli::AddFormatOption(angles, angleFormat);
    angles->callback([]() {
        SetExit(RunAngles(angleArgs, angleBacksight, pixelTexts, pixelsFile, angleFormat));
    });

    static ScanJobArgs runArgs;
    static std::vector<double> runBacksight;
    static kelscan_cli::Format runFormat = kelscan_cli::Format::kText;
    CLI::App* run = scan->add_subcommand(
        "run",
        "Orient the camera, plan the region drawn on the photograph, scan it with the "
        "simulated instrument and record it in --out");
    AddOrientOptions(run, runArgs, runBacksight);
    run->add_option("--region", runArgs.region,
                    "The region drawn on the photograph: column,row per vertex (pixels)")
        ->required();
    kelscan_cli::AddNumberOption(run, "--fine", runArgs.fine,
                                 "A fine scan, targets this far apart on the ground (m)");
    kelscan_cli::AddNumberOption(run, "--track", runArgs.track,
                                 "A tracking scan, lines and points this far apart (m)");
    run->add_option("--speed", runArgs.speed, "The tracking scan's rotation-speed setting (1..127)")
        ->capture_default_str()
        ->check(CLI::Range(1, 127));
    run->add_option("--out", runArgs.out, "Folder of the scan's files (made when missing)")
        ->required();
    run->add_option("--truth", runArgs.truth,
                    "The surface the simulated instrument measures (default: --surface)");
    static std::vector<double> noise;
    kelscan_cli::AddNumbersOption(run, "--noise", noise, 2,
                                  "The simulated instrument's noise: angles (degrees) and "
                                  "distance (m), one sigma");
    run->add_option("--seed", runArgs.seed, "Seed of the simulated noise")->capture_default_str();
    run->add_option("--interrupt-after", runArgs.interruptAfter,
                    "End the process at once after this many shots (exit status 3), as a power "
                    "failure would, to try `scan resume`")
        ->check(CLI::PositiveNumber);
    kelscan_cli::AddFormatOption(run, runFormat);
    run->callback([]() {
        if (noise.size() == 2) {
            runArgs.angleSigma = noise[0];
            runArgs.distanceSigma = noise[1];
        }
        SetExit(RunScan(runArgs, runBacksight, runFormat));
    });

    static std::string resumeDir;
    static kelscan_cli::Format resumeFormat = kelscan_cli::Format::kText;
    CLI::App* resume = scan->add_subcommand(
        "resume",
        "Continue the interrupted scan recorded in DIR, from the shot after the last "
        "one stored");
    resume->add_option("DIR", resumeDir, "The scan's folder (--out of scan run)")->required();
    kelscan_cli::AddFormatOption(resume, resumeFormat);
    resume->callback([]() { SetExit(ResumeScan(resumeDir, resumeFormat)); });
}

kelscan_cli::CommandRegistrar reg("scan", &Setup);

}  // namespace

namespace {

// ---- kelscan demo: the main job on the bundled site -----------------------------------------

std::string SiteNumbers(const std::string& path, std::map<std::string, std::string>& kv) {
    return ReadKeyValues(path, kv);
}

double Get(const std::map<std::string, std::string>& kv, const std::string& key) {
    double v = 0.0;
    const auto it = kv.find(key);
    if (it != kv.end()) kelscan_cli::ParseDouble(it->second, v);
    return v;
}

// A report in text, each line indented under its step.
void PrintIndented(std::ostream& out, const Report& report) {
    std::ostringstream text;
    kelscan_cli::PrintReport(text, report, kelscan_cli::Format::kText);
    std::istringstream lines(text.str());
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) out << "   " << line << '\n';
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string site = dataDir + "/site/";
    std::map<std::string, std::string> job, truth;
    std::string e = SiteNumbers(site + "site.csv", job);
    if (e.empty()) e = SiteNumbers(site + "truth.csv", truth);
    if (!e.empty()) return Fail(e);

    ScanJobArgs a;
    a.camera = site + "camera.cam";
    a.photo = site + "photo.jpg";
    a.object = site + "control_object.csv";
    a.image = site + "control_seeds.csv";
    a.refine = true;
    a.surface = site + "survey.csv";
    a.truth = site + "terrain_true.csv";
    a.region = site + "region.csv";
    a.station = {Get(job, "station_north_m"), Get(job, "station_east_m"),
                 Get(job, "station_height_m")};
    a.height = Get(job, "instrument_height_m");
    a.bsAzimuth = Get(job, "backsight_azimuth_deg");
    a.bsReading = Get(job, "backsight_reading_deg");
    a.fine = Get(job, "fine_spacing_m");
    a.track = Get(job, "track_spacing_m");
    a.angleSigma = Get(truth, "angle_sigma_deg");
    a.distanceSigma = Get(truth, "distance_sigma_m");
    a.seed = static_cast<unsigned>(Get(truth, "seed"));
    a.out = kelscan_cli::DemoOutDir();

    out << "Site: " << site << "\n";
    out << "1. Photograph " << a.photo << ", camera " << a.camera << "\n";
    ScanJob scanJob(a);
    Report orient;
    if (const int rc = scanJob.Orient(orient)) return rc;
    out << "   " << scanJob.PhotoWidth() << " x " << scanJob.PhotoHeight() << " pixels\n";

    // Target centres against the true image positions the site was drawn with.
    std::vector<kelscan_cli::CsvRow> truePx;
    if (!kelscan_cli::ReadCsvRows(
            site + "control_truth.csv",
            kelscan_cli::CsvShape{{2}, kelscan_cli::CsvShape::kName, "name,column,row"}, truePx, e))
        return Fail(e);
    double worstPx = 0.0;
    for (const auto& p : scanJob.Control())
        for (const auto& t : truePx)
            if (t.name == p.name)
                worstPx =
                    std::max(worstPx, std::hypot(p.column - t.values[0], p.row - t.values[1]));
    out << "2. Target centres by image moments from " << scanJob.Control().size()
        << " clicks: largest error against the truth " << Fixed(worstPx, 3) << " px\n";

    // The orientation against the camera's true pose.
    const CSinOriToTin& ori = *scanJob.Project().GetSinOriToTin();
    CXYZ centre = ori.GetCentre();
    CCalcXYZHV::CnvMathToSoku(centre);
    const double dc = std::sqrt(std::pow(centre.x - Get(truth, "camera_north_m"), 2) +
                                std::pow(centre.y - Get(truth, "camera_east_m"), 2) +
                                std::pow(centre.z - Get(truth, "camera_height_m"), 2));
    // Angle of the rotation between the solved and the true camera: acos((trace(R Rt^T) - 1) / 2).
    double trace = 0.0;
    for (int i = 0; i < 3; ++i)
        for (int k = 0; k < 3; ++k)
            trace += ori.GetRot().m[3 * i + k] *
                     Get(truth, "r" + std::to_string(i + 1) + std::to_string(k + 1));
    const double dAngle =
        std::acos(std::clamp((trace - 1.0) / 2.0, -1.0, 1.0)) * kel_math::kRadToDeg;
    out << "3. Camera oriented from the control (multi-start resection):\n";
    PrintIndented(out, orient);
    out << "   against the true pose: centre off by " << Fixed(dc * 1000.0, 1)
        << " mm, rotation off by " << Fixed(dAngle, 5) << " deg\n";

    Report plans;
    if (const int rc = scanJob.PlanBoth(a.fine, a.track, plans)) return rc;
    out << "4. Region " << a.region << " (" << scanJob.Region().GetVertexSize()
        << " vertices) planned through the surface of " << a.surface << ":\n";
    PrintIndented(out, plans);

    Report scanned;
    CKelScanProject::CXYZArray measured;
    if (const int rc = scanJob.Scan(false, scanned, measured)) return rc;
    out << "5. Fine scan run against the simulated instrument (noise " << Fixed(a.angleSigma, 4)
        << " deg, " << Fixed(a.distanceSigma, 3) << " m) and recorded:\n";
    PrintIndented(out, scanned);
    Report after;
    if (const int rc = scanJob.Finish(measured, a.truth, after)) return rc;
    out << "6. Surface of the measured points against the true terrain, and the pictures:\n";
    PrintIndented(out, after);
    out << "Done: the photograph oriented, the region planned, scanned and recorded in " << a.out
        << "/ (scan.dbs, scan.txt, temp/SDB.log, picture.png, plan.svg, surface.xml).\n";
    return 0;
}

kelscan_cli::DemoRegistrar demo(0, "The main job on the synthetic site", &Demo);

}  // namespace
