// Camera orientation on 16 control points: the single-start and the multi-start resection
// (CalSinOri, CalSinOri2) and the DLT (CalDlt), and, where OpenCV's development package is
// installed, OpenCV's solvePnP (ITERATIVE and SQPNP) on the same points in the same run.
// CalSinOri2 also runs on every test geometry (horizontal, turned, oblique, nadir, planes,
// 4 to 30 points, a 35 mm lens, surveying coordinates).
// The photo points carry 0.002 mm of noise (one 4-point field 0.01 mm, where the multi-start
// searches all its trials); every method is checked once before timing.
// Run: build/ci/bench/OrientBench --benchmark_repetitions=15
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "photogrammetry/Dlt.h"
#include "photogrammetry/SinOri.h"
#include "platform/KelMath.h"
#include "platform/Trace.h"

#ifdef KELSCAN_BENCH_OPENCV
#include <opencv2/calib3d.hpp>
#endif

namespace {

typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;
const double kDeg = kel_math::kPi / 180.0;

struct Setup {
    const char* name;
    double c;
    CXYZ centre;
    CWPK ang;
    int n;
    double planeZ;  // NaN: a spatial field 15 to 30 m deep
    double scale;
    double noise = 0.002;  // photo noise, mm
};

const double kSpatial = std::nan("");

const Setup kSetups[] = {
    {"horizontal", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, 0), 16, kSpatial, 1},
    {"horizontal_turned_90", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, 90 * kDeg), 16, kSpatial,
     1},
    {"horizontal_turned_180", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, kel_math::kPi), 16,
     kSpatial, 1},
    {"oblique_45", 8.8, CXYZ(10, -20, 25), CWPK(-45 * kDeg, 3 * kDeg, 20 * kDeg), 16, kSpatial, 1},
    {"nadir", 8.8, CXYZ(3, 4, 30), CWPK(0.02, -0.03, 0.4), 16, kSpatial, 1},
    {"nadir_kappa_180", 8.8, CXYZ(3, 4, 30), CWPK(0.02, -0.03, kel_math::kPi), 16, kSpatial, 1},
    {"plane_z0", 8.8, CXYZ(3, 4, 30), CWPK(0.05, -0.03, 0.4), 16, 0.0, 1},
    {"plane_z98", 8.8, CXYZ(3, 4, 128), CWPK(0.05, -0.03, 0.4), 16, 98.0, 1},
    {"points_4", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, 0), 4, kSpatial, 1},
    // Residuals above the multi-start's early stop on 4 spatial points: all 40 trials run.
    {"points_4_noise_0.01", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, 0), 4, kSpatial, 1, 0.01},
    {"points_30", 8.8, CXYZ(0.35, -2, 1.5), CWPK(-90 * kDeg, 0, 0), 30, kSpatial, 1},
    {"lens_35mm_20m", 35.0, CXYZ(5, -20, 3), CWPK(-80 * kDeg, 2 * kDeg, -15 * kDeg), 16, kSpatial,
     1},
    {"surveying_mm", 8.8, CXYZ(3.0e6, 4.0e6, 1.015e5), CWPK(-90 * kDeg, 0, 0), 16, kSpatial, 1000},
};

// Control points in front of the camera and their photo points (relative to the principal
// point, with the setup's noise).
struct Field {
    Points obj, phc;
    CRot rot;
    explicit Field(const Setup& s) {
        rot.SetMatrix(ROT_KPW, s.ang);
        CRot back = rot;
        back.T();
        std::mt19937 rng(42);
        std::uniform_real_distribution<double> u(-0.4 * s.c, 0.4 * s.c), depth(15.0, 30.0);
        std::normal_distribution<double> noise(0.0, s.noise);
        for (int i = 0; i < s.n; ++i) {
            const CXYZ dir = back * CXYZ(u(rng), u(rng), -s.c);
            const double t =
                std::isnan(s.planeZ) ? depth(rng) * s.scale / s.c : (s.planeZ - s.centre.z) / dir.z;
            const CXYZ p = s.centre + dir * t;
            const CXYZ q = rot * (p - s.centre);
            const std::wstring name = L"P" + std::to_wstring(i + 1);
            CXYZ o(name.c_str(), p.x, p.y, p.z);
            CXYZ f(name.c_str(), -s.c * q.x / q.z + noise(rng), -s.c * q.y / q.z + noise(rng), 0.0);
            obj.Add(o);
            phc.Add(f);
        }
    }
};

// Aborts the run when a method does not return the camera (a benchmark of a wrong answer
// measures nothing).
void Expect(bool ok, const char* what, const Setup& s) {
    if (ok) return;
    std::fprintf(stderr, "OrientBench: %s failed on %s\n", what, s.name);
    std::exit(1);
}

// 25 m of centre error per mm of photo noise: 0.05 m at 0.002 mm.
bool Near(const CXYZ& pos, const Setup& s) { return pos.Len(s.centre) < 25.0 * s.noise * s.scale; }

void BM_Resection(benchmark::State& state, const Setup* s, int (CSinOri::*solve)(),
                  const char* what) {
    Field f(*s);
    CSinOri so;
    so.Create(f.obj, f.phc, s->c);
    Expect((so.*solve)() == 1 && Near(so.m_pos, *s), what, *s);
    for (auto _ : state) benchmark::DoNotOptimize((so.*solve)());
}

void BM_CalSinOri(benchmark::State& state, const Setup* s) {
    BM_Resection(state, s, &CSinOri::CalSinOri, "CalSinOri");
}

void BM_CalSinOri2(benchmark::State& state, const Setup* s) {
    BM_Resection(state, s, &CSinOri::CalSinOri2, "CalSinOri2");
}

void BM_CalDlt(benchmark::State& state, const Setup* s) {
    Field f(*s);
    CDlt dlt;
    dlt.Create(f.obj, f.phc, s->c);
    Expect(dlt.CalDlt() == 1 && Near(dlt.m_pos, *s), "CalDlt", *s);
    for (auto _ : state) benchmark::DoNotOptimize(dlt.CalDlt());
}

#ifdef KELSCAN_BENCH_OPENCV
// OpenCV's camera looks along +z with y down: its camera frame is ours turned half round the x
// axis, so its image point of our photo point (x, y) is (x, -y) for the matrix diag(c, c, 1).
void BM_SolvePnP(benchmark::State& state, const Setup* s, int flags) {
    Field f(*s);
    std::vector<cv::Point3d> obj;
    std::vector<cv::Point2d> img;
    for (int i = 0; i < f.obj.GetSize(); ++i) {
        obj.emplace_back(f.obj[i].x, f.obj[i].y, f.obj[i].z);
        img.emplace_back(f.phc[i].x, -f.phc[i].y);
    }
    const cv::Matx33d k(s->c, 0, 0, 0, s->c, 0, 0, 0, 1);
    cv::Mat rvec, tvec;
    Expect(cv::solvePnP(obj, img, k, cv::noArray(), rvec, tvec, false, flags), "solvePnP", *s);
    cv::Matx33d r;
    cv::Rodrigues(rvec, r);
    const cv::Vec3d c = -(r.t() * cv::Vec3d(tvec));
    Expect(Near(CXYZ(c[0], c[1], c[2]), *s), "solvePnP centre", *s);
    for (auto _ : state)
        benchmark::DoNotOptimize(
            cv::solvePnP(obj, img, k, cv::noArray(), rvec, tvec, false, flags));
}
#endif

// The 16-point comparison on the oblique camera, where every method (OpenCV's too) applies.
const Setup& kCompare = kSetups[3];

void Silent(void*, int, const wchar_t*) {}

int Register() {
    // The informational trace lines ("CDlt::CalDlt ok") would be timed with them otherwise.
    kel_trace::SetTraceSink(&Silent, nullptr);
    benchmark::RegisterBenchmark("CalSinOri/oblique_45", BM_CalSinOri, &kCompare);
    benchmark::RegisterBenchmark("CalSinOri2/oblique_45", BM_CalSinOri2, &kCompare);
    benchmark::RegisterBenchmark("CalDlt/oblique_45", BM_CalDlt, &kCompare);
#ifdef KELSCAN_BENCH_OPENCV
    benchmark::RegisterBenchmark("SolvePnP_ITERATIVE/oblique_45", [](benchmark::State& st) {
        BM_SolvePnP(st, &kCompare, cv::SOLVEPNP_ITERATIVE);
    });
    benchmark::RegisterBenchmark("SolvePnP_SQPNP/oblique_45", [](benchmark::State& st) {
        BM_SolvePnP(st, &kCompare, cv::SOLVEPNP_SQPNP);
    });
#endif
    for (const Setup& s : kSetups) {
        if (&s == &kCompare) continue;
        benchmark::RegisterBenchmark((std::string("CalSinOri/") + s.name).c_str(), BM_CalSinOri,
                                     &s);
        benchmark::RegisterBenchmark((std::string("CalSinOri2/") + s.name).c_str(), BM_CalSinOri2,
                                     &s);
    }
    return 0;
}

[[maybe_unused]] const int kRegistered = Register();

}  // namespace
