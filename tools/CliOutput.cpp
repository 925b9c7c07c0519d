// Numbers, result formats and output files shared by the program's sub-commands.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Cli.h"
#include "platform/NumText.h"

namespace kelscan_cli {

namespace fs = std::filesystem;

bool ParseDouble(const std::string& text, double& value) { return kel_num::Parse(text, value); }

bool ParseInt(const std::string& text, int& value) {
    return kel_num::ParseInt(text.c_str(), value);
}

std::string Fixed(double v, int places) { return kel_num::Fixed(v, places); }

namespace {

const CLI::Validator kFiniteNumber(
    [](std::string& text) {
        double v = 0.0;
        return ParseDouble(text, v) ? std::string() : "\"" + text + "\" is not a finite number";
    },
    "");

}  // namespace

CLI::Option* AddNumberOption(CLI::App* app, const std::string& name, double& value,
                             const std::string& description) {
    return app
        ->add_option_function<std::string>(
            name, [&value](const std::string& text) { ParseDouble(text, value); }, description)
        ->type_name("NUMBER")
        ->check(kFiniteNumber);
}

CLI::Option* AddNumbersOption(CLI::App* app, const std::string& name, std::vector<double>& values,
                              int count, const std::string& description) {
    return app
        ->add_option_function<std::vector<std::string>>(
            name,
            [&values](const std::vector<std::string>& texts) {
                values.assign(texts.size(), 0.0);
                for (std::size_t i = 0; i < texts.size(); ++i) ParseDouble(texts[i], values[i]);
            },
            description)
        ->expected(count)
        ->delimiter(',')
        ->type_name("NUMBER")
        ->check(kFiniteNumber);
}

// ---------------------------------------------------------------------------------------------
// Reports

CLI::Option* AddFormatOption(CLI::App* app, Format& format) {
    return app
        ->add_option_function<std::string>(
            "--format",
            [&format](const std::string& name) {
                format = name == "csv"    ? Format::kCsv
                         : name == "json" ? Format::kJson
                                          : Format::kText;
            },
            "text (for people, the default), csv or json (complete, full precision)")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "csv", "json"}));
}

Value Value::Num(double v, int places) {
    Value r;
    r.kind = kNumber;
    r.number = v;
    r.places = places;
    return r;
}

Value Value::Int(long long v) {
    Value r;
    r.kind = kInteger;
    r.integer = v;
    return r;
}

Value Value::Text(const std::string& s) {
    Value r;
    r.text = s;
    return r;
}

void Report::Add(const std::string& key, const std::string& unit, const Value& v,
                 const std::string& note) {
    std::string label = key;
    for (char& c : label)
        if (c == '_') c = ' ';
    std::string suffix = unit;  // "deg/s" -> "deg_per_s"
    for (std::size_t at; (at = suffix.find('/')) != std::string::npos;)
        suffix.replace(at, 1, "_per_");
    fields.push_back(Field{unit.empty() ? key : key + "_" + suffix, label, unit, v, note});
}

namespace {

std::string TextOf(const Value& v) {
    switch (v.kind) {
        case Value::kNumber:
            return v.places < 0 ? kel_num::Exact(v.number) : Fixed(v.number, v.places);
        case Value::kInteger:
            return std::to_string(v.integer);
        default:
            return v.text;
    }
}

// csv: numbers in full; a text with a comma, quote or line end is quoted.
std::string CsvOf(const Value& v) {
    if (v.kind == Value::kNumber) return kel_num::Full(v.number);
    if (v.kind == Value::kInteger) return std::to_string(v.integer);
    if (v.text.find_first_of(",\"\r\n") == std::string::npos) return v.text;
    std::string q = "\"";
    for (char c : v.text) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + '"';
}

std::string JsonString(const std::string& s) {
    std::string q = "\"";
    for (unsigned char c : s) {
        if (c == '"' || c == '\\') {
            q += '\\';
            q += static_cast<char>(c);
        } else if (c < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            q += buf;
        } else {
            q += static_cast<char>(c);
        }
    }
    return q + '"';
}

// json has no nan or infinity: null stands for them.
std::string JsonOf(const Value& v) {
    if (v.kind == Value::kNumber)
        return std::isfinite(v.number) ? kel_num::Full(v.number) : std::string("null");
    if (v.kind == Value::kInteger) return std::to_string(v.integer);
    return JsonString(v.text);
}

void PrintRows(std::ostream& out, const Table& t, std::string (*cell)(const Value&)) {
    for (std::size_t c = 0; c < t.columns.size(); ++c) out << (c ? "," : "") << t.columns[c];
    out << '\n';
    for (const auto& row : t.rows) {
        for (std::size_t c = 0; c < row.size(); ++c) out << (c ? "," : "") << cell(row[c]);
        out << '\n';
    }
}

}  // namespace

void PrintReport(std::ostream& out, const Report& report, Format format) {
    if (format == Format::kText) {
        for (const auto& f : report.fields)
            out << f.label << ": " << TextOf(f.value) << (f.unit.empty() ? "" : " " + f.unit)
                << f.note << '\n';
        bool gap = !report.fields.empty();
        for (const auto& t : report.tables) {
            if (t.rows.empty()) continue;  // for people an empty table is noise
            if (gap) out << '\n';
            PrintRows(out, t, &TextOf);
            gap = true;
        }
        return;
    }
    if (format == Format::kCsv) {
        bool gap = false;
        if (!report.fields.empty()) {
            Table q{"", {"quantity", "value"}, {}};
            for (const auto& f : report.fields) q.rows.push_back({Value::Text(f.key), f.value});
            PrintRows(out, q, &CsvOf);
            gap = true;
        }
        for (const auto& t : report.tables) {
            if (gap) out << '\n';
            PrintRows(out, t, &CsvOf);
            gap = true;
        }
        return;
    }
    out << '{';
    const char* sep = "\n  ";
    for (const auto& f : report.fields) {
        out << sep << JsonString(f.key) << ": " << JsonOf(f.value);
        sep = ",\n  ";
    }
    for (const auto& t : report.tables) {
        out << sep << JsonString(t.name) << ": [";
        for (std::size_t r = 0; r < t.rows.size(); ++r) {
            out << (r ? ",\n    {" : "\n    {");
            for (std::size_t c = 0; c < t.columns.size() && c < t.rows[r].size(); ++c)
                out << (c ? ", " : "") << JsonString(t.columns[c]) << ": " << JsonOf(t.rows[r][c]);
            out << '}';
        }
        out << (t.rows.empty() ? "]" : "\n  ]");
        sep = ",\n  ";
    }
    out << "\n}\n";
}

// ---------------------------------------------------------------------------------------------
// Output files

int CheckOutput(const std::string& output, const std::vector<std::string>& inputs) {
    if (output == "-") return 0;
    std::error_code ec;
    if (fs::is_directory(output, ec)) return Fail(output + " is a folder, not a file");
    for (const auto& in : inputs) {
        if (in.empty() || in == "-") continue;
        if (fs::equivalent(output, in, ec))
            return Fail(output + " is also an input: write the result to another file");
    }
    return 0;
}

namespace {

// A new empty file with a unique name in `folder` ("" on failure), readable as umask allows.
std::string MakeTempFile(const fs::path& folder, const std::string& stem) {
    std::string name = (folder / ("." + stem + ".kelscan-XXXXXX")).string();
    const int fd = mkstemp(&name[0]);
    if (fd < 0) return "";
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
    close(fd);
    return name;
}

// Flushes a finished file to the disk, so that the rename never puts an empty or partial file
// in place after a power loss.
bool SyncFile(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY);
    if (fd < 0) return false;
    const bool ok = fsync(fd) == 0;
    close(fd);
    return ok;
}

bool CopyToStdout(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    std::cout << in.rdbuf();
    std::cout.flush();
    return static_cast<bool>(std::cout);
}

}  // namespace

std::string PrivateTempFile() {
    std::error_code ec;
    std::string name = (fs::temp_directory_path(ec) / "kelscan-XXXXXX").string();
    const int fd = mkstemp(&name[0]);
    if (fd < 0) return "";
    close(fd);
    return name;
}

int WriteOutputFile(const std::string& output, const std::vector<std::string>& inputs,
                    const std::function<bool(const std::string& path)>& write) {
    if (const int rc = CheckOutput(output, inputs)) return rc;
    const bool toStdout = output == "-";
    std::error_code ec;
    const fs::path target = fs::absolute(toStdout ? fs::path("stdout") : fs::path(output), ec);
    const fs::path folder = toStdout ? fs::temp_directory_path(ec) : target.parent_path();
    const std::string temp = MakeTempFile(folder, target.filename().string());
    if (temp.empty()) return Fail("cannot write " + output);
    bool ok = write(temp);
    if (ok && toStdout) {
        ok = CopyToStdout(temp);
    } else if (ok) {
        ok = SyncFile(temp);
        if (ok) fs::rename(temp, target, ec);
        ok = ok && !ec;
    }
    fs::remove(temp, ec);
    return ok ? 0 : Fail("cannot write " + output);
}

int WriteOutputStream(const std::string& output, const std::vector<std::string>& inputs,
                      const std::function<bool(std::ostream& out)>& write) {
    if (output == "-") {
        const bool ok = write(std::cout) && std::cout.flush();
        return ok ? 0 : Fail("cannot write to standard output");
    }
    return WriteOutputFile(output, inputs, [&](const std::string& path) {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        if (!out || !write(out)) return false;
        out.close();
        return static_cast<bool>(out);
    });
}

bool EndsWithNoCase(const std::string& s, const std::string& tail) {
    if (s.size() < tail.size()) return false;
    for (std::size_t i = 0; i < tail.size(); ++i) {
        char c = s[s.size() - tail.size() + i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != tail[i]) return false;
    }
    return true;
}

std::ostream& ReportStream(const std::string& output) {
    return output == "-" ? std::cerr : std::cout;
}

}  // namespace kelscan_cli
