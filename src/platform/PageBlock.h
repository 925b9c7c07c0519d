#pragma once
// Zeroed memory straight from the operating system's page allocator, for the large blocks of
// photographs. A fresh heap block of tens of MiB is mapped page by page as it is first written,
// and on a virtual machine each 4 KiB fault costs microseconds: touching a 36 MiB bitmap once
// took 100 ms here, more than decoding the JPEG into it. These blocks are aligned to 2 MiB and
// marked for transparent huge pages, so the same bitmap takes a few hundred faults instead of
// nine thousand (2 ms). Header-only because the run-time loaded JPEG module makes bitmaps that
// the library releases; both sides must use the same two functions.
//
// Blocks from here are invisible to the heap: a leak checker does not see them, and they must
// be released with FreePages, never free().
#include <cstddef>
#include <cstdlib>

#if !defined(_WIN32)
#include <sys/mman.h>
#endif

namespace kel_pages {

// Blocks smaller than this come from the heap (calloc) instead.
constexpr std::size_t kMinPageBlock = std::size_t(2) << 20;
// Alignment that lets the system back a block with huge pages.
constexpr std::size_t kHugeAlign = std::size_t(2) << 20;

// A zeroed block of at least bytes bytes, or null. mapped receives the length to pass to
// FreePages: 0 when the block came from calloc (release with free()).
inline void* AllocZeroed(std::size_t bytes, std::size_t& mapped) {
    mapped = 0;
#if !defined(_WIN32) && defined(MAP_ANONYMOUS)
    if (bytes >= kMinPageBlock) {
        const std::size_t length = (bytes + kHugeAlign - 1) & ~(kHugeAlign - 1);
        void* raw = ::mmap(nullptr, length + kHugeAlign, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (raw == MAP_FAILED) return nullptr;
        char* const base = static_cast<char*>(raw);
        const std::size_t lead =
            (kHugeAlign - reinterpret_cast<std::size_t>(base) % kHugeAlign) % kHugeAlign;
        // Give back the unaligned head and the tail beyond the aligned block.
        if (lead > 0) ::munmap(base, lead);
        if (kHugeAlign - lead > 0) ::munmap(base + lead + length, kHugeAlign - lead);
        char* const block = base + lead;
#if defined(MADV_HUGEPAGE)
        ::madvise(block, length, MADV_HUGEPAGE);  // advice only: failure changes nothing
#endif
        mapped = length;
        return block;
    }
#endif
    return std::calloc(1, bytes);
}

// Releases a block of AllocZeroed; mapped is the length it reported.
inline void FreePages(void* block, std::size_t mapped) {
    if (block == nullptr) return;
#if !defined(_WIN32) && defined(MAP_ANONYMOUS)
    if (mapped > 0) {
        ::munmap(block, mapped);
        return;
    }
#endif
    std::free(block);
}

}  // namespace kel_pages
