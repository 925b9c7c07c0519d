// Our triangulation against CGAL's Delaunay_triangulation_2 (exact predicates, inexact
// constructions; range insertion, which sorts the points along a space-filling curve first) on
// the same point sets in the same run. Runs every TinBench benchmark plus BM_CgalInsert/<set>,
// then prints the time ratio per set. With --peak it instead measures the peak resident memory
// of building each triangulation, each in a process of its own (wait4's ru_maxrss), next to
// the peak of the process that only makes the points.
// Run: build/<dir>/bench/cgal/TinVsCgal --benchmark_filter='CreateTin/|Cgal'
//      build/<dir>/bench/cgal/TinVsCgal --peak
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <CGAL/Delaunay_triangulation_2.h>
#include <CGAL/Exact_predicates_inexact_constructions_kernel.h>
#include <cstdio>
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

// One measurement in a process of its own: "tin" / "cgal" build the triangulation, "tin-points"
// / "cgal-points" only make the points. Exit status 0 on success.
int PeakChild(const std::string& what, PointSet set) {
    if (what == "tin" || what == "tin-points") {
        auto tin = std::make_unique<CTin>();
        tin_bench::Load(*tin, set, kMillion);
        return what == "tin-points" || tin->CreateTin(0.0) == 1 ? 0 : 1;
    }
    if (what == "cgal" || what == "cgal-points") {
        const std::vector<Kernel::Point_2> pts = CgalPoints(set);
        if (what == "cgal-points") return 0;
        Delaunay dt;
        dt.insert(pts.begin(), pts.end());
        return dt.number_of_faces() > 0 ? 0 : 1;
    }
    return 1;
}

// Peak resident memory (MiB) of a child run of this program, or -1.
double PeakOf(const std::string& what, PointSet set) {
    std::string self = "/proc/self/exe", flag = "--peak-child", name = tin_bench::Name(set);
    char* args[] = {self.data(), flag.data(), const_cast<char*>(what.c_str()), name.data(),
                    nullptr};
    pid_t pid = 0;
    if (posix_spawn(&pid, self.c_str(), nullptr, nullptr, args, environ) != 0) return -1.0;
    int status = 0;
    rusage usage{};
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return -1.0;
    return static_cast<double>(usage.ru_maxrss) / 1024.0;  // ru_maxrss is in KiB
}

int PeakTable() {
    std::printf("Peak resident memory (MiB), 1 000 000 points, each in its own process\n");
    std::printf("%-8s %10s %10s %10s %12s %12s\n", "set", "ours", "CGAL", "ours/CGAL",
                "ours points", "CGAL points");
    int failures = 0;
    for (PointSet set : kSets) {
        const double ours = PeakOf("tin", set), cgal = PeakOf("cgal", set);
        const double oursPts = PeakOf("tin-points", set), cgalPts = PeakOf("cgal-points", set);
        failures += ours < 0.0 || cgal < 0.0 || oursPts < 0.0 || cgalPts < 0.0;
        std::printf("%-8s %10.1f %10.1f %10.2f %12.1f %12.1f\n", tin_bench::Name(set), ours,
                    cgal, ours / cgal, oursPts, cgalPts);
    }
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "--peak-child") == 0) {
        PointSet set = PointSet::kScan;
        return tin_bench::Parse(argv[3], set) ? PeakChild(argv[2], set) : 1;
    }
    if (argc == 2 && std::strcmp(argv[1], "--peak") == 0) return PeakTable();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    CRatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
