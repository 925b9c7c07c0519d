// kelscan plan fine ... and kelscan plan track ...: fine-scan targets and tracking-scan lines
// over an angular box or a region, their time estimates, and an SVG drawing of the plan.
#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "SvgPlan.h"
#include "geometry/CalcXYZHV.h"
#include "geometry/Polyline.h"
#include "platform/NumText.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;
using kelscan_cli::SvgPlan;

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
