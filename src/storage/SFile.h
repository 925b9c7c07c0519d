#pragma once
// CSFile: the scan point database, a little-endian file of one 32-byte header record
// (SHEADERREC) followed by 256-byte point records (SPOINTREC, storage/SPoint.h) numbered from 1:
// record n starts at 32 + (n - 1) * 256. Deleted records keep their place (status 'D'), so
// record numbers never change.
//
// Results: -4 (SFILE_NOTOPEN) means no file is open; the other failures are the negative
// SFILE_RESULT values below. No trace lines are written (but for WriteDB keeping an unclaimed
// copy); GetRecordNo and GetCurrRecordNo send an informational line (level kSFileInfoLevel)
// through LOGMESSAGE.
//
// A partial trailing record (left by a process or power failure while a record was appended)
// is never counted or read: the count is (length - 32) / 256 in whole records. Opening for
// writing cuts it off, and AddPoint always writes at the end of the whole records, so a torn
// record is overwritten and never shows as live. Each record goes to the file in one write and
// AddPoint flushes it (fsync) before returning, so a point that the scan log names afterwards
// is in the database.
#include <cstddef>
#include <cstdint>

#include "geometry/KelArray.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/File.h"
#include "platform/KelString.h"
#include "storage/SDBLog.h"
#include "storage/SPoint.h"

// Header record: 0 "SFILE_VER01" (11), 11 zero (5), 16 bytes 0 1 0 0 0x20, 21 zero (3),
// 24 first header value, 28 second header value (signed 32-bit).
struct SHEADERREC {
    static constexpr std::size_t kSize = 32;
    static constexpr std::size_t kOffMagic = 0, kLenMagic = 11;
    static constexpr std::size_t kOffValue1 = 24, kOffValue2 = 28;
    std::uint8_t b[kSize];
};

enum SFILE_RESULT {
    SFILE_IOERR = -1,    // the file could not be opened, read, written or renamed
    SFILE_BADARG = -2,   // record number out of range, null argument
    SFILE_BADDATA = -3,  // not a database, short record, unreadable text line
    SFILE_NOTOPEN = -4,  // no database is open
    SFILE_NOMEM = -5,    // memory exhausted
    SFILE_END = -6       // GetImgCsvLine: nothing left to read
};

// How OpenDB opens a database.
enum SFILE_OPEN {
    SFILE_READ = 0,    // an existing database, read only
    SFILE_UPDATE = 1,  // read-write; a missing or empty file becomes a new database
    SFILE_CREATE = 2   // a new, empty database (an existing file is emptied)
};

// Level of the informational lines of GetRecordNo and GetCurrRecordNo.
constexpr int kSFileInfoLevel = 1;

class KELSCAN_API CSFile {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kHeaderSize = 32;
    static constexpr int kRecordSize = 256;
    // Longest text line GetImgCsvLine returns, in characters without the line end; its buffer
    // must hold kCsvLineMax + 1 bytes.
    static constexpr int kCsvLineMax = 1023;

    CSFile();
    ~CSFile();
    CSFile(const CSFile&) = delete;
    CSFile& operator=(const CSFile&) = delete;

    // Opens the database at path (closing any open one). Returns the number of whole records
    // (>= 0); SFILE_IOERR when it cannot be opened or prepared, SFILE_BADDATA when the file
    // holds no "SFILE_VER01" header (it is left closed and unchanged).
    int OpenDB(const wchar_t* path, int mode);
    // Flushes and closes. 0; SFILE_NOTOPEN; SFILE_IOERR when the flush fails (closed anyway).
    int CloseDB();
    // Writes pts (every point, deleted ones too, as record 1, 2, ...; their record numbers are
    // set) with the header values of this object into a new database at path, replacing any
    // file there. The new file is written as "\temp\temp.DB"; an existing file at path is moved
    // to "\temp\del_temp.DB" before the new one is moved in and deleted after, so at every
    // moment path or del_temp.DB holds a complete database. The whole replacement holds an
    // exclusive lock on "\temp\temp.DB.lock" (other processes and objects wait), which also
    // keeps path while the two renames are under way; a replacement that was cut off (killed,
    // power lost) is finished first: the copy in del_temp.DB goes back to its place when that
    // is empty. A del_temp.DB that no journal claims is never deleted but kept as
    // "\temp\del_temp.N.DB" (with one trace line). path must be on the same file system as
    // \temp, must not be the database open in this object, and should not depend on the
    // current folder (a later recovery may run from another). Returns the number of records
    // written, or SFILE_IOERR with path untouched; SFILE_BADARG for an empty path or one with
    // a line feed.
    int WriteDB(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>& pts);

    // Offset of record n: ((n - 1) << 8) | 32.
    long GetRecordPos(int n);
    // Number of whole records (0 without a file); sends "Your %s file is %u rec.".
    int GetRecordNo();
    // Whole records before the file position (-1 without a file or inside the header); sends
    // "Curr recNo(%u)" while a file is open.
    int GetCurrRecordNo();
    // Seeks to record n. 0; SFILE_NOTOPEN; SFILE_BADARG for n < 1; SFILE_IOERR.
    int MoveTo(int n);

    // Header values at offsets 24 and 28 into values[0..1]. 0; SFILE_NOTOPEN; SFILE_BADDATA for
    // a file shorter than the header; SFILE_IOERR.
    int ReadHeader(long* values);
    // Writes a fresh header with the two values (the scan's start date and time codes, as
    // CSDBLog::GetTakenTime gives them; stored as signed 32-bit). 0; SFILE_NOTOPEN; SFILE_IOERR.
    int WriteHeader(long& a, long& b);
    void MakeHeader(SHEADERREC& header);
    // 1 when the first 11 bytes are "SFILE_VER01", else 0.
    int IsHeader(SHEADERREC& header);

    // 1 when the status byte is not 'D'.
    int IsAliveRecord(const SPOINTREC& rec);
    int IsAliveRecord(const CSPoint& pt);

    // Reads record n into pt (pt.m_recNo = n). Returns n; SFILE_NOTOPEN; SFILE_BADARG when n is
    // not in [1, GetRecordNo()]; SFILE_BADDATA when the file was cut short behind this object's
    // back; SFILE_IOERR.
    int ReadPoint(CSPoint& pt, int n);
    // Appends pt as the next record, flushes, and sets pt.m_recNo. Returns the new record number.
    int AddPoint(CSPoint& pt);
    // Appends every point in index order (setting their record numbers) and flushes once.
    // Returns the number of records added.
    int AddPoint(kel_templ::CKelArray<CSPoint, CSPoint&>& pts);
    // Rewrites record pt.m_recNo in place and flushes. Returns the record number; SFILE_BADARG
    // when it is not in [1, GetRecordNo()].
    int UpdatePoint(const CSPoint& pt);
    // Marks pt's record deleted (status 'D') with UpdatePoint. When a scan log is set, the
    // deleted record is written to its point slot, so that the log names the last change.
    int DeletePoint(const CSPoint& pt);
    // Reads record n and deletes it.
    int DeletePoint(int n);

    // Empties the file name, zeroes the counters and the header copy (the file stays open).
    void Reset();
    // The scan log told of deletions (null: none). Not owned.
    void SetLog(CSDBLog* log) { m_pLog = log; }

    // Points of a text file, one per line "name,X,Y,Z,code,value,text1,text2" (the fields after
    // Z may be left off; blank lines are skipped), appended to pts as live points. Returns the
    // number read; SFILE_IOERR; SFILE_BADDATA for a bad line (pts unchanged); SFILE_NOMEM.
    int ReadCSV(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>& pts);
    // Writes every point as "%s,%.6lf,%.6lf,%.6lf,%s,%d,%s,%s\r\n" (name, X, Y, Z, code,
    // value, first text, second text), replacing the file. Commas and line ends inside texts
    // become blanks so the line reads back. Returns the number written; SFILE_BADARG for null.
    int WriteCSV(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>* pts);
    // Reads one line (LF or CR LF; the last line may lack it) from the file position into
    // line (kCsvLineMax + 1 bytes), NUL-terminated without its line end, and leaves the
    // position after it. Returns its length; SFILE_END when nothing is left; SFILE_BADDATA for a
    // line longer than kCsvLineMax (skipped); SFILE_IOERR.
    int GetImgCsvLine(CFile& file, char* line);

private:
    // Writes pt as record n and flushes. n, or SFILE_IOERR.
    int WriteRecordAt(const CSPoint& pt, int n);
    // Whole records, without the informational line; 0 on error.
    int CountRecords();
    // Writes pts as records n, n + 1, ... in blocks and sets their record numbers; throws
    // CFileException.
    static void WriteRecords(CFile& file, kel_templ::CKelArray<CSPoint, CSPoint&>& pts, int n);

    CFile m_file;
    kel_text::CKelString m_strName;
    int m_nRecNo;      // last count given by GetRecordNo
    int m_nCurrRecNo;  // last value given by GetCurrRecordNo
    SHEADERREC m_header;
    CSDBLog* m_pLog;
    // Read-path caches, so that reading records in order costs one read each: the whole
    // records last seen (a larger number is checked against the file) and the file position
    // after the last ReadPoint (-1: unknown, seek first).
    int m_nKnownRecords;
    LONGLONG m_knownPos;
};
