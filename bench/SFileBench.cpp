// Appending 100 000 points to a scan point database and reading them back, against the floor:
// plain fwrite / fread of the same 256-byte records through stdio. Both flush to disk once
// after writing. Run: build/ci/bench/SFileBench
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/File.h"
#include "storage/SFile.h"

namespace {

constexpr int kPoints = 100000;

// A private device root for the benchmark's files, removed at exit.
const std::string& Root() {
    static std::string root = [] {
        char dir[] = "/tmp/kelscan-bench-XXXXXX";
        if (mkdtemp(dir) == nullptr) std::abort();
        return std::string(dir);
    }();
    return root;
}

kel_templ::CKelArray<CSPoint, CSPoint&> MakePoints() {
    kel_templ::CKelArray<CSPoint, CSPoint&> pts;
    pts.Reserve(kPoints);
    for (int i = 1; i <= kPoints; ++i) {
        CSPoint p;
        p.m_name.Format(L"P%d", i);
        p.m_X = 1000.0 + i * 0.001;
        p.m_Y = 2000.0 - i * 0.002;
        p.m_Z = 100.0 + (i % 97) * 0.01;
        p.m_code = L"WALL";
        p.m_text1 = L"fine scan";
        p.m_value = i;
        pts.Add(p);
    }
    return pts;
}

void BM_SFileAppendAndRead(benchmark::State& state) {
    kel_platform::SetDeviceRoot(Root().c_str());
    kel_templ::CKelArray<CSPoint, CSPoint&> pts = MakePoints();
    for (auto _ : state) {
        CSFile db;
        if (db.OpenDB(L"\\bench.dbs", SFILE_CREATE) != 0) state.SkipWithError("open");
        if (db.AddPoint(pts) != kPoints) state.SkipWithError("append");
        CSPoint p;
        double sum = 0.0;
        for (int n = 1; n <= kPoints; ++n) {
            db.ReadPoint(p, n);
            sum += p.m_X;
        }
        benchmark::DoNotOptimize(sum);
        db.CloseDB();
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
    state.SetBytesProcessed(state.iterations() * kPoints * 256 * 2);
}
BENCHMARK(BM_SFileAppendAndRead)->Unit(benchmark::kMillisecond);

void BM_StdioFloor(benchmark::State& state) {
    kel_templ::CKelArray<CSPoint, CSPoint&> pts = MakePoints();
    std::vector<SPOINTREC> recs(kPoints);
    for (int i = 0; i < kPoints; ++i) ConvSPoint2Rec(pts[i], recs[i]);
    const std::string path = Root() + "/floor.dbs";
    for (auto _ : state) {
        std::FILE* f = std::fopen(path.c_str(), "wb+");
        if (f == nullptr) state.SkipWithError("open");
        std::uint8_t header[32] = {};
        std::fwrite(header, 1, sizeof header, f);
        for (const SPOINTREC& r : recs) std::fwrite(r.b, 1, sizeof r.b, f);
        std::fflush(f);
        fsync(fileno(f));
        std::fseek(f, 32, SEEK_SET);
        SPOINTREC r;
        double sum = 0.0;
        for (int n = 0; n < kPoints; ++n) {
            if (std::fread(r.b, 1, sizeof r.b, f) != sizeof r.b) state.SkipWithError("read");
            sum += r.b[40];
        }
        benchmark::DoNotOptimize(sum);
        std::fclose(f);
    }
    state.SetItemsProcessed(state.iterations() * kPoints);
    state.SetBytesProcessed(state.iterations() * kPoints * 256 * 2);
}
BENCHMARK(BM_StdioFloor)->Unit(benchmark::kMillisecond);

struct Cleanup {
    ~Cleanup() {
        std::error_code ec;
        std::filesystem::remove_all(Root(), ec);
    }
} cleanup;

}  // namespace
