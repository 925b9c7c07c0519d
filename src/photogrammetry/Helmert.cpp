#include "photogrammetry/Helmert.h"

#include <cmath>

#include "adjustment/LeastSq.h"
#include "geometry/NamePairing.h"
#include "platform/Trace.h"

CHelmert::CHelmert() { Init(); }

CHelmert::CHelmert(const CHelmert& src) { Copy(src); }

CHelmert& CHelmert::operator=(const CHelmert& src) {
    if (this != &src) Copy(src);
    return *this;
}

void CHelmert::Init() {
    m_target.RemoveAll();
    m_source.RemoveAll();
    m_para.RemoveAll();
    m_residual.RemoveAll();
    m_rms.SetXYZ(-1.0, -1.0, 0.0);
    m_max.Init();
}

void CHelmert::Copy(const CHelmert& src) {
    m_para.RemoveAll();
    m_para.Append(src.m_para);
    m_target.RemoveAll();
    m_target.Append(src.m_target);
    m_source.RemoveAll();
    m_source.Append(src.m_source);
    m_residual.RemoveAll();
    m_residual.Append(src.m_residual);
    m_rms = src.m_rms;
    m_max = src.m_max;
}

int CHelmert::SetPoints(kel_templ::CKelArray<CXYZ, CXYZ&>& first,
                        kel_templ::CKelArray<CXYZ, CXYZ&>& second) {
    return kel_geom::PairPointsByName(first, second, m_target, m_source);
}

int CHelmert::CalPara() {
    const int num = m_target.GetSize();
    if (num != m_source.GetSize()) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalPara() num != p1.GetSize()");
        return 0;
    }
    if (num < 2) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalPara() num < 2");
        return 0;
    }
    CLeastSq obeq(2 * num, 4);
    for (int i = 0; i < num; ++i) {
        const CXYZ& s = m_source[i];
        const CXYZ& t = m_target[i];
        obeq.SetObeq(0, s.x);
        obeq.SetObeq(1, -s.y);
        obeq.SetObeq(2, 1.0);
        obeq.SetObeq(3, 0.0);
        obeq.SetObeq(4, t.x);
        obeq.SetObeq(0, s.y);
        obeq.SetObeq(1, s.x);
        obeq.SetObeq(2, 0.0);
        obeq.SetObeq(3, 1.0);
        obeq.SetObeq(4, t.y);
    }
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalPara() obeq.Solve() == FALSE");
        return 0;
    }
    m_para.SetSize(4, 0.0);
    for (int k = 0; k < 4; ++k) m_para[k] = obeq.GetBcor(k);
    CalResiduals();
    return 1;
}

int CHelmert::Transform(const CXYZ& in, CXYZ& out, int forward) {
    if (m_para.GetSize() != 4) {
        KEL_TRACE_ALWAYS(L"CHelmert::Transform()");
        return 0;
    }
    const double a = m_para[0], b = m_para[1], c = m_para[2], d = m_para[3];
    if (forward) {
        const double x = a * in.x - b * in.y + c;
        const double y = b * in.x + a * in.y + d;
        out.x = x;
        out.y = y;
        return 1;
    }
    const double D = a * a + b * b;
    if (D == 0.0) {
        KEL_TRACE_ALWAYS(L"CHelmert::Transform() D == 0.0");
        return 0;
    }
    const double inv = 1.0 / D;
    const double dx = in.x - c, dy = in.y - d;
    out.x = (a * dx + b * dy) * inv;
    out.y = (a * dy - b * dx) * inv;
    return 1;
}

int CHelmert::CalResiduals() {
    if (m_para.GetSize() != 4) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalResiduals()");
        return 0;
    }
    const int num = m_target.GetSize();
    if (num != m_source.GetSize()) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalResiduals() num != p1.GetSize()");
        return 0;
    }
    if (num <= 0) {
        KEL_TRACE_ALWAYS(L"CHelmert::CalResiduals() num <= 0");
        return 0;
    }
    m_residual.SetSize(num);
    m_rms.SetXYZ(0.0, 0.0, 0.0);
    m_max.Init();
    double sx = 0.0, sy = 0.0;
    for (int i = 0; i < num; ++i) {
        CXYZ t = m_source[i];
        if (!Transform(m_source[i], t, 1)) return 0;
        CXYZ r = t - m_target[i];
        r.m_name = m_target[i].m_name;
        m_residual[i] = r;
        sx += r.x * r.x;
        sy += r.y * r.y;
        if (std::fabs(r.x) > std::fabs(m_max.x)) m_max.x = r.x;
        if (std::fabs(r.y) > std::fabs(m_max.y)) m_max.y = r.y;
    }
    m_rms.x = std::sqrt(sx * (1.0 / num));
    m_rms.y = std::sqrt(sy * (1.0 / num));
    return 1;
}
