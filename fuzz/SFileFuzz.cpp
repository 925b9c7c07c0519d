// The scan point database reader over arbitrary bytes: open, count, read the header and every
// record (up to a cap), and the database text reader over the same bytes.
#include <cstdint>

#include "FuzzFiles.h"
#include "storage/SFile.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.dbs", data, size);
    CSFile db;
    const int n = db.OpenDB(L"\\fuzz.dbs", SFILE_READ);
    if (n >= 0) {
        long values[2];
        db.ReadHeader(values);
        db.GetRecordNo();
        CSPoint p;
        for (int i = 0; i <= n + 1 && i < 4096; ++i) {
            if (db.ReadPoint(p, i) == i) db.IsAliveRecord(p);
            db.GetCurrRecordNo();
        }
        db.CloseDB();
    }
    kel_templ::CKelArray<CSPoint, CSPoint&> pts;
    db.ReadCSV(L"\\fuzz.dbs", pts);
    return 0;
}
