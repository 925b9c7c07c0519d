// The iterative and the self-calibrating solutions of CDlt.
#include <cfloat>
#include <cmath>

#include "adjustment/LeastSq.h"
#include "photogrammetry/ControlSpread.h"
#include "photogrammetry/Dlt.h"
#include "platform/Trace.h"

namespace {

// The shared stop rules: 1 stop with success, 0 go on, -1 iteration limit reached. ite and
// prevStd are advanced here.
int StopRule(const wchar_t* name, double std, double& prevStd, int& ite, int iteLim,
             double stdLim, double dStdLim) {
    if (std <= stdLim) {
        KEL_TRACE_ALWAYS(L"%s std <= m_stdLim", name);
        return 1;
    }
    if (std::fabs((std - prevStd) / prevStd) <= dStdLim) return 1;
    ++ite;
    prevStd = std;
    if (ite >= iteLim) {
        KEL_TRACE_ALWAYS(L"%s ite >= m_iteLim", name);
        return -1;
    }
    return 0;
}

}  // namespace

// Gauss-Newton on b1..b11, started from the linear spatial solution (CalDlt3D): a start from
// the plane solution, with the Z terms at 0, is far off for any camera that does not look
// roughly along the vertical and may run into a false minimum. The rows are the NEGATED
// Jacobian of the spatial DLT at the current values, with the misclosure measured minus
// computed as observation; so the solution is minus the Gauss-Newton step and
// b := b - correction moves towards the solution. (Rows equal to the Jacobian with
// b - correction would walk away from it.) When the iteration ends with a larger RMS residual
// than the linear solution had, the linear solution is returned.
int CDlt::CalDltIte3D() {
    BeginLocal();
    return EndLocal(Ite3D());
}

int CDlt::Ite3D() {
    static const wchar_t kName[] = L"CDlt::CalDltIte3D";
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDltIte3D num != m_phc.GetSize()");
        m_b.RemoveAll();
        return 0;
    }
    if (num < 6) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDltIte3D num < 6");
        m_b.RemoveAll();
        return 0;
    }
    if (kel_photo::CalControlSpread(m_obj).IsCoplanar()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDltIte3D IsCoplanar()");
        m_b.RemoveAll();
        return 0;
    }
    if (!Dlt3D()) return 0;
    const kel_templ::CKelArray<double, double> linear(m_b);
    const double linearRms = m_rms.Len();

    double prevStd = DBL_MAX;
    int ite = 0, passes = 0;
    CLeastSq obeq(2 * num, 11);
    for (;;) {
        m_ite = ++passes;
        obeq.InitObeq();
        obeq.InitNoeq();
        obeq.InitBcor();
        const double* b = m_b.GetData();
        for (int i = 0; i < num; ++i) {
            const CXYZ P = Local(i);
            const double D = b[8] * P.x + b[9] * P.y + b[10] * P.z + 1.0;
            const double x = (b[0] * P.x + b[1] * P.y + b[2] * P.z + b[3]) / D;
            const double y = (b[4] * P.x + b[5] * P.y + b[6] * P.z + b[7]) / D;
            const double rx[12] = {-P.x / D, -P.y / D, -P.z / D, -1.0 / D, 0, 0, 0, 0,
                                   x * P.x / D, x * P.y / D, x * P.z / D, m_phc[i].x - x};
            const double ry[12] = {0, 0, 0, 0, -P.x / D, -P.y / D, -P.z / D, -1.0 / D,
                                   y * P.x / D, y * P.y / D, y * P.z / D, m_phc[i].y - y};
            for (int j = 0; j < 12; ++j) obeq.SetObeq(j, rx[j]);
            for (int j = 0; j < 12; ++j) obeq.SetObeq(j, ry[j]);
        }
        if (!obeq.Solve()) {
            KEL_TRACE_ALWAYS(L"CDlt::CalDltIte3D obeq.Solve() == FALSE");
            m_b.RemoveAll();
            return 0;
        }
        for (int k = 0; k < 11; ++k) m_b[k] -= obeq.GetBcor(k);
        if (!CalOrientation()) {
            m_b.RemoveAll();
            return 0;
        }
        const int stop = StopRule(kName, obeq.CalStandard2(), prevStd, ite, m_iteLim, m_stdLim,
                                  m_dStdLim);
        if (stop == 1) break;
        if (stop == -1) {
            m_dist.Init();
            m_b.RemoveAll();
            return 0;
        }
    }
    if (!CalResiduals() || !(m_rms.Len() <= linearRms)) {
        m_b = linear;
        if (!CalOrientation()) {
            m_b.RemoveAll();
            return 0;
        }
        CalResiduals();
    }
    return 1;
}

int CDlt::SelfCalib(const wchar_t* name, DIST_MODEL model, int nDist) {
    BeginLocal();
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"%s num != m_phc.GetSize()", name);
        m_b.RemoveAll();
        return EndLocal(0);
    }
    if (num < 8) {
        KEL_TRACE_ALWAYS(L"%s num < 8", name);
        m_b.RemoveAll();
        return EndLocal(0);
    }
    if (kel_photo::CalControlSpread(m_obj).IsCoplanar()) {
        KEL_TRACE_ALWAYS(L"%s IsCoplanar()", name);
        m_b.RemoveAll();
        return EndLocal(0);
    }
    if (!ChooseDlt()) return EndLocal(0);
    if (m_b.GetSize() != 11) {
        // The plane solution won: there is no spatial start to calibrate from.
        KEL_TRACE_ALWAYS(L"%s m_b.GetSize() != 11", name);
        m_b.RemoveAll();
        return EndLocal(0);
    }
    m_dist.SetDistModel(model);
    for (int k = 0; k < nDist; ++k) m_dist.m_para[k] = 0.0;
    double prevStd = DBL_MAX;
    int ite = 0, passes = 0;
    const int nUnknown = 11 + nDist;
    for (;;) {
        m_ite = ++passes;
        CLeastSq obeq(nUnknown);
        const double* b = m_b.GetData();
        for (int i = 0; i < num; ++i) {
            const CXYZ P = Local(i);
            const double x = m_phc[i].x, y = m_phc[i].y;
            const double xb = x - m_pp.x, yb = y - m_pp.y;
            const double r2 = xb * xb + yb * yb, r4 = r2 * r2, r6 = r4 * r2, r8 = r6 * r2;
            const double w = 1.0 / (b[8] * P.x + b[9] * P.y + b[10] * P.z + 1.0);
            double dx[5], dy[5];
            if (model == DIST_K1K2K3K4) {
                const double f[4] = {r2, r4, r6, r8};
                for (int k = 0; k < 4; ++k) {
                    dx[k] = -f[k] * xb;
                    dy[k] = -f[k] * yb;
                }
            } else {
                const double f[3] = {r2, r4, r6};
                const int radial = nDist - 2;
                for (int k = 0; k < radial; ++k) {
                    dx[k] = -f[k] * xb;
                    dy[k] = -f[k] * yb;
                }
                dx[radial] = -(2 * xb * xb + r2);
                dx[radial + 1] = -2 * xb * yb;
                dy[radial] = -2 * xb * yb;
                dy[radial + 1] = -(2 * yb * yb + r2);
            }
            const double rx[11] = {w * P.x, w * P.y, w * P.z, w, 0, 0, 0, 0,
                                   -w * x * P.x, -w * x * P.y, -w * x * P.z};
            const double ry[11] = {0, 0, 0, 0, w * P.x, w * P.y, w * P.z, w,
                                   -w * y * P.x, -w * y * P.y, -w * y * P.z};
            for (int j = 0; j < 11; ++j) obeq.SetObeq(j, rx[j]);
            for (int k = 0; k < nDist; ++k) obeq.SetObeq(11 + k, dx[k]);
            obeq.SetObeq(nUnknown, w * x);
            for (int j = 0; j < 11; ++j) obeq.SetObeq(j, ry[j]);
            for (int k = 0; k < nDist; ++k) obeq.SetObeq(11 + k, dy[k]);
            obeq.SetObeq(nUnknown, w * y);
        }
        if (!obeq.Solve()) {
            KEL_TRACE_ALWAYS(L"%s obeq.Solve() == FALSE", name);
            m_b.RemoveAll();
            return EndLocal(0);
        }
        for (int k = 0; k < 11; ++k) m_b[k] = obeq.GetBcor(k);
        for (int k = 0; k < nDist; ++k) m_dist.m_para[k] = obeq.GetBcor(11 + k);
        CalPrincipalPoint();
        const int stop = StopRule(name, obeq.CalStandard2(), prevStd, ite, m_iteLim, m_stdLim,
                                  m_dStdLim);
        if (stop == 1) break;
        if (stop == -1) {
            m_b.RemoveAll();
            m_dist.Init();
            return EndLocal(0);
        }
    }
    if (!CalOrientation()) {
        m_b.RemoveAll();
        return EndLocal(0);
    }
    CalResiduals();
    return EndLocal(1);
}

int CDlt::CalDltSelfCalib_k1k2k3k4() {
    return SelfCalib(L"CDlt::CalDltSelfCalib_k1k2k3k4", DIST_K1K2K3K4, 4);
}

int CDlt::CalDltSelfCalib_k1k2p1p2() {
    return SelfCalib(L"CDlt::CalDltSelfCalib_k1k2p1p2", DIST_K1K2P1P2, 4);
}

int CDlt::CalDltSelfCalib_k1k2k3p1p2() {
    return SelfCalib(L"CDlt::CalDltSelfCalib_k1k2k3p1p2", DIST_K1K2K3P1P2, 5);
}
