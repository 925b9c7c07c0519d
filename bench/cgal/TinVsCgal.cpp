// Our triangulation against CGAL's Delaunay_triangulation_2 (exact predicates, inexact
// constructions; range insertion, which sorts the points along a space-filling curve first) on
// the same point sets in the same run.
//
// --compare [runs [millions]]: builds each triangulation (ours in index order, ours in spatial
//   order, CGAL's) `runs` times (default 3) on `millions` million points (default 1; 10 adds
//   the scan at ten million), each time in a fresh process of its own, alternating; prints the
//   median and fastest time of each, the ratios of the fastest to CGAL's, and the peak resident
//   memory of the processes (wait4's ru_maxrss), with the CPU model, the transparent huge page
//   setting and the load average. Fresh processes keep one build's heap and caches from
//   slowing the next, which on a busy machine matters more than the difference measured.
// Otherwise: every TinBench benchmark plus BM_CgalInsert/<set> in this process, then the
//   time ratio per set.
// Run: build/<dir>/bench/cgal/TinVsCgal --compare 5 [10]
//      build/<dir>/bench/cgal/TinVsCgal --benchmark_filter='CreateTin/|Cgal'
#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "TinPoints.h"
#include "surface/Tin.h"

extern char** environ;

namespace {

using tin_bench::PointSet;
using Kernel = CGAL::Exact_predicates_inexact_constructions_kernel;
using Delaunay = CGAL::Delaunay_triangulation_2<Kernel>;

constexpr int kMillion = 1000000;
int g_points = kMillion;  // size of the sets of --compare (the children get it in argv)
const PointSet kSets[] = {PointSet::kScan, PointSet::kRandom, PointSet::kGrid};

std::vector<Kernel::Point_2> CgalPoints(PointSet set) {
    std::vector<Kernel::Point_2> pts;
    pts.reserve(static_cast<std::size_t>(g_points));
    tin_bench::MakePoints(set, g_points,
                          [&](double x, double y, double) { pts.emplace_back(x, y); });
    return pts;
}

void BM_CgalInsert(benchmark::State& state, PointSet set) {
    const std::vector<Kernel::Point_2> pts = CgalPoints(set);
    std::size_t faces = 0;
    for (auto _ : state) {
        auto dt = std::make_unique<Delaunay>();
        dt->insert(pts.begin(), pts.end());
        faces = dt->number_of_faces();
        state.PauseTiming();
        dt.reset();
        state.ResumeTiming();
    }
    state.counters["triangles"] = static_cast<double>(faces);
    state.counters["per_point"] = benchmark::Counter(
        static_cast<double>(pts.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK_CAPTURE(BM_CgalInsert, scan, PointSet::kScan)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CgalInsert, random, PointSet::kRandom)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CgalInsert, grid, PointSet::kGrid)->Unit(benchmark::kMillisecond);

// The console output, plus the mean real time of every benchmark for the ratio table.
class CRatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& r : runs) {
            if (r.run_type != Run::RT_Iteration || r.error_occurred) continue;
            Mean& m = m_times[r.benchmark_name()];
            m.sum += r.GetAdjustedRealTime();
            ++m.count;
        }
    }
    void PrintRatios() const {
        std::printf("\n%-8s %12s %12s %10s\n", "set", "ours (ms)", "CGAL (ms)", "ours/CGAL");
        for (PointSet set : kSets) {
            const std::string name = tin_bench::Name(set);
            const auto ours = m_times.find("BM_CreateTin/" + name);
            const auto cgal = m_times.find("BM_CgalInsert/" + name);
            if (ours == m_times.end() || cgal == m_times.end()) continue;
            const double a = ours->second.sum / ours->second.count;
            const double b = cgal->second.sum / cgal->second.count;
            std::printf("%-8s %12.1f %12.1f %10.2f\n", name.c_str(), a, b, a / b);
        }
    }

private:
    struct Mean {
        double sum = 0.0;
        int count = 0;
    };
    std::map<std::string, Mean> m_times;
};

// One measurement in a process of its own: "tin" / "cgal" build the triangulation and print
// the seconds the build took, "tin-points" / "cgal-points" only make the points. Exit status 0
// on success.
int Child(const std::string& what, PointSet set) {
    using Clock = std::chrono::steady_clock;
    if (what == "tin" || what == "spatial" || what == "tin-points") {
        auto tin = std::make_unique<CTin>();
        tin_bench::Load(*tin, set, g_points);
        if (what == "tin-points") return 0;
        const Clock::time_point t0 = Clock::now();
        const int ok = what == "spatial" ? tin->CreateTinSpatial(0.0) : tin->CreateTin(0.0);
        std::printf("%.6f\n", std::chrono::duration<double>(Clock::now() - t0).count());
        return ok == 1 ? 0 : 1;
    }
    if (what == "cgal" || what == "cgal-points") {
        const std::vector<Kernel::Point_2> pts = CgalPoints(set);
        if (what == "cgal-points") return 0;
        Delaunay dt;
        const Clock::time_point t0 = Clock::now();
        dt.insert(pts.begin(), pts.end());
        std::printf("%.6f\n", std::chrono::duration<double>(Clock::now() - t0).count());
        return dt.number_of_faces() > 0 ? 0 : 1;
    }
    return 1;
}

struct CRun {
    bool ok = false;
    double seconds = 0.0;  // as the child printed it
    double peakMiB = 0.0;  // wait4's ru_maxrss
};

// Runs this program as a child with --child what set; the child's output is read through a
// pipe and its trace lines on stderr are dropped.
CRun RunChild(const std::string& what, PointSet set) {
    CRun run;
    std::string self = "/proc/self/exe", flag = "--child", name = tin_bench::Name(set);
    std::string size = std::to_string(g_points);
    char* args[] = {self.data(), flag.data(), const_cast<char*>(what.c_str()),
                    name.data(), size.data(), nullptr};
    int out[2];
    if (pipe(out) != 0) return run;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], 1);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    const int spawned = posix_spawn(&pid, self.c_str(), &actions, nullptr, args, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    std::string text;
    char buf[256];
    for (ssize_t got; spawned == 0 && (got = read(out[0], buf, sizeof buf)) > 0;)
        text.append(buf, static_cast<std::size_t>(got));
    close(out[0]);
    if (spawned != 0) return run;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return run;
    run.ok = true;
    run.seconds = std::atof(text.c_str());
    run.peakMiB = static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB
    return run;
}

double Median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    const std::size_t m = v.size() / 2;
    return v.empty() ? 0.0 : v.size() % 2 ? v[m] : 0.5 * (v[m - 1] + v[m]);
}

void PrintMachine() {
    std::string cpu = "?", thp = "?";
    if (FILE* f = std::fopen("/proc/cpuinfo", "r")) {
        char line[512];
        while (std::fgets(line, sizeof line, f))
            if (std::strncmp(line, "model name", 10) == 0) {
                cpu = std::strchr(line, ':') ? std::strchr(line, ':') + 2 : line;
                break;
            }
        std::fclose(f);
    }
    if (FILE* f = std::fopen("/sys/kernel/mm/transparent_hugepage/enabled", "r")) {
        char line[256];
        if (std::fgets(line, sizeof line, f)) thp = line;
        std::fclose(f);
    }
    double load[3] = {0, 0, 0};
    if (FILE* f = std::fopen("/proc/loadavg", "r")) {
        if (std::fscanf(f, "%lf %lf %lf", &load[0], &load[1], &load[2]) != 3) load[0] = -1;
        std::fclose(f);
    }
    cpu.erase(cpu.find_last_not_of("\n") + 1);
    thp.erase(thp.find_last_not_of("\n") + 1);
    std::printf("CPU: %s; transparent huge pages: %s; load average %.2f %.2f %.2f\n", cpu.c_str(),
                thp.c_str(), load[0], load[1], load[2]);
}

int Compare(int runs, int millions) {
    PrintMachine();
    static const char* const kWhat[3] = {"tin", "spatial", "cgal"};
    std::printf(
        "%d fresh processes each, alternating; seconds median / fastest; ratio of the "
        "fastest to CGAL's; peak resident memory (MiB) and its ratio\n",
        runs);
    std::printf("%-7s %8s %17s %17s %17s | %7s %7s | %7s %7s %7s | %5s %5s\n", "set", "points",
                "index s", "spatial s", "CGAL s", "idx/C", "spa/C", "idx MiB", "spa MiB", "C MiB",
                "idx/C", "spa/C");
    int failures = 0;
    std::vector<std::pair<PointSet, int>> cases;
    for (PointSet set : kSets) cases.emplace_back(set, kMillion);
    if (millions > 1) cases.emplace_back(PointSet::kScan, millions * kMillion);
    for (const auto& c : cases) {
        g_points = c.second;
        std::vector<double> times[3];
        double fastest[3] = {0, 0, 0}, peak[3] = {0, 0, 0};
        for (int r = 0; r < runs; ++r)
            for (int lib = 0; lib < 3; ++lib) {
                const CRun run = RunChild(kWhat[(lib + r) % 3], c.first);  // rotating order
                const int k = (lib + r) % 3;
                failures += !run.ok;
                if (!run.ok) continue;
                times[k].push_back(run.seconds);
                if (times[k].size() == 1 || run.seconds < fastest[k]) fastest[k] = run.seconds;
                peak[k] = std::max(peak[k], run.peakMiB);
            }
        char cell[3][32];
        for (int k = 0; k < 3; ++k)
            std::snprintf(cell[k], sizeof cell[k], "%.3f / %.3f", Median(times[k]), fastest[k]);
        std::printf("%-7s %8d %17s %17s %17s | %7.2f %7.2f | %7.1f %7.1f %7.1f | %5.2f %5.2f\n",
                    tin_bench::Name(c.first), c.second, cell[0], cell[1], cell[2],
                    fastest[0] / fastest[2], fastest[1] / fastest[2], peak[0], peak[1], peak[2],
                    peak[0] / peak[2], peak[1] / peak[2]);
        std::fflush(stdout);
    }
    g_points = kMillion;
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 5 && std::strcmp(argv[1], "--child") == 0) {
        PointSet set = PointSet::kScan;
        g_points = std::max(3, std::atoi(argv[4]));
        return tin_bench::Parse(argv[3], set) ? Child(argv[2], set) : 1;
    }
    if (argc >= 2 && std::strcmp(argv[1], "--compare") == 0)
        return Compare(argc >= 3 ? std::max(1, std::atoi(argv[2])) : 3,
                       argc >= 4 ? std::max(1, std::atoi(argv[3])) : 1);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
