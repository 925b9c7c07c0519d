// The point (.csv) and image coordinate (.imc) file readers over arbitrary bytes.
#include <cstdint>

#include "FuzzFiles.h"
#include "storage/PointFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.txt", data, size);
    kel_templ::CKelArray<CXYZ, CXYZ&> pts;
    ReadCSVFile(L"\\fuzz.txt", pts);
    ReadImcFile(L"\\fuzz.txt", pts);
    return 0;
}
