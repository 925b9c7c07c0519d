#pragma once
// Run-time loading of a module's entry point (LoadLibrary/GetProcAddress on Windows,
// dlopen/dlsym elsewhere).
//
// A module is named as on the original host ("JPEG_LIB.dll"); MapModuleName gives the host's
// file name ("libJPEG_LIB.so"). The file is searched in each folder of the environment
// variable KELSCAN_PLUGIN_PATH (':'-separated) in order, then in the folder of the library
// itself (beside libkelscan, or beside the program for a static build), then in the folder the
// install puts modules in (fixed when the library is built), and last by the dynamic loader's
// own search (the program's run path, which the installed package's CMake target sets for a
// static build; LD_LIBRARY_PATH; the system folders).
#include <string>

#include "platform/Export.h"
#include "platform/Types.h"

// The host's file name of a module name: the extension ".dll" (any case) is dropped and the
// host's prefix and suffix are added ("JPEG_LIB.dll" -> "libJPEG_LIB.so").
KELSCAN_API std::string MapModuleName(const wchar_t* moduleName);

// Loads the module (when *module is null; otherwise uses the module already in *module) and
// returns the address of the entry point, or null after one trace line when the module or the
// entry point is missing. On success *module holds the module for FreeLibraryFunction; on
// failure a module loaded by this call is released again and *module is left as it was.
KELSCAN_API void* GetLibraryFunction(const wchar_t* moduleName, const char* functionName,
                                     HMODULE* module);
// Releases a module returned through GetLibraryFunction. Null is ignored.
KELSCAN_API void FreeLibraryFunction(HMODULE module);
