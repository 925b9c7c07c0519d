// The same inputs give the same bytes and the same meshes and plans on every processor: the
// constants below hold on x86-64, aarch64 and armhf alike. Each file is compared as its length
// and the FNV-1a 64 hash of its bytes; a mesh as the hash of its triangles (v[0..2], nb[0..2]
// as little-endian 32-bit integers, in triangle order) and a plan as the hash of its targets
// (H, V as little-endian IEEE-754 doubles, in measuring order). A changed constant means the
// results moved on one processor: floating-point contraction, long double or a libm function.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "common/KelTest.h"
#include "photogrammetry/Camera.h"
#include "platform/Time.h"
#include "scanning/CleverFineScan.h"
#include "scanning/ScanScene.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"
#include "storage/StorageTestUtil.h"
#include "surface/Tin.h"

namespace {

struct Fnv {
    std::uint64_t h = 0xcbf29ce484222325ull;
    void Byte(std::uint8_t b) {
        h ^= b;
        h *= 0x100000001b3ull;
    }
    void U32(std::uint32_t v) {
        for (int k = 0; k < 4; ++k) Byte(static_cast<std::uint8_t>(v >> (8 * k)));
    }
    void F64(double d) {
        std::uint64_t v;
        std::memcpy(&v, &d, 8);
        for (int k = 0; k < 8; ++k) Byte(static_cast<std::uint8_t>(v >> (8 * k)));
    }
};

std::string Hex(std::uint64_t v) {
    char s[24];
    std::snprintf(s, sizeof s, "0x%016llx", static_cast<unsigned long long>(v));
    return s;
}

// "<length>:<hash>" of a file's bytes.
std::string FileSum(const std::string& path) {
    const std::string bytes = kel_test::ReadFileBytes(path);
    Fnv f;
    for (char c : bytes) f.Byte(static_cast<std::uint8_t>(c));
    return std::to_string(bytes.size()) + ":" + Hex(f.h);
}

std::uint64_t MeshHash(const CTin& tin) {
    Fnv f;
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        const CTin::CTri& t = tin.GetTri(i);
        for (int k = 0; k < 3; ++k) f.U32(static_cast<std::uint32_t>(t.v[k]));
        for (int k = 0; k < 3; ++k) f.U32(static_cast<std::uint32_t>(t.nb[k]));
    }
    return f.h;
}

// Uniform in [0, 1) from the top 53 bits of the generator's output (mt19937_64's sequence is
// fixed by the C++ standard; the distributions of <random> are not).
double Unit(std::mt19937_64& rng) { return static_cast<double>(rng() >> 11) * 0x1.0p-53; }

// A rolling terrain of n points scattered over 400 m x 300 m, 3000 km from the origin
// (computation frame, metres): sin, cos and exp in every height.
void Terrain(CTin& tin, int n, std::uint64_t seed) {
    std::mt19937_64 rng(seed);
    tin.BeginAddPoint(n);
    for (int i = 0; i < n; ++i) {
        const double x = 3.0e6 + 400.0 * Unit(rng), y = 5.5e6 + 300.0 * Unit(rng);
        const double z = 250.0 + 12.0 * std::sin(x / 37.0) * std::cos(y / 53.0) +
                         4.0 * std::exp(-((x - 3.0e6 - 200.0) * (x - 3.0e6 - 200.0)) / 5000.0);
        tin.AddPoint2(x, y, z);
    }
    tin.EndAddPoint();
}

class CrossArchTest : public kel_test::KelFixture {
protected:
    void TearDown() override {
        kel_time::SetClock(nullptr, nullptr);
        KelFixture::TearDown();
    }
};

TEST_F(CrossArchTest, FilesMeshesAndPlansAreTheSameOnEveryProcessor) {
    kel_time::SetClock(&storage_test::FixedClock, nullptr);  // 2024-03-05 06:07:08.009

    // A surface file (version 2: texture coordinates are floats computed from the range) of a
    // terrain with a break line and thin boundary triangles removed.
    {
        kel_templ::CKelArray<CTin, CTin&> tins;
        CTin tin;
        Terrain(tin, 2000, 7);
        const int a = tin.AddPoint(3.0e6 + 20.5, 5.5e6 + 10.25, 251.0);
        const int b = tin.AddPoint(3.0e6 + 380.75, 5.5e6 + 290.5, 262.5);
        ASSERT_EQ(tin.AddBreakLine(a, b), 1);
        ASSERT_EQ(tin.CreateTin(5.0), 1);
        tin.SetName(L"crossarch");
        tins.Add(tin);
        ASSERT_EQ(CTin::WriteBIN_VER2(L"\\terrain.tin", tins), 1);
        EXPECT_EQ(FileSum(HostPath("terrain.tin")), "164532:0xc4fef963ba38378d");
    }

    // A scan: points where pixels of the photograph meet a bumpy hillside, through a camera
    // with distortion, stored in a scan point database and a scan log.
    CKelScanProject p;
    kel_scene::MakeProject(p, true, true);
    kel_scene::Orient(p);
    {
        CSDBLog log;
        log.SetLogMode(1);
        ASSERT_EQ(log.Start(), 0);
        long date = 0, time = 0;
        char text[] = "cross-check";
        ASSERT_EQ(log.WriteHeader(kel_text::CKelString(L"\\scan.dbs"), 17, date, time, text), 0);
        CSFile db;
        ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_CREATE), 0);
        ASSERT_EQ(db.WriteHeader(date, time), 0);
        int n = 0;
        for (int row = 100; row < 1200; row += 150)
            for (int col = 80; col < 1600; col += 170) {
                CXYZ xyz;
                ASSERT_EQ(p.ImgToXYZ(CXYZ(col + 0.25, row + 0.75, 0.0), xyz), 1);
                CSPoint pt;
                pt.m_name.Format(L"S%d", ++n);
                pt.m_X = xyz.x;
                pt.m_Y = xyz.y;
                pt.m_Z = xyz.z;
                pt.m_code = L"HILL";
                pt.m_value = row * 10000 + col;
                pt.m_text1.Format(L"%.4f", xyz.z);
                ASSERT_EQ(db.AddPoint(pt), n);
                ASSERT_EQ(log.WriteRec(pt), 0);
            }
        ASSERT_EQ(db.CloseDB(), 0);
        ASSERT_EQ(log.WriteFooter(1), 0);
        log.Stop();
        EXPECT_EQ(FileSum(HostPath("scan.dbs")), "18464:0xe828166524ce6fc0");
        EXPECT_EQ(FileSum(HostPath("temp/SDB.log")), "768:0x3212acb3698cd850");
    }

    // A camera file: a four-term radial model with its table and the scene's fiducials.
    {
        CCamera cam = kel_scene::Camera(true);
        cam.m_dist.SetDistModel(DIST_K1K2K3K4);
        for (int i = 0; i < 4; ++i) cam.m_dist.AddPara(i, (i % 2 ? 1.0 : -1.0) * 3.3e-4 / (i + 1));
        ASSERT_EQ(cam.m_dist.ParaToDist(0.375, 20), 1);
        CXYZ mark(-3.75, 2.8125, 0.0);
        mark.m_name = L"F1";
        cam.m_fiducialMark.Add(mark);
        ASSERT_EQ(cam.Write(L"\\crossarch.cam"), 1);
        EXPECT_EQ(FileSum(HostPath("crossarch.cam")), "1869:0x21c9f5dd81befe88");
    }

    // The mesh of 100 000 scattered points.
    {
        CTin tin;
        Terrain(tin, 100000, 11);
        ASSERT_EQ(tin.CreateTin(0.0), 1);
        EXPECT_EQ(tin.GetTriSize(), 199966);
        EXPECT_EQ(Hex(MeshHash(tin)), "0xe51e3a74d6a5c07e");
    }

    // A fine plan of about 1000 targets from a region drawn on the photograph: outline through
    // the surface into angles, spacing from the region's distance.
    {
        CPolyline region(CPolyline::kClosed);
        const double corners[5][2] = {{400, 300}, {1200, 350}, {1300, 900}, {800, 700}, {350, 950}};
        for (const auto& c : corners) {
            CVertex vx(c[0], c[1], 0.0, 0);
            region.AddVertex(vx);
        }
        CCleverFineScan plan;
        ASSERT_EQ(p.ComputeInclineGrid(region, 0.068, plan), 1);
        EXPECT_EQ(plan.CalcPtAngle(true), 1008);
        Fnv f;
        double h = 0.0, v = 0.0;
        while (plan.NextPt(h, v) == 1) {
            f.F64(h);
            f.F64(v);
        }
        EXPECT_EQ(Hex(f.h), "0xcb0293fb734859ef");
    }
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
