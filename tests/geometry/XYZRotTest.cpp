#include <cmath>
#include <random>

#include <gtest/gtest.h>

#include "geometry/Rot.h"
#include "geometry/WPK.h"
#include "geometry/XYZ.h"
#include "platform/KelMath.h"

namespace {

constexpr double kPi = kel_math::kPi;

TEST(XYZ, CopiesCarryStringsAndArithmeticDoesNot) {
    CXYZ p(L"P1", 1.0, 2.0, 3.0);
    p.m_code = L"K";
    p.m_aux[4] = 77;
    CXYZ q(p);
    EXPECT_STREQ(q.m_name, L"P1");
    EXPECT_STREQ(q.m_code, L"K");
    EXPECT_EQ(q.m_aux[4], 77);
    const CXYZ sum = p + q;
    EXPECT_TRUE(sum.m_name.IsEmpty());
    EXPECT_EQ(sum.m_aux[4], 0);
    EXPECT_EQ(sum.x, 2.0);
    const CXYZ neg = -p;  // keeps the strings, negates the coordinates
    EXPECT_STREQ(neg.m_name, L"P1");
    EXPECT_EQ(neg.z, -3.0);
    q.Init();
    EXPECT_TRUE(q.m_name.IsEmpty() && q.m_code.IsEmpty());
    EXPECT_EQ(q.m_aux[4], 0);

    CXYZ d(8.0, 5.0, 8.0);
    d /= CXYZ(2.0, 0.0, 4.0);  // a zero divisor skips its component
    EXPECT_EQ(d.x, 4.0);
    EXPECT_EQ(d.y, 5.0);
    EXPECT_EQ(d.z, 2.0);
    d /= 0.0;
    EXPECT_EQ(d.x, 4.0);
    EXPECT_EQ((d / 2.0).x, 2.0);

    const CXYZ a(1.0, 0.0, 0.0), b(0.0, 1.0, 0.0);
    const CXYZ c = a.Out(b);
    EXPECT_EQ(c.z, 1.0);
    EXPECT_EQ(a.Inn(b), 0.0);
    EXPECT_EQ(CXYZ(3.0, 4.0, 0.0).Len(), 5.0);
    EXPECT_EQ(CXYZ(3.0, 4.0, 0.0).EQ(CXYZ(), 5.0), 1);  // the bound counts as equal
    EXPECT_EQ(CXYZ(3.0, 4.0, 0.0).EQ(CXYZ(), 4.999), 0);
}

TEST(WPK, NormalizeAndSubtractKeepTheirAsymmetry) {
    double a = 3 * kPi;
    CWPK::NormalizeAngle(a);
    EXPECT_DOUBLE_EQ(a, kPi);
    a = -kPi;
    CWPK::NormalizeAngle(a);
    EXPECT_EQ(a, -kPi);
    a = 1.5 * kPi;
    CWPK::NormalizeAngle(a);
    EXPECT_DOUBLE_EQ(a, -0.5 * kPi);
    EXPECT_DOUBLE_EQ(CWPK::SubtractAngle(-0.1, 0.1), -0.2);
    EXPECT_NEAR(CWPK::SubtractAngle(kPi - 0.05, -kPi + 0.05), 0.1, 1e-12);
    EXPECT_NEAR(CWPK::SubtractAngle(-kPi + 0.05, kPi - 0.05), -(2 * kPi - 0.1), 1e-12);
    const CWPK s = CWPK(3.0, 0.0, 0.0) + CWPK(1.0, 0.0, 0.0);
    EXPECT_NEAR(s.omega, 4.0 - 2 * kPi, 1e-15);
    const CWPK n = -CWPK(4.0, 0.0, 0.0);  // no normalisation
    EXPECT_EQ(n.omega, -4.0);
}

void ExpectOrthonormal(const CRot& r) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double s = 0.0;
            for (int k = 0; k < 3; ++k) s += r.m[i * 3 + k] * r.m[j * 3 + k];
            EXPECT_NEAR(s, i == j ? 1.0 : 0.0, 1e-14);
        }
}

void ExpectSameRot(const CRot& a, const CRot& b, double tol) {
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(a.m[i], b.m[i], tol) << "element " << i;
}

CRot Elementary(int axis, double a) {
    CRot r;
    CWPK w;
    (axis == 0 ? w.omega : axis == 1 ? w.phi : w.kappa) = a;
    r.SetMatrix(static_cast<ROT_SYSTEM>(axis), w);
    return r;
}

TEST(Rot, CompositesEqualTheProductsOfElementaryRotations) {
    const CWPK a(0.3, -0.7, 2.1);
    CRot wpk, kpw;
    ASSERT_EQ(wpk.SetMatrix(ROT_WPK, a), 1);
    ASSERT_EQ(kpw.SetMatrix(ROT_KPW, a), 1);
    const CRot rx = Elementary(0, a.omega), ry = Elementary(1, a.phi), rz = Elementary(2, a.kappa);
    const CRot e1 = rz * ry * rx, e2 = rx * ry * rz;
    ExpectSameRot(wpk, e1, 1e-15);
    ExpectSameRot(kpw, e2, 1e-15);
    ExpectOrthonormal(wpk);
    // Rx rotates +y towards +z.
    EXPECT_NEAR(rx.m[7], std::sin(0.3), 1e-16);
    // AddMatrix pre-multiplies, *= post-multiplies.
    CRot pre = rx;
    pre.AddMatrix(ROT_P, CWPK(0.0, a.phi, 0.0));
    CRot post = rx;
    post *= ry;
    ExpectSameRot(pre, ry * rx, 1e-15);
    ExpectSameRot(post, rx * ry, 1e-15);
    // Rotate, operator*(CXYZ) and the product agree; Rotate keeps the name.
    CXYZ p(L"T", 1.0, -2.0, 0.5), out, out2;
    kpw.Rotate(p, out);
    out2 = kpw * p;
    const CRot prod = kpw * CRot();
    double X, Y, Z;
    prod.Rotate(p.x, p.y, p.z, X, Y, Z);
    EXPECT_STREQ(out.m_name, L"T");
    EXPECT_EQ(out.x, out2.x);
    EXPECT_NEAR(out.y, Y, 1e-15);
    EXPECT_NEAR(out.z, Z, 1e-15);
    CRot t = kpw;
    t.T();
    const CRot id = t * kpw;
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(id.m[i], i % 4 == 0 ? 1.0 : 0.0, 1e-15);
    // Degrees: SetDIMat is KPW of the converted angles.
    double deg[3] = {10.0, 20.0, 30.0};
    CRot di;
    di.SetDIMat(deg);
    CRot ref;
    ref.SetMatrix(ROT_KPW, CWPK(10 * kPi / 180, 20 * kPi / 180, 30 * kPi / 180));
    ExpectSameRot(di, ref, 1e-15);
    // Unknown systems change nothing.
    CRot keep = kpw;
    CWPK untouched(1, 2, 3);
    EXPECT_EQ(keep.SetMatrix(static_cast<ROT_SYSTEM>(5), a), 0);
    EXPECT_EQ(keep.AddMatrix(static_cast<ROT_SYSTEM>(-1), a), 0);
    EXPECT_EQ(keep.CalAngle(static_cast<ROT_SYSTEM>(7), untouched), 0);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(keep.m[i], kpw.m[i]);
    EXPECT_EQ(untouched.kappa, 3.0);
}

// Angles -> matrix -> angles over thousands of random triples on the principal branch
// (|phi| < pi/2), for both composite systems, with the true triple as the previous value.
TEST(Rot, CalAngleInvertsSetMatrixAndKeepsOmegaAtTheGimbalLock) {
    const unsigned seed = 20261122;
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> ang(-kPi, kPi), half(-kPi / 2 + 1e-3, kPi / 2 - 1e-3);
    for (ROT_SYSTEM sys : {ROT_WPK, ROT_KPW}) {
        for (int i = 0; i < 5000; ++i) {
            const CWPK a(ang(rng), half(rng), ang(rng));
            CRot r;
            r.SetMatrix(sys, a);
            CWPK b = a;
            ASSERT_EQ(r.CalAngle(sys, b), 1);
            EXPECT_NEAR(std::fabs(CWPK::SubtractAngle(b.omega, a.omega)), 0.0, 1e-9)
                << "seed " << seed << " sys " << sys << " i " << i;
            EXPECT_NEAR(b.phi, a.phi, 1e-9) << "seed " << seed << " i " << i;
            EXPECT_NEAR(std::fabs(CWPK::SubtractAngle(b.kappa, a.kappa)), 0.0, 1e-9);
            // Starting from zero the principal branch is chosen and rebuilds the same matrix.
            CWPK z;
            r.CalAngle(sys, z);
            CRot back;
            back.SetMatrix(sys, z);
            for (int k = 0; k < 9; ++k) ASSERT_NEAR(back.m[k], r.m[k], 1e-12);
        }
    }
    // At the gimbal lock the previous omega is kept.
    for (ROT_SYSTEM sys : {ROT_WPK, ROT_KPW}) {
        SCOPED_TRACE(sys);
        for (double phi : {kPi / 2, -kPi / 2}) {
            const CWPK a(0.4, phi, -0.9);
            CRot r;
            r.SetMatrix(sys, a);
            CWPK b(0.25, 0.0, 0.0);  // previous omega 0.25
            ASSERT_EQ(r.CalAngle(sys, b), 1);
            EXPECT_EQ(b.omega, 0.25);
            EXPECT_NEAR(std::fabs(b.phi), kPi / 2, 1e-7);
            // The combined rotation goes into kappa, so the matrix is rebuilt exactly.
            CRot back;
            back.SetMatrix(sys, b);
            ExpectSameRot(back, r, 1e-7);
        }
        // Next to the lock the regular branch still reproduces the matrix.
        const CWPK near(0.4, kPi / 2 - 1e-6, -0.9);
        CRot r;
        r.SetMatrix(sys, near);
        CWPK b = near;
        r.CalAngle(sys, b);
        CRot back;
        back.SetMatrix(sys, b);
        ExpectSameRot(back, r, 1e-9);
    }
}

}  // namespace
