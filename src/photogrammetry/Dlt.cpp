#include "photogrammetry/Dlt.h"

#include <cfloat>
#include <cmath>

#include "adjustment/LeastSq.h"
#include "geometry/NamePairing.h"
#include "photogrammetry/ControlSpread.h"
#include "platform/Trace.h"

CDlt::CDlt() { Init(); }

CDlt::CDlt(const CDlt& src) : CDlt() { Copy(src); }

CDlt& CDlt::operator=(const CDlt& src) {
    if (this != &src) Copy(src);
    return *this;
}

void CDlt::Init() {
    m_obj.RemoveAll();
    m_phc.RemoveAll();
    m_b.RemoveAll();
    m_res.RemoveAll();
    m_pp.Init();
    m_fixedFocal = m_focal = m_focalX = m_focalY = 0.0;
    m_pos.Init();
    m_ang = CWPK();
    m_rot = CRot();
    m_dist.Init();
    m_rms.SetXYZ(0.0, 0.0, 0.0);
    m_iteLim = kDefaultIteLim;
    m_dStdLim = 1e-6;
    m_stdLim = 1e-12;
    m_info.Empty();
    m_fixedPp.SetXYZ(0.0, 0.0, 0.0);
    m_origin.SetXYZ(0.0, 0.0, 0.0);
    m_ite = 0;
}

void CDlt::InitParam() {
    m_b.RemoveAll();
    m_pp.Init();
    m_focal = 0.0;
    m_ang = CWPK();
    m_rot = CRot();
    m_dist.Init();
    m_res.RemoveAll();
    m_rms.SetXYZ(0.0, 0.0, 0.0);
    m_info.Empty();
    m_ite = 0;
}

void CDlt::Copy(const CDlt& src) {
    m_obj.RemoveAll();
    m_obj.Append(src.m_obj);
    m_phc.RemoveAll();
    m_phc.Append(src.m_phc);
    m_b.RemoveAll();
    m_b.Append(src.m_b);
    m_fixedFocal = src.m_fixedFocal;
    m_focal = src.m_focal;
    m_focalX = src.m_focalX;
    m_focalY = src.m_focalY;
    m_pp = src.m_pp;
    m_dist = src.m_dist;
    m_pos = src.m_pos;
    m_ang = src.m_ang;
    m_rot = src.m_rot;
    m_res.RemoveAll();
    m_res.Append(src.m_res);
    m_rms = src.m_rms;
    m_iteLim = src.m_iteLim;
    m_dStdLim = src.m_dStdLim;
    m_stdLim = src.m_stdLim;
    m_info = src.m_info;
    m_fixedPp = src.m_fixedPp;
    m_origin = src.m_origin;
    m_ite = src.m_ite;
}

int CDlt::SetPoints(kel_templ::CKelArray<CXYZ, CXYZ&>& obj,
                    kel_templ::CKelArray<CXYZ, CXYZ&>& phc) {
    return kel_geom::PairPointsByName(obj, phc, m_obj, m_phc);
}

int CDlt::Create(kel_templ::CKelArray<CXYZ, CXYZ&>& obj, kel_templ::CKelArray<CXYZ, CXYZ&>& phc,
                 double focal) {
    const int num = SetPoints(obj, phc);
    if (num < 1) {
        KEL_TRACE_ALWAYS(L"CDlt::Create num <= 0");
        return 0;
    }
    if (num < 4) {
        KEL_TRACE_ALWAYS(L"CDlt::Create num < 4");
        return 0;
    }
    m_fixedFocal = focal;
    return 1;
}

// The variant is chosen by the shape of the control rather than by comparing the RMS
// residuals of both: on coplanar control the spatial equations are singular and their
// "solution" fits to rounding level, and on spatial control the plane solution is wrong,
// however small its residuals.
int CDlt::CalDlt() {
    BeginLocal();
    return EndLocal(ChooseDlt());
}

int CDlt::ChooseDlt() {
    const int nGcp = m_obj.GetSize();
    if (nGcp < 1) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt nGcp <= 0");
        return 0;
    }
    if (nGcp < 4) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt nGcp < 4");
        return 0;
    }
    const int coplanar = kel_photo::CalControlSpread(m_obj).IsCoplanar();
    if (nGcp < 6 && !coplanar) {
        InitParam();
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt nGcp < 6 && !coplanar");
        return 0;
    }
    if (!(coplanar ? Dlt2D() : Dlt3D())) return 0;
    if (nGcp < 6)
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt nGcp < 6");
    else if (m_b.GetSize() == 8)
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt m_b.GetSize() == 8");
    else
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt ok");
    return 1;
}

CXYZ CDlt::Local(int i) const {
    const CXYZ& p = m_obj[i];
    return CXYZ(p.x - m_origin.x, p.y - m_origin.y, p.z - m_origin.z);
}

void CDlt::BeginLocal() { m_origin = kel_photo::CalControlSpread(m_obj).centroid; }

// With O the local origin and b' the parameters in the reduced frame, the denominator at a
// caller point P is b'.(P - O) + 1 = b'.P + d0 with d0 = 1 - b'.O; dividing numerators and
// denominator by d0 gives the parameters of the caller's frame. d0 = 0 (the caller's origin on
// the camera's vanishing plane) has no such form.
int CDlt::EndLocal(int r) {
    const CXYZ o = m_origin;
    m_origin.SetXYZ(0.0, 0.0, 0.0);
    if (!r) return 0;
    const int n = m_b.GetSize();
    double* b = m_b.GetData();
    if (n == 11) {
        const double d0 = 1.0 - (b[8] * o.x + b[9] * o.y + b[10] * o.z);
        if (d0 == 0.0) {
            KEL_TRACE_ALWAYS(L"CDlt::EndLocal d0 == 0.0");
            m_b.RemoveAll();
            return 0;
        }
        b[3] -= b[0] * o.x + b[1] * o.y + b[2] * o.z;
        b[7] -= b[4] * o.x + b[5] * o.y + b[6] * o.z;
        for (int k = 0; k < 11; ++k) b[k] /= d0;
    } else if (n == 8) {
        const double d0 = 1.0 - (b[6] * o.x + b[7] * o.y);
        if (d0 == 0.0) {
            KEL_TRACE_ALWAYS(L"CDlt::EndLocal d0 == 0.0");
            m_b.RemoveAll();
            return 0;
        }
        b[2] -= b[0] * o.x + b[1] * o.y;
        b[5] -= b[3] * o.x + b[4] * o.y;
        for (int k = 0; k < 8; ++k) b[k] /= d0;
    }
    m_pos += o;
    return 1;
}

int CDlt::CalOrientation() {
    return CalPrincipalPoint() && CalFocalLength() && CalCameraPosition() && CalCameraAngle();
}

// Refuses coplanar control (one line): its 11 parameters are then not determined, and an
// absolute pivot test would let a meaningless camera with an RMS at rounding level through.
int CDlt::CalDlt3D() {
    BeginLocal();
    return EndLocal(Dlt3D());
}

int CDlt::Dlt3D() {
    InitParam();
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt3D num != m_phc.GetSize()");
        return 0;
    }
    if (num < 6) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt3D num < 6");
        return 0;
    }
    if (kel_photo::CalControlSpread(m_obj).IsCoplanar()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt3D IsCoplanar()");
        return 0;
    }
    CLeastSq obeq(2 * num, 11);
    for (int i = 0; i < num; ++i) {
        const CXYZ P = Local(i);
        const double x = m_phc[i].x, y = m_phc[i].y;
        const double rx[12] = {P.x, P.y, P.z, 1, 0, 0, 0, 0, -x * P.x, -x * P.y, -x * P.z, x};
        const double ry[12] = {0, 0, 0, 0, P.x, P.y, P.z, 1, -y * P.x, -y * P.y, -y * P.z, y};
        for (int j = 0; j < 12; ++j) obeq.SetObeq(j, rx[j]);
        for (int j = 0; j < 12; ++j) obeq.SetObeq(j, ry[j]);
    }
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt3D obeq.Solve() == FALSE");
        m_b.RemoveAll();
        return 0;
    }
    m_b.SetSize(11, 0.0);
    for (int k = 0; k < 11; ++k) m_b[k] = obeq.GetBcor(k);
    if (!CalOrientation()) {
        m_b.RemoveAll();
        return 0;
    }
    CalResiduals();
    return 1;
}

void CDlt::AddPlaneRows(CLeastSq& obeq) const {
    for (int i = 0; i < m_obj.GetSize(); ++i) {
        const CXYZ P = Local(i);
        const double x = m_phc[i].x, y = m_phc[i].y;
        const double rx[9] = {P.x, P.y, 1, 0, 0, 0, -x * P.x, -x * P.y, x};
        const double ry[9] = {0, 0, 0, P.x, P.y, 1, -y * P.x, -y * P.y, y};
        for (int j = 0; j < 9; ++j) obeq.SetObeq(j, rx[j]);
        for (int j = 0; j < 9; ++j) obeq.SetObeq(j, ry[j]);
    }
}

// Refuses control that is not coplanar (its camera would be wrong however small the residuals),
// planes seen edge-on from above (no map from (X, Y)) and photo points farther than
// kel_photo::kMaxFieldRatio focal lengths from the principal point; takes the principal point
// from m_fixedPp.
int CDlt::CalDlt2D() {
    BeginLocal();
    return EndLocal(Dlt2D());
}

namespace {

// 1 when the points' plan positions (X, Y) spread in two directions, so that a map from (X, Y)
// determines the photo position: not for a vertical plane such as a wall.
int SpreadInPlan(const kel_templ::CKelArray<CXYZ, CXYZ&>& pts, const CXYZ& c) {
    double sxx = 0.0, syy = 0.0, sxy = 0.0;
    for (int i = 0; i < pts.GetSize(); ++i) {
        const double dx = pts[i].x - c.x, dy = pts[i].y - c.y;
        sxx += dx * dx;
        syy += dy * dy;
        sxy += dx * dy;
    }
    const double mean = 0.5 * (sxx + syy);
    const double dev = std::sqrt(0.25 * (sxx - syy) * (sxx - syy) + sxy * sxy);
    return mean - dev > kel_photo::kCoplanarLimit * (mean + dev) ? 1 : 0;
}

}  // namespace

int CDlt::Dlt2D() {
    InitParam();
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D num != m_phc.GetSize()");
        return 0;
    }
    if (num < 4) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D num < 4");
        return 0;
    }
    const kel_photo::ControlSpread spread = kel_photo::CalControlSpread(m_obj);
    if (!spread.IsCoplanar()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D !IsCoplanar()");
        return 0;
    }
    if (!SpreadInPlan(m_obj, spread.centroid)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D !SpreadInPlan()");
        return 0;
    }
    // Pixels given where millimetres belong fit a camera close to the plane exactly.
    double extent = 0.0;
    for (int i = 0; i < num; ++i)
        extent = std::fmax(extent, std::hypot(m_phc[i].x - m_fixedPp.x, m_phc[i].y - m_fixedPp.y));
    if (m_fixedFocal > 0.0 && extent > kel_photo::kMaxFieldRatio * m_fixedFocal) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D extent > kMaxFieldRatio * m_fixedFocal");
        return 0;
    }
    CLeastSq obeq(2 * num, 8);
    AddPlaneRows(obeq);
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalDlt2D obeq.Solve() == FALSE");
        m_b.RemoveAll();
        return 0;
    }
    m_b.SetSize(8, 0.0);
    for (int k = 0; k < 8; ++k) m_b[k] = obeq.GetBcor(k);
    m_focal = m_focalX = m_focalY = m_fixedFocal;
    m_pp.x = m_fixedPp.x;
    m_pp.y = m_fixedPp.y;
    if (!CalExtWithDlt2D()) {
        m_b.RemoveAll();
        return 0;
    }
    CalResiduals();
    return 1;
}

int CDlt::CalPrincipalPoint() {
    if (m_b.GetSize() != 11) {
        KEL_TRACE_ALWAYS(L"CDlt::CalPrincipalPoint m_b.GetSize() != nPara");
        return 0;
    }
    const double* b = m_b.GetData();
    const double D = b[8] * b[8] + b[9] * b[9] + b[10] * b[10];
    if (D == 0.0) {
        KEL_TRACE_ALWAYS(L"CDlt::CalPrincipalPoint D == 0.0");
        return 0;
    }
    const double inv = 1.0 / D;
    m_pp.x = (b[0] * b[8] + b[1] * b[9] + b[2] * b[10]) * inv;
    m_pp.y = (b[4] * b[8] + b[5] * b[9] + b[6] * b[10]) * inv;
    return 1;
}

int CDlt::CalFocalLength() {
    if (m_b.GetSize() != 11) {
        KEL_TRACE_ALWAYS(L"CDlt::CalFocalLength m_b.GetSize() != nPara");
        return 0;
    }
    const double* b = m_b.GetData();
    const double D = b[8] * b[8] + b[9] * b[9] + b[10] * b[10];
    if (D == 0.0) {
        KEL_TRACE_ALWAYS(L"CDlt::CalFocalLength D == 0.0");
        return 0;
    }
    // A negative radicand (parameters that describe no camera) gives NaN; the rotation built
    // from it then fails CalCameraAngle's determinant test.
    m_focalX = std::sqrt((b[0] * b[0] + b[1] * b[1] + b[2] * b[2]) / D - m_pp.x * m_pp.x);
    m_focalY = std::sqrt((b[4] * b[4] + b[5] * b[5] + b[6] * b[6]) / D - m_pp.y * m_pp.y);
    m_focal = (m_focalX + m_focalY) * 0.5;
    return 1;
}

int CDlt::CalCameraPosition() {
    if (m_b.GetSize() != 11) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraPosition m_b.GetSize() != nDltPara");
        return 0;
    }
    const double* b = m_b.GetData();
    CLeastSq obeq(3, 3);
    const double rows[3][4] = {{b[0], b[1], b[2], -b[3]},
                               {b[4], b[5], b[6], -b[7]},
                               {b[8], b[9], b[10], -1.0}};
    for (const auto& r : rows)
        for (int j = 0; j < 4; ++j) obeq.SetObeq(j, r[j]);
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraPosition obeq.Solve() == FALSE");
        return 0;
    }
    m_pos.SetXYZ(obeq.GetBcor(0), obeq.GetBcor(1), obeq.GetBcor(2));
    return 1;
}

// The side check puts the control field in front of the camera: the rotated centroid of the
// object points must have a negative camera z, compared with 0. (Comparing it with -m_focal
// would mix object units with photo millimetres: a 35 mm lens 20 m from its field in metres
// would be turned round.) Turning round changes the sign of all three rows; if the rotation
// is then not proper (determinant not +1, as for a mirrored photo frame or parameters that
// describe no camera) the solution fails.
int CDlt::CalCameraAngle() {
    if (m_b.GetSize() != 11) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraAngle m_b.GetSize() != nPara");
        return 0;
    }
    const double* b = m_b.GetData();
    const double D = b[8] * b[8] + b[9] * b[9] + b[10] * b[10];
    if (D == 0.0) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraAngle D == 0.0");
        return 0;
    }
    auto build = [this, b](double s) {
        double* r = m_rot.m;
        for (int j = 0; j < 3; ++j) r[6 + j] = s * b[8 + j];
        for (int j = 0; j < 3; ++j) r[j] = -(s * b[j] - m_pp.x * r[6 + j]) / m_focalX;
        for (int j = 0; j < 3; ++j) r[3 + j] = -(s * b[4 + j] - m_pp.y * r[6 + j]) / m_focalY;
    };
    build(-1.0 / std::sqrt(D));
    CXYZ centroid(0.0, 0.0, 0.0);
    for (int i = 0; i < m_obj.GetSize(); ++i) centroid += Local(i);
    if (m_obj.GetSize() > 0) centroid /= static_cast<double>(m_obj.GetSize());
    const CXYZ c = m_rot * (centroid - m_pos);
    if (c.z > 0.0) build(1.0 / std::sqrt(D));
    const double* r = m_rot.m;
    const double det = r[0] * (r[4] * r[8] - r[5] * r[7]) - r[1] * (r[3] * r[8] - r[5] * r[6]) +
                       r[2] * (r[3] * r[7] - r[4] * r[6]);
    if (!(det > 0.0)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraAngle !( det > 0.0 )");
        return 0;
    }
    m_ang = CWPK(0.0, 0.0, 0.0);
    if (!m_rot.CalAngle(ROT_KPW, m_ang)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalCameraAngle !m_rot.CalAngle( ROT_KPW, m_ang )");
        return 0;
    }
    return 1;
}

// Exterior orientation of the plane solution, for a camera of focal length c with its principal
// point at m_pp, over the plane of the control points. The second plane fit runs in the
// plane's own frame (u, v in the plane, w along its normal, origin at the control centroid;
// w = 0 up to the control's flatness), from (u, v) to the photo point relative to the
// principal point, so that horizontal and inclined planes decompose alike.
//
// With R' the rotation in the plane frame (rows r1, r2, r3) and C' the centre, a point
// P = (u, v, wm) projects to x = -c r1.(P - C') / r3.(P - C'), and likewise y with r2. Written
// as a plane homography and scaled so that its constant denominator term is 1, with
// mu = 1 / (r33 wm - r3.C'):
//   a1 = -mu c r11, a2 = -mu c r12, a4 = -mu c r21, a5 = -mu c r22, a7 = mu r31, a8 = mu r32,
//   a3 = -mu c (r13 wm - r1.C'), a6 = -mu c (r23 wm - r2.C').
// So the first two columns of R' are (-a1/c, -a4/c, a7) / mu and (-a2/c, -a5/c, a8) / mu: |mu|
// is the mean of their lengths, the columns are made orthonormal (Gram-Schmidt) and the third
// is their cross product. Then r1.C' = r13 wm + a3 / (mu c), r2.C' = r23 wm + a6 / (mu c),
// r3.C' = r33 wm - 1 / mu, and C' = R'^T (r1.C', r2.C', r3.C'). Of the two signs of mu the
// one that puts the control points in front of the camera (negative camera z) is kept. This is
// exact for exact data. (The textbook closed form omega = atan(c a8), phi = atan(-c a7 cos
// omega) is exact too, for the homography fitted the other way round, from photo to object
// points; both are decompositions of the same projection.)
//
// With Q the plane frame (rows: the axes) and G the centroid, the object frame has
// R = R' Q and C = G + Q^T C'. The angles come from R by ROT_KPW and R is rebuilt from them.
int CDlt::CalExtWithDlt2D() {
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D num != m_phc.GetSize()");
        return 0;
    }
    if (num < 4) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D num < 4");
        return 0;
    }
    const double c = m_focal;
    if (!(c > 0.0)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D !( m_focal > 0.0 )");
        return 0;
    }
    const kel_photo::ControlSpread spread = kel_photo::CalControlSpread(m_obj);
    double wm = 0.0;
    CLeastSq obeq(2 * num, 8);
    for (int i = 0; i < num; ++i) {
        const CXYZ P = spread.ToPlane(m_obj[i]);
        wm += P.z;
        const double x = m_phc[i].x - m_pp.x, y = m_phc[i].y - m_pp.y;
        const double rx[9] = {P.x, P.y, 1, 0, 0, 0, -x * P.x, -x * P.y, x};
        const double ry[9] = {0, 0, 0, P.x, P.y, 1, -y * P.x, -y * P.y, y};
        for (int j = 0; j < 9; ++j) obeq.SetObeq(j, rx[j]);
        for (int j = 0; j < 9; ++j) obeq.SetObeq(j, ry[j]);
    }
    wm /= num;
    if (!obeq.Solve()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D obeq.Solve() == FALSE");
        return 0;
    }
    double a[8];
    for (int k = 0; k < 8; ++k) a[k] = obeq.GetBcor(k);
    const double col1[3] = {-a[0] / c, -a[3] / c, a[6]};
    const double col2[3] = {-a[1] / c, -a[4] / c, a[7]};
    const double n1 = std::sqrt(col1[0] * col1[0] + col1[1] * col1[1] + col1[2] * col1[2]);
    const double n2 = std::sqrt(col2[0] * col2[0] + col2[1] * col2[1] + col2[2] * col2[2]);
    const double muAbs = 0.5 * (n1 + n2);
    if (!std::isfinite(muAbs)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D !std::isfinite( mu )");
        return 0;
    }
    if (!(n1 > 1e-12)) {
        KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D n1 <= 1e-12");
        return 0;
    }
    // The local centroid (m_origin is the centroid inside a public solution, but the plane
    // frame does not rely on it).
    CXYZ g = spread.centroid;
    g -= m_origin;
    for (const double sign : {1.0, -1.0}) {
        const double mu = sign * muAbs;
        // Gram-Schmidt on the two scaled columns.
        CXYZ u(col1[0] / n1, col1[1] / n1, col1[2] / n1);
        u *= sign;
        CXYZ v(col2[0] / mu, col2[1] / mu, col2[2] / mu);
        v -= u * u.Inn(v);
        const double nv = v.Len();
        if (!(nv > 1e-12)) {
            KEL_TRACE_ALWAYS(L"CDlt::CalExtWithDlt2D nv <= 1e-12");
            return 0;
        }
        v /= nv;
        const CXYZ w = u.Out(v);
        CRot r;
        const double m[9] = {u.x, v.x, w.x, u.y, v.y, w.y, u.z, v.z, w.z};
        for (int k = 0; k < 9; ++k) r.m[k] = m[k];
        const double t1 = r.m[2] * wm + a[2] / (mu * c);
        const double t2 = r.m[5] * wm + a[5] / (mu * c);
        const double t3 = r.m[8] * wm - 1.0 / mu;
        CRot rt = r;
        rt.T();
        double X0 = 0.0, Y0 = 0.0, Z0 = 0.0;
        rt.Rotate(t1, t2, t3, X0, Y0, Z0);
        if (sign > 0.0 && (r * CXYZ(-X0, -Y0, -Z0)).z >= 0.0) continue;  // behind
        CRot q;
        for (int row = 0; row < 3; ++row)
            for (int col = 0; col < 3; ++col) q.m[row * 3 + col] = spread.axis[row][col];
        m_pos = g + spread.FromPlane(X0, Y0, Z0);
        const CRot full = r * q;
        m_ang = CWPK(0.0, 0.0, 0.0);
        full.CalAngle(ROT_KPW, m_ang);
        m_rot.SetMatrix(ROT_KPW, m_ang);
        return 1;
    }
    return 1;  // not reached: the second sign is always taken
}

int CDlt::CalResiduals() {
    if (m_b.GetSize() != 11 && m_b.GetSize() != 8) {
        KEL_TRACE_ALWAYS(L"CDlt::CalResiduals m_b.GetSize() != 11 && m_b.GetSize() != 8");
        return 0;
    }
    const int num = m_obj.GetSize();
    if (num != m_phc.GetSize()) {
        KEL_TRACE_ALWAYS(L"CDlt::CalResiduals num != m_phc.GetSize()");
        return 0;
    }
    if (num <= 0) {
        KEL_TRACE_ALWAYS(L"CDlt::CalResiduals num <= 0");
        return 0;
    }
    m_res.SetSize(num);
    m_rms.SetXYZ(0.0, 0.0, 0.0);
    double sx = 0.0, sy = 0.0;
    for (int i = 0; i < num; ++i) {
        CXYZ p;
        if (!ObjToPhc(Local(i), p, 1, 1e-12)) return 0;
        CXYZ r = p - m_phc[i];
        r.m_name = m_phc[i].m_name;
        m_res[i] = r;
        sx += r.x * r.x;
        sy += r.y * r.y;
    }
    m_rms.x = std::sqrt(sx / num);
    m_rms.y = std::sqrt(sy / num);
    return 1;
}

int CDlt::ObjToPhc(const CXYZ& obj, CXYZ& phc, int withDist, double eps) {
    const int nPara = m_b.GetSize();
    if (nPara <= 0) {
        KEL_TRACE_ALWAYS(L"CDlt::ObjToPhc nPara <= 0");
        return 0;
    }
    if (nPara != 8 && nPara != 11) {
        KEL_TRACE_ALWAYS(L"CDlt::ObjToPhc ?");
        return 0;
    }
    const double* b = m_b.GetData();
    if (nPara == 8) {
        const double D = b[6] * obj.x + b[7] * obj.y + 1.0;
        if (D == 0.0) {
            KEL_TRACE_ALWAYS(L"CDlt::ObjToPhc nPara == 8 && D == 0.0");
            return 0;
        }
        phc.m_name = obj.m_name;
        phc.x = (b[0] * obj.x + b[1] * obj.y + b[2]) / D;
        phc.y = (b[3] * obj.x + b[4] * obj.y + b[5]) / D;
        return 1;
    }
    const double D = b[8] * obj.x + b[9] * obj.y + b[10] * obj.z + 1.0;
    if (D == 0.0) {
        KEL_TRACE_ALWAYS(L"CDlt::ObjToPhc nPara == 11 && D == 0.0");
        return 0;
    }
    phc.m_name = obj.m_name;
    phc.x = (b[0] * obj.x + b[1] * obj.y + b[2] * obj.z + b[3]) / D;
    phc.y = (b[4] * obj.x + b[5] * obj.y + b[6] * obj.z + b[7]) / D;
    if (withDist) {
        const double px = phc.x - m_pp.x, py = phc.y - m_pp.y;
        double dx = 0.0, dy = 0.0;
        if (!m_dist.CalDistInv(px, py, dx, dy, eps)) {
            KEL_TRACE_ALWAYS(L"CDlt::ObjToPhc !m_dist.CalDistInv( p.x, p.y, dx, dy, eps )");
            return 0;
        }
        phc.x += dx;
        phc.y += dy;
    }
    return 1;
}
