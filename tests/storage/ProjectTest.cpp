#include <filesystem>
#include <string>
#include <vector>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "platform/File.h"
#include "storage/PointFile.h"
#include "storage/Project.h"

using kel_text::CKelString;
using storage_test::FileFault;
using XYZArray = kel_templ::CKelArray<CXYZ, CXYZ&>;

namespace {

class ProjectTest : public kel_test::KelFixture {
protected:
    std::string File(const std::string& rel) { return kel_test::ReadFileBytes(HostPath(rel)); }
};

XYZArray Points(int n, double scale) {
    XYZArray a;
    for (int i = 0; i < n; ++i) {
        CXYZ p(nullptr, i * scale, -i * scale, 0.5 * i);
        p.m_name.Format(L"P%d", i);
        if (i % 2 == 1) p.m_code = L"K";
        a.Add(p);
    }
    return a;
}

TEST_F(ProjectTest, BuildsThePathsOfAProjectAndFindsItsCamera) {
    // The paths FilePathMake builds are printed by the program's "project paths" (its test).
    CProject pr(L"P1");
    EXPECT_EQ(pr.FilePathMake(L"\\Data"), 1);
    CKelString path;
    EXPECT_EQ(pr.FilePathMakeCSV(L"pts", path), 1);
    EXPECT_EQ(path, CKelString(L"\\Data\\pts.csv"));
    pr.FilePathMakeCSV(L"pts.CSV", path);
    EXPECT_EQ(path, CKelString(L"\\Data\\pts.CSV"));
    pr.FilePathMakeCSV(L"pts.csv.bak", path);
    EXPECT_EQ(path, CKelString(L"\\Data\\pts.csv.bak.csv"));
    EXPECT_EQ(pr.FilePathMakeDB(L"scan.dbs", path), 1);
    EXPECT_EQ(path, CKelString(L"\\Data\\scan.dbs"));
    pr.FilePathMakeDB(L"scan", path);
    EXPECT_EQ(path, CKelString(L"\\Data\\scan.dbs"));

    CKelString name;
    EXPECT_EQ(EditFileName(L"\\Data\\cam.v2.txt", name), 1);
    EXPECT_EQ(name, CKelString(L"cam.v2"));
    EditFileName(L"dir/sub.d/noext", name);
    EXPECT_EQ(name, CKelString(L"noext"));
    EditFileName(L"", name);
    EXPECT_TRUE(name.IsEmpty());

    EXPECT_EQ(pr.FilePathMakeCamera(L"*.cam"), 0);  // no folder yet
    EXPECT_EQ(pr.m_strCameraPath, CKelString(L"\\Data"));
    ASSERT_TRUE(CreateDirectoryW(L"\\Data", nullptr));
    kel_test::WriteFileBytes(HostPath("Data/b.cam"), "");
    kel_test::WriteFileBytes(HostPath("Data/a.cam"), "");
    kel_test::WriteFileBytes(HostPath("Data/a.txt"), "");
    EXPECT_EQ(pr.FilePathMakeCamera(L"*.cam"), 1);
    EXPECT_EQ(pr.m_strCameraPath, CKelString(L"\\Data\\a.cam"));
    EXPECT_EQ(pr.FilePathMakeCamera(L"*.xyz"), 0);
    EXPECT_EQ(pr.m_strCameraPath, CKelString(L"\\Data"));
}

TEST_F(ProjectTest, PointFilesHaveTheirExactFormat) {
    XYZArray pts = Points(3, 1.25);
    pts[0].m_name = L"a,b";
    ASSERT_EQ(WriteCSVFile(L"\\p.csv", &pts, 1), 1);
    EXPECT_EQ(File("p.csv"),
              "a b,0.000000,0.000000,0.000000\n"
              "P1,1.250000,-1.250000,0.500000,K\n"
              "P2,2.500000,-2.500000,1.000000\n");
    ASSERT_EQ(WriteCSVFile(L"\\q.csv", &pts, 0), 1);
    EXPECT_EQ(File("q.csv").find(",K"), std::string::npos);
    XYZArray back;
    ASSERT_EQ(ReadCSVFile(L"\\p.csv", back), 1);
    ASSERT_EQ(back.GetSize(), 3);
    EXPECT_EQ(back[1].m_code, CKelString(L"K"));
    EXPECT_EQ(back[2].x, 2.5);
    EXPECT_EQ(back[2].z, 1.0);

    ASSERT_EQ(WriteImcFile(L"\\p.imc", pts), 1);
    EXPECT_EQ(File("p.imc"),
              "IMC_1.00,3\n"
              "a b,0.000000,0.000000\n"
              "P1,1.250000,-1.250000\n"
              "P2,2.500000,-2.500000\n");
    back.RemoveAll();
    ASSERT_EQ(ReadImcFile(L"\\p.imc", back), 1);
    ASSERT_EQ(back.GetSize(), 3);
    EXPECT_EQ(back[2].m_name, CKelString(L"P2"));
    EXPECT_EQ(back[2].y, -2.5);
    EXPECT_EQ(back[2].z, 0.0);
    XYZArray none;
    ASSERT_EQ(WriteImcFile(L"\\none.imc", none), 1);
    ASSERT_EQ(ReadImcFile(L"\\none.imc", none), 1);
    EXPECT_EQ(File("none.imc"), "IMC_1.00,0\n");
    EXPECT_TRUE(Lines().empty());
}

TEST_F(ProjectTest, PointFileReadersRefuseBadFiles) {
    const struct {
        const char* file;
        const char* bytes;
        const char* line;
    } cases[] = {
        {"a.csv", "P,1,2,3\nQ,1,2,3", "ReadCSVFile last line has no line end"},
        {"a.csv", "P,1,2\n", "ReadCSVFile fields < 4 || fields > 5"},
        {"a.csv", "P,1,2,3,c,d\n", "ReadCSVFile fields < 4 || fields > 5"},
        {"a.csv", "P,1,2,3z\n", "ReadCSVFile bad number"},
        {"a.imc", "IMC_1.00,2\nA,1,2\n", "ReadImcFile count != lines"},
        {"a.imc", "IMC_1.00,1\nA,1,2\nB,3,4\n", "ReadImcFile count != lines"},
        {"a.imc", "IMC_2.00,1\nA,1,2\n", "ReadImcFile bad header"},
        {"a.imc", "", "ReadImcFile bad header"},
        {"a.imc", "IMC_1.00,1\nA,1\n", "ReadImcFile bad line"},
        {"a.imc", "IMC_1.00,1\nA,1,2", "ReadImcFile last line has no line end"},
    };
    for (const auto& c : cases) {
        kel_test::WriteFileBytes(HostPath(c.file), c.bytes);
        XYZArray pts = Points(1, 1.0);
        ClearLines();
        const CKelString path = kel_text::Utf8ToWide((std::string("\\") + c.file).c_str());
        const int rc = c.file[2] == 'c' ? ReadCSVFile(path, pts) : ReadImcFile(path, pts);
        EXPECT_EQ(rc, 0) << c.bytes;
        EXPECT_EQ(pts.GetSize(), 1) << c.bytes;
        EXPECT_EQ(Lines(), std::vector<std::string>{c.line}) << c.bytes;
    }
    XYZArray pts;
    ClearLines();
    EXPECT_EQ(ReadCSVFile(L"\\missing.csv", pts), 0);
    EXPECT_EQ(WriteCSVFile(L"\\p.csv", nullptr, 0), 0);
    EXPECT_EQ(WriteImcFile(L"\\no\\dir\\p.imc", pts), 0);
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{"ReadCSVFile !file.Open(path)", "WriteCSVFile pts == NULL",
                                        "WriteImcFile !file.Open(path)"}));
}

TEST_F(ProjectTest, SafeReplacementSurvivesAFailureAtEveryStep) {
    ASSERT_TRUE(CreateDirectoryW(L"\\Data", nullptr));
    CProject pr(L"P1");
    pr.FilePathMake(L"\\Data");
    XYZArray v1 = Points(3, 1.0), v2 = Points(5, 2.0);
    ASSERT_EQ(pr.WriteCSVFilePro(nullptr, &v1, 1), 1);
    const std::string old = File("Data/P1.csv");
    ASSERT_EQ(WriteCSVFile(L"\\Data\\want.csv", &v2, 1), 1);
    const std::string fresh = File("Data/want.csv");

    // How many file operations a replacement takes.
    int ops = 0;
    {
        FileFault none(-1);
        ASSERT_EQ(pr.WriteCSVFilePro(nullptr, &v1, 1), 1);
        ops = none.Count();
    }
    ASSERT_GE(ops, 5);  // open, write, flush, two renames at least

    int failures = 0;
    for (int k = 1; k <= ops; ++k) {
        ClearLines();
        int rc = 0;
        {
            FileFault fault(k);
            rc = pr.WriteCSVFilePro(nullptr, &v2, 1);
        }
        // Whatever failed, the current file holds a complete version: the new one when the
        // replacement reported success, else the old one.
        EXPECT_EQ(File("Data/P1.csv"), rc == 1 ? fresh : old) << "failing operation " << k;
        if (rc != 1) {
            ++failures;
            EXPECT_EQ(Lines().size(), 1u) << k;
        }
        // The next replacement works and leaves no temporary files.
        ASSERT_EQ(pr.WriteCSVFilePro(nullptr, &v1, 1), 1) << k;
        EXPECT_EQ(File("Data/P1.csv"), old);
        EXPECT_FALSE(FileExists(L"\\Data\\tmpdel_P1.csv")) << k;
    }
    EXPECT_GE(failures, 4);

    // A failed write (here: the file is made, its bytes are refused) shows the message, leaves
    // the current file untouched and removes what it wrote.
    ClearLines();
    {
        FileFault second(2);
        EXPECT_EQ(pr.WriteCSVFilePro(L"other", &v2, 1), 0);
    }
    EXPECT_EQ(
        Messages(),
        (std::vector<std::string>{"CProject::WriteCSVFilePro|cannot write \\Data\\other.csv|64"}));
    EXPECT_FALSE(FileExists(L"\\Data\\tmp_other.csv"));
    ASSERT_EQ(pr.WriteCSVFilePro(L"other", &v2, 1), 1);
    EXPECT_EQ(File("Data/other.csv"), fresh);
    EXPECT_FALSE(FileExists(L"\\Data\\tmp_other.csv"));
    // A file in a folder of the project folder: the temporary names sit beside it.
    ASSERT_TRUE(CreateDirectoryW(L"\\Data\\sub", nullptr));
    ASSERT_EQ(pr.WriteCSVFilePro(L"sub\\pts", &v2, 1), 1);
    ASSERT_EQ(pr.WriteCSVFilePro(L"sub\\pts", &v1, 1), 1);
    EXPECT_EQ(File("Data/sub/pts.csv"), old);
    EXPECT_FALSE(FileExists(L"\\Data\\sub\\tmp_pts.csv"));

    // A replacement cut off between its renames leaves only the old file: the next one puts
    // it back in place before going on, so no moment is without a complete version.
    std::filesystem::rename(HostPath("Data/P1.csv"), HostPath("Data/tmpdel_P1.csv"));
    {
        FileFault cut(5);  // after the write: the first rename or delete fails
        pr.WriteCSVFilePro(nullptr, &v2, 1);
    }
    EXPECT_TRUE(File("Data/P1.csv") == old || File("Data/P1.csv") == fresh);

    // The image coordinates go the same way.
    pr.m_imgPts = v2;
    {
        FileFault second(2);
        EXPECT_EQ(pr.WriteImcFilePro(), 0);
    }
    EXPECT_FALSE(FileExists(pr.m_strTmpImcPath));
    ASSERT_EQ(pr.WriteImcFilePro(), 1);
    XYZArray img;
    ASSERT_EQ(ReadImcFile(pr.m_strImcPath, img), 1);
    EXPECT_EQ(img.GetSize(), 5);
    EXPECT_FALSE(FileExists(pr.m_strTmpImcPath));
    EXPECT_FALSE(FileExists(pr.m_strDelImcPath));
}

}  // namespace
