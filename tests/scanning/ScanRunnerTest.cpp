// The simulated instrument and the scan runner over a synthetic hillside: every planned shot
// against the true surface, time against the planners' estimates, files and resume after
// interruptions (deterministic ones, and SIGKILL at random moments in forked children).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "common/KelTest.h"
#include "geometry/CalcXYZHV.h"
#include "platform/File.h"
#include "platform/NumText.h"
#include "platform/Time.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"
#include "scanning/ScanRunner.h"
#include "scanning/ScanScene.h"
#include "scanning/SimInstrument.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

namespace {

using namespace kel_scene;
using kel_test::ReadFileBytes;
using kel_test::WriteFileBytes;

constexpr double kDegTol = 1e-9;  // degrees

double AngleDiff(double a, double b) { return std::fabs(std::remainder(a - b, 360.0)); }

// The hillside of kel_scene with bumps, a 2 m grid, in the computation frame (mm).
const CTin& TrueSurface() {
    static const CTin tin = [] {
        CTin t;
        ForEachHillPoint(true, [&](CXYZ& p) {
            CCalcXYZHV::CnvSokuToMath(p);
            t.AddPoint(p.x, p.y, p.z);
        });
        t.CreateTin(0.0);
        return t;
    }();
    return tin;
}

CSimInstrument Sim(double sigmaAngle = 0.0, double sigmaDist = 0.0, std::uint64_t seed = 0) {
    CSimInstrument sim;
    EXPECT_EQ(sim.SetSurface(TrueSurface()), 1);
    sim.SetOccBs(kStation, kInstHeight, kBsAzimuth, kBsReading);
    sim.SetNoise(sigmaAngle, sigmaDist, seed);
    return sim;
}

// 8 rows x 6 columns across north (H 350 .. 370); the three upper rows look over the hill.
CCleverFineScan FinePlan() {
    CCleverFineScan p;
    p.SetSEVH(50.0, 350.0, 96.0, 10.0, 1);
    p.SetDVH(6.5, 4.0, 1);
    EXPECT_EQ(p.CalcPtAngle(true), 48);
    return p;
}

// 3 lines of 9 shots, H 352 .. 368, Halvex speed 100.
CCleverTrkScan TrackPlan() {
    CCleverTrkScan p;
    p.SetSEVH(80.0, 352.0, 92.0, 8.0, 1);
    p.SetDVH(6.0, 2.0, 100, 1);
    EXPECT_EQ(p.CalcLineAngle(true), 3);
    return p;
}

// Progress reports, as the callback receives them.
struct SReport {
    int done, total;
    double elapsed;
    int estimate;
};
void Collect(void* context, int done, int total, double elapsed, int estimate) {
    static_cast<std::vector<SReport>*>(context)->push_back({done, total, elapsed, estimate});
}

// The simulator, failing once it has taken `shots` shots.
class CFailingSim : public CSimInstrument {
public:
    CFailingSim(const CSimInstrument& sim, int shots) : CSimInstrument(sim), m_left(shots) {}
    int Measure(SInstrumentShot& s) override { return m_left-- > 0 && CSimInstrument::Measure(s); }
    int SweepShot(double h, SInstrumentShot& s) override {
        return m_left-- > 0 && CSimInstrument::SweepShot(h, s);
    }
    int m_left;
};

// A fine or a tracking scan: its plan, its planned shots in order, and the files of an
// uninterrupted noisy run (see MakeCase).
struct SScanCase {
    bool tracking;
    CCleverFineScan fine;
    CCleverTrkScan track;
    std::vector<double> h, v;
    std::vector<std::string> names;
    std::string db, text;
    int Run(CScanRunner& r, CInstrument& inst, const wchar_t* db, const wchar_t* txt) const {
        return tracking ? r.Run(track, false, inst, db, txt) : r.Run(fine, inst, db, txt);
    }
    int Resume(CScanRunner& r, CInstrument& inst) const {
        return tracking ? r.Resume(track, false, inst, L"\\scan.db", L"\\scan.txt")
                        : r.Resume(fine, inst, L"\\scan.db", L"\\scan.txt");
    }
};

// The noisy instrument of every resume test.
CSimInstrument NoisySim() { return Sim(0.01, 0.02, 3); }

// With `dir` (the device root's host folder): the files of an uninterrupted noisy run.
SScanCase MakeCase(bool tracking, const std::string& dir) {
    SScanCase c{tracking, FinePlan(), TrackPlan(), {}, {}, {}, "", ""};
    if (!tracking)
        for (int i = 0; i < c.fine.GetPtCount(); ++i) {
            c.h.push_back(c.fine.m_planH[i]);
            c.v.push_back(c.fine.m_planV[i]);
            c.names.push_back("F" + std::to_string(i + 1));
        }
    for (int l = 0; tracking && l < 3; ++l)
        for (int k = 0; k < 9; ++k) {
            c.h.push_back(352.0 + 2.0 * k);  // 352 .. 368: the lines cross north
            c.v.push_back(80.0 + 6.0 * l);
            c.names.push_back("T" + std::to_string(l + 1) + "_" + std::to_string(k + 1));
        }
    if (dir.empty()) return c;
    CSimInstrument sim = NoisySim();
    CScanRunner runner;
    EXPECT_EQ(c.Run(runner, sim, L"\\ref.db", L"\\ref.txt"), 1);
    c.db = ReadFileBytes(dir + "/ref.db");
    c.text = ReadFileBytes(dir + "/ref.txt");
    return c;
}

std::uint64_t FixedNow(void*) { return 133000000000000000ULL; }  // a day in 2022

// Files go to a private folder on a memory file system where there is one: the tests check
// what the files hold, not how fast the disk makes them durable.
class ScanRunnerTest : public kel_test::KelFixture {
protected:
    void SetUp() override {
        KelFixture::SetUp();
        kel_time::SetClock(&FixedNow, nullptr);
        char folder[] = "/dev/shm/kelscan-run-XXXXXX";
        if (access("/dev/shm", W_OK) == 0 && mkdtemp(folder) != nullptr) {
            m_shm = folder;
            kel_platform::SetDeviceRoot(m_shm.c_str());
        }
    }
    void TearDown() override {
        kel_time::SetClock(nullptr, nullptr);
        if (!m_shm.empty()) {
            std::error_code ec;
            std::filesystem::remove_all(m_shm, ec);
        }
        KelFixture::TearDown();
    }
    std::string Path(const std::string& rel) const {
        return (m_shm.empty() ? Root() : m_shm) + (rel.empty() ? "" : "/" + rel);
    }
    std::string m_shm;
};

TEST_F(ScanRunnerTest, EveryPlannedShotIsMeasuredWhereItsSightMeetsTheSurfaceInThePlannedTime) {
    for (bool tracking : {false, true}) {
        SCOPED_TRACE(tracking ? "tracking" : "fine");
        const SScanCase c = MakeCase(tracking, "");
        CSimInstrument sim = Sim();
        CScanRunner runner;
        std::vector<SReport> reports;
        runner.SetProgress(&Collect, &reports);
        CKelScanProject project;  // the estimate may live in the caller's project
        runner.SetProject(&project);
        ASSERT_EQ(c.Run(runner, sim, L"\\scan.db", L"\\scan.txt"), 1);
        EXPECT_TRUE(Lines().empty());

        // The records are the hits in planned order, each where the planned sight meets the
        // true surface; every other planned sight meets nothing.
        CSFile db;
        const int n = db.OpenDB(L"\\scan.db", SFILE_READ);
        std::string text;
        int rec = 0;
        for (std::size_t i = 0; i < c.h.size(); ++i) {
            CXYZ truth;
            double slope = 0.0;
            if (!sim.TruePoint(c.h[i], c.v[i], truth, slope)) continue;
            CSPoint pt;
            ASSERT_EQ(db.ReadPoint(pt, ++rec), rec);
            EXPECT_EQ(kel_text::WideToUtf8(pt.m_name), c.names[i]);
            EXPECT_EQ(pt.m_value, static_cast<int>(i));
            const CXYZ p(pt.m_X, pt.m_Y, pt.m_Z);
            double h = 0.0, v = 0.0;
            TaskInverse(kStation, p, kInstHeight, kBsAzimuth, kBsReading, h, v);
            EXPECT_LT(AngleDiff(h, c.h[i]), kDegTol) << c.names[i];
            EXPECT_LT(std::fabs(v - c.v[i]), kDegTol) << c.names[i];
            EXPECT_LT(truth.Len(p), 1e-9) << c.names[i];
            EXPECT_EQ(kel_text::WideToUtf8(pt.m_text1),
                      kel_num::Fixed(std::fmod(c.h[i] + 360.0, 360.0), 9) + " " +
                          kel_num::Fixed(c.v[i], 9) + " " + kel_num::Fixed(slope, 4));
            text += c.names[i] + "," + kel_num::Fixed(p.x, 6) + "," + kel_num::Fixed(p.y, 6) + "," +
                    kel_num::Fixed(p.z, 6) + "\n";
        }
        // Fine: the rows at V 50, 56.5 and 63 pass over the hill.
        EXPECT_EQ(n, tracking ? 27 : 30);
        EXPECT_EQ(rec, n);
        EXPECT_EQ(runner.GetStored(), n);
        EXPECT_EQ(runner.GetDone(), static_cast<int>(c.h.size()));
        EXPECT_EQ(ReadFileBytes(Path("scan.txt")), text);

        // The log ended cleanly and names the database, the count and the last record; its
        // codes are the database's.
        CSDBLog log;
        log.SetLogMode(1);
        ASSERT_EQ(log.Start(), 0);
        EXPECT_EQ(log.JudgeSDBLog(), 0);
        char name[64];
        long codes[2], dbCodes[2];
        int value = 0;
        CSPoint last, lastRec;
        ASSERT_EQ(log.GetLogInfo(name, value, codes, last, nullptr), 0);
        EXPECT_STREQ(name, "\\scan.db");
        EXPECT_EQ(value, static_cast<int>(c.h.size()));
        ASSERT_EQ(db.ReadPoint(lastRec, n), n);
        EXPECT_TRUE(last.m_name == lastRec.m_name && last.m_X == lastRec.m_X);
        ASSERT_EQ(db.ReadHeader(dbCodes), 0);
        EXPECT_TRUE(dbCodes[0] == codes[0] && dbCodes[1] == codes[1] && codes[0] != 0);

        // Simulated time is the planner's CalcTime up to its rounding to whole seconds (per
        // line for a tracking scan).
        CCleverFineScan fine = c.fine;
        CCleverTrkScan track = c.track;
        const int planned = tracking ? track.CalcTime(false)
                                     : fine.CalcTime(CCleverFineScan::MEAS_MODE_NORMAL,
                                                     CCleverFineScan::INSTRUMENT_HALVEX);
        EXPECT_NEAR(sim.Clock(), planned, tracking ? 1.5 : 0.5);
        EXPECT_DOUBLE_EQ(runner.GetElapsed(), sim.Clock());
        EXPECT_EQ(project.m_estSeconds, planned);
        const double line = CCleverTrkScan::kTurnSeconds + 16.0 / 14.21266548;
        if (tracking) {
            EXPECT_NEAR(sim.Clock(), 3 * line, 1e-9);
        }

        // A report per planned shot. At half the estimate is the time so far: the time left
        // plus the fine scan's set-up, or within a line of the time left; at the end 0.
        ASSERT_EQ(reports.size(), c.h.size());
        const SReport& half = reports[(reports.size() - 1) / 2];
        EXPECT_EQ(half.total, static_cast<int>(c.h.size()));
        EXPECT_NEAR(half.estimate, sim.Clock() - half.elapsed,
                    tracking ? line : CCleverFineScan::kSetupSeconds + 1);
        EXPECT_EQ(reports.back().estimate, 0);
        EXPECT_DOUBLE_EQ(reports.back().elapsed, sim.Clock());
        ClearLines();
    }
}

TEST(SimInstrument, NoiseDependsOnTheDirectionAloneAndHasTheGivenSpread) {
    constexpr double kSigmaAngle = 0.01, kSigmaDist = 0.02;
    CSimInstrument a = Sim(kSigmaAngle, kSigmaDist, 7), b = Sim(kSigmaAngle, kSigmaDist, 7);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> dh(-10.0, 10.0), dv(80.0, 95.0);
    std::vector<std::pair<double, double>> dirs;
    for (int i = 0; i < 400; ++i) dirs.emplace_back(dh(rng), dv(rng));
    std::vector<SInstrumentShot> shots(dirs.size());
    double sumH = 0.0, sumV = 0.0, sumS = 0.0;
    for (std::size_t i = 0; i < dirs.size(); ++i) {
        ASSERT_EQ(a.TurnTo(dirs[i].first, dirs[i].second), 1);
        ASSERT_EQ(a.Measure(shots[i]), 1);
        CXYZ truth;
        double slope = 0.0, h = 0.0, v = 0.0;
        ASSERT_EQ(a.TruePoint(dirs[i].first, dirs[i].second, truth, slope), 1);
        ASSERT_EQ(shots[i].hit, 1);
        TaskInverse(kStation, shots[i].point, kInstHeight, kBsAzimuth, kBsReading, h, v);
        EXPECT_LT(AngleDiff(h, shots[i].h), kDegTol);  // the point lies along what is reported
        sumH += std::pow(std::remainder(h - dirs[i].first, 360.0), 2);
        sumV += std::pow(v - dirs[i].second, 2);
        sumS += std::pow(shots[i].slope - slope, 2);
    }
    const double n = static_cast<double>(dirs.size());
    EXPECT_NEAR(std::sqrt(sumH / n), kSigmaAngle, 0.15 * kSigmaAngle);
    EXPECT_NEAR(std::sqrt(sumV / n), kSigmaAngle, 0.15 * kSigmaAngle);
    EXPECT_NEAR(std::sqrt(sumS / n), kSigmaDist, 0.15 * kSigmaDist);
    // The same seed, the directions in reverse order and as sweep shots: the same shots, bit
    // for bit; another seed: other shots.
    for (std::size_t k = dirs.size(); k-- > 0;) {
        SInstrumentShot s;
        ASSERT_EQ(b.BeginSweep(dirs[k].second, dirs[k].first, dirs[k].first + 1.0, 2.0), 1);
        ASSERT_EQ(b.SweepShot(dirs[k].first, s), 1);
        ASSERT_EQ(b.EndSweep(), 1);
        EXPECT_TRUE(s.point.x == shots[k].point.x && s.point.y == shots[k].point.y &&
                    s.point.z == shots[k].point.z && s.slope == shots[k].slope);
    }
    b.SetNoise(kSigmaAngle, kSigmaDist, 8);
    SInstrumentShot other, miss;
    b.TurnTo(dirs[0].first, dirs[0].second);
    b.Measure(other);
    EXPECT_NE(other.slope, shots[0].slope);
    // A sight over the hill is a miss, not a failure.
    ASSERT_EQ(a.TurnTo(0.0, 40.0), 1);
    ASSERT_EQ(a.Measure(miss), 1);
    EXPECT_EQ(miss.hit, 0);
}

TEST_F(ScanRunnerTest, ResumeMendsWhatAnInterruptionLeaves) {
    const SScanCase c = MakeCase(false, Path(""));
    const std::size_t kRec = CSFile::kRecordSize, kHead = CSFile::kHeaderSize;
    for (int variant = 0; variant < 2; ++variant) {
        SCOPED_TRACE("variant " + std::to_string(variant));
        ClearLines();
        CFailingSim failing(NoisySim(), 40);
        CScanRunner runner;
        ASSERT_EQ(c.Run(runner, failing, L"\\scan.db", L"\\scan.txt"), 0);
        ASSERT_EQ(Lines().size(), 1u);
        EXPECT_EQ(Lines()[0],
                  "CScanRunner::Run !instrument.TurnTo(h, v) || !instrument.Measure(shot)");
        const int stored = runner.GetStored();
        ASSERT_GE(stored, 2);
        std::string db = ReadFileBytes(Path("scan.db"));
        std::string text = ReadFileBytes(Path("scan.txt"));
        ASSERT_EQ(db, c.db.substr(0, kHead + stored * kRec));
        if (variant == 0) {
            // Cut off after the next record reached the database, while its line was being
            // written: the log's point is one behind, the text ends in a torn line.
            db += c.db.substr(kHead + stored * kRec, kRec);
            text += c.text.substr(text.size(), 7);
        } else {
            // Cut off while a record was being appended, and the last text line lost.
            db += std::string(100, 'x');
            text.erase(text.rfind('\n', text.size() - 2) + 1);
        }
        WriteFileBytes(Path("scan.db"), db);
        WriteFileBytes(Path("scan.txt"), text);
        CSimInstrument again = NoisySim();
        EXPECT_EQ(c.Resume(runner, again), 1);
        EXPECT_EQ(ReadFileBytes(Path("scan.db")), c.db);
        EXPECT_EQ(ReadFileBytes(Path("scan.txt")), c.text);
        EXPECT_EQ(runner.GetFirst(), variant == 0 ? 41 : 40);  // shots 18 .. 47 hit
        EXPECT_EQ(runner.GetDone(), 48);
        EXPECT_TRUE(Lines().size() == 1u);
    }
}

TEST_F(ScanRunnerTest, ResumeRefusesFilesThatAreNotThisScansAndRunRefusesBadInput) {
    const SScanCase c = MakeCase(false, Path(""));
    CSimInstrument sim = NoisySim();
    CScanRunner runner;
    auto expectOneLine = [&](int result, const std::string& line) {
        EXPECT_EQ(result, 0);
        ASSERT_EQ(Lines().size(), 1u);
        EXPECT_EQ(Lines()[0], line);
        ClearLines();
    };
    // The log of the finished reference scan: it ended cleanly, and it names ref.db.
    expectOneLine(runner.Resume(c.fine, sim, L"\\ref.db", L"\\ref.txt"),
                  "CScanRunner::Resume log.JudgeSDBLog() == 0");
    EXPECT_EQ(ReadFileBytes(Path("ref.db")), c.db);
    EXPECT_EQ(ReadFileBytes(Path("ref.txt")), c.text);
    WriteFileBytes(Path("scan.db"), c.db);
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume name != dbPath");
    EXPECT_EQ(ReadFileBytes(Path("scan.db")), c.db);

    // An interrupted scan resumed with another plan, or with a database of other codes.
    CFailingSim failing(sim, 30);
    ASSERT_EQ(c.Run(runner, failing, L"\\scan.db", L"\\scan.txt"), 0);
    ClearLines();
    CCleverFineScan otherPlan = c.fine;
    otherPlan.SetDVH(6.5, 3.9, 1);
    ASSERT_EQ(otherPlan.CalcPtAngle(true), 48);
    expectOneLine(runner.Resume(otherPlan, sim, L"\\scan.db", L"\\scan.txt"),
                  "CScanRunner::Resume value != plan.total || text != plan.fingerprint");
    std::string db = ReadFileBytes(Path("scan.db"));
    db[24] ^= 1;
    WriteFileBytes(Path("scan.db"), db);
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume dbCodes != logCodes");
    EXPECT_EQ(ReadFileBytes(Path("scan.db")), db);
    // A database that lost its last two records, and one without its log.
    db[24] ^= 1;
    db.resize(db.size() - 2 * CSFile::kRecordSize);
    WriteFileBytes(Path("scan.db"), db);
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume !pointOk");
    std::filesystem::remove(Path("temp/SDB.log"));
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume log.GetLogInfo(...) != 0");
    EXPECT_EQ(ReadFileBytes(Path("scan.db")), db);

    // Run: a path the log cannot name, an empty plan, a tracking speed off the table.
    const std::wstring longPath = L"\\" + std::wstring(63, L'd');
    expectOneLine(runner.Run(c.fine, sim, longPath.c_str(), L"\\scan.txt"),
                  "CScanRunner::Run wcslen(dbPath) > kMaxPathChars");
    expectOneLine(runner.Run(CCleverFineScan(), sim, L"\\scan.db", L"\\scan.txt"),
                  "CScanRunner::Run plan.GetPtCount() < 1");
    CCleverTrkScan fast = c.track;
    fast.m_speed = 17;
    expectOneLine(runner.Run(fast, true, sim, L"\\scan.db", L"\\scan.txt"),
                  "CScanRunner::Run plan.CalcRemainingTime(quorin) < 0");
}

// ---- kills ----------------------------------------------------------------------------------

constexpr int kMinKills = 100;
constexpr unsigned kKillSeed = 20240611;

// Runs body in a child and kills it after delayUs microseconds unless it ended first (or
// waits for its end). Returns true when it was killed; `failed` when body did not return 1.
template <class Body>
bool RunAndKill(Body body, long delayUs, bool& failed, bool wait = false) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body() == 1 ? 0 : 1);
    if (!wait) {
        usleep(static_cast<useconds_t>(delayUs));
        kill(pid, SIGKILL);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    failed = !WIFSIGNALED(status) && !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return WIFSIGNALED(status);
}

// True when the log's footer says that the scan ended cleanly.
bool LogSaysDone(const std::string& logPath) {
    const std::string raw = ReadFileBytes(logPath);
    return raw.size() == 768 && raw[512] == 1;
}

TEST_F(ScanRunnerTest, KillAtRandomMomentsThenResumeGivesTheUninterruptedFiles) {
    const SScanCase cases[2] = {MakeCase(false, Path("")), MakeCase(true, Path(""))};
    auto scan = [&](const SScanCase& c, bool resume) {
        CSimInstrument sim = NoisySim();
        CScanRunner r;
        return resume ? c.Resume(r, sim) : c.Run(r, sim, L"\\scan.db", L"\\scan.txt");
    };
    // The fastest of a few uninterrupted runs in a child: a busy machine only makes later
    // runs slower, and so the kills land earlier in them, never after them.
    long fullUs[2] = {0, 0};
    for (int t = 0; t < 2; ++t)
        for (int k = 0; k < 5; ++k) {
            const auto t0 = std::chrono::steady_clock::now();
            bool failed = false;
            RunAndKill([&]() { return scan(cases[t], false); }, 0, failed, true);
            const long us = static_cast<long>(std::chrono::duration_cast<std::chrono::microseconds>(
                                                  std::chrono::steady_clock::now() - t0)
                                                  .count());
            fullUs[t] = k == 0 || us < fullUs[t] ? us : fullUs[t];
        }
    std::mt19937 rng(kKillSeed);
    int kills = 0, rounds = 0, finishedByResume = 0, midScan = 0;
    // A kill that left some records and no footer.
    auto countKill = [&](bool killed) {
        if (!killed) return;
        ++kills;
        std::error_code ec;
        const auto length = std::filesystem::file_size(Path("scan.db"), ec);
        if (!ec && length > CSFile::kHeaderSize && !LogSaysDone(Path("temp/SDB.log"))) ++midScan;
    };
    // At least kMinKills kills; on a loaded machine a run's time varies from the one measured,
    // so more rounds follow (up to a bound) until a quarter of that many kills landed mid-scan
    // and as many resumes ran to their end.
    while ((kills < kMinKills || midScan < kMinKills / 4 || finishedByResume < kMinKills / 4) &&
           rounds < 4 * kMinKills) {
        const SScanCase& c = cases[rounds % 2];
        std::uniform_int_distribution<long> delay(0, fullUs[rounds % 2]);
        SCOPED_TRACE("round " + std::to_string(rounds) + " seed " + std::to_string(kKillSeed));
        ++rounds;
        for (const char* file : {"scan.db", "scan.txt", "temp/SDB.log"})
            std::filesystem::remove(Path(file));
        bool failed = false;
        bool killed = RunAndKill([&]() { return scan(c, false); }, delay(rng), failed);
        ASSERT_FALSE(failed);
        countKill(killed);
        // Resumed, and killed again at random, until a resume runs to its end. Each attempt
        // may run a little longer than the one before: under emulation on a loaded machine a
        // resume can take longer than the fastest run measured above, every time.
        for (int attempt = 0; killed && !LogSaysDone(Path("temp/SDB.log")); ++attempt) {
            ASSERT_LT(attempt, 100);
            const long later = delay(rng) * (8 + attempt) / 8;
            killed = RunAndKill([&]() { return scan(c, true); }, later, failed);
            ASSERT_FALSE(failed) << "a resume failed on its own";
            countKill(killed);
            finishedByResume += killed ? 0 : 1;
        }
        ASSERT_TRUE(LogSaysDone(Path("temp/SDB.log")));
        ASSERT_EQ(ReadFileBytes(Path("scan.db")), c.db);
        ASSERT_EQ(ReadFileBytes(Path("scan.txt")), c.text);
    }
    EXPECT_GE(kills, kMinKills);
    EXPECT_GE(finishedByResume, kMinKills / 4);
    EXPECT_GE(midScan, kMinKills / 4);
    RecordProperty("Rounds", rounds);
    RecordProperty("KillsMidScan", midScan);
}

}  // namespace
