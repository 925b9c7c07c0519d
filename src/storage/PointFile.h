#pragma once
// The project's point files, plain single-byte text with one point per line, each line ending
// in "\n" (the readers also take "\r\n"). Texts cannot hold a comma or a line end: the writers
// turn those into blanks. Coordinates are written with six decimals ("%.6f").
//
// Point file (".csv"): no header; "name,x,y,z" or, with a code string, "name,x,y,z,code".
// Blank lines are skipped. x, y, z are the caller's (metres in the surveying frame for points).
//
// Image coordinate file (".imc"): a first line "IMC_1.00,<count>", then exactly <count> lines
// "name,x,y" of image coordinates in pixels (x to the right, y down); z is not stored.
//
// Both readers reject a file whose last line has no line end, so a file cut short is refused
// rather than read with a wrong last number; the count of the image coordinate file also
// catches a cut at a line end. Readers refuse files over kMaxPointFileBytes before reading.
// Every failure returns 0 after exactly one trace line; the output array is then unchanged.
#include <cstddef>

#include "geometry/FileName.h"
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Export.h"
#include "platform/KelString.h"

// Largest point or image coordinate file the readers accept (64 MiB).
constexpr std::size_t kMaxPointFileBytes = 64u << 20;


// Appends the points of a point file to pts (code strings included). 1, or 0.
KELSCAN_API int ReadCSVFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts);
// Writes pts as a point file, replacing path; withCode non-zero adds the code string to the
// points that have one. 1, or 0 (null pts too).
KELSCAN_API int WriteCSVFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>* pts,
                             int withCode);
// Appends the points of an image coordinate file to pts (z = 0). 1, or 0.
KELSCAN_API int ReadImcFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts);
// Writes pts as an image coordinate file, replacing path. 1, or 0.
KELSCAN_API int WriteImcFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts);
