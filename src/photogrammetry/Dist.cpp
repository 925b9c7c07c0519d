#include "photogrammetry/Dist.h"

#include <cmath>

#include "adjustment/LeastSq.h"
#include "platform/Trace.h"

CDist::CDist() { Init(); }

CDist::CDist(const CDist& src) : m_model(DIST_NONE), m_numPara(0) {
    for (double& p : m_para) p = 0.0;
    Copy(src);
}

CDist& CDist::operator=(const CDist& src) {
    if (this != &src) Copy(src);
    return *this;
}

void CDist::Init() {
    m_model = DIST_NONE;
    m_numPara = 0;
    for (double& p : m_para) p = 0.0;
    m_radius.RemoveAll();
    m_distortion.RemoveAll();
}

void CDist::Copy(const CDist& src) {
    m_model = src.m_model;
    m_numPara = src.m_numPara;
    for (int i = 0; i < kMaxPara; ++i) m_para[i] = src.m_para[i];
    m_radius.RemoveAll();
    m_radius.Append(src.m_radius);
    m_distortion.RemoveAll();
    m_distortion.Append(src.m_distortion);
}

void CDist::SetDistModel(DIST_MODEL m) {
    static const int counts[] = {0, 4, 4, 5, 8};
    const int v = static_cast<int>(m);
    if (v < 0 || v > 4) {
        m_model = DIST_NONE;
        m_numPara = 0;
        return;
    }
    m_model = m;
    m_numPara = counts[v];
}

int CDist::AddPara(int index, double value) {
    if (index < 0 || index >= kMaxPara) return 0;
    if (index >= m_numPara) ++m_numPara;
    m_para[index] = value;
    return 1;
}

int CDist::AddDist(double radius, double value) {
    m_radius.Add(radius);
    m_distortion.Add(value);
    return m_radius.GetSize();
}

int CDist::ParaToDist(double step, int n) {
    if (m_model != DIST_K1K2K3K4) return 0;
    if (n < 0) n = 0;  // a negative count empties the table rather than failing the array
    m_radius.SetSize(n, 0.0);
    m_distortion.SetSize(n, 0.0);
    for (int i = 0; i < n; ++i) {
        m_radius[i] = i * step;
        double dx = 0.0, dy = 0.0;
        CalDist(m_radius[i], 0.0, dx, dy);
        m_distortion[i] = dx;
    }
    return 1;
}

int CDist::DistToPara() {
    const int n = m_radius.GetSize();
    if (n != m_distortion.GetSize() || n < 4) return 0;
    CLeastSq obeq(n, 4);
    for (int i = 0; i < n; ++i) {
        const double r2 = m_radius[i] * m_radius[i];
        const double r4 = r2 * r2;
        const double r6 = r4 * r2;
        obeq.SetObeq(0, r2);
        obeq.SetObeq(1, r4);
        obeq.SetObeq(2, r6);
        obeq.SetObeq(3, r6 * r2);
        obeq.SetObeq(4, m_distortion[i]);
    }
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CDist::DistToPara obeq.Solve() == FALSE");
        return 0;
    }
    for (int k = 0; k < 4; ++k) m_para[k] = obeq.GetBcor(k);
    m_model = DIST_K1K2K3K4;
    return 1;
}

void CDist::CalDist(double x, double y, double& dx, double& dy) const {
    const double r2 = y * y + x * x;
    const double r4 = r2 * r2;
    const double r6 = r4 * r2;
    const double r8 = r6 * r2;
    const double* p = m_para;
    switch (m_model) {
        case DIST_K1K2K3K4: {
            const double s = p[0] * r2 + p[1] * r4 + p[2] * r6 + p[3] * r8;
            dx = x * s;
            dy = y * s;
            return;
        }
        case DIST_K1K2P1P2: {
            const double s = p[0] * r2 + p[1] * r4;
            dx = x * s + p[2] * (2 * x * x + r2) + 2 * p[3] * x * y;
            dy = y * s + p[3] * (2 * y * y + r2) + 2 * p[2] * x * y;
            return;
        }
        case DIST_K1K2K3P1P2: {
            const double s = p[0] * r2 + p[1] * r4 + p[2] * r6;
            dx = x * s + p[3] * (2 * x * x + r2) + 2 * p[4] * x * y;
            dy = y * s + p[4] * (2 * y * y + r2) + 2 * p[3] * x * y;
            return;
        }
        case DIST_POLY8: {
            const double s = p[0] * r2 + p[1] * r4;
            dx = x * s + p[2] * x + p[3] * y + p[4] * x * y + p[5] * y * y;
            dy = y * s + p[6] * x * y + p[7] * x * x;
            return;
        }
        default:
            dx = 0.0;
            dy = 0.0;
    }
}

double CDist::InvError2(double u, double v, double x, double y) const {
    double du = 0.0, dv = 0.0;
    CalDist(u, v, du, dv);
    return (v + dv - y) * (v + dv - y) + (u + du - x) * (u + du - x);
}

int CDist::CalDistInv(double x, double y, double& dx, double& dy, double eps) const {
    const double limit = eps * eps;
    double d0x = 0.0, d0y = 0.0;
    CalDist(x, y, d0x, d0y);
    double x0 = x - d0x, y0 = y - d0y;
    double best = InvError2(x0, y0, x, y);
    if (best <= limit) {
        dx = x0 - x;
        dy = y0 - y;
        return 1;
    }
    double step = std::sqrt(best);
    double x00 = x0, y00 = y0;
    for (int pass = 0; pass < kInvMaxPass; ++pass) {
        const double h = step * 0.5;
        const double bx = x0 - step, by = y0 - step;
        for (int j = 0; j < 5; ++j) {
            const double v = by + j * h;
            for (int i = 0; i < 5; ++i) {
                const double u = bx + i * h;
                const double e = InvError2(u, v, x, y);
                if (e < best) {
                    best = e;
                    x0 = u;
                    y0 = v;
                    if (best <= limit) {
                        dx = u - x;
                        dy = v - y;
                        return 1;
                    }
                }
            }
        }
        if (x00 == x0 && y00 == y0) {
            KEL_TRACE_ALWAYS(L"CDist::CalDistInv x00 == x0 && y00 == y0");
            dx = x0 - x;
            dy = y0 - y;
            return 0;
        }
        x00 = x0;
        y00 = y0;
        step = std::sqrt(best);
    }
    dx = x0 - x;
    dy = y0 - y;
    return 0;
}
