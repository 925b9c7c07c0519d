#include "scanning/ScanRunner.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "platform/File.h"
#include "platform/NumText.h"
#include "platform/Trace.h"
#include "scanning/ScanTime.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"
#include "storage/SPoint.h"
#include "storage/ScanFile.h"

namespace {

typedef kel_templ::CKelArray<CSPoint, CSPoint&> CSPointArray;
typedef kel_templ::CKelArray<CXYZ, CXYZ&> CXYZArray;

// One trace line "op condition" and the failure result, in one statement.
int Fail(const wchar_t* op, const wchar_t* condition) {
    KEL_TRACE_ALWAYS(L"%s %s", op, condition);
    return 0;
}

// Bounds of a shot the records can hold without cutting its observation text.
constexpr double kMaxAngleDeg = 1e4;
constexpr double kMaxSlopeM = 1e9;

bool ShotValid(const SInstrumentShot& s) {
    return std::isfinite(s.point.x) && std::isfinite(s.point.y) && std::isfinite(s.point.z) &&
           std::fabs(s.h) < kMaxAngleDeg && std::fabs(s.v) < kMaxAngleDeg && s.slope >= 0.0 &&
           s.slope < kMaxSlopeM;
}

// The line a text file holds for a record: its name, coordinates and code.
CXYZ TextPoint(const CSPoint& pt) {
    CXYZ p;
    pt.Get(p);
    p.m_code = pt.m_code;
    return p;
}

// Two points that store the same record bytes.
bool SameRecord(const CSPoint& a, const CSPoint& b) {
    SPOINTREC ra, rb;
    ConvSPoint2Rec(a, ra);
    ConvSPoint2Rec(b, rb);
    return std::memcmp(ra.b, rb.b, SPOINTREC::kSize) == 0;
}

// FNV-1a, 64 bits, over the little-endian bytes of the plan's numbers.
class CFingerprint {
public:
    void Add(double x) {
        std::uint8_t b[8];
        kel_bytes::PutF64(b, 0, x);
        Bytes(b, 8);
    }
    void Add(std::int32_t x) {
        std::uint8_t b[4];
        kel_bytes::PutI32(b, 0, x);
        Bytes(b, 4);
    }
    std::uint64_t Value() const { return m_hash; }

private:
    void Bytes(const std::uint8_t* b, int n) {
        for (int i = 0; i < n; ++i) {
            m_hash ^= b[i];
            m_hash *= 0x100000001B3ULL;
        }
    }
    std::uint64_t m_hash = 0xCBF29CE484222325ULL;
};

// Host length of a file, -1 when it does not exist or cannot be opened.
long long FileLength(const wchar_t* path) {
    CFile f;
    if (!FileExists(path) || !f.Open(path, CFile::modeRead)) return -1;
    try {
        return static_cast<long long>(f.GetLength());
    } catch (CFileException&) {
        return -1;
    }
}

// The whole file (empty when it does not exist). False when it exists and cannot be read.
bool ReadWhole(const wchar_t* path, std::string& bytes) {
    bytes.clear();
    if (!FileExists(path)) return true;
    CFile f;
    if (!f.Open(path, CFile::modeRead)) return false;
    try {
        bytes.resize(static_cast<std::size_t>(f.GetLength()));
        bytes.resize(f.ReadAll(&bytes[0], bytes.size()));
    } catch (CFileException&) {
        return false;
    }
    return true;
}

// Cuts (or creates) the file at `length` bytes, durably.
bool CutFile(const wchar_t* path, std::size_t length) {
    CFile f;
    if (!f.Open(path, CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite))
        return false;
    try {
        f.SetLength(length);
        f.Flush();
    } catch (CFileException&) {
        return false;
    }
    return true;
}

// Runs body, turning exhausted memory into one line and 0.
template <class Body>
int Guarded(const wchar_t* op, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return Fail(op, L"CMemoryException");
    }
}

// A database at a path as Resume finds it.
enum EDbState {
    DB_UNBOUND,    // missing, shorter than its header, or codes 0 0 and no record
    DB_BOUND,      // a database with codes (that may or may not be the log's)
    DB_UNREADABLE  // something else: never touched
};

EDbState InspectDb(const wchar_t* path, long codes[2]) {
    const long long length = FileLength(path);
    if (length < 0 && !FileExists(path)) return DB_UNBOUND;
    if (length >= 0 && length < CSFile::kHeaderSize) return DB_UNBOUND;
    CSFile db;
    const int n = db.OpenDB(path, SFILE_READ);
    if (n < 0 || db.ReadHeader(codes) != 0) return DB_UNREADABLE;
    return codes[0] == 0 && codes[1] == 0 && n == 0 ? DB_UNBOUND : DB_BOUND;
}

}  // namespace

// ---- the plan as a list of shots ----------------------------------------------------------

struct CScanRunner::Plan {
    struct Line {
        double v, a, b;  // zenith angle; start and end H, the end taken the shorter way round
        double sign;     // +1 when H rises along the line
        int count;       // shots on the line
        int first;       // ordinal of its first shot
    };

    const CCleverFineScan* fine = nullptr;
    const CCleverTrkScan* track = nullptr;
    bool quorin = false;
    std::vector<Line> lines;
    double dH = 0.0, rate = 0.0;
    int total = 0;
    std::string fingerprint;  // the log header's text

    int FromFine(const CCleverFineScan& p, const wchar_t* op) {
        if (p.GetPtCount() < 1) return Fail(op, L"plan.GetPtCount() < 1");
        fine = &p;
        total = p.GetPtCount();
        CFingerprint f;
        for (int i = 0; i < total; ++i) {
            f.Add(p.m_planH[i]);
            f.Add(p.m_planV[i]);
        }
        SetFingerprint("fine ", f.Value());
        return 1;
    }

    int FromTrack(const CCleverTrkScan& p, bool quorinTable, const wchar_t* op) {
        if (p.GetLineCount() < 1) return Fail(op, L"plan.GetLineCount() < 1");
        if (p.CalcRemainingTime(quorinTable) < 0)
            return Fail(op, L"plan.CalcRemainingTime(quorin) < 0");
        track = &p;
        quorin = quorinTable;
        dH = p.m_dH;
        rate = quorin ? CCleverTrkScan::DegreesFromSpeed_Quorin(p.m_speed)
                      : CCleverTrkScan::DegreesFromSpeed_Halvex(p.m_speed);
        CFingerprint f;
        f.Add(dH);
        f.Add(rate);
        long long shots = 0;
        for (int i = 0; i < p.GetLineCount(); ++i) {
            Line l;
            l.v = p.m_lineV[i];
            l.a = p.m_lineStartH[i];
            l.b = ShorterEnd(l.a, p.m_lineEndH[i]);
            l.sign = l.b >= l.a ? 1.0 : -1.0;
            l.count = dH == 0.0 ? 1 : kel_scan::TruncInt(std::fabs(l.b - l.a) / dH) + 1;
            l.first = static_cast<int>(shots);
            shots += l.count;
            if (l.count < 1 || shots > CCleverScanBase::kMaxTargets)
                return Fail(op, L"shots > CCleverScanBase::kMaxTargets");
            lines.push_back(l);
            f.Add(l.v);
            f.Add(l.a);
            f.Add(l.b);
            f.Add(static_cast<std::int32_t>(l.count));
        }
        total = static_cast<int>(shots);
        SetFingerprint("track ", f.Value());
        return 1;
    }

    // CCleverTrkScan::CalcTime's rule: a line never turns more than 180 degrees.
    static double ShorterEnd(double a, double b) {
        if (a > b && std::fabs(a - b) > 180.0) b += 360.0;
        if (a <= b && std::fabs(a - b) > 180.0) b -= 360.0;
        return b;
    }

    void SetFingerprint(const char* kind, std::uint64_t hash) {
        static const char kHex[] = "0123456789ABCDEF";
        fingerprint = kind;
        for (int i = 15; i >= 0; --i) fingerprint += kHex[(hash >> (4 * i)) & 0xF];
    }

    // The line of a tracking shot.
    int LineOf(int ordinal) const {
        int lo = 0, hi = static_cast<int>(lines.size()) - 1;
        while (lo < hi) {
            const int mid = (lo + hi + 1) / 2;
            if (lines[mid].first <= ordinal)
                lo = mid;
            else
                hi = mid - 1;
        }
        return lo;
    }

    double H(const Line& l, int k) const { return l.a + l.sign * k * dH; }

    kel_text::CKelString Name(int ordinal) const {
        kel_text::CKelString name;
        if (fine != nullptr) {
            name.Format(L"F%d", ordinal + 1);
        } else {
            const int l = LineOf(ordinal);
            name.Format(L"T%d_%d", l + 1, ordinal - lines[l].first + 1);
        }
        return name;
    }

    // The planner's seconds for the shots from `first` on.
    int Seconds(int first, int fresh) const {
        if (fine != nullptr)
            return fine->CalcRemainingTime(total - first, CCleverFineScan::MEAS_MODE_NORMAL,
                                           CCleverFineScan::INSTRUMENT_HALVEX) +
                   (fresh ? CCleverFineScan::kSetupSeconds : 0);
        if (first == 0) return track->CalcRemainingTime(quorin);
        const int l = LineOf(first);
        return track->CalcRemainingTime(l, H(lines[l], first - lines[l].first), quorin);
    }
};

struct CScanRunner::Files {
    Files(const wchar_t* db, const wchar_t* text) : dbPath(db), textPath(text) {}
    const wchar_t* dbPath;
    const wchar_t* textPath;
    CSFile db;
    CSDBLog log;
};

// ---- the runner -----------------------------------------------------------------------------

CScanRunner::CScanRunner()
    : m_progress(nullptr),
      m_progressContext(nullptr),
      m_pProject(nullptr),
      m_nTotal(0),
      m_nFirst(0),
      m_nDone(0),
      m_nStored(0),
      m_elapsed(0.0) {}

CScanRunner::~CScanRunner() = default;

void CScanRunner::SetProgress(ScanProgressFn fn, void* context) {
    m_progress = fn;
    m_progressContext = context;
}

void CScanRunner::SetProject(CKelScanProject* project) { m_pProject = project; }

namespace {

int CheckPaths(const wchar_t* dbPath, const wchar_t* textPath, const wchar_t* op) {
    if (dbPath == nullptr || *dbPath == L'\0' || textPath == nullptr || *textPath == L'\0')
        return Fail(op, L"dbPath or textPath NULL or empty");
    if (kel_text::WideToSingleByte(dbPath).size() > CScanRunner::kMaxPathChars)
        return Fail(op, L"wcslen(dbPath) > kMaxPathChars");
    return 1;
}

}  // namespace

int CScanRunner::Run(const CCleverFineScan& plan, CInstrument& instrument, const wchar_t* dbPath,
                     const wchar_t* textPath) {
    return Launch(&plan, nullptr, false, instrument, dbPath, textPath, false);
}

int CScanRunner::Run(const CCleverTrkScan& plan, bool quorin, CInstrument& instrument,
                     const wchar_t* dbPath, const wchar_t* textPath) {
    return Launch(nullptr, &plan, quorin, instrument, dbPath, textPath, false);
}

int CScanRunner::Resume(const CCleverFineScan& plan, CInstrument& instrument, const wchar_t* dbPath,
                        const wchar_t* textPath) {
    return Launch(&plan, nullptr, false, instrument, dbPath, textPath, true);
}

int CScanRunner::Resume(const CCleverTrkScan& plan, bool quorin, CInstrument& instrument,
                        const wchar_t* dbPath, const wchar_t* textPath) {
    return Launch(nullptr, &plan, quorin, instrument, dbPath, textPath, true);
}

int CScanRunner::Launch(const CCleverFineScan* fine, const CCleverTrkScan* track, bool quorin,
                        CInstrument& instrument, const wchar_t* dbPath, const wchar_t* textPath,
                        bool resume) {
    const wchar_t* op = resume ? L"CScanRunner::Resume" : L"CScanRunner::Run";
    return Guarded(op, [&]() {
        Plan p;
        Files f(dbPath, textPath);
        if (!CheckPaths(dbPath, textPath, op)) return 0;
        if (!(fine != nullptr ? p.FromFine(*fine, op) : p.FromTrack(*track, quorin, op))) return 0;
        return resume ? Continue(p, instrument, f, op) : Start(p, instrument, f, op);
    });
}

int CScanRunner::Start(const Plan& plan, CInstrument& instrument, Files& files, const wchar_t* op) {
    m_nTotal = plan.total;
    m_nFirst = m_nDone = m_nStored = 0;
    m_elapsed = 0.0;
    // Emptied first: from here on a database with codes 0 0 marks a scan not yet logged.
    if (files.db.OpenDB(files.dbPath, SFILE_CREATE) < 0)
        return Fail(op, L"db.OpenDB(dbPath, SFILE_CREATE) < 0");
    if (!CutFile(files.textPath, 0)) return Fail(op, L"!CutFile(textPath, 0)");
    files.log.SetLogMode(1);
    if (files.log.Start() != 0) return Fail(op, L"log.Start() != 0");
    // A previous scan's point must not stand under this scan's header.
    CSPoint none;
    if (files.log.WriteRec(none) != 0) return Fail(op, L"log.WriteRec(none) != 0");
    long codes[2] = {0, 0};
    std::vector<char> text(plan.fingerprint.begin(), plan.fingerprint.end());
    text.push_back('\0');
    if (files.log.WriteHeader(kel_text::CKelString(files.dbPath), plan.total, codes[0], codes[1],
                              text.data()) != 0)
        return Fail(op, L"log.WriteHeader(...) != 0");
    if (files.db.WriteHeader(codes[0], codes[1]) != 0)
        return Fail(op, L"db.WriteHeader(date, time) != 0");
    return Measure(plan, instrument, files, 0, 1, op);
}

int CScanRunner::Continue(const Plan& plan, CInstrument& instrument, Files& files,
                          const wchar_t* op) {
    m_nTotal = plan.total;
    m_nFirst = m_nDone = m_nStored = 0;
    m_elapsed = 0.0;
    files.log.SetLogMode(1);
    if (files.log.Start() != 0) return Fail(op, L"log.Start() != 0");
    char name[SDBHEADER::kLenName] = {};
    char text[SDBHEADER::kLenText + 1] = {};
    long logCodes[2] = {0, 0};
    int value = 0;
    CSPoint logPoint;
    const int info = files.log.GetLogInfo(name, value, logCodes, logPoint, text);
    const bool ours = info == 0 && kel_text::WideToSingleByte(files.dbPath) == name;
    const bool open = info == 0 && files.log.JudgeSDBLog() != 0;
    long dbCodes[2] = {0, 0};
    const EDbState state = InspectDb(files.dbPath, dbCodes);
    if (!(ours && open)) {
        // No unfinished scan of this database in the log: a Run cut off before its log
        // header starts again; anything else is not ours to change.
        if (state == DB_UNBOUND) return Start(plan, instrument, files, op);
        if (info != 0) return Fail(op, L"log.GetLogInfo(...) != 0");
        if (!ours) return Fail(op, L"name != dbPath");
        return Fail(op, L"log.JudgeSDBLog() == 0");
    }
    if (value != plan.total || plan.fingerprint != text)
        return Fail(op, L"value != plan.total || text != plan.fingerprint");
    if (state == DB_UNREADABLE) return Fail(op, L"db.OpenDB(dbPath, SFILE_READ) < 0");
    if (state == DB_BOUND && (dbCodes[0] != logCodes[0] || dbCodes[1] != logCodes[1]))
        return Fail(op, L"dbCodes != logCodes");

    CSPointArray records;
    if (state == DB_BOUND) {
        // Opening for update cuts a torn last record off.
        const int n = files.db.OpenDB(files.dbPath, SFILE_UPDATE);
        if (n < 0) return Fail(op, L"db.OpenDB(dbPath, SFILE_UPDATE) < 0");
        if (n > plan.total) return Fail(op, L"n > plan.total");
        records.SetSize(n);
        int last = -1;
        for (int i = 0; i < n; ++i) {
            CSPoint& r = records[i];
            if (files.db.ReadPoint(r, i + 1) != i + 1)
                return Fail(op, L"db.ReadPoint(record, i + 1) != i + 1");
            if (!files.db.IsAliveRecord(r) || r.m_value <= last || r.m_value >= plan.total ||
                r.m_name != plan.Name(r.m_value))
                return Fail(op,
                            L"!IsAliveRecord(r) || r.m_value <= last || r.m_value >= total || "
                            L"r.m_name != Name(r.m_value)");
            last = r.m_value;
        }
    }
    // The log's point is written after its record: it names the last record or the one before.
    const int n = records.GetSize();
    const bool pointOk = logPoint.m_name.IsEmpty()
                             ? n <= 1
                             : (n >= 1 && SameRecord(logPoint, records[n - 1])) ||
                                   (n >= 2 && SameRecord(logPoint, records[n - 2]));
    if (!pointOk) return Fail(op, L"!pointOk");
    if (state == DB_UNBOUND) {
        if (files.db.OpenDB(files.dbPath, SFILE_CREATE) < 0)
            return Fail(op, L"db.OpenDB(dbPath, SFILE_CREATE) < 0");
        if (files.db.WriteHeader(logCodes[0], logCodes[1]) != 0)
            return Fail(op, L"db.WriteHeader(date, time) != 0");
    }
    if (!MendText(files.textPath, records, op)) return 0;
    if (n > 0 && !SameRecord(logPoint, records[n - 1]) && files.log.WriteRec(records[n - 1]) != 0)
        return Fail(op, L"log.WriteRec(records[n - 1]) != 0");
    m_nStored = n;
    return Measure(plan, instrument, files, n > 0 ? records[n - 1].m_value + 1 : 0, 0, op);
}

int CScanRunner::MendText(const wchar_t* textPath, CSPointArray& records, const wchar_t* op) {
    std::string bytes;
    if (!ReadWhole(textPath, bytes)) return Fail(op, L"!ReadWhole(textPath)");
    // Complete lines that begin with the next record's name are kept.
    std::size_t keep = 0;
    int kept = 0;
    while (kept < records.GetSize()) {
        const std::size_t eol = bytes.find('\n', keep);
        if (eol == std::string::npos) break;
        const std::string head = kel_text::WideToSingleByte(records[kept].m_name) + ",";
        if (bytes.compare(keep, head.size(), head) != 0) break;
        keep = eol + 1;
        ++kept;
    }
    if (bytes.size() != keep && !CutFile(textPath, keep)) return Fail(op, L"!CutFile(textPath)");
    if (kept == records.GetSize()) return 1;
    CXYZArray lines;
    for (int i = kept; i < records.GetSize(); ++i) {
        CXYZ p = TextPoint(records[i]);
        lines.Add(p);
    }
    if (ScanFileAdd(textPath, lines) != 1) return Fail(op, L"ScanFileAdd(textPath, lines) != 1");
    return 1;
}

int CScanRunner::Measure(const Plan& plan, CInstrument& instrument, Files& files, int first,
                         int fresh, const wchar_t* op) {
    CKelScanProject& project = m_pProject != nullptr ? *m_pProject : m_ownProject;
    m_nFirst = m_nDone = first;
    project.SetEstimateParams(plan.total - first, plan.Seconds(first, fresh));
    const double clock0 = instrument.Clock();
    SInstrumentShot shot;
    if (plan.fine != nullptr && first < plan.total) {
        if (!instrument.BeginFine(plan.total, fresh))
            return Fail(op, L"!instrument.BeginFine(total, fresh)");
        for (int i = first; i < plan.total; ++i) {
            if (!instrument.TurnTo(plan.fine->m_planH[i], plan.fine->m_planV[i]) ||
                !instrument.Measure(shot))
                return Fail(op, L"!instrument.TurnTo(h, v) || !instrument.Measure(shot)");
            if (!Record(plan, i, shot, files, op)) return 0;
            Progress(i + 1, instrument.Clock() - clock0);
        }
    }
    if (plan.track != nullptr && first < plan.total) {
        int k = first - plan.lines[plan.LineOf(first)].first;
        for (int l = plan.LineOf(first); l < static_cast<int>(plan.lines.size()); ++l, k = 0) {
            const Plan::Line& line = plan.lines[l];
            if (!instrument.BeginSweep(line.v, plan.H(line, k), line.b, plan.rate))
                return Fail(op, L"!instrument.BeginSweep(v, hFrom, hTo, rate)");
            for (int j = k; j < line.count; ++j) {
                if (!instrument.SweepShot(plan.H(line, j), shot))
                    return Fail(op, L"!instrument.SweepShot(h, shot)");
                if (!Record(plan, line.first + j, shot, files, op)) return 0;
                Progress(line.first + j + 1, instrument.Clock() - clock0);
            }
            if (!instrument.EndSweep()) return Fail(op, L"!instrument.EndSweep()");
        }
    }
    if (files.log.WriteFooter(1) != 0) return Fail(op, L"log.WriteFooter(1) != 0");
    files.log.Stop();
    if (files.db.CloseDB() != 0) return Fail(op, L"db.CloseDB() != 0");
    m_elapsed = instrument.Clock() - clock0;
    return 1;
}

int CScanRunner::Record(const Plan& plan, int ordinal, const SInstrumentShot& shot, Files& files,
                        const wchar_t* op) {
    if (!shot.hit) return 1;
    if (!ShotValid(shot)) return Fail(op, L"!ShotValid(shot)");
    CSPoint pt;
    pt.m_name = plan.Name(ordinal);
    pt.m_X = shot.point.x;
    pt.m_Y = shot.point.y;
    pt.m_Z = shot.point.z;
    const std::string obs = kel_num::Fixed(shot.h, 9) + " " + kel_num::Fixed(shot.v, 9) + " " +
                            kel_num::Fixed(shot.slope, 4);
    pt.m_text1 = kel_text::SingleByteToWide(obs.c_str());
    pt.m_value = ordinal;
    if (files.db.AddPoint(pt) < 0) return Fail(op, L"db.AddPoint(pt) < 0");
    ++m_nStored;
    if (ScanFileAdd(files.textPath, TextPoint(pt)) != 1)
        return Fail(op, L"ScanFileAdd(textPath, p) != 1");
    if (files.log.WriteRec(pt) != 0) return Fail(op, L"log.WriteRec(pt) != 0");
    return 1;
}

void CScanRunner::Progress(int done, double elapsed) {
    CKelScanProject& project = m_pProject != nullptr ? *m_pProject : m_ownProject;
    m_nDone = done;
    if (!(elapsed > 0.0)) elapsed = 0.0;
    project.SetEstimateRemaining(m_nTotal - done);
    // Milliseconds, kept within the range of unsigned long (32 bits on some hosts).
    const double ms = std::fmin(elapsed * 1000.0 + 0.5, 4294967295.0);
    const int estimate = project.EstimateRemainingTime(static_cast<unsigned long>(ms));
    if (m_progress != nullptr) m_progress(m_progressContext, done, m_nTotal, elapsed, estimate);
}
