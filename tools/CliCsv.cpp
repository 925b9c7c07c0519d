// The program's one reader of numeric CSV files.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Cli.h"
#include "geometry/Polyline.h"

namespace kelscan_cli {

std::vector<std::string> SplitCsv(const std::string& line) {
    std::vector<std::string> fields;
    std::string cur;
    auto push = [&]() {
        const std::size_t a = cur.find_first_not_of(" \t\r\n");
        const std::size_t b = cur.find_last_not_of(" \t\r\n");
        fields.push_back(a == std::string::npos ? std::string() : cur.substr(a, b - a + 1));
        cur.clear();
    };
    for (char c : line) {
        if (c == ',') {
            push();
        } else {
            cur += c;
        }
    }
    push();
    return fields;
}

std::string ReadLines(const std::string& path, std::vector<std::string>& lines) {
    lines.clear();
    std::ifstream file;
    if (path != "-") {
        std::error_code ec;
        if (std::filesystem::is_directory(path, ec)) return path + " is a folder, not a file";
        file.open(path, std::ios::binary);
        if (!file) return "cannot read " + path;
    }
    std::istream& in = path == "-" ? std::cin : file;
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(line);
    }
    if (in.bad()) return "cannot read " + path;
    return "";
}

namespace {

bool Counts(const CsvShape& shape, std::size_t n) {
    return std::find(shape.counts.begin(), shape.counts.end(), static_cast<int>(n)) !=
           shape.counts.end();
}

}  // namespace

bool ReadCsvRows(const std::string& path, const CsvShape& shape, std::vector<CsvRow>& rows,
                 std::string& error) {
    std::vector<std::string> lines;
    rows.clear();
    error = ReadLines(path, lines);
    if (!error.empty()) return false;
    bool first = true;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::string& text = lines[i];
        const std::size_t lead = text.find_first_not_of(" \t");
        if (lead == std::string::npos || text[lead] == '#') continue;
        const std::vector<std::string> fields = SplitCsv(text);
        CsvRow row;
        row.line = static_cast<int>(i + 1);
        const std::string where = path + ":" + std::to_string(row.line) + ": ";
        if (first) {
            first = false;
            double v = 0.0;
            if (std::none_of(fields.begin(), fields.end(),
                             [&](const std::string& f) { return ParseDouble(f, v); }))
                continue;  // a header
        }
        std::size_t k = 0;
        if (shape.names != CsvShape::kName && Counts(shape, fields.size())) {
            k = 0;
        } else if (shape.names != CsvShape::kNoName && Counts(shape, fields.size() - 1)) {
            row.name = fields[0];
            k = 1;
        } else {
            error = where + "expected " + shape.layout + ", found " +
                    std::to_string(fields.size()) + " fields";
            return false;
        }
        for (; k < fields.size(); ++k) {
            double v = 0.0;
            if (!ParseDouble(fields[k], v)) {
                error = where + "\"" + fields[k] + "\" is not a finite number";
                return false;
            }
            row.values.push_back(v);
        }
        rows.push_back(row);
    }
    if (rows.empty()) {
        error = path + ": no data rows";
        return false;
    }
    return true;
}

bool ReadCsvRows(const std::string& path, int minValues, std::vector<CsvRow>& rows,
                 std::string& error) {
    const std::string n = std::to_string(minValues);
    const CsvShape shape{{minValues, minValues + 1},
                         CsvShape::kName,
                         "a name and " + n + " or " + std::to_string(minValues + 1) + " numbers"};
    return ReadCsvRows(path, shape, rows, error);
}

int ReadPolygonCsv(const std::string& path, const char* what, CPolyline& pl) {
    std::vector<CsvRow> rows;
    std::string error;
    if (!ReadCsvRows(path, CsvShape{{2, 3}, CsvShape::kNoName, "x,y[,z]"}, rows, error))
        return Fail(error);
    if (rows.size() < 3) return Fail(path + ": " + what + " needs at least 3 vertices");
    pl = CPolyline(CPolyline::kClosed, 0);
    for (const auto& r : rows) {
        CVertex v(r.values[0], r.values[1], r.values.size() > 2 ? r.values[2] : 0.0, 0);
        pl.AddVertex(v);
    }
    return 0;
}

}  // namespace kelscan_cli
