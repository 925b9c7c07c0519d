// The program's CSV reader over arbitrary bytes, as its commands read it: stations and points
// (3 numbers), photo points (2), polygons and scan regions, the surface's points and break
// lines. A row the reader accepts carries at least the numbers asked for.
#include <cstdint>
#include <iostream>

#include "Cli.h"
#include "FuzzFiles.h"
#include "geometry/Polyline.h"
#include "program/ProgramReaders.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    std::cerr.rdbuf(nullptr);  // the program's failure lines
    kel_fuzz::WriteInput(L"\\fuzz.csv", data, size);
    const std::string path = kel_platform::MapDevicePath(L"\\fuzz.csv");
    for (const int minValues : {2, 3}) {
        std::vector<kelscan_cli::CsvRow> rows;
        std::string error;
        if (kelscan_cli::ReadCsvRows(path, minValues, rows, error))
            for (const auto& r : rows)
                if (r.values.size() < static_cast<std::size_t>(minValues)) std::abort();
    }
    CPolyline polygon;
    kelscan_cli::ReadPolygonCsv(path, "a polygon", polygon);
    kel_fuzz_program::TinPoints(path);
    kel_fuzz_program::TinBreakLines(path);
    return 0;
}
