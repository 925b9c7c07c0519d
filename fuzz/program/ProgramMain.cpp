// The program's shared helpers (tools/main.cpp: the registries, Fail, number parsing, CSV
// splitting, line reading) without its entry point, for the fuzz targets that run the
// program's own readers. CLI11 and the helpers' declarations come first, so that only the
// program's `main` is renamed.
#include "Cli.h"

#define main kelscan_program_main
#include "main.cpp"
