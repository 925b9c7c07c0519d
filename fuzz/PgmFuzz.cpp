// The program's PGM reader (`kelscan centroid`) over arbitrary bytes: binary and plain PGM.
#include <cstdint>
#include <iostream>

#include "FuzzFiles.h"
#include "program/ProgramReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    std::cerr.rdbuf(nullptr);  // the program's failure lines
    kel_fuzz::WriteInput(L"\\fuzz.pgm", data, size);
    kel_fuzz_program::CentroidPgm(kel_platform::MapDevicePath(L"\\fuzz.pgm"));
    return 0;
}
