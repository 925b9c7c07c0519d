// The orientation command's readers (tools/OrientCommand.cpp).
#include "OrientCommand.cpp"
#include "ProgramReaders.h"

namespace kel_fuzz_program {

int CentroidPgm(const std::string& path) {
    int w = 0, h = 0;
    std::vector<unsigned char> px;
    std::string error;
    if (!ReadPgm(path, w, h, px, error)) return 1;
    if (px.size() != static_cast<std::size_t>(w) * static_cast<std::size_t>(h)) std::abort();
    return 0;
}

}  // namespace kel_fuzz_program
