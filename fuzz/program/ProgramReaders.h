#pragma once
// The program's file readers that live inside its sub-command sources, reached by building
// those sources into the fuzz targets (ProgramReaders*.cpp). Each returns 0 when the file was
// read, else the program's exit status or 1.
#include <string>

namespace kel_fuzz_program {

// `tin build`: the points (name,X,Y,Z or X,Y,Z) and the break lines (LINE,X,Y[,Z] chains or
// LINE,X1,Y1,Z1,X2,Y2,Z2 segments).
int TinPoints(const std::string& path);
int TinBreakLines(const std::string& path);
// `centroid`: an 8-bit PGM patch (P5 or P2).
int CentroidPgm(const std::string& path);

}  // namespace kel_fuzz_program
