// The surface file readers over arbitrary bytes: the version 2 reader (which falls back to
// versions 1 and 0) and the version 0 reader, then a write of what was read. A surface that
// was read has finite vertices only, and its LandXML export holds no "nan" or "inf".
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <sstream>

#include "FuzzFiles.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.tin", data, size);
    kel_templ::CKelArray<CTin, CTin&> tins;
    if (CTin::ReadBIN_VER2(L"\\fuzz.tin", tins) == 1 && tins.GetSize() > 0) {
        double z = 0.0;
        tins[0].GetHeight(tins[0].m_range[0].x, tins[0].m_range[0].y, z);
        CTin::WriteBIN_VER2(L"\\out.tin", tins);
        for (int i = 0; i < tins[0].GetPointSize(); ++i) {
            const CXYZ& p = tins[0].m_point[i];
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) std::abort();
        }
        std::ostringstream xml;
        WriteTinLandXml(tins[0], xml, "f", SYSTEMTIME{});
        if (xml.str().find("nan") != std::string::npos || xml.str().find("inf") != std::string::npos)
            std::abort();
    }
    CTin one;
    one.ReadBIN_VER0(L"\\fuzz.tin");
    return 0;
}
