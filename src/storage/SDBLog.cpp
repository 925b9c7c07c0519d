#include "storage/SDBLog.h"

#include <cstring>

#include "platform/Bytes.h"
#include "platform/Time.h"
#include "storage/RecordText.h"

namespace {
const char kMagic[] = "SDBLOG_VER01";
constexpr std::size_t kFooterFlagOffset = 0;
}  // namespace

CSDBLog::CSDBLog() : m_strPath(L"\\temp\\SDB.log"), m_logMode(0) {}

CSDBLog::~CSDBLog() { m_file.Abort(); }

void CSDBLog::SetLogMode(int mode) { m_logMode = mode; }

int CSDBLog::Start() {
    if (m_logMode == 0) return 0;
    m_file.Abort();
    const int slash = m_strPath.ReverseFind(L'\\');
    if (slash > 0) CreateDirectoryW(m_strPath.Left(slash), nullptr);
    if (!m_file.Open(m_strPath, CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite))
        return -1;
    try {
        m_file.SetLength(kLogSize);
    } catch (CFileException&) {
        m_file.Abort();
        return -1;
    }
    return 0;
}

int CSDBLog::Stop() {
    m_file.Abort();
    return 0;
}

int CSDBLog::WriteHeader(const kel_text::CKelStringT<wchar_t>& name, int value, long& date,
                         long& time, char* text) {
    if (m_logMode == 0) return 0;
    const int rc = WriteFooter(0);
    if (rc != 0) return rc;
    using H = SDBHEADER;
    SDBHEADER h;
    std::memset(h.b, 0, H::kSize);
    std::memcpy(h.b + H::kOffMagic, kMagic, sizeof kMagic - 1);
    kel_bytes::PutI32(h.b, H::kOffVersion, kVersion);
    kel_bytes::PutI32(h.b, H::kOffValue, value);
    kel_storage_detail::PutText(h.b, H::kOffName, H::kLenName, name, H::kLenName - 1);
    GetTakenTime(date, time);
    kel_bytes::PutI32(h.b, H::kOffDate, static_cast<std::int32_t>(date));
    kel_bytes::PutI32(h.b, H::kOffTime, static_cast<std::int32_t>(time));
    for (std::size_t i = 0; text != nullptr && i < H::kLenText && text[i] != '\0'; ++i)
        h.b[H::kOffText + i] = static_cast<std::uint8_t>(text[i]);
    return Write(h.b, 1);
}

int CSDBLog::WriteRec(CSPoint& pt) {
    if (m_logMode == 0) return 0;
    SPOINTREC rec;
    ConvSPoint2Rec(pt, rec);
    return Write(rec.b, 2);
}

int CSDBLog::WriteFooter(int flag) {
    if (m_logMode == 0) return 0;
    std::uint8_t footer[kSlotSize] = {};
    kel_bytes::PutI32(footer, kFooterFlagOffset, flag);
    return Write(footer, 3);
}

int CSDBLog::JudgeSDBLog() {
    if (m_logMode == 0) return 0;
    if (!m_file.IsOpen()) return -1;
    try {
        if (m_file.GetLength() == 0) return -1;
    } catch (CFileException&) {
        return -1;
    }
    SDBHEADER h;
    if (JudgeSDBLogHeader(&h) != 0) return 0;
    if (JudgeSDBLogFooter() != 0) return -1;
    return 0;
}

int CSDBLog::GetLogInfo(char* name, int& value, long* dateTime, CSPoint& pt, char* text) {
    if (m_logMode == 0) return 0;
    using H = SDBHEADER;
    SDBHEADER h;
    int rc = JudgeSDBLogHeader(&h);
    if (rc != 0) return rc;
    SPOINTREC rec;
    rc = Read(rec.b, 2);
    if (rc != 0) return rc;
    if (name != nullptr) {
        std::size_t n = 0;
        while (n < H::kLenName - 1 && h.b[H::kOffName + n] != 0) ++n;
        std::memcpy(name, h.b + H::kOffName, n);
        name[n] = '\0';
    }
    value = kel_bytes::GetI32(h.b, H::kOffValue);
    if (dateTime != nullptr) {
        dateTime[0] = kel_bytes::GetI32(h.b, H::kOffDate);
        dateTime[1] = kel_bytes::GetI32(h.b, H::kOffTime);
    }
    if (text != nullptr) {
        std::size_t n = 0;
        while (n < H::kLenText && h.b[H::kOffText + n] != 0) ++n;
        std::memcpy(text, h.b + H::kOffText, n);
        if (n < H::kLenText) text[n] = '\0';
    }
    ConvRec2SPoint(rec, pt);
    return 0;
}

int CSDBLog::GetTakenTime(long& date, long& time) {
    SYSTEMTIME st;
    GetSystemTime(&st);
    date = (static_cast<long>(st.wMonth) + static_cast<long>(st.wYear) * 12) * 31 + st.wDay;
    time = ((static_cast<long>(st.wHour) * 60 + st.wMinute) * 60 + st.wSecond) * 1000 +
           st.wMilliseconds;
    return 0;
}

namespace {
// Offset and length of a slot; unknown slot numbers transfer nothing at offset 0.
void SlotSpan(int slot, long& offset, UINT& length) {
    if (slot >= 1 && slot <= 3) {
        offset = static_cast<long>(slot - 1) * CSDBLog::kSlotSize;
        length = CSDBLog::kSlotSize;
    } else {
        offset = 0;
        length = 0;
    }
}
}  // namespace

int CSDBLog::Write(void* buffer, int slot) {
    long offset;
    UINT length;
    SlotSpan(slot, offset, length);
    try {
        m_file.Seek(offset, CFile::begin);
        m_file.Write(buffer, length);
        m_file.Flush();
    } catch (CFileException&) {
        return -1;
    }
    return 0;
}

int CSDBLog::Read(void* buffer, int slot) {
    long offset;
    UINT length;
    SlotSpan(slot, offset, length);
    try {
        m_file.Seek(offset, CFile::begin);
        const UINT n = m_file.Read(buffer, length);
        if (n < length) {
            std::memset(static_cast<std::uint8_t*>(buffer) + n, 0, length - n);
            return -1;
        }
    } catch (CFileException&) {
        return -1;
    }
    return 0;
}

int CSDBLog::JudgeSDBLogHeader(SDBHEADER* header) {
    const int rc = Read(header->b, 1);
    if (rc != 0) return rc;
    if (std::memcmp(header->b + SDBHEADER::kOffMagic, kMagic, sizeof kMagic) != 0) return -1;
    if (kel_bytes::GetI32(header->b, SDBHEADER::kOffVersion) != kVersion) return -1;
    return 0;
}

int CSDBLog::JudgeSDBLogFooter() {
    std::uint8_t footer[kSlotSize];
    if (Read(footer, 3) != 0) return -1;
    return kel_bytes::GetI32(footer, kFooterFlagOffset) == 1 ? 0 : -1;
}
