#include "storage/ScanFile.h"

#include <memory>
#include <new>
#include <string>

#include "platform/Message.h"
#include "storage/RecordText.h"

namespace {

// Each line is formatted into a buffer of this many characters; longer lines are cut.
constexpr std::size_t kLineMax = 255;

void Inform(const wchar_t* caption, const wchar_t* what, const wchar_t* path) {
    kel_text::CKelString text;
    text.Format(L"%s %s", what, path != nullptr ? path : L"");
    MessagePopup(nullptr, text, caption, MB_ICONINFORMATION_STYLE, MBPARAMS());
}

// One line of p: without extra text in the first or second format, with it in the third.
std::string FormatLine(const CXYZ& p, const wchar_t* text) {
    std::string line = kel_text::WideToSingleByte(p.m_name);
    kel_storage_detail::AppendFixed6(line, {p.x, p.y, p.z});
    const std::string code = kel_text::WideToSingleByte(p.m_code);
    if (text != nullptr)
        line += ',' + code + ',' + std::to_string(static_cast<int>(p.m_aux[2])) + ',' +
                kel_text::WideToSingleByte(text);
    else if (p.m_code.GetLength() >= 1)
        line += ',' + code;
    line += '\n';
    if (line.size() > kLineMax) line.resize(kLineMax);
    return line;
}

// The common road of the three ScanFileAdd: open, write the lines, flush, close.
template <class Lines>
int AppendLines(const wchar_t* path, Lines lines) {
    std::unique_ptr<CFile> file;
    try {
        file.reset(new CFile());
    } catch (std::bad_alloc&) {
        Inform(L"ScanFileAdd", L"cannot add to the scan file", path);
        return 0;
    }
    if (ScanFileOpen(file.get(), path) != 1) {
        Inform(L"ScanFileAdd", L"cannot add to the scan file", path);
        return 0;
    }
    try {
        const std::string out = lines();
        file->WriteAll(out.data(), out.size());
        file->Flush();
        ScanFileClose(file.get());
    } catch (CFileException&) {
        Inform(L"ScanFileAdd", L"cannot write the scan file", path);
        return 0;
    } catch (std::bad_alloc&) {
        Inform(L"ScanFileAdd", L"out of memory writing the scan file", path);
        return 0;
    }
    return 1;
}

}  // namespace

int ScanFileOpen(CFile* file, const wchar_t* path) {
    if (path == nullptr || *path == L'\0' || file == nullptr) return 0;
    if (!file->Open(path, CFile::modeCreate | CFile::modeNoTruncate | CFile::modeWrite)) {
        Inform(L"ScanFileOpen", L"cannot open the scan file", path);
        return 0;
    }
    try {
        file->SeekToEnd();
    } catch (CFileException&) {
        file->Abort();
        Inform(L"ScanFileOpen", L"cannot open the scan file", path);
        return 0;
    }
    return 1;
}

int ScanFileClose(CFile* file) {
    if (file != nullptr) file->Abort();
    return 1;
}

int ScanFileAdd(const wchar_t* path, const CXYZ& p) {
    return AppendLines(path, [&]() { return FormatLine(p, nullptr); });
}

int ScanFileAdd(const wchar_t* path, const CXYZ& p, const wchar_t* text) {
    return AppendLines(path, [&]() { return FormatLine(p, text != nullptr ? text : L""); });
}

int ScanFileAdd(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    return AppendLines(path, [&]() {
        std::string out;
        for (int i = 0; i < pts.GetSize(); ++i) out += FormatLine(pts[i], nullptr);
        return out;
    });
}
