// Memory failures of CTin's growth paths: each allocation in turn fails once, and the operation
// must end in its failure result with one "CTin::Operation CMemoryException" line, never with
// an exception. The library's arrays take their memory from the global operator new (blocks
// below the page-mapping size), so this program replaces it with one that can be told to fail.
#include <cstdlib>
#include <functional>
#include <new>
#include <ostream>
#include <streambuf>
#include <string>
#include <vector>

#include "common/KelTest.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

// The operators below are kept out of line so that a tool which puts its own in place
// (valgrind) replaces both new and delete. GCC takes them for its built-in ones and warns
// that free does not match new.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

namespace {

long g_failIn = -1;  // allocations to let through before one fails; -1 never
bool g_failed = false;

void* Allocate(std::size_t n, std::size_t align) {
    if (g_failIn >= 0 && g_failIn-- == 0) {
        g_failed = true;
        throw std::bad_alloc();
    }
    if (n == 0) n = 1;
    void* p = align > alignof(std::max_align_t)
                  ? std::aligned_alloc(align, (n + align - 1) / align * align)
                  : std::malloc(n);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

}  // namespace

__attribute__((noinline)) void* operator new(std::size_t n) { return Allocate(n, 0); }
__attribute__((noinline)) void* operator new[](std::size_t n) { return Allocate(n, 0); }
__attribute__((noinline)) void* operator new(std::size_t n, std::align_val_t a) {
    return Allocate(n, static_cast<std::size_t>(a));
}
__attribute__((noinline)) void* operator new[](std::size_t n, std::align_val_t a) {
    return Allocate(n, static_cast<std::size_t>(a));
}
__attribute__((noinline)) void operator delete(void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete[](void* p) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
__attribute__((noinline)) void operator delete[](void* p, std::align_val_t) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}
__attribute__((noinline)) void operator delete[](void* p, std::size_t, std::align_val_t) noexcept {
    std::free(p);
}

namespace {

class TinMemoryTest : public kel_test::KelFixture {};

// A small triangulated surface with a break line.
CTin Built() {
    CTin tin;
    for (int i = 0; i < 40; ++i) tin.AddPoint((i * 37) % 23 * 1.5, (i * 11) % 17 * 2.25, i * 0.5);
    tin.AddBreakLine(0, 7);
    EXPECT_EQ(tin.CreateTin(0.0), 1);
    return tin;
}

// A stream that takes every byte and allocates nothing.
struct Discard : std::streambuf {
    int overflow(int c) override { return c; }
    std::streamsize xsputn(const char*, std::streamsize n) override { return n; }
};

TEST_F(TinMemoryTest, EveryGrowthPathTurnsBadAllocIntoItsFailureResult) {
    struct Case {
        const char* line;  // the one line of a failure; null: "CTin::<the step> CMemoryException"
        std::function<bool(CTin&)> run;  // true on success
    };
    Discard sink;
    std::ostream out(&sink);
    const SYSTEMTIME when{};
    const std::vector<Case> cases = {
        {"CTin::BeginAddPoint CMemoryException",
         [](CTin& t) {
             const int before = t.GetPointSize();
             t.BeginAddPoint(before + 5000);
             const bool grown = t.GetPointSize() == before + 5000;
             EXPECT_TRUE(grown || t.GetPointSize() == before);  // as it was on failure
             return grown;
         }},
        {"CTin::AddPoint CMemoryException", [](CTin& t) { return t.AddPoint(1e3, 1e3, 0) >= 0; }},
        {"CTin::AddPoint2 CMemoryException",
         [](CTin&) {
             CTin fresh;  // no room yet: the point is appended
             return fresh.AddPoint2(1e3, 1e3, 0) >= 0;
         }},
        {"CTin::AddTri CMemoryException", [](CTin& t) { return t.AddTri(0, 1, 2) >= 0; }},
        {"CTin::AddBreakLine CMemoryException", [](CTin& t) { return t.AddBreakLine(1, 2) == 1; }},
        {"CTin::Copy CMemoryException",
         [](CTin& t) {
             CTin copy;
             copy.Copy(t);
             return copy.GetTriSize() == t.GetTriSize() && copy.GetPointSize() > 0;
         }},
        {"CTin::UpdateTinRange CMemoryException", [](CTin& t) { return t.UpdateTinRange() == 1; }},
        {"CTin::UpdateDepth CMemoryException", [](CTin& t) { return t.UpdateDepth() == 1; }},
        {"CTin::UpdateTextureCoord CMemoryException",
         [](CTin& t) { return t.UpdateTextureCoord() == 1; }},
        {"CTin::DelTriWithAngle CMemoryException",
         [](CTin& t) { return t.DelTriWithAngle(30.0, 0) == 1; }},
        {nullptr, [](CTin& t) { return t.CreateTin(10.0) == 1; }},
        // The steps of CreateTin one by one, on a copy whose flip stack is still to be made.
        {nullptr,
         [](CTin& t) {
             CTin c(t);
             c.m_tri.RemoveAll();
             return c.MakeBoundaryFromPts() == 1 && c.MakeConvexHull() == 1 &&
                    c.MakeTinForConvexHull() == 1 && c.Triangulation() == 1;
         }},
        {"WriteTinPly CMemoryException", [&](CTin& t) { return WriteTinPly(t, out) == 1; }},
        {"WriteTinLandXml CMemoryException",
         [&](CTin& t) { return WriteTinLandXml(t, out, "s", when) == 1; }},
        {"WriteTinSvg CMemoryException",
         [&](CTin& t) { return WriteTinSvg(t, out, nullptr) == 1; }},
    };
    for (std::size_t k = 0; k < cases.size(); ++k) {
        const Case& c = cases[k];
        bool reachedSuccess = false;
        for (long failAt = 0; failAt < 400 && !reachedSuccess; ++failAt) {
            CTin tin = Built();
            ClearLines();
            g_failed = false;
            g_failIn = failAt;
            bool ok = false;
            try {
                ok = c.run(tin);
            } catch (...) {
                g_failIn = -1;
                ADD_FAILURE() << "case " << k << ": an exception crossed the surface at allocation "
                              << failAt;
                break;
            }
            g_failIn = -1;
            if (!g_failed) {
                EXPECT_TRUE(ok) << "case " << k;
                reachedSuccess = true;
                continue;
            }
            if (ok) continue;  // the failed allocation was one the operation can do without
            ASSERT_EQ(Lines().size(), 1u) << "case " << k << " at allocation " << failAt;
            const std::string& line = Lines()[0];
            if (c.line != nullptr) {
                EXPECT_EQ(line, c.line);
            } else {
                EXPECT_EQ(line.substr(0, 6), "CTin::") << line;
                EXPECT_EQ(line.substr(line.size() - 17), " CMemoryException") << line;
            }
        }
        EXPECT_TRUE(reachedSuccess) << "case " << k;
    }
}

}  // namespace
