// Surface triangulation: CreateTin on a million points delivered as a scan (serpentine rows),
// uniformly at random and as a regular grid (cocircular everywhere); the plain walk from the
// last triangle, on random points for contrast and on the scan; a million AddPoint calls with
// duplicates. "per_point" is the time per input point, "left_out" the number of points in no
// triangle. The comparison with CGAL's Delaunay triangulation on the same points is
// bench/cgal/TinVsCgal (built when CGAL is found).
// Run: build/<dir>/bench/TinBench
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "TinPoints.h"
#include "surface/Tin.h"

namespace {

using tin_bench::PointSet;

constexpr int kMillion = 1000000;

void SetPerPoint(benchmark::State& state, int n) {
    state.counters["per_point"] =
        benchmark::Counter(static_cast<double>(n), benchmark::Counter::kIsIterationInvariantRate |
                                                       benchmark::Counter::kInvert);
}

void RunCreateTin(benchmark::State& state, PointSet set, int n, bool grid, bool spatial = false) {
    auto source = std::make_unique<CTin>();
    tin_bench::Load(*source, set, n);
    int triangles = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto tin = std::make_unique<CTin>(*source);
        tin->UseLocateGrid(grid);
        state.ResumeTiming();
        if ((spatial ? tin->CreateTinSpatial(0.0) : tin->CreateTin(0.0)) != 1)
            state.SkipWithError("CreateTin failed");
        triangles = tin->GetTriSize();
        state.PauseTiming();
        // Points the mesh left out (duplicates, or points the walk could not place).
        std::vector<char> used(static_cast<std::size_t>(tin->GetPointSize()), 0);
        for (int i = 0; i < tin->GetTriSize(); ++i)
            for (int k = 0; k < 3; ++k) used[static_cast<std::size_t>(tin->GetTri(i).v[k])] = 1;
        state.counters["left_out"] = static_cast<double>(std::count(used.begin(), used.end(), 0));
        tin.reset();
        state.ResumeTiming();
    }
    state.counters["triangles"] = triangles;
    SetPerPoint(state, source->GetPointSize());
}

void BM_CreateTin(benchmark::State& state, PointSet set) {
    RunCreateTin(state, set, kMillion, true);
}
BENCHMARK_CAPTURE(BM_CreateTin, scan, PointSet::kScan)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateTin, random, PointSet::kRandom)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateTin, grid, PointSet::kGrid)->Unit(benchmark::kMillisecond);

// The spatially ordered triangulation: the same triangles, vertices renumbered.
void BM_CreateTinSpatial(benchmark::State& state, PointSet set) {
    RunCreateTin(state, set, kMillion, true, true);
}
BENCHMARK_CAPTURE(BM_CreateTinSpatial, scan, PointSet::kScan)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateTinSpatial, random, PointSet::kRandom)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateTinSpatial, grid, PointSet::kGrid)->Unit(benchmark::kMillisecond);

// The walk from the last found triangle alone: about sqrt(n) steps per random point.
void BM_CreateTinPlainWalk(benchmark::State& state, PointSet set) {
    RunCreateTin(state, set, static_cast<int>(state.range(0)), false);
}
BENCHMARK_CAPTURE(BM_CreateTinPlainWalk, random, PointSet::kRandom)
    ->Arg(100000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CreateTinPlainWalk, scan, PointSet::kScan)
    ->Arg(kMillion)
    ->Unit(benchmark::kMillisecond);

// A million AddPoint calls: the scan's points with every tenth call repeating an earlier
// point (which must return that point's index).
void BM_AddPoint(benchmark::State& state) {
    std::vector<double> scan;
    scan.reserve(3 * static_cast<std::size_t>(kMillion));
    tin_bench::MakePoints(PointSet::kScan, kMillion, [&](double x, double y, double z) {
        scan.insert(scan.end(), {x, y, z});
    });
    std::vector<double> xyz(scan);
    for (std::size_t i = 9; i < xyz.size() / 3; i += 10) {
        const std::size_t back = i - 1 - (i / 10) % 7;
        xyz[3 * i] = scan[3 * back];
        xyz[3 * i + 1] = scan[3 * back + 1];
        xyz[3 * i + 2] = scan[3 * back + 2] + 1.0;
    }
    const int calls = static_cast<int>(xyz.size() / 3);
    for (auto _ : state) {
        state.PauseTiming();
        auto tin = std::make_unique<CTin>();
        state.ResumeTiming();
        for (int i = 0; i < calls; ++i) tin->AddPoint(xyz[3 * i], xyz[3 * i + 1], xyz[3 * i + 2]);
        state.PauseTiming();
        state.counters["points"] = tin->GetPointSize();
        tin.reset();
        state.ResumeTiming();
    }
    state.counters["calls"] = calls;
    SetPerPoint(state, calls);
}
BENCHMARK(BM_AddPoint)->Unit(benchmark::kMillisecond);

}  // namespace
