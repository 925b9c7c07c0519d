#pragma once
// The one allocator behind every exported class's operator new / operator delete. The host may
// replace it once, before the first object is created; objects must be freed by the allocator
// that made them. KelAlloc throws std::bad_alloc when the allocator returns null, so that the
// classes catch memory failures where they allocate.
#include <cstddef>

#include "platform/Export.h"

namespace kel_platform {
typedef void* (*AllocFn)(std::size_t size);
typedef void (*FreeFn)(void* p);
// Null functions restore malloc / free.
KELSCAN_API void SetAllocator(AllocFn alloc, FreeFn release);
KELSCAN_API void* KelAlloc(std::size_t size);
KELSCAN_API void KelFree(void* p) noexcept;
}  // namespace kel_platform

// Declares a class's operator new / operator delete (scalar, array and placement forms).
#define KEL_DECLARE_ALLOCATOR                                                          \
    static void* operator new(std::size_t n) { return ::kel_platform::KelAlloc(n); }  \
    static void* operator new[](std::size_t n) { return ::kel_platform::KelAlloc(n); } \
    static void* operator new(std::size_t, void* p) noexcept { return p; }             \
    static void* operator new[](std::size_t, void* p) noexcept { return p; }           \
    static void operator delete(void* p) noexcept { ::kel_platform::KelFree(p); }      \
    static void operator delete[](void* p) noexcept { ::kel_platform::KelFree(p); }    \
    static void operator delete(void*, void*) noexcept {}                              \
    static void operator delete[](void*, void*) noexcept {}
