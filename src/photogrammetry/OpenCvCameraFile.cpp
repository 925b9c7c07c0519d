// COpenCvCamera's FileStorage YAML file: a strict reader of what OpenCV writes, and the writer.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <new>
#include <set>
#include <string>
#include <vector>

#include "photogrammetry/OpenCvCamera.h"
#include "platform/File.h"
#include "platform/NumText.h"
#include "platform/Trace.h"

namespace {

// Longest file ReadYaml takes (a calibration file with every view's image points is large).
constexpr ULONGLONG kMaxFileBytes = 64ULL << 20;
// OpenCV's emitter wraps a data list before an item that would take the line past this column.
constexpr std::size_t kWrapColumn = 71;

bool IsKeyChar(char c, bool first) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           (!first && ((c >= '0' && c <= '9') || c == '-'));
}

std::string Trim(const std::string& s) {
    std::size_t b = 0, e = s.size();
    while (b < e && s[b] == ' ') ++b;
    while (e > b && s[e - 1] == ' ') --e;
    return s.substr(b, e - b);
}

// A matrix block as read: its shape, element type and (for the keys read) values.
struct Matrix {
    long rows = 0, cols = 0, channels = 1;
    char type = 0;
    std::vector<double> data;
};

// Walks the lines of the file. Every failure names its line (1-based) and the reason.
class Reader {
public:
    explicit Reader(const std::vector<std::string>& lines) : m_lines(lines) {}

    int line = 0;  // 1-based number of the line failed on (0: the file as a whole)
    std::string error;

    bool Fail(int at, const std::string& reason) {
        line = at;
        error = reason;
        return false;
    }

    std::size_t Count() const { return m_lines.size(); }
    const std::string& Line(std::size_t i) const { return m_lines[i]; }

    // "rows: N" style field of a matrix block at line i (indented); false after Fail.
    bool Field(std::size_t i, const char* name, std::string& value) {
        if (i >= m_lines.size())
            return Fail(static_cast<int>(i), std::string("expected \"") + name + ":\" after it");
        const std::string& s = m_lines[i];
        const std::string want = std::string(name) + ":";
        const std::string t = Trim(s);
        if (s.empty() || s[0] != ' ' || t.compare(0, want.size(), want) != 0 ||
            (t.size() > want.size() && t[want.size()] != ' '))
            return Fail(static_cast<int>(i) + 1, "expected an indented \"" + want + "\" line");
        value = Trim(t.substr(want.size()));
        return true;
    }

    // The matrix block after line i ("key: !!opencv-matrix"); i moves past it. Values are kept
    // only when keep is true.
    bool MatrixBlock(std::size_t& i, bool keep, Matrix& m) {
        std::string rows, cols, dt, data;
        if (!Field(i + 1, "rows", rows) || !Field(i + 2, "cols", cols) || !Field(i + 3, "dt", dt) ||
            !Field(i + 4, "data", data))
            return false;
        int r = 0, c = 0;
        if (!kel_num::ParseInt(rows.c_str(), r) || r < 1)
            return Fail(static_cast<int>(i) + 2, "rows is not a positive whole number");
        if (!kel_num::ParseInt(cols.c_str(), c) || c < 1)
            return Fail(static_cast<int>(i) + 3, "cols is not a positive whole number");
        m.rows = r;
        m.cols = c;
        if (!ElementType(dt, m))
            return Fail(static_cast<int>(i) + 4, "dt \"" + dt + "\" is no element type");
        const long long count = static_cast<long long>(r) * c * m.channels;
        if (count > COpenCvCamera::kMaxMatrixElements)
            return Fail(static_cast<int>(i) + 2,
                        "the matrix has more than " +
                            std::to_string(COpenCvCamera::kMaxMatrixElements) + " elements");
        std::size_t at = i + 4;
        if (data.empty() || data[0] != '[')
            return Fail(static_cast<int>(at) + 1, "data does not start with \"[\"");
        // The list runs to the first ']' over indented continuation lines; every line but the
        // last ends with a comma, and no item spans two lines.
        std::string piece = data.substr(1);
        long long n = 0;
        for (;;) {
            const int where = static_cast<int>(at) + 1;
            const std::size_t close = piece.find(']');
            const bool last = close != std::string::npos;
            if (last) {
                if (!Trim(piece.substr(close + 1)).empty())
                    return Fail(where, "text after the data list's \"]\"");
                piece.resize(close);
            }
            std::size_t p = 0;
            for (;;) {
                const std::size_t comma = piece.find(',', p);
                const std::string item = Trim(
                    piece.substr(p, comma == std::string::npos ? std::string::npos : comma - p));
                if (item.empty()) {
                    if (comma == std::string::npos && !last) break;  // the line ended with a comma
                    return Fail(where, "an empty data item");
                }
                double v = 0.0;
                if (!kel_num::Parse(item, v))
                    return Fail(where,
                                "data item \"" + item.substr(0, 40) + "\" is not a finite number");
                if (++n > count) return Fail(where, "data holds more than rows x cols values");
                if (keep) m.data.push_back(v);
                if (comma == std::string::npos) break;
                p = comma + 1;
            }
            if (last) break;
            ++at;
            if (at >= m_lines.size() || m_lines[at].empty() || m_lines[at][0] != ' ')
                return Fail(static_cast<int>(at) + 1, "the data list is not closed by \"]\"");
            piece = m_lines[at];
        }
        if (n != count)
            return Fail(static_cast<int>(at) + 1,
                        "data holds " + std::to_string(n) + " values, rows x cols" +
                            (m.channels > 1 ? " x channels" : "") + " is " + std::to_string(count));
        i = at + 1;
        return true;
    }

private:
    // OpenCV's dt: an optional channel count and one of u c w s i f d h, quoted when it has a
    // count ("2f").
    static bool ElementType(std::string dt, Matrix& m) {
        if (dt.size() >= 2 && dt.front() == '"' && dt.back() == '"')
            dt = dt.substr(1, dt.size() - 2);
        if (dt.empty()) return false;
        const char t = dt.back();
        if (std::string("ucwsifdh").find(t) == std::string::npos) return false;
        int channels = 1;
        if (dt.size() > 1 && (!kel_num::ParseInt(dt.substr(0, dt.size() - 1).c_str(), channels) ||
                              channels < 1 || channels > 4 || dt[0] < '1' || dt[0] > '4'))
            return false;
        m.type = t;
        m.channels = channels;
        return true;
    }

    const std::vector<std::string>& m_lines;
};

// A plain scalar of a key not read: a number, a word or a quoted text on its line. Flow
// collections, anchors, aliases, tags and block scalars are refused.
bool PlainScalar(const std::string& v) {
    if (v.empty()) return false;
    if (std::string("[{&*!|>%@`").find(v[0]) != std::string::npos) return false;
    if (v[0] == '"' || v[0] == '\'') return v.size() >= 2 && v.back() == v[0];
    return true;
}

// OpenCV's text of a double: "N." for a whole number within int's range, else "%.16e".
std::string OpenCvNumber(double v) {
    if (std::isfinite(v) && v == std::nearbyint(v) && std::fabs(v) <= 2147483647.0)
        return std::to_string(static_cast<long long>(v)) + ".";
    return kel_num::Sci(v, 16);
}

void MatrixText(std::string& out, const char* key, int rows, int cols, const double* v) {
    out += std::string(key) + ": !!opencv-matrix\n   rows: " + std::to_string(rows) +
           "\n   cols: " + std::to_string(cols) + "\n   dt: d\n";
    std::string line = "   data: [ ";
    const int n = rows * cols;
    for (int i = 0; i < n; ++i) {
        const std::string item = OpenCvNumber(v[i]) + (i + 1 < n ? "," : " ]");
        if (i > 0) {
            if (line.size() + 1 + item.size() > kWrapColumn) {
                out += line + '\n';
                line = "      ";
            }
            line += ' ';
        }
        line += item;
    }
    out += line + '\n';
}

}  // namespace

int COpenCvCamera::Fail(const wchar_t* operation, int line, const std::string& reason) {
    m_error = reason;
    m_errorLine = line;
    if (line > 0)
        KEL_TRACE_ALWAYS(L"COpenCvCamera::%s line %d: %S", operation, line, reason.c_str());
    else
        KEL_TRACE_ALWAYS(L"COpenCvCamera::%s %S", operation, reason.c_str());
    return 0;
}

int COpenCvCamera::ParseYaml(const char* text, std::size_t size) {
    try {
        std::vector<std::string> lines;
        std::size_t b = 0;
        for (std::size_t i = 0; i <= size; ++i) {
            if (i < size && text[i] == '\0')
                return Fail(L"ParseYaml", static_cast<int>(lines.size()) + 1,
                            "a NUL byte: not a text file");
            if (i == size || text[i] == '\n') {
                std::string s(text + b, i - b);
                if (!s.empty() && s.back() == '\r') s.pop_back();
                if (s.size() > static_cast<std::size_t>(kMaxLineBytes))
                    return Fail(L"ParseYaml", static_cast<int>(lines.size()) + 1,
                                "a line longer than " + std::to_string(kMaxLineBytes) + " bytes");
                lines.push_back(s);
                b = i + 1;
            }
        }
        while (!lines.empty() && lines.back().empty()) lines.pop_back();
        Reader r(lines);
        if (lines.empty() || (lines[0] != "%YAML:1.0" && lines[0] != "%YAML 1.0"))
            return Fail(L"ParseYaml", 1, "expected \"%YAML:1.0\"");
        if (lines.size() < 2 || lines[1] != "---") return Fail(L"ParseYaml", 2, "expected \"---\"");
        COpenCvCamera cv;
        std::set<std::string> seen;
        bool matrix = false, coef = false, width = false, height = false;
        std::size_t i = 2;
        while (i < lines.size()) {
            const std::string& s = lines[i];
            const int at = static_cast<int>(i) + 1;
            if (!s.empty() && s[0] == '#') {
                ++i;
                continue;
            }
            if (s.empty()) return Fail(L"ParseYaml", at, "a blank line");
            std::size_t k = 0;
            while (k < s.size() && IsKeyChar(s[k], k == 0)) ++k;
            if (k == 0 || k >= s.size() || s[k] != ':')
                return Fail(L"ParseYaml", at, "expected \"key: value\" at the start of the line");
            const std::string key = s.substr(0, k);
            if (!seen.insert(key).second)
                return Fail(L"ParseYaml", at, "key " + key + " given twice");
            if (k + 1 < s.size() && s[k + 1] != ' ')
                return Fail(L"ParseYaml", at, "expected a blank after \"" + key + ":\"");
            const std::string value = Trim(s.substr(k + 1));
            if (value == "!!opencv-matrix") {
                const bool isMatrix = key == "camera_matrix",
                           isCoef = key == "distortion_coefficients";
                Matrix m;
                if (!r.MatrixBlock(i, isMatrix || isCoef, m))
                    return Fail(L"ParseYaml", r.line, r.error);
                if (isMatrix || isCoef) {
                    if ((m.type != 'd' && m.type != 'f') || m.channels != 1)
                        return Fail(L"ParseYaml", at + 3, key + " must have dt d or f");
                }
                if (isMatrix) {
                    if (m.rows != 3 || m.cols != 3)
                        return Fail(L"ParseYaml", at + 1, "camera_matrix is not 3 x 3");
                    const double* v = m.data.data();
                    if (!(v[0] > 0.0) || !(v[4] > 0.0) || v[3] != 0.0 || v[6] != 0.0 ||
                        v[7] != 0.0 || v[8] != 1.0)
                        return Fail(
                            L"ParseYaml", at + 4,
                            "camera_matrix is not [fx skew cx; 0 fy cy; 0 0 1] with fx, fy > 0");
                    std::copy(v, v + 9, cv.m_matrix);
                    matrix = true;
                } else if (isCoef) {
                    const long n = m.rows * m.cols;
                    if ((m.rows != 1 && m.cols != 1) ||
                        (n != 4 && n != 5 && n != 8 && n != 12 && n != 14))
                        return Fail(L"ParseYaml", at + 1,
                                    "distortion_coefficients is not 1 x N or N x 1 with N = 4, 5, "
                                    "8, 12 or 14");
                    cv.m_numCoef = static_cast<int>(n);
                    std::copy(m.data.begin(), m.data.end(), cv.m_coef);
                    coef = true;
                }
                continue;
            }
            if (key == "camera_matrix" || key == "distortion_coefficients")
                return Fail(L"ParseYaml", at, key + " is not an !!opencv-matrix");
            if (key == "image_width" || key == "image_height") {
                int v = 0;
                if (!kel_num::ParseInt(value.c_str(), v) || v < 1 || v > kMaxImageSide)
                    return Fail(
                        L"ParseYaml", at,
                        key + " is not a whole number from 1 to " + std::to_string(kMaxImageSide));
                (key == "image_width" ? cv.m_width : cv.m_height) = v;
                (key == "image_width" ? width : height) = true;
            } else if (!PlainScalar(value)) {
                return Fail(
                    L"ParseYaml", at,
                    "the value of " + key + " is neither a plain scalar nor an !!opencv-matrix");
            }
            ++i;
        }
        if (!matrix) return Fail(L"ParseYaml", 0, "no camera_matrix");
        if (!coef) return Fail(L"ParseYaml", 0, "no distortion_coefficients");
        if (!width) return Fail(L"ParseYaml", 0, "no image_width");
        if (!height) return Fail(L"ParseYaml", 0, "no image_height");
        *this = cv;
        return 1;
    } catch (const std::bad_alloc&) {
        return Fail(L"ParseYaml", 0, "CMemoryException");
    }
}

int COpenCvCamera::ReadYaml(const wchar_t* path) {
    try {
        CFile f;
        if (path == nullptr || !f.Open(path, CFile::modeRead))
            return Fail(L"ReadYaml", 0, "cannot read the file");
        const ULONGLONG length = f.GetLength();
        if (length > kMaxFileBytes)
            return Fail(L"ReadYaml", 0,
                        "the file is larger than " + std::to_string(kMaxFileBytes >> 20) + " MiB");
        std::string text(static_cast<std::size_t>(length), '\0');
        if (f.ReadAll(&text[0], text.size()) != text.size())
            return Fail(L"ReadYaml", 0, "cannot read the file");
        return ParseYaml(text.data(), text.size());
    } catch (const CFileException&) {
        return Fail(L"ReadYaml", 0, "cannot read the file");
    } catch (const std::bad_alloc&) {
        return Fail(L"ReadYaml", 0, "CMemoryException");
    }
}

std::string COpenCvCamera::FormatYaml() const {
    std::string out = "%YAML:1.0\n---\n";
    MatrixText(out, "camera_matrix", 3, 3, m_matrix);
    const int n = m_numCoef;
    MatrixText(out, "distortion_coefficients", 1,
               n == 4 || n == 5 || n == 8 || n == 12 || n == 14 ? n : 5, m_coef);
    return out + "image_width: " + std::to_string(m_width) +
           "\nimage_height: " + std::to_string(m_height) + "\n";
}

int COpenCvCamera::WriteYaml(const wchar_t* path) const {
    try {
        const std::string text = FormatYaml();
        CFile f;
        if (path == nullptr || !f.Open(path, CFile::modeCreate | CFile::modeWrite)) {
            KEL_TRACE_ALWAYS(L"COpenCvCamera::WriteYaml !Open(path)");
            return 0;
        }
        f.WriteAll(text.data(), text.size());
        f.Close();
        return 1;
    } catch (const CFileException&) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::WriteYaml CFileException");
        return 0;
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"COpenCvCamera::WriteYaml CMemoryException");
        return 0;
    }
}
