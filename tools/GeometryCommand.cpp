// kelscan angles ... and kelscan polygon ...: instrument angles and scan-region polygons.
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "geometry/CalcXYZHV.h"
#include "geometry/Polyline.h"
#include "platform/Message.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;

// Decimals of a packed DDD.MMSS angle: the library packs the seconds with 5 decimals.
constexpr int kDmsPlaces = 9;

// XYZToHV reports a vertical sight through a message box; the program turns it into its own
// one-line failure instead of the default "caption: text" line.
int CountMessage(void* context, HWND, const wchar_t*, const wchar_t*, unsigned int) {
    ++*static_cast<int*>(context);
    return 1;
}

struct HvRow {
    std::string name;
    double h = 0.0;
    double v = 0.0;
};

// Angles from station to every target; false with a message for a target straight above or
// below the station.
bool ComputeAngles(const CXYZ& station, const std::vector<kelscan_cli::CsvRow>& targets,
                   double height, std::vector<HvRow>& out, std::string& error) {
    int boxes = 0;
    kel_message::SetMessageSink(&CountMessage, &boxes);
    bool ok = true;
    for (const auto& t : targets) {
        HvRow row;
        row.name = t.name;
        if (CCalcXYZHV::XYZToHV(station, CXYZ(t.values[0], t.values[1], t.values[2]), height, row.v,
                                row.h) != 1) {
            const std::string who = !t.name.empty() ? "target " + t.name
                                    : t.line > 0    ? "the target at line " + std::to_string(t.line)
                                                    : "the target";
            error = who + " is straight above or below the station";
            ok = false;
            break;
        }
        out.push_back(row);
    }
    kel_message::SetMessageSink(nullptr, nullptr);
    return ok;
}

kelscan_cli::Report AnglesReport(const std::vector<HvRow>& rows) {
    using kelscan_cli::Value;
    kelscan_cli::Table t{"targets", {"name", "H_deg", "V_deg", "H_dddmmss", "V_dddmmss"}, {}};
    for (const auto& r : rows)
        t.rows.push_back({Value::Text(r.name), Value::Num(r.h, 6), Value::Num(r.v, 6),
                          Value::Num(CCalcXYZHV::Angle100To60(r.h, 1), kDmsPlaces),
                          Value::Num(CCalcXYZHV::Angle100To60(r.v, 1), kDmsPlaces)});
    kelscan_cli::Report report;
    report.tables.push_back(t);
    return report;
}

// A stations file: the first row is the station, the others are targets (name,north,east,
// height).
int ReadStations(const std::string& path, CXYZ& station,
                 std::vector<kelscan_cli::CsvRow>& targets) {
    std::string error;
    const kelscan_cli::CsvShape shape{
        {3}, kelscan_cli::CsvShape::kOptionalName, "[name,]north,east,height"};
    if (!kelscan_cli::ReadCsvRows(path, shape, targets, error)) return Fail(error);
    if (targets.size() < 2) return Fail(path + ": need a station row and at least one target");
    const auto& s = targets.front();
    station = CXYZ(s.values[0], s.values[1], s.values[2]);
    targets.erase(targets.begin());
    return 0;
}

int ReadPolygon(const std::string& path, CPolyline& pl) {
    return kelscan_cli::ReadPolygonCsv(path, "a polygon", pl);
}

void SetupAngles(CLI::App& app) {
    CLI::App* angles = app.add_subcommand("angles", "Instrument angles and angle formats");
    angles->require_subcommand(1);

    struct HvArgs {
        std::vector<double> station, target;
        std::string file;
        double height = 0.0;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static HvArgs hv;
    CLI::App* hvCmd = angles->add_subcommand(
        "hv", "Horizontal angle H and zenith angle V from a station to targets");
    kelscan_cli::AddNumbersOption(hvCmd, "--station", hv.station, 3,
                                  "Station north east height (m)");
    kelscan_cli::AddNumbersOption(hvCmd, "--target", hv.target, 3, "Target north east height (m)");
    hvCmd->add_option("--file", hv.file,
                      "CSV [name,]north,east,height (m): first row the station, then the "
                      "targets; - reads standard input");
    kelscan_cli::AddNumberOption(hvCmd, "--height", hv.height,
                                 "Instrument height added to the station (m)");
    kelscan_cli::AddFormatOption(hvCmd, hv.format);
    hvCmd->callback([]() {
        CXYZ station;
        std::vector<kelscan_cli::CsvRow> targets;
        if (!hv.file.empty()) {
            if (!hv.station.empty() || !hv.target.empty())
                return SetExit(Fail("give either --file or --station with --target"));
            if (const int rc = ReadStations(hv.file, station, targets)) return SetExit(rc);
        } else {
            if (hv.station.size() != 3 || hv.target.size() != 3)
                return SetExit(Fail("give --station N E Z and --target N E Z, or --file"));
            station = CXYZ(hv.station[0], hv.station[1], hv.station[2]);
            kelscan_cli::CsvRow t;
            t.values = hv.target;
            targets.push_back(t);
        }
        std::vector<HvRow> rows;
        std::string error;
        if (!ComputeAngles(station, targets, hv.height, rows, error)) return SetExit(Fail(error));
        kelscan_cli::PrintReport(std::cout, AnglesReport(rows), hv.format);
        SetExit(0);
    });

    struct ConvertArgs {
        std::string value, to;
        bool reduce = false;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static ConvertArgs cv;
    CLI::App* cvCmd = angles->add_subcommand(
        "convert", "Convert an angle between decimal degrees and packed DDD.MMSS");
    cvCmd->add_option("value", cv.value, "The angle")->required();
    cvCmd->add_option("--to", cv.to, "dms (from decimal degrees) or deg (from DDD.MMSS)")
        ->required()
        ->check(CLI::IsMember({"dms", "deg"}));
    cvCmd->add_flag("--reduce", cv.reduce, "Reduce into [0, 360) first");
    kelscan_cli::AddFormatOption(cvCmd, cv.format);
    cvCmd->callback([]() {
        double v = 0.0;
        if (!kelscan_cli::ParseDouble(cv.value, v))
            return SetExit(Fail("\"" + cv.value + "\" is not a number"));
        const int mode = cv.reduce ? 1 : 0;
        const bool toDms = cv.to == "dms";
        const double out =
            toDms ? CCalcXYZHV::Angle100To60(v, mode) : CCalcXYZHV::Angle60To100(v, mode);
        const kelscan_cli::Value value = kelscan_cli::Value::Num(out, 9);
        if (cv.format == kelscan_cli::Format::kText) {
            std::cout << Fixed(out, 9) << '\n';
        } else {
            kelscan_cli::Report report;
            report.Add("angle", toDms ? "dddmmss" : "deg", value);
            kelscan_cli::PrintReport(std::cout, report, cv.format);
        }
        SetExit(0);
    });
}

void SetupPolygon(CLI::App& app) {
    CLI::App* poly = app.add_subcommand("polygon", "Scan-region polygons");
    poly->require_subcommand(1);

    struct InsideArgs {
        std::string file, pointsFile;
        std::vector<std::string> points;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static InsideArgs in;
    CLI::App* inCmd = poly->add_subcommand("inside", "Is each point inside the polygon?");
    inCmd->add_option("polygon", in.file, "Polygon CSV: x,y[,z] per vertex")->required();
    inCmd->add_option("--point", in.points, "A point x,y (repeatable)");
    inCmd->add_option("--points", in.pointsFile,
                      "CSV of points [name,]x,y; - reads standard input");
    kelscan_cli::AddFormatOption(inCmd, in.format);
    inCmd->callback([]() {
        CPolyline pl;
        if (const int rc = ReadPolygon(in.file, pl)) return SetExit(rc);
        std::vector<kelscan_cli::CsvRow> pts;
        for (const auto& text : in.points) {
            const auto f = kelscan_cli::SplitCsv(text);
            kelscan_cli::CsvRow r;
            double x = 0.0, y = 0.0;
            if (f.size() != 2 || !kelscan_cli::ParseDouble(f[0], x) ||
                !kelscan_cli::ParseDouble(f[1], y))
                return SetExit(Fail("--point \"" + text + "\" is not x,y"));
            r.values = {x, y};
            pts.push_back(r);
        }
        if (!in.pointsFile.empty()) {
            std::vector<kelscan_cli::CsvRow> more;
            std::string error;
            const kelscan_cli::CsvShape shape{
                {2}, kelscan_cli::CsvShape::kOptionalName, "[name,]x,y"};
            if (!kelscan_cli::ReadCsvRows(in.pointsFile, shape, more, error))
                return SetExit(Fail(error));
            pts.insert(pts.end(), more.begin(), more.end());
        }
        if (pts.empty()) return SetExit(Fail("give --point X,Y or --points FILE"));
        using kelscan_cli::Value;
        kelscan_cli::Table t{"points", {"name", "x", "y", "inside"}, {}};
        for (const auto& p : pts)
            t.rows.push_back(
                {Value::Text(p.name), Value::Num(p.values[0], 6), Value::Num(p.values[1], 6),
                 Value::Text(pl.PtInPolyline(p.values[0], p.values[1]) ? "inside" : "outside")});
        kelscan_cli::Report report;
        report.tables.push_back(t);
        kelscan_cli::PrintReport(std::cout, report, in.format);
        SetExit(0);
    });

    struct SplineArgs {
        std::string file, kind = "bspline";
        int samples = 4;
        bool open = false;
        kelscan_cli::Format format = kelscan_cli::Format::kText;
    };
    static SplineArgs sp;
    CLI::App* spCmd = poly->add_subcommand("spline", "Replace a polygon by a sampled curve");
    spCmd->add_option("polygon", sp.file, "Polygon CSV: x,y[,z] per vertex")->required();
    spCmd->add_option("--kind", sp.kind, "bspline or catmull-rom")
        ->check(CLI::IsMember({"bspline", "catmull-rom"}))
        ->capture_default_str();
    spCmd->add_option("--samples", sp.samples, "Samples per span (at least 1)")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    spCmd->add_flag("--open", sp.open, "Treat the chain as open (default: closed)");
    kelscan_cli::AddFormatOption(spCmd, sp.format);
    spCmd->callback([]() {
        CPolyline pl;
        if (const int rc = ReadPolygon(sp.file, pl)) return SetExit(rc);
        if (sp.open) pl.Open();
        if (sp.kind == "bspline")
            pl.Spline(sp.samples);
        else
            pl.CtmlRomSpline(sp.samples);
        using kelscan_cli::Value;
        kelscan_cli::Table t{"vertices", {"x", "y", "z"}, {}};
        for (int i = 0; i < pl.GetVertexSize(); ++i) {
            const CVertex* v = pl.GetVertex(static_cast<unsigned int>(i));
            t.rows.push_back({Value::Num(v->x, 6), Value::Num(v->y, 6), Value::Num(v->z, 6)});
        }
        kelscan_cli::Report report;
        report.tables.push_back(t);
        kelscan_cli::PrintReport(std::cout, report, sp.format);
        SetExit(0);
    });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    CXYZ station;
    std::vector<kelscan_cli::CsvRow> targets;
    if (const int rc = ReadStations(dataDir + "/stations.csv", station, targets)) return rc;
    std::vector<HvRow> rows;
    std::string error;
    if (!ComputeAngles(station, targets, 1.55, rows, error)) return Fail(error);
    out << "Angles from the station of stations.csv (instrument height 1.55 m):\n";
    kelscan_cli::PrintReport(out, AnglesReport(rows), kelscan_cli::Format::kText);

    CPolyline pl;
    if (const int rc = ReadPolygon(dataDir + "/outline.csv", pl)) return rc;
    out << "\nScan-region outline.csv: " << pl.GetVertexSize() << " vertices, turn "
        << pl.CheckTurn() << ", perimeter " << Fixed(pl.GetTotalLengthXY(), 3) << '\n';
    CPolyline smooth = pl;
    smooth.Spline(8);
    out << "B-spline, 8 samples per span: " << smooth.GetVertexSize() << " vertices, perimeter "
        << Fixed(smooth.GetTotalLengthXY(), 3) << '\n';
    const double probes[][2] = {{300, 250}, {100, 100}, {540, 300}};
    for (const auto& p : probes)
        out << "  (" << Fixed(p[0], 0) << ", " << Fixed(p[1], 0) << ") is "
            << (pl.PtInPolyline(p[0], p[1]) ? "inside" : "outside") << " the outline, "
            << (smooth.PtInPolyline(p[0], p[1]) ? "inside" : "outside") << " the smoothed one\n";
    return 0;
}

void Setup(CLI::App& app) {
    SetupAngles(app);
    SetupPolygon(app);
}

kelscan_cli::CommandRegistrar reg("geometry", &Setup);
kelscan_cli::DemoRegistrar demo(10, "Instrument angles and the scan-region outline", &Demo);

}  // namespace
