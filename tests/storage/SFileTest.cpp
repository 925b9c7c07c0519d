#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "platform/File.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"

using namespace storage_test;
using kel_text::CKelString;
using PointArray = kel_templ::CKelArray<CSPoint, CSPoint&>;

namespace {

class SFileTest : public kel_test::KelFixture {
protected:
    std::string DbBytes(const char* name = "scan.dbs") {
        return kel_test::ReadFileBytes(HostPath(name));
    }
    // A database of n scan points at \scan.dbs, closed again.
    void MakeDb(int n) {
        CSFile db;
        ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_CREATE), 0);
        for (int i = 1; i <= n; ++i) {
            CSPoint p = ScanPoint(i);
            ASSERT_EQ(db.AddPoint(p), i);
        }
        ASSERT_EQ(db.CloseDB(), 0);
    }
    // Reads record n of db and compares it with want.
    static void ExpectRecord(CSFile& db, int n, const CSPoint& want) {
        CSPoint p;
        ASSERT_EQ(db.ReadPoint(p, n), n);
        EXPECT_TRUE(SamePoint(p, want)) << "record " << n;
    }
};

TEST_F(SFileTest, HeaderAndRecordBytesAreGolden) {
    CSFile db;
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_CREATE), 0);
    long a = 753026, b = -2;
    ASSERT_EQ(db.WriteHeader(a, b), 0);
    CSPoint p = GoldenPoint();
    ASSERT_EQ(db.AddPoint(p), 1);
    EXPECT_EQ(p.m_recNo, 1);
    ASSERT_EQ(db.CloseDB(), 0);

    std::vector<std::uint8_t> want(32, 0);
    Put(want, 0, "SFILE_VER01");  // 0: magic, 11..15 zero
    want[17] = 1;                 // 16..19: 0 1 0 0
    want[20] = 0x20;              // 20: a space, 21..23 zero
    // 24: 753026 = 0x000B7D82; 28: -2
    PutBytes(want, 24, {0x82, 0x7D, 0x0B, 0x00, 0xFE, 0xFF, 0xFF, 0xFF});
    const std::vector<std::uint8_t> rec = GoldenRecord();
    want.insert(want.end(), rec.begin(), rec.end());  // record 1 at offset 32
    EXPECT_EQ(Bytes(DbBytes()), want);

    SHEADERREC h;
    db.MakeHeader(h);
    EXPECT_EQ(std::vector<std::uint8_t>(h.b, h.b + 24),
              std::vector<std::uint8_t>(want.begin(), want.begin() + 24));
    EXPECT_EQ(h.b[24] | h.b[25] | h.b[28], 0);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SFileTest, CountsWholeRecordsOnly) {
    CSFile db;
    EXPECT_EQ(db.GetRecordPos(1), 32);
    EXPECT_EQ(db.GetRecordPos(2), 288);
    EXPECT_EQ(db.GetRecordPos(1000), 32 + 999 * 256);
    // No file open: the stated results, no lines.
    CSPoint p;
    long v[2];
    EXPECT_EQ(db.GetRecordNo(), 0);
    EXPECT_EQ(db.GetCurrRecordNo(), -1);
    EXPECT_EQ((std::vector<int>{db.MoveTo(1), db.ReadHeader(v), db.ReadPoint(p, 1), db.AddPoint(p),
                                db.UpdatePoint(p), db.DeletePoint(1), db.CloseDB()}),
              std::vector<int>(7, SFILE_NOTOPEN));
    EXPECT_TRUE(Lines().empty());

    MakeDb(2);  // 544 bytes
    const std::string full = DbBytes();
    const struct {
        std::size_t length;
        int records;
    } cases[] = {{32, 0}, {33, 0}, {287, 0}, {288, 1}, {543, 1}, {544, 2}};
    for (const auto& c : cases) {
        kel_test::WriteFileBytes(HostPath("scan.dbs"), full.substr(0, c.length));
        ClearLines();
        EXPECT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), c.records) << c.length;
        EXPECT_EQ(db.GetRecordNo(), c.records) << c.length;
        ASSERT_EQ(Lines().size(), 1u);
        EXPECT_EQ(Lines()[0], "Your \\scan.dbs file is " + std::to_string(c.records) + " rec.");
    }
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), 2);
    ClearLines();
    EXPECT_EQ(db.GetCurrRecordNo(), -1);  // inside the header
    ASSERT_EQ(db.ReadPoint(p, 2), 2);
    EXPECT_EQ(db.GetCurrRecordNo(), 2);
    ASSERT_EQ(db.MoveTo(2), 0);
    EXPECT_EQ(db.GetCurrRecordNo(), 1);
    EXPECT_EQ(db.MoveTo(0), SFILE_BADARG);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"Curr recNo(4294967295)", "Curr recNo(2)",
                                                 "Curr recNo(1)"}));
    EXPECT_EQ(db.ReadPoint(p, 3), SFILE_BADARG);
    EXPECT_EQ(db.ReadPoint(p, 0), SFILE_BADARG);
    // Opened read only: writes fail and change nothing.
    CSPoint q = ScanPoint(9);
    EXPECT_EQ(db.AddPoint(q), SFILE_IOERR);
    q.m_recNo = 1;
    EXPECT_EQ(db.UpdatePoint(q), SFILE_IOERR);
    EXPECT_EQ(DbBytes(), full);
}

TEST_F(SFileTest, DeletedRecordsKeepTheirPlaceAndTheLogIsTold) {
    MakeDb(3);
    CSDBLog log;
    log.SetLogMode(1);
    ASSERT_EQ(log.Start(), 0);
    CSFile db;
    db.SetLog(&log);
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_UPDATE), 3);
    EXPECT_EQ(db.DeletePoint(2), 2);
    CSPoint p;
    ASSERT_EQ(db.ReadPoint(p, 2), 2);
    EXPECT_EQ(db.IsAliveRecord(p), 0);
    p.m_status = 0;
    EXPECT_TRUE(SamePoint(p, ScanPoint(2)));  // only the status changed
    ASSERT_EQ(db.ReadPoint(p, 3), 3);
    EXPECT_EQ(p.m_recNo, 3);
    EXPECT_TRUE(SamePoint(p, ScanPoint(3)));
    EXPECT_EQ(db.IsAliveRecord(p), 1);
    EXPECT_EQ(db.GetRecordNo(), 3);
    // The log's point slot holds the deleted record.
    const std::string logBytes = kel_test::ReadFileBytes(HostPath("temp/SDB.log"));
    EXPECT_EQ(logBytes.substr(256, 3), std::string("P2\0", 3));
    EXPECT_EQ(logBytes[256 + 184], 'D');
    SPOINTREC rec;
    std::memcpy(rec.b, DbBytes().data() + 32 + 256, 256);
    EXPECT_EQ(db.IsAliveRecord(rec), 0);

    // Update in place, and a record number out of range.
    CSPoint u = ScanPoint(30);
    u.m_recNo = 1;
    EXPECT_EQ(db.UpdatePoint(u), 1);
    u.m_recNo = 4;
    EXPECT_EQ(db.UpdatePoint(u), SFILE_BADARG);
    EXPECT_EQ(db.DeletePoint(4), SFILE_BADARG);
    ExpectRecord(db, 1, ScanPoint(30));
    EXPECT_EQ(DbBytes().size(), 32u + 3 * 256);
}

TEST_F(SFileTest, ReadsFollowWritesOfThisAndOtherObjects) {
    MakeDb(3);
    CSFile reader, writer;
    ASSERT_EQ(reader.OpenDB(L"\\scan.dbs", SFILE_READ), 3);
    ASSERT_EQ(writer.OpenDB(L"\\scan.dbs", SFILE_UPDATE), 3);
    CSPoint p;
    ASSERT_EQ(reader.ReadPoint(p, 2), 2);
    EXPECT_EQ(reader.ReadPoint(p, 4), SFILE_BADARG);
    CSPoint q = ScanPoint(4);
    ASSERT_EQ(writer.AddPoint(q), 4);  // appended behind the reader's back
    ExpectRecord(reader, 3, ScanPoint(3));
    ExpectRecord(reader, 4, ScanPoint(4));
    // Reading in order, then moving elsewhere, then reading on.
    ASSERT_EQ(reader.ReadPoint(p, 1), 1);
    ASSERT_EQ(reader.MoveTo(4), 0);
    ExpectRecord(reader, 2, ScanPoint(2));
    long v[2];
    ASSERT_EQ(reader.ReadHeader(v), 0);
    ExpectRecord(reader, 3, ScanPoint(3));
    // Cut short by someone else: a clean failure.
    writer.CloseDB();
    kel_test::WriteFileBytes(HostPath("scan.dbs"), DbBytes().substr(0, 32 + 256));
    EXPECT_EQ(reader.ReadPoint(p, 4), SFILE_BADDATA);
    EXPECT_EQ(reader.ReadPoint(p, 1), 1);
}

TEST_F(SFileTest, HeaderIsRecognisedByItsMagicAlone) {
    MakeDb(1);
    std::string bytes = DbBytes();
    for (int i = 11; i < 24; ++i) bytes[i] = static_cast<char>(0xA5);
    bytes[24] = 7;
    kel_test::WriteFileBytes(HostPath("scan.dbs"), bytes);
    CSFile db;
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), 1);
    long v[2] = {-1, -1};
    EXPECT_EQ(db.ReadHeader(v), 0);
    EXPECT_EQ(v[0], 7);
    EXPECT_EQ(v[1], 0);
    // Not a database: wrong magic, too short, empty; nothing is changed.
    bytes[3] = 'l';
    kel_test::WriteFileBytes(HostPath("scan.dbs"), bytes);
    EXPECT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_UPDATE), SFILE_BADDATA);
    EXPECT_EQ(DbBytes(), bytes);
    kel_test::WriteFileBytes(HostPath("scan.dbs"), "SFILE_VER0");
    EXPECT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_UPDATE), SFILE_BADDATA);
    kel_test::WriteFileBytes(HostPath("scan.dbs"), "");
    EXPECT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), SFILE_BADDATA);
    EXPECT_EQ(db.OpenDB(L"\\missing.dbs", SFILE_READ), SFILE_IOERR);
    EXPECT_EQ(db.GetRecordNo(), 0);
    // An empty file opened for update becomes a new database.
    EXPECT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_UPDATE), 0);
    EXPECT_EQ(DbBytes().size(), 32u);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SFileTest, TornTrailingRecordIsNeverLive) {
    MakeDb(2);
    const std::string whole = DbBytes();
    // A record cut off after 100 bytes, as a failure during AddPoint leaves it.
    const std::string torn = whole + ScanPointBytes(3).substr(0, 100);
    kel_test::WriteFileBytes(HostPath("scan.dbs"), torn);
    CSFile db;
    CSPoint p;
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), 2);
    EXPECT_EQ(db.ReadPoint(p, 3), SFILE_BADARG);
    EXPECT_EQ(DbBytes(), torn);  // reading never changes the file
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_UPDATE), 2);
    EXPECT_EQ(DbBytes(), whole);  // cut back to whole records
    CSPoint q = ScanPoint(3);
    ASSERT_EQ(db.AddPoint(q), 3);
    ExpectRecord(db, 3, ScanPoint(3));
    EXPECT_EQ(DbBytes().size(), 32u + 3 * 256);
}

TEST_F(SFileTest, ManyPointsAndWholeDatabases) {
    PointArray pts;
    for (int i = 1; i <= 600; ++i) AddCopy(pts, ScanPoint(i));  // more than one write block
    CSFile db;
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_CREATE), 0);
    CSPoint first = ScanPoint(0);
    ASSERT_EQ(db.AddPoint(first), 1);
    ASSERT_EQ(db.AddPoint(pts), 600);
    EXPECT_EQ(pts[599].m_recNo, 601);
    for (int n : {1, 2, 257, 258, 601}) ExpectRecord(db, n, ScanPoint(n - 1));
    long a = 11, b = 22;
    ASSERT_EQ(db.WriteHeader(a, b), 0);
    db.CloseDB();

    // WriteDB replaces a database through \temp and keeps this object's header values.
    PointArray few;
    AddCopy(few, ScanPoint(5));
    AddCopy(few, ScanPoint(6));
    few[1].m_status = kSPointDeleted;
    ASSERT_EQ(db.WriteDB(L"\\scan.dbs", few), 2);
    EXPECT_EQ(few[1].m_recNo, 2);
    EXPECT_FALSE(FileExists(L"\\temp\\temp.DB"));
    EXPECT_FALSE(FileExists(L"\\temp\\del_temp.DB"));
    long v[2];
    ASSERT_EQ(db.OpenDB(L"\\scan.dbs", SFILE_READ), 2);
    ASSERT_EQ(db.ReadHeader(v), 0);
    EXPECT_EQ(v[0], 11);
    EXPECT_EQ(v[1], 22);
    ExpectRecord(db, 2, few[1]);
    db.CloseDB();

    // A failing write or rename leaves the database as it was; when the second rename fails,
    // the old database is moved back.
    const std::string before = DbBytes();
    using kel_platform::FileOp;
    const std::pair<FileOp, int> faults[] = {
        {FileOp::Write, 0}, {FileOp::Flush, 0}, {FileOp::Move, 0}, {FileOp::Move, 2}};
    for (const auto& f : faults) {
        {
            FileFault fault(f.first, f.second);
            EXPECT_EQ(db.WriteDB(L"\\scan.dbs", pts), SFILE_IOERR);
        }
        EXPECT_EQ(DbBytes(), before);
        EXPECT_FALSE(FileExists(L"\\temp\\temp.DB"));
    }
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SFileTest, TextFileLinesAndRoundTrip) {
    PointArray pts;
    AddCopy(pts, GoldenPoint());
    CSPoint odd = ScanPoint(2);
    odd.m_text1 = L"a,b\r\nc";
    odd.m_value = -9;
    pts.Add(odd);
    CSFile db;
    ASSERT_EQ(db.WriteCSV(L"\\pts.csv", &pts), 2);
    EXPECT_EQ(kel_test::ReadFileBytes(HostPath("pts.csv")),
              "P1,1.500000,-2.000000,0.250000,WALL,16909060,ab,cd\r\n"
              "P2,1001.000000,-2000.500000,0.250000,WALL,-9,a b  c,second 2\r\n");
    PointArray back;
    AddCopy(back, ScanPoint(0));
    ASSERT_EQ(db.ReadCSV(L"\\pts.csv", back), 2);
    ASSERT_EQ(back.GetSize(), 3);
    CSPoint want = GoldenPoint();
    want.m_status = 0;  // text files carry live points
    EXPECT_TRUE(SamePoint(back[1], want));
    EXPECT_EQ(back[2].m_text1, CKelString(L"a b  c"));
    EXPECT_EQ(db.WriteCSV(L"\\pts.csv", nullptr), SFILE_BADARG);

    // Short lines take defaults; blank lines are skipped; LF or CR LF; last line without end.
    kel_test::WriteFileBytes(HostPath("in.csv"), "A,1,2,3\n\r\nB,4,5,6,C\r\nD,7,8,9,K,12");
    PointArray in;
    ASSERT_EQ(db.ReadCSV(L"\\in.csv", in), 3);
    EXPECT_EQ(in[1].m_code, CKelString(L"C"));
    EXPECT_EQ(in[2].m_value, 12);
    EXPECT_EQ(in[2].m_Z, 9.0);
    // Bad lines fail the whole read and leave the array alone.
    for (const char* bad : {"A,1,2\n", "A,1,x,3\n", "A,1,2,3,c,9999999999\n",
                            "A,1,2,3,c,1,t,u,extra\n", "A,1,2,3,c,1.5\n"}) {
        kel_test::WriteFileBytes(HostPath("bad.csv"), std::string("Z,0,0,0\n") + bad);
        EXPECT_EQ(db.ReadCSV(L"\\bad.csv", in), SFILE_BADDATA) << bad;
        EXPECT_EQ(in.GetSize(), 3);
    }
    EXPECT_EQ(db.ReadCSV(L"\\missing.csv", in), SFILE_IOERR);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(SFileTest, GetImgCsvLineReadsOneLineAtATime) {
    const std::string longLine(CSFile::kCsvLineMax + 1, 'x');
    const std::string maxLine(CSFile::kCsvLineMax, 'm');
    kel_test::WriteFileBytes(
        HostPath("l.txt"), "ab\r\n\ncd\n" + longLine + "\n" + maxLine + "\r\n" + longLine + "tail");
    CFile f;
    ASSERT_TRUE(f.Open(L"\\l.txt", CFile::modeRead));
    CSFile db;
    std::vector<char> line(CSFile::kCsvLineMax + 1);
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), 2);
    EXPECT_STREQ(line.data(), "ab");
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), 0);
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), 2);
    EXPECT_STREQ(line.data(), "cd");
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), SFILE_BADDATA);  // too long, skipped
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), CSFile::kCsvLineMax);
    EXPECT_EQ(std::string(line.data()), maxLine);
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), SFILE_BADDATA);  // too long up to the end
    EXPECT_EQ(db.GetImgCsvLine(f, line.data()), SFILE_END);
}

}  // namespace
