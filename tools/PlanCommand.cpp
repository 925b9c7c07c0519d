// kelscan plan fine ... and kelscan plan track ...: fine-scan targets and tracking-scan lines
// over an angular box or a region, their time estimates, and an SVG drawing of the plan.
#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "Cli.h"
#include "geometry/CalcXYZHV.h"
#include "geometry/Polyline.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;

// Above this many targets the fine planner's per-target time (6.4 - 0.00075 N s) is no longer
// positive, so the estimate means nothing.
constexpr int kMaxTimedTargets = 8533;

std::string Clock(int seconds) { return kel_text::WideToUtf8(CCalcXYZHV::ByoToStr(seconds)); }

// The options both planners share.
struct BoxArgs {
    std::vector<std::string> start, end, spacing;
    std::string region, svg;
    bool dms = false;
};

void AddBoxOptions(CLI::App* cmd, BoxArgs& a) {
    cmd->add_option("--start", a.start, "Start V H (degrees)")->expected(2)->required();
    cmd->add_option("--end", a.end, "End V H (degrees)")->expected(2)->required();
    cmd->add_option("--spacing", a.spacing, "Spacing DV DH (degrees)")->expected(2)->required();
    cmd->add_flag("--dms", a.dms, "Angles and spacing are packed DDD.MMSS");
    cmd->add_option("--region", a.region,
                    "Region CSV, x,y per vertex; its bounding box maps onto the box");
    cmd->add_option("--svg", a.svg, "Draw the plan into this SVG file");
}

// The box and spacing as numbers: start V, start H, end V, end H, dV, dH.
int ParseBox(const BoxArgs& a, double (&box)[6]) {
    const std::vector<std::string>* groups[] = {&a.start, &a.end, &a.spacing};
    const char* names[] = {"--start", "--end", "--spacing"};
    for (int g = 0; g < 3; ++g)
        for (int k = 0; k < 2; ++k)
            if (!kelscan_cli::ParseDouble((*groups[g])[static_cast<std::size_t>(k)],
                                          box[2 * g + k]))
                return Fail(std::string(names[g]) + ": \"" +
                            (*groups[g])[static_cast<std::size_t>(k)] + "\" is not a number");
    return 0;
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

    bool Write(const std::string& path) const {
        std::ofstream out(path, std::ios::binary);
        if (!out) return false;
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
        out << "<text x=\"" << kMargin << "\" y=\"" << Fixed(height + 10, 0)
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

// Plans the fine scan; the summary lines start with '#', so the output stays a CSV file.
int RunFine(const BoxArgs& a, int mode, std::ostream& out) {
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
    out << "index,H_deg,V_deg\n";
    double h = 0.0, v = 0.0;
    for (int i = 0; fs.NextPt(h, v) == 1; ++i) {
        out << i << ',' << Fixed(h, 6) << ',' << Fixed(v, 6) << '\n';
        svg.Path(h, v);
    }
    out << "# targets: " << n << '\n';
    if (n > kMaxTimedTargets)
        out << "# time: not estimated (more than " << kMaxTimedTargets << " targets)\n";
    else
        out << "# time: " << seconds << " s (" << Clock(seconds) << ")\n";
    svg.Title("fine scan, " + std::to_string(n) + " targets");
    if (!a.svg.empty() && !svg.Write(a.svg)) return Fail("cannot write " + a.svg);
    return 0;
}

int RunTrack(const BoxArgs& a, int speed, bool quorin, std::ostream& out) {
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
    out << "line,V_deg,start_H_deg,end_H_deg\n";
    for (int i = 0; i < n; ++i) {
        out << i << ',' << Fixed(ts.m_lineV[i], 6) << ',' << Fixed(ts.m_lineStartH[i], 6) << ','
            << Fixed(ts.m_lineEndH[i], 6) << '\n';
        svg.Path(ts.m_lineStartH[i], ts.m_lineV[i]);
        svg.Path(ts.m_lineEndH[i], ts.m_lineV[i]);
        svg.Sweep(ts.m_lineV[i], ts.m_lineStartH[i], ts.m_lineEndH[i]);
    }
    const double rate = quorin ? CCleverTrkScan::DegreesFromSpeed_Quorin(speed)
                               : CCleverTrkScan::DegreesFromSpeed_Halvex(speed);
    out << "# lines: " << n << ", points: " << ts.m_totalPoints << '\n'
        << "# time: " << seconds << " s (" << Clock(seconds) << ") at speed " << speed << " ("
        << Fixed(rate, 6) << " deg/s)\n";
    svg.Title("tracking scan, " + std::to_string(n) + " lines");
    if (!a.svg.empty() && !svg.Write(a.svg)) return Fail("cannot write " + a.svg);
    return 0;
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
        std::ostringstream out;
        const int rc = RunFine(fine, mode, out);
        if (rc == 0) std::cout << out.str();
        SetExit(rc);
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
        std::ostringstream out;
        const int rc = RunTrack(track, speed, family == "quorin", out);
        if (rc == 0) std::cout << out.str();
        SetExit(rc);
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
