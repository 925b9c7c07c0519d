// kelscan tin build | info | height | export | svg: a triangulated surface from a CSV file of
// points and break lines, its surface file, height queries, and exports to other programs.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
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

// One point row: `name,X,Y,Z` (the name may be a number) or `X,Y,Z`.
struct PointRow {
    std::string name;
    double x, y, z;
    int line;
};

std::string NumberText(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.15g", v);
    return buf;
}

// Reads the points; "" or the failure message.
std::string ReadPoints(const std::string& path, std::vector<PointRow>& points) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    if (!kelscan_cli::ReadCsvRows(path, 3, rows, error)) return error;
    points.clear();
    points.reserve(rows.size());
    for (const auto& r : rows) {
        const std::size_t n = r.values.size();
        if (n > 4 || (n == 4 && !r.name.empty()))
            return path + ":" + std::to_string(r.line) + ": expected [name,]X,Y,Z, found " +
                   std::to_string(n) + " numbers";
        const std::size_t k = n - 3;  // a numeric name comes first
        const std::string name = n == 4 ? NumberText(r.values[0]) : r.name;
        points.push_back({name, r.values[k], r.values[k + 1], r.values[k + 2], r.line});
    }
    return "";
}

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

// Reads a break-line file: rows `LINE,X,Y[,Z]` (consecutive rows of one LINE form a polyline)
// and `LINE,X1,Y1,Z1,X2,Y2,Z2` (one segment). "" or the failure message.
std::string ReadBreakLines(const std::string& path, std::vector<BreakLineRows>& lines) {
    std::vector<kelscan_cli::CsvRow> rows;
    std::string error;
    if (!kelscan_cli::ReadCsvRows(path, 2, rows, error)) return error;
    lines.clear();
    bool chainOpen = false;  // the last polyline may take more vertices
    for (const auto& r : rows) {
        const std::string where = path + ":" + std::to_string(r.line) + ": ";
        std::string name = r.name;
        std::size_t k = 0;
        if (name.empty()) name = NumberText(r.values[k++]);  // a numeric line name
        const std::size_t n = r.values.size() - k;
        if (n == 6) {
            BreakLineRows seg{name, {}};
            seg.v.push_back({r.values[k], r.values[k + 1], r.values[k + 2], true, r.line});
            seg.v.push_back({r.values[k + 3], r.values[k + 4], r.values[k + 5], true, r.line});
            lines.push_back(seg);
            chainOpen = false;
            continue;
        }
        if (n != 2 && n != 3)
            return where + "expected LINE,X,Y[,Z] or LINE,X1,Y1,Z1,X2,Y2,Z2, found " +
                   std::to_string(r.values.size()) + " numbers";
        if (!chainOpen || lines.back().name != name) {
            if (!lines.empty() && lines.back().v.size() < 2)
                return path + ":" + std::to_string(lines.back().v[0].line) + ": break line " +
                       lines.back().name + " has a single vertex";
            lines.push_back(BreakLineRows{name, {}});
            chainOpen = true;
        }
        lines.back().v.push_back(
            {r.values[k], r.values[k + 1], n == 3 ? r.values[k + 2] : 0.0, n == 3, r.line});
    }
    if (!lines.empty() && lines.back().v.size() < 2)
        return path + ":" + std::to_string(lines.back().v[0].line) + ": break line " +
               lines.back().name + " has a single vertex";
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

// Reads the points (and break lines), adds them to r.tin and triangulates. "" or the failure.
std::string BuildSurface(const std::string& pointsPath, const std::string& linesPath, double angle,
                         BuildResult& r, Progress& progress) {
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
                    return linesPath + ":" + std::to_string(bv.line) + ": " + Fixed(bv.x, 3) + "," +
                           Fixed(bv.y, 3) + " of break line " + l.name +
                           " is no point of the surface: give its Z";
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
    if (!r.tin.CreateTin(angle))
        return "cannot triangulate the " + std::to_string(distinct) + " distinct points of " +
               pointsPath + ": fewer than 3, or all on one line";
    if (r.tin.GetTriSize() < 1) return "--angle " + NumberText(angle) + " removed every triangle";
    r.nForced = r.tin.GetPointSize() - distinct;
    if (!segments.empty()) {
        progress.Phase("checking the break lines");
        r.nMissing = MissingSegments(r.tin, segments);
    }
    return "";
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
    return "X " + Fixed(tin.m_range[0].x, 3) + " .. " + Fixed(tin.m_range[1].x, 3) + ", Y " +
           Fixed(tin.m_range[0].y, 3) + " .. " + Fixed(tin.m_range[1].y, 3) + ", Z " +
           Fixed(tin.m_range[0].z, 3) + " .. " + Fixed(tin.m_range[1].z, 3) + " m";
}

// The duplicate reports and the summary paragraph of a build (without the sentence on the file).
std::string Summary(const BuildResult& r, const std::string& pointsPath,
                    const std::string& linesPath) {
    std::string head;
    for (const auto& d : r.duplicates)
        head += pointsPath + ":" + std::to_string(d.line) + ": skipped " +
                (d.name.empty() ? "the point" : d.name) + ", same X,Y as line " +
                std::to_string(d.firstLine) +
                (d.firstName.empty() ? "" : " (" + d.firstName + ")") + '\n';
    if (r.nDuplicates > kMaxListedDuplicates)
        head += "... and " + std::to_string(r.nDuplicates - kMaxListedDuplicates) +
                " more duplicates skipped\n";
    const CTin& tin = r.tin;
    std::string p =
        "Read " + Plural(r.rows, "point", "points") + " from " + pointsPath + "; " +
        (r.nDuplicates == 0 ? std::string("no duplicates")
                            : Plural(r.nDuplicates, "duplicate", "duplicates") +
                                  " (same X,Y within " + Fixed(tin.GetEPS(), 6) + " m) skipped") +
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

struct BuildArgs {
    std::string points, output, lines, format = "2", angle = "0", name;
};

int RunBuild(const BuildArgs& a) {
    int format = 0;
    double angle = 0.0;
    if (!kelscan_cli::ParseInt(a.format, format) || format < 0 || format > 2)
        return Fail("--format \"" + a.format + "\" is not 0, 1 or 2");
    if (!kelscan_cli::ParseDouble(a.angle, angle) || angle < 0.0 || angle >= 90.0)
        return Fail("--angle \"" + a.angle + "\" is not an angle from 0 to below 90 degrees");
    BuildResult r;
    Progress progress(kel_platform::StderrIsTerminal());
    const std::string error = progress.Run([&]() {
        std::string e = BuildSurface(a.points, a.lines, angle, r, progress);
        if (!e.empty()) return e;
        progress.Phase("writing " + a.output);
        r.tin.SetName(Wide(a.name.empty() ? Stem(a.output) : a.name).c_str());
        return WriteSurface(r.tin, a.output, format) ? std::string() : "cannot write " + a.output;
    });
    if (!error.empty()) return Fail(error);
    std::cout << Summary(r, a.points, a.lines)
              << Wrap("Wrote " + a.output + " (surface file version " + std::to_string(format) +
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

int BoundaryEdges(const CTin& tin) {
    int n = 0;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) n += tin.GetTri(i).nb[k] < 0 ? 1 : 0;
    return n;
}

int RunInfo(const std::string& path) {
    SurfaceFile f;
    if (const int rc = LoadSurfaces(path, f)) return rc;
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
            out << "X: " << Fixed(tin.m_range[0].x, 3) << " .. " << Fixed(tin.m_range[1].x, 3)
                << " m\nY: " << Fixed(tin.m_range[0].y, 3) << " .. " << Fixed(tin.m_range[1].y, 3)
                << " m\nZ: " << Fixed(tin.m_range[0].z, 3) << " .. " << Fixed(tin.m_range[1].z, 3)
                << " m\n";
        out << "plan area: " << Fixed(tin.GetPlanArea(), 3)
            << " m2\nslope area: " << Fixed(tin.GetSlopeArea(), 3) << " m2\n";
    }
    std::cout << out.str();
    return 0;
}

// "height at X .. Y ..: Z m", or the failure line outside the surface.
int HeightLine(const CTin& tin, double x, double y, std::string& line) {
    double z = 0.0;
    const std::string where = "X " + Fixed(x, 3) + " Y " + Fixed(y, 3);
    if (!tin.GetHeight(x, y, z)) return Fail(where + " is outside the surface");
    line = "height at " + where + ": " + Fixed(z, 3) + " m\n";
    return 0;
}

int RunHeight(const std::string& path, const std::string& xs, const std::string& ys,
              const std::string& which) {
    double x = 0.0, y = 0.0;
    if (!kelscan_cli::ParseDouble(xs, x)) return Fail("X \"" + xs + "\" is not a number");
    if (!kelscan_cli::ParseDouble(ys, y)) return Fail("Y \"" + ys + "\" is not a number");
    SurfaceFile f;
    int index = 0;
    if (const int rc = LoadSurfaces(path, f)) return rc;
    if (const int rc = PickSurface(path, f, which, index)) return rc;
    std::string line;
    if (const int rc = HeightLine(f.tins[index], x, y, line)) return rc;
    std::cout << line;
    return 0;
}

struct ExportArgs {
    std::string surface, ply, obj, landxml, name, which = "1";
};

// Opens path and runs writer on it; 0 or Fail's status.
template <class Writer>
int WriteTo(const std::string& path, Writer writer) {
    std::ofstream out(path, std::ios::binary);
    if (!out || !writer(out)) return Fail("cannot write " + path);
    out.close();
    return out ? 0 : Fail("cannot write " + path);
}

int RunExport(const ExportArgs& a) {
    if (a.ply.empty() && a.obj.empty() && a.landxml.empty())
        return Fail("tin export: give --ply, --obj or --landxml");
    SurfaceFile f;
    int index = 0;
    if (const int rc = LoadSurfaces(a.surface, f)) return rc;
    if (const int rc = PickSurface(a.surface, f, a.which, index)) return rc;
    const CTin& tin = f.tins[index];
    const std::string counts = " (" + Plural(UsedVertices(tin), "vertex", "vertices") + ", " +
                               Plural(tin.GetTriSize(), "triangle", "triangles") + ")\n";
    std::string report;
    if (!a.ply.empty()) {
        if (const int rc = WriteTo(a.ply, [&](std::ostream& o) { return WriteTinPly(tin, o); }))
            return rc;
        report += "wrote " + a.ply + ", PLY" + counts;
    }
    if (!a.obj.empty()) {
        if (const int rc = WriteTo(a.obj, [&](std::ostream& o) { return WriteTinObj(tin, o); }))
            return rc;
        report += "wrote " + a.obj + ", OBJ" + counts;
    }
    if (!a.landxml.empty()) {
        SYSTEMTIME now;
        GetLocalTime(&now);
        const std::string name = a.name.empty() ? Stem(a.surface) : a.name;
        if (const int rc = WriteTo(a.landxml, [&](std::ostream& o) {
                return WriteTinLandXml(tin, o, name.c_str(), now);
            }))
            return rc;
        report += "wrote " + a.landxml + ", LandXML 1.2 surface \"" + name + "\"" + counts;
    }
    std::cout << report;
    return 0;
}

struct SvgArgs {
    std::string surface, output, lines, which = "1";
};

int RunSvg(const SvgArgs& a) {
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
    if (const int rc =
            WriteTo(a.output, [&](std::ostream& o) { return WriteTinSvg(tin, o, &polylines); }))
        return rc;
    std::cout << "wrote " << a.output << " (" << Plural(tin.GetTriSize(), "triangle", "triangles")
              << ", " << Plural(BoundaryEdges(tin), "boundary edge", "boundary edges") << ", "
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
    b->add_option("points", build.points, "Points CSV: name,X,Y,Z or X,Y,Z per row")->required();
    b->add_option("-o,--output", build.output, "Surface file to write")->required();
    b->add_option("--format", build.format, "Surface file version 0, 1 or 2 (default 2)");
    b->add_option("--angle", build.angle,
                  "Remove thin boundary triangles with an angle at the boundary up to A degrees");
    b->add_option("--breaklines", build.lines, "Break-line CSV: LINE,X,Y[,Z] per vertex");
    b->add_option("--name", build.name,
                  "Surface name stored in versions 1 and 2 (default: file stem)");
    b->callback([]() { SetExit(RunBuild(build)); });

    static std::string infoPath;
    CLI::App* info = tin->add_subcommand("info", "Counts, range and areas of a surface file");
    info->add_option("surface", infoPath, "Surface file (version 0, 1 or 2)")->required();
    info->callback([]() { SetExit(RunInfo(infoPath)); });

    static std::string heightPath, hx, hy, heightWhich = "1";
    CLI::App* h = tin->add_subcommand("height", "Height of the surface at X Y");
    h->add_option("surface", heightPath, "Surface file")->required();
    h->add_option("x", hx, "X (east, m)")->required();
    h->add_option("y", hy, "Y (north, m)")->required();
    h->add_option("--surface", heightWhich, "Surface number in the file (default 1)");
    h->callback([]() { SetExit(RunHeight(heightPath, hx, hy, heightWhich)); });

    static ExportArgs ex;
    CLI::App* e = tin->add_subcommand("export", "Write the surface as PLY, OBJ or LandXML 1.2");
    e->add_option("surface", ex.surface, "Surface file")->required();
    e->add_option("--ply", ex.ply, "ASCII PLY file to write");
    e->add_option("--obj", ex.obj, "Wavefront OBJ file to write");
    e->add_option("--landxml", ex.landxml, "LandXML 1.2 file to write");
    e->add_option("--name", ex.name, "Surface name in LandXML (default: file stem)");
    e->add_option("--surface", ex.which, "Surface number in the file (default 1)");
    e->callback([]() { SetExit(RunExport(ex)); });

    static SvgArgs svg;
    CLI::App* s = tin->add_subcommand("svg", "Draw the surface in plan (y up) as SVG");
    s->add_option("surface", svg.surface, "Surface file")->required();
    s->add_option("output", svg.output, "SVG file to write")->required();
    s->add_option("--breaklines", svg.lines, "Break-line CSV to draw");
    s->add_option("--surface", svg.which, "Surface number in the file (default 1)");
    s->callback([]() { SetExit(RunSvg(svg)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string points = dataDir + "/terrain.csv", lines = dataDir + "/breaklines.csv";
    BuildResult r;
    Progress quiet(false);
    const std::string error = BuildSurface(points, lines, 0.0, r, quiet);
    if (!error.empty()) return Fail("demo: " + error);
    out << Summary(r, "terrain.csv", "breaklines.csv");
    // The middle of the site's range: inside the surface.
    const double x = 0.5 * (r.tin.m_range[0].x + r.tin.m_range[1].x);
    const double y = 0.5 * (r.tin.m_range[0].y + r.tin.m_range[1].y);
    std::string line;
    if (const int rc = HeightLine(r.tin, x, y, line)) return rc;
    out << "Query: " << line;
    return 0;
}

kelscan_cli::CommandRegistrar reg("tin", &Setup);
kelscan_cli::DemoRegistrar demo(50, "A triangulated surface from the sample points", &Demo);

}  // namespace
