#include "storage/SPoint.h"

#include <cstring>

#include "platform/Bytes.h"
#include "storage/RecordText.h"

using kel_storage_detail::GetText;
using kel_storage_detail::PutText;

CSPoint::CSPoint() { Init(); }

CSPoint::CSPoint(const CSPoint& p) { Set(p); }

CSPoint& CSPoint::operator=(const CSPoint& p) {
    if (this != &p) Set(p);
    return *this;
}

void CSPoint::Init() {
    m_name.Empty();
    m_X = m_Y = m_Z = 0.0;
    m_text1.Empty();
    m_text2.Empty();
    m_status = 0;
    m_code.Empty();
    m_value = 0;
    m_recNo = 0;
}

void CSPoint::Set(const CSPoint& p) {
    m_name = p.m_name;
    m_X = p.m_X;
    m_Y = p.m_Y;
    m_Z = p.m_Z;
    m_text1 = p.m_text1;
    m_text2 = p.m_text2;
    m_status = p.m_status;
    m_code = p.m_code;
    m_value = p.m_value;
    m_recNo = p.m_recNo;
}

void CSPoint::Set(const CXYZ& p) {
    m_name = p.m_name;
    m_X = p.x;
    m_Y = p.y;
    m_Z = p.z;
}

void CSPoint::Get(CXYZ& p) const {
    p.m_name = m_name;
    p.x = m_X;
    p.y = m_Y;
    p.z = m_Z;
}

void ConvSPoint2Rec(const CSPoint& pt, SPOINTREC& rec) {
    using R = SPOINTREC;
    std::memset(rec.b, 0, R::kSize);
    PutText(rec.b, R::kOffName, R::kLenName, pt.m_name, R::kLenName - 1);
    kel_bytes::PutF64(rec.b, R::kOffX, pt.m_X);
    kel_bytes::PutF64(rec.b, R::kOffY, pt.m_Y);
    kel_bytes::PutF64(rec.b, R::kOffZ, pt.m_Z);
    PutText(rec.b, R::kOffText1, R::kLenText1, pt.m_text1, R::kLenText1 - 1);
    PutText(rec.b, R::kOffText2, R::kLenText2, pt.m_text2, R::kLenText2 - 1);
    kel_bytes::PutU8(rec.b, R::kOffStatus, pt.m_status);
    PutText(rec.b, R::kOffCode, R::kLenCode, pt.m_code, R::kLenCode - 1);
    kel_bytes::PutI32(rec.b, R::kOffValue, pt.m_value);
}

void ConvRec2SPoint(const SPOINTREC& rec, CSPoint& pt) {
    using R = SPOINTREC;
    pt.m_name = GetText(rec.b, R::kOffName, R::kLenName);
    pt.m_X = kel_bytes::GetF64(rec.b, R::kOffX);
    pt.m_Y = kel_bytes::GetF64(rec.b, R::kOffY);
    pt.m_Z = kel_bytes::GetF64(rec.b, R::kOffZ);
    pt.m_text1 = GetText(rec.b, R::kOffText1, R::kLenText1);
    pt.m_text2 = GetText(rec.b, R::kOffText2, R::kLenText2);
    pt.m_status = kel_bytes::GetU8(rec.b, R::kOffStatus);
    pt.m_code = GetText(rec.b, R::kOffCode, R::kLenCode);
    pt.m_value = kel_bytes::GetI32(rec.b, R::kOffValue);
}
