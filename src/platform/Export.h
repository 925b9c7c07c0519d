#pragma once
// KELSCAN_API marks the library's exported classes and functions. The library is built with
// hidden default visibility, so only what carries this mark is visible from a shared build.
// A static build (the default) defines KELSCAN_STATIC and the mark is empty.
#if defined(KELSCAN_STATIC)
#define KELSCAN_API
#elif defined(_WIN32)
#if defined(KELSCAN_BUILDING)
#define KELSCAN_API __declspec(dllexport)
#else
#define KELSCAN_API __declspec(dllimport)
#endif
#else
#define KELSCAN_API __attribute__((visibility("default")))
#endif
