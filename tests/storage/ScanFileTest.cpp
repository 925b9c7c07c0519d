#include <string>
#include <vector>

#include "StorageTestUtil.h"
#include "common/KelTest.h"
#include "storage/ScanFile.h"

using kel_text::CKelString;

namespace {

class ScanFileTest : public kel_test::KelFixture {
protected:
    std::string Text() { return kel_test::ReadFileBytes(HostPath("scan.txt")); }
};

TEST_F(ScanFileTest, AppendsOneLinePerPointInItsFormat) {
    CXYZ p(L"P1", 1.0, 2.0, 3.0);
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", p), 1);  // creates the file
    EXPECT_EQ(Text(), "P1,1.000000,2.000000,3.000000\n");
    p.m_code = L"WALL";
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", p), 1);  // appends below
    p.m_aux[2] = -17;
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", p, L"note"), 1);
    CXYZ bare(L"Q", -0.5, 1e-7, 1234567.25);
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", bare, L"x"), 1);  // third format even without code
    EXPECT_EQ(Text(),
              "P1,1.000000,2.000000,3.000000\n"
              "P1,1.000000,2.000000,3.000000,WALL\n"
              "P1,1.000000,2.000000,3.000000,WALL,-17,note\n"
              "Q,-0.500000,0.000000,1234567.250000,,0,x\n");

    kel_templ::CKelArray<CXYZ, CXYZ&> pts;
    kel_test::WriteFileBytes(HostPath("scan.txt"), "");
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", pts), 1);  // empty list: nothing written
    EXPECT_EQ(Text(), "");
    storage_test::AddCopy(pts, CXYZ(L"A", 1, 1, 1));
    p.m_name = L"\u00e9\u4e2d";  // Latin-1 kept as its byte, the rest '?'
    pts.Add(p);
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", pts), 1);
    EXPECT_EQ(Text(), "A,1.000000,1.000000,1.000000\n\xe9?,1.000000,2.000000,3.000000,WALL\n");

    // A line longer than 255 characters is cut at 255 (its line end is lost with it).
    kel_test::WriteFileBytes(HostPath("scan.txt"), "");
    CXYZ big(CKelString(L'n', 300), 0, 0, 0);
    ASSERT_EQ(ScanFileAdd(L"\\scan.txt", big), 1);
    EXPECT_EQ(Text(), std::string(255, 'n'));
    EXPECT_TRUE(Messages().empty());
    EXPECT_TRUE(Lines().empty());
}

TEST_F(ScanFileTest, FailuresShowMessagesAndReturnZero) {
    CFile f;
    EXPECT_EQ(ScanFileOpen(&f, L""), 0);  // no message from ScanFileOpen
    EXPECT_TRUE(Messages().empty());
    CXYZ p(L"P1", 1, 2, 3);
    EXPECT_EQ(ScanFileAdd(L"", p), 0);
    ASSERT_EQ(Messages().size(), 1u);
    EXPECT_EQ(Messages()[0], "ScanFileAdd|cannot add to the scan file |64");
    ClearLines();
    EXPECT_EQ(ScanFileAdd(L"\\no\\such\\scan.txt", p), 0);
    EXPECT_EQ(Messages(), (std::vector<std::string>{
                              "ScanFileOpen|cannot open the scan file \\no\\such\\scan.txt|64",
                              "ScanFileAdd|cannot add to the scan file \\no\\such\\scan.txt|64"}));
    EXPECT_TRUE(Lines().empty());
    ClearLines();
    // Opening keeps what is there and moves to the end.
    kel_test::WriteFileBytes(HostPath("scan.txt"), "old\n");
    ASSERT_EQ(ScanFileOpen(&f, L"\\scan.txt"), 1);
    f.Write("new\n", 4);
    EXPECT_EQ(ScanFileClose(&f), 1);
    EXPECT_EQ(Text(), "old\nnew\n");
    // A refused write.
    {
        storage_test::FileFault refuseWrites(kel_platform::FileOp::Write);
        EXPECT_EQ(ScanFileAdd(L"\\scan.txt", p), 0);
    }
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"ScanFileAdd|cannot write the scan file \\scan.txt|64"}));
    EXPECT_EQ(Text(), "old\nnew\n");
}

}  // namespace
