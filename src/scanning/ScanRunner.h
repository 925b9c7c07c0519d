#pragma once
// CScanRunner: runs a planned scan against an instrument and records every measured point as
// it comes, so that a scan cut off at any moment (killed, power lost) can be resumed with
// nothing lost and nothing written twice.
//
// The plan. A fine scan is a CCleverFineScan after CalcPtAngle: its targets in order
// (m_planH / m_planV; the planner's NextPt index is not used and not changed). A tracking scan
// is a CCleverTrkScan after CalcLineAngle: each line is swept from its start H to its end H
// the shorter way round (as the planner's CalcTime takes it) at the rate of the planner's
// speed setting in the chosen family's table, measuring at start H + k dH (k = 0, 1, ...,
// (int)(length / dH); one shot for dH 0). Every planned shot has an ordinal, its place in the
// whole scan counted from 0.
//
// The files, written for every shot that hits (a miss is recorded nowhere), in this order:
// 1. the scan point database (CSFile, dbPath): one record appended and flushed. The record:
//    name (below), X, Y, Z the measured point (surveying frame, metres), first text the
//    measured "H V S" (circle reading and zenith angle in degrees with 9 decimals, slope
//    distance in metres with 4), integer the shot's ordinal; second text and code empty;
// 2. the scan text file (ScanFileAdd, textPath): the line "name,X,Y,Z";
// 3. the scan recovery log (CSDBLog, the device's one "\temp\SDB.log"): the record again, in
//    its point slot.
// The log's header names the database (dbPath as given, at most kMaxPathChars single-byte
// characters), and holds the number of planned shots as its integer and the plan's
// fingerprint ("fine " or "track " and 16 hexadecimal digits of a hash of every planned
// angle, the spacing and the rate) as its text; its date and time codes are also written
// into the database header's two values, which binds the database to the log. The footer
// says 1 once every planned shot has been taken.
//
// Point names: a fine target is "F<n>", n = target index + 1 ("F1" is the first target); a
// tracking shot is "T<l>_<k>", line index + 1 and shot index on its line + 1 ("T3_1" starts
// the third line).
//
// Resume. The database is authoritative: a record is there once AddPoint returned, before the
// text line and the log's point are written, so after a kill the log's point is the
// database's last record or the one before it, and the text file holds a line for every
// record but perhaps the last (and perhaps a torn line after them). The text file is derived
// from the database and mended to match it; the log's point only checks that the database
// lost nothing. Resume, with the same plan rebuilt by the caller:
// - a log header naming dbPath, footer not 1: the plan must match the log (count and
//   fingerprint). A database not yet bound to the log (below) is made anew with the log's
//   codes; a bound one must have the log's codes and hold records of this plan in order (a
//   torn last record is cut off). The log's point must be one of the last two records, or
//   empty with at most one record. The text file keeps its complete lines that match the
//   records by name, loses the rest (a torn or extra line) and gets the missing lines from
//   the records. The scan then continues with the planned shot after the last record.
// - a database not yet bound (missing, shorter than its header, or a header with codes 0 0
//   and no record: a Run cut off before its log header): when the log names no unfinished
//   scan of dbPath, the scan starts afresh, exactly as Run.
// - otherwise one trace line and 0: the log holds no scan, names another database, says the
//   scan ended cleanly, or the files do not belong together (codes, records or the log's
//   point do not match). Nothing is changed then, but for a torn last record cut off.
// Trace lines name the failed condition as the code states it, e.g. "CScanRunner::Resume
// log.JudgeSDBLog() == 0" (ended cleanly), "CScanRunner::Resume name != dbPath" (another
// database), "CScanRunner::Resume value != plan.total || text != plan.fingerprint" (another
// plan), "CScanRunner::Resume log.GetLogInfo(...) != 0" (no scan in the log).
// The result is byte for byte the database and text file of an uninterrupted run (with the
// same instrument answers and the same "now" of the start); only the instrument time, and so
// the progress figures, differ. A tracking line resumed in its middle is swept from the next
// planned shot to its end.
//
// Run starts afresh whatever the log holds: it empties the database and the text file, clears
// the log's point, writes the log's header and the database's codes, then measures.
//
// Remaining time: the runner keeps a CKelScanProject's estimate up to date (SetProject; by
// default its own): SetEstimateParams(shots of this call, the planner's seconds for them) at
// the start, SetEstimateRemaining after every shot, EstimateRemainingTime of the instrument
// time since the start of the call. The planner's seconds: CalcTime's rule (a fresh fine scan
// with the set-up allowance; a resumed one CalcRemainingTime(count); a tracking scan
// CalcRemainingTime, from the resumed position on a line when resumed).
//
// Results: 1 when every planned shot has been taken and recorded; 0 after one trace line
// "CScanRunner::Run ..." or "CScanRunner::Resume ...": bad arguments, an empty plan, a file
// that cannot be written, an instrument that failed (its own line comes first), a shot with
// values that are not finite or out of range, or exhausted memory. After a failure during
// the measuring the files stay as a kill would leave them, ready for Resume.
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"
#include "scanning/Instrument.h"
#include "scanning/ScanProject.h"

class CSDBLog;
class CSFile;
class CSPoint;

// Progress after every planned shot: shots done (of the whole scan), planned shots, instrument
// seconds since the start of this call, estimated seconds still needed.
typedef void (*ScanProgressFn)(void* context, int done, int total, double elapsedSeconds,
                               int estimateSeconds);

class KELSCAN_API CScanRunner {
public:
    KEL_DECLARE_ALLOCATOR

    // Longest database path the log's header holds, single-byte characters.
    static constexpr int kMaxPathChars = 63;

    CScanRunner();
    ~CScanRunner();
    CScanRunner(const CScanRunner&) = delete;
    CScanRunner& operator=(const CScanRunner&) = delete;

    // Progress callback (null: none) and its context.
    void SetProgress(ScanProgressFn fn, void* context);
    // The project whose estimate is kept (null: the runner's own). Not owned.
    void SetProject(CKelScanProject* project);

    // A new scan of the plan, recorded into dbPath and textPath (device or host paths). Fine
    // scans call instrument.BeginFine(N, 1) first. `quorin` chooses the tracking speed table
    // (true: Quorin, false: Halvex) as CCleverTrkScan::CalcTime does.
    int Run(const CCleverFineScan& plan, CInstrument& instrument, const wchar_t* dbPath,
            const wchar_t* textPath);
    int Run(const CCleverTrkScan& plan, bool quorin, CInstrument& instrument, const wchar_t* dbPath,
            const wchar_t* textPath);
    // Continues an interrupted scan (see above). A fine scan calls BeginFine(N, 0).
    int Resume(const CCleverFineScan& plan, CInstrument& instrument, const wchar_t* dbPath,
               const wchar_t* textPath);
    int Resume(const CCleverTrkScan& plan, bool quorin, CInstrument& instrument,
               const wchar_t* dbPath, const wchar_t* textPath);

    // Figures of the last Run or Resume: planned shots; the ordinal this call started at;
    // shots taken in all (ordinal of the last one + 1); records in the database; instrument
    // seconds this call took.
    int GetTotal() const { return m_nTotal; }
    int GetFirst() const { return m_nFirst; }
    int GetDone() const { return m_nDone; }
    int GetStored() const { return m_nStored; }
    double GetElapsed() const { return m_elapsed; }

private:
    struct Plan;  // the shots of either planner (ScanRunner.cpp)
    struct Files;

    // Run (resume false) or Resume of either plan (fine or track not null).
    int Launch(const CCleverFineScan* fine, const CCleverTrkScan* track, bool quorin,
               CInstrument& instrument, const wchar_t* dbPath, const wchar_t* textPath,
               bool resume);
    int Start(const Plan& plan, CInstrument& instrument, Files& files, const wchar_t* op);
    int Continue(const Plan& plan, CInstrument& instrument, Files& files, const wchar_t* op);
    // Measures the shots from `first` on and records every hit; then the footer.
    int Measure(const Plan& plan, CInstrument& instrument, Files& files, int first, int fresh,
                const wchar_t* op);
    int Record(const Plan& plan, int ordinal, const SInstrumentShot& shot, Files& files,
               const wchar_t* op);
    void Progress(int done, double elapsed);
    // The text file made to hold exactly one line per record (see Resume).
    int MendText(const wchar_t* textPath, kel_templ::CKelArray<CSPoint, CSPoint&>& records,
                 const wchar_t* op);

    ScanProgressFn m_progress;
    void* m_progressContext;
    CKelScanProject* m_pProject;
    CKelScanProject m_ownProject;  // keeps the estimate when no project is given
    int m_nTotal;
    int m_nFirst;
    int m_nDone;
    int m_nStored;
    double m_elapsed;
};
