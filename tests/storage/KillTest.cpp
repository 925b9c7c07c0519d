// Kill tests: a child process writes and is killed (SIGKILL) at seeded random moments; the
// parent then checks that what is on disk is complete and consistent. POSIX only.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "platform/File.h"
#include "storage/PointFile.h"
#include "storage/Project.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

using namespace storage_test;
using kel_text::CKelString;
using XYZArray = kel_templ::CKelArray<CXYZ, CXYZ&>;
using PointArray = kel_templ::CKelArray<CSPoint, CSPoint&>;

namespace {

constexpr int kKills = 200;
constexpr unsigned kSeed = 20240305;

class KillTest : public kel_test::KelFixture {};

// Runs body in a child process, kills it after delayUs microseconds (unless it ended first) and
// reaps it. Returns true when the child was killed, false when it exited on its own.
template <class Body>
bool RunAndKill(Body body, long delayUs) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    usleep(static_cast<useconds_t>(delayUs));
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFSIGNALED(status);
}

// Microseconds body takes when it runs to its end in a child.
template <class Body>
long TimeChild(Body body) {
    const auto t0 = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(0);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0)
            .count());
}

XYZArray Version(int n) {
    XYZArray a;
    for (int i = 0; i < n; ++i) {
        CXYZ p(nullptr, n + i * 0.5, i * 0.25, -i * 1.0);
        p.m_name.Format(L"V%dP%d", n, i);
        a.Add(p);
    }
    return a;
}

TEST_F(KillTest, SafeReplacementKeepsACompleteVersion) {
    ASSERT_TRUE(CreateDirectoryW(L"\\Data", nullptr));
    CProject pr(L"P1");
    pr.FilePathMake(L"\\Data");
    XYZArray a = Version(40), b = Version(70);
    ASSERT_EQ(pr.WriteCSVFilePro(nullptr, &a, 0), 1);
    ASSERT_EQ(WriteCSVFile(L"\\Data\\a.ref", &a, 0), 1);
    ASSERT_EQ(WriteCSVFile(L"\\Data\\b.ref", &b, 0), 1);
    const std::string va = kel_test::ReadFileBytes(HostPath("Data/a.ref"));
    const std::string vb = kel_test::ReadFileBytes(HostPath("Data/b.ref"));
    // The child rewrites the file in a loop, alternating the two versions.
    auto body = [&]() {
        for (int i = 0; i < 100000; ++i) pr.WriteCSVFilePro(nullptr, i % 2 ? &a : &b, 0);
    };
    const long oneRound = TimeChild([&]() { pr.WriteCSVFilePro(nullptr, &b, 0); });
    std::mt19937 rng(kSeed);
    std::uniform_int_distribution<long> delay(0, 4 * oneRound + 200);
    int withoutCurrent = 0;
    for (int k = 0; k < kKills; ++k) {
        SCOPED_TRACE("kill " + std::to_string(k) + " seed " + std::to_string(kSeed));
        ASSERT_TRUE(RunAndKill(body, delay(rng)));
        const bool current = FileExists(pr.m_strCsvPath) != FALSE;
        withoutCurrent += current ? 0 : 1;
        const std::string rel = current ? "Data/P1.csv" : "Data/tmpdel_P1.csv";
        const std::string bytes = kel_test::ReadFileBytes(HostPath(rel));
        ASSERT_TRUE(bytes == va || bytes == vb) << rel << " holds " << bytes.size() << " bytes";
        XYZArray read;
        ASSERT_EQ(ReadCSVFile(current ? pr.m_strCsvPath : pr.m_strDelCsvPath, read), 1);
        ASSERT_TRUE(read.GetSize() == 40 || read.GetSize() == 70);
    }
    // The kills did land at various steps: afterwards a normal write still works.
    ASSERT_EQ(pr.WriteCSVFilePro(nullptr, &a, 0), 1);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("Data/P1.csv")), va);
    RecordProperty("KillsWithoutCurrentFile", withoutCurrent);
}

TEST_F(KillTest, InterruptedScanIsRecognisedAndItsLastPointIsInTheDatabase) {
    constexpr int kPoints = 20;
    auto scan = []() {
        CSDBLog log;
        log.SetLogMode(1);
        if (log.Start() != 0) return;
        CSFile db;
        if (db.OpenDB(L"\\scan.dbs", SFILE_CREATE) < 0) return;
        long d, t;
        char text[] = "scan";
        log.WriteHeader(CKelString(L"\\scan.dbs"), kPoints, d, t, text);
        for (int i = 1; i <= kPoints; ++i) {
            CSPoint p = ScanPoint(i);
            db.AddPoint(p);
            log.WriteRec(p);
        }
        log.WriteFooter(1);
        db.CloseDB();
        log.Stop();
    };
    const long full = TimeChild(scan);
    std::mt19937 rng(kSeed + 1);
    std::uniform_int_distribution<long> delay(0, full + full / 4);
    int interrupted = 0, finished = 0, beforeHeader = 0;
    // At least kKills kills; on a loaded machine the scan's time varies from the one measured,
    // so more follow (up to three times as many) until a quarter of them landed mid-scan.
    for (int k = 0; k < kKills || (interrupted < kKills / 4 && k < 3 * kKills); ++k) {
        SCOPED_TRACE("kill " + std::to_string(k) + " seed " + std::to_string(kSeed + 1));
        std::remove(HostPath("temp/SDB.log").c_str());
        std::remove(HostPath("scan.dbs").c_str());
        RunAndKill(scan, delay(rng));

        CSDBLog log;
        log.SetLogMode(1);
        ASSERT_EQ(log.Start(), 0);
        const std::string raw = kel_test::ReadFileBytes(HostPath("temp/SDB.log"));
        const bool footerWritten = raw.size() == 768 && raw[512] == 1;
        const int verdict = log.JudgeSDBLog();
        CSFile db;
        const int records = db.OpenDB(L"\\scan.dbs", SFILE_READ);
        char name[64];
        char text[33] = {};
        long dateTime[2];
        int value = 0;
        CSPoint last;
        const int info = log.GetLogInfo(name, value, dateTime, last, text);
        if (info != 0) {
            // Killed before the header was complete: nothing to resume, nothing measured.
            ++beforeHeader;
            EXPECT_EQ(verdict, 0);
            EXPECT_LE(records, 0);
            continue;
        }
        EXPECT_STREQ(name, "\\scan.dbs");
        EXPECT_EQ(value, kPoints);
        if (!footerWritten) {
            ++interrupted;
            ASSERT_EQ(verdict, -1);
        } else {
            ++finished;
            ASSERT_EQ(verdict, 0);
            ASSERT_EQ(records, kPoints);  // the footer comes after every point
        }
        ASSERT_GE(records, 0);
        if (last.m_name.IsEmpty()) {
            EXPECT_LE(records, 1);  // killed before the first point reached the log
            continue;
        }
        // The log's point is in the database at its place, and at most one more follows it.
        CSPoint stored;
        const int n = std::atoi(kel_text::WideToUtf8(last.m_name).c_str() + 1);
        ASSERT_EQ(db.ReadPoint(stored, n), n);
        EXPECT_TRUE(SamePoint(stored, last));
        EXPECT_TRUE(SamePoint(stored, ScanPoint(n)));
        EXPECT_TRUE(records == n || records == n + 1) << records << " records, last " << n;
    }
    // The moments spread over the scan.
    EXPECT_GE(interrupted, kKills / 4);
    EXPECT_GE(finished + beforeHeader, 1);
}

TEST_F(KillTest, DatabaseNeverShowsATornRecordAsLive) {
    auto append = []() {
        CSFile db;
        const int have = db.OpenDB(L"\\scan.dbs", SFILE_UPDATE);
        if (have < 0) return;
        // Single points and large blocks, whose writes a kill can cut short.
        int next = have + 1;
        for (int round = 0; round < 30; ++round) {
            CSPoint p = ScanPoint(next);
            db.AddPoint(p);
            ++next;
            kel_templ::CKelArray<CSPoint, CSPoint&> block;
            for (int i = 0; i < 200; ++i) AddCopy(block, ScanPoint(next + i));
            db.AddPoint(block);
            next += 200;
        }
    };
    const long full = TimeChild([]() {
        CSFile db;
        db.OpenDB(L"\\probe.dbs", SFILE_CREATE);
        for (int i = 1; i <= 40; ++i) {
            CSPoint p = ScanPoint(i);
            db.AddPoint(p);
        }
    });
    std::mt19937 rng(kSeed + 2);
    std::uniform_int_distribution<long> delay(0, full + 300);
    int torn = 0;
    int checkedUpTo = 0;
    CSFile db;
    for (int k = 0; k < kKills; ++k) {
        SCOPED_TRACE("kill " + std::to_string(k) + " seed " + std::to_string(kSeed + 2));
        RunAndKill(append, delay(rng));
        std::error_code ec;
        const std::size_t length =
            static_cast<std::size_t>(std::filesystem::file_size(HostPath("scan.dbs"), ec));
        const int records = db.OpenDB(L"\\scan.dbs", SFILE_READ);
        if (ec || length < 32) {
            // Killed while the database was being created: no header yet, and opening it
            // for update makes it a new database.
            EXPECT_TRUE(records == SFILE_IOERR || records == SFILE_BADDATA) << records;
            continue;
        }
        ASSERT_GE(records, 0);
        ASSERT_EQ(static_cast<std::size_t>(records), length < 32 ? 0 : (length - 32) / 256);
        torn += (length - 32) % 256 != 0 ? 1 : 0;
        // Every counted record is complete and live; check the new ones and the last one.
        CSPoint p;
        for (int n = checkedUpTo > 0 ? checkedUpTo : 1; n <= records; ++n) {
            ASSERT_EQ(db.ReadPoint(p, n), n);
            ASSERT_EQ(db.IsAliveRecord(p), 1) << n;
            ASSERT_TRUE(SamePoint(p, ScanPoint(n))) << n;
        }
        checkedUpTo = records;
        db.CloseDB();
        if (records > 3000) {  // start over, so that the file stays small
            std::remove(HostPath("scan.dbs").c_str());
            checkedUpTo = 0;
        }
    }
    RecordProperty("TornTails", torn);
}

// Version `round` of the database of `owner`: its size and every field follow from both, so
// a database read back tells whose it is and whether it is complete.
PointArray DbVersion(int owner, int round) {
    PointArray a;
    const int n = 3 + (owner * 5 + round) % 7;
    for (int j = 0; j < n; ++j) {
        CSPoint p = ScanPoint(owner * 1000 + round * 10 + j);
        p.m_name.Format(L"O%dR%dP%d", owner, round, j);
        a.Add(p);
    }
    return a;
}

// The round of owner's database at path when it holds one complete version of owner's own,
// else -1 (missing, torn, mixed or someone else's).
int OwnRound(const wchar_t* path, int owner) {
    CSFile db;
    const int records = db.OpenDB(path, SFILE_READ);
    CSPoint p;
    if (records < 1 || db.ReadPoint(p, 1) != 1) return -1;
    int o = -1, round = -1, j = -1;
    if (std::sscanf(kel_text::WideToUtf8(p.m_name).c_str(), "O%dR%dP%d", &o, &round, &j) != 3 ||
        o != owner)
        return -1;
    PointArray want = DbVersion(owner, round);
    if (records != want.GetSize()) return -1;
    for (int n = 1; n <= records; ++n)
        if (db.ReadPoint(p, n) != n || !SamePoint(p, want[n - 1])) return -1;
    return round;
}

// The temporary folder holds nothing after a replacement ran to its end.
void ExpectCleanTemp() {
    std::vector<CKelString> left;
    GetFileEntriesInFolder(L"\\temp", L"*", left);
    std::string names;
    for (const CKelString& n : left) names += kel_text::WideToUtf8(n) + " ";
    EXPECT_EQ(names, "");
}

CKelString DbPath(int owner) {
    return kel_text::Utf8ToWide(("\\db" + std::to_string(owner) + ".dbs").c_str());
}

TEST_F(KillTest, DatabaseReplacementKilledAtAnyStepIsFinishedByTheNext) {
    CSFile db;
    PointArray a = DbVersion(1, 0), b = DbVersion(1, 1), other = DbVersion(2, 0);
    // The file operations of one replacement, counted.
    ASSERT_EQ(db.WriteDB(L"\\a.dbs", a), a.GetSize());
    int ops = 0;
    kel_platform::SetFileFaultHook(
        [](void* ctx, kel_platform::FileOp, const char*) { return ++*static_cast<int*>(ctx), 0; },
        &ops);
    ASSERT_EQ(db.WriteDB(L"\\a.dbs", b), b.GetSize());
    kel_platform::SetFileFaultHook(nullptr, nullptr);
    ASSERT_GE(ops, 8);
    // The child is killed just before operation k (between the renames among them); the next
    // replacement, of another database of the folder or of the same one, finds what it left.
    for (int k = 1; k <= ops; ++k) {
        SCOPED_TRACE("killed before file operation " + std::to_string(k));
        ASSERT_EQ(db.WriteDB(L"\\a.dbs", a), a.GetSize());
        const pid_t pid = fork();
        if (pid == 0) {
            static int count = 0;
            count = k;
            kel_platform::SetFileFaultHook(
                [](void*, kel_platform::FileOp, const char*) {
                    if (--count == 0) kill(getpid(), SIGKILL);
                    return 0;
                },
                nullptr);
            CSFile child;
            child.WriteDB(L"\\a.dbs", b);
            _exit(0);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        ASSERT_TRUE(WIFSIGNALED(status));
        if (k % 2 == 1) {
            ASSERT_EQ(db.WriteDB(L"\\b.dbs", other), other.GetSize());
            const int round = OwnRound(L"\\a.dbs", 1);
            EXPECT_TRUE(round == 0 || round == 1) << round;
            EXPECT_EQ(OwnRound(L"\\b.dbs", 2), 0);
        } else {
            ASSERT_EQ(db.WriteDB(L"\\a.dbs", b), b.GetSize());
            EXPECT_EQ(OwnRound(L"\\a.dbs", 1), 1);
        }
        ExpectCleanTemp();
    }
    EXPECT_TRUE(Lines().empty());
}

TEST_F(KillTest, ConcurrentDatabaseReplacementsKeepEachDatabaseItsOwn) {
    constexpr int kWriters = 4;
    for (int i = 0; i < kWriters; ++i) {
        CSFile db;
        PointArray v = DbVersion(i, 0);
        ASSERT_EQ(db.WriteDB(DbPath(i), v), v.GetSize());
    }
    // Each writer replaces its own database of the folder over and over, all at once.
    auto writer = [](int i, int rounds) {
        CSFile db;
        for (int r = 1; r <= rounds; ++r) {
            PointArray v = DbVersion(i, r % 50);
            if (db.WriteDB(DbPath(i), v) != v.GetSize()) _exit(1);
        }
        _exit(0);
    };
    std::vector<pid_t> pids;
    for (int i = 0; i < kWriters; ++i) {
        const pid_t pid = fork();
        if (pid == 0) writer(i, 8);
        pids.push_back(pid);
    }
    for (pid_t pid : pids) {
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    for (int i = 0; i < kWriters; ++i) EXPECT_EQ(OwnRound(DbPath(i), i), 8) << i;
    ExpectCleanTemp();

    // The same, all killed at one random moment: after the next replacement of any database
    // of the folder, each holds a complete version of its own.
    std::mt19937 rng(kSeed + 3);
    std::uniform_int_distribution<long> delay(0, 60000);
    for (int k = 0; k < 20; ++k) {
        SCOPED_TRACE("kill " + std::to_string(k) + " seed " + std::to_string(kSeed + 3));
        pids.clear();
        for (int i = 0; i < kWriters; ++i) {
            const pid_t pid = fork();
            if (pid == 0) writer(i, 1000000);
            pids.push_back(pid);
        }
        usleep(static_cast<useconds_t>(delay(rng)));
        for (pid_t pid : pids) kill(pid, SIGKILL);
        for (pid_t pid : pids) waitpid(pid, nullptr, 0);
        CSFile db;
        PointArray v = DbVersion(9, k);
        ASSERT_EQ(db.WriteDB(L"\\other.dbs", v), v.GetSize());
        for (int i = 0; i < kWriters; ++i) ASSERT_GE(OwnRound(DbPath(i), i), 0) << i;
        ExpectCleanTemp();
    }
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
