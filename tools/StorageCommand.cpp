// kelscan sdb ..., kelscan log status and kelscan project paths: the scan point database, the
// scan recovery log and a project's file names.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "platform/File.h"
#include "platform/KelString.h"
#include "platform/Process.h"
#include "storage/Project.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

namespace {

using kelscan_cli::Fail;
using kelscan_cli::SetExit;
using PointArray = kel_templ::CKelArray<CSPoint, CSPoint&>;
namespace fs = std::filesystem;

kel_text::CKelString Wide(const std::string& s) { return kel_text::Utf8ToWide(s.c_str()); }
std::string Utf8(const wchar_t* s) { return kel_text::WideToUtf8(s); }
// Text of a point as it is stored (single-byte) shown as UTF-8.
std::string Shown(const kel_text::CKelString& s) { return Utf8(s); }

std::string Fixed6(double v) { return kelscan_cli::Fixed(v, 6); }

// Program paths are host paths; make them absolute so that the library's device-path mapping
// (relative paths against the current directory) cannot surprise.
std::string HostPath(const std::string& path) {
    std::error_code ec;
    const fs::path abs = fs::absolute(path, ec);
    return ec ? path : abs.lexically_normal().string();
}

// Opens a database for reading or updating; a failure returns the exit status after one line.
int OpenDatabase(CSFile& db, const std::string& path, int mode, int& records) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return Fail("cannot read " + path);
    records = db.OpenDB(Wide(HostPath(path)), mode);
    if (records == SFILE_BADDATA) return Fail(path + " is not a scan point database");
    if (records < 0) return Fail("cannot open " + path);
    return 0;
}

// Reads every record of an open database.
int ReadAll(CSFile& db, int records, const std::string& path, PointArray& pts) {
    for (int n = 1; n <= records; ++n) {
        CSPoint p;
        if (db.ReadPoint(p, n) != n)
            return Fail("cannot read record " + std::to_string(n) + " of " + path);
        pts.Add(p);
    }
    return 0;
}

// Date and time codes back to a calendar time; the codes are (month + year * 12) * 31 + day
// and milliseconds of the day.
std::string CodeToText(long date, long time) {
    if (date <= 0 || time < 0) return "unknown";
    long q = date / 31, day = date % 31;
    if (day == 0) {
        day = 31;
        --q;
    }
    long year = q / 12, month = q % 12;
    if (month == 0) {
        month = 12;
        --year;
    }
    char buf[96];
    std::snprintf(buf, sizeof buf, "%04ld-%02ld-%02ld %02ld:%02ld:%02ld.%03ld UTC", year, month,
                  day, time / 3600000, time / 60000 % 60, time / 1000 % 60, time % 1000);
    return buf;
}

int SdbInfo(const std::string& path, kelscan_cli::Format format) {
    using kelscan_cli::Value;
    CSFile db;
    int records = 0;
    if (const int rc = OpenDatabase(db, path, SFILE_READ, records)) return rc;
    PointArray pts;
    if (const int rc = ReadAll(db, records, path, pts)) return rc;
    long header[2] = {0, 0};
    db.ReadHeader(header);
    int live = 0;
    for (int i = 0; i < pts.GetSize(); ++i) live += db.IsAliveRecord(pts[i]);
    const std::uintmax_t length = fs::file_size(path);
    const std::uintmax_t tail =
        length - CSFile::kHeaderSize - std::uintmax_t(records) * CSFile::kRecordSize;
    kelscan_cli::Report r;
    r.Add("file", "", Value::Text(path));
    r.Add("records", "", Value::Int(records));
    r.Add("live", "", Value::Int(live));
    r.Add("deleted", "", Value::Int(records - live));
    r.Add("header_values", "",
          Value::Text(std::to_string(header[0]) + "," + std::to_string(header[1])));
    r.Add("started", "", Value::Text(CodeToText(header[0], header[1])));
    if (tail != 0 || format != kelscan_cli::Format::kText)
        r.Add("torn_trailing_bytes", "", Value::Int(static_cast<long long>(tail)), " (ignored)");
    kelscan_cli::PrintReport(std::cout, r, format);
    return 0;
}

void PrintPoint(std::ostream& out, const CSPoint& p) {
    out << Shown(p.m_name) << ',' << Fixed6(p.m_X) << ',' << Fixed6(p.m_Y) << ',' << Fixed6(p.m_Z)
        << ',' << Shown(p.m_code) << ',' << p.m_value << ',' << Shown(p.m_text1) << ','
        << Shown(p.m_text2);
}

int SdbDump(const std::string& path, std::ostream& out, kelscan_cli::Format format) {
    using kelscan_cli::Value;
    CSFile db;
    int records = 0;
    if (const int rc = OpenDatabase(db, path, SFILE_READ, records)) return rc;
    PointArray pts;
    if (const int rc = ReadAll(db, records, path, pts)) return rc;
    kelscan_cli::Table t{"records",
                         {"rec", "status", "name", "north_m", "east_m", "height_m", "code", "value",
                          "text1", "text2"},
                         {}};
    for (int i = 0; i < pts.GetSize(); ++i) {
        const CSPoint& p = pts[i];
        t.rows.push_back({Value::Int(p.m_recNo),
                          Value::Text(db.IsAliveRecord(pts[i]) ? "live" : "deleted"),
                          Value::Text(Shown(p.m_name)), Value::Num(p.m_X, 6), Value::Num(p.m_Y, 6),
                          Value::Num(p.m_Z, 6), Value::Text(Shown(p.m_code)), Value::Int(p.m_value),
                          Value::Text(Shown(p.m_text1)), Value::Text(Shown(p.m_text2))});
    }
    kelscan_cli::Report r;
    r.tables.push_back(t);
    kelscan_cli::PrintReport(out, r, format);
    return 0;
}

int SdbExport(const std::string& path, const std::string& csv) {
    CSFile db;
    int records = 0;
    if (const int rc = OpenDatabase(db, path, SFILE_READ, records)) return rc;
    PointArray all, live;
    if (const int rc = ReadAll(db, records, path, all)) return rc;
    for (int i = 0; i < all.GetSize(); ++i)
        if (db.IsAliveRecord(all[i])) live.Add(all[i]);
    if (const int rc = kelscan_cli::WriteOutputFile(csv, {path}, [&](const std::string& temp) {
            return db.WriteCSV(Wide(temp), &live) >= 0;
        }))
        return rc;
    kelscan_cli::ReportStream(csv) << "exported " << live.GetSize() << " live points of " << records
                                   << " records to " << csv << '\n';
    return 0;
}

// Checks a database text file line by line (name,north,east,height[,code,value,text1,text2])
// and copies its point lines, without a header, comments or blank lines, to `copy`; "" or the
// failure line naming the bad line. `count` gets the number of points.
std::string CheckPointText(const std::string& csv, const std::string& copy, int& count) {
    std::vector<std::string> lines;
    std::string error = kelscan_cli::ReadLines(csv, lines);
    if (!error.empty()) return error;
    std::ofstream out(copy, std::ios::binary | std::ios::trunc);
    bool first = true;
    count = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const std::size_t lead = lines[i].find_first_not_of(" \t");
        if (lead == std::string::npos || lines[i][lead] == '#') continue;
        const auto f = kelscan_cli::SplitCsv(lines[i]);
        double v = 0.0;
        int n = 0;
        const bool header = first && std::none_of(f.begin(), f.end(), [&](const std::string& t) {
                                return kelscan_cli::ParseDouble(t, v);
                            });
        first = false;
        if (header) continue;
        const std::string where = csv + ":" + std::to_string(i + 1) + ": ";
        if (f.size() < 4 || f.size() > 8)
            return where + "expected name,north,east,height[,code,value,text1,text2], found " +
                   std::to_string(f.size()) + " fields";
        for (std::size_t k = 1; k < 4; ++k)
            if (!kelscan_cli::ParseDouble(f[k], v))
                return where + "\"" + f[k] + "\" is not a finite number";
        if (f.size() > 5 && !f[5].empty() && !kelscan_cli::ParseInt(f[5], n))
            return where + "value \"" + f[5] + "\" is not a whole number";
        out << lines[i] << '\n';
        ++count;
    }
    out.close();
    return out ? "" : "cannot write a temporary copy of " + csv;
}

int SdbImport(const std::string& csv, const std::string& path, bool force) {
    if (const int rc = kelscan_cli::CheckOutput(path, {csv})) return rc;
    const std::string copy = kelscan_cli::PrivateTempFile();
    if (copy.empty()) return Fail("cannot make a temporary file");
    int count = 0;
    const std::string error = CheckPointText(csv, copy, count);
    std::error_code ec;
    CSFile db;
    PointArray pts;
    const int n = error.empty() ? db.ReadCSV(Wide(copy), pts) : 0;
    fs::remove(copy, ec);
    if (!error.empty()) return Fail(error);
    if (n == SFILE_BADDATA)
        return Fail(csv +
                    " has a line that is not name,north,east,height[,code,value,text1,text2]");
    if (n < 0) return Fail("cannot read " + csv);
    if (n == 0 && !force && fs::exists(path, ec))
        return Fail(csv + " holds no points: " + path +
                    " is left as it is (--force replaces it with an empty database)");
    // The database is written through the device's \temp folder; put that beside the output so
    // the final rename stays on one file system, and remove it again when it is left empty.
    const fs::path out = HostPath(path);
    const std::string root = out.parent_path().string();
    kel_platform::SetDeviceRoot(root.c_str());
    const bool hadTemp = fs::exists(out.parent_path() / "temp", ec);
    const int written = db.WriteDB(Wide(out.string()), pts);
    if (!hadTemp) fs::remove(out.parent_path() / "temp", ec);
    kel_platform::SetDeviceRoot(nullptr);
    if (written < 0) return Fail("cannot write " + path);
    std::cout << "imported " << written << " points into " << path << '\n';
    return 0;
}

int SdbDelete(const std::string& number, const std::string& path) {
    int n = 0;
    if (!kelscan_cli::ParseInt(number, n)) return Fail("\"" + number + "\" is not a record number");
    CSFile db;
    int records = 0;
    // Checked on the file as it is: opening for update would first mend it (a header into an
    // empty file, a torn tail cut off).
    if (const int rc = OpenDatabase(db, path, SFILE_READ, records)) return rc;
    if (n < 1 || n > records)
        return Fail("record " + number + " is not in " + path + " (" + std::to_string(records) +
                    " records)");
    CSPoint p;
    if (db.ReadPoint(p, n) != n) return Fail("cannot read record " + number + " of " + path);
    if (!db.IsAliveRecord(p)) {
        std::cout << "record " << n << " (" << Shown(p.m_name) << ") was already deleted\n";
        return 0;
    }
    if (const int rc = OpenDatabase(db, path, SFILE_UPDATE, records)) return rc;
    if (db.DeletePoint(n) != n) return Fail("cannot write " + path);
    if (db.CloseDB() != 0) return Fail("cannot write " + path);
    std::cout << "deleted record " << n << " (" << Shown(p.m_name) << ")\n";
    return 0;
}

// Reads the log at path through a scratch device root (CSDBLog always opens "\temp\SDB.log"
// and sets its length), so the file itself is never changed.
int LogStatus(const std::string& given, std::ostream& out) {
    const std::string path =
        given.empty() ? kel_platform::MapDevicePath(L"\\temp\\SDB.log") : given;
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return Fail("cannot read " + path);
    const std::uintmax_t size = fs::file_size(path, ec);
    if (ec || size != static_cast<std::uintmax_t>(CSDBLog::kLogSize))
        return Fail(path + " is not a scan log (" + std::to_string(size) + " bytes, want 768)");
    const fs::path scratch = kel_platform::CreatePrivateFolder("kelscan-log-");
    if (scratch.empty()) return Fail("cannot make a scratch folder for " + path);
    fs::create_directories(scratch / "temp", ec);
    fs::copy_file(path, scratch / "temp" / "SDB.log", fs::copy_options::overwrite_existing, ec);
    if (ec) return Fail("cannot read " + path);
    const std::string root = scratch.string();
    kel_platform::SetDeviceRoot(root.c_str());
    CSDBLog log;
    log.SetLogMode(1);
    int verdict = 0, info = -1;
    char name[64] = {};
    char text[33] = {};
    long dateTime[2] = {0, 0};
    int value = 0;
    CSPoint last;
    if (log.Start() == 0) {
        verdict = log.JudgeSDBLog();
        info = log.GetLogInfo(name, value, dateTime, last, text);
        log.Stop();
    }
    kel_platform::SetDeviceRoot(nullptr);
    fs::remove_all(scratch, ec);
    out << "log: " << path << '\n';
    if (info != 0) {
        out << "state: no scan logged\n";
        return 0;
    }
    out << "state: " << (verdict == -1 ? "interrupted (the scan was not ended)" : "ended") << '\n'
        << "database: " << Utf8(kel_text::SingleByteToWide(name)) << '\n'
        << "value: " << value << '\n'
        << "text: " << Utf8(kel_text::SingleByteToWide(text)) << '\n'
        << "started: " << CodeToText(dateTime[0], dateTime[1]) << " (codes " << dateTime[0] << ','
        << dateTime[1] << ")\n"
        << "last point: ";
    if (last.m_name.IsEmpty()) {
        out << "none\n";
    } else {
        PrintPoint(out, last);
        out << '\n';
    }
    return 0;
}

int ProjectPaths(const std::string& folder, const std::string& name, const std::string& camera,
                 kelscan_cli::Format format) {
    using kelscan_cli::Value;
    if (name.empty()) return Fail("the project name is empty");
    CProject pr(Wide(name));
    pr.FilePathMake(Wide(folder));
    const int found = pr.FilePathMakeCamera(Wide(camera));
    kelscan_cli::Report r;
    r.Add("imc", "", Value::Text(Utf8(pr.m_strImcPath)));
    r.Add("csv", "", Value::Text(Utf8(pr.m_strCsvPath)));
    r.Add("tmp_imc", "", Value::Text(Utf8(pr.m_strTmpImcPath)));
    r.Add("tmp_csv", "", Value::Text(Utf8(pr.m_strTmpCsvPath)));
    r.Add("old_imc", "", Value::Text(Utf8(pr.m_strDelImcPath)));
    r.Add("old_csv", "", Value::Text(Utf8(pr.m_strDelCsvPath)));
    r.Add("dlt", "", Value::Text(Utf8(pr.m_strDltPath)));
    r.Add("backup", "", Value::Text(Utf8(pr.m_strBkhPath)));
    r.Add("camera", "", Value::Text(found ? Utf8(pr.m_strCameraPath) : std::string()),
          found ? "" : "(no " + camera + " in the folder)");
    kelscan_cli::PrintReport(std::cout, r, format);
    return 0;
}

void Setup(CLI::App& app) {
    CLI::App* sdb = app.add_subcommand("sdb", "Scan point database files");
    sdb->require_subcommand(1);
    static std::string file, other, number;
    static kelscan_cli::Format format = kelscan_cli::Format::kText;
    static bool force = false;
    CLI::App* info = sdb->add_subcommand("info", "Record counts and header of a database");
    info->add_option("FILE", file, "The database")->required();
    kelscan_cli::AddFormatOption(info, format);
    info->callback([]() { SetExit(SdbInfo(file, format)); });
    CLI::App* dump = sdb->add_subcommand("dump", "Every record, deleted ones marked");
    dump->add_option("FILE", file, "The database")->required();
    kelscan_cli::AddFormatOption(dump, format);
    dump->callback([]() { SetExit(SdbDump(file, std::cout, format)); });
    CLI::App* exp = sdb->add_subcommand("export-csv", "Write the live points to a text file");
    exp->add_option("FILE", file, "The database")->required();
    exp->add_option("-o,--output", other, "The text file to write (- for stdout)")->required();
    exp->callback([]() { SetExit(SdbExport(file, other)); });
    CLI::App* imp = sdb->add_subcommand("import-csv", "Make a database from a text file");
    imp->add_option("IN", other,
                    "Text file, name,north,east,height[,code,value,text1,text2] (m) per line; - "
                    "reads standard input")
        ->required();
    imp->add_option("-o,--output", file, "The database to write (replaced safely)")->required();
    imp->add_flag("--force", force, "Replace the database even with no points");
    imp->callback([]() { SetExit(SdbImport(other, file, force)); });
    CLI::App* del = sdb->add_subcommand("delete", "Mark record N deleted (it keeps its number)");
    del->add_option("N", number, "Record number, from 1")->required();
    del->add_option("FILE", file, "The database")->required();
    del->callback([]() { SetExit(SdbDelete(number, file)); });

    CLI::App* log = app.add_subcommand("log", "The scan recovery log");
    log->require_subcommand(1);
    static std::string logPath;
    CLI::App* status = log->add_subcommand("status", "Was the last scan interrupted?");
    status->add_option("PATH", logPath, "The log (default: \\temp\\SDB.log under the device root)");
    status->callback([]() { SetExit(LogStatus(logPath, std::cout)); });

    CLI::App* project = app.add_subcommand("project", "A project's files");
    project->require_subcommand(1);
    static std::string folder, name, camera = "*.cam";
    CLI::App* paths = project->add_subcommand("paths", "The file names of a project");
    paths->add_option("FOLDER", folder, "Project folder (a device path such as \\Data)")
        ->required();
    paths->add_option("NAME", name, "Project name")->required();
    paths->add_option("--camera", camera, "Pattern of the camera file")->capture_default_str();
    kelscan_cli::AddFormatOption(paths, format);
    paths->callback([]() { SetExit(ProjectPaths(folder, name, camera, format)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    out << "Scan point database scan.dbs:\n";
    if (const int rc = SdbDump(dataDir + "/scan.dbs", out, kelscan_cli::Format::kText)) return rc;
    out << "\nScan log SDB.log:\n";
    return LogStatus(dataDir + "/SDB.log", out);
}

kelscan_cli::CommandRegistrar reg("storage", &Setup);
kelscan_cli::DemoRegistrar demo(60, "The scan point database and the scan recovery log", &Demo);

}  // namespace
