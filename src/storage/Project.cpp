#include "storage/Project.h"

#include <vector>

#include "platform/File.h"
#include "platform/Message.h"
#include "platform/Trace.h"
#include "storage/PointFile.h"

namespace {
// Index of the last '\\' or '/' of path (-1: none).
int LastSeparator(const kel_text::CKelString& path) {
    const int a = path.ReverseFind(L'\\'), b = path.ReverseFind(L'/');
    return a > b ? a : b;
}
}  // namespace

CProject::CProject(const wchar_t* name) : m_strName(name) {}

int CProject::FilePathMake(const wchar_t* folder) {
    m_strFolder = folder;
    const wchar_t* f = m_strFolder;
    const wchar_t* n = m_strName;
    m_strImcPath.Format(L"%s\\%s%s", f, n, L".imc");
    m_strCsvPath.Format(L"%s\\%s%s", f, n, L".csv");
    m_strTmpImcPath.Format(L"%s\\%s%s%s", f, L"tmp_", n, L".imc");
    m_strTmpCsvPath.Format(L"%s\\%s%s%s", f, L"tmp_", n, L".csv");
    m_strDelImcPath.Format(L"%s\\%s%s%s", f, L"tmpdel_", n, L".imc");
    m_strDelCsvPath.Format(L"%s\\%s%s%s", f, L"tmpdel_", n, L".csv");
    m_strDltPath.Format(L"%s\\%s%s", f, n, L".DLT");
    m_strBkhPath.Format(L"%s\\%s%s", f, n, L".bkh");
    return 1;
}

int CProject::FilePathMakeExt(const wchar_t* file, const wchar_t* ext, kel_text::CKelString& path) {
    path.Format(L"%s\\%s", m_strFolder.GetString(), file != nullptr ? file : L"");
    const int n = static_cast<int>(std::wcslen(ext));
    if (path.Right(n).CompareNoCase(ext) != 0) path += ext;
    return 1;
}

int CProject::FilePathMakeCSV(const wchar_t* file, kel_text::CKelString& path) {
    return FilePathMakeExt(file, L".csv", path);
}

int CProject::FilePathMakeDB(const wchar_t* file, kel_text::CKelString& path) {
    return FilePathMakeExt(file, L".dbs", path);
}

int CProject::FilePathMakeCamera(const wchar_t* pattern) {
    m_strCameraPath = m_strFolder;
    std::vector<kel_text::CKelString> names;
    const wchar_t* search = (pattern != nullptr && *pattern != L'\0') ? pattern : L"*";
    if (GetFileEntriesInFolder(m_strFolder, search, names) < 1 || names.empty()) return 0;
    m_strCameraPath += L"\\";
    m_strCameraPath += names.front();
    return 1;
}

int CProject::Replace(const wchar_t* op, const kel_text::CKelString& current,
                      const kel_text::CKelString& tmp, const kel_text::CKelString& old) {
    const bool haveCurrent = FileExists(current) != FALSE;
    if (FileExists(old)) {
        // With the current file missing, the old one is the only complete version left by a
        // replacement cut off between its renames: put it back rather than lose it.
        const BOOL ok = haveCurrent ? DeleteFileW(old) : MoveFileW(old, current);
        if (!ok) return KEL_TRACE_ALWAYS(L"%s cannot clear the old file", op), 0;
    }
    if (FileExists(current) && !MoveFileW(current, old))
        return KEL_TRACE_ALWAYS(L"%s !MoveFileW(current, old)", op), 0;
    if (!MoveFileW(tmp, current)) {
        if (FileExists(old)) MoveFileW(old, current);
        return KEL_TRACE_ALWAYS(L"%s !MoveFileW(tmp, current)", op), 0;
    }
    // The new version is in place; a leftover old file is cleared by the next replacement.
    DeleteFileW(old);
    return 1;
}

int CProject::WriteImcFilePro() {
    const int rc = WriteImcFile(m_strTmpImcPath, m_imgPts);
    if (rc != 1) {
        DeleteFileW(m_strTmpImcPath);  // a torn new file would keep its space
        return rc;
    }
    return Replace(L"CProject::WriteImcFilePro", m_strImcPath, m_strTmpImcPath, m_strDelImcPath);
}

int CProject::WriteCSVFilePro(const wchar_t* file, kel_templ::CKelArray<CXYZ, CXYZ&>* pts,
                              int withCode) {
    kel_text::CKelString current = m_strCsvPath, tmp = m_strTmpCsvPath, old = m_strDelCsvPath;
    if (file != nullptr && *file != L'\0') {
        // The temporary names sit beside the file: file may have folders of its own.
        FilePathMakeCSV(file, current);
        const int slash = LastSeparator(current);  // folder\file: always found
        const kel_text::CKelString dir = current.Left(slash), name = current.Mid(slash + 1);
        tmp.Format(L"%s\\%s%s", dir.GetString(), L"tmp_", name.GetString());
        old.Format(L"%s\\%s%s", dir.GetString(), L"tmpdel_", name.GetString());
    }
    const int rc = WriteCSVFile(tmp, pts, withCode);
    if (rc != 1) {
        DeleteFileW(tmp);
        kel_text::CKelString text;
        text.Format(L"cannot write %s", current.GetString());
        MessagePopup(nullptr, text, L"CProject::WriteCSVFilePro", MB_ICONINFORMATION_STYLE,
                     MBPARAMS());
        return rc;
    }
    return Replace(L"CProject::WriteCSVFilePro", current, tmp, old);
}
