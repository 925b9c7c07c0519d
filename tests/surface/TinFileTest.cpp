// The surface files: golden bytes, round trips, the fallbacks between versions, short files.
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "TinCheck.h"
#include "common/KelTest.h"
#include "surface/Tin.h"

using kel_test::ReadFileBytes;
using kel_test::WriteFileBytes;
using TinArray = kel_templ::CKelArray<CTin, CTin&>;

namespace {

class TinFileTest : public kel_test::KelFixture {};

// Little-endian field appenders written independently of the library's byte helpers.
template <class U, class T>
void Le(std::string& s, T v) {
    static_assert(sizeof(U) == sizeof(T), "same size");
    U u;
    std::memcpy(&u, &v, sizeof u);
    for (std::size_t k = 0; k < sizeof u; ++k) s += static_cast<char>((u >> (8 * k)) & 0xFF);
}
void I32(std::string& s, std::int32_t v) { Le<std::uint32_t>(s, v); }
void F64(std::string& s, double v) { Le<std::uint64_t>(s, v); }
void F32(std::string& s, float v) { Le<std::uint32_t>(s, v); }

// One triangle over (0,0,1), (2,0,2), (0,2,3); hull 0, 1, 2.
CTin Small(const wchar_t* name) {
    CTin tin;
    tin_test::AddPoints(tin, {{0, 0, 1}, {2, 0, 2}, {0, 2, 3}});
    EXPECT_EQ(tin.CreateTin(0.0), 1);
    tin.SetName(name);
    return tin;
}

// Vertex, triangle and hull blocks of Small().
std::string SmallMesh() {
    std::string s;
    I32(s, 3);  // nPt
    const double xyz[3][3] = {{0, 0, 1}, {2, 0, 2}, {0, 2, 3}};
    for (const auto& p : xyz)
        for (double c : p) F64(s, c);
    I32(s, 1);                                      // nTri
    for (int v : {0, 1, 2, -1, -1, -1}) I32(s, v);  // v[0..2], nb[0..2]
    I32(s, 3);                                      // hull
    for (int v : {0, 1, 2}) I32(s, v);
    return s;
}

// Text padded with zeros: a 32-byte magic, a 256-byte name.
std::string Padded(const char* text, std::size_t size) {
    std::string s(text);
    s.resize(size, '\0');
    return s;
}
std::string Magic(const char* m) { return Padded(m, 32); }
std::string Name(const char* n) { return Padded(n, 256); }

// Small() as a version 0 file: the mesh and a reserved tail of 24 zeros.
std::string SmallV0() { return SmallMesh() + std::string(24, '\0'); }

// Small() as a version 1 record: name, a 7 and the version 0 bytes.
std::string SmallV1(const char* name) {
    std::string s = Name(name);
    I32(s, 7);
    return s + SmallV0();
}

TEST_F(TinFileTest, GoldenBytesOfEveryVersion) {
    CTin tin = Small(L"Surf");
    ASSERT_EQ(tin.WriteBIN_VER0(L"\\v0.tin"), 1);
    EXPECT_EQ(ReadFileBytes(HostPath("v0.tin")), SmallV0());

    TinArray tins;
    tins.Add(tin);
    CTin second = Small(L"\u0100B");  // first UTF-16 byte is 0: an empty name field
    tins.Add(second);
    ASSERT_EQ(CTin::WriteBIN_VER1(L"\\v1.tin", tins), 1);
    std::string want = Magic("TIN_1.00");
    I32(want, 2);
    want += SmallV1("S") + SmallV1("");
    EXPECT_EQ(ReadFileBytes(HostPath("v1.tin")), want);

    tins.RemoveAll();
    tins.Add(tin);
    ASSERT_EQ(CTin::WriteBIN_VER2(L"\\v2.tin", tins), 1);
    want = Magic("TIN_2.00");
    I32(want, 1);
    want += Name("S") + SmallMesh();
    I32(want, 3);
    for (float uv : {0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 1.0f}) F32(want, uv);
    EXPECT_EQ(ReadFileBytes(HostPath("v2.tin")), want);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(TinFileTest, RoundTripsAndFallbacks) {
    CTin tin;
    for (int i = 0; i < 60; ++i) tin.AddPoint((i * 37) % 23 * 1.5, (i * 11) % 17 * 2.25, i * 0.5);
    CTin spatial(tin);  // the second surface numbered in the spatial order
    ASSERT_EQ(tin.CreateTin(0.0), 1);
    ASSERT_EQ(spatial.CreateTinSpatial(0.0), 1);
    tin.SetName(L"Ground");
    TinArray tins;
    tins.Add(tin);
    tins.Add(spatial);
    ASSERT_EQ(CTin::WriteBIN_VER2(L"\\a.tin", tins), 1);
    TinArray back;
    ASSERT_EQ(CTin::ReadBIN_VER2(L"\\a.tin", back), 1);
    ASSERT_EQ(back.GetSize(), 2);
    EXPECT_EQ(back[0].GetName().Compare(L"G"), 0);
    EXPECT_EQ(back[1].GetTriSize(), tin.GetTriSize());
    EXPECT_DOUBLE_EQ(back[1].m_range[1].z, tin.m_range[1].z);
    ASSERT_EQ(tin.UpdateDepth(), 1);  // the readers derive it, a build does not
    EXPECT_DOUBLE_EQ(back[1].GetDepth()[0], tin.GetDepth()[0]);
    ASSERT_EQ(CTin::WriteBIN_VER2(L"\\b.tin", back), 1);
    EXPECT_EQ(ReadFileBytes(HostPath("a.tin")), ReadFileBytes(HostPath("b.tin")));
    // A rebuild drops the texture and depth read with the surface: they described other points.
    CTin rebuilt = back[0];
    rebuilt.m_point[0].x = 99.0;
    ASSERT_EQ(rebuilt.CreateTinSpatial(0.0), 1);
    EXPECT_EQ(rebuilt.GetTexU().GetSize() + rebuilt.GetDepth().GetSize(), 0);

    // Version 1 through the version 2 reader: no texture coordinates.
    ASSERT_EQ(CTin::WriteBIN_VER1(L"\\c.tin", tins), 1);
    ASSERT_EQ(CTin::ReadBIN_VER2(L"\\c.tin", back), 1);
    ASSERT_EQ(back.GetSize(), 2);
    EXPECT_EQ(back[0].GetTexU()[5], 0.0);
    EXPECT_EQ(back[0].GetTexV()[5], 0.0);
    ASSERT_EQ(CTin::WriteBIN_VER1(L"\\d.tin", back), 1);
    EXPECT_EQ(ReadFileBytes(HostPath("c.tin")), ReadFileBytes(HostPath("d.tin")));

    // Version 0 through both fallbacks: one surface.
    ASSERT_EQ(tin.WriteBIN_VER0(L"\\e.tin"), 1);
    ASSERT_EQ(CTin::ReadBIN_VER2(L"\\e.tin", back), 1);
    ASSERT_EQ(back.GetSize(), 1);
    ASSERT_EQ(back[0].WriteBIN_VER0(L"\\f.tin"), 1);
    EXPECT_EQ(ReadFileBytes(HostPath("e.tin")), ReadFileBytes(HostPath("f.tin")));
    EXPECT_TRUE(Lines().empty());
}

TEST_F(TinFileTest, ShortAndOddFiles) {
    // A count of 0 surfaces is a valid, empty file; bytes 9 to 31 of the magic are ignored.
    std::string empty = "TIN_2.00";
    empty += '\0';
    empty += std::string(23, 'x');
    I32(empty, 0);
    WriteFileBytes(HostPath("empty.tin"), empty);
    TinArray tins;
    CTin old = Small(L"x");
    tins.Add(old);
    EXPECT_EQ(CTin::ReadBIN_VER2(L"\\empty.tin", tins), 1);
    EXPECT_EQ(tins.GetSize(), 0);

    // Cut anywhere inside a record: 0 and no line.
    std::string whole = Magic("TIN_1.00");
    I32(whole, 1);
    whole += SmallV1("S");
    for (std::size_t cut : {std::size_t(40), std::size_t(300), whole.size() - 1}) {
        WriteFileBytes(HostPath("cut.tin"), whole.substr(0, cut));
        EXPECT_EQ(CTin::ReadBIN_VER1(L"\\cut.tin", tins), 0) << cut;
    }
    WriteFileBytes(HostPath("whole.tin"), whole);
    EXPECT_EQ(CTin::ReadBIN_VER1(L"\\whole.tin", tins), 1);
    // A vertex index beyond the vertices is refused rather than kept.
    std::string bad = whole;
    bad[32 + 4 + 256 + 4 + 4 + 72 + 4] = 9;
    WriteFileBytes(HostPath("bad.tin"), bad);
    EXPECT_EQ(CTin::ReadBIN_VER1(L"\\bad.tin", tins), 0);
    // A version 0 file shorter than its reserved tail.
    WriteFileBytes(HostPath("v0.tin"), SmallMesh());
    CTin one;
    EXPECT_EQ(one.ReadBIN_VER0(L"\\v0.tin"), 0);
    EXPECT_TRUE(Lines().empty());

    for (auto read : {&CTin::ReadBIN_VER1, &CTin::ReadBIN_VER2})
        EXPECT_EQ(read(L"\\none.tin", tins), 0);
    EXPECT_EQ(one.ReadBIN_VER0(L"\\none.tin"), 0);
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "CTin::ReadBIN_VER1 FALSE == file.Open( fname,CFile::modeRead)",
                           "CTin::ReadBIN_VER2 FALSE == file.Open( fname,CFile::modeRead)",
                           "CTin::ReadBIN_VER0 FALSE == file.Open( fname,CFile::modeRead)"}));
    EXPECT_EQ(one.WriteBIN_VER0(L"\\no\\such\\folder.tin"), 0);

    // A negative count of surfaces, and vertices that are not finite, are refused with a line.
    ClearLines();
    std::string negative = Magic("TIN_2.00");
    I32(negative, -1);
    WriteFileBytes(HostPath("negative.tin"), negative);
    EXPECT_EQ(CTin::ReadBIN_VER2(L"\\negative.tin", tins), 0);
    for (double bad : {std::nan(""), -HUGE_VAL}) {
        std::string v0 = SmallV0();
        std::memcpy(&v0[4 + 8 + 8 * 3], &bad, 8);  // y of vertex 1
        WriteFileBytes(HostPath("nan.tin"), v0);
        EXPECT_EQ(one.ReadBIN_VER0(L"\\nan.tin"), 0);
    }
    const std::string notFinite =
        "CTin::ReadMesh !std::isfinite(x) || !std::isfinite(y) || !std::isfinite(z)";
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{"CTin::ReadBIN_VER2 count < 0", notFinite, notFinite}));
}

}  // namespace
