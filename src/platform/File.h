#pragma once
// Files as the host saw them: MFC's CFile and CFileException, the Windows file functions, and
// the device-path mapping.
//
// Device paths. The classes name their files with backslashes ("\temp\SDB.log",
// "folder\name.imc"). MapDevicePath turns backslashes into the host separator and resolves a
// path that starts with a backslash under the device root directory. The root is set by the
// host with SetDeviceRoot, else by the environment variable KELSCAN_ROOT, else it is the
// current directory. A path that starts with '/' is an absolute host path and is used as it
// is (device paths never start with '/'); any other path is relative to the current directory.
// Host file names are the UTF-8 form of the wide path.
//
// Durability. CFile::Flush makes the written data durable (fsync), and MoveFileW makes the new
// name durable (it syncs the folder), so a write-flush-move sequence survives a power cut.
#include <cstddef>
#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/KelString.h"
#include "platform/Types.h"

namespace kel_platform {

// Sets the device root (a host directory); null restores KELSCAN_ROOT / the current directory.
KELSCAN_API void SetDeviceRoot(const char* hostDirectory);
// The device root in force ("" means the current directory).
KELSCAN_API std::string GetDeviceRoot();
// The host path of a device path (see above).
KELSCAN_API std::string MapDevicePath(const wchar_t* devicePath);

// Fault injection for tests of crash safety: the hook is asked before every file operation
// and a non-zero answer makes that operation fail as if the host had refused it (the write
// writes nothing, the rename renames nothing). Null removes the hook.
enum class FileOp { Open, Read, Write, Flush, SetLength, Delete, Move, Lock };
typedef int (*FileFaultHook)(void* context, FileOp op, const char* hostPath);
KELSCAN_API void SetFileFaultHook(FileFaultHook hook, void* context);
// Asks the hook (used by the file layer; exposed for other host-facing code).
KELSCAN_API bool InjectFault(FileOp op, const std::string& hostPath);

// Creates a new folder that only this user can enter, named prefix followed by six random
// characters, in the host's folder for temporary files (TMPDIR, else /tmp). Returns its host
// path, or "" when it cannot be made. The caller removes it.
KELSCAN_API std::string CreatePrivateFolder(const char* prefix);

}  // namespace kel_platform

// MFC's file exception. The library throws it by value from CFile and catches it by
// reference inside the operation that does the I/O; it never crosses the library's surface.
class KELSCAN_API CFileException {
public:
    enum {
        none = 0,
        genericException,
        fileNotFound,
        badPath,
        tooManyOpenFiles,
        accessDenied,
        invalidFile,
        removeCurrentDir,
        directoryFull,
        badSeek,
        hardIO,
        sharingViolation,
        lockViolation,
        diskFull,
        endOfFile
    };
    explicit CFileException(int cause = none, LONG osError = -1, const wchar_t* fileName = nullptr);
    // Maps an errno value to a cause.
    static int OsErrorToCause(int osError);

    int m_cause;
    LONG m_lOsError;
    kel_text::CKelString m_strFileName;
};

// MFC's unbuffered binary file over the host's file descriptor. Read returns the number of
// bytes read (fewer at the end of the file); Write, Seek, SetLength, Flush and Close throw
// CFileException on failure, as MFC does. Open reports failure by its result and never throws.
class KELSCAN_API CFile {
public:
    enum OpenFlags : UINT {
        modeRead = 0x0000,
        modeWrite = 0x0001,
        modeReadWrite = 0x0002,
        shareCompat = 0x0000,
        shareExclusive = 0x0010,
        shareDenyWrite = 0x0020,
        shareDenyRead = 0x0030,
        shareDenyNone = 0x0040,
        modeNoInherit = 0x0080,
        modeCreate = 0x1000,
        modeNoTruncate = 0x2000,
        typeText = 0x4000,
        typeBinary = 0x8000
    };
    enum SeekPosition { begin = 0x0, current = 0x1, end = 0x2 };
    static const int hFileNull = -1;

    CFile();
    // Opens or throws CFileException.
    CFile(const wchar_t* fileName, UINT openFlags);
    // Closes an open file; errors on this path are ignored.
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;

    // modeCreate creates the file or truncates it, unless modeNoTruncate keeps its contents.
    // Returns FALSE (filling error when given) when the file cannot be opened.
    BOOL Open(const wchar_t* fileName, UINT openFlags, CFileException* error = nullptr);
    UINT Read(void* buffer, UINT count);
    void Write(const void* buffer, UINT count);
    // A whole block of any size (Read and Write take at most 4 GiB - 1 bytes): transferred in
    // chunks of kIoChunk bytes. ReadAll returns the bytes read (fewer only at the end of the
    // file); WriteAll throws CFileException as Write does.
    static constexpr std::size_t kIoChunk = std::size_t{1} << 30;
    std::size_t ReadAll(void* buffer, std::size_t count);
    void WriteAll(const void* buffer, std::size_t count);
    ULONGLONG Seek(LONGLONG offset, UINT from);
    void SeekToBegin() { Seek(0, begin); }
    ULONGLONG SeekToEnd() { return Seek(0, end); }
    ULONGLONG GetLength() const;
    void SetLength(ULONGLONG newLength);
    ULONGLONG GetPosition() const;
    void Flush();
    void Close();
    // Closes without throwing.
    void Abort();
    bool IsOpen() const { return m_hFile != hFileNull; }
    const kel_text::CKelString& GetFilePath() const { return m_strFileName; }

    int m_hFile;

private:
    void Throw(int osError) const;
    kel_text::CKelString m_strFileName;
    std::string m_hostPath;
};

// An exclusive lock that cooperating writers take by opening the same lock file: held from
// Lock until Unlock, the object's end or the process's end (a killed holder never leaves it
// held). Lock creates the lock file (and its folder, when missing) and waits while another
// holder, in this or another process, has it. Unlock(TRUE) removes the lock file before it
// lets go; a waiter that then gets the removed file's lock takes the new file's instead. While
// held, the lock file itself (File()) may keep a few bytes of state for the holder's successor.
// A process forked while the lock is held shares it until it closes its copy of File().
class KELSCAN_API CLockFile {
public:
    CLockFile() = default;
    ~CLockFile() { Unlock(FALSE); }
    CLockFile(const CLockFile&) = delete;
    CLockFile& operator=(const CLockFile&) = delete;

    // TRUE once the lock is held; FALSE when the lock file cannot be made or locked.
    BOOL Lock(const wchar_t* path);
    void Unlock(BOOL removeFile);
    BOOL IsLocked() const { return m_file.IsOpen() ? TRUE : FALSE; }
    CFile& File() { return m_file; }

private:
    CFile m_file;
    kel_text::CKelString m_path;
};

// Windows file functions over device paths. Each returns TRUE on success.
// DeleteFileW removes a file (not a folder). MoveFileW renames a file and, as on Windows,
// fails when the destination exists; it syncs the destination folder afterwards.
KELSCAN_API BOOL DeleteFileW(const wchar_t* path);
KELSCAN_API BOOL MoveFileW(const wchar_t* from, const wchar_t* to);
// Creates one folder (its parent must exist). TRUE also when it already exists as a folder.
KELSCAN_API BOOL CreateDirectoryW(const wchar_t* path, void* securityAttributes);
// TRUE when a file or folder of that name exists.
KELSCAN_API BOOL FileExists(const wchar_t* path);
// TRUE when the path names an existing folder.
KELSCAN_API BOOL IsFolder(const wchar_t* path);
// The names (without folder) of the entries of a folder that match a wildcard pattern
// ("*", "*.csv", "scan?.DB"; case-sensitive), sorted by name; "." and ".." are never listed.
// Returns the count, or -1 when the folder cannot be read.
KELSCAN_API int GetFileEntriesInFolder(const wchar_t* folder, const wchar_t* pattern,
                                       std::vector<kel_text::CKelString>& names);
