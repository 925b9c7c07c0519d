// Ray queries on the surface of a million scan-ordered points: the build of IntersectRay's
// hierarchy (the first query) and 100 000 rays through the pixels of a photograph. The
// comparison with Embree's rtcIntersect1 on the same surface and rays is
// bench/embree/TinRayVsEmbree (built when Embree is found).
// Run: build/<dir>/bench/TinRayBench
#include <benchmark/benchmark.h>

#include <memory>

#include "TinPoints.h"
#include "TinRays.h"
#include "surface/Tin.h"

namespace {

constexpr int kMillion = 1000000;

const CTin& ScanSurface() {
    static std::unique_ptr<CTin> tin;
    if (!tin) {
        tin = std::make_unique<CTin>();
        tin_bench::Load(*tin, tin_bench::PointSet::kScan, kMillion);
        tin->CreateTin(0.0);
    }
    return *tin;
}

void BM_RayIndexBuild(benchmark::State& state) {
    const CTin& source = ScanSurface();
    const tin_bench::Ray ray = tin_bench::PhotoRays()[0];
    for (auto _ : state) {
        state.PauseTiming();
        auto tin = std::make_unique<CTin>(source);
        state.ResumeTiming();
        CXYZ hit;
        int tri = -1;
        benchmark::DoNotOptimize(
            tin->IntersectRay(tin_bench::Origin(ray), tin_bench::Dir(ray), hit, tri));
        state.PauseTiming();
        tin.reset();
        state.ResumeTiming();
    }
    state.counters["triangles"] = source.GetTriSize();
}
BENCHMARK(BM_RayIndexBuild)->Unit(benchmark::kMillisecond);

void BM_IntersectRay(benchmark::State& state) {
    const CTin& tin = ScanSurface();
    const std::vector<tin_bench::Ray> rays = tin_bench::PhotoRays();
    CXYZ hit;
    int tri = -1;
    tin.IntersectRay(tin_bench::Origin(rays[0]), tin_bench::Dir(rays[0]), hit, tri);  // build
    int hits = 0;
    for (auto _ : state) {
        hits = 0;
        for (const tin_bench::Ray& r : rays)
            hits += tin.IntersectRay(tin_bench::Origin(r), tin_bench::Dir(r), hit, tri);
    }
    state.counters["hits"] = hits;
    state.counters["per_ray"] = benchmark::Counter(
        static_cast<double>(rays.size()),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_IntersectRay)->Unit(benchmark::kMillisecond);

}  // namespace
