#include "storage/SFile.h"

#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "platform/NumText.h"
#include "platform/Trace.h"
#include "storage/RecordText.h"

namespace {

const char kMagic[] = "SFILE_VER01";
const wchar_t kTempDB[] = L"\\temp\\temp.DB";
const wchar_t kDelTempDB[] = L"\\temp\\del_temp.DB";
const wchar_t kLockDB[] = L"\\temp\\temp.DB.lock";
// Records per write when many are written at once (64 KiB blocks).
constexpr int kRecordsPerBlock = 256;
// Fields of a database text line: name, X, Y, Z, code, value, first text, second text.
constexpr std::size_t kCsvFields = 8;

// Offset of record n, as unsigned arithmetic so that n < 1 cannot overflow a shift.
long RecordPos(int n) { return static_cast<long>((static_cast<unsigned long>(n - 1) << 8) | 32u); }

// The file's length in whole records.
int WholeRecords(ULONGLONG length) {
    if (length < static_cast<ULONGLONG>(CSFile::kHeaderSize + 1)) return 0;
    return static_cast<int>((length - CSFile::kHeaderSize) / CSFile::kRecordSize);
}

// Texts of a text line cannot hold the field separator or a line end.
std::string CsvText(const kel_text::CKelString& s) {
    std::string t = kel_text::WideToSingleByte(s);
    for (char& c : t)
        if (c == ',' || c == '\r' || c == '\n') c = ' ';
    return t;
}

bool ParseInt32(const std::string& s, std::int32_t& v) {
    int x = 0;
    if (!kel_num::ParseInt(s.c_str(), x)) return false;
    v = static_cast<std::int32_t>(x);
    return true;
}

// One database text line into pt; false when it has fewer than 4 or more than 8 fields or a
// number does not parse.
bool ParseCsvLine(const char* line, CSPoint& pt) {
    std::vector<std::string> f(1);
    for (const char* p = line; *p != '\0'; ++p) {
        if (*p == ',') {
            if (f.size() == kCsvFields) return false;
            f.emplace_back();
        } else {
            f.back() += *p;
        }
    }
    if (f.size() < 4) return false;
    pt.Init();
    pt.m_name = kel_text::SingleByteToWide(f[0].c_str());
    if (!kel_num::Parse(f[1], pt.m_X) || !kel_num::Parse(f[2], pt.m_Y) ||
        !kel_num::Parse(f[3], pt.m_Z))
        return false;
    if (f.size() > 4) pt.m_code = kel_text::SingleByteToWide(f[4].c_str());
    if (f.size() > 5 && !ParseInt32(f[5], pt.m_value)) return false;
    if (f.size() > 6) pt.m_text1 = kel_text::SingleByteToWide(f[6].c_str());
    if (f.size() > 7) pt.m_text2 = kel_text::SingleByteToWide(f[7].c_str());
    return true;
}

}  // namespace

CSFile::CSFile()
    : m_nRecNo(0), m_nCurrRecNo(0), m_pLog(nullptr), m_nKnownRecords(0), m_knownPos(-1) {
    std::memset(m_header.b, 0, SHEADERREC::kSize);
}

CSFile::~CSFile() { m_file.Abort(); }

int CSFile::OpenDB(const wchar_t* path, int mode) {
    if (path == nullptr || *path == L'\0') return SFILE_BADARG;
    m_file.Abort();
    Reset();
    UINT flags = CFile::modeRead;
    if (mode == SFILE_UPDATE)
        flags = CFile::modeReadWrite | CFile::modeCreate | CFile::modeNoTruncate;
    if (mode == SFILE_CREATE) flags = CFile::modeReadWrite | CFile::modeCreate;
    if (!m_file.Open(path, flags)) return SFILE_IOERR;
    try {
        ULONGLONG length = m_file.GetLength();
        if (length == 0 && mode != SFILE_READ) {
            long a = 0, b = 0;
            if (WriteHeader(a, b) != 0) throw CFileException(CFileException::hardIO);
            length = SHEADERREC::kSize;
        }
        SHEADERREC h;
        std::memset(h.b, 0, SHEADERREC::kSize);
        m_file.SeekToBegin();
        if (m_file.Read(h.b, SHEADERREC::kSize) < SHEADERREC::kSize || !IsHeader(h)) {
            m_file.Abort();
            return SFILE_BADDATA;
        }
        m_header = h;
        const int n = WholeRecords(length);
        // A torn trailing record is cut off before anything is appended after it.
        if (mode != SFILE_READ && length != static_cast<ULONGLONG>(GetRecordPos(n + 1)))
            m_file.SetLength(static_cast<ULONGLONG>(GetRecordPos(n + 1)));
        m_strName = path;
        m_nKnownRecords = n;
        return n;
    } catch (CFileException&) {
        m_file.Abort();
        return SFILE_IOERR;
    }
}

int CSFile::CloseDB() {
    m_knownPos = -1;
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    int rc = 0;
    try {
        m_file.Flush();
    } catch (CFileException&) {
        rc = SFILE_IOERR;
    }
    m_file.Abort();
    return rc;
}

void CSFile::WriteRecords(CFile& file, kel_templ::CKelArray<CSPoint, CSPoint&>& pts, int n) {
    std::vector<std::uint8_t> block(static_cast<std::size_t>(kRecordsPerBlock) * kRecordSize);
    file.Seek(RecordPos(n), CFile::begin);
    for (int first = 0; first < pts.GetSize(); first += kRecordsPerBlock) {
        const int count =
            pts.GetSize() - first < kRecordsPerBlock ? pts.GetSize() - first : kRecordsPerBlock;
        for (int i = 0; i < count; ++i) {
            SPOINTREC rec;
            ConvSPoint2Rec(pts[first + i], rec);
            std::memcpy(block.data() + static_cast<std::size_t>(i) * kRecordSize, rec.b,
                        kRecordSize);
        }
        file.WriteAll(block.data(), static_cast<std::size_t>(count) * kRecordSize);
        for (int i = 0; i < count; ++i) pts[first + i].m_recNo = n + first + i;
    }
}

namespace {

// The replacement journal, kept in the lock file: while a replacement is between its renames
// it holds the path of the database being replaced and a line feed; otherwise it is empty. A
// journal without its line feed was cut off before any rename and claims nothing.
bool ReadJournal(CFile& lock, kel_text::CKelString& owner) {
    const ULONGLONG length = lock.GetLength();
    if (length == 0 || length > 64 * 1024) return false;
    std::string text(static_cast<std::size_t>(length), '\0');
    lock.SeekToBegin();
    if (lock.ReadAll(&text[0], text.size()) != text.size() || text.back() != '\n') return false;
    text.pop_back();
    owner = kel_text::Utf8ToWide(text.c_str());
    return !owner.IsEmpty();
}

void WriteJournal(CFile& lock, const wchar_t* owner) {
    const std::string text = kel_text::WideToUtf8(owner) + "\n";
    lock.SeekToBegin();
    lock.WriteAll(text.data(), text.size());
    lock.Flush();
}

// Brings the temporary folder back to a clean state (no temp.DB, no del_temp.DB, an empty
// journal) after a replacement that was cut off or has just ended. A del_temp.DB whose
// database is missing from its place is the only copy of it and goes back there; one whose
// database is in place is the old version and goes. One that no journal claims (left by an
// older program) is kept under a free name. false when the folder could not be cleaned, with
// the journal kept for the next try.
bool CleanTemp(CFile& lock) noexcept try {
    kel_text::CKelString owner;
    const bool claimed = ReadJournal(lock, owner);
    if (FileExists(kDelTempDB)) {
        if (claimed && !FileExists(owner)) {
            if (!MoveFileW(kDelTempDB, owner)) return false;
        } else if (claimed) {
            if (!DeleteFileW(kDelTempDB)) return false;
        } else {
            kel_text::CKelString aside;
            for (int n = 1; aside.IsEmpty() || FileExists(aside); ++n)
                aside.Format(L"\\temp\\del_temp.%d.DB", n);
            if (!MoveFileW(kDelTempDB, aside)) return false;
            KEL_TRACE_ALWAYS(L"CSFile::WriteDB kept an unclaimed %s as %s", kDelTempDB,
                             aside.GetString());
        }
    }
    if (FileExists(kTempDB) && !DeleteFileW(kTempDB)) return false;
    if (lock.GetLength() != 0) {
        lock.SetLength(0);
        lock.Flush();
    }
    return true;
} catch (CFileException&) {
    return false;
} catch (std::bad_alloc&) {
    return false;
}

}  // namespace

int CSFile::WriteDB(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>& pts) {
    if (path == nullptr || *path == L'\0' || std::wcschr(path, L'\n') != nullptr)
        return SFILE_BADARG;
    // Every replacement in this device's \temp holds its lock from first to last step, so
    // the two fixed names are never shared, and first finishes one that was cut off.
    CLockFile lock;
    if (!lock.Lock(kLockDB)) return SFILE_IOERR;
    if (!CleanTemp(lock.File())) return SFILE_IOERR;
    int rc = SFILE_IOERR;
    try {
        CFile tmp;
        if (tmp.Open(kTempDB, CFile::modeCreate | CFile::modeWrite)) {
            SHEADERREC h;
            MakeHeader(h);
            std::memcpy(h.b + SHEADERREC::kOffValue1, m_header.b + SHEADERREC::kOffValue1, 8);
            tmp.Write(h.b, SHEADERREC::kSize);
            WriteRecords(tmp, pts, 1);
            tmp.Flush();
            tmp.Close();
            // From here until the journal is emptied, a replacement cut off is finished from
            // the journal alone: temp.DB is complete and durable.
            WriteJournal(lock.File(), path);
            if ((!FileExists(path) || MoveFileW(path, kDelTempDB)) && MoveFileW(kTempDB, path))
                rc = pts.GetSize();
        }
    } catch (CFileException&) {
        rc = SFILE_IOERR;
    } catch (std::bad_alloc&) {
        rc = SFILE_NOMEM;
    }
    // Success or not, the old version goes, or goes back in place, and temp.DB goes.
    if (CleanTemp(lock.File())) lock.Unlock(TRUE);
    return rc;
}

long CSFile::GetRecordPos(int n) { return RecordPos(n); }

int CSFile::CountRecords() {
    if (!m_file.IsOpen()) return 0;
    try {
        return WholeRecords(m_file.GetLength());
    } catch (CFileException&) {
        return 0;
    }
}

int CSFile::GetRecordNo() {
    if (!m_file.IsOpen()) return 0;
    m_nRecNo = CountRecords();
    LOGMESSAGE(kSFileInfoLevel, L"Your %s file is %u rec.", m_strName.GetString(),
               static_cast<unsigned>(m_nRecNo));
    return m_nRecNo;
}

int CSFile::GetCurrRecordNo() {
    if (!m_file.IsOpen()) return -1;
    ULONGLONG pos = 0;
    try {
        pos = m_file.GetPosition();
    } catch (CFileException&) {
        pos = 0;
    }
    m_nCurrRecNo = pos < static_cast<ULONGLONG>(kHeaderSize + 1)
                       ? -1
                       : static_cast<int>((pos - kHeaderSize) / kRecordSize);
    LOGMESSAGE(kSFileInfoLevel, L"Curr recNo(%u)", static_cast<unsigned>(m_nCurrRecNo));
    return m_nCurrRecNo;
}

int CSFile::MoveTo(int n) {
    m_knownPos = -1;
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    if (n < 1) return SFILE_BADARG;
    try {
        m_file.Seek(GetRecordPos(n), CFile::begin);
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
    return 0;
}

int CSFile::ReadHeader(long* values) {
    m_knownPos = -1;
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    SHEADERREC h;
    try {
        m_file.SeekToBegin();
        if (m_file.Read(h.b, SHEADERREC::kSize) < SHEADERREC::kSize) return SFILE_BADDATA;
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
    m_header = h;
    if (values != nullptr) {
        values[0] = kel_bytes::GetI32(h.b, SHEADERREC::kOffValue1);
        values[1] = kel_bytes::GetI32(h.b, SHEADERREC::kOffValue2);
    }
    return 0;
}

int CSFile::WriteHeader(long& a, long& b) {
    m_knownPos = -1;
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    SHEADERREC h;
    MakeHeader(h);
    kel_bytes::PutI32(h.b, SHEADERREC::kOffValue1, static_cast<std::int32_t>(a));
    kel_bytes::PutI32(h.b, SHEADERREC::kOffValue2, static_cast<std::int32_t>(b));
    try {
        m_file.SeekToBegin();
        m_file.Write(h.b, SHEADERREC::kSize);
        m_file.Flush();
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
    m_header = h;
    return 0;
}

void CSFile::MakeHeader(SHEADERREC& header) {
    std::memset(header.b, 0, SHEADERREC::kSize);
    std::memcpy(header.b + SHEADERREC::kOffMagic, kMagic, SHEADERREC::kLenMagic);
    header.b[17] = 1;
    header.b[20] = 0x20;
}

int CSFile::IsHeader(SHEADERREC& header) {
    return std::memcmp(header.b + SHEADERREC::kOffMagic, kMagic, SHEADERREC::kLenMagic) == 0 ? 1
                                                                                             : 0;
}

int CSFile::IsAliveRecord(const SPOINTREC& rec) {
    return rec.b[SPOINTREC::kOffStatus] != kSPointDeleted ? 1 : 0;
}

int CSFile::IsAliveRecord(const CSPoint& pt) { return pt.m_status != kSPointDeleted ? 1 : 0; }

int CSFile::ReadPoint(CSPoint& pt, int n) {
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    if (n < 1) return SFILE_BADARG;
    if (n > m_nKnownRecords) {
        m_nKnownRecords = CountRecords();
        if (n > m_nKnownRecords) return SFILE_BADARG;
    }
    const long pos = GetRecordPos(n);
    SPOINTREC rec;
    try {
        if (m_knownPos != pos) m_file.Seek(pos, CFile::begin);
        m_knownPos = -1;
        if (m_file.Read(rec.b, SPOINTREC::kSize) < SPOINTREC::kSize) return SFILE_BADDATA;
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
    m_knownPos = pos + SPOINTREC::kSize;
    ConvRec2SPoint(rec, pt);
    pt.m_recNo = n;
    return n;
}

int CSFile::WriteRecordAt(const CSPoint& pt, int n) {
    m_knownPos = -1;
    SPOINTREC rec;
    ConvSPoint2Rec(pt, rec);
    try {
        m_file.Seek(GetRecordPos(n), CFile::begin);
        m_file.Write(rec.b, SPOINTREC::kSize);
        m_file.Flush();
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
    return n;
}

int CSFile::AddPoint(CSPoint& pt) {
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    const int n = WriteRecordAt(pt, CountRecords() + 1);
    if (n < 0) return n;
    pt.m_recNo = n;
    m_nKnownRecords = n;
    return n;
}

int CSFile::AddPoint(kel_templ::CKelArray<CSPoint, CSPoint&>& pts) {
    m_knownPos = -1;
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    try {
        const int first = CountRecords() + 1;
        WriteRecords(m_file, pts, first);
        m_file.Flush();
        m_nKnownRecords = first + pts.GetSize() - 1;
    } catch (CFileException&) {
        return SFILE_IOERR;
    } catch (std::bad_alloc&) {
        return SFILE_NOMEM;
    }
    return pts.GetSize();
}

int CSFile::UpdatePoint(const CSPoint& pt) {
    if (!m_file.IsOpen()) return SFILE_NOTOPEN;
    const int n = pt.m_recNo;
    if (n < 1 || n > CountRecords()) return SFILE_BADARG;
    return WriteRecordAt(pt, n);
}

int CSFile::DeletePoint(const CSPoint& pt) {
    CSPoint dead(pt);
    dead.m_status = kSPointDeleted;
    const int rc = UpdatePoint(dead);
    if (rc == dead.m_recNo && m_pLog != nullptr) m_pLog->WriteRec(dead);
    return rc;
}

int CSFile::DeletePoint(int n) {
    CSPoint pt;
    const int rc = ReadPoint(pt, n);
    if (rc < 0) return rc;
    pt.m_recNo = n;
    return DeletePoint(pt);
}

void CSFile::Reset() {
    m_nKnownRecords = 0;
    m_knownPos = -1;
    m_strName.Empty();
    m_nRecNo = 0;
    m_nCurrRecNo = 0;
    std::memset(m_header.b, 0, SHEADERREC::kSize);
}

int CSFile::ReadCSV(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>& pts) {
    CFile file;
    if (path == nullptr || !file.Open(path, CFile::modeRead)) return SFILE_IOERR;
    try {
        kel_templ::CKelArray<CSPoint, CSPoint&> read;
        std::vector<char> line(kCsvLineMax + 1);
        for (;;) {
            const int len = GetImgCsvLine(file, line.data());
            if (len == SFILE_END) break;
            if (len < 0) return len;
            if (len == 0) continue;
            CSPoint pt;
            if (!ParseCsvLine(line.data(), pt)) return SFILE_BADDATA;
            read.Add(pt);
        }
        for (int i = 0; i < read.GetSize(); ++i) pts.Add(read[i]);
        return read.GetSize();
    } catch (std::bad_alloc&) {
        return SFILE_NOMEM;
    }
}

int CSFile::WriteCSV(const wchar_t* path, kel_templ::CKelArray<CSPoint, CSPoint&>* pts) {
    if (path == nullptr || pts == nullptr) return SFILE_BADARG;
    try {
        CFile file;
        if (!file.Open(path, CFile::modeCreate | CFile::modeWrite)) return SFILE_IOERR;
        std::string out;
        for (int i = 0; i < pts->GetSize(); ++i) {
            const CSPoint& p = (*pts)[i];
            out += CsvText(p.m_name);
            kel_storage_detail::AppendFixed6(out, {p.m_X, p.m_Y, p.m_Z});
            out += ',' + CsvText(p.m_code) + ',' + std::to_string(static_cast<int>(p.m_value)) +
                   ',' + CsvText(p.m_text1) + ',' + CsvText(p.m_text2) + "\r\n";
        }
        file.WriteAll(out.data(), out.size());
        file.Flush();
        file.Close();
        return pts->GetSize();
    } catch (CFileException&) {
        return SFILE_IOERR;
    } catch (std::bad_alloc&) {
        return SFILE_NOMEM;
    }
}

int CSFile::GetImgCsvLine(CFile& file, char* line) {
    if (line == nullptr) return SFILE_BADARG;
    line[0] = '\0';
    // A chunk holds the longest line and its CR LF.
    char chunk[kCsvLineMax + 2];
    try {
        const ULONGLONG start = file.GetPosition();
        const UINT n = file.Read(chunk, sizeof chunk);
        if (n == 0) return SFILE_END;
        const char* nl = static_cast<const char*>(std::memchr(chunk, '\n', n));
        if (nl == nullptr && n == sizeof chunk) {
            // Too long: skip to the next line end (or the end of the file).
            for (;;) {
                const UINT m = file.Read(chunk, sizeof chunk);
                if (m == 0) break;
                nl = static_cast<const char*>(std::memchr(chunk, '\n', m));
                if (nl != nullptr) {
                    file.Seek(static_cast<LONGLONG>(nl - chunk) + 1 - m, CFile::current);
                    break;
                }
            }
            return SFILE_BADDATA;
        }
        std::size_t len = nl != nullptr ? static_cast<std::size_t>(nl - chunk) : n;
        if (nl != nullptr) file.Seek(static_cast<LONGLONG>(start + len + 1), CFile::begin);
        if (len > 0 && chunk[len - 1] == '\r') --len;
        if (len > static_cast<std::size_t>(kCsvLineMax)) return SFILE_BADDATA;
        std::memcpy(line, chunk, len);
        line[len] = '\0';
        return static_cast<int>(len);
    } catch (CFileException&) {
        return SFILE_IOERR;
    }
}
