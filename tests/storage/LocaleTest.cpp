// Every text file of the library is written byte for byte the same under a comma-decimal locale
// as under "C", and read back there: numbers never follow the process locale.
#include <map>
#include <sstream>
#include <string>

#include "StorageTestUtil.h"
#include "common/CommaLocale.h"
#include "common/KelTest.h"
#include "photogrammetry/Camera.h"
#include "storage/PointFile.h"
#include "storage/SFile.h"
#include "storage/ScanFile.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

using namespace storage_test;
using kel_text::CKelString;
using PointArray = kel_templ::CKelArray<CSPoint, CSPoint&>;
using XYZArray = kel_templ::CKelArray<CXYZ, CXYZ&>;

namespace {

class LocaleTest : public kel_test::KelFixture {
protected:
    // Writes every text format into the device root; returns the bytes by file.
    std::map<std::string, std::string> WriteEvery() {
        PointArray db;
        AddCopy(db, GoldenPoint());
        AddCopy(db, ScanPoint(3));
        CSFile f;
        EXPECT_EQ(f.WriteCSV(L"\\db.csv", &db), 2);
        XYZArray pts;
        AddCopy(pts, CXYZ(L"A", 1.5, -2.25, 1e-7));
        AddCopy(pts, CXYZ(L"B", 1234567.125, 0.5, -0.5));
        EXPECT_EQ(WriteCSVFile(L"\\p.csv", &pts, 0), 1);
        EXPECT_EQ(WriteImcFile(L"\\p.imc", pts), 1);
        std::remove(HostPath("scan.txt").c_str());
        EXPECT_EQ(ScanFileAdd(L"\\scan.txt", pts), 1);
        EXPECT_EQ(ScanFileAdd(L"\\scan.txt", pts[0], L"note"), 1);
        CCamera cam;
        cam.m_focal = 35.25;
        cam.m_principal.SetXYZ(0.125, -0.5, 0.0);
        cam.m_dist.SetDistModel(DIST_K1K2P1P2);
        cam.m_dist.m_para[0] = -1.5e-5;
        cam.m_resolution.SetXYZ(0.0065, 0.0065, 0.0);
        AddCopy(cam.m_fiducialMark, CXYZ(L"F1", 12.5, -8.25, 0.0));
        EXPECT_EQ(cam.Write(L"\\cam.txt"), 1);
        CTin tin;
        for (int i = 0; i < 9; ++i) tin.AddPoint(i % 3 + 0.5, i / 3 * 1.25, 0.1 * i);
        EXPECT_EQ(tin.CreateTin(0.0), 1);
        std::ostringstream obj;
        EXPECT_EQ(WriteTinObj(tin, obj), 1);
        std::map<std::string, std::string> files;
        for (const char* name : {"db.csv", "p.csv", "p.imc", "scan.txt", "cam.txt"})
            files[name] = kel_test::ReadFileBytes(HostPath(name));
        files["tin.obj"] = obj.str();
        return files;
    }
};

TEST_F(LocaleTest, TextFilesAreTheSameUnderACommaLocaleAndReadBack) {
    // Each file's exact bytes in the "C" locale are checked by its own format test.
    const std::map<std::string, std::string> inC = WriteEvery();

    KEL_UNDER_COMMA_LOCALE(comma);
    EXPECT_EQ(WriteEvery(), inC);
    PointArray db;
    CSFile f;
    ASSERT_EQ(f.ReadCSV(L"\\db.csv", db), 2);
    EXPECT_EQ(db[0].m_X, 1.5);
    EXPECT_EQ(db[1].m_Y, ScanPoint(3).m_Y);
    XYZArray pts, img;
    ASSERT_EQ(ReadCSVFile(L"\\p.csv", pts), 1);
    ASSERT_EQ(ReadImcFile(L"\\p.imc", img), 1);
    EXPECT_EQ(pts[1].x, 1234567.125);
    EXPECT_EQ(img[0].y, -2.25);
    CCamera cam;
    ASSERT_EQ(cam.Read(L"\\cam.txt"), 1);
    EXPECT_EQ(cam.m_focal, 35.25);
    EXPECT_EQ(cam.m_dist.m_para[0], -1.5e-5);
    EXPECT_EQ(cam.m_fiducialMark[0].y, -8.25);
    EXPECT_TRUE(Lines().empty());
}

}  // namespace
