// The simulated instrument and the scan runner over a synthetic hillside: every planned shot
// against the true surface, time against the planners' estimates, files and resume after
// interruptions (deterministic ones, and SIGKILL at random moments in forked children).
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
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
        for (double dn = -4.0; dn <= 60.0; dn += 2.0)
            for (double de = -14.0; de <= 60.0; de += 2.0) {
                CXYZ p(kStation.x + dn, kStation.y + de, 0.0);
                p.z = Ground(p.x, p.y, true);
                CCalcXYZHV::CnvSokuToMath(p);
                t.AddPoint(p.x, p.y, p.z);
            }
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

// An instrument that fails once it has taken `shots` shots.
class CFailingInstrument : public CInstrument {
public:
    CFailingInstrument(CSimInstrument& sim, int shots) : m_sim(sim), m_left(shots) {}
    int BeginFine(int n, int fresh) override { return m_sim.BeginFine(n, fresh); }
    int TurnTo(double h, double v) override { return m_sim.TurnTo(h, v); }
    int Measure(SInstrumentShot& s) override { return m_left-- > 0 && m_sim.Measure(s); }
    int BeginSweep(double v, double a, double b, double r) override {
        return m_sim.BeginSweep(v, a, b, r);
    }
    int SweepShot(double h, SInstrumentShot& s) override {
        return m_left-- > 0 && m_sim.SweepShot(h, s);
    }
    int EndSweep() override { return m_sim.EndSweep(); }
    double Clock() const override { return m_sim.Clock(); }

private:
    CSimInstrument& m_sim;
    int m_left;
};

std::uint64_t FixedNow(void*) { return 133000000000000000ULL; }  // a day in 2022

// Files go to a private folder on a memory file system where there is one: the tests check
// what the files hold, not how fast the disk makes them durable.
class ScanRunnerTest : public kel_test::KelFixture {
protected:
    void SetUp() override {
        KelFixture::SetUp();
        kel_time::SetClock(&FixedNow, nullptr);
        std::string tmpl = "/dev/shm/kelscan-run-XXXXXX";
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        if (access("/dev/shm", W_OK) == 0 && mkdtemp(buf.data()) != nullptr) {
            m_shm = buf.data();
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

// Checks a finished scan's files against the plan: the records are the hits in planned
// order, each measured where the planned direction meets the true surface; `misses` counts
// the planned shots whose sight meets nothing (and that none of them hits).
void CheckRecords(const std::vector<double>& planH, const std::vector<double>& planV,
                  const std::vector<std::string>& names, const CSimInstrument& sim,
                  const std::string& text, int& misses) {
    CSFile db;
    const int n = db.OpenDB(L"\\scan.db", SFILE_READ);
    ASSERT_GE(n, 1);
    std::string expectedText;
    int rec = 1;
    misses = 0;
    for (std::size_t i = 0; i < planH.size(); ++i) {
        CXYZ truth;
        double slope = 0.0;
        if (!sim.TruePoint(planH[i], planV[i], truth, slope)) {
            ++misses;
            continue;
        }
        CSPoint pt;
        ASSERT_EQ(db.ReadPoint(pt, rec), rec);
        ++rec;
        EXPECT_EQ(kel_text::WideToUtf8(pt.m_name), names[i]);
        EXPECT_EQ(pt.m_value, static_cast<int>(i));
        double h = 0.0, v = 0.0;
        TaskInverse(kStation, CXYZ(pt.m_X, pt.m_Y, pt.m_Z), kInstHeight, kBsAzimuth, kBsReading, h,
                    v);
        EXPECT_LT(AngleDiff(h, planH[i]), kDegTol) << names[i];
        EXPECT_LT(std::fabs(v - planV[i]), kDegTol) << names[i];
        EXPECT_LT(truth.Len(CXYZ(pt.m_X, pt.m_Y, pt.m_Z)), 1e-9) << names[i];
        EXPECT_EQ(kel_text::WideToUtf8(pt.m_text1),
                  kel_num::Fixed(std::fmod(planH[i] + 360.0, 360.0), 9) + " " +
                      kel_num::Fixed(planV[i], 9) + " " + kel_num::Fixed(slope, 4));
        expectedText += names[i] + "," + kel_num::Fixed(pt.m_X, 6) + "," +
                        kel_num::Fixed(pt.m_Y, 6) + "," + kel_num::Fixed(pt.m_Z, 6) + "\n";
    }
    EXPECT_EQ(n, rec - 1);
    EXPECT_EQ(text, expectedText);

    // The log: ended cleanly, names the database, the plan's count, its last record.
    CSDBLog log;
    log.SetLogMode(1);
    ASSERT_EQ(log.Start(), 0);
    EXPECT_EQ(log.JudgeSDBLog(), 0);
    char name[64];
    char fp[33] = {};
    long codes[2], dbCodes[2];
    int value = 0;
    CSPoint last, lastRec;
    ASSERT_EQ(log.GetLogInfo(name, value, codes, last, fp), 0);
    EXPECT_STREQ(name, "\\scan.db");
    EXPECT_EQ(value, static_cast<int>(planH.size()));
    EXPECT_EQ(std::string(fp).size(), names[0][0] == 'F' ? 21u : 22u);
    ASSERT_EQ(db.ReadPoint(lastRec, n), n);
    EXPECT_TRUE(last.m_name == lastRec.m_name && last.m_X == lastRec.m_X);
    ASSERT_EQ(db.ReadHeader(dbCodes), 0);
    EXPECT_TRUE(dbCodes[0] == codes[0] && dbCodes[1] == codes[1] && codes[0] != 0);
}

TEST_F(ScanRunnerTest, FineScanMeasuresEveryTargetAndTakesThePlannedTime) {
    const CCleverFineScan plan = FinePlan();
    CSimInstrument sim = Sim();
    CScanRunner runner;
    std::vector<SReport> reports;
    runner.SetProgress(&Collect, &reports);
    ASSERT_EQ(runner.Run(plan, sim, L"\\scan.db", L"\\scan.txt"), 1);
    EXPECT_TRUE(Lines().empty());

    std::vector<double> h, v;
    std::vector<std::string> names;
    for (int i = 0; i < plan.GetPtCount(); ++i) {
        h.push_back(plan.m_planH[i]);
        v.push_back(plan.m_planV[i]);
        names.push_back("F" + std::to_string(i + 1));
    }
    int misses = 0;
    CheckRecords(h, v, names, sim, ReadFileBytes(Path("scan.txt")), misses);
    EXPECT_EQ(misses, 18);  // the rows at V 50, 56.5 and 63 pass over the hill
    EXPECT_EQ(runner.GetStored(), 48 - misses);
    EXPECT_EQ(runner.GetDone(), 48);

    // Simulated time: the planner's CalcTime up to its rounding to whole seconds.
    CCleverFineScan fresh = plan;
    const int planned =
        fresh.CalcTime(CCleverFineScan::MEAS_MODE_NORMAL, CCleverFineScan::INSTRUMENT_HALVEX);
    EXPECT_NEAR(sim.Clock(), planned, 0.5);
    EXPECT_DOUBLE_EQ(runner.GetElapsed(), sim.Clock());

    // One report per planned shot; at half the estimate is the time so far, which exceeds
    // the time left by the set-up allowance; at the end it is 0.
    ASSERT_EQ(reports.size(), 48u);
    const SReport& half = reports[23];
    EXPECT_EQ(half.done, 24);
    EXPECT_EQ(half.total, 48);
    EXPECT_NEAR(half.estimate, sim.Clock() - half.elapsed, CCleverFineScan::kSetupSeconds + 1);
    EXPECT_EQ(reports.back().estimate, 0);
    EXPECT_DOUBLE_EQ(reports.back().elapsed, sim.Clock());
}

TEST_F(ScanRunnerTest, TrackingScanSweepsEveryLineAtThePlannedRate) {
    const CCleverTrkScan plan = TrackPlan();
    CSimInstrument sim = Sim();
    CScanRunner runner;
    std::vector<SReport> reports;
    runner.SetProgress(&Collect, &reports);
    CKelScanProject project;  // the estimate may live in the caller's project
    runner.SetProject(&project);
    ASSERT_EQ(runner.Run(plan, false, sim, L"\\scan.db", L"\\scan.txt"), 1);

    std::vector<double> h, v;
    std::vector<std::string> names;
    for (int l = 0; l < 3; ++l)
        for (int k = 0; k < 9; ++k) {
            h.push_back(352.0 + 2.0 * k);  // 352 .. 368: the line crosses north
            v.push_back(80.0 + 6.0 * l);
            names.push_back("T" + std::to_string(l + 1) + "_" + std::to_string(k + 1));
        }
    int misses = 0;
    CheckRecords(h, v, names, sim, ReadFileBytes(Path("scan.txt")), misses);
    EXPECT_EQ(misses, 0);

    CCleverTrkScan counted = plan;
    const int planned = counted.CalcTime(false);
    EXPECT_EQ(counted.m_totalPoints, 27);
    EXPECT_NEAR(sim.Clock(), planned, 0.5 * 3);
    const double line = CCleverTrkScan::kTurnSeconds + 16.0 / 14.21266548;
    EXPECT_NEAR(sim.Clock(), 3 * line, 1e-9);
    ASSERT_EQ(reports.size(), 27u);
    EXPECT_NEAR(reports[13].estimate, sim.Clock() - reports[13].elapsed, line);
    EXPECT_EQ(reports.back().estimate, 0);
    EXPECT_EQ(project.m_estCount, 27);
    EXPECT_EQ(project.m_estSeconds, planned);
}

TEST(SimInstrument, NoiseDependsOnTheDirectionAloneAndHasTheGivenSpread) {
    constexpr double kSigmaAngle = 0.01, kSigmaDist = 0.02;
    CSimInstrument a = Sim(kSigmaAngle, kSigmaDist, 7), b = Sim(kSigmaAngle, kSigmaDist, 7);
    CSimInstrument other = Sim(kSigmaAngle, kSigmaDist, 8);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> dh(-10.0, 10.0), dv(80.0, 95.0);
    std::vector<std::pair<double, double>> dirs;
    for (int i = 0; i < 400; ++i) dirs.emplace_back(dh(rng), dv(rng));
    std::vector<SInstrumentShot> first(dirs.size());
    double sumH = 0.0, sumV = 0.0, sumS = 0.0;
    int n = 0, differ = 0;
    for (std::size_t i = 0; i < dirs.size(); ++i) {
        ASSERT_EQ(a.TurnTo(dirs[i].first, dirs[i].second), 1);
        ASSERT_EQ(a.Measure(first[i]), 1);
        ASSERT_EQ(first[i].hit, 1);
        CXYZ truth;
        double slope = 0.0;
        ASSERT_EQ(a.TruePoint(dirs[i].first, dirs[i].second, truth, slope), 1);
        double h = 0.0, v = 0.0;
        TaskInverse(kStation, first[i].point, kInstHeight, kBsAzimuth, kBsReading, h, v);
        EXPECT_LT(AngleDiff(h, first[i].h), kDegTol);  // the point lies along what is reported
        sumH += std::pow(std::remainder(h - dirs[i].first, 360.0), 2);
        sumV += std::pow(v - dirs[i].second, 2);
        sumS += std::pow(first[i].slope - slope, 2);
        ++n;
        SInstrumentShot o;
        other.TurnTo(dirs[i].first, dirs[i].second);
        other.Measure(o);
        differ += o.slope != first[i].slope ? 1 : 0;
    }
    EXPECT_NEAR(std::sqrt(sumH / n), kSigmaAngle, 0.15 * kSigmaAngle);
    EXPECT_NEAR(std::sqrt(sumV / n), kSigmaAngle, 0.15 * kSigmaAngle);
    EXPECT_NEAR(std::sqrt(sumS / n), kSigmaDist, 0.15 * kSigmaDist);
    EXPECT_EQ(differ, n);
    // Another instrument with the seed, the directions in reverse order and as sweep shots:
    // the same shots, bit for bit.
    for (std::size_t k = dirs.size(); k-- > 0;) {
        SInstrumentShot s;
        ASSERT_EQ(b.BeginSweep(dirs[k].second, dirs[k].first, dirs[k].first + 1.0, 2.0), 1);
        ASSERT_EQ(b.SweepShot(dirs[k].first, s), 1);
        ASSERT_EQ(b.EndSweep(), 1);
        EXPECT_TRUE(s.point.x == first[k].point.x && s.point.y == first[k].point.y &&
                    s.point.z == first[k].point.z && s.slope == first[k].slope);
    }
    // A sight over the hill is a miss, not a failure.
    SInstrumentShot miss;
    ASSERT_EQ(a.TurnTo(0.0, 40.0), 1);
    ASSERT_EQ(a.Measure(miss), 1);
    EXPECT_EQ(miss.hit, 0);
}

// The reference files of an uninterrupted fine or tracking scan, made in the device root
// under ref.*, and the plan.
struct SScanCase {
    bool tracking;
    CCleverFineScan fine;
    CCleverTrkScan track;
    std::string db, text;
    int Run(CScanRunner& r, CInstrument& inst, const wchar_t* db, const wchar_t* txt) const {
        return tracking ? r.Run(track, false, inst, db, txt) : r.Run(fine, inst, db, txt);
    }
    int Resume(CScanRunner& r, CInstrument& inst) const {
        return tracking ? r.Resume(track, false, inst, L"\\scan.db", L"\\scan.txt")
                        : r.Resume(fine, inst, L"\\scan.db", L"\\scan.txt");
    }
};

// An uninterrupted run into ref.db and ref.txt under the host folder `dir`, read back.
SScanCase MakeCase(bool tracking, const std::string& dir) {
    SScanCase c{tracking, FinePlan(), TrackPlan(), "", ""};
    CSimInstrument sim = Sim(0.01, 0.02, 3);
    CScanRunner runner;
    EXPECT_EQ(c.Run(runner, sim, L"\\ref.db", L"\\ref.txt"), 1);
    c.db = ReadFileBytes(dir + "/ref.db");
    c.text = ReadFileBytes(dir + "/ref.txt");
    return c;
}

TEST_F(ScanRunnerTest, ResumeMendsWhatAnInterruptionLeaves) {
    const SScanCase c = MakeCase(false, Path(""));
    const std::size_t kRec = CSFile::kRecordSize, kHead = CSFile::kHeaderSize;
    for (int variant = 0; variant < 2; ++variant) {
        SCOPED_TRACE("variant " + std::to_string(variant));
        ClearLines();
        CSimInstrument sim = Sim(0.01, 0.02, 3);
        CFailingInstrument failing(sim, 40);
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
            const std::size_t lineEnd = c.text.find('\n', text.size());
            ASSERT_NE(lineEnd, std::string::npos);
            text += c.text.substr(text.size(), 7);
        } else {
            // Cut off while a record was being appended, and the last text line lost.
            db += std::string(100, 'x');
            text.erase(text.rfind('\n', text.size() - 2) + 1);
        }
        WriteFileBytes(Path("scan.db"), db);
        WriteFileBytes(Path("scan.txt"), text);
        CSimInstrument again = Sim(0.01, 0.02, 3);
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
    CSimInstrument sim = Sim(0.01, 0.02, 3);
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
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume log names another database");
    EXPECT_EQ(ReadFileBytes(Path("scan.db")), c.db);

    // An interrupted scan resumed with another plan, or with a database of other codes.
    CFailingInstrument failing(sim, 30);
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
    expectOneLine(c.Resume(runner, sim), "CScanRunner::Resume database codes != log codes");
    EXPECT_EQ(ReadFileBytes(Path("scan.db")), db);
    // A database that lost its last two records, and one without its log.
    db[24] ^= 1;
    db.resize(db.size() - 2 * CSFile::kRecordSize);
    WriteFileBytes(Path("scan.db"), db);
    expectOneLine(c.Resume(runner, sim),
                  "CScanRunner::Resume log point is not one of the last two records");
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

// Runs body in a child and kills it after delayUs microseconds unless it ended first. Returns
// true when it was killed, false when body returned 1 and the child ended on its own.
template <class Body>
bool RunAndKill(Body body, long delayUs, bool& failed) {
    const pid_t pid = fork();
    if (pid == 0) _exit(body() == 1 ? 0 : 1);
    usleep(static_cast<useconds_t>(delayUs));
    kill(pid, SIGKILL);
    int status = 0;
    waitpid(pid, &status, 0);
    failed = !WIFSIGNALED(status) && !(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    return WIFSIGNALED(status);
}

// Microseconds body takes in a child that runs to its end.
template <class Body>
long TimeChild(Body body) {
    const auto t0 = std::chrono::steady_clock::now();
    const pid_t pid = fork();
    if (pid == 0) _exit(body() == 1 ? 0 : 1);
    int status = 0;
    waitpid(pid, &status, 0);
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0)
            .count());
}

// True when the log's footer says that the scan ended cleanly.
bool LogSaysDone(const std::string& logPath) {
    const std::string raw = ReadFileBytes(logPath);
    return raw.size() == 768 && raw[512] == 1;
}

TEST_F(ScanRunnerTest, KillAtRandomMomentsThenResumeGivesTheUninterruptedFiles) {
    const SScanCase cases[2] = {MakeCase(false, Path("")), MakeCase(true, Path(""))};
    auto run = [&](const SScanCase& c) {
        CSimInstrument sim = Sim(0.01, 0.02, 3);
        CScanRunner r;
        return c.Run(r, sim, L"\\scan.db", L"\\scan.txt");
    };
    auto resume = [&](const SScanCase& c) {
        CSimInstrument sim = Sim(0.01, 0.02, 3);
        CScanRunner r;
        return c.Resume(r, sim);
    };
    // The fastest of a few uninterrupted runs: a busy machine only makes later runs slower,
    // and so the kills land earlier in them, never after them.
    long fullUs[2] = {0, 0};
    for (int t = 0; t < 2; ++t)
        for (int k = 0; k < 5; ++k) {
            const long us = TimeChild([&]() { return run(cases[t]); });
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
    // so more rounds follow (up to a bound) until a quarter of the kills landed mid-scan.
    while ((kills < kMinKills || midScan < kMinKills / 4) && rounds < 4 * kMinKills) {
        const SScanCase& c = cases[rounds % 2];
        std::uniform_int_distribution<long> delay(0, fullUs[rounds % 2]);
        SCOPED_TRACE("round " + std::to_string(rounds) + " seed " + std::to_string(kKillSeed));
        ++rounds;
        std::filesystem::remove(Path("scan.db"));
        std::filesystem::remove(Path("scan.txt"));
        std::filesystem::remove(Path("temp/SDB.log"));
        bool failed = false;
        bool killed = RunAndKill([&]() { return run(c); }, delay(rng), failed);
        ASSERT_FALSE(failed);
        countKill(killed);
        // Resumed, and killed again at random, until a resume runs to its end.
        for (int attempt = 0; killed && !LogSaysDone(Path("temp/SDB.log")); ++attempt) {
            ASSERT_LT(attempt, 100);
            killed = RunAndKill([&]() { return resume(c); }, delay(rng), failed);
            ASSERT_FALSE(failed) << "a resume failed on its own";
            countKill(killed);
            finishedByResume += killed ? 0 : 1;
        }
        ASSERT_TRUE(LogSaysDone(Path("temp/SDB.log")));
        ASSERT_EQ(ReadFileBytes(Path("scan.db")), c.db);
        ASSERT_EQ(ReadFileBytes(Path("scan.txt")), c.text);
    }
    EXPECT_GE(kills, kMinKills);
    EXPECT_GE(finishedByResume, rounds / 4);
    EXPECT_GE(midScan, kMinKills / 4);
    RecordProperty("Rounds", rounds);
    RecordProperty("KillsMidScan", midScan);
}

}  // namespace
