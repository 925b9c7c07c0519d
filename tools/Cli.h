#pragma once
// Shared pieces of the kelscan program: the sub-command registry, the demo registry, and the
// helpers every sub-command uses for bad input (one line on stderr, exit status 2).
#include <CLI/CLI.hpp>

#include <ostream>
#include <string>
#include <vector>

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

// Exit status of the sub-command that ran.
void SetExit(int status);

// Writes "kelscan: message" to stderr and returns kExitBadInput.
int Fail(const std::string& message);

// Strict number parsing: the whole text must be a finite number.
bool ParseDouble(const std::string& text, double& value);
bool ParseInt(const std::string& text, int& value);

// v with the given number of decimals ("%.*f").
std::string Fixed(double v, int places);

// Splits one CSV line at commas, trimming blanks around each field.
std::vector<std::string> SplitCsv(const std::string& line);

// Reads a text file's lines (CR LF or LF); false when it cannot be opened.
bool ReadLines(const std::string& path, std::vector<std::string>& lines);

// One row of a numeric CSV file: an optional leading name (a first field that is not a
// number) and the numbers that follow. `line` is the 1-based line number in the file.
struct CsvRow {
    std::string name;
    std::vector<double> values;
    int line = 0;
};

// Reads a CSV file of numeric rows. Blank lines and lines starting with '#' are skipped, and so
// is a first line whose fields are not numbers (a header). Every other row must carry at least
// minValues numbers after its optional name; otherwise error is "FILE:LINE: ..." and the
// result false. A file that cannot be opened or holds no row fails too.
bool ReadCsvRows(const std::string& path, int minValues, std::vector<CsvRow>& rows,
                 std::string& error);

// Reads a closed polygon from a CSV file of vertices (x,y or x,y,z per row); `what` names it in
// the failure line ("a region needs at least 3 vertices"). Returns 0, or Fail's status.
int ReadPolygonCsv(const std::string& path, const char* what, CPolyline& pl);

}  // namespace kelscan_cli
