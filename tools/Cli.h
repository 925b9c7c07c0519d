#pragma once
// Shared pieces of the kelscan program: the sub-command registry, the demo registry, the helpers
// every sub-command uses for bad input (one line on stderr, exit status 2), numbers as text,
// the one CSV reader, the output formats (--format text|csv|json) and the safe writing of
// output files (-o FILE, "-" for standard output).
//
// Coordinates in every file the program reads or writes are north first (north, east, height
// in metres, the surveying frame), except polygons and scan regions, whose x,y are those of the
// plane they were drawn in.
#include <CLI/CLI.hpp>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "imaging/FCIMGBitmap.h"

class CPolyline;

namespace kelscan_cli {

// Exit status of a run that failed on its input (bad number, missing file, degenerate data).
constexpr int kExitBadInput = 2;

// Adds one group of sub-commands to the program. Each tools/*Command.cpp registers its group
// with a static CommandRegistrar; the group's callbacks store their exit status with SetExit.
typedef void (*CommandSetup)(CLI::App& app);
struct CommandRegistrar {
    CommandRegistrar(const char* name, CommandSetup setup);
};

// One step of `kelscan demo`: prints what it did to out, reads the sample data from dataDir,
// and returns 0 (or an exit status). Steps run in ascending order.
typedef int (*DemoStep)(std::ostream& out, const std::string& dataDir);
struct DemoRegistrar {
    DemoRegistrar(int order, const char* name, DemoStep step);
};

// The folder into which `kelscan demo` writes the main job's files (--out).
const std::string& DemoOutDir();

// Exit status of the sub-command that ran.
void SetExit(int status);

// Writes "kelscan: message" to stderr and returns kExitBadInput.
int Fail(const std::string& message);

// ---------------------------------------------------------------------------------------------
// Numbers as text (never the process locale; see platform/NumText.h)

// Strict parsing: the whole text must be a finite number within the double range (no nan,
// inf or overflow), or a decimal integer within int's range.
bool ParseDouble(const std::string& text, double& value);
bool ParseInt(const std::string& text, int& value);

// v with the given number of decimals ("%.*f" of the C locale, any magnitude).
std::string Fixed(double v, int places);

// A command-line option holding one finite number (CLI11's own conversion accepts nan, inf and
// overflow, and follows the locale): "--height: \"nan\" is not a finite number" otherwise.
CLI::Option* AddNumberOption(CLI::App* app, const std::string& name, double& value,
                             const std::string& description);
// The same for an option of exactly `count` numbers (--station N E H).
CLI::Option* AddNumbersOption(CLI::App* app, const std::string& name, std::vector<double>& values,
                              int count, const std::string& description);

// ---------------------------------------------------------------------------------------------
// Input files

// Splits one CSV line at commas, trimming blanks around each field.
std::vector<std::string> SplitCsv(const std::string& line);

// Reads a text file's lines (CR LF or LF); "-" reads standard input. "" or the failure line
// ("cannot read PATH", "PATH is a folder, not a file").
std::string ReadLines(const std::string& path, std::vector<std::string>& lines);

// One row of a numeric CSV file: its name (empty when the row has none) and its coordinates.
// `line` is the 1-based line number in the file.
struct CsvRow {
    std::string name;
    std::vector<double> values;
    int line = 0;
};

// What a reader accepts per row: the numbers of coordinates, whether a row carries a name
// before them, and the layout named in messages ("[name,]north,east,height").
struct CsvShape {
    enum Names { kNoName, kOptionalName, kName };
    std::vector<int> counts;
    Names names;
    std::string layout;
};

// The one CSV reader of the program. Blank lines and lines starting with '#' are skipped, and
// so is a first line none of whose fields is a number (a header). A row with as many fields as
// coordinates is unnamed; a row with exactly one field more takes its first field as its name,
// whatever it holds (field books number their points); any other count is an error. Errors
// are "FILE:LINE: ...", and so is a file without rows ("FILE: no data rows").
bool ReadCsvRows(const std::string& path, const CsvShape& shape, std::vector<CsvRow>& rows,
                 std::string& error);
// Named rows of minValues or minValues + 1 numbers (name,x,y[,z] for minValues 2).
bool ReadCsvRows(const std::string& path, int minValues, std::vector<CsvRow>& rows,
                 std::string& error);

// Reads a closed polygon from a CSV file of vertices (x,y or x,y,z per row); `what` names it in
// the failure line ("a region needs at least 3 vertices"). Returns 0, or Fail's status.
int ReadPolygonCsv(const std::string& path, const char* what, CPolyline& pl);

// ---------------------------------------------------------------------------------------------
// Results: --format text|csv|json

enum class Format { kText, kCsv, kJson };

// Adds --format text|csv|json (text, for people, by default).
CLI::Option* AddFormatOption(CLI::App* app, Format& format);

// One value of a result: a number shown in text with `places` decimals (or, for places < 0, in
// its shortest exact form; csv and json carry all 17 significant digits), an integer, or a text.
struct Value {
    enum Kind { kNumber, kInteger, kText };
    Kind kind = kText;
    double number = 0.0;
    long long integer = 0;
    int places = 0;
    std::string text;
    static Value Num(double v, int places);
    static Value Int(long long v);
    static Value Text(const std::string& s);
};

// A single result. `key` names it in csv and json (snake case, the unit after an underscore:
// "time_s"); text shows `label: value unit` and then `note`, which csv and json leave out.
struct Field {
    std::string key, label, unit;
    Value value;
    std::string note;
};

// A table of results; `columns` carry their units ("H_deg", "north_m").
struct Table {
    std::string name;
    std::vector<std::string> columns;
    std::vector<std::vector<Value>> rows;
};

// What a command prints. text: one `label: value unit` line per field, then each table that has
// rows as a header line and comma-separated rows. csv: the fields as a table `quantity,value`
// (when there are any; the key carries the unit), then each table, separated by one blank line.
// json: one object with a member per field and an array of row objects per table.
struct Report {
    std::vector<Field> fields;
    std::vector<Table> tables;
    void Add(const std::string& key, const std::string& unit, const Value& v,
             const std::string& note = "");
};
void PrintReport(std::ostream& out, const Report& report, Format format);

// ---------------------------------------------------------------------------------------------
// Output files

// Fails (Fail's status) when `output` is one of `inputs` (the same file, however named), or 0.
int CheckOutput(const std::string& output, const std::vector<std::string>& inputs);

// Writes an output file safely: CheckOutput first, then `write(path)` writes a new file beside
// the target, which is renamed into place only when the writer succeeded; a failed or killed
// write leaves the previous file as it was. "-" writes to standard output (through a private
// temporary file). Returns 0, or Fail's status ("cannot write OUTPUT").
int WriteOutputFile(const std::string& output, const std::vector<std::string>& inputs,
                    const std::function<bool(const std::string& path)>& write);
// The same for a writer that writes to a stream.
int WriteOutputStream(const std::string& output, const std::vector<std::string>& inputs,
                      const std::function<bool(std::ostream& out)>& write);

// A new empty file only this user can read, in the system's temporary folder ("" on failure);
// the caller removes it.
std::string PrivateTempFile();

// Whether `s` ends in `tail` (lower case), ignoring the case of ASCII letters in s.
bool EndsWithNoCase(const std::string& s, const std::string& tail);

// ---------------------------------------------------------------------------------------------
// Photographs

// The one line (Fail's status) for a photograph that did not load; 0 for SC_IMG_OK.
int PhotoLoadFailure(SC_IMG_ERRORS rc, const std::string& photo);
// Grey value 0..255 (the mean of red, green and blue) of pixel (x, y) of a loaded bitmap, y
// from the top; the caller keeps x and y inside it.
int PhotoGrey(const KelDib& b, long x, long y);

// Where a command's report of what it wrote goes: stdout, or stderr when an output is "-".
std::ostream& ReportStream(const std::string& output);

}  // namespace kelscan_cli
