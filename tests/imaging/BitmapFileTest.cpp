// BMP reading: every depth in both row orders against the picture that was written, the two
// run-length encodings against hand-encoded streams, and malformed headers and truncations.
#include <string>
#include <vector>

#include "ImageFiles.h"
#include "common/KelTest.h"
#include "imaging/BitmapFile.h"
#include "platform/Bitmap.h"
#include "platform/Bytes.h"

namespace {

using kel_imgtest::BmpBytes;
using kel_imgtest::BmpRaw;
using kel_imgtest::Pattern;
using kel_imgtest::Picture;
using kel_imgtest::Unpadded;

class BitmapFileTest : public kel_imgtest::ImagingTest {
protected:
    HBITMAP Load(const std::string& bytes) {
        Write("p.bmp", bytes);
        return LoadBitmapFromFile(L"\\p.bmp");
    }
};

TEST_F(BitmapFileTest, EveryDepthAndRowOrderGivesThePictureWritten) {
    for (int bpp : {1, 4, 8, 24, 32}) {
        for (bool topDown : {false, true}) {
            SCOPED_TRACE("bpp " + std::to_string(bpp) + (topDown ? " top-down" : " bottom-up"));
            const Picture p = Pattern(7, 5, bpp);  // odd width: every row is padded
            HBITMAP b = Load(BmpBytes(p, topDown));
            ASSERT_NE(b, nullptr);
            EXPECT_EQ(b->width, 7);
            EXPECT_EQ(b->height, 5);
            EXPECT_EQ(b->bitsPerPixel, bpp);
            EXPECT_EQ(static_cast<std::size_t>(b->bytesPerLine), ((7u * bpp + 31) / 32) * 4);
            EXPECT_EQ(Unpadded(b), p.pixels);
            ASSERT_EQ(b->paletteSize * 4, p.palette.size());
            for (DWORD i = 0; i < b->paletteSize; ++i) {
                EXPECT_EQ(b->palette[i].rgbBlue, p.palette[4 * i]);
                EXPECT_EQ(b->palette[i].rgbGreen, p.palette[4 * i + 1]);
                EXPECT_EQ(b->palette[i].rgbRed, p.palette[4 * i + 2]);
            }
            BITMAP bm;
            EXPECT_EQ(GetObjectW(b, sizeof(bm), &bm), static_cast<int>(sizeof(bm)));
            EXPECT_EQ(bm.bmWidth, 7);
            EXPECT_EQ(bm.bmBitsPixel, bpp);
            EXPECT_EQ(bm.bmBits, b->bits);
            EXPECT_EQ(GetBitmapFileSizeFromFile(L"\\p.bmp"),
                      kel_bitmap::DibBytes(7, 5, bpp, b->paletteSize));
            EXPECT_TRUE(DeleteObject(b));
        }
    }
    EXPECT_TRUE(Lines().empty());
}

TEST_F(BitmapFileTest, RunLengthStreamsExpandAsEncoded) {
    const std::vector<std::uint8_t> pal16(16 * 4, 0);
    const std::vector<std::uint8_t> pal256(256 * 4, 0);
    // 6 x 3, rows bottom-up: a run of 4 x 7 then end of line; absolute 3 pixels (padded) then a
    // delta of (1, 1) to the top row; a run of 2 x 9 at x = 4; end of bitmap.
    const std::vector<std::uint8_t> rle8 = {4, 7, 0, 0, 0, 3, 1, 2, 3, 0, 0, 2, 1, 1, 2, 9, 0, 1};
    HBITMAP b = Load(BmpRaw(6, 3, 8, 1, pal256, rle8));
    ASSERT_NE(b, nullptr);
    const std::vector<std::uint8_t> want8 = {0, 0, 0, 0, 9, 9,   // top row
                                             1, 2, 3, 0, 0, 0,   // middle
                                             7, 7, 7, 7, 0, 0};  // bottom
    EXPECT_EQ(Unpadded(b), want8);
    DeleteObject(b);

    // 5 x 2 in 4 bits: a run of 5 alternating 0xA/0xB, end of line, absolute 3 nibbles 1,2,3
    // (2 bytes, padded to 2), end of bitmap.
    const std::vector<std::uint8_t> rle4 = {5, 0xAB, 0, 0, 0, 3, 0x12, 0x30, 0, 1};
    b = Load(BmpRaw(5, 2, 4, 2, pal16, rle4));
    ASSERT_NE(b, nullptr);
    const std::vector<std::uint8_t> want4 = {1, 2, 3, 0, 0, 0xA, 0xB, 0xA, 0xB, 0xA};
    EXPECT_EQ(Unpadded(b), want4);
    DeleteObject(b);
    EXPECT_TRUE(Lines().empty());

    // Without the end-of-bitmap mark the data are broken.
    EXPECT_EQ(Load(BmpRaw(5, 2, 4, 2, pal16, {5, 0xAB, 0, 0})), nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{"LoadBitmapFromFile run-length data broken"});

    // Two bytes of run-length data may claim 65535 x 65535 pixels (4 GiB): the size is
    // reported, but no bitmap beyond the 512 MiB limit is made.
    ClearLines();
    EXPECT_EQ(Load(BmpRaw(65535, 65535, 8, 1, pal256, {0, 1})), nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{"LoadBitmapFromFile NewDib == NULL"});
    EXPECT_EQ(GetBitmapFileSizeFromFile(L"\\p.bmp"), kel_bitmap::DibBytes(65535, 65535, 8, 256));
    EXPECT_GT(kel_bitmap::DibBytes(65535, 65535, 8, 256), kel_bitmap::kMaxDibBytes);
}

TEST_F(BitmapFileTest, MalformedHeadersFailWithOneLineBeforeAllocating) {
    const std::string good = BmpBytes(Pattern(4, 4, 8), false);
    struct Case {
        std::size_t offset;
        std::uint32_t value;
        int width;  // bytes written at offset: 2 or 4
        const char* line;
    };
    const Case cases[] = {
        {0, 0x4D42 + 1, 2, "LoadBitmapFromFile magic != \"BM\""},
        {14, 12, 4, "LoadBitmapFromFile infoSize < 40 || infoSize > 124 || planes != 1"},
        {26, 2, 2, "LoadBitmapFromFile infoSize < 40 || infoSize > 124 || planes != 1"},
        {18, 0, 4, "LoadBitmapFromFile width or height out of range"},
        {22, 0, 4, "LoadBitmapFromFile width or height out of range"},
        {18, 70000, 4, "LoadBitmapFromFile width or height out of range"},
        {28, 16, 2, "LoadBitmapFromFile unsupported bitsPerPixel or compression"},
        {30, 3, 4, "LoadBitmapFromFile unsupported bitsPerPixel or compression"},
        {30, 2, 4, "LoadBitmapFromFile unsupported bitsPerPixel or compression"},  // RLE4 at 8 bits
        {46, 257, 4, "LoadBitmapFromFile colorsUsed > 1 << bitsPerPixel"},
        {10, 20, 4, "LoadBitmapFromFile palette or pixel offset beyond the file"},
        {10, 0x7FFFFFF0u, 4, "LoadBitmapFromFile palette or pixel offset beyond the file"},
        {18, 60000, 4, "LoadBitmapFromFile bitsOffset + rowBytes * height > fileLength"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.line);
        std::string bad = good;
        auto* b = reinterpret_cast<std::uint8_t*>(&bad[0]);
        if (c.width == 2)
            kel_bytes::PutU16(b, c.offset, static_cast<std::uint16_t>(c.value));
        else
            kel_bytes::PutU32(b, c.offset, c.value);
        ClearLines();
        EXPECT_EQ(Load(bad), nullptr);
        EXPECT_EQ(Lines(), std::vector<std::string>{c.line});
        ClearLines();
        EXPECT_EQ(GetBitmapFileSizeFromFile(L"\\p.bmp"), 0u);
        ASSERT_EQ(Lines().size(), 1u);
    }
    // Every truncation of a valid file fails cleanly.
    for (std::size_t n = 0; n < good.size(); ++n) {
        ClearLines();
        EXPECT_EQ(Load(good.substr(0, n)), nullptr) << n;
        EXPECT_EQ(Lines().size(), 1u) << n;
    }
    ClearLines();
    EXPECT_EQ(LoadBitmapFromFile(L"\\missing.bmp"), nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{"LoadBitmapFromFile cannot open \\missing.bmp"});
}

}  // namespace
