// The surface command's readers (tools/TinCommand.cpp).
#include "ProgramReaders.h"
#include "TinCommand.cpp"

namespace kel_fuzz_program {

int TinPoints(const std::string& path) {
    std::vector<PointRow> points;
    return ReadPoints(path, points).empty() ? 0 : 1;
}

int TinBreakLines(const std::string& path) {
    std::vector<BreakLineRows> lines;
    return ReadBreakLines(path, lines).empty() ? 0 : 1;
}

}  // namespace kel_fuzz_program
