#pragma once
// CSDBLog: the scan recovery log "\temp\SDB.log", exactly 768 bytes in three 256-byte slots:
//   slot 1 (offset   0) header SDBHEADER: 0 magic "SDBLOG_VER01" (16, NUL-padded), 16 version 1,
//          20 caller's integer, 24 scan database name (64: 63 characters and a NUL),
//          88 start date code, 92 start time code, 96 caller's text (32), 128 zero (128);
//   slot 2 (offset 256) the last stored point as an SPOINTREC;
//   slot 3 (offset 512) footer: 0 completion flag (0 = scan open, 1 = ended cleanly), rest zero.
// Integers are signed 32-bit little-endian. Every operation returns 0 for success and a
// negative value for failure, and returns 0 at once while the log mode is 0 (logging off).
// The log never writes trace lines or messages.
#include <cstddef>
#include <cstdint>

#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/File.h"
#include "platform/KelString.h"
#include "storage/SPoint.h"

// The header slot as bytes, built and parsed field by field.
struct SDBHEADER {
    static constexpr std::size_t kSize = 256;
    static constexpr std::size_t kOffMagic = 0, kLenMagic = 16;
    static constexpr std::size_t kOffVersion = 16;
    static constexpr std::size_t kOffValue = 20;
    static constexpr std::size_t kOffName = 24, kLenName = 64;
    static constexpr std::size_t kOffDate = 88;
    static constexpr std::size_t kOffTime = 92;
    static constexpr std::size_t kOffText = 96, kLenText = 32;
    std::uint8_t b[kSize];
};

class KELSCAN_API CSDBLog {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kSlotSize = 256;
    static constexpr int kLogSize = 3 * kSlotSize;  // bytes of the log file
    static constexpr std::int32_t kVersion = 1;

    // Path "\temp\SDB.log", log mode 0.
    CSDBLog();
    virtual ~CSDBLog();
    CSDBLog(const CSDBLog&) = delete;
    CSDBLog& operator=(const CSDBLog&) = delete;

    // 0 switches logging off, any other value on.
    void SetLogMode(int mode);
    // Opens or creates the log read-write without truncating it (creating the folder "\temp"
    // when it is missing) and sets its length to 768 bytes. -1 when it cannot be opened.
    int Start();
    // Closes the log; always 0.
    int Stop();
    // Marks the scan open (footer 0), then writes the header: magic, version, value, name (first
    // 63 characters), the current date and time codes (also returned in date and time) and at
    // most 32 bytes of text (null: none). Allocates nothing, so it cannot fail for want of
    // memory (nor can WriteRec).
    int WriteHeader(const kel_text::CKelStringT<wchar_t>& name, int value, long& date, long& time,
                    char* text);
    // Replaces the point slot with pt.
    int WriteRec(CSPoint& pt);
    // Writes the footer with flag (1 = the scan ended cleanly).
    int WriteFooter(int flag);
    // -1 when a scan was started and not ended (good header, footer not 1), and also when the
    // log is not open or empty; 0 otherwise (no usable header: nothing to resume).
    int JudgeSDBLog();
    // Reads the header and the point back: name receives the database name NUL-terminated (give
    // 64 bytes), value the integer, dateTime[0..1] the date and time codes, text at most 32
    // bytes (NUL-terminated when shorter; give 33 bytes and a NUL at 32 for a full one), pt the
    // last point. Null name, dateTime or text are skipped. A bad header gives -1 and leaves all
    // outputs untouched.
    int GetLogInfo(char* name, int& value, long* dateTime, CSPoint& pt, char* text);
    // Current UTC date code (month + year * 12) * 31 + day and time code, milliseconds of the
    // day. Meant for differences between two moments, not for display. Always 0.
    int GetTakenTime(long& date, long& time);

private:
    // One slot (1, 2 or 3; any other number transfers nothing at offset 0). Write flushes.
    // A file exception or a short read gives -1 (a short read zero-fills the buffer's rest).
    int Write(void* buffer, int slot);
    int Read(void* buffer, int slot);
    // 0 for a good header (read into header), -1 for a bad magic or version, a read error as is.
    int JudgeSDBLogHeader(SDBHEADER* header);
    // 0 when the completion flag is 1, else -1.
    int JudgeSDBLogFooter();

    CFile m_file;
    kel_text::CKelString m_strPath;
    std::int32_t m_logMode;
};
