// IntersectRay's hierarchy against Embree's single-ray query (rtcIntersect1) on the surface of
// a million scan-ordered points and 100 000 rays through the pixels of a photograph; and the
// hierarchy's build against CreateTin. Each figure is the fastest of `runs` (default 3), in
// the thread's CPU time (a shared, busy machine preempts; CPU time keeps the ratios fair), and
// the ray passes of the two alternate.
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

}  // namespace

int main(int argc, char** argv) {
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
    auto source = std::make_unique<CTin>();
    tin_bench::Load(*source, tin_bench::PointSet::kScan, 1000000);
    const std::vector<tin_bench::Ray> rays = tin_bench::PhotoRays();

    double createTin = 1e30, build = 1e30, ours = 1e30, embree = 1e30, embreeBuild = 1e30;
    std::unique_ptr<CTin> tin;
    for (int i = 0; i < runs; ++i) {
        tin = std::make_unique<CTin>(*source);
        const double t0 = Clock::now();
        if (tin->CreateTin(0.0) != 1) return 1;
        createTin = std::min(createTin, Seconds(t0));
    }
    CXYZ hit;
    int tri = -1;
    for (int i = 0; i < runs; ++i) {
        tin->DropRayIndex();
        const double t0 = Clock::now();
        tin->IntersectRay(tin_bench::Origin(rays[0]), tin_bench::Dir(rays[0]), hit, tri);
        build = std::min(build, Seconds(t0));
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
        embreeBuild = std::min(embreeBuild, Seconds(t0));
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
        ours = std::min(ours, Seconds(t0));
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
        embree = std::min(embree, Seconds(t0));
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
        "triangle as Embree\n",
        tin->GetPointSize(), tin->GetTriSize(), rays.size(), hits, same);
    std::printf("CreateTin            %10.1f ms\n", createTin * 1e3);
    std::printf("hierarchy build      %10.1f ms   build / CreateTin  %.3f (goal <= 0.25)\n",
                build * 1e3, build / createTin);
    std::printf("Embree scene build   %10.1f ms (one thread)\n", embreeBuild * 1e3);
    std::printf("IntersectRay x %zu %10.1f ms   %.3f us a ray\n", rays.size(), ours * 1e3,
                ours / rays.size() * 1e6);
    std::printf("rtcIntersect1 x %zu %9.1f ms   %.3f us a ray\n", rays.size(), embree * 1e3,
                embree / rays.size() * 1e6);
    std::printf("ours / Embree        %10.3f (goal <= 2)\n", ours / embree);
    return 0;
}
