#include "geometry/CalcXYZHV.h"

#include <cmath>
#include <cwchar>

#include "platform/KelMath.h"
#include "platform/Message.h"

namespace CCalcXYZHV {

int XYZToHV(const CXYZ& station, const CXYZ& target, double height, double& v, double& h) {
    const double dx = target.x - station.x;
    const double dy = target.y - station.y;
    const double r = atan3(dy, dx) * kel_math::kRadToDeg;
    if (dx == 0.0 && dy == 0.0) {
        h = 0.0;
    } else if (dy >= 0.0) {
        h = dx > 0.0 ? r : (dx == 0.0 ? 90.0 : r + 180.0);
    } else {
        h = dx > 0.0 ? r + 360.0 : (dx == 0.0 ? 270.0 : r + 180.0);
    }
    const double hd = std::sqrt(dx * dx + dy * dy);
    if (hd == 0.0) {
        MessagePopup(nullptr, L"", L"CCalcXYZHV::XYZToHV", MB_ICONINFORMATION_STYLE, MBPARAMS());
        return 0;
    }
    const double dz = (target.z - height) - station.z;
    v = 90.0 - atan3(dz, hd) * kel_math::kRadToDeg;
    return 1;
}

void CnvSokuToMath(CXYZ& p) {
    const double north = p.x;
    p.x = p.y * 1000.0;
    p.y = north * 1000.0;
    p.z = p.z * 1000.0;
}

void CnvMathToSoku(CXYZ& p) {
    const double east = p.x;
    p.x = p.y * 0.001;
    p.y = east * 0.001;
    p.z = p.z * 0.001;
}

double Angle100To60(double deg, int mode) {
    if (mode == 1) deg = ModDeg360(deg, true);
    return Deg2DDDMMSS(deg, 9, false);
}

double Angle60To100(double dms, int mode) {
    if (mode == 1) dms = ModDeg360(dms, true);
    return DDDMMSS2Deg(dms);
}

void Angle0To360(double& deg) { deg = ModDeg360(deg, true); }

int GetTakenTime(const SYSTEMTIME& start, const SYSTEMTIME& end) {
    return (static_cast<int>(end.wHour) - static_cast<int>(start.wHour)) * 60 +
           static_cast<int>(end.wMinute) - static_cast<int>(start.wMinute);
}

kel_text::CKelString TimeToString(const SYSTEMTIME& t) {
    kel_text::CKelString s;
    s.Format(L"%.4d%.2d%.2d%.2d%.2d", static_cast<int>(t.wYear), static_cast<int>(t.wMonth),
             static_cast<int>(t.wDay), static_cast<int>(t.wHour), static_cast<int>(t.wMinute));
    return s;
}

int FILETIMEFastRate(const FILETIME& a, const FILETIME& b) {
    FILETIME la{}, lb{};
    SYSTEMTIME sa{}, sb{};
    FileTimeToLocalFileTime(&a, &la);
    FileTimeToLocalFileTime(&b, &lb);
    FileTimeToSystemTime(&la, &sa);
    FileTimeToSystemTime(&lb, &sb);
    const WORD fa[] = {sa.wYear, sa.wMonth,  sa.wDay,         sa.wHour,
                       sa.wMinute, sa.wSecond, sa.wMilliseconds};
    const WORD fb[] = {sb.wYear, sb.wMonth,  sb.wDay,         sb.wHour,
                       sb.wMinute, sb.wSecond, sb.wMilliseconds};
    for (int i = 0; i < 7; ++i) {
        if (fa[i] != fb[i]) return fa[i] > fb[i] ? 1 : 0;
    }
    return 2;
}

kel_text::CKelString ByoToStr(int seconds) {
    int hours = 0;
    int rest = seconds;
    if (seconds >= 3600) {
        hours = seconds / 3600;
        rest = seconds % 3600;
    }
    int minutes = 0;
    if (rest >= 60) {
        minutes = rest / 60;
        rest = rest % 60;
    }
    kel_text::CKelString s;
    s.Format(L"%02d:%02d:%02d", hours, minutes, rest);
    return s;
}

int ChkFileFolderName(const wchar_t* name) {
    if (name == nullptr) return 0;
    const std::size_t n = std::wcslen(name);
    if (n == 0 || name[0] == L'.' || name[n - 1] == L'.') return 0;
    if (std::wcsstr(name, L"..") != nullptr) return 0;
    if (std::wcspbrk(name, L"\\/:*?\"<>|") != nullptr) return 0;
    return 1;
}

}  // namespace CCalcXYZHV

int TaskInverse(const CXYZ& station, const CXYZ& target, double instHeight, double bsAzimuth,
                double bsReading, double& h, double& v) {
    const double dn = target.x - station.x;
    const double de = target.y - station.y;
    const double dz = target.z - (station.z + instHeight);
    const double hd = std::sqrt(dn * dn + de * de);
    const double azimuth = hd == 0.0 ? 0.0 : std::atan2(de, dn) * kel_math::kRadToDeg;
    double circle = azimuth;
    if (bsAzimuth != kTaskInverseNotSet && bsReading != kTaskInverseNotSet)
        circle = azimuth - bsAzimuth + bsReading;
    h = ModDeg360(circle, true);
    if (hd == 0.0) {
        v = dz > 0.0 ? 0.0 : (dz < 0.0 ? 180.0 : 90.0);
        return 0;
    }
    v = std::atan2(hd, dz) * kel_math::kRadToDeg;
    return 1;
}
