// kelscan plan fine ... and kelscan plan track ...: fine-scan targets and tracking-scan lines
// over an angular box or a region, their time estimates, and an SVG drawing of the plan.
#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "platform/NumText.h"
#include "geometry/CalcXYZHV.h"
#include "geometry/Polyline.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;

// The fine planner's time is N (6.4 - 0.00075 N) s (plus the set-up): it is largest at
// N = 6.4 / 0.0015 = 4266.7 and falls for more targets, and above 8533 targets the per-target
// time is no longer positive, so no estimate is given there.
constexpr int kMaxRisingTargets = 4266;
constexpr int kMaxTimedTargets = 8533;

// Zenith angles lie in 0..180 degrees.
constexpr double kMaxZenith = 180.0;

std::string Clock(int seconds) { return kel_text::WideToUtf8(CCalcXYZHV::ByoToStr(seconds)); }

// The options both planners share.
struct BoxArgs {
    std::vector<double> start, end, spacing;
    std::string region, svg;
    bool dms = false;
    kelscan_cli::Format format = kelscan_cli::Format::kText;
};

void AddBoxOptions(CLI::App* cmd, BoxArgs& a) {
    kelscan_cli::AddNumbersOption(cmd, "--start", a.start, 2, "Start V H (degrees)")->required();
    kelscan_cli::AddNumbersOption(cmd, "--end", a.end, 2, "End V H (degrees)")->required();
    kelscan_cli::AddNumbersOption(cmd, "--spacing", a.spacing, 2, "Spacing DV DH (degrees)")
        ->required();
    cmd->add_flag("--dms", a.dms, "Angles and spacing are packed DDD.MMSS");
    cmd->add_option("--region", a.region,
                    "Region CSV, x,y per vertex; its bounding box maps onto the box");
    cmd->add_option("-o,--svg", a.svg, "Draw the plan into this SVG file (- for stdout)");
    kelscan_cli::AddFormatOption(cmd, a.format);
}

// The box and spacing as numbers: start V, start H, end V, end H, dV, dH; zenith angles out of
// 0..180 are bad input.
int ParseBox(const BoxArgs& a, double (&box)[6]) {
    const std::vector<double>* groups[] = {&a.start, &a.end, &a.spacing};
    for (int g = 0; g < 3; ++g)
        for (int k = 0; k < 2; ++k) box[2 * g + k] = (*groups[g])[static_cast<std::size_t>(k)];
    const char* names[] = {"--start", "--end"};
    for (int g = 0; g < 2; ++g) {
        const double v = a.dms ? CCalcXYZHV::Angle60To100(box[2 * g], 0) : box[2 * g];
        if (v < 0.0 || v > kMaxZenith)
            return Fail(std::string(names[g]) + ": zenith angle " + kel_num::Exact(box[2 * g]) +
                        " is outside 0..180 degrees");
    }
    return 0;
}

// A horizontal angle as printed: reduced into [0, 360) (the planners count on past 360 across
// north).
kelscan_cli::Value HValue(double h) {
    CCalcXYZHV::Angle0To360(h);
    return kelscan_cli::Value::Num(h, 6);
}

int ReadRegion(const std::string& path, CPolyline& pl) {
    return kelscan_cli::ReadPolygonCsv(path, "a region", pl);
}

// Sets up a planner's box, spacing (through setSpacing) and region from the arguments.
template <class Planner, class SetSpacing>
int LoadPlanner(const BoxArgs& a, Planner& p, SetSpacing setSpacing) {
    double box[6];
    if (const int rc = ParseBox(a, box)) return rc;
    const int unit = a.dms ? 0 : 1;
    p.SetSEVH(box[0], box[1], box[2], box[3], unit);
    setSpacing(box[4], box[5], unit);
    if (!a.region.empty())
        if (const int rc = ReadRegion(a.region, p.m_polyline)) return rc;
    return 0;
}

// An SVG drawing of a plan in the angular frame: H to the right, V (zenith angle) downwards,
// so the picture stands as the instrument sees it.
class SvgPlan {
public:
    void Extend(double h, double v) {
        m_minH = std::min(m_minH, h);
        m_maxH = std::max(m_maxH, h);
        m_minV = std::min(m_minV, v);
        m_maxV = std::max(m_maxV, v);
    }
    // The region mapped onto the planner's (direction-ruled) box.
    void Region(const CCleverScanBase& p) {
        if (p.m_polyline.GetVertexSize() < 3) return;
        double x0, x1, y0, y1, z0, z1;
        p.m_polyline.GetRange(x0, x1, y0, y1, z0, z1);
        for (int i = 0; i < p.m_polyline.GetVertexSize(); ++i) {
            const CVertex* v = p.m_polyline.GetVertex(static_cast<unsigned int>(i));
            const double h = (v->x - x0) / (x1 - x0) * (p.m_endH - p.m_startH) + p.m_startH;
            const double vv = (v->y - y0) / (y1 - y0) * (p.m_endV - p.m_startV) + p.m_startV;
            m_region.push_back({h, vv});
            Extend(h, vv);
        }
    }
    void Path(double h, double v) {
        m_path.push_back({h, v});
        Extend(h, v);
    }
    void Sweep(double v, double h0, double h1) {
        m_sweeps.push_back({v, h0, h1});
        Extend(h0, v);
        Extend(h1, v);
    }
    void Title(const std::string& t) { m_title = t; }

    bool Write(std::ostream& out) const {
        const double spanH = std::max(m_maxH - m_minH, 1e-9),
                     spanV = std::max(m_maxV - m_minV, 1e-9);
        const double scale = kSize / std::max(spanH, spanV);
        const double width = spanH * scale + 2 * kMargin, height = spanV * scale + 2 * kMargin;
        auto X = [&](double h) { return Fixed(kMargin + (h - m_minH) * scale, 2); };
        auto Y = [&](double v) { return Fixed(kMargin + (v - m_minV) * scale, 2); };
        out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Fixed(width, 0)
            << "\" height=\"" << Fixed(height + 20, 0) << "\">\n"
            << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
        if (!m_region.empty()) {
            out << "<polygon fill=\"#dde8f6\" stroke=\"#3060a0\" stroke-width=\"1.5\" points=\"";
            for (const auto& p : m_region) out << X(p[0]) << ',' << Y(p[1]) << ' ';
            out << "\"/>\n";
        }
        if (m_path.size() > 1) {
            out << "<polyline fill=\"none\" stroke=\"#909090\" stroke-width=\"0.8\" points=\"";
            for (const auto& p : m_path) out << X(p[0]) << ',' << Y(p[1]) << ' ';
            out << "\"/>\n";
        }
        for (const auto& s : m_sweeps)
            out << "<line x1=\"" << X(s[1]) << "\" y1=\"" << Y(s[0]) << "\" x2=\"" << X(s[2])
                << "\" y2=\"" << Y(s[0]) << "\" stroke=\"#c03020\" stroke-width=\"2\"/>\n";
        if (m_sweeps.empty())
            for (const auto& p : m_path)
                out << "<circle cx=\"" << X(p[0]) << "\" cy=\"" << Y(p[1])
                    << "\" r=\"1.8\" fill=\"#c03020\"/>\n";
        if (!m_path.empty())
            out << "<circle cx=\"" << X(m_path.front()[0]) << "\" cy=\"" << Y(m_path.front()[1])
                << "\" r=\"4\" fill=\"none\" stroke=\"#208030\" stroke-width=\"2\"/>\n";
        out << "<text x=\"" << Fixed(kMargin, 0) << "\" y=\"" << Fixed(height + 10, 0)
            << "\" font-family=\"sans-serif\" font-size=\"12\">" << m_title << " (H "
            << Fixed(m_minH, 3) << ".." << Fixed(m_maxH, 3) << " right, V " << Fixed(m_minV, 3)
            << ".." << Fixed(m_maxV, 3) << " down; start circled)</text>\n</svg>\n";
        return static_cast<bool>(out);
    }

private:
    static constexpr double kSize = 800.0;   // pixels along the longer side of the plan
    static constexpr double kMargin = 20.0;  // pixels
    double m_minH = 1e300, m_maxH = -1e300, m_minV = 1e300, m_maxV = -1e300;
    std::vector<std::array<double, 2>> m_region, m_path;
    std::vector<std::array<double, 3>> m_sweeps;
    std::string m_title;
};

// Writes the drawing when --svg was given; 0 or Fail's status.
int WriteSvg(const BoxArgs& a, const SvgPlan& svg) {
    if (a.svg.empty()) return 0;
    return kelscan_cli::WriteOutputStream(a.svg, {a.region},
                                          [&](std::ostream& o) { return svg.Write(o); });
}

// Plans the fine scan into report.
int RunFine(const BoxArgs& a, int mode, kelscan_cli::Report& report) {
    using kelscan_cli::Value;
    CCleverFineScan fs;
    if (const int rc =
            LoadPlanner(a, fs, [&](double dv, double dh, int u) { fs.SetDVH(dv, dh, u); }))
        return rc;
    const int n = fs.CalcPtAngle(true);
    if (n == 0)
        return Fail(
            "nothing planned: the region or the box has no extent, or the grid is too "
            "large");
    const int seconds = fs.CalcTime(static_cast<CCleverFineScan::EMeasMode>(mode),
                                    CCleverFineScan::INSTRUMENT_HALVEX);
    SvgPlan svg;
    svg.Region(fs);
    kelscan_cli::Table t{"plan", {"index", "H_deg", "V_deg"}, {}};
    double h = 0.0, v = 0.0;
    for (int i = 0; fs.NextPt(h, v) == 1; ++i) {
        t.rows.push_back({Value::Int(i), HValue(h), Value::Num(v, 6)});
        svg.Path(h, v);
    }
    report.Add("targets", "", Value::Int(n));
    if (n > kMaxTimedTargets) {
        report.Add("time_warning", "",
                   Value::Text("not estimated: more than " + std::to_string(kMaxTimedTargets) +
                               " targets"));
    } else {
        report.Add("time", "s", Value::Int(seconds), " (" + Clock(seconds) + ")");
        if (n > kMaxRisingTargets)
            report.Add("time_warning", "",
                       Value::Text("an underestimate: the time formula falls for more than " +
                                   std::to_string(kMaxRisingTargets) + " targets"));
    }
    report.tables.push_back(t);
    svg.Title("fine scan, " + std::to_string(n) + " targets");
    return WriteSvg(a, svg);
}

int RunTrack(const BoxArgs& a, int speed, bool quorin, kelscan_cli::Report& report) {
    using kelscan_cli::Value;
    const int maxSpeed = quorin ? CCleverTrkScan::kMaxSpeedQuorin : CCleverTrkScan::kMaxSpeedHalvex;
    if (speed < 1 || speed > maxSpeed)
        return Fail("--speed " + std::to_string(speed) + " is outside 1.." +
                    std::to_string(maxSpeed) + " for the " + (quorin ? "quorin" : "halvex") +
                    " family");
    CCleverTrkScan ts;
    if (const int rc =
            LoadPlanner(a, ts, [&](double dv, double dh, int u) { ts.SetDVH(dv, dh, speed, u); }))
        return rc;
    const int n = ts.CalcLineAngle(true);
    if (n == 0)
        return Fail(
            "nothing planned: the region or the box has no extent, or there are too many "
            "lines");
    const int seconds = ts.CalcTime(quorin);
    SvgPlan svg;
    svg.Region(ts);
    kelscan_cli::Table t{"plan", {"line", "V_deg", "start_H_deg", "end_H_deg"}, {}};
    for (int i = 0; i < n; ++i) {
        t.rows.push_back({Value::Int(i), Value::Num(ts.m_lineV[i], 6), HValue(ts.m_lineStartH[i]),
                          HValue(ts.m_lineEndH[i])});
        svg.Path(ts.m_lineStartH[i], ts.m_lineV[i]);
        svg.Path(ts.m_lineEndH[i], ts.m_lineV[i]);
        svg.Sweep(ts.m_lineV[i], ts.m_lineStartH[i], ts.m_lineEndH[i]);
    }
    const double rate = quorin ? CCleverTrkScan::DegreesFromSpeed_Quorin(speed)
                               : CCleverTrkScan::DegreesFromSpeed_Halvex(speed);
    report.Add("lines", "", Value::Int(n));
    report.Add("points", "", Value::Int(ts.m_totalPoints));
    report.Add("time", "s", Value::Int(seconds), " (" + Clock(seconds) + ")");
    report.Add("speed", "", Value::Int(speed));
    report.Add("rate", "deg/s", Value::Num(rate, 6));
    report.tables.push_back(t);
    svg.Title("tracking scan, " + std::to_string(n) + " lines");
    return WriteSvg(a, svg);
}

// Runs a planner and prints its report only when the plan and its drawing succeeded.
template <class Run>
void RunAndPrint(const BoxArgs& a, Run run) {
    kelscan_cli::Report report;
    const int rc = run(report);
    if (rc == 0) kelscan_cli::PrintReport(kelscan_cli::ReportStream(a.svg), report, a.format);
    SetExit(rc);
}

void Setup(CLI::App& app) {
    CLI::App* plan = app.add_subcommand("plan", "Scan planning: fine-scan targets, tracking lines");
    plan->require_subcommand(1);

    static BoxArgs fine;
    static std::string fineMode = "0";
    CLI::App* fineCmd = plan->add_subcommand(
        "fine", "Targets (H, V) of a fine scan in measuring order, and its time");
    AddBoxOptions(fineCmd, fine);
    fineCmd->add_option("--mode", fineMode,
                        "Measuring mode: 0 a fresh scan (adds 60 s set-up), 1 already set up");
    fineCmd->callback([]() {
        int mode = 0;
        if (!kelscan_cli::ParseInt(fineMode, mode) || (mode != 0 && mode != 1))
            return SetExit(Fail("--mode \"" + fineMode + "\" is not 0 or 1"));
        RunAndPrint(fine, [&](kelscan_cli::Report& r) { return RunFine(fine, mode, r); });
    });

    static BoxArgs track;
    static std::string trackSpeed, family;
    CLI::App* trackCmd = plan->add_subcommand(
        "track", "Sweep lines (V, start H, end H) of a tracking scan, and its time");
    AddBoxOptions(trackCmd, track);
    trackCmd->add_option("--speed", trackSpeed, "Rotation-speed setting of the instrument")
        ->required();
    trackCmd->add_option("--family", family, "Instrument family: halvex or quorin")
        ->required()
        ->check(CLI::IsMember({"halvex", "quorin"}));
    trackCmd->callback([]() {
        int speed = 0;
        if (!kelscan_cli::ParseInt(trackSpeed, speed))
            return SetExit(Fail("--speed \"" + trackSpeed + "\" is not a whole number"));
        RunAndPrint(track, [&](kelscan_cli::Report& r) {
            return RunTrack(track, speed, family == "quorin", r);
        });
    });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    CPolyline region;
    if (const int rc = ReadRegion(dataDir + "/region.csv", region)) return rc;
    CCleverFineScan fs;
    // The region's y runs up the image, and its min y maps onto start V: the lower edge of the
    // box (the larger zenith angle) is the start. H runs across north: 350 .. 380.
    fs.SetSEVH(95.0, 350.0, 80.0, 20.0, 1);
    fs.SetDVH(0.5, 0.5, 1);
    fs.m_polyline = region;
    const int n = fs.CalcPtAngle(true);
    if (n == 0) return Fail("demo: the fine plan over region.csv is empty");
    const int t =
        fs.CalcTime(CCleverFineScan::MEAS_MODE_NORMAL, CCleverFineScan::INSTRUMENT_HALVEX);
    out << "Fine scan over region.csv, box V 95..80, H 350..20 (across north), spacing 0.5 deg:\n"
        << "  " << n << " targets, time " << t << " s (" << Clock(t)
        << ") including the 60 s set-up\n";
    double h = 0.0, v = 0.0;
    out << "  first targets (H, V):";
    for (int i = 0; i < 3 && fs.NextPt(h, v) == 1; ++i)
        out << " (" << Fixed(h, 2) << ", " << Fixed(v, 2) << ")";
    out << '\n';

    CCleverTrkScan ts;
    ts.SetSEVH(95.0, 350.0, 80.0, 20.0, 1);
    ts.SetDVH(0.5, 0.05, 40, 1);
    ts.m_polyline = region;
    const int lines = ts.CalcLineAngle(true);
    const int halvex = ts.CalcTime(false);
    out << "Tracking scan over the same region, 0.05 deg along the lines: " << lines << " lines, "
        << ts.m_totalPoints << " points, " << halvex << " s (" << Clock(halvex)
        << ") at halvex speed 40";
    ts.SetDVH(0.5, 0.05, 12, 1);
    const int quorin = ts.CalcRemainingTime(true);
    out << ", " << quorin << " s (" << Clock(quorin) << ") at quorin speed 12\n";
    return 0;
}

kelscan_cli::CommandRegistrar reg("plan", &Setup);
kelscan_cli::DemoRegistrar demo(40, "Scan planning over the sample region", &Demo);

}  // namespace
