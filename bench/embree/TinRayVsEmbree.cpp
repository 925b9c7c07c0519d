// IntersectRay's hierarchy against Embree's single-ray query (rtcIntersect1) on the surface of
// a million scan-ordered points and 100 000 rays through the pixels of a photograph; and the
// hierarchy's build against CreateTin. Each figure is measured `runs` times (default 5) in the
// thread's CPU time (a shared, busy machine preempts; CPU time keeps the ratios fair), the two
// sides of each ratio alternating (CreateTin then the build on the same fresh copy of the
// points; our ray pass then Embree's), and printed as the median and the fastest run, with the
// ratio of the medians and of the fastest runs and the system's load average before and after.
// Embree runs on one thread, gets the vertices as floats relative to the station (its own
// precision) and is told the scene is static and of high quality. Prints the times, the two
// ratios and how many rays both answer with the same triangle.
// Run: build/<dir>/bench/embree/TinRayVsEmbree [runs]
#include <embree3/rtcore.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "TinPoints.h"
#include "TinRays.h"
#include "surface/Tin.h"

namespace {

// The calling thread's CPU time, seconds.
struct Clock {
    using time_point = double;
    static double now() {
        timespec ts{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return static_cast<double>(ts.tv_sec) + 1e-9 * static_cast<double>(ts.tv_nsec);
    }
};

double Seconds(double t0) { return Clock::now() - t0; }

// The first line of /proc/loadavg, or "?" where there is none.
std::string LoadAverage() {
    char line[128] = "?";
    if (std::FILE* f = std::fopen("/proc/loadavg", "r")) {
        if (std::fgets(line, sizeof line, f) == nullptr) line[0] = '\0';
        std::fclose(f);
    }
    std::string s(line);
    while (!s.empty() && (s.back() == '\n' || s.back() == '\r')) s.pop_back();
    return s;
}

struct Figure {
    double median, fastest;
};

Figure Summary(std::vector<double> t) {
    std::sort(t.begin(), t.end());
    const std::size_t n = t.size();
    return {n % 2 == 1 ? t[n / 2] : 0.5 * (t[n / 2 - 1] + t[n / 2]), t[0]};
}

void Print(const char* what, const std::vector<double>& t) {
    const Figure f = Summary(t);
    std::printf("%-24s median %9.1f ms   fastest %9.1f ms\n", what, f.median * 1e3,
                f.fastest * 1e3);
}

void Ratio(const char* what, const std::vector<double>& a, const std::vector<double>& b,
           const char* goal) {
    const Figure fa = Summary(a), fb = Summary(b);
    std::printf("%-24s median %9.3f      fastest %9.3f      (goal %s)\n", what,
                fa.median / fb.median, fa.fastest / fb.fastest, goal);
}

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 5;
    const std::string loadBefore = LoadAverage();
    auto source = std::make_unique<CTin>();
    tin_bench::Load(*source, tin_bench::PointSet::kScan, 1000000);
    const std::vector<tin_bench::Ray> rays = tin_bench::PhotoRays();

    std::vector<double> createTin, build, ours, embree, embreeBuild;
    std::unique_ptr<CTin> tin;
    CXYZ hit;
    int tri = -1;
    for (int i = 0; i < runs; ++i) {
        tin = std::make_unique<CTin>(*source);
        double t0 = Clock::now();
        if (tin->CreateTin(0.0) != 1) return 1;
        createTin.push_back(Seconds(t0));
        t0 = Clock::now();
        tin->IntersectRay(tin_bench::Origin(rays[0]), tin_bench::Dir(rays[0]), hit, tri);
        build.push_back(Seconds(t0));
    }
    RTCDevice device = rtcNewDevice("threads=1");
    const double* o = rays[0].o;
    RTCScene scene = nullptr;
    for (int i = 0; i < runs; ++i) {
        if (scene != nullptr) rtcReleaseScene(scene);
        scene = rtcNewScene(device);
        rtcSetSceneBuildQuality(scene, RTC_BUILD_QUALITY_HIGH);
        RTCGeometry geom = rtcNewGeometry(device, RTC_GEOMETRY_TYPE_TRIANGLE);
        float* vb = static_cast<float*>(rtcSetNewGeometryBuffer(
            geom, RTC_BUFFER_TYPE_VERTEX, 0, RTC_FORMAT_FLOAT3, 3 * sizeof(float),
            static_cast<std::size_t>(tin->GetPointSize())));
        unsigned* ib = static_cast<unsigned*>(rtcSetNewGeometryBuffer(
            geom, RTC_BUFFER_TYPE_INDEX, 0, RTC_FORMAT_UINT3, 3 * sizeof(unsigned),
            static_cast<std::size_t>(tin->GetTriSize())));
        for (int p = 0; p < tin->GetPointSize(); ++p) {
            vb[3 * p] = static_cast<float>(tin->m_point[p].x - o[0]);
            vb[3 * p + 1] = static_cast<float>(tin->m_point[p].y - o[1]);
            vb[3 * p + 2] = static_cast<float>(tin->m_point[p].z - o[2]);
        }
        for (int t = 0; t < tin->GetTriSize(); ++t)
            for (int k = 0; k < 3; ++k) ib[3 * t + k] = static_cast<unsigned>(tin->GetTri(t).v[k]);
        rtcCommitGeometry(geom);
        rtcAttachGeometry(scene, geom);
        rtcReleaseGeometry(geom);
        const double t0 = Clock::now();
        rtcCommitScene(scene);
        embreeBuild.push_back(Seconds(t0));
    }

    std::vector<int> ourTri(rays.size(), -1);
    std::vector<unsigned> embreeTri(rays.size(), RTC_INVALID_GEOMETRY_ID);
    RTCIntersectContext context;
    rtcInitIntersectContext(&context);
    for (int i = 0; i < runs; ++i) {
        double t0 = Clock::now();
        for (std::size_t k = 0; k < rays.size(); ++k)
            ourTri[k] =
                tin->IntersectRay(tin_bench::Origin(rays[k]), tin_bench::Dir(rays[k]), hit, tri)
                    ? tri
                    : -1;
        ours.push_back(Seconds(t0));
        t0 = Clock::now();
        for (std::size_t k = 0; k < rays.size(); ++k) {
            RTCRayHit rh;
            rh.ray.org_x = 0.0f;
            rh.ray.org_y = 0.0f;
            rh.ray.org_z = 0.0f;
            rh.ray.dir_x = static_cast<float>(rays[k].d[0]);
            rh.ray.dir_y = static_cast<float>(rays[k].d[1]);
            rh.ray.dir_z = static_cast<float>(rays[k].d[2]);
            rh.ray.tnear = 0.0f;
            rh.ray.tfar = std::numeric_limits<float>::infinity();
            rh.ray.mask = 0xFFFFFFFFu;
            rh.ray.flags = 0;
            rh.ray.time = 0.0f;
            rh.hit.geomID = RTC_INVALID_GEOMETRY_ID;
            rtcIntersect1(scene, &context, &rh);
            embreeTri[k] =
                rh.hit.geomID == RTC_INVALID_GEOMETRY_ID ? RTC_INVALID_GEOMETRY_ID : rh.hit.primID;
        }
        embree.push_back(Seconds(t0));
    }
    rtcReleaseScene(scene);
    rtcReleaseDevice(device);

    std::size_t same = 0, hits = 0;
    for (std::size_t k = 0; k < rays.size(); ++k) {
        hits += ourTri[k] >= 0 ? 1 : 0;
        const int e = embreeTri[k] == RTC_INVALID_GEOMETRY_ID ? -1 : static_cast<int>(embreeTri[k]);
        same += e == ourTri[k] ? 1 : 0;
    }
    std::printf(
        "surface: %d points, %d triangles; %zu rays, %zu hits, %zu with the same "
        "triangle as Embree; %d runs\n",
        tin->GetPointSize(), tin->GetTriSize(), rays.size(), hits, same, runs);
    Print("CreateTin", createTin);
    Print("hierarchy build", build);
    Print("Embree build (1 thread)", embreeBuild);
    Print("IntersectRay (rays)", ours);
    Print("rtcIntersect1 (rays)", embree);
    Ratio("build / CreateTin", build, createTin, "<= 0.25");
    Ratio("IntersectRay / Embree", ours, embree, "<= 2");
    std::printf("load average before: %s\nload average after:  %s\n", loadBefore.c_str(),
                LoadAverage().c_str());
    return 0;
}
