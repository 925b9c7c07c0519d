// kelscan tin build | info | height | export | svg: a triangulated surface from a CSV file of
// points and break lines, its surface file, height queries, and exports to other programs.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <fstream>
#include <future>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Cli.h"
#include "geometry/FileName.h"
#include "geometry/Polyline.h"
#include "platform/KelString.h"
#include "platform/NumText.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::Fixed;
using kelscan_cli::SetExit;
using TinArray = kel_templ::CKelArray<CTin, CTin&>;
using LineArray = kel_templ::CKelArray<CPolyline, CPolyline&>;

constexpr int kMaxListedDuplicates = 20;  // duplicate points named one by one in a report
constexpr std::size_t kWrapColumns = 96;  // width of the summary paragraph
constexpr double kProgressDelay = 1.0;    // s of work before the progress line appears
constexpr std::chrono::milliseconds kProgressTick(100);
constexpr int kTinMagicChecked = 9;  // magic characters and terminator of versions 1, 2

std::wstring Wide(const std::string& path) {
    return std::wstring(kel_text::Utf8ToWide(path.c_str()).GetString());
}

// The file name without its folder and last extension ("data/terrain.csv" -> "terrain").
std::string Stem(const std::string& path) {
    kel_text::CKelString name;
    EditFileName(Wide(path).c_str(), name);
    return kel_text::WideToUtf8(name.GetString());
}

// Breaks a paragraph into lines of at most kWrapColumns characters at blanks.
std::string Wrap(const std::string& text) {
    std::istringstream words(text);
    std::string word, line, out;
    while (words >> word) {
        if (!line.empty() && line.size() + 1 + word.size() > kWrapColumns) {
            out += line + '\n';
            line.clear();
        }
        line += (line.empty() ? "" : " ") + word;
    }
    return out + line + '\n';
}

// A progress line on stderr for work that takes longer than kProgressDelay: only on a
// terminal, redrawn in place every tick and erased at the end. The work runs on a second
// thread so that the line keeps moving while the library triangulates; it reports its phase
// and count here and writes nothing itself.
class Progress {
public:
    explicit Progress(bool shown) : m_shown(shown) {}

    void Phase(const std::string& what, long long total = 0) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_what = what;
        m_total = total;
        m_done.store(0, std::memory_order_relaxed);
    }
    void Done(long long n) { m_done.store(n, std::memory_order_relaxed); }

    // Runs job() and returns its result.
    template <class Job>
    auto Run(Job job) -> decltype(job()) {
        if (!m_shown) return job();
        auto result = std::async(std::launch::async, job);
        const auto start = std::chrono::steady_clock::now();
        std::size_t drawn = 0;
        while (result.wait_for(kProgressTick) != std::future_status::ready) {
            const double t =
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
            if (t < kProgressDelay) continue;
            std::string line = "kelscan: " + Describe() + " ... " + Fixed(t, 1) + " s";
            const std::size_t width = line.size();
            if (line.size() < drawn) line.append(drawn - line.size(), ' ');
            std::cerr << '\r' << line << std::flush;
            drawn = width;
        }
        if (drawn > 0) std::cerr << '\r' << std::string(drawn, ' ') << '\r' << std::flush;
        return result.get();
    }

private:
    std::string Describe() {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_total <= 0) return m_what;
        const long long done = m_done.load(std::memory_order_relaxed);
        return m_what + " " + std::to_string(done) + " of " + std::to_string(m_total);
    }

    bool m_shown;
    std::mutex m_mutex;
    std::string m_what;
    long long m_total = 0;
    std::atomic<long long> m_done{0};
};

// ---------------------------------------------------------------------------------------------
// Input files

// One point row: `name,north,east,height` (the name may be a number) or `north,east,height`;
// x east and y north as the surface holds them.
struct PointRow {
    std::string name;
    double x, y, z;
    int line;
};

// Reads the points; "" or the failure message.
std::string ReadPoints(const std::string& path, std::vector<PointRow>& points) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    const kelscan_cli::CsvShape shape{
        {3}, kelscan_cli::CsvShape::kOptionalName, "[name,]north,east,height"};
    if (!kelscan_cli::ReadCsvRows(path, shape, rows, error)) return error;
    points.clear();
    points.reserve(rows.size());
    for (const auto& r : rows)
        points.push_back({r.name, r.values[1], r.values[0], r.values[2], r.line});
    return "";
}

// "N north E east" of a point held x east, y north.
std::string PlanText(double x, double y) { return "N " + Fixed(y, 3) + " E " + Fixed(x, 3); }

// One break-line vertex as read: Z may be missing (then it must be a point of the surface).
struct BreakVertex {
    double x, y, z;
    bool hasZ;
    int line;
};
struct BreakLineRows {
    std::string name;
    std::vector<BreakVertex> v;
};

// Reads a break-line file: rows `LINE,north,east[,height]` (consecutive rows of one LINE form a
// polyline) and `LINE,N1,E1,H1,N2,E2,H2` (one segment). "" or the failure message.
std::string ReadBreakLines(const std::string& path, std::vector<BreakLineRows>& lines) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    const kelscan_cli::CsvShape shape{{2, 3, 6},
                                      kelscan_cli::CsvShape::kName,
                                      "LINE,north,east[,height] or LINE,N1,E1,H1,N2,E2,H2"};
    if (!kelscan_cli::ReadCsvRows(path, shape, rows, error)) return error;
    lines.clear();
    bool chainOpen = false;  // the last polyline may take more vertices
    auto single = [&]() {
        return path + ":" + std::to_string(lines.back().v[0].line) + ": break line " +
               lines.back().name + " has a single vertex";
    };
    for (const auto& r : rows) {
        const std::vector<double>& f = r.values;
        if (f.size() == 6) {
            BreakLineRows seg{r.name, {}};
            seg.v.push_back({f[1], f[0], f[2], true, r.line});
            seg.v.push_back({f[4], f[3], f[5], true, r.line});
            lines.push_back(seg);
            chainOpen = false;
            continue;
        }
        if (!chainOpen || lines.back().name != r.name) {
            if (!lines.empty() && lines.back().v.size() < 2) return single();
            lines.push_back(BreakLineRows{r.name, {}});
            chainOpen = true;
        }
        lines.back().v.push_back({f[1], f[0], f.size() == 3 ? f[2] : 0.0, f.size() == 3, r.line});
    }
    if (!lines.empty() && lines.back().v.size() < 2) return single();
    return "";
}

// The break lines as polylines (for the drawing).
LineArray ToPolylines(const std::vector<BreakLineRows>& lines) {
    LineArray out;
    for (const auto& l : lines) {
        CPolyline pl(0, 0);
        for (const auto& v : l.v) {
            CVertex cv(v.x, v.y, v.z, 0);
            pl.AddVertex(cv);
        }
        out.Add(pl);
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// Building

struct BuildResult {
    CTin tin;
    int rows = 0;  // point rows read
    // A skipped point row and the row of the point it repeats (the first kMaxListedDuplicates).
    struct Duplicate {
        int line, firstLine;
        std::string name, firstName;
    };
    std::vector<Duplicate> duplicates;
    int nDuplicates = 0;
    int nBreakLines = 0, nSegments = 0;
    int nBreakVertices = 0;  // vertices the break-line file added
    int nForced = 0;         // vertices added where the break lines crossed the mesh
    int nMissing = 0;        // segments that are not chains of mesh edges
    LineArray lines;
};

// Registered segments (vertex pairs) that are not a chain of mesh edges: the vertices lying on a
// segment, in order along it, must be joined by edges.
int MissingSegments(const CTin& tin, const std::vector<std::pair<int, int>>& segments) {
    std::unordered_set<std::uint64_t> edges;
    auto key = [](int a, int b) {
        return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(std::min(a, b))) << 32) |
               static_cast<std::uint32_t>(std::max(a, b));
    };
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k)
            edges.insert(key(tin.GetTri(i).v[k], tin.GetTri(i).v[(k + 1) % 3]));
    int missing = 0;
    for (const auto& s : segments) {
        const CXYZ& a = tin.m_point[s.first];
        const CXYZ& b = tin.m_point[s.second];
        const double ex = b.x - a.x, ey = b.y - a.y, len2 = ex * ex + ey * ey;
        std::vector<std::pair<double, int>> chain{{0.0, s.first}, {1.0, s.second}};
        for (int i = 0; i < tin.GetPointSize(); ++i) {
            const double px = tin.m_point[i].x - a.x, py = tin.m_point[i].y - a.y;
            const double t = (px * ex + py * ey) / len2;
            const double off = (ex * py - ey * px);  // = distance * length
            if (t > 0.0 && t < 1.0 && off * off <= tin.GetEPS() * tin.GetEPS() * len2)
                chain.emplace_back(t, i);
        }
        std::sort(chain.begin(), chain.end());
        for (std::size_t c = 0; c + 1 < chain.size(); ++c)
            if (edges.count(key(chain[c].second, chain[c + 1].second)) == 0) {
                ++missing;
                break;
            }
    }
    return missing;
}

// Reads the points (and break lines), adds them to r.tin and triangulates, in the order of the
// rows with indexOrder, else in a spatial order (the same triangles, numbered as that
// insertion makes them; the vertices are the rows in both). "" or the failure.
std::string BuildSurface(const std::string& pointsPath, const std::string& linesPath, double angle,
                         bool indexOrder, BuildResult& r, Progress& progress) {
    progress.Phase("reading " + pointsPath);
    std::vector<PointRow> points;
    std::string error = ReadPoints(pointsPath, points);
    if (!error.empty()) return error;
    std::vector<BreakLineRows> lines;
    if (!linesPath.empty()) {
        progress.Phase("reading " + linesPath);
        error = ReadBreakLines(linesPath, lines);
        if (!error.empty()) return error;
    }
    r.rows = static_cast<int>(points.size());
    progress.Phase("adding points", r.rows);
    std::vector<int> rowOfVertex;  // index into points
    rowOfVertex.reserve(points.size());
    for (std::size_t i = 0; i < points.size(); ++i) {
        const PointRow& p = points[i];
        const int before = r.tin.GetPointSize();
        const int v = r.tin.AddPoint(p.x, p.y, p.z);
        if (v == before) {
            rowOfVertex.push_back(static_cast<int>(i));
        } else if (++r.nDuplicates <= kMaxListedDuplicates) {
            const PointRow& first =
                points[static_cast<std::size_t>(rowOfVertex[static_cast<std::size_t>(v)])];
            r.duplicates.push_back({p.line, first.line, p.name, first.name});
        }
        if ((i & 0xFFF) == 0) progress.Done(static_cast<long long>(i));
    }
    std::vector<std::pair<int, int>> segments;
    for (const auto& l : lines) {
        int prev = -1;
        for (const auto& bv : l.v) {
            const int before = r.tin.GetPointSize();
            const int v = r.tin.AddPoint(bv.x, bv.y, bv.z);
            if (v == before) {
                if (!bv.hasZ)
                    return linesPath + ":" + std::to_string(bv.line) + ": " + PlanText(bv.x, bv.y) +
                           " of break line " + l.name +
                           " is no point of the surface: give its height";
                ++r.nBreakVertices;
            }
            if (prev >= 0 && prev != v && r.tin.AddBreakLine(prev, v))
                segments.emplace_back(prev, v);
            prev = v;
        }
    }
    r.nBreakLines = static_cast<int>(lines.size());
    r.nSegments = static_cast<int>(segments.size());
    r.lines = ToPolylines(lines);

    const int distinct = r.tin.GetPointSize();
    progress.Phase("triangulating " + std::to_string(distinct) + " points");
    if (!(indexOrder ? r.tin.CreateTin(angle) : r.tin.CreateTinSpatial(angle)))
        return "cannot triangulate the " + std::to_string(distinct) + " distinct points of " +
               pointsPath + ": fewer than 3, or all on one line";
    if (r.tin.GetTriSize() < 1)
        return "--angle " + kel_num::Exact(angle) + " removed every triangle";
    r.nForced = r.tin.GetPointSize() - distinct;
    if (!segments.empty()) {
        progress.Phase("checking the break lines");
        for (std::size_t k = 0; k < segments.size(); ++k) {  // renumbered with the vertices
            const CTin::CBreakLine& s = r.tin.GetBreakLine(static_cast<int>(k));
            segments[k] = {s.v[0], s.v[1]};
        }
        r.nMissing = MissingSegments(r.tin, segments);
    }
    return "";
}

int BoundaryEdges(const CTin& tin) {
    int n = 0;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) n += tin.GetTri(i).nb[k] < 0 ? 1 : 0;
    return n;
}

int UsedVertices(const CTin& tin) {
    int nUsed = 0;
    NumberTinVertices(tin, nUsed);
    return nUsed;
}

std::string Plural(int n, const char* one, const char* many) {
    return std::to_string(n) + " " + (n == 1 ? one : many);
}

std::string RangeText(const CTin& tin) {
    return "north " + Fixed(tin.m_range[0].y, 3) + " .. " + Fixed(tin.m_range[1].y, 3) + ", east " +
           Fixed(tin.m_range[0].x, 3) + " .. " + Fixed(tin.m_range[1].x, 3) + ", height " +
           Fixed(tin.m_range[0].z, 3) + " .. " + Fixed(tin.m_range[1].z, 3) + " m";
}

// The duplicate reports and the summary paragraph of a build (without the sentence on the file).
std::string Summary(const BuildResult& r, const std::string& pointsPath,
                    const std::string& linesPath) {
    std::string head;
    for (const auto& d : r.duplicates)
        head += pointsPath + ":" + std::to_string(d.line) + ": skipped " +
                (d.name.empty() ? "the point" : d.name) + ", same north,east as line " +
                std::to_string(d.firstLine) +
                (d.firstName.empty() ? "" : " (" + d.firstName + ")") + '\n';
    if (r.nDuplicates > kMaxListedDuplicates)
        head += "... and " + std::to_string(r.nDuplicates - kMaxListedDuplicates) +
                " more duplicates skipped\n";
    const CTin& tin = r.tin;
    std::string p = "Read " + Plural(r.rows, "point", "points") + " from " + pointsPath + "; " +
                    (r.nDuplicates == 0 ? std::string("no duplicates")
                                        : Plural(r.nDuplicates, "duplicate", "duplicates") +
                                              " (same north,east within " + Fixed(tin.GetEPS(), 6) +
                                              " m) skipped") +
                    ".";
    if (!linesPath.empty()) {
        p += " " + Plural(r.nBreakLines, "break line", "break lines") + " of " +
             Plural(r.nSegments, "segment", "segments") + " from " + linesPath + " added " +
             Plural(r.nBreakVertices, "vertex", "vertices") +
             ", and forcing them into the mesh added " + std::to_string(r.nForced) + " more; " +
             (r.nMissing == 0 ? std::string("every segment is a chain of mesh edges.")
                              : Plural(r.nMissing, "segment is", "segments are") +
                                    " not in the mesh (run with -v for the library's line).");
    }
    const int used = UsedVertices(tin);
    p += " The surface has " + Plural(tin.GetPointSize(), "point", "points") +
         (used == tin.GetPointSize() ? "" : " (" + std::to_string(used) + " in triangles)") + ", " +
         Plural(tin.GetTriSize(), "triangle", "triangles") + " and " +
         Plural(tin.GetHull().GetSize(), "hull vertex", "hull vertices") + "; " + RangeText(tin) +
         "; plan area " + Fixed(tin.GetPlanArea(), 3) + " m2, slope area " +
         Fixed(tin.GetSlopeArea(), 3) + " m2.";
    return head + Wrap(p);
}

bool WriteSurface(CTin& tin, const std::string& path, int format) {
    const std::wstring w = Wide(path);
    if (format == 0) return tin.WriteBIN_VER0(w.c_str()) == 1;
    TinArray tins;
    tins.Add(tin);
    return (format == 1 ? CTin::WriteBIN_VER1(w.c_str(), tins)
                        : CTin::WriteBIN_VER2(w.c_str(), tins)) == 1;
}

// The surface's counts, range and areas as results (csv and json of build and info).
void AddSurfaceFields(kelscan_cli::Report& report, const CTin& tin) {
    using kelscan_cli::Value;
    report.Add("points", "", Value::Int(tin.GetPointSize()));
    report.Add("points_in_triangles", "", Value::Int(UsedVertices(tin)));
    report.Add("triangles", "", Value::Int(tin.GetTriSize()));
    report.Add("hull_vertices", "", Value::Int(tin.GetHull().GetSize()));
    report.Add("boundary_edges", "", Value::Int(BoundaryEdges(tin)));
    report.Add("north_min", "m", Value::Num(tin.m_range[0].y, 3));
    report.Add("north_max", "m", Value::Num(tin.m_range[1].y, 3));
    report.Add("east_min", "m", Value::Num(tin.m_range[0].x, 3));
    report.Add("east_max", "m", Value::Num(tin.m_range[1].x, 3));
    report.Add("height_min", "m", Value::Num(tin.m_range[0].z, 3));
    report.Add("height_max", "m", Value::Num(tin.m_range[1].z, 3));
    report.Add("plan_area", "m2", Value::Num(tin.GetPlanArea(), 3));
    report.Add("slope_area", "m2", Value::Num(tin.GetSlopeArea(), 3));
}

kelscan_cli::Report BuildReport(const BuildResult& r, const std::string& output, int version) {
    using kelscan_cli::Value;
    kelscan_cli::Report report;
    report.Add("file", "", Value::Text(output));
    report.Add("file_version", "", Value::Int(version));
    report.Add("rows_read", "", Value::Int(r.rows));
    report.Add("duplicates_skipped", "", Value::Int(r.nDuplicates));
    report.Add("break_lines", "", Value::Int(r.nBreakLines));
    report.Add("break_line_segments", "", Value::Int(r.nSegments));
    report.Add("break_line_vertices_added", "", Value::Int(r.nBreakVertices));
    report.Add("crossing_vertices_added", "", Value::Int(r.nForced));
    report.Add("segments_not_in_mesh", "", Value::Int(r.nMissing));
    AddSurfaceFields(report, r.tin);
    kelscan_cli::Table dup{"duplicates", {"line", "name", "first_line", "first_name"}, {}};
    for (const auto& d : r.duplicates)
        dup.rows.push_back({Value::Int(d.line), Value::Text(d.name), Value::Int(d.firstLine),
                            Value::Text(d.firstName)});
    report.tables.push_back(dup);
    return report;
}

struct BuildArgs {
    std::string points, output, lines, name;
    int version = 2;
    double angle = 0.0;
    bool indexOrder = false;
    kelscan_cli::Format format = kelscan_cli::Format::kText;
};

int RunBuild(const BuildArgs& a) {
    if (a.angle < 0.0 || a.angle >= 90.0)
        return Fail("--angle " + kel_num::Exact(a.angle) +
                    " is not an angle from 0 to below 90 degrees");
    const std::vector<std::string> inputs{a.points, a.lines};
    if (const int rc = kelscan_cli::CheckOutput(a.output, inputs)) return rc;
    BuildResult r;
    Progress progress(kel_platform::StderrIsTerminal());
    const std::string error = progress.Run(
        [&]() { return BuildSurface(a.points, a.lines, a.angle, a.indexOrder, r, progress); });
    if (!error.empty()) return Fail(error);
    const std::string stem = a.output == "-" ? Stem(a.points) : Stem(a.output);
    r.tin.SetName(Wide(a.name.empty() ? stem : a.name).c_str());
    if (const int rc = kelscan_cli::WriteOutputFile(a.output, inputs, [&](const std::string& path) {
            return WriteSurface(r.tin, path, a.version);
        }))
        return rc;
    std::ostream& out = kelscan_cli::ReportStream(a.output);
    if (a.format != kelscan_cli::Format::kText)
        kelscan_cli::PrintReport(out, BuildReport(r, a.output, a.version), a.format);
    else
        out << Summary(r, a.points, a.lines)
            << Wrap("Wrote " + a.output + " (surface file version " + std::to_string(a.version) +
                    ").");
    return 0;
}

// ---------------------------------------------------------------------------------------------
// Reading surface files

struct SurfaceFile {
    int version = 0;
    TinArray tins;
};

// Reads every surface of a file (any version); 0 or Fail's status.
int LoadSurfaces(const std::string& path, SurfaceFile& f) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return Fail("cannot read " + path);
    char head[kTinMagicChecked] = {};
    in.read(head, kTinMagicChecked);
    const std::string magic(head, static_cast<std::size_t>(in.gcount()));
    f.version =
        magic == std::string("TIN_2.00", 9) ? 2 : (magic == std::string("TIN_1.00", 9) ? 1 : 0);
    if (!CTin::ReadBIN_VER2(Wide(path).c_str(), f.tins))
        return Fail(path + ": not a surface file, or a damaged one");
    return 0;
}

// The surface numbered by --surface (1-based) that holds triangles; 0 or Fail's status.
int PickSurface(const std::string& path, const SurfaceFile& f, const std::string& which,
                int& index) {
    int n = 0;
    if (!kelscan_cli::ParseInt(which, n) || n < 1)
        return Fail("--surface \"" + which + "\" is not a surface number from 1");
    if (n > f.tins.GetSize())
        return Fail(path + " holds " + Plural(f.tins.GetSize(), "surface", "surfaces") + ", not " +
                    std::to_string(n));
    if (f.tins[n - 1].GetTriSize() < 1)
        return Fail(path + ": surface " + std::to_string(n) + " has no triangles");
    index = n - 1;
    return 0;
}

int RunInfo(const std::string& path, kelscan_cli::Format format) {
    SurfaceFile f;
    if (const int rc = LoadSurfaces(path, f)) return rc;
    if (format != kelscan_cli::Format::kText) {
        // One row per surface: the fields of each surface become the columns.
        using kelscan_cli::Value;
        kelscan_cli::Report report;
        report.Add("file", "", Value::Text(path));
        report.Add("version", "", Value::Int(f.version));
        kelscan_cli::Table t{"surfaces", {"surface", "name"}, {}};
        for (int s = 0; s < f.tins.GetSize(); ++s) {
            kelscan_cli::Report one;
            AddSurfaceFields(one, f.tins[s]);
            std::vector<Value> row{
                Value::Int(s + 1),
                Value::Text(kel_text::WideToUtf8(f.tins[s].GetName().GetString()))};
            for (const auto& field : one.fields) {
                if (s == 0) t.columns.push_back(field.key);
                row.push_back(field.value);
            }
            t.rows.push_back(row);
        }
        report.tables.push_back(t);
        kelscan_cli::PrintReport(std::cout, report, format);
        return 0;
    }
    std::ostringstream out;
    out << "file: " << path << " (version " << f.version << ", "
        << Plural(f.tins.GetSize(), "surface", "surfaces") << ")\n";
    for (int s = 0; s < f.tins.GetSize(); ++s) {
        const CTin& tin = f.tins[s];
        if (s > 0) out << '\n';
        out << "surface " << s + 1;
        if (f.version > 0)
            out << ": name \"" << kel_text::WideToUtf8(tin.GetName().GetString()) << '"';
        out << "\npoints: " << tin.GetPointSize() << " (" << UsedVertices(tin)
            << " in triangles)\ntriangles: " << tin.GetTriSize()
            << "\nhull vertices: " << tin.GetHull().GetSize()
            << "\nboundary edges: " << BoundaryEdges(tin) << '\n';
        if (tin.GetPointSize() > 0)
            out << "north: " << Fixed(tin.m_range[0].y, 3) << " .. " << Fixed(tin.m_range[1].y, 3)
                << " m\neast: " << Fixed(tin.m_range[0].x, 3) << " .. "
                << Fixed(tin.m_range[1].x, 3) << " m\nheight: " << Fixed(tin.m_range[0].z, 3)
                << " .. " << Fixed(tin.m_range[1].z, 3) << " m\n";
        out << "plan area: " << Fixed(tin.GetPlanArea(), 3)
            << " m2\nslope area: " << Fixed(tin.GetSlopeArea(), 3) << " m2\n";
    }
    std::cout << out.str();
    return 0;
}

// "height at N .. E ..: H m", or the failure line outside the surface.
int HeightLine(const CTin& tin, double north, double east, std::string& line, double& height) {
    const std::string where = PlanText(east, north);
    if (!tin.GetHeight(east, north, height)) return Fail(where + " is outside the surface");
    line = "height at " + where + ": " + Fixed(height, 3) + " m\n";
    return 0;
}

int RunHeight(const std::string& path, const std::string& ns, const std::string& es,
              const std::string& which, kelscan_cli::Format format) {
    double north = 0.0, east = 0.0, height = 0.0;
    if (!kelscan_cli::ParseDouble(ns, north))
        return Fail("north \"" + ns + "\" is not a finite number");
    if (!kelscan_cli::ParseDouble(es, east))
        return Fail("east \"" + es + "\" is not a finite number");
    SurfaceFile f;
    int index = 0;
    if (const int rc = LoadSurfaces(path, f)) return rc;
    if (const int rc = PickSurface(path, f, which, index)) return rc;
    std::string line;
    if (const int rc = HeightLine(f.tins[index], north, east, line, height)) return rc;
    if (format == kelscan_cli::Format::kText) {
        std::cout << line;
    } else {
        using kelscan_cli::Value;
        kelscan_cli::Report report;
        report.Add("north", "m", Value::Num(north, 3));
        report.Add("east", "m", Value::Num(east, 3));
        report.Add("height", "m", Value::Num(height, 3));
        kelscan_cli::PrintReport(std::cout, report, format);
    }
    return 0;
}

struct ExportArgs {
    std::string surface, output, to, name, which = "1";
};

int RunExport(const ExportArgs& a) {
    if (const int rc = kelscan_cli::CheckOutput(a.output, {a.surface})) return rc;
    std::string to = a.to;
    if (to.empty())
        to = kelscan_cli::EndsWithNoCase(a.output, ".ply")   ? "ply"
             : kelscan_cli::EndsWithNoCase(a.output, ".obj") ? "obj"
             : kelscan_cli::EndsWithNoCase(a.output, ".xml") ? "landxml"
                                                             : "";
    if (to.empty())
        return Fail(a.output + ": give --to ply, obj or landxml (or end it in .ply, .obj or .xml)");
    SurfaceFile f;
    int index = 0;
    if (const int rc = LoadSurfaces(a.surface, f)) return rc;
    if (const int rc = PickSurface(a.surface, f, a.which, index)) return rc;
    const CTin& tin = f.tins[index];
    const std::string counts = " (" + Plural(UsedVertices(tin), "vertex", "vertices") + ", " +
                               Plural(tin.GetTriSize(), "triangle", "triangles") + ")\n";
    std::string report;
    const std::string name = a.name.empty() ? Stem(a.surface) : a.name;
    const int rc = kelscan_cli::WriteOutputStream(a.output, {a.surface}, [&](std::ostream& o) {
        if (to == "ply") return WriteTinPly(tin, o);
        if (to == "obj") return WriteTinObj(tin, o);
        SYSTEMTIME now;
        GetLocalTime(&now);
        return WriteTinLandXml(tin, o, name.c_str(), now);
    });
    if (rc != 0) return rc;
    kelscan_cli::ReportStream(a.output) << "wrote " << a.output << ", "
                                        << (to == "ply"   ? "PLY"
                                            : to == "obj" ? "OBJ"
                                                          : "LandXML 1.2 surface \"" + name + "\"")
                                        << counts;
    return 0;
}

struct SvgArgs {
    std::string surface, output, lines, which = "1";
};

int RunSvg(const SvgArgs& a) {
    if (const int rc = kelscan_cli::CheckOutput(a.output, {a.surface, a.lines})) return rc;
    SurfaceFile f;
    int index = 0;
    if (const int rc = LoadSurfaces(a.surface, f)) return rc;
    if (const int rc = PickSurface(a.surface, f, a.which, index)) return rc;
    LineArray polylines;
    if (!a.lines.empty()) {
        std::vector<BreakLineRows> lines;
        const std::string error = ReadBreakLines(a.lines, lines);
        if (!error.empty()) return Fail(error);
        polylines = ToPolylines(lines);
    }
    const CTin& tin = f.tins[index];
    if (const int rc = kelscan_cli::WriteOutputStream(
            a.output, {a.surface, a.lines},
            [&](std::ostream& o) { return WriteTinSvg(tin, o, &polylines); }))
        return rc;
    kelscan_cli::ReportStream(a.output)
        << "wrote " << a.output << " (" << Plural(tin.GetTriSize(), "triangle", "triangles") << ", "
        << Plural(BoundaryEdges(tin), "boundary edge", "boundary edges") << ", "
        << Plural(polylines.GetSize(), "break line", "break lines") << ")\n";
    return 0;
}

// ---------------------------------------------------------------------------------------------

void Setup(CLI::App& app) {
    CLI::App* tin = app.add_subcommand("tin", "Triangulated surfaces: build, query, export, draw");
    tin->require_subcommand(1);

    static BuildArgs build;
    CLI::App* b = tin->add_subcommand(
        "build", "Triangulate a CSV file of points (and break lines) into a surface file");
    b->add_option("points", build.points,
                  "Points CSV: [name,]north,east,height (m) per row; - reads standard input")
        ->required();
    b->add_option("-o,--output", build.output, "Surface file to write (- for stdout)")->required();
    b->add_option("--file-version", build.version, "Surface file version 0, 1 or 2 (default 2)")
        ->check(CLI::IsMember({0, 1, 2}));
    kelscan_cli::AddNumberOption(
        b, "--angle", build.angle,
        "Remove thin boundary triangles with an angle at the boundary up to A degrees");
    b->add_option("--breaklines", build.lines,
                  "Break-line CSV: LINE,north,east[,height] (m) per vertex");
    b->add_flag("--index-order", build.indexOrder,
                "Insert the points in the order of the rows and number the triangles as that "
                "insertion makes them (slower); default: a spatial order, the same triangles");
    b->add_option("--name", build.name,
                  "Surface name stored in versions 1 and 2 (default: file stem)");
    kelscan_cli::AddFormatOption(b, build.format);
    b->callback([]() { SetExit(RunBuild(build)); });

    static std::string infoPath;
    static kelscan_cli::Format infoFormat = kelscan_cli::Format::kText;
    CLI::App* info = tin->add_subcommand("info", "Counts, range and areas of a surface file");
    info->add_option("surface", infoPath, "Surface file (version 0, 1 or 2)")->required();
    kelscan_cli::AddFormatOption(info, infoFormat);
    info->callback([]() { SetExit(RunInfo(infoPath, infoFormat)); });

    static std::string heightPath, hn, he, heightWhich = "1";
    static kelscan_cli::Format heightFormat = kelscan_cli::Format::kText;
    CLI::App* h = tin->add_subcommand("height", "Height of the surface at NORTH EAST");
    h->add_option("surface", heightPath, "Surface file")->required();
    h->add_option("north", hn, "North (m)")->required();
    h->add_option("east", he, "East (m)")->required();
    h->add_option("--surface", heightWhich, "Surface number in the file (default 1)");
    kelscan_cli::AddFormatOption(h, heightFormat);
    h->callback([]() { SetExit(RunHeight(heightPath, hn, he, heightWhich, heightFormat)); });

    static ExportArgs ex;
    CLI::App* e = tin->add_subcommand("export", "Write the surface as PLY, OBJ or LandXML 1.2");
    e->add_option("surface", ex.surface, "Surface file")->required();
    e->add_option("-o,--output", ex.output, "File to write (- for stdout)")->required();
    e->add_option("--to", ex.to, "ply, obj or landxml (default: from the extension of -o)")
        ->check(CLI::IsMember({"ply", "obj", "landxml"}));
    e->add_option("--name", ex.name, "Surface name in LandXML (default: file stem)");
    e->add_option("--surface", ex.which, "Surface number in the file (default 1)");
    e->callback([]() { SetExit(RunExport(ex)); });

    static SvgArgs svg;
    CLI::App* s = tin->add_subcommand("svg", "Draw the surface in plan (north up) as SVG");
    s->add_option("surface", svg.surface, "Surface file")->required();
    s->add_option("-o,--output", svg.output, "SVG file to write (- for stdout)")->required();
    s->add_option("--breaklines", svg.lines, "Break-line CSV to draw");
    s->add_option("--surface", svg.which, "Surface number in the file (default 1)");
    s->callback([]() { SetExit(RunSvg(svg)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string points = dataDir + "/terrain.csv", lines = dataDir + "/breaklines.csv";
    BuildResult r;
    Progress quiet(false);
    const std::string error = BuildSurface(points, lines, 0.0, true, r, quiet);
    if (!error.empty()) return Fail("demo: " + error);
    out << Summary(r, "terrain.csv", "breaklines.csv");
    // The middle of the site's range: inside the surface.
    const double east = 0.5 * (r.tin.m_range[0].x + r.tin.m_range[1].x);
    const double north = 0.5 * (r.tin.m_range[0].y + r.tin.m_range[1].y);
    std::string line;
    double height = 0.0;
    if (const int rc = HeightLine(r.tin, north, east, line, height)) return rc;
    out << "Query: " << line;
    return 0;
}

kelscan_cli::CommandRegistrar reg("tin", &Setup);
kelscan_cli::DemoRegistrar demo(50, "A triangulated surface from the sample points", &Demo);

}  // namespace
