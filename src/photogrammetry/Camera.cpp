#include "photogrammetry/Camera.h"

#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "geometry/FileName.h"
#include "platform/File.h"

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

bool ScanDouble(const std::string& line, const char* form, double& v) {
    return !line.empty() && std::sscanf(line.c_str(), form, &v) != EOF;
}

bool ScanInt(const std::string& line, int& v) {
    return !line.empty() && std::sscanf(line.c_str(), "%d", &v) != EOF;
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
        if (!ScanDouble(in.Next(), "%lf", m_focal)) return 0;
        if (!ScanDouble(in.Next(), "%lf", m_principal.x)) return 0;
        if (!ScanDouble(in.Next(), "%lf", m_principal.y)) return 0;
        int model = 0;
        if (!ScanInt(in.Next(), model)) return 0;
        m_dist.SetDistModel(static_cast<DIST_MODEL>(model));
        if (!ScanInt(in.Next(), count)) return 0;
        for (int i = 0; i < count; ++i) {
            v = 0.0;
            if (!ScanDouble(in.Next(), "%le", v)) return 0;
            if (i < CDist::kMaxPara) m_dist.m_para[i] = v;
        }
        if (!ScanDouble(in.Next(), "%lf", m_resolution.x)) return 0;
        if (!ScanDouble(in.Next(), "%lf", m_resolution.y)) return 0;
        int marks = 0;
        if (!ScanInt(in.Next(), marks)) return 0;
        for (int i = 0; i < marks; ++i) {
            const std::string line = in.Next();
            if (line.empty()) return 0;
            std::vector<char> token(line.size() + 1, '\0');
            CXYZ mark(0.0, 0.0, 0.0);
            if (std::sscanf(line.c_str(), "%s %lf %lf", token.data(), &mark.x, &mark.y) == EOF)
                return 0;
            mark.m_name = kel_text::SingleByteToWide(token.data());
            mark.m_name.TrimLeft();
            mark.m_name.TrimRight();
            m_fiducialMark.Add(mark);
        }

        int k = 0;
        const std::string kLine = in.Next();
        if (kLine.empty() || std::sscanf(kLine.c_str(), "%d", &k) != 1) k = 0;
        if (k < 0) k = 0;
        if (k > kMaxRadialValues) k = kMaxRadialValues;
        m_dist.m_radius.SetSize(k, 0.0);
        m_dist.m_distortion.SetSize(k, 0.0);
        for (int j = 0; j < k; ++j) {
            const std::string line = in.Next();
            if (line.empty()) continue;
            double r = m_dist.m_radius[j], d = m_dist.m_distortion[j];
            std::sscanf(line.c_str(), "%lf %lf", &r, &d);
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
    std::string bytes;
    kel_text::CKelString line;
    auto put = [&bytes, &line]() {
        std::string b = kel_text::WideToSingleByte(line.GetString());
        if (b.size() > static_cast<std::size_t>(kMaxWriteLine)) {
            b.resize(kMaxWriteLine - 1);
            b += '\n';
        }
        bytes += b;
    };
    line.Format(L"%lf\t\t\t// focul length [mm]\n", m_focal);
    put();
    line.Format(L"%lf\t\t\t// x of principal point [m]\n", m_principal.x);
    put();
    line.Format(L"%lf\t\t\t// y of principal point [m]\n", m_principal.y);
    put();
    line.Format(L"%d\t\t\t\t\t// distortion model\n", static_cast<int>(m_dist.GetDistModel()));
    put();
    const int n = m_dist.GetNumPara();
    line.Format(L"%d\t\t\t\t\t// number of distortion parameters\n", n);
    put();
    for (int i = 0; i < n && i < CDist::kMaxPara; ++i) {
        line.Format(L"%le\t\t// distortion parameter %d\n", m_dist.m_para[i], i + 1);
        put();
    }
    line.Format(L"%lf\t\t\t// x resolution [mm/pixel]\n", m_resolution.x);
    put();
    line.Format(L"%lf\t\t\t// y resolution [mm/pixel]\n", m_resolution.y);
    put();
    line.Format(L"%d\t\t\t\t\t// number of fiducial marks\n", m_fiducialMark.GetSize());
    put();
    for (int i = 0; i < m_fiducialMark.GetSize(); ++i) {
        const CXYZ& f = m_fiducialMark[i];
        line.Format(L"%s\t%lf\t%lf\t// coordinates of fiducial mark %d [mm]\n",
                    f.m_name.GetString(), f.x, f.y, i + 1);
        put();
    }
    const int k = m_dist.m_radius.GetSize() < m_dist.m_distortion.GetSize()
                      ? m_dist.m_radius.GetSize()
                      : m_dist.m_distortion.GetSize();
    line.Format(L"%d\t\t\t\t\t// number of radial distortion values\n", k);
    put();
    for (int j = 0; j < k; ++j) {
        line.Format(L"%lf\t%lf\t// radius and  radial distortion value %d [mm]\n",
                    m_dist.m_radius[j], m_dist.m_distortion[j], j + 1);
        put();
    }
    try {
        file.Write(bytes.data(), static_cast<UINT>(bytes.size()));
        file.Close();
    } catch (const CFileException&) {
        return 0;
    }
    return 1;
}
