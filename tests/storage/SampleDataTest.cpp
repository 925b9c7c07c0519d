// The sample database and scan log in data/ are exactly what this generator makes; run with
// KELSCAN_WRITE_SAMPLES=1 to write them again (a change of bytes needs its reason in the commit).
#include <cmath>
#include <cstdlib>
#include <string>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "platform/KelMath.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

using namespace storage_test;
using kel_text::CKelString;

namespace {

class SampleData : public kel_test::KelFixture {};

constexpr int kSamplePoints = 12;
constexpr int kDeletedPoint = 5;
constexpr int kLoggedPoints = 8;  // the sample log's scan was cut off after this point

// Point i of a 4 x 3 grid on a wall 20 m north of the station, 1 m apart.
CSPoint WallPoint(int i) {
    const int col = (i - 1) % 4, row = (i - 1) / 4;
    CSPoint p;
    p.m_name.Format(L"S%03d", i);
    p.m_X = 1020.0;
    p.m_Y = 498.5 + col;
    p.m_Z = 101.0 + row;
    double h = std::atan2(p.m_Y - 500.0, 20.0) * 180.0 / kel_math::kPi;  // from north to east
    if (h < 0.0) h += 360.0;
    p.m_text1.Format(L"H=%.4f", h);
    p.m_text2 = L"fine scan 1";
    p.m_code = L"WALL";
    p.m_value = i;
    return p;
}

TEST_F(SampleData, DataFolderHoldsTheGeneratedSamples) {
    CSFile db;
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_CREATE), 0);
    long date = kDateCode, time = kTimeCode;
    ASSERT_EQ(db.WriteHeader(date, time), 0);
    for (int i = 1; i <= kSamplePoints; ++i) {
        CSPoint p = WallPoint(i);
        ASSERT_EQ(db.AddPoint(p), i);
    }
    ASSERT_EQ(db.DeletePoint(kDeletedPoint), kDeletedPoint);
    db.CloseDB();

    kel_time::SetClock(&FixedClock, nullptr);
    CSDBLog log;
    log.SetLogMode(1);
    ASSERT_EQ(log.Start(), 0);
    char text[] = "fine scan 1";
    ASSERT_EQ(log.WriteHeader(CKelString(L"\\Data\\scan.dbs"), kSamplePoints, date, time, text), 0);
    for (int i = 1; i <= kLoggedPoints; ++i) {
        CSPoint p = WallPoint(i);
        ASSERT_EQ(log.WriteRec(p), 0);
    }
    log.Stop();
    kel_time::SetClock(nullptr, nullptr);

    const std::string dbBytes = kel_test::ReadFileBytes(HostPath("scan.dbs"));
    const std::string logBytes = kel_test::ReadFileBytes(HostPath("temp/SDB.log"));
    const std::string data = KELSCAN_TEST_DATA_DIR;
    if (std::getenv("KELSCAN_WRITE_SAMPLES") != nullptr) {
        kel_test::WriteFileBytes(data + "/scan.dbs", dbBytes);
        kel_test::WriteFileBytes(data + "/SDB.log", logBytes);
    }
    EXPECT_EQ(dbBytes.size(), 32u + kSamplePoints * 256);
    EXPECT_EQ(kel_test::ReadFileBytes(data + "/scan.dbs"), dbBytes);
    EXPECT_EQ(kel_test::ReadFileBytes(data + "/SDB.log"), logBytes);
}

}  // namespace
