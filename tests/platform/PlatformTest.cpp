#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "common/KelTest.h"
#include "geometry/KelArray.h"
#include "platform/Alloc.h"
#include "platform/Bitmap.h"
#include "platform/Bytes.h"
#include "platform/DynLoad.h"
#include "platform/File.h"
#include "platform/KelMath.h"
#include "platform/KelString.h"
#include "platform/Message.h"
#include "platform/Time.h"
#include "platform/Trace.h"

using kel_text::CKelString;
using kel_text::CKelStringT;

namespace {

class Platform : public kel_test::KelFixture {};

TEST(KelString, FormatKeepsWindowsWideMeaning) {
    CKelString s;
    s.Format(L"%s|%S|%d|%.6lf", L"wide", "narrow", -42, 1.0 / 3.0);
    EXPECT_STREQ(s, L"wide|narrow|-42|0.333333");
    s.Format(L"%-6s|%5S|%c%C|%%", L"ab", "cd", L'x', 'y');
    EXPECT_STREQ(s, L"ab    |   cd|xy|%");
    s.Format(L"%ls/%hs/%I64d", L"l", "h", static_cast<long long>(1) << 40);
    EXPECT_STREQ(s, L"l/h/1099511627776");
    CKelStringT<char> n;
    n.Format("%s-%S", "narrow", L"wide");
    EXPECT_STREQ(n, "narrow-wide");
    // Long output grows the buffer.
    CKelString big;
    big.Format(L"%5000d", 7);
    EXPECT_EQ(big.GetLength(), 5000);
    EXPECT_EQ(big.GetAt(4999), L'7');
}

TEST(KelString, MembersBehaveLikeCString) {
    static_assert(sizeof(CKelString) == sizeof(void*), "one pointer wide");
    CKelString s(L"  Hello, World\t ");
    s.TrimLeft().TrimRight();
    EXPECT_STREQ(s, L"Hello, World");
    EXPECT_EQ(s.Find(L'o'), 4);
    EXPECT_EQ(s.Find(L'o', 5), 8);
    EXPECT_EQ(s.Find(L"World"), 7);
    EXPECT_EQ(s.Find(L"xyz"), -1);
    EXPECT_EQ(s.FindOneOf(L",W"), 5);
    EXPECT_EQ(s.ReverseFind(L'o'), 8);
    EXPECT_STREQ(s.Left(5), L"Hello");
    EXPECT_STREQ(s.Right(5), L"World");
    EXPECT_STREQ(s.Left(100), L"Hello, World");
    EXPECT_STREQ(s.Mid(7, 3), L"Wor");
    EXPECT_EQ(s.GetAt(100), 0);
    EXPECT_EQ(s.CompareNoCase(L"HELLO, WORLD"), 0);
    EXPECT_LT(s.Compare(L"Hello, World!"), 0);
    EXPECT_GT(s.Compare(L"Hello"), 0);
    CKelString lower = s;
    lower.MakeLower();
    EXPECT_STREQ(lower, L"hello, world");
    EXPECT_STREQ(s, L"Hello, World");  // value semantics
    CKelString e;
    EXPECT_TRUE(e.IsEmpty());
    EXPECT_STREQ(e, L"");
    s.Empty();
    EXPECT_TRUE(s.IsEmpty());
    wchar_t* buf = e.GetBuffer(10);
    wcscpy(buf, L"abc");
    e.ReleaseBuffer();
    EXPECT_EQ(e.GetLength(), 3);
    e += e;  // self-append
    EXPECT_STREQ(e, L"abcabc");
    CKelString t(L"xxabcxx");
    t.TrimLeft(L'x');
    t.TrimRight(L'x');
    EXPECT_STREQ(t, L"abc");
}

TEST(KelString, SingleByteConversionMapsLatin1AndReplacesTheRest) {
    const wchar_t text[] = {L'A', 0xE9, 0xFF, 0x100, 0x20AC, L'z', 0};
    EXPECT_EQ(kel_text::WideToSingleByte(text), std::string("A\xE9\xFF??z"));
    const CKelString back = kel_text::SingleByteToWide("A\xE9\xFFz");
    ASSERT_EQ(back.GetLength(), 4);
    EXPECT_EQ(static_cast<unsigned>(back.GetAt(1)), 0xE9u);
    EXPECT_EQ(static_cast<unsigned>(back.GetAt(2)), 0xFFu);
    EXPECT_EQ(kel_text::WideToSingleByte(L"ab\0cd", 5), "ab");  // stops at NUL
    EXPECT_EQ(kel_text::WideToUtf8(kel_text::Utf8ToWide("h\xC3\xA9llo \xE2\x82\xAC")),
              "h\xC3\xA9llo \xE2\x82\xAC");
}

TEST_F(Platform, TraceAndMessageSinksReceiveExactLines) {
    KEL_TRACE_ALWAYS(L"CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1");
    LOGMESSAGE(2, L"************scaleDenom=%d", 4);
    KEL_TRACE_ALWAYS(L"%s %S", L"a", "b");
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{"CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1",
                                        "************scaleDenom=4", "a b"}));
    MBPARAMS params;
    MessagePopup(nullptr, L"", L"CCalcXYZHV::XYZToHV", 64, params);
    EXPECT_EQ(Messages(), std::vector<std::string>{"CCalcXYZHV::XYZToHV||64"});
}

TEST(KelMath, ModDeg360ReducesIntoHalfOpenRange) {
    // -1e-20: 360 - tiny rounds to 360, which is folded to 0.
    const double cases[][2] = {{360, 0}, {-90, 270}, {-360, 0}, {725.5, 5.5}, {-1e-20, 0}, {0, 0}};
    for (const auto& c : cases) EXPECT_EQ(ModDeg360(c[0], true), c[1]) << c[0];
    EXPECT_DOUBLE_EQ(atan3(1.0, 1.0), kel_math::kPi / 4);
    EXPECT_DOUBLE_EQ(atan3(1.0, -1.0), -kel_math::kPi / 4);  // no quadrant
    EXPECT_DOUBLE_EQ(atan3(2.0, 0.0), kel_math::kPi / 2);
    EXPECT_DOUBLE_EQ(atan3(-2.0, 0.0), -kel_math::kPi / 2);
    EXPECT_EQ(atan3(0.0, 0.0), 0.0);
}

TEST(KelMath, SexagesimalPackingRoundTripsAndCarries) {
    // 12 deg 30 min 36 s = 12.51 deg.
    EXPECT_NEAR(Deg2DDDMMSS(12.51, 9, false), 12.3036, 1e-12);
    EXPECT_NEAR(DDDMMSS2Deg(12.3036), 12.51, 1e-12);
    EXPECT_NEAR(Deg2DDDMMSS(-12.51, 9, false), -12.3036, 1e-12);
    EXPECT_NEAR(DDDMMSS2Deg(-12.3036), -12.51, 1e-12);
    // 10 deg 59 min 59.999999 s rounds to 60 s at 1e-5 s: carries into 11 deg 00 min 00 s.
    const double almost = 10.0 + 59.0 / 60.0 + 59.999999 / 3600.0;
    EXPECT_NEAR(Deg2DDDMMSS(almost, 9, false), 11.0, 1e-12);
    // 30 min 59.999999 s carries into the minutes only.
    EXPECT_NEAR(Deg2DDDMMSS(5.0 + 30.0 / 60.0 + 59.999999 / 3600.0, 9, false), 5.31, 1e-12);
    // Truncation does not carry.
    EXPECT_NEAR(Deg2DDDMMSS(almost, 9, true), 10.595999999, 1e-10);
    // Round trips over a sweep of angles, to 1e-5 s.
    for (int i = 0; i < 36000; i += 7) {
        const double deg = i * 0.0100003;
        EXPECT_NEAR(DDDMMSS2Deg(Deg2DDDMMSS(deg, 9, false)), deg, 1e-5 / 3600.0 + 1e-12) << deg;
    }
    EXPECT_NEAR(DDDMMSS2Deg(10.3), 10.5, 1e-12);  // 10.3 is 10.2999999... in binary
}

TEST_F(Platform, DevicePathsResolveUnderTheRoot) {
    EXPECT_EQ(kel_platform::MapDevicePath(L"\\temp\\SDB.log"), Root() + "/temp/SDB.log");
    EXPECT_EQ(kel_platform::MapDevicePath(L"folder\\name.imc"), "folder/name.imc");
    EXPECT_EQ(kel_platform::MapDevicePath(L"/abs/x.csv"), "/abs/x.csv");
    kel_platform::SetDeviceRoot("/r/");
    EXPECT_EQ(kel_platform::MapDevicePath(L"\\a"), "/r/a");
    kel_platform::SetDeviceRoot(nullptr);
    setenv("KELSCAN_ROOT", "/env-root", 1);
    EXPECT_EQ(kel_platform::MapDevicePath(L"\\a\\b"), "/env-root/a/b");
    unsetenv("KELSCAN_ROOT");
    EXPECT_EQ(kel_platform::MapDevicePath(L"\\a"), "./a");
    kel_platform::SetDeviceRoot(Root().c_str());
}

TEST_F(Platform, CFileModesLengthsAndShortReads) {
    ASSERT_TRUE(CreateDirectoryW(L"\\temp", nullptr));
    {
        CFile f;
        ASSERT_TRUE(f.Open(L"\\temp\\a.bin", CFile::modeCreate | CFile::modeWrite));
        f.Write("hello world", 11);
        EXPECT_EQ(f.GetLength(), 11u);
        f.Flush();
        f.Close();
    }
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("temp/a.bin")), "hello world");
    {
        // Create without truncate keeps the contents; read-write overwrites in place.
        CFile f(L"\\temp\\a.bin", CFile::modeCreate | CFile::modeNoTruncate | CFile::modeReadWrite);
        EXPECT_EQ(f.GetLength(), 11u);
        EXPECT_EQ(f.Seek(6, CFile::begin), 6u);
        f.Write("WORLD", 5);
        EXPECT_EQ(f.GetPosition(), 11u);
        f.SeekToBegin();
        char buf[32] = {};
        EXPECT_EQ(f.Read(buf, 32), 11u);  // short read at the end
        EXPECT_EQ(std::string(buf, 11), "hello WORLD");
        EXPECT_EQ(f.Read(buf, 4), 0u);
        f.SetLength(5);
        EXPECT_EQ(f.GetLength(), 5u);
        f.SetLength(8);
        EXPECT_EQ(f.SeekToEnd(), 8u);
    }
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("temp/a.bin")), std::string("hello\0\0\0", 8));
    {
        // Create alone truncates.
        CFile f(L"\\temp\\a.bin", CFile::modeCreate | CFile::modeWrite);
        EXPECT_EQ(f.GetLength(), 0u);
    }
    // A failed open reports by result and fills the exception; the constructor throws.
    CFile g;
    CFileException err;
    EXPECT_FALSE(g.Open(L"\\missing\\x.bin", CFile::modeRead, &err));
    EXPECT_EQ(err.m_cause, CFileException::fileNotFound);
    EXPECT_FALSE(g.IsOpen());
    EXPECT_THROW(CFile(L"\\missing\\x.bin", CFile::modeRead), CFileException);
    EXPECT_FALSE(g.Open(L"\\temp", CFile::modeRead));  // a folder is not a file
    // Writing to a file opened for reading throws.
    CFile r(L"\\temp\\a.bin", CFile::modeRead);
    EXPECT_THROW(r.Write("x", 1), CFileException);
}

TEST_F(Platform, FileFunctionsAndFaultInjection) {
    kel_test::WriteFileBytes(HostPath("a.txt"), "A");
    kel_test::WriteFileBytes(HostPath("b.txt"), "B");
    kel_test::WriteFileBytes(HostPath("c.csv"), "C");
    EXPECT_TRUE(FileExists(L"\\a.txt"));
    EXPECT_FALSE(IsFolder(L"\\a.txt"));
    EXPECT_TRUE(IsFolder(L"\\"));
    std::vector<CKelString> names;
    EXPECT_EQ(GetFileEntriesInFolder(L"\\", L"*.txt", names), 2);
    EXPECT_STREQ(names[0], L"a.txt");
    EXPECT_STREQ(names[1], L"b.txt");
    EXPECT_EQ(GetFileEntriesInFolder(L"\\nope", L"*", names), -1);
    // MoveFileW never replaces, as on Windows.
    EXPECT_FALSE(MoveFileW(L"\\a.txt", L"\\b.txt"));
    EXPECT_TRUE(MoveFileW(L"\\a.txt", L"\\d.txt"));
    EXPECT_FALSE(FileExists(L"\\a.txt"));
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("d.txt")), "A");
    EXPECT_TRUE(DeleteFileW(L"\\d.txt"));
    EXPECT_FALSE(DeleteFileW(L"\\d.txt"));
    // Injected faults: the write and the rename fail and leave everything as it was.
    struct Hook {
        static int Fail(void* ctx, kel_platform::FileOp op, const char*) {
            return op == *static_cast<kel_platform::FileOp*>(ctx) ? 1 : 0;
        }
    };
    kel_platform::FileOp failOn = kel_platform::FileOp::Write;
    kel_platform::SetFileFaultHook(&Hook::Fail, &failOn);
    {
        CFile f(L"\\b.txt", CFile::modeCreate | CFile::modeNoTruncate | CFile::modeWrite);
        EXPECT_THROW(f.Write("zz", 2), CFileException);
    }
    failOn = kel_platform::FileOp::Move;
    EXPECT_FALSE(MoveFileW(L"\\b.txt", L"\\e.txt"));
    kel_platform::SetFileFaultHook(nullptr, nullptr);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("b.txt")), "B");
    EXPECT_FALSE(FileExists(L"\\e.txt"));
}

TEST_F(Platform, WholeBlocksOfFourGibibytesAndMoreGoInChunks) {
    // Round trip of a block that spans several chunks is exact; a short file reads short.
    std::string block(CFile::kIoChunk / 256 + 3, 'k');
    block[5] = 'x';
    {
        CFile f(L"\\blk.bin", CFile::modeCreate | CFile::modeWrite);
        f.WriteAll(block.data(), block.size());
    }
    CFile r(L"\\blk.bin", CFile::modeRead);
    std::string back(block.size() + 10, '\0');
    EXPECT_EQ(r.ReadAll(&back[0], back.size()), block.size());
    EXPECT_EQ(back.substr(0, block.size()), block);
    if (sizeof(std::size_t) < 8) GTEST_SKIP() << "a 32-bit host has no blocks of 4 GiB";
    if (std::getenv("LD_PRELOAD") != nullptr &&
        std::string(std::getenv("LD_PRELOAD")).find("vgpreload") != std::string::npos)
        GTEST_SKIP() << "valgrind checks every byte of the 4 GiB block";
    // 4 GiB + 2 bytes of untouched (never committed) memory, written to the null device: the
    // block goes out whole in five writes, where a 32-bit count wrote 2 bytes.
    const std::size_t size = (std::size_t{4} << 30) + 2;
    void* big =
        ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (big == MAP_FAILED) GTEST_SKIP() << "cannot map 4 GiB here";
    int writes = 0;
    kel_platform::SetFileFaultHook(
        [](void* ctx, kel_platform::FileOp op, const char*) {
            *static_cast<int*>(ctx) += op == kel_platform::FileOp::Write ? 1 : 0;
            return 0;
        },
        &writes);
    CFile null(L"/dev/null", CFile::modeWrite);
    EXPECT_NO_THROW(null.WriteAll(big, size));
    kel_platform::SetFileFaultHook(nullptr, nullptr);
    ::munmap(big, size);
    EXPECT_EQ(writes, 5);
}

TEST_F(Platform, LockFileExcludesOtherProcessesAndPrivateFoldersArePrivate) {
    // The child waits for the parent's lock: its mark always follows the parent's.
    CLockFile lock;
    ASSERT_TRUE(lock.Lock(L"\\locks\\a.lock"));  // the folder is made
    const pid_t pid = fork();
    if (pid == 0) {
        lock.File().Abort();  // the parent's lock, shared through fork: this copy is not ours
        CLockFile other;
        if (!other.Lock(L"\\locks\\a.lock")) _exit(1);
        CFile log(L"\\order.txt", CFile::modeCreate | CFile::modeNoTruncate | CFile::modeWrite);
        log.SeekToEnd();
        log.Write("child\n", 6);
        other.Unlock(TRUE);
        _exit(0);
    }
    usleep(100000);
    {
        CFile log(L"\\order.txt", CFile::modeCreate | CFile::modeNoTruncate | CFile::modeWrite);
        log.SeekToEnd();
        log.Write("parent\n", 7);
    }
    lock.Unlock(TRUE);  // removed while held: the child locks the file it makes anew
    int status = 0;
    waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("order.txt")), "parent\nchild\n");
    EXPECT_FALSE(FileExists(L"\\locks\\a.lock"));
    EXPECT_FALSE(lock.IsLocked());

    const std::string a = kel_platform::CreatePrivateFolder("kelscan-test-");
    const std::string b = kel_platform::CreatePrivateFolder("kelscan-test-");
    ASSERT_FALSE(a.empty());
    EXPECT_NE(a, b);
    struct stat st;
    ASSERT_EQ(::stat(a.c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    ::rmdir(a.c_str());
    ::rmdir(b.c_str());
}

TEST(Bytes, LittleEndianGoldenBytes) {
    std::uint8_t b[32] = {};
    kel_bytes::PutU16(b, 0, 0x1234);
    kel_bytes::PutI32(b, 2, -2);
    kel_bytes::PutF64(b, 6, 1.0);
    kel_bytes::PutU64(b, 14, 0x0102030405060708ULL);
    const std::uint8_t expected[22] = {
        0x34, 0x12,                                       // u16
        0xFE, 0xFF, 0xFF, 0xFF,                           // i32 -2
        0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF0, 0x3F,   // double 1.0
        0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01};  // u64
    for (int i = 0; i < 22; ++i) EXPECT_EQ(b[i], expected[i]) << i;
    EXPECT_EQ(kel_bytes::GetU16(b, 0), 0x1234);
    EXPECT_EQ(kel_bytes::GetI32(b, 2), -2);
    EXPECT_EQ(kel_bytes::GetF64(b, 6), 1.0);
    EXPECT_EQ(kel_bytes::GetU64(b, 14), 0x0102030405060708ULL);
}

TEST(Time, ClockAndConversionsFollowWindows) {
    // 2026-03-01 12:34:56.789 UTC.
    SYSTEMTIME st{2026, 3, 0, 1, 12, 34, 56, 789};
    FILETIME ft;
    ASSERT_TRUE(SystemTimeToFileTime(&st, &ft));
    // Known value: 1970-01-01 is 116444736000000000 ticks.
    SYSTEMTIME epoch{1970, 1, 0, 1, 0, 0, 0, 0};
    FILETIME eft;
    ASSERT_TRUE(SystemTimeToFileTime(&epoch, &eft));
    EXPECT_EQ(kel_time::ToTicks(eft), 116444736000000000ULL);
    struct Fixed {
        static std::uint64_t Now(void* ctx) { return *static_cast<std::uint64_t*>(ctx); }
    };
    std::uint64_t now = kel_time::ToTicks(ft);
    kel_time::SetClock(&Fixed::Now, &now);
    SYSTEMTIME got;
    GetSystemTime(&got);
    const std::vector<int> fields = {got.wYear, got.wMonth,  got.wDayOfWeek, got.wDay,
                                     got.wHour, got.wMinute, got.wSecond,    got.wMilliseconds};
    EXPECT_EQ(fields, (std::vector<int>{2026, 3, 0, 1, 12, 34, 56, 789}));  // a Sunday
    kel_time::SetLocalOffset(true, 9 * 60);
    GetLocalTime(&got);
    EXPECT_EQ(got.wHour, 21);
    kel_time::SetLocalOffset(true, -13 * 60);
    GetLocalTime(&got);
    EXPECT_EQ(got.wDay, 28);  // 2026 is not a leap year
    EXPECT_EQ(got.wMonth, 2);
    kel_time::SetLocalOffset(false, 0);
    kel_time::SetClock(nullptr, nullptr);
    SYSTEMTIME bad{2026, 2, 0, 29, 0, 0, 0, 0};
    EXPECT_FALSE(SystemTimeToFileTime(&bad, &ft));
}

TEST_F(Platform, RunTimeLoadingFindsModulesOnThePluginPath) {
    EXPECT_EQ(MapModuleName(L"JPEG_LIB.dll"), "libJPEG_LIB.so");
    EXPECT_EQ(MapModuleName(L"x.DLL"), "libx.so");
    setenv("KELSCAN_PLUGIN_PATH", "/nonexistent:" KELSCAN_TEST_MODULE_DIR, 1);
    HMODULE module = nullptr;
    void* fn = GetLibraryFunction(L"KEL_TESTMODULE.dll", "KelTestModuleAnswer", &module);
    ASSERT_NE(fn, nullptr);
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(reinterpret_cast<int (*)()>(fn)(), 42);
    EXPECT_EQ(GetLibraryFunction(L"KEL_TESTMODULE.dll", "Missing", &module), nullptr);
    EXPECT_NE(module, nullptr);  // a module passed in stays
    FreeLibraryFunction(module);
    HMODULE none = nullptr;
    EXPECT_EQ(GetLibraryFunction(L"NO_SUCH_LIB.dll", "f", &none), nullptr);
    EXPECT_EQ(none, nullptr);
    unsetenv("KELSCAN_PLUGIN_PATH");
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{"GetLibraryFunction entry point not found: Missing",
                                        "GetLibraryFunction module not found: NO_SUCH_LIB.dll"}));
}

struct Counted {
    KEL_DECLARE_ALLOCATOR
    int v = 0;
};

int g_allocs = 0;
void* CountingAlloc(std::size_t n) {
    ++g_allocs;
    return std::malloc(n);
}

TEST(Alloc, ClassOperatorsGoThroughTheReplaceableAllocator) {
    kel_platform::SetAllocator(&CountingAlloc, &std::free);
    Counted* one = new Counted;
    Counted* many = new Counted[3];
    delete one;
    delete[] many;
    kel_platform::SetAllocator(nullptr, nullptr);
    EXPECT_EQ(g_allocs, 2);
    kel_platform::SetAllocator([](std::size_t) -> void* { return nullptr; }, &std::free);
    EXPECT_THROW(new Counted, std::bad_alloc);
    kel_platform::SetAllocator(nullptr, nullptr);
}

TEST(KelArray, OperationsAndFatalOutOfRange) {
    kel_templ::CKelArray<int, int> a;
    a.SetSize(3, 7);
    EXPECT_EQ(a.GetUpperBound(), 2);
    EXPECT_EQ(a.Add(9), 3);
    a.InsertAt(0, 1);
    a.InsertAt(5, 2);  // at the end
    a.RemoveAt(1, 2);
    ASSERT_EQ(a.GetSize(), 4);
    EXPECT_EQ((std::vector<int>{a[0], a[1], a[2], a[3]}), (std::vector<int>{1, 7, 9, 2}));
    a.InsertAt(1, a[3]);  // an element of the array itself
    EXPECT_EQ(a[1], 2);
    kel_templ::CKelArray<int, int> b;
    b.Copy(a);
    EXPECT_EQ(b.Append(a), 5);
    EXPECT_EQ(b.GetSize(), 10);
    b.SetSize(2);
    EXPECT_EQ(b.GetSize(), 2);
    b.RemoveAll();
    EXPECT_EQ(b.GetData(), nullptr);
    EXPECT_DEATH(a.GetAt(5), "CKelArray::GetAt index 5 out of range");
    EXPECT_DEATH(a[-1], "out of range");
    EXPECT_DEATH(a.RemoveAt(4, 2), "RemoveAt");
}

// Small bitmaps come from the heap (a leak checker sees them), photographs from huge-page
// aligned mappings; both are zeroed, writable to the last byte and released by DeleteObject.
TEST(Bitmap, SmallBlocksFromTheHeapPhotographsFromAlignedPages) {
    HBITMAP small = kel_bitmap::NewDib(100, 50, 8, 256);
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->mappedBytes, 0u);
    EXPECT_EQ(small->bytesPerLine, 100);
    EXPECT_EQ(small->bits, reinterpret_cast<BYTE*>(small->palette + 256));

    // 4000 x 3000 at 24 bits: 36 000 000 bytes of pixels after the header.
    HBITMAP photo = kel_bitmap::NewDib(4000, 3000, 24, 0);
    ASSERT_NE(photo, nullptr);
    EXPECT_EQ(kel_bitmap::DibBytes(4000, 3000, 24, 0), 40u + 36000000u);
    EXPECT_EQ(kel_bitmap::DibBytes(100, 50, 8, 256), 40u + 1024u + 5000u);
#if !defined(_WIN32)
    EXPECT_EQ(photo->mappedBytes, std::size_t(18) << 21);  // 36 MB rounded up to 2 MiB
    EXPECT_EQ(reinterpret_cast<std::size_t>(photo) % (std::size_t(2) << 20), 0u);
#endif
    EXPECT_EQ(photo->palette, nullptr);
    std::size_t nonzero = 0;
    for (std::size_t i = 0; i < 36000000u; i += 997) nonzero += photo->bits[i] != 0;
    EXPECT_EQ(nonzero, 0u);
    photo->bits[0] = 1;
    photo->bits[36000000u - 1] = 2;
    EXPECT_EQ(DeleteObject(photo), TRUE);
    EXPECT_EQ(DeleteObject(small), TRUE);
    EXPECT_EQ(DeleteObject(static_cast<HBITMAP>(nullptr)), FALSE);
}

// Arrays grow from heap blocks into huge-page aligned mappings and back, keeping their
// elements and their alignment, and a copy is independent of its source.
TEST(PageBlock, ArraysMoveBetweenHeapAndMappedBlocks) {
    struct alignas(32) Wide {
        int v[7];
    };
    kel_templ::CKelArray<Wide, Wide&> a;
    constexpr int kMapped = (2 << 20) / 32;  // elements of the first mapped block
    for (int i = 0; i < kMapped + 5; ++i) {
        Wide w{{i, -i, 0, 0, 0, 0, i * 3}};
        a.Add(w);
        if (i == kMapped - 2) {
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.GetData()) % 32, 0u);
        }
    }
#if !defined(_WIN32)
    EXPECT_TRUE(kel_pages::IsMapped(sizeof(Wide) * static_cast<std::size_t>(kMapped)));
    EXPECT_FALSE(kel_pages::IsMapped(sizeof(Wide) * static_cast<std::size_t>(kMapped - 1)));
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.GetData()) % (2u << 20), 0u);
#endif
    kel_templ::CKelArray<Wide, Wide&> b(a);
    a.SetSize(10);
    a.FreeExtra();  // back into a heap block
    ASSERT_EQ(b.GetSize(), kMapped + 5);
    for (int i = 0; i < b.GetSize(); i += 1001) {
        EXPECT_EQ(b[i].v[0], i);
        EXPECT_EQ(b[i].v[6], 3 * i);
    }
    EXPECT_EQ(a[9].v[1], -9);
    EXPECT_EQ(kel_pages::MappedLength(1), std::size_t(2) << 20);
    EXPECT_EQ(kel_pages::MappedLength(std::size_t(4) << 20), std::size_t(4) << 20);
}

// A mapped block is released with its own length (not with free()); its arrays fit as sized.
TEST(PageBlock, MappedBlockHoldsWhatFits) {
#if !defined(_WIN32)
    constexpr std::size_t kMiB = std::size_t(1) << 20;
    kel_pages::CBlock block(4 * kMiB);
    ASSERT_NE(block.As<double>(kMiB / 2), nullptr);
    EXPECT_EQ(block.As<double>(kMiB / 2 + 1), nullptr);
#endif
}

TEST(Portability, NoHostHeadersOutsideThePlatformLayer) {
    const char* forbidden[] = {"<windows.h>", "<afx",       "<tchar.h>", "<unistd.h>", "<dlfcn.h>",
                               "<sys/",       "<dirent.h>", "<fcntl.h>", "_MSC_VER",   "TCHAR"};
    namespace fs = std::filesystem;
    int files = 0;
    for (const auto& e : fs::recursive_directory_iterator(fs::path(KELSCAN_SOURCE_DIR) / "src")) {
        if (!e.is_regular_file()) continue;
        const std::string path = e.path().generic_string();
        if (path.find("/src/platform/") != std::string::npos) continue;
        std::ifstream in(e.path());
        std::string line;
        int n = 0;
        while (std::getline(in, line)) {
            ++n;
            for (const char* f : forbidden)
                EXPECT_EQ(line.find(f), std::string::npos) << path << ":" << n << ": " << line;
        }
        ++files;
    }
    EXPECT_GT(files, 0);
}

}  // namespace
