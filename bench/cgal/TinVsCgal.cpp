// Our triangulation against CGAL's Delaunay_triangulation_2 (exact predicates, inexact
// constructions; range insertion, which sorts the points along a space-filling curve first) on
// the same point sets in the same run.
//
// --compare [runs]: builds each triangulation `runs` times (default 3), each time in a fresh
//   process of its own, alternating ours and CGAL's; prints the fastest time of each, their
//   ratio, and the peak resident memory of the processes (wait4's ru_maxrss) next to the peak
//   of a process that only makes the points. Fresh processes keep one build's heap and caches
//   from slowing the next, which on a busy machine matters more than the difference measured.
// Otherwise: every TinBench benchmark plus BM_CgalInsert/<set> in this process, then the
//   time ratio per set.
// Run: build/<dir>/bench/cgal/TinVsCgal --compare 5
//      build/<dir>/bench/cgal/TinVsCgal --benchmark_filter='CreateTin/|Cgal'
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
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
const PointSet kSets[] = {PointSet::kScan, PointSet::kRandom, PointSet::kGrid};

std::vector<Kernel::Point_2> CgalPoints(PointSet set) {
    std::vector<Kernel::Point_2> pts;
    pts.reserve(kMillion);
    tin_bench::MakePoints(set, kMillion,
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
    if (what == "tin" || what == "tin-points") {
        auto tin = std::make_unique<CTin>();
        tin_bench::Load(*tin, set, kMillion);
        if (what == "tin-points") return 0;
        const Clock::time_point t0 = Clock::now();
        const int ok = tin->CreateTin(0.0);
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
    char* args[] = {self.data(), flag.data(), const_cast<char*>(what.c_str()), name.data(),
                    nullptr};
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

int Compare(int runs) {
    std::printf("1 000 000 points; fastest of %d fresh processes each; peak resident memory\n", runs);
    std::printf("%-7s %9s %9s %9s | %9s %9s %9s | %11s %11s\n", "set", "ours s", "CGAL s",
                "ours/CGAL", "ours MiB", "CGAL MiB", "ours/CGAL", "points ours", "points CGAL");
    int failures = 0;
    for (PointSet set : kSets) {
        CRun best[2];
        for (int r = 0; r < runs; ++r)
            for (int lib = 0; lib < 2; ++lib) {
                const CRun run = RunChild(lib == 0 ? "tin" : "cgal", set);
                failures += !run.ok;
                if (run.ok && (!best[lib].ok || run.seconds < best[lib].seconds)) best[lib] = run;
                if (run.ok && run.peakMiB > best[lib].peakMiB) best[lib].peakMiB = run.peakMiB;
            }
        const CRun ours = RunChild("tin-points", set), cgal = RunChild("cgal-points", set);
        failures += !ours.ok + !cgal.ok;
        std::printf("%-7s %9.3f %9.3f %9.2f | %9.1f %9.1f %9.2f | %11.1f %11.1f\n",
                    tin_bench::Name(set), best[0].seconds, best[1].seconds,
                    best[0].seconds / best[1].seconds, best[0].peakMiB, best[1].peakMiB,
                    best[0].peakMiB / best[1].peakMiB, ours.peakMiB, cgal.peakMiB);
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--child") == 0) {
        PointSet set = PointSet::kScan;
        return tin_bench::Parse(argv[3], set) ? Child(argv[2], set) : 1;
    }
    if (argc >= 2 && std::strcmp(argv[1], "--compare") == 0)
        return Compare(argc >= 3 ? std::max(1, std::atoi(argv[2])) : 3);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
