#include "geometry/Vertex.h"

CVertex::CVertex(int flag) : CXYZ(0.0, 0.0, 0.0), m_vertexFlag(flag) { m_code = L"0"; }

CVertex::CVertex(double x, double y, double z, int flag) : CXYZ(x, y, z), m_vertexFlag(flag) {
    m_code = L"0";
}

CVertex::CVertex(const CXYZ& p, int flag) : CXYZ(p), m_vertexFlag(flag) {}

CVertex::CVertex(const CVertex& v) : CXYZ(v), m_vertexFlag(v.m_vertexFlag) {}

CVertex& CVertex::operator=(const CVertex& v) {
    if (this != &v) {
        CXYZ::operator=(v);
        m_vertexFlag = v.m_vertexFlag;
    }
    return *this;
}

int CVertex::CheckVertexFlag(int mask) const { return (m_vertexFlag & mask) == mask ? 1 : 0; }

void CVertex::SetBit(int bit, int on) {
    if (on)
        m_vertexFlag |= bit;
    else
        m_vertexFlag &= ~bit;
}

void CVertex::SetSplineVertex(int on) { SetBit(kSplineVertex, on); }
void CVertex::SetSplineFrame(int on) { SetBit(kSplineFrame, on); }
int CVertex::IsSplineFrame() const { return CheckVertexFlag(kSplineFrame); }
