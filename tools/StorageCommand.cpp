// kelscan sdb ..., kelscan log status and kelscan project paths: the scan point database, the
// scan recovery log and a project's file names.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "platform/File.h"
#include "platform/Process.h"
#include "platform/KelString.h"
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

std::string Fixed6(double v) {
    char buf[400];
    std::snprintf(buf, sizeof buf, "%.6f", v);
    return buf;
}

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

int SdbInfo(const std::string& path) {
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
    std::cout << "file: " << path << "\nrecords: " << records << "\nlive: " << live
              << "\ndeleted: " << records - live << "\nheader values: " << header[0] << ','
              << header[1] << "\nstarted: " << CodeToText(header[0], header[1]) << '\n';
    const std::uintmax_t tail =
        length - CSFile::kHeaderSize - std::uintmax_t(records) * CSFile::kRecordSize;
    if (tail != 0) std::cout << "torn trailing bytes (ignored): " << tail << '\n';
    return 0;
}

void PrintPoint(std::ostream& out, const CSPoint& p) {
    out << Shown(p.m_name) << ',' << Fixed6(p.m_X) << ',' << Fixed6(p.m_Y) << ',' << Fixed6(p.m_Z)
        << ',' << Shown(p.m_code) << ',' << p.m_value << ',' << Shown(p.m_text1) << ','
        << Shown(p.m_text2);
}

int SdbDump(const std::string& path, std::ostream& out) {
    CSFile db;
    int records = 0;
    if (const int rc = OpenDatabase(db, path, SFILE_READ, records)) return rc;
    PointArray pts;
    if (const int rc = ReadAll(db, records, path, pts)) return rc;
    out << "rec,status,name,X,Y,Z,code,value,text1,text2\n";
    for (int i = 0; i < pts.GetSize(); ++i) {
        out << pts[i].m_recNo << ',' << (db.IsAliveRecord(pts[i]) ? "live" : "deleted") << ',';
        PrintPoint(out, pts[i]);
        out << '\n';
    }
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
    if (db.WriteCSV(Wide(HostPath(csv)), &live) < 0) return Fail("cannot write " + csv);
    std::cout << "exported " << live.GetSize() << " live points of " << records << " records to "
              << csv << '\n';
    return 0;
}

int SdbImport(const std::string& csv, const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(csv, ec)) return Fail("cannot read " + csv);
    CSFile db;
    PointArray pts;
    const int n = db.ReadCSV(Wide(HostPath(csv)), pts);
    if (n == SFILE_BADDATA)
        return Fail(csv + " has a line that is not name,X,Y,Z[,code,value,text1,text2]");
    if (n < 0) return Fail("cannot read " + csv);
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
                 std::ostream& out) {
    if (name.empty()) return Fail("the project name is empty");
    CProject pr(Wide(name));
    pr.FilePathMake(Wide(folder));
    const int found = pr.FilePathMakeCamera(Wide(camera));
    out << "imc: " << Utf8(pr.m_strImcPath) << "\ncsv: " << Utf8(pr.m_strCsvPath)
        << "\ntmp imc: " << Utf8(pr.m_strTmpImcPath) << "\ntmp csv: " << Utf8(pr.m_strTmpCsvPath)
        << "\nold imc: " << Utf8(pr.m_strDelImcPath) << "\nold csv: " << Utf8(pr.m_strDelCsvPath)
        << "\nDLT: " << Utf8(pr.m_strDltPath) << "\nbackup: " << Utf8(pr.m_strBkhPath)
        << "\ncamera: " << (found ? Utf8(pr.m_strCameraPath) : "(no " + camera + " in the folder)")
        << '\n';
    return 0;
}

void Setup(CLI::App& app) {
    CLI::App* sdb = app.add_subcommand("sdb", "Scan point database files");
    sdb->require_subcommand(1);
    static std::string file, other, number;
    CLI::App* info = sdb->add_subcommand("info", "Record counts and header of a database");
    info->add_option("FILE", file, "The database")->required();
    info->callback([]() { SetExit(SdbInfo(file)); });
    CLI::App* dump = sdb->add_subcommand("dump", "Every record as CSV, deleted ones marked");
    dump->add_option("FILE", file, "The database")->required();
    dump->callback([]() { SetExit(SdbDump(file, std::cout)); });
    CLI::App* exp = sdb->add_subcommand("export-csv", "Write the live points to a text file");
    exp->add_option("FILE", file, "The database")->required();
    exp->add_option("OUT", other, "The text file to write")->required();
    exp->callback([]() { SetExit(SdbExport(file, other)); });
    CLI::App* imp = sdb->add_subcommand("import-csv", "Make a database from a text file");
    imp->add_option("IN", other, "The text file")->required();
    imp->add_option("FILE", file, "The database to write (replaced safely)")->required();
    imp->callback([]() { SetExit(SdbImport(other, file)); });
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
    paths->callback([]() { SetExit(ProjectPaths(folder, name, camera, std::cout)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    out << "Scan point database scan.dbs:\n";
    if (const int rc = SdbDump(dataDir + "/scan.dbs", out)) return rc;
    out << "\nScan log SDB.log:\n";
    return LogStatus(dataDir + "/SDB.log", out);
}

kelscan_cli::CommandRegistrar reg("storage", &Setup);
kelscan_cli::DemoRegistrar demo(60, "The scan point database and the scan recovery log", &Demo);

}  // namespace
