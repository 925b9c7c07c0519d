#include "photogrammetry/SinOri.h"

#include <cfloat>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include "adjustment/LeastSq.h"
#include "geometry/NamePairing.h"
#include "photogrammetry/ControlSpread.h"
#include "photogrammetry/Dlt.h"
#include "photogrammetry/Helmert.h"
#include "platform/KelMath.h"
#include "platform/Trace.h"

CSinOri::CSinOri() { Init(); }

CSinOri::CSinOri(const CSinOri& src) : CSinOri() { Copy(src); }

CSinOri& CSinOri::operator=(const CSinOri& src) {
    if (this != &src) Copy(src);
    return *this;
}

CSinOri::~CSinOri() = default;

void CSinOri::Init() {
    m_focal = 1.0;
    m_obj.RemoveAll();
    m_phc.RemoveAll();
    m_iteLim = kDefaultIteLim;
    m_dStdLim = 1e-6;
    m_stdLim = 1e-12;
    m_rotSys = ROT_KPW;
    InitParam();
}

void CSinOri::InitParam() {
    m_pos.Init();
    m_ang = CWPK();
    m_rot = CRot();
    m_res.RemoveAll();
    m_rms.SetXYZ(-1.0, -1.0, 0.0);
    for (double& s : m_sigma) s = 0.0;
    m_lastStep[0] = m_lastStep[1] = 0.0;
    m_ite = 0;
}

void CSinOri::Copy(const CSinOri& src) {
    m_focal = src.m_focal;
    m_obj.RemoveAll();
    m_obj.Append(src.m_obj);
    m_phc.RemoveAll();
    m_phc.Append(src.m_phc);
    m_pos = src.m_pos;
    m_ang = src.m_ang;
    m_rot = src.m_rot;
    m_res.RemoveAll();
    m_res.Append(src.m_res);
    m_rms = src.m_rms;
    m_iteLim = src.m_iteLim;
    m_dStdLim = src.m_dStdLim;
    m_stdLim = src.m_stdLim;
    m_rotSys = src.m_rotSys;
    for (int k = 0; k < 6; ++k) m_sigma[k] = src.m_sigma[k];
    m_lastStep[0] = src.m_lastStep[0];
    m_lastStep[1] = src.m_lastStep[1];
    m_ite = src.m_ite;
}

int CSinOri::Create(kel_templ::CKelArray<CXYZ, CXYZ&>& obj,
                    kel_templ::CKelArray<CXYZ, CXYZ&>& phc, double focal) {
    const int num = kel_geom::PairPointsByName(obj, phc, m_obj, m_phc);
    if (num < 3 || !(focal > 0.0)) return 0;
    m_focal = focal;
    return 1;
}

namespace {

typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;

// Holds the trace lines written while it lives; Release hands them on to the sink that was
// installed before, the destructor drops what was not released. Used for attempts that are
// followed by another attempt when they fail (the library runs on one thread).
class TraceHold {
public:
    TraceHold() {
        kel_trace::GetTraceSink(&m_sink, &m_context);
        kel_trace::SetTraceSink(&Keep, this);
    }
    ~TraceHold() { kel_trace::SetTraceSink(m_sink, m_context); }
    void Release() {
        kel_trace::SetTraceSink(m_sink, m_context);
        for (const auto& line : m_lines) kel_trace::TraceLine(line.first, L"%s", line.second.c_str());
        m_lines.clear();
    }

private:
    static void Keep(void* context, int level, const wchar_t* line) {
        static_cast<TraceHold*>(context)->m_lines.emplace_back(level, line);
    }
    kel_trace::TraceSink m_sink = nullptr;
    void* m_context = nullptr;
    std::vector<std::pair<int, std::wstring>> m_lines;
};

void Shift(Points& pts, const CXYZ& by) {
    for (int i = 0; i < pts.GetSize(); ++i) {
        pts[i].x -= by.x;
        pts[i].y -= by.y;
        pts[i].z -= by.z;
    }
}

double PhotoExtent(const Points& phc) {
    double e = 0.0;
    for (int i = 0; i < phc.GetSize(); ++i) e = std::fmax(e, std::hypot(phc[i].x, phc[i].y));
    return e;
}

}  // namespace

int CSinOri::CalSinOri() {
    InitParam();
    const int n0 = m_obj.GetSize(), n1 = m_phc.GetSize();
    if (n0 < 4 || n0 != n1) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalSinOri n0 < 4 || n0 != n1");
        return 0;
    }
    if (PhotoExtent(m_phc) > kel_photo::kMaxFieldRatio * m_focal) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalSinOri extent > kMaxFieldRatio * m_focal");
        return 0;
    }
    const Points kept(m_obj);
    const CXYZ origin = kel_photo::CalControlSpread(m_obj).centroid;
    Shift(m_obj, origin);
    const int ok = SolveAnyStart();
    m_obj = kept;
    m_pos += origin;
    if (!ok) return 0;
    CalResiduals();
    return 1;
}

int CSinOri::SolveFrom(int start) {
    InitParam();
    const int started = start == 2 ? CalInitExt2() : CalInitExt(start == 0 ? 1 : 0);
    return started && SinIte() && CheckSolution();
}

int CSinOri::SolveAnyStart(int* direct) {
    const kel_photo::ControlSpread spread = kel_photo::CalControlSpread(m_obj);
    const int coplanar = spread.IsCoplanar();
    const int first = m_obj.GetSize() >= 6 && !coplanar ? 0 : 1;
    if (direct) *direct = 0;
    for (int start = first; start < 2; ++start) {
        TraceHold hold;
        if (SolveFrom(start)) {
            hold.Release();
            if (direct) *direct = start == 0 || coplanar ? 1 : 0;
            return 1;
        }
    }
    return SolveFrom(2);
}

int CSinOri::CheckSolution() {
    const int num = m_obj.GetSize();
    const double v[6] = {m_pos.x, m_pos.y, m_pos.z, m_ang.omega, m_ang.phi, m_ang.kappa};
    for (const double x : v) {
        if (!std::isfinite(x)) {
            KEL_TRACE_ALWAYS(L"CSinOri::CheckSolution !std::isfinite( m_pos, m_ang )");
            return 0;
        }
    }
    CXYZ centroid(0.0, 0.0, 0.0);
    for (int i = 0; i < num; ++i) {
        centroid += m_obj[i];
        double X = 0, Y = 0, Z = 0;
        m_rot.Rotate(m_obj[i].x - m_pos.x, m_obj[i].y - m_pos.y, m_obj[i].z - m_pos.z, X, Y, Z);
        if (!(Z < 0.0)) {
            KEL_TRACE_ALWAYS(L"CSinOri::CheckSolution Z >= 0.0");
            return 0;
        }
    }
    if (num > 0) centroid /= static_cast<double>(num);
    const double size = m_pos.Len(centroid);
    if (!(m_lastStep[0] <= kMaxLastStep * size) || !(m_lastStep[1] <= kMaxLastStep)) {
        KEL_TRACE_ALWAYS(L"CSinOri::CheckSolution step > kMaxLastStep");
        return 0;
    }
    if (!CalResiduals()) return 0;
    if (!(m_rms.Len() <= kMaxRmsRatio * PhotoExtent(m_phc))) {
        KEL_TRACE_ALWAYS(L"CSinOri::CheckSolution rms > kMaxRmsRatio * extent");
        return 0;
    }
    return 1;
}

int CSinOri::CalInitExt(int spatial) {
    CDlt dlt;
    if (spatial) {
        if (!dlt.Create(m_obj, m_phc, m_focal) || !dlt.CalDlt3D()) return 0;
        m_pos = dlt.m_pos;
        m_rot = dlt.m_rot;
    } else {
        // The plane DLT in the plane's own frame (u, v in the plane, w dropped), so that a wall
        // in front of a horizontal camera starts as well as the ground below a vertical one.
        const kel_photo::ControlSpread spread = kel_photo::CalControlSpread(m_obj);
        Points plane(m_obj);
        for (int i = 0; i < plane.GetSize(); ++i) {
            const CXYZ q = spread.ToPlane(m_obj[i]);
            plane[i].SetXYZ(q.x, q.y, 0.0);
        }
        if (!dlt.Create(plane, m_phc, m_focal) || !dlt.CalDlt2D()) return 0;
        m_pos = spread.centroid + spread.FromPlane(dlt.m_pos.x, dlt.m_pos.y, dlt.m_pos.z);
        CRot q;
        for (int r = 0; r < 3; ++r)
            for (int c = 0; c < 3; ++c) q.m[r * 3 + c] = spread.axis[r][c];
        m_rot = dlt.m_rot * q;
    }
    m_ang = CWPK(0.0, 0.0, 0.0);
    m_rot.CalAngle(m_rotSys, m_ang);
    m_rot.SetMatrix(m_rotSys, m_ang);
    return 1;
}

int CSinOri::CalInitExt2() {
    const int num = m_obj.GetSize();
    if (num <= 0) return 0;
    CXYZ ref(0.0, 0.0, 0.0);
    for (int i = 0; i < num; ++i) ref += m_obj[i];
    ref /= static_cast<double>(num);
    kel_templ::CKelArray<CXYZ, CXYZ&> reduced;
    for (int i = 0; i < num; ++i) {
        CXYZ p = m_obj[i];
        p -= ref;
        reduced.Add(p);
    }
    CHelmert hlmt;
    hlmt.SetPoints(reduced, m_phc);
    if (!hlmt.CalPara()) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalInitExt2 !hlmt.CalPara()");
        return 0;
    }
    const double a = hlmt.m_para[0], b = hlmt.m_para[1];
    const double m = std::sqrt(a * a + b * b);
    m_ang = CWPK(0.0, 0.0, 0.0);
    m_pos.SetXYZ(0.0, 0.0, 0.0);
    if (m > 0.001) {
        m_ang.kappa = -std::atan2(b / m, a / m);
        m_pos.SetXYZ(hlmt.m_para[2] + ref.x, hlmt.m_para[3] + ref.y, m_focal * m + ref.z);
    }
    m_rot.SetMatrix(m_rotSys, m_ang);
    return 1;
}

namespace {

void Elementary(int axis, double a, double* r, bool derivative) {
    const double c = std::cos(a), s = std::sin(a);
    for (int k = 0; k < 9; ++k) r[k] = 0.0;
    const double cc = derivative ? -s : c, ss = derivative ? c : s;
    switch (axis) {
        case 0:  // Rx
            r[0] = derivative ? 0.0 : 1.0;
            r[4] = cc;
            r[5] = -ss;
            r[7] = ss;
            r[8] = cc;
            break;
        case 1:  // Ry
            r[4] = derivative ? 0.0 : 1.0;
            r[0] = cc;
            r[2] = ss;
            r[6] = -ss;
            r[8] = cc;
            break;
        default:  // Rz
            r[8] = derivative ? 0.0 : 1.0;
            r[0] = cc;
            r[1] = -ss;
            r[3] = ss;
            r[4] = cc;
    }
}

void Mul(const double* a, const double* b, double* out) {
    double t[9];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            t[i * 3 + j] = a[i * 3] * b[j] + a[i * 3 + 1] * b[3 + j] + a[i * 3 + 2] * b[6 + j];
    for (int k = 0; k < 9; ++k) out[k] = t[k];
}

// The product of the elementary rotations (or their derivative for one axis) in the order of
// the system: ROT_WPK is Rz(kappa) Ry(phi) Rx(omega), ROT_KPW Rx(omega) Ry(phi) Rz(kappa).
void Compose(const int order[3], const double ang[3], int differentiate, double* out) {
    double f[9];
    Elementary(order[0], ang[order[0]], out, order[0] == differentiate);
    for (int k = 1; k < 3; ++k) {
        Elementary(order[k], ang[order[k]], f, order[k] == differentiate);
        Mul(out, f, out);
    }
}

}  // namespace

int CSinOri::CalCorp(ROT_SYSTEM sys, CWPK& ang, double* dR1, double* dR2, double* dR3) {
    const double a[3] = {ang.omega, ang.phi, ang.kappa};
    double* d[3] = {dR1, dR2, dR3};
    switch (sys) {
        case ROT_W:
        case ROT_P:
        case ROT_K: {
            const int axis = static_cast<int>(sys);
            for (int k = 0; k < 3; ++k) {
                if (k == axis)
                    Elementary(axis, a[axis], d[k], true);
                else
                    for (int j = 0; j < 9; ++j) d[k][j] = 0.0;
            }
            return 1;
        }
        case ROT_WPK: {
            const int order[3] = {2, 1, 0};
            for (int k = 0; k < 3; ++k) Compose(order, a, k, d[k]);
            return 1;
        }
        case ROT_KPW: {
            const int order[3] = {0, 1, 2};
            for (int k = 0; k < 3; ++k) Compose(order, a, k, d[k]);
            return 1;
        }
    }
    return 0;
}

int CSinOri::SinIte() {
    const int nGcp = m_obj.GetSize(), nPhc = m_phc.GetSize();
    if (nGcp < 3 || nGcp != nPhc) {
        KEL_TRACE_ALWAYS(L"CSinOri::SinIte nGcp < 3 || nGcp != nPhc");
        return 0;
    }
    CLeastSq obeq(2 * nGcp, 6);
    double prevStd = DBL_MAX;
    const double c = m_focal;
    for (int ite = 0; ite < m_iteLim;) {
        obeq.InitObeq();
        obeq.InitNoeq();
        obeq.InitBcor();
        double d[3][9];
        if (!CalCorp(m_rotSys, m_ang, d[0], d[1], d[2])) return 0;
        const double* r = m_rot.m;
        for (int i = 0; i < nGcp; ++i) {
            const double p[3] = {m_obj[i].x - m_pos.x, m_obj[i].y - m_pos.y,
                                 m_obj[i].z - m_pos.z};
            const double X = r[0] * p[0] + r[1] * p[1] + r[2] * p[2];
            const double Y = r[3] * p[0] + r[4] * p[1] + r[5] * p[2];
            const double Z = r[6] * p[0] + r[7] * p[1] + r[8] * p[2];
            const double z2 = Z * Z;
            double rx[7], ry[7];
            for (int k = 0; k < 3; ++k) {
                rx[k] = c * (r[k] * Z - r[6 + k] * X) / z2;
                ry[k] = c * (r[3 + k] * Z - r[6 + k] * Y) / z2;
            }
            for (int k = 0; k < 3; ++k) {
                const double* dr = d[k];
                const double dX = dr[0] * p[0] + dr[1] * p[1] + dr[2] * p[2];
                const double dY = dr[3] * p[0] + dr[4] * p[1] + dr[5] * p[2];
                const double dZ = dr[6] * p[0] + dr[7] * p[1] + dr[8] * p[2];
                rx[3 + k] = -c * (dX * Z - X * dZ) / z2;
                ry[3 + k] = -c * (dY * Z - Y * dZ) / z2;
            }
            rx[6] = m_phc[i].x - (-c * X / Z);
            ry[6] = m_phc[i].y - (-c * Y / Z);
            for (int j = 0; j < 7; ++j) obeq.SetObeq(j, rx[j]);
            for (int j = 0; j < 7; ++j) obeq.SetObeq(j, ry[j]);
        }
        m_ite = ite + 1;
        if (!obeq.Solve()) return 0;
        m_lastStep[0] = std::sqrt(obeq.GetBcor(0) * obeq.GetBcor(0) +
                                  obeq.GetBcor(1) * obeq.GetBcor(1) +
                                  obeq.GetBcor(2) * obeq.GetBcor(2));
        m_lastStep[1] = std::fmax(std::fabs(obeq.GetBcor(3)),
                                  std::fmax(std::fabs(obeq.GetBcor(4)), std::fabs(obeq.GetBcor(5))));
        m_pos.x += obeq.GetBcor(0);
        m_pos.y += obeq.GetBcor(1);
        m_pos.z += obeq.GetBcor(2);
        m_ang.omega += obeq.GetBcor(3);
        m_ang.phi += obeq.GetBcor(4);
        m_ang.kappa += obeq.GetBcor(5);
        m_ang.Normalize();
        m_rot.SetMatrix(m_rotSys, m_ang);
        for (int k = 0; k < 6; ++k) {
            const double v = obeq.GetCovar(k, k);
            m_sigma[k] = v > 0.0 ? std::sqrt(v) : 0.0;
        }
        const double std = obeq.CalStandard2();
        if (std <= m_stdLim) {
            KEL_TRACE_ALWAYS(L"CSinOri::SinIte std <= m_stdLim");
            return 1;
        }
        if (std::fabs((std - prevStd) / prevStd) <= m_dStdLim) return 1;
        ++ite;
        prevStd = std;
    }
    KEL_TRACE_ALWAYS(L"CSinOri::SinIte ite >= m_iteLim");
    return 0;
}

int CSinOri::CalSinOri2() {
    const int n = m_obj.GetSize();
    if (n < 4 || n != m_phc.GetSize()) return 0;
    if (PhotoExtent(m_phc) > kel_photo::kMaxFieldRatio * m_focal) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalSinOri2 extent > kMaxFieldRatio * m_focal");
        return 0;
    }
    const Points kept(m_obj);
    const CXYZ origin = kel_photo::CalControlSpread(m_obj).centroid;
    Points local(m_obj);
    Shift(local, origin);
    const double stopRms = kStopRmsRatio * PhotoExtent(m_phc);
    static const double first[] = {0, 45, -45, 90, -90};
    static const double second[] = {0, 45, -45, 90, -90, 135, -135, 180};
    const double toRad = kel_math::kPi * (1.0 / 180.0);
    double best = DBL_MAX;
    int direct = 0;
    CRot bestR, bestRot;
    CXYZ bestPos;
    {
        TraceHold quiet;
        for (int o = 0; o < 5 && best > stopRms && !direct; ++o) {
            for (int k = 0; k < 8 && best > stopRms && !direct; ++k) {
                CRot R;
                R.SetMatrix(m_rotSys, CWPK(first[o] * toRad, second[k] * toRad, 0.0));
                for (int i = 0; i < n; ++i) R.Rotate(local[i], m_obj[i]);
                // The DLT starts give the same camera in every turned frame (the DLT does not
                // depend on the object frame's orientation): only the first trial takes them;
                // every trial takes the start of a camera looking along its turned vertical.
                const int ok = o == 0 && k == 0 ? SolveAnyStart(&direct) : SolveFrom(2);
                if (!ok || !(m_rms.Len() < best)) continue;
                best = m_rms.Len();
                bestR = R;
                bestRot = m_rot;
                bestPos = m_pos;
            }
        }
    }
    m_obj = local;
    InitParam();
    if (best == DBL_MAX) {
        m_obj = kept;
        KEL_TRACE_ALWAYS(L"CSinOri::CalSinOri2 best == DBL_MAX");
        return 0;
    }
    // Camera frame = S (R P - C') = (S R) (P - R^T C'): the centre turns back with R^T and the
    // rotation becomes S R. One more iteration in the given frame gives the standard errors of
    // these unknowns (the trial's belong to the turned frame).
    CRot Rt = bestR;
    Rt.T();
    m_pos = Rt * bestPos;
    const CRot rot = bestRot * bestR;
    m_ang = CWPK(0.0, 0.0, 0.0);
    rot.CalAngle(m_rotSys, m_ang);
    m_rot.SetMatrix(m_rotSys, m_ang);
    const int ok = SinIte() && CheckSolution();
    m_obj = kept;
    m_pos += origin;
    if (!ok) return 0;
    CalResiduals();
    return 1;
}

int CSinOri::CalResiduals() {
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalResiduals num != m_phc.GetSize()");
        return 0;
    }
    if (num <= 0) {
        KEL_TRACE_ALWAYS(L"CSinOri::CalResiduals num <= 0");
        return 0;
    }
    m_res.SetSize(num);
    double sx = 0.0, sy = 0.0;
    for (int i = 0; i < num; ++i) {
        CXYZ p;
        if (!ObjToPhc(m_obj[i], p)) return 0;
        CXYZ r = p - m_phc[i];
        r.m_name = m_phc[i].m_name;
        m_res[i] = r;
        sx += r.x * r.x;
        sy += r.y * r.y;
    }
    m_rms.SetXYZ(std::sqrt(sx / num), std::sqrt(sy / num), 0.0);
    return 1;
}

int CSinOri::ObjToPhc(const CXYZ& obj, CXYZ& phc) {
    double X = 0, Y = 0, Z = 0;
    m_rot.Rotate(obj.x - m_pos.x, obj.y - m_pos.y, obj.z - m_pos.z, X, Y, Z);
    if (Z == 0.0) {
        KEL_TRACE_ALWAYS(L"CSinOri::ObjToPhc Z == 0.0");
        return 0;
    }
    phc.m_name = obj.m_name;
    phc.x = -m_focal * X / Z;
    phc.y = -m_focal * Y / Z;
    return 1;
}
