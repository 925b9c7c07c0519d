// Numeric CSV rows for the program's sub-commands.
#include "Cli.h"

#include <cstdio>

#include "geometry/Polyline.h"

namespace kelscan_cli {

bool ReadCsvRows(const std::string& path, int minValues, std::vector<CsvRow>& rows,
                 std::string& error) {
    std::vector<std::string> lines;
    rows.clear();
    if (!ReadLines(path, lines)) {
        error = "cannot read " + path;
        return false;
    }
    bool first = true;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& text = lines[i];
        const std::size_t lead = text.find_first_not_of(" \t");
        if (lead == std::string::npos || text[lead] == '#') continue;
        const std::vector<std::string> fields = SplitCsv(text);
        CsvRow row;
        row.line = static_cast<int>(i + 1);
        std::size_t k = 0;
        double v = 0.0;
        if (!ParseDouble(fields[0], v)) {
            row.name = fields[0];
            k = 1;
        }
        bool numeric = true;
        for (; k < fields.size(); ++k) {
            if (!ParseDouble(fields[k], v)) {
                numeric = false;
                break;
            }
            row.values.push_back(v);
        }
        const bool isHeader = first && (!numeric || row.values.empty());
        first = false;
        if (isHeader) continue;
        if (!numeric) {
            error = path + ":" + std::to_string(row.line) + ": \"" + fields[k] +
                    "\" is not a number";
            return false;
        }
        if (static_cast<int>(row.values.size()) < minValues) {
            error = path + ":" + std::to_string(row.line) + ": expected " +
                    std::to_string(minValues) + " numbers, found " +
                    std::to_string(row.values.size());
            return false;
        }
        rows.push_back(row);
    }
    if (rows.empty()) {
        error = path + ": no data rows";
        return false;
    }
    return true;
}

std::string Fixed(double v, int places) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", places, v);
    return buf;
}

int ReadPolygonCsv(const std::string& path, const char* what, CPolyline& pl) {
    std::vector<CsvRow> rows;
    std::string error;
    if (!ReadCsvRows(path, 2, rows, error)) return Fail(error);
    if (rows.size() < 3) return Fail(path + ": " + what + " needs at least 3 vertices");
    pl = CPolyline(CPolyline::kClosed, 0);
    for (const auto& r : rows) {
        CVertex v(r.values[0], r.values[1], r.values.size() > 2 ? r.values[2] : 0.0, 0);
        pl.AddVertex(v);
    }
    return 0;
}

}  // namespace kelscan_cli
