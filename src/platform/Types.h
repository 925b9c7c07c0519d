#pragma once
// The host's fixed-width integer names as the Windows headers spell them. On Windows the real
// headers provide them; elsewhere they are defined here with the same widths (WORD 16 bits,
// DWORD 32 bits, LONG 32 bits), never with `long`, whose width differs between platforms.
#if defined(_WIN32)
#include <windows.h>
#else
#include <cstdint>

typedef int BOOL;
typedef std::uint8_t BYTE;
typedef std::uint16_t WORD;
typedef std::uint32_t DWORD;
typedef std::int32_t LONG;
typedef std::uint32_t UINT;
typedef std::int64_t LONGLONG;
typedef std::uint64_t ULONGLONG;
typedef std::int64_t __int64;
typedef void* HWND;
typedef void* HMODULE;
typedef void* HANDLE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#endif
