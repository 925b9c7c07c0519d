// Scan files: the scan point database (CSFile) as a numpy structured array, and the scan log's
// status (CSDBLog).
#include <filesystem>
#include <system_error>

#include "Common.h"
#include "platform/File.h"
#include "platform/KelString.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

namespace kel_py {

namespace {

namespace fs = std::filesystem;
typedef kel_templ::CKelArray<CSPoint, CSPoint&> PointArray;

// Characters each text field keeps (its bytes less the closing NUL).
constexpr int kNameChars = static_cast<int>(SPOINTREC::kLenName) - 1;
constexpr int kCodeChars = static_cast<int>(SPOINTREC::kLenCode) - 1;
constexpr int kTextChars = static_cast<int>(SPOINTREC::kLenText1) - 1;

py::dtype RecordType() {
    py::list fields;
    auto add = [&fields](const char* name, const std::string& type) {
        fields.append(py::make_tuple(name, type));
    };
    add("record", "<i4");
    add("deleted", "?");
    add("name", "<U" + std::to_string(kNameChars));
    add("north", "<f8");
    add("east", "<f8");
    add("height", "<f8");
    add("code", "<U" + std::to_string(kCodeChars));
    add("value", "<i4");
    add("text1", "<U" + std::to_string(kTextChars));
    add("text2", "<U" + std::to_string(kTextChars));
    return py::dtype::from_args(fields);
}

// A point's text (read from single-byte text) as Python text.
std::string Shown(const kel_text::CKelString& s) { return Utf8(s.GetString()); }

py::array Records(const PointArray& pts) {
    py::module_ np = py::module_::import("numpy");
    py::array out = np.attr("zeros")(pts.GetSize(), RecordType());
    py::list rec, del, name, n, e, h, code, value, t1, t2;
    for (int i = 0; i < pts.GetSize(); ++i) {
        const CSPoint& p = pts[i];
        rec.append(p.m_recNo);
        del.append(p.m_status == kSPointDeleted);
        name.append(Shown(p.m_name));
        n.append(p.m_X);
        e.append(p.m_Y);
        h.append(p.m_Z);
        code.append(Shown(p.m_code));
        value.append(p.m_value);
        t1.append(Shown(p.m_text1));
        t2.append(Shown(p.m_text2));
    }
    const char* keys[] = {"record", "deleted", "name",  "north", "east",
                          "height", "code",    "value", "text1", "text2"};
    py::list* cols[] = {&rec, &del, &name, &n, &e, &h, &code, &value, &t1, &t2};
    for (int k = 0; k < 10; ++k) out[py::str(keys[k])] = *cols[k];
    return out;
}

// The device root pointed at a folder while it lives (the database is replaced through the
// device's \temp folder, which must lie on the target's file system), with \temp made when
// missing and removed again when this made it and it is empty.
class RootAt {
public:
    explicit RootAt(const fs::path& folder) : m_previous(kel_platform::GetDeviceRoot()) {
        std::error_code ec;
        m_temp = folder / "temp";
        m_made = !fs::exists(m_temp, ec) && fs::create_directory(m_temp, ec);
        const std::string root = folder.string();
        kel_platform::SetDeviceRoot(root.c_str());
    }
    ~RootAt() {
        std::error_code ec;
        if (m_made) fs::remove(m_temp, ec);  // only when empty
        kel_platform::SetDeviceRoot(m_previous.empty() ? nullptr : m_previous.c_str());
    }
    RootAt(const RootAt&) = delete;
    RootAt& operator=(const RootAt&) = delete;

private:
    std::string m_previous;
    fs::path m_temp;
    bool m_made = false;
};

std::string HostPath(const std::string& path) {
    std::error_code ec;
    const fs::path abs = fs::absolute(path, ec);
    return ec ? path : abs.lexically_normal().string();
}

py::tuple ReadSdb(const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) throw py::value_error("read_sdb: cannot read " + path);
    CSFile db;
    Call call;
    const int records = db.OpenDB(Wide(HostPath(path)).c_str(), SFILE_READ);
    if (records == SFILE_BADDATA) call.Fail("read_sdb: " + path + " is not a scan point database");
    if (records < 0) call.Fail("read_sdb: cannot open " + path);
    PointArray pts;
    for (int n = 1; n <= records; ++n) {
        CSPoint p;
        if (db.ReadPoint(p, n) != n)
            call.Fail("read_sdb: cannot read record " + std::to_string(n) + " of " + path);
        pts.Add(p);
    }
    long header[2] = {0, 0};
    db.ReadHeader(header);
    db.CloseDB();
    return py::make_tuple(Records(pts), py::make_tuple(header[0], header[1]));
}

// Column `key` of a structured array, or None when it has no such field.
py::object Column(const py::array& a, const char* key) {
    const py::object names = a.dtype().attr("names");
    if (names.is_none())
        throw py::type_error("records: expected a structured array (see read_sdb)");
    for (const py::handle h : names)
        if (h.cast<std::string>() == key) return a[py::str(key)];
    return py::none();
}

std::vector<std::string> TextColumn(const py::array& a, const char* key, int chars, bool required) {
    const py::object col = Column(a, key);
    std::vector<std::string> out(static_cast<std::size_t>(a.size()));
    if (col.is_none()) {
        if (required) throw py::value_error(std::string("records: no field '") + key + "'");
        return out;
    }
    const py::array c = py::array::ensure(col);
    if (c.dtype().kind() != 'U')
        throw py::type_error(std::string("records: field '") + key + "' is not text");
    py::ssize_t i = 0;
    for (const py::handle h : c) {
        const std::string s = h.cast<std::string>();
        const kel_text::CKelString w = kel_text::Utf8ToWide(s.c_str());
        if (w.GetLength() > chars)
            throw py::value_error(std::string("records: ") + key + " of row " + std::to_string(i) +
                                  " is longer than " + std::to_string(chars) + " characters");
        for (int k = 0; k < w.GetLength(); ++k)
            if (static_cast<unsigned long>(w.GetAt(k)) > 0xFF)
                throw py::value_error(std::string("records: ") + key + " of row " +
                                      std::to_string(i) +
                                      " holds a character the file cannot store (beyond U+00FF)");
        out[static_cast<std::size_t>(i++)] = s;
    }
    return out;
}

template <class T>
std::vector<T> NumberColumn(const py::array& a, const char* key, const char* kinds, bool required) {
    const py::object col = Column(a, key);
    if (col.is_none()) {
        if (required) throw py::value_error(std::string("records: no field '") + key + "'");
        return std::vector<T>(static_cast<std::size_t>(a.size()), T());
    }
    const py::array c = py::array::ensure(col);
    if (std::string(kinds).find(c.dtype().kind()) == std::string::npos)
        throw py::type_error(std::string("records: field '") + key + "' has dtype " +
                             py::str(c.dtype()).cast<std::string>());
    const py::array_t<T, py::array::c_style | py::array::forcecast> t(c);
    return std::vector<T>(t.data(), t.data() + t.size());
}

int WriteSdb(const std::string& path, const py::handle& records, const py::handle& header) {
    const py::array a = py::array::ensure(records);
    if (!a || a.ndim() != 1)
        throw py::type_error("records: expected a 1-d structured array (see read_sdb)");
    const std::vector<double> hv = Vector(header, 2, "header");
    for (const double v : hv)
        if (v != std::round(v) || v < -2147483648.0 || v > 2147483647.0)
            throw py::value_error("header: expected two 32-bit whole numbers");
    const auto name = TextColumn(a, "name", kNameChars, true);
    const auto code = TextColumn(a, "code", kCodeChars, false);
    const auto t1 = TextColumn(a, "text1", kTextChars, false);
    const auto t2 = TextColumn(a, "text2", kTextChars, false);
    const auto north = NumberColumn<double>(a, "north", "fiu", true);
    const auto east = NumberColumn<double>(a, "east", "fiu", true);
    const auto height = NumberColumn<double>(a, "height", "fiu", true);
    const auto value = NumberColumn<std::int64_t>(a, "value", "iu", false);
    const auto deleted = NumberColumn<bool>(a, "deleted", "b", false);
    PointArray pts;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (!std::isfinite(north[i]) || !std::isfinite(east[i]) || !std::isfinite(height[i]))
            throw py::value_error("records: row " + std::to_string(i) +
                                  " has a coordinate that is not finite");
        if (value[i] < INT32_MIN || value[i] > INT32_MAX)
            throw py::value_error("records: value of row " + std::to_string(i) +
                                  " is beyond 32 bits");
        CSPoint p;
        p.m_name = Wide(name[i]).c_str();
        p.m_code = Wide(code[i]).c_str();
        p.m_text1 = Wide(t1[i]).c_str();
        p.m_text2 = Wide(t2[i]).c_str();
        p.m_X = north[i];
        p.m_Y = east[i];
        p.m_Z = height[i];
        p.m_value = static_cast<std::int32_t>(value[i]);
        p.m_status = deleted[i] ? kSPointDeleted : 0;
        pts.Add(p);
    }
    const fs::path out = HostPath(path);
    Call call;
    int written = 0;
    {
        RootAt root(out.parent_path());
        CSFile db;
        written = db.WriteDB(Wide(out.string()).c_str(), pts);
    }
    if (written < 0) call.Fail("write_sdb: cannot write " + path);
    if (hv[0] != 0.0 || hv[1] != 0.0) {
        CSFile db;
        long a0 = static_cast<long>(hv[0]), a1 = static_cast<long>(hv[1]);
        if (db.OpenDB(Wide(out.string()).c_str(), SFILE_UPDATE) < 0 ||
            db.WriteHeader(a0, a1) != 0 || db.CloseDB() != 0)
            call.Fail("write_sdb: cannot write the header of " + path);
    }
    return written;
}

struct LogStatus {
    std::string state = "none";
    std::string database, text;
    int value = 0;
    long dateCode = 0, timeCode = 0;
    py::object last;
};

LogStatus ReadLog(const py::object& given) {
    const std::string path = given.is_none() ? kel_platform::MapDevicePath(L"\\temp\\SDB.log")
                                             : py::str(given).cast<std::string>();
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) throw py::value_error("log_status: cannot read " + path);
    const std::uintmax_t size = fs::file_size(path, ec);
    if (ec || size != static_cast<std::uintmax_t>(CSDBLog::kLogSize))
        throw py::value_error("log_status: " + path + " is not a scan log (" +
                              std::to_string(size) + " bytes, want 768)");
    // CSDBLog opens its fixed device path and sets the file's length; it reads a copy in a
    // private device root, so that the log itself is never touched.
    const fs::path scratch = kel_platform::CreatePrivateFolder("kelscan-log-");
    if (scratch.empty()) throw py::value_error("log_status: cannot make a scratch folder");
    fs::create_directories(scratch / "temp", ec);
    fs::copy_file(path, scratch / "temp" / "SDB.log", fs::copy_options::overwrite_existing, ec);
    LogStatus s;
    int verdict = 0, info = -1;
    char name[64] = {};
    char text[33] = {};
    long dateTime[2] = {0, 0};
    CSPoint last;
    {
        RootAt root(scratch);
        Call call;
        CSDBLog log;
        log.SetLogMode(1);
        if (!ec && log.Start() == 0) {
            verdict = log.JudgeSDBLog();
            info = log.GetLogInfo(name, s.value, dateTime, last, text);
            log.Stop();
        }
    }
    fs::remove_all(scratch, ec);
    PointArray pts;
    if (info == 0) {
        s.state = verdict == -1 ? "interrupted" : "ended";
        s.database = Utf8(kel_text::SingleByteToWide(name));
        s.text = Utf8(kel_text::SingleByteToWide(text));
        s.dateCode = dateTime[0];
        s.timeCode = dateTime[1];
        if (!last.m_name.IsEmpty()) pts.Add(last);
    }
    s.last = Records(pts);
    return s;
}

}  // namespace

void BindStorage(py::module_& m) {
    m.attr("SDB_DTYPE") = RecordType();
    m.def("read_sdb", &ReadSdb, py::arg("path"),
          "Reads a scan point database: (records, (header value 1, header value 2)). records is "
          "a structured array of SDB_DTYPE, one row per whole record (a torn trailing record is "
          "ignored): record number (from 1), deleted, name, north, east, height (metres, "
          "surveying frame), code, value, text1, text2.");
    m.def("write_sdb", &WriteSdb, py::arg("path"), py::arg("records"),
          py::arg("header") = py::make_tuple(0, 0),
          "Writes a scan point database from a structured array (fields name, north, east, height; "
          "code, value, text1, text2, deleted when present), replacing the file safely (a new "
          "file renamed into place through a 'temp' folder beside it). Texts longer than their "
          "field (name and code 31, texts 63 characters) or beyond U+00FF are refused. Returns "
          "the number of records.");
    py::class_<LogStatus>(m, "ScanLogStatus", "What a scan recovery log says (log_status).")
        .def_readonly("state", &LogStatus::state,
                      "'interrupted' (started and not ended), 'ended', or 'none' (no scan logged).")
        .def_readonly("database", &LogStatus::database, "The scan point database it wrote.")
        .def_readonly("value", &LogStatus::value, "The caller's integer.")
        .def_readonly("text", &LogStatus::text, "The caller's text.")
        .def_readonly("date_code", &LogStatus::dateCode,
                      "Start date code, UTC: (month + 12 year) * 31 + day.")
        .def_readonly("time_code", &LogStatus::timeCode,
                      "Start time code, UTC: milliseconds of the day.")
        .def_readonly("last_point", &LogStatus::last,
                      "The last point stored, 0 or 1 record of SDB_DTYPE.")
        .def("__repr__",
             [](const LogStatus& s) { return "<kelscan.ScanLogStatus " + s.state + ">"; });
    m.def("log_status", &ReadLog, py::arg("path") = py::none(),
          "The status of a scan recovery log (768 bytes; default '\\\\temp\\\\SDB.log' under the "
          "device root), read without changing it.");
}

}  // namespace kel_py
