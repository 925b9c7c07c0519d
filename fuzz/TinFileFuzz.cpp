// The surface file readers over arbitrary bytes: the version 2 reader (which falls back to
// versions 1 and 0) and the version 0 reader, then a write of what was read.
#include <cstdint>

#include "FuzzFiles.h"
#include "surface/Tin.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.tin", data, size);
    kel_templ::CKelArray<CTin, CTin&> tins;
    if (CTin::ReadBIN_VER2(L"\\fuzz.tin", tins) == 1 && tins.GetSize() > 0) {
        double z = 0.0;
        tins[0].GetHeight(tins[0].m_range[0].x, tins[0].m_range[0].y, z);
        CTin::WriteBIN_VER2(L"\\out.tin", tins);
    }
    CTin one;
    one.ReadBIN_VER0(L"\\fuzz.tin");
    return 0;
}
