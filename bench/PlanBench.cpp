// Scan planning: CalcPtAngle over a 1000 x 1000 box and over a 200-vertex region of about a
// million targets, and CalcLineAngle for 10 000 lines over a box and over the same region.
// The "per_target" / "per_line" counters are the time per planned target or line.
// Run: build/ci/bench/PlanBench
#include <benchmark/benchmark.h>

#include <cmath>

#include "platform/KelMath.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"

namespace {

// Spacings are binary fractions so that the cell counts come out exact.
constexpr double kSpacing = 0.125;  // degrees

// A regular polygon of n vertices (a circle of radius 1000 image units): its area is about
// pi / 4 of its bounding box, so an N x N box keeps about 0.785 N^2 targets.
CPolyline Circle(int n) {
    CPolyline pl(CPolyline::kClosed, 0);
    for (int i = 0; i < n; ++i) {
        const double a = 2.0 * kel_math::kPi * (i + 0.5) / n;  // no vertex on a row
        CVertex v(1000.0 * std::cos(a), 1000.0 * std::sin(a), 0.0, 0);
        pl.AddVertex(v);
    }
    return pl;
}

void SetPerItem(benchmark::State& state, const char* name, int items) {
    state.counters[name] = benchmark::Counter(
        static_cast<double>(items),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_FineBox1000x1000(benchmark::State& state) {
    CCleverFineScan fs;
    fs.SetSEVH(20.0, 0.0, 20.0 + 999 * kSpacing, 999 * kSpacing, 1);
    fs.SetDVH(kSpacing, kSpacing, 1);
    int n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(n = fs.CalcPtAngle(true));
    if (n != 1000 * 1000) state.SkipWithError("unexpected target count");
    SetPerItem(state, "per_target", n);
}
BENCHMARK(BM_FineBox1000x1000)->Unit(benchmark::kMillisecond);

void BM_FineRegion200(benchmark::State& state) {
    CCleverFineScan fs;
    const int cells = 1128;  // 0.785 x 1128^2 is about 1e6
    fs.SetSEVH(20.0, 0.0, 20.0 + (cells - 1) * kSpacing, (cells - 1) * kSpacing, 1);
    fs.SetDVH(kSpacing, kSpacing, 1);
    fs.m_polyline = Circle(200);
    int n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(n = fs.CalcPtAngle(true));
    state.counters["targets"] = n;
    SetPerItem(state, "per_target", n);
}
BENCHMARK(BM_FineRegion200)->Unit(benchmark::kMillisecond);

void BM_TrackBox10000(benchmark::State& state) {
    CCleverTrkScan ts;
    const double dV = 0.015625;
    ts.SetSEVH(10.0, 0.0, 10.0 + 9999 * dV, 90.0, 1);
    ts.SetDVH(dV, 0.05, 40, 1);
    int n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(n = ts.CalcLineAngle(true));
    if (n != 10000) state.SkipWithError("unexpected line count");
    SetPerItem(state, "per_line", n);
}
BENCHMARK(BM_TrackBox10000)->Unit(benchmark::kMillisecond);

void BM_TrackRegion200(benchmark::State& state) {
    CCleverTrkScan ts;
    const double dV = 0.015625;
    ts.SetSEVH(10.0, 0.0, 10.0 + 9999 * dV, 90.0, 1);
    ts.SetDVH(dV, 0.05, 40, 1);
    ts.m_polyline = Circle(200);
    int n = 0;
    for (auto _ : state) benchmark::DoNotOptimize(n = ts.CalcLineAngle(true));
    state.counters["lines"] = n;
    SetPerItem(state, "per_line", n);
}
BENCHMARK(BM_TrackRegion200)->Unit(benchmark::kMillisecond);

}  // namespace
