#pragma once
// Zeroed memory straight from the operating system's page allocator, for large blocks: the
// bitmaps of photographs and the big arrays of surfaces. A fresh heap block of tens of MiB is
// mapped page by page as it is first written, and on a virtual machine each 4 KiB fault costs
// microseconds: touching a 36 MiB bitmap once took 100 ms here, more than decoding the JPEG
// into it. These blocks are aligned to 2 MiB and marked for transparent huge pages, so the same
// bitmap takes a few dozen faults instead of nine thousand (2 ms). Header-only because the
// run-time loaded JPEG module makes bitmaps that the library releases; both sides must use the
// same functions.
//
// Blocks from here are invisible to the heap: a leak checker does not see them (it still sees
// the object that owns one), and they must be released with FreePages / UnmapBlock, never
// free(). Where the system has no such mapping (Windows here), every block comes from the heap.
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <type_traits>

#if !defined(_WIN32)
#include <sys/mman.h>
#endif

namespace kel_pages {

#if !defined(_WIN32) && defined(MAP_ANONYMOUS)
constexpr bool kHavePages = true;
#else
constexpr bool kHavePages = false;
#endif

// Blocks smaller than this come from the heap instead.
constexpr std::size_t kMinPageBlock = std::size_t(2) << 20;
// Alignment that lets the system back a block with huge pages.
constexpr std::size_t kHugeAlign = std::size_t(2) << 20;

// True when a block of this many bytes is mapped rather than taken from the heap.
constexpr bool IsMapped(std::size_t bytes) { return kHavePages && bytes >= kMinPageBlock; }

// Length of the mapping that holds a block of `bytes` (a multiple of kHugeAlign).
constexpr std::size_t MappedLength(std::size_t bytes) {
    return (bytes + kHugeAlign - 1) & ~(kHugeAlign - 1);
}

// A zeroed mapping of MappedLength(bytes) aligned to kHugeAlign, or null.
inline void* MapBlock(std::size_t bytes) {
#if !defined(_WIN32) && defined(MAP_ANONYMOUS)
    const std::size_t length = MappedLength(bytes);
    if (length < bytes) return nullptr;  // wrapped round
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
    return block;
#else
    (void)bytes;
    return nullptr;
#endif
}

// Releases a block of MapBlock; bytes as given to it.
inline void UnmapBlock(void* block, std::size_t bytes) {
#if !defined(_WIN32) && defined(MAP_ANONYMOUS)
    if (block != nullptr) ::munmap(block, MappedLength(bytes));
#else
    (void)block;
    (void)bytes;
#endif
}

// A zeroed block of at least bytes bytes, or null. mapped receives the length to pass to
// FreePages: 0 when the block came from calloc (release with free()).
inline void* AllocZeroed(std::size_t bytes, std::size_t& mapped) {
    mapped = 0;
    if (IsMapped(bytes)) {
        void* block = MapBlock(bytes);
        if (block != nullptr) mapped = MappedLength(bytes);
        return block;
    }
    return std::calloc(1, bytes);
}

// Releases a block of AllocZeroed; mapped is the length it reported.
inline void FreePages(void* block, std::size_t mapped) {
    if (block == nullptr) return;
    if (mapped > 0)
        UnmapBlock(block, mapped);
    else
        std::free(block);
}

// An owned block of AllocZeroed that holds arrays of trivial types one after another: a pass
// that needs scratch memory first and a result of the same size after can use one block for
// both instead of two. Throws std::bad_alloc when the block cannot be had.
class CBlock {
public:
    CBlock() = default;
    explicit CBlock(std::size_t bytes) : m_bytes(bytes) {
        m_block = AllocZeroed(bytes, m_mapped);
        if (m_block == nullptr && bytes > 0) throw std::bad_alloc();
    }
    ~CBlock() { Release(); }
    CBlock(const CBlock&) = delete;
    CBlock& operator=(const CBlock&) = delete;
    CBlock(CBlock&& o) noexcept : m_block(o.m_block), m_mapped(o.m_mapped), m_bytes(o.m_bytes) {
        o.m_block = nullptr;
        o.m_mapped = o.m_bytes = 0;
    }
    CBlock& operator=(CBlock&& o) noexcept {
        if (this != &o) {
            Release();
            m_block = o.m_block;
            m_mapped = o.m_mapped;
            m_bytes = o.m_bytes;
            o.m_block = nullptr;
            o.m_mapped = o.m_bytes = 0;
        }
        return *this;
    }
    // The block as count objects of T, whose lifetime begins here (ending that of what the
    // block held before); write them before reading them. Null when they do not fit.
    template <class T>
    T* As(std::size_t count) {
        static_assert(std::is_trivial<T>::value, "the block holds trivial types only");
        if (m_block == nullptr || count > m_bytes / sizeof(T)) return nullptr;
        T* first = static_cast<T*>(m_block);
        for (std::size_t i = 0; i < count; ++i) new (first + i) T;  // no code for trivial T
        return first;
    }

private:
    void Release() { FreePages(m_block, m_mapped); }

    void* m_block = nullptr;
    std::size_t m_mapped = 0;
    std::size_t m_bytes = 0;
};

// The allocator of the library's arrays: blocks of kMinPageBlock bytes or more are mapped as
// above, smaller ones come from std::allocator. Stateless;
// the element count given back to deallocate tells which kind a block is.
template <class T>
struct Allocator {
    using value_type = T;
    Allocator() noexcept = default;
    template <class U>
    Allocator(const Allocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_alloc();
        const std::size_t bytes = n * sizeof(T);
        if (!IsMapped(bytes)) return std::allocator<T>().allocate(n);
        void* block = MapBlock(bytes);
        if (block == nullptr) throw std::bad_alloc();
        return static_cast<T*>(block);
    }
    void deallocate(T* p, std::size_t n) noexcept {
        const std::size_t bytes = n * sizeof(T);
        if (IsMapped(bytes))
            UnmapBlock(p, bytes);
        else
            std::allocator<T>().deallocate(p, n);
    }
    template <class U>
    bool operator==(const Allocator<U>&) const noexcept {
        return true;
    }
    template <class U>
    bool operator!=(const Allocator<U>&) const noexcept {
        return false;
    }
};

}  // namespace kel_pages
