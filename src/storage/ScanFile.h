#pragma once
// The scan result text file: measured points appended as they come, one single-byte line per
// point ending in "\n", no header line:
//   "%S,%.6lf,%.6lf,%.6lf\n"          name, x, y, z (a point without code string)
//   "%S,%.6lf,%.6lf,%.6lf,%S\n"       name, x, y, z, code string
//   "%S,%.6lf,%.6lf,%.6lf,%S,%d,%S\n" name, x, y, z, code, m_aux[2], extra text
// A line longer than 255 characters is cut at 255. The file is opened and closed again by every
// ScanFileAdd. Failures show a message (information style, no owner) and return 0; nothing is
// traced.
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Export.h"
#include "platform/File.h"

// Opens path for appending (created when missing, kept otherwise) and moves to its end.
// 0 at once for an empty path; 0 with a "ScanFileOpen" message when it cannot be opened.
KELSCAN_API int ScanFileOpen(CFile* file, const wchar_t* path);
// Closes the file; always 1.
KELSCAN_API int ScanFileClose(CFile* file);
// Appends p in the first format, or in the second when its code string is not empty.
KELSCAN_API int ScanFileAdd(const wchar_t* path, const CXYZ& p);
// Appends p in the third format with the extra text.
KELSCAN_API int ScanFileAdd(const wchar_t* path, const CXYZ& p, const wchar_t* text);
// Appends one line per point in index order, each in the first or second format.
KELSCAN_API int ScanFileAdd(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts);
