#include "storage/PointFile.h"

#include <new>
#include <string>
#include <vector>

#include "platform/File.h"
#include "platform/NumText.h"
#include "platform/Trace.h"
#include "storage/RecordText.h"

namespace {

const char kImcMagic[] = "IMC_1.00";

std::string Text(const kel_text::CKelString& s) {
    std::string t = kel_text::WideToSingleByte(s);
    for (char& c : t)
        if (c == ',' || c == '\r' || c == '\n') c = ' ';
    return t;
}

bool ParseNumber(const std::string& s, double& v) { return kel_num::Parse(s, v); }

std::vector<std::string> Split(const std::string& line) {
    std::vector<std::string> f(1);
    for (char c : line) {
        if (c == ',')
            f.emplace_back();
        else
            f.back() += c;
    }
    return f;
}

// Reads a whole text file into lines (without line ends). 0 after one trace line (op names
// the caller) when it cannot be read, is too large, or its last line has no line end.
int ReadTextLines(const wchar_t* op, const wchar_t* path, std::vector<std::string>& lines) {
    CFile file;
    if (path == nullptr || !file.Open(path, CFile::modeRead))
        return KEL_TRACE_ALWAYS(L"%s !file.Open(path)", op), 0;
    std::string bytes;
    try {
        const ULONGLONG length = file.GetLength();
        if (length > kMaxPointFileBytes)
            return KEL_TRACE_ALWAYS(L"%s length > kMaxPointFileBytes", op), 0;
        bytes.resize(static_cast<std::size_t>(length));
        if (length > 0 && file.ReadAll(&bytes[0], bytes.size()) != bytes.size())
            return KEL_TRACE_ALWAYS(L"%s short read", op), 0;
    } catch (CFileException&) {
        return KEL_TRACE_ALWAYS(L"%s CFileException", op), 0;
    }
    if (!bytes.empty() && bytes.back() != '\n')
        return KEL_TRACE_ALWAYS(L"%s last line has no line end", op), 0;
    std::size_t start = 0;
    while (start < bytes.size()) {
        std::size_t end = bytes.find('\n', start);
        std::string line = bytes.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
        start = end + 1;
    }
    return 1;
}

// Writes bytes as the whole new contents of path, flushed. 0 after one trace line.
int WriteTextFile(const wchar_t* op, const wchar_t* path, const std::string& bytes) {
    CFile file;
    if (path == nullptr || !file.Open(path, CFile::modeCreate | CFile::modeWrite))
        return KEL_TRACE_ALWAYS(L"%s !file.Open(path)", op), 0;
    try {
        file.WriteAll(bytes.data(), bytes.size());
        file.Flush();
        file.Close();
    } catch (CFileException&) {
        return KEL_TRACE_ALWAYS(L"%s CFileException", op), 0;
    }
    return 1;
}

}  // namespace

int ReadCSVFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    try {
        std::vector<std::string> lines;
        if (!ReadTextLines(L"ReadCSVFile", path, lines)) return 0;
        kel_templ::CKelArray<CXYZ, CXYZ&> read;
        for (const std::string& line : lines) {
            if (line.empty()) continue;
            const std::vector<std::string> f = Split(line);
            if (f.size() < 4 || f.size() > 5)
                return KEL_TRACE_ALWAYS(L"ReadCSVFile fields < 4 || fields > 5"), 0;
            CXYZ p;
            if (!ParseNumber(f[1], p.x) || !ParseNumber(f[2], p.y) || !ParseNumber(f[3], p.z))
                return KEL_TRACE_ALWAYS(L"ReadCSVFile bad number"), 0;
            p.m_name = kel_text::SingleByteToWide(f[0].c_str());
            if (f.size() == 5) p.m_code = kel_text::SingleByteToWide(f[4].c_str());
            read.Add(p);
        }
        for (int i = 0; i < read.GetSize(); ++i) pts.Add(read[i]);
        return 1;
    } catch (std::bad_alloc&) {
        return KEL_TRACE_ALWAYS(L"ReadCSVFile std::bad_alloc"), 0;
    }
}

int WriteCSVFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>* pts, int withCode) {
    if (pts == nullptr) return KEL_TRACE_ALWAYS(L"WriteCSVFile pts == NULL"), 0;
    try {
        std::string out;
        for (int i = 0; i < pts->GetSize(); ++i) {
            const CXYZ& p = (*pts)[i];
            out += Text(p.m_name);
            kel_storage_detail::AppendFixed6(out, {p.x, p.y, p.z});
            if (withCode != 0 && !p.m_code.IsEmpty()) out += "," + Text(p.m_code);
            out += '\n';
        }
        return WriteTextFile(L"WriteCSVFile", path, out);
    } catch (std::bad_alloc&) {
        return KEL_TRACE_ALWAYS(L"WriteCSVFile std::bad_alloc"), 0;
    }
}

int ReadImcFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    try {
        std::vector<std::string> lines;
        if (!ReadTextLines(L"ReadImcFile", path, lines)) return 0;
        const std::vector<std::string> head =
            lines.empty() ? std::vector<std::string>() : Split(lines[0]);
        double count = -1.0;
        if (head.size() != 2 || head[0] != kImcMagic || !ParseNumber(head[1], count))
            return KEL_TRACE_ALWAYS(L"ReadImcFile bad header"), 0;
        if (count != static_cast<double>(lines.size() - 1))
            return KEL_TRACE_ALWAYS(L"ReadImcFile count != lines"), 0;
        kel_templ::CKelArray<CXYZ, CXYZ&> read;
        for (std::size_t i = 1; i < lines.size(); ++i) {
            const std::vector<std::string> f = Split(lines[i]);
            CXYZ p;
            if (f.size() != 3 || !ParseNumber(f[1], p.x) || !ParseNumber(f[2], p.y))
                return KEL_TRACE_ALWAYS(L"ReadImcFile bad line"), 0;
            p.m_name = kel_text::SingleByteToWide(f[0].c_str());
            read.Add(p);
        }
        for (int i = 0; i < read.GetSize(); ++i) pts.Add(read[i]);
        return 1;
    } catch (std::bad_alloc&) {
        return KEL_TRACE_ALWAYS(L"ReadImcFile std::bad_alloc"), 0;
    }
}

int WriteImcFile(const wchar_t* path, kel_templ::CKelArray<CXYZ, CXYZ&>& pts) {
    try {
        std::string out = std::string(kImcMagic) + "," + std::to_string(pts.GetSize()) + "\n";
        for (int i = 0; i < pts.GetSize(); ++i) {
            out += Text(pts[i].m_name);
            kel_storage_detail::AppendFixed6(out, {pts[i].x, pts[i].y});
            out += '\n';
        }
        return WriteTextFile(L"WriteImcFile", path, out);
    } catch (std::bad_alloc&) {
        return KEL_TRACE_ALWAYS(L"WriteImcFile std::bad_alloc"), 0;
    }
}
