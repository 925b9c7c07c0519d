#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "platform/Bytes.h"
#include "storage/SDBLog.h"
#include "storage/SPoint.h"

using namespace storage_test;
using kel_text::CKelString;

// The replaceable global allocator of this test program, which a test can make fail. The
// operators are kept out of line so that a tool which puts its own in place (valgrind)
// replaces both, not new alone. (GCC takes them for its built-in ones and warns that free
// does not match new.)
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
namespace {
bool g_newFails = false;
// Every allocation fails while one of these lives.
struct NoMemory {
    NoMemory() { g_newFails = true; }
    ~NoMemory() { g_newFails = false; }
};
}  // namespace
__attribute__((noinline)) void* operator new(std::size_t n) {
    void* p = g_newFails ? nullptr : std::malloc(n == 0 ? 1 : n);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept { std::free(p); }

namespace {

class SDBLogTest : public kel_test::KelFixture {
protected:
    void SetUp() override {
        KelFixture::SetUp();
        kel_time::SetClock(&FixedClock, nullptr);
    }
    void TearDown() override {
        kel_time::SetClock(nullptr, nullptr);
        KelFixture::TearDown();
    }
    std::vector<std::uint8_t> LogBytes() {
        return Bytes(kel_test::ReadFileBytes(HostPath("temp/SDB.log")));
    }
};

TEST(SPoint, RecordBytesAreGoldenAndReadBack) {
    SPOINTREC rec;
    std::memset(rec.b, 0xEE, sizeof rec.b);
    ConvSPoint2Rec(GoldenPoint(), rec);
    EXPECT_EQ(std::vector<std::uint8_t>(rec.b, rec.b + 256), GoldenRecord());

    CSPoint back;
    back.m_recNo = 9;
    ConvRec2SPoint(rec, back);
    EXPECT_TRUE(SamePoint(back, GoldenPoint()));
    EXPECT_EQ(back.m_recNo, 9);  // not part of the record

    // Texts are cut to their field less one byte, so a NUL always ends them; a full field
    // without NUL (written by someone else) is read to its end without running over.
    CSPoint longPt;
    longPt.m_name = CKelString(L'N', 40);
    longPt.m_text1 = CKelString(L'a', 100);
    longPt.m_code = CKelString(L'c', 40);
    longPt.m_value = -1;
    ConvSPoint2Rec(longPt, rec);
    EXPECT_EQ(rec.b[30], 'N');
    EXPECT_EQ(rec.b[31], 0);
    EXPECT_EQ(rec.b[118], 'a');
    EXPECT_EQ(rec.b[119], 0);
    EXPECT_EQ(rec.b[216], 0);
    EXPECT_EQ(rec.b[217], 0xFF);
    EXPECT_EQ(rec.b[220], 0xFF);
    std::memset(rec.b, 'x', 32);
    ConvRec2SPoint(rec, back);
    EXPECT_EQ(back.m_name, CKelString(L'x', 32));
    EXPECT_EQ(back.m_value, -1);

    // Non-Latin-1 characters become '?', Latin-1 ones their byte.
    longPt.m_name = L"\u00e9\u4e2d";
    ConvSPoint2Rec(longPt, rec);
    EXPECT_EQ(rec.b[0], 0xE9);
    EXPECT_EQ(rec.b[1], '?');
}

TEST(SPoint, ExchangesNameAndCoordinatesWithXYZ) {
    CXYZ p(L"T7", 1.0, 2.0, 3.0);
    p.m_code = L"kept";
    CSPoint s = GoldenPoint();
    s.Set(p);
    EXPECT_EQ(s.m_name, CKelString(L"T7"));
    EXPECT_EQ(s.m_Z, 3.0);
    EXPECT_EQ(s.m_code, CKelString(L"WALL"));  // not a coordinate: kept
    CXYZ q;
    q.m_code = L"mine";
    GoldenPoint().Get(q);
    EXPECT_EQ(q.m_name, CKelString(L"P1"));
    EXPECT_EQ(q.y, -2.0);
    EXPECT_EQ(q.m_code, CKelString(L"mine"));
    s.Init();
    EXPECT_TRUE(s.m_name.IsEmpty());
    EXPECT_EQ(s.m_status, 0);
    EXPECT_EQ(s.m_recNo, 0);
}

TEST_F(SDBLogTest, SlotsAreGolden) {
    CSDBLog log;
    log.SetLogMode(1);
    ASSERT_EQ(log.Start(), 0);
    long date = 0, time = 0;
    char text[] = "operator A";
    const CKelString name(L"\\Data\\scan-0001.dbs");
    CSPoint p = GoldenPoint();
    // Header and record need no memory: they are written even when none is left.
    int header = -9, record = -9;
    {
        NoMemory none;
        header = log.WriteHeader(name, -5, date, time, text);
        record = log.WriteRec(p);
    }
    ASSERT_EQ(header, 0);
    ASSERT_EQ(record, 0);
    EXPECT_EQ(date, kDateCode);
    EXPECT_EQ(time, kTimeCode);

    std::vector<std::uint8_t> want(768, 0);
    Put(want, 0, "SDBLOG_VER01");                  // 0: magic
    want[16] = 1;                                  // 16: version 1
    PutBytes(want, 20, {0xFB, 0xFF, 0xFF, 0xFF});  // 20: -5
    Put(want, 24, "\\Data\\scan-0001.dbs");        // 24: name
    // 88: 753026 = 0x000B7D82; 92: 22028009 = 0x01501EE9
    PutBytes(want, 88, {0x82, 0x7D, 0x0B, 0x00, 0xE9, 0x1E, 0x50, 0x01});
    Put(want, 96, "operator A");  // 96: text
    const std::vector<std::uint8_t> rec = GoldenRecord();
    std::copy(rec.begin(), rec.end(), want.begin() + 256);  // slot 2: the point
    // slot 3: footer 0 (scan open)
    EXPECT_EQ(LogBytes(), want);
    EXPECT_EQ(log.JudgeSDBLog(), -1);

    ASSERT_EQ(log.WriteFooter(1), 0);
    want[512] = 1;
    EXPECT_EQ(LogBytes(), want);
    EXPECT_EQ(log.JudgeSDBLog(), 0);
    EXPECT_EQ(log.Stop(), 0);
    EXPECT_TRUE(Lines().empty());
    EXPECT_TRUE(Messages().empty());
}

TEST_F(SDBLogTest, RecognisesAnInterruptedScanAndRecoversIt) {
    {
        CSDBLog log;
        log.SetLogMode(1);
        ASSERT_EQ(log.Start(), 0);
        // A fresh log is 768 zero bytes: no usable header, nothing to resume.
        EXPECT_EQ(LogBytes(), std::vector<std::uint8_t>(768, 0));
        EXPECT_EQ(log.JudgeSDBLog(), 0);
        long d, t;
        const CKelString longName(L'n', 100);
        char text[40];
        std::memset(text, 't', sizeof text);  // no NUL within 32 bytes: 32 are stored
        ASSERT_EQ(log.WriteHeader(longName, 42, d, t, text), 0);
        CSPoint p = ScanPoint(3);
        p.m_value = -123456789;
        ASSERT_EQ(log.WriteRec(p), 0);
        log.Stop();
    }
    // Next start: the scan was not ended.
    CSDBLog log;
    log.SetLogMode(1);
    ASSERT_EQ(log.Start(), 0);
    EXPECT_EQ(log.JudgeSDBLog(), -1);
    char name[64];
    char text[33] = {};
    long dateTime[2] = {0, 0};
    int value = 0;
    CSPoint pt;
    ASSERT_EQ(log.GetLogInfo(name, value, dateTime, pt, text), 0);
    EXPECT_EQ(std::string(name), std::string(63, 'n'));
    EXPECT_EQ(value, 42);
    EXPECT_EQ(dateTime[0], kDateCode);
    EXPECT_EQ(dateTime[1], kTimeCode);
    EXPECT_EQ(std::string(text), std::string(32, 't'));
    CSPoint want = ScanPoint(3);
    want.m_value = -123456789;
    EXPECT_TRUE(SamePoint(pt, want));

    // A bad version or magic: no usable header, and GetLogInfo fails leaving its outputs.
    kel_test::WriteFileBytes(HostPath("temp/SDB.log"), std::string(768, '\0'));
    value = 77;
    EXPECT_EQ(log.GetLogInfo(name, value, dateTime, pt, text), -1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(log.JudgeSDBLog(), 0);
    std::vector<std::uint8_t> b(768, 0);
    Put(b, 0, "SDBLOG_VER01");
    b[16] = 2;
    kel_test::WriteFileBytes(HostPath("temp/SDB.log"), std::string(b.begin(), b.end()));
    EXPECT_EQ(log.JudgeSDBLog(), 0);
    // An empty log file.
    kel_test::WriteFileBytes(HostPath("temp/SDB.log"), "");
    EXPECT_EQ(log.JudgeSDBLog(), -1);
    log.Stop();
    EXPECT_EQ(log.JudgeSDBLog(), -1);  // not open
    // Start sets the length of a short or long log back to 768 bytes.
    kel_test::WriteFileBytes(HostPath("temp/SDB.log"), std::string(1000, 'x'));
    ASSERT_EQ(log.Start(), 0);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("temp/SDB.log")).size(), 768u);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SDBLogTest, ModeZeroTouchesNothingAndFailuresAreNegative) {
    CSDBLog log;
    long d = 1, t = 1;
    CSPoint p;
    int v = 0;
    EXPECT_EQ((std::vector<int>{log.Start(), log.WriteHeader(CKelString(L"x"), 1, d, t, nullptr),
                                log.WriteRec(p), log.WriteFooter(1), log.JudgeSDBLog(),
                                log.GetLogInfo(nullptr, v, nullptr, p, nullptr)}),
              std::vector<int>(6, 0));
    EXPECT_EQ(d, 1);
    EXPECT_FALSE(kel_test::ReadFileBytes(HostPath("temp/SDB.log")).size() > 0);

    log.SetLogMode(1);
    // Not started: writes fail.
    EXPECT_EQ(log.WriteFooter(1), -1);
    EXPECT_EQ(log.WriteHeader(CKelString(L"x"), 1, d, t, nullptr), -1);
    // A write the file layer refuses.
    ASSERT_EQ(log.Start(), 0);
    {
        FileFault refuseWrites(kel_platform::FileOp::Write);
        EXPECT_EQ(log.WriteRec(p), -1);
        EXPECT_EQ(log.WriteHeader(CKelString(L"x"), 1, d, t, nullptr), -1);
    }
    // The log's folder is a file: it cannot be opened.
    log.Stop();
    std::filesystem::remove_all(HostPath("temp"));
    kel_test::WriteFileBytes(HostPath("temp"), "");
    EXPECT_EQ(log.Start(), -1);
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
