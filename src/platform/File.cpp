#include "platform/File.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#if defined(_WIN32)
#error "the Windows file layer is not part of this build"
#endif
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

// Positions and lengths are 64-bit on every system, 32-bit ones included (the build defines
// _FILE_OFFSET_BITS=64 there).
static_assert(sizeof(off_t) == 8, "file offsets must be 64 bits");

namespace kel_platform {
namespace {

bool g_rootSet = false;
std::string g_root;
FileFaultHook g_hook = nullptr;
void* g_hookContext = nullptr;

std::string Parent(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

void SyncFolder(const std::string& folder) {
    const int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

}  // namespace

void SetDeviceRoot(const char* hostDirectory) {
    g_rootSet = hostDirectory != nullptr;
    g_root = hostDirectory != nullptr ? hostDirectory : "";
}

std::string GetDeviceRoot() {
    if (g_rootSet) return g_root;
    const char* env = std::getenv("KELSCAN_ROOT");
    return env != nullptr ? std::string(env) : std::string();
}

std::string MapDevicePath(const wchar_t* devicePath) {
    if (devicePath == nullptr) return std::string();
    std::string path = kel_text::WideToUtf8(devicePath);
    if (!path.empty() && path[0] == '\\') {
        std::replace(path.begin(), path.end(), '\\', '/');
        std::string root = GetDeviceRoot();
        if (root.empty()) root = ".";
        while (root.size() > 1 && root.back() == '/') root.pop_back();
        return root == "/" ? path : root + path;
    }
    std::replace(path.begin(), path.end(), '\\', '/');
    return path;
}

void SetFileFaultHook(FileFaultHook hook, void* context) {
    g_hook = hook;
    g_hookContext = context;
}

bool InjectFault(FileOp op, const std::string& hostPath) {
    return g_hook != nullptr && g_hook(g_hookContext, op, hostPath.c_str()) != 0;
}

std::string CreatePrivateFolder(const char* prefix) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = (tmp != nullptr && *tmp != '\0') ? tmp : "/tmp";
    while (pattern.size() > 1 && pattern.back() == '/') pattern.pop_back();
    pattern += '/';
    pattern += prefix != nullptr ? prefix : "";
    pattern += "XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    return ::mkdtemp(name.data()) != nullptr ? std::string(name.data()) : std::string();
}

}  // namespace kel_platform

using kel_platform::FileOp;
using kel_platform::InjectFault;
using kel_platform::MapDevicePath;

CFileException::CFileException(int cause, LONG osError, const wchar_t* fileName)
    : m_cause(cause), m_lOsError(osError), m_strFileName(fileName) {}

int CFileException::OsErrorToCause(int osError) {
    switch (osError) {
        case 0:
            return none;
        case ENOENT:
            return fileNotFound;
        case ENOTDIR:
        case ENAMETOOLONG:
        case ELOOP:
            return badPath;
        case EMFILE:
        case ENFILE:
            return tooManyOpenFiles;
        case EACCES:
        case EPERM:
        case EROFS:
        case EISDIR:
        case EEXIST:
            return accessDenied;
        case EBADF:
            return invalidFile;
        case ESPIPE:
        case EINVAL:
            return badSeek;
        case EIO:
            return hardIO;
        case ENOSPC:
        case EFBIG:
            return diskFull;
        default:
            return genericException;
    }
}

CFile::CFile() : m_hFile(hFileNull) {}

CFile::CFile(const wchar_t* fileName, UINT openFlags) : m_hFile(hFileNull) {
    CFileException error;
    if (!Open(fileName, openFlags, &error)) throw error;
}

CFile::~CFile() { Abort(); }

BOOL CFile::Open(const wchar_t* fileName, UINT openFlags, CFileException* error) {
    Abort();
    m_strFileName = fileName;
    m_hostPath = MapDevicePath(fileName);
    int flags = O_CLOEXEC;
    switch (openFlags & 3u) {
        case modeWrite:
            flags |= O_WRONLY;
            break;
        case modeReadWrite:
            flags |= O_RDWR;
            break;
        default:
            flags |= O_RDONLY;
            break;
    }
    if ((openFlags & modeCreate) != 0) {
        flags |= O_CREAT;
        if ((openFlags & modeNoTruncate) == 0) flags |= O_TRUNC;
    }
    int err = 0;
    if (fileName == nullptr || m_hostPath.empty()) {
        err = ENOENT;
    } else if (InjectFault(FileOp::Open, m_hostPath)) {
        err = EIO;
    } else {
        const int fd = ::open(m_hostPath.c_str(), flags, 0644);
        if (fd < 0) {
            err = errno;
        } else {
            struct stat st;
            if (::fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
                ::close(fd);
                err = EISDIR;
            } else {
                m_hFile = fd;
            }
        }
    }
    if (err != 0) {
        if (error != nullptr) {
            error->m_cause = CFileException::OsErrorToCause(err);
            error->m_lOsError = err;
            error->m_strFileName = fileName;
        }
        return FALSE;
    }
    return TRUE;
}

void CFile::Throw(int osError) const {
    throw CFileException(CFileException::OsErrorToCause(osError), osError,
                         m_strFileName.GetString());
}

UINT CFile::Read(void* buffer, UINT count) {
    if (m_hFile == hFileNull) Throw(EBADF);
    if (count == 0) return 0;
    if (InjectFault(FileOp::Read, m_hostPath)) Throw(EIO);
    UINT done = 0;
    char* p = static_cast<char*>(buffer);
    while (done < count) {
        const ssize_t n = ::read(m_hFile, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            Throw(errno);
        }
        if (n == 0) break;
        done += static_cast<UINT>(n);
    }
    return done;
}

void CFile::Write(const void* buffer, UINT count) {
    if (m_hFile == hFileNull) Throw(EBADF);
    if (count == 0) return;
    if (InjectFault(FileOp::Write, m_hostPath)) Throw(EIO);
    UINT done = 0;
    const char* p = static_cast<const char*>(buffer);
    while (done < count) {
        const ssize_t n = ::write(m_hFile, p + done, count - done);
        if (n < 0) {
            if (errno == EINTR) continue;
            Throw(errno);
        }
        done += static_cast<UINT>(n);
    }
}

std::size_t CFile::ReadAll(void* buffer, std::size_t count) {
    std::size_t done = 0;
    char* p = static_cast<char*>(buffer);
    while (done < count) {
        const std::size_t chunk = count - done < kIoChunk ? count - done : kIoChunk;
        const UINT n = Read(p + done, static_cast<UINT>(chunk));
        done += n;
        if (n < chunk) break;
    }
    return done;
}

void CFile::WriteAll(const void* buffer, std::size_t count) {
    const char* p = static_cast<const char*>(buffer);
    for (std::size_t done = 0; done < count;) {
        const std::size_t chunk = count - done < kIoChunk ? count - done : kIoChunk;
        Write(p + done, static_cast<UINT>(chunk));
        done += chunk;
    }
}

ULONGLONG CFile::Seek(LONGLONG offset, UINT from) {
    if (m_hFile == hFileNull) Throw(EBADF);
    const int whence = from == current ? SEEK_CUR : (from == end ? SEEK_END : SEEK_SET);
    const off_t pos = ::lseek(m_hFile, static_cast<off_t>(offset), whence);
    if (pos < 0) Throw(errno);
    return static_cast<ULONGLONG>(pos);
}

ULONGLONG CFile::GetLength() const {
    if (m_hFile == hFileNull) Throw(EBADF);
    struct stat st;
    if (::fstat(m_hFile, &st) != 0) Throw(errno);
    return static_cast<ULONGLONG>(st.st_size);
}

void CFile::SetLength(ULONGLONG newLength) {
    if (m_hFile == hFileNull) Throw(EBADF);
    if (InjectFault(FileOp::SetLength, m_hostPath)) Throw(EIO);
    if (::ftruncate(m_hFile, static_cast<off_t>(newLength)) != 0) Throw(errno);
}

ULONGLONG CFile::GetPosition() const {
    if (m_hFile == hFileNull) Throw(EBADF);
    const off_t pos = ::lseek(m_hFile, 0, SEEK_CUR);
    if (pos < 0) Throw(errno);
    return static_cast<ULONGLONG>(pos);
}

void CFile::Flush() {
    if (m_hFile == hFileNull) return;
    if (InjectFault(FileOp::Flush, m_hostPath)) Throw(EIO);
    if (::fsync(m_hFile) != 0 && errno != EINVAL && errno != EROFS) Throw(errno);
}

void CFile::Close() {
    if (m_hFile == hFileNull) return;
    const int fd = m_hFile;
    m_hFile = hFileNull;
    if (::close(fd) != 0 && errno != EINTR) Throw(errno);
}

void CFile::Abort() {
    if (m_hFile != hFileNull) {
        ::close(m_hFile);
        m_hFile = hFileNull;
    }
}

BOOL CLockFile::Lock(const wchar_t* path) {
    Unlock(FALSE);
    m_path = path;
    const std::string host = MapDevicePath(path);
    if (host.empty()) return FALSE;
    // Another holder may remove the file between our open and our lock, and a writer may even
    // remove the folder; a few rounds settle every such race.
    for (int round = 0; round < 100; ++round) {
        ::mkdir(kel_platform::Parent(host).c_str(), 0755);
        if (!m_file.Open(path, CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite))
            continue;
        if (InjectFault(FileOp::Lock, host)) break;
        int rc;
        do {
            rc = ::flock(m_file.m_hFile, LOCK_EX);
        } while (rc != 0 && errno == EINTR);
        if (rc != 0) break;
        struct stat held, named;
        if (::fstat(m_file.m_hFile, &held) == 0 && ::stat(host.c_str(), &named) == 0 &&
            held.st_dev == named.st_dev && held.st_ino == named.st_ino)
            return TRUE;
        m_file.Abort();
    }
    m_file.Abort();
    return FALSE;
}

void CLockFile::Unlock(BOOL removeFile) {
    if (!m_file.IsOpen()) return;
    if (removeFile) {
        const std::string host = MapDevicePath(m_path);
        if (!InjectFault(FileOp::Delete, host)) ::unlink(host.c_str());
    }
    m_file.Abort();  // closing the descriptor ends the lock
}

BOOL DeleteFileW(const wchar_t* path) {
    const std::string host = MapDevicePath(path);
    if (host.empty() || InjectFault(FileOp::Delete, host)) return FALSE;
    struct stat st;
    if (::stat(host.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) return FALSE;
    return ::unlink(host.c_str()) == 0 ? TRUE : FALSE;
}

BOOL MoveFileW(const wchar_t* from, const wchar_t* to) {
    const std::string src = MapDevicePath(from);
    const std::string dst = MapDevicePath(to);
    if (src.empty() || dst.empty() || InjectFault(FileOp::Move, src)) return FALSE;
    struct stat st;
    if (::lstat(dst.c_str(), &st) == 0) return FALSE;  // Windows never replaces here
    if (::lstat(src.c_str(), &st) != 0) return FALSE;
    if (::rename(src.c_str(), dst.c_str()) != 0) return FALSE;
    kel_platform::SyncFolder(kel_platform::Parent(dst));
    if (kel_platform::Parent(src) != kel_platform::Parent(dst))
        kel_platform::SyncFolder(kel_platform::Parent(src));
    return TRUE;
}

BOOL CreateDirectoryW(const wchar_t* path, void* /*securityAttributes*/) {
    const std::string host = MapDevicePath(path);
    if (host.empty()) return FALSE;
    if (::mkdir(host.c_str(), 0755) == 0) return TRUE;
    struct stat st;
    return (errno == EEXIST && ::stat(host.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) ? TRUE
                                                                                      : FALSE;
}

BOOL FileExists(const wchar_t* path) {
    const std::string host = MapDevicePath(path);
    struct stat st;
    return (!host.empty() && ::stat(host.c_str(), &st) == 0) ? TRUE : FALSE;
}

BOOL IsFolder(const wchar_t* path) {
    const std::string host = MapDevicePath(path);
    struct stat st;
    return (!host.empty() && ::stat(host.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) ? TRUE : FALSE;
}

int GetFileEntriesInFolder(const wchar_t* folder, const wchar_t* pattern,
                           std::vector<kel_text::CKelString>& names) {
    names.clear();
    const std::string host = MapDevicePath(folder);
    const std::string pat = kel_text::WideToUtf8(pattern != nullptr ? pattern : L"*");
    DIR* dir = ::opendir(host.empty() ? "." : host.c_str());
    if (dir == nullptr) return -1;
    std::vector<std::string> found;
    while (const dirent* e = ::readdir(dir)) {
        const std::string name = e->d_name;
        if (name == "." || name == "..") continue;
        if (::fnmatch(pat.c_str(), name.c_str(), FNM_PERIOD) == 0) found.push_back(name);
    }
    ::closedir(dir);
    std::sort(found.begin(), found.end());
    for (const std::string& n : found) names.push_back(kel_text::Utf8ToWide(n.c_str()));
    return static_cast<int>(names.size());
}
