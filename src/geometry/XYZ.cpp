#include "geometry/XYZ.h"

#include <cmath>

CXYZ::CXYZ() { Init(); }

CXYZ::CXYZ(const CXYZ& p) : x(0.0), y(0.0), z(0.0), m_aux{} { Copy(p); }

CXYZ::CXYZ(double x_, double y_, double z_) {
    Init();
    SetXYZ(x_, y_, z_);
}

CXYZ::CXYZ(const wchar_t* name, double x_, double y_, double z_) {
    Init();
    m_name = name;
    SetXYZ(x_, y_, z_);
}

void CXYZ::Init() {
    m_code.Empty();
    m_name.Empty();
    x = y = z = 0.0;
    for (std::int32_t& a : m_aux) a = 0;
}

void CXYZ::SetXYZ(double x_, double y_, double z_) {
    x = x_;
    y = y_;
    z = z_;
}

void CXYZ::Copy(const CXYZ& p) {
    m_code = p.m_code;
    m_name = p.m_name;
    x = p.x;
    y = p.y;
    z = p.z;
    for (int i = 0; i < 5; ++i) m_aux[i] = p.m_aux[i];
}

CXYZ& CXYZ::operator=(const CXYZ& p) {
    if (this != &p) Copy(p);
    return *this;
}

double CXYZ::Inn(const CXYZ& b) const { return x * b.x + y * b.y + z * b.z; }

CXYZ CXYZ::Out(const CXYZ& b) const {
    return CXYZ(y * b.z - z * b.y, z * b.x - x * b.z, x * b.y - y * b.x);
}

double CXYZ::Len() const { return std::sqrt(x * x + y * y + z * z); }

double CXYZ::Len(const CXYZ& b) const {
    const double dx = x - b.x, dy = y - b.y, dz = z - b.z;
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

int CXYZ::EQ(const CXYZ& b, double tol) const { return Len(b) <= tol ? 1 : 0; }

CXYZ& CXYZ::operator+=(const CXYZ& b) {
    x += b.x;
    y += b.y;
    z += b.z;
    return *this;
}

CXYZ& CXYZ::operator-=(const CXYZ& b) {
    x -= b.x;
    y -= b.y;
    z -= b.z;
    return *this;
}

CXYZ& CXYZ::operator*=(const CXYZ& b) {
    x *= b.x;
    y *= b.y;
    z *= b.z;
    return *this;
}

CXYZ& CXYZ::operator*=(double s) {
    x *= s;
    y *= s;
    z *= s;
    return *this;
}

CXYZ& CXYZ::operator/=(const CXYZ& b) {
    if (b.x != 0.0) x /= b.x;
    if (b.y != 0.0) y /= b.y;
    if (b.z != 0.0) z /= b.z;
    return *this;
}

CXYZ& CXYZ::operator/=(double s) {
    if (s != 0.0) {
        const double inv = 1.0 / s;
        x *= inv;
        y *= inv;
        z *= inv;
    }
    return *this;
}

CXYZ CXYZ::operator+(const CXYZ& b) const { return CXYZ(x + b.x, y + b.y, z + b.z); }
CXYZ CXYZ::operator-(const CXYZ& b) const { return CXYZ(x - b.x, y - b.y, z - b.z); }
CXYZ CXYZ::operator*(const CXYZ& b) const { return CXYZ(x * b.x, y * b.y, z * b.z); }
CXYZ CXYZ::operator*(double s) const { return CXYZ(x * s, y * s, z * s); }

CXYZ CXYZ::operator/(const CXYZ& b) const {
    CXYZ r(x, y, z);
    r /= b;
    return r;
}

CXYZ CXYZ::operator/(double s) const {
    CXYZ r(x, y, z);
    r /= s;
    return r;
}

CXYZ CXYZ::operator+() const { return CXYZ(*this); }

CXYZ CXYZ::operator-() const {
    CXYZ r(*this);
    r.x = -x;
    r.y = -y;
    r.z = -z;
    return r;
}
