#pragma once
// CProject: the files of one image project, named from the project folder and name, and the
// safe replacement of its image coordinate (".imc") and point (".csv") files.
//
// Paths (device paths, backslash separated): folder\name.imc, folder\name.csv, the temporary
// folder\tmp_name.imc / .csv, the old folder\tmpdel_name.imc / .csv, folder\name.DLT,
// folder\name.bkh, and the camera file found in the folder. The file formats are those of
// storage/PointFile.h.
//
// Safe replacement: the new file is written completely (and flushed) under the "tmp_" name;
// then a leftover "tmpdel_" file is deleted (or, when the current file is missing because an
// earlier replacement was cut off between its renames, moved back to the current name); the
// current file is renamed to "tmpdel_", the "tmp_" file to the current name, and the "tmpdel_"
// file deleted. Renames never replace an existing file, so at every moment the current file
// or the "tmpdel_" file holds a complete version.
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class KELSCAN_API CProject {
public:
    KEL_DECLARE_ALLOCATOR

    // The project name (null: empty); no folder yet.
    explicit CProject(const wchar_t* name);

    // Stores the folder and builds the derived paths; always 1.
    int FilePathMake(const wchar_t* folder);
    // path = folder\file, with ".csv" appended unless it already ends so (any case). Always 1.
    int FilePathMakeCSV(const wchar_t* file, kel_text::CKelString& path);
    // The same with ".dbs".
    int FilePathMakeDB(const wchar_t* file, kel_text::CKelString& path);
    // The camera path becomes folder\first, the first (by name) entry of the folder matching
    // the wildcard pattern (null or empty: "*"): 1. None: the camera path is the folder, 0.
    int FilePathMakeCamera(const wchar_t* pattern);

    // Writes m_imgPts to the image coordinate file by safe replacement. 1; 0 after one trace
    // line when the write or a rename fails (the current file keeps a complete version). A
    // failed write removes what it left under the "tmp_" name.
    int WriteImcFilePro();
    // Writes pts to a point file by safe replacement: file null or empty names the project's
    // point file, any other file folder\file (".csv" added as FilePathMakeCSV does) with
    // "tmp_" and "tmpdel_" before its last component ("sub\pts" gives folder\sub\tmp_pts.csv).
    // withCode is passed to WriteCSVFile. A failed write also shows a
    // "CProject::WriteCSVFilePro" message. 1, or 0.
    int WriteCSVFilePro(const wchar_t* file, kel_templ::CKelArray<CXYZ, CXYZ&>* pts, int withCode);

    kel_text::CKelString m_strName;              // project name
    kel_text::CKelString m_strFolder;            // project folder
    kel_text::CKelString m_strImcPath;           // folder\name.imc
    kel_text::CKelString m_strCsvPath;           // folder\name.csv
    kel_text::CKelString m_strTmpImcPath;        // folder\tmp_name.imc
    kel_text::CKelString m_strTmpCsvPath;        // folder\tmp_name.csv
    kel_text::CKelString m_strDelImcPath;        // folder\tmpdel_name.imc
    kel_text::CKelString m_strDelCsvPath;        // folder\tmpdel_name.csv
    kel_text::CKelString m_strDltPath;           // folder\name.DLT
    kel_text::CKelString m_strBkhPath;           // folder\name.bkh
    kel_text::CKelString m_strCameraPath;        // see FilePathMakeCamera
    kel_templ::CKelArray<CXYZ, CXYZ&> m_imgPts;  // image coordinates (pixels) of the project

private:
    // Steps 2 to 5 of the safe replacement after the new file was written under tmp. op names
    // the caller in the trace line of a failed rename.
    int Replace(const wchar_t* op, const kel_text::CKelString& current,
                const kel_text::CKelString& tmp, const kel_text::CKelString& old);
    int FilePathMakeExt(const wchar_t* file, const wchar_t* ext, kel_text::CKelString& path);
};
