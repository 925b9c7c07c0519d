#include "platform/Alloc.h"

#include <cstdlib>
#include <new>

namespace kel_platform {
namespace {
AllocFn g_alloc = &std::malloc;
FreeFn g_free = &std::free;
}  // namespace

void SetAllocator(AllocFn alloc, FreeFn release) {
    g_alloc = alloc != nullptr ? alloc : &std::malloc;
    g_free = release != nullptr ? release : &std::free;
}

void* KelAlloc(std::size_t size) {
    void* p = g_alloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}

void KelFree(void* p) noexcept {
    if (p != nullptr) g_free(p);
}

}  // namespace kel_platform
