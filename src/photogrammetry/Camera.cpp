#include "photogrammetry/Camera.h"

#include <charconv>
#include <cmath>
#include <new>
#include <string>
#include <vector>

#include "geometry/FileName.h"
#include "platform/File.h"
#include "platform/NumText.h"

CCamera::CCamera() : m_fiducial(0), m_focal(0.0) { Init(); }

CCamera::CCamera(const CCamera& src) : m_fiducial(0), m_focal(0.0) { Copy(src); }

CCamera& CCamera::operator=(const CCamera& src) {
    if (this != &src) Copy(src);
    return *this;
}

void CCamera::Init() {
    m_name.Empty();
    m_fiducial = 0;
    m_focal = 0.0;
    m_principal.SetXYZ(0.0, 0.0, 0.0);
    m_resolution.SetXYZ(0.0, 0.0, 0.0);
    m_dist.Init();
    m_fiducialMark.RemoveAll();
    m_aux.RemoveAll();
}

void CCamera::Copy(const CCamera& src) {
    m_name = src.m_name;
    m_fiducial = src.m_fiducial;
    m_focal = src.m_focal;
    m_principal = src.m_principal;
    m_resolution = src.m_resolution;
    m_dist = src.m_dist;
    m_fiducialMark.RemoveAll();
    m_fiducialMark.Append(src.m_fiducialMark);
    m_aux.RemoveAll();
    m_aux.Append(src.m_aux);
}

void CCamera::ImgToPhc(double u, double v, double& x, double& y) const {
    const double mx = u * m_resolution.x - m_principal.x;
    const double my = m_principal.y - v * m_resolution.y;
    double dx = 0.0, dy = 0.0;
    m_dist.CalDist(mx, my, dx, dy);
    x = mx + dx;
    y = my + dy;
}

int CCamera::PhcToImg(double x, double y, double& u, double& v) const {
    const double resx = m_resolution.x, resy = m_resolution.y;
    if (resx == 0.0 || resy == 0.0) return 0;
    double mx = x, my = y;
    int ite = 0;
    for (; ite < kInvIteLim; ++ite) {
        double dx = 0.0, dy = 0.0;
        m_dist.CalDist(mx, my, dx, dy);
        const double nx = x - dx, ny = y - dy;
        const double change = std::fabs(nx - mx) + std::fabs(ny - my);
        mx = nx;
        my = ny;
        if (change <= kInvTol) break;
    }
    if (ite == kInvIteLim || !std::isfinite(mx) || !std::isfinite(my)) return 0;
    u = (mx + m_principal.x) / resx;
    v = (m_principal.y - my) / resy;
    return 1;
}

namespace {

// Line reader over an open file: bytes up to the next line feed (dropped); a carriage return
// before it stays. Lines are kept up to the camera's limit.
class LineReader {
public:
    LineReader(CFile& file, int& lineNo) : m_file(file), m_lineNo(lineNo) {}

    // The next line; an empty result means "missing" (an empty line or the end of the file).
    std::string Next() {
        ++m_lineNo;
        std::string line;
        for (;;) {
            if (m_pos == m_len) {
                m_len = m_file.Read(m_buf, sizeof m_buf);
                m_pos = 0;
                if (m_len == 0) return line;
            }
            const char c = m_buf[m_pos++];
            if (c == '\n') return line;
            if (line.size() < static_cast<std::size_t>(CCamera::kMaxLineBytes)) line += c;
        }
    }

private:
    CFile& m_file;
    int& m_lineNo;
    char m_buf[4096];
    UINT m_pos = 0;
    UINT m_len = 0;
};

// sscanf-like reading of one line in the C locale whatever the process locale: white space is
// skipped before each item. End: only white space is left (sscanf's end of input); None: the
// text there is no number (the value is kept, as sscanf keeps it); Bad: a number that is not
// finite or out of range, which the file may not hold.
enum class Scan { Ok, None, End, Bad };

class LineScanner {
public:
    explicit LineScanner(const std::string& line) : m_p(line.c_str()) {}

    Scan Real(double& v) {
        if (SkipSpace()) return Scan::End;
        const char* end = nullptr;
        double x = 0.0;
        if (kel_num::ParsePrefix(m_p, x, &end, true)) {
            m_p = end;
            if (!std::isfinite(x)) return Scan::Bad;
            v = x;
            return Scan::Ok;
        }
        // ParsePrefix refuses a number beyond the double range: digits that do not read.
        const char* q = m_p + ((*m_p == '+' || *m_p == '-') ? 1 : 0);
        return IsDigit(*q) || (*q == '.' && IsDigit(q[1])) ? Scan::Bad : Scan::None;
    }

    Scan Int(int& v) {
        if (SkipSpace()) return Scan::End;
        const char* q = m_p + (*m_p == '+' ? 1 : 0);
        int x = 0;
        const std::from_chars_result r =
            std::from_chars(q, q + std::char_traits<char>::length(q), x);
        if (r.ec == std::errc::result_out_of_range) return Scan::Bad;
        if (r.ec != std::errc()) return Scan::None;
        m_p = r.ptr;
        v = x;
        return Scan::Ok;
    }

    // A run of non-white-space characters (sscanf's %s).
    Scan Word(std::string& w) {
        if (SkipSpace()) return Scan::End;
        const char* q = m_p;
        while (*q != '\0' && !IsSpace(*q)) ++q;
        w.assign(m_p, q);
        m_p = q;
        return Scan::Ok;
    }

private:
    static bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
    static bool IsDigit(char c) { return c >= '0' && c <= '9'; }
    bool SkipSpace() {
        while (IsSpace(*m_p)) ++m_p;
        return *m_p == '\0';
    }
    const char* m_p;
};

// A required line of one value: false for a missing line, end of input or a bad number.
bool ReadReal(const std::string& line, double& v) {
    if (line.empty()) return false;
    const Scan r = LineScanner(line).Real(v);
    return r == Scan::Ok || r == Scan::None;
}

bool ReadInt(const std::string& line, int& v) {
    if (line.empty()) return false;
    const Scan r = LineScanner(line).Int(v);
    return r == Scan::Ok || r == Scan::None;
}

}  // namespace

int CCamera::Read(const wchar_t* path) {
    CFile file;
    if (path == nullptr || !file.Open(path, CFile::modeRead)) return 0;
    try {
        Init();
        EditFileName(path, m_name);
        m_lastReadLine = 0;
        LineReader in(file, m_lastReadLine);
        double v = 0.0;
        int count = 0;
        if (!ReadReal(in.Next(), m_focal)) return 0;
        if (!ReadReal(in.Next(), m_principal.x)) return 0;
        if (!ReadReal(in.Next(), m_principal.y)) return 0;
        int model = 0;
        if (!ReadInt(in.Next(), model)) return 0;
        m_dist.SetDistModel(static_cast<DIST_MODEL>(model));
        if (!ReadInt(in.Next(), count)) return 0;
        for (int i = 0; i < count; ++i) {
            v = 0.0;
            if (!ReadReal(in.Next(), v)) return 0;
            if (i < CDist::kMaxPara) m_dist.m_para[i] = v;
        }
        if (!ReadReal(in.Next(), m_resolution.x)) return 0;
        if (!ReadReal(in.Next(), m_resolution.y)) return 0;
        int marks = 0;
        if (!ReadInt(in.Next(), marks)) return 0;
        for (int i = 0; i < marks; ++i) {
            const std::string line = in.Next();
            std::string token;
            CXYZ mark(0.0, 0.0, 0.0);
            LineScanner scan(line);
            if (line.empty() || scan.Word(token) != Scan::Ok) return 0;
            Scan r = scan.Real(mark.x);
            if (r == Scan::Ok) r = scan.Real(mark.y);
            if (r == Scan::Bad) return 0;
            mark.m_name = kel_text::SingleByteToWide(token.c_str());
            mark.m_name.TrimLeft();
            mark.m_name.TrimRight();
            m_fiducialMark.Add(mark);
        }

        int k = 0;
        const std::string kLine = in.Next();
        const Scan kScan = LineScanner(kLine).Int(k);
        if (kScan == Scan::Bad) return 0;
        if (kScan != Scan::Ok) k = 0;
        if (k < 0) k = 0;
        if (k > kMaxRadialValues) k = kMaxRadialValues;
        m_dist.m_radius.SetSize(k, 0.0);
        m_dist.m_distortion.SetSize(k, 0.0);
        for (int j = 0; j < k; ++j) {
            const std::string line = in.Next();
            if (line.empty()) continue;
            double r = m_dist.m_radius[j], d = m_dist.m_distortion[j];
            LineScanner scan(line);
            Scan got = scan.Real(r);
            if (got == Scan::Ok) got = scan.Real(d);
            if (got == Scan::Bad) return 0;
            m_dist.m_radius[j] = r;
            m_dist.m_distortion[j] = d;
        }
        m_fiducial = marks > 0 ? 1 : 0;
        return 1;
    } catch (const CFileException&) {
        return 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

int CCamera::Write(const wchar_t* path) {
    if (path == nullptr || path[0] == L'\0') return 0;
    CFile file;
    if (!file.Open(path, CFile::modeCreate | CFile::modeWrite)) return 0;
    EditFileName(path, m_name);
    // Each line: the values, tabs and a comment; %lf and %le as the C locale prints them.
    std::string bytes;
    auto put = [&bytes](std::string b) {
        if (b.size() > static_cast<std::size_t>(kMaxWriteLine)) {
            b.resize(kMaxWriteLine - 1);
            b += '\n';
        }
        bytes += b;
    };
    auto lf = [](double v) { return kel_num::Fixed(v, 6); };
    auto nth = [](int i) { return std::to_string(i); };
    put(lf(m_focal) + "\t\t\t// focul length [mm]\n");
    put(lf(m_principal.x) + "\t\t\t// x of principal point [m]\n");
    put(lf(m_principal.y) + "\t\t\t// y of principal point [m]\n");
    put(nth(static_cast<int>(m_dist.GetDistModel())) + "\t\t\t\t\t// distortion model\n");
    const int n = m_dist.GetNumPara();
    put(nth(n) + "\t\t\t\t\t// number of distortion parameters\n");
    for (int i = 0; i < n && i < CDist::kMaxPara; ++i)
        put(kel_num::Sci(m_dist.m_para[i], 6) + "\t\t// distortion parameter " + nth(i + 1) + "\n");
    put(lf(m_resolution.x) + "\t\t\t// x resolution [mm/pixel]\n");
    put(lf(m_resolution.y) + "\t\t\t// y resolution [mm/pixel]\n");
    put(nth(m_fiducialMark.GetSize()) + "\t\t\t\t\t// number of fiducial marks\n");
    for (int i = 0; i < m_fiducialMark.GetSize(); ++i) {
        const CXYZ& f = m_fiducialMark[i];
        put(kel_text::WideToSingleByte(f.m_name) + "\t" + lf(f.x) + "\t" + lf(f.y) +
            "\t// coordinates of fiducial mark " + nth(i + 1) + " [mm]\n");
    }
    const int k = m_dist.m_radius.GetSize() < m_dist.m_distortion.GetSize()
                      ? m_dist.m_radius.GetSize()
                      : m_dist.m_distortion.GetSize();
    put(nth(k) + "\t\t\t\t\t// number of radial distortion values\n");
    for (int j = 0; j < k; ++j)
        put(lf(m_dist.m_radius[j]) + "\t" + lf(m_dist.m_distortion[j]) +
            "\t// radius and  radial distortion value " + nth(j + 1) + " [mm]\n");
    try {
        file.WriteAll(bytes.data(), bytes.size());
        file.Close();
    } catch (const CFileException&) {
        return 0;
    }
    return 1;
}
