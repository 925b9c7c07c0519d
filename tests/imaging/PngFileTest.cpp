// PNG files: what the writer makes reads back exactly (through the library and through
// libpng's own simplified reader), every kind of PNG loads as the bitmap documents, and broken
// files and bad arguments fail with one line.
#include <png.h>

#include <csetjmp>
#include <string>
#include <vector>

#include "ImageFiles.h"
#include "common/KelTest.h"
#include "imaging/FCIMGBitmap.h"
#include "imaging/PngFile.h"
#include "platform/File.h"

namespace {

// A PNG written by libpng's low-level writer: rows of packed samples as the format stores
// them (big-endian 16-bit samples). Empty when libpng refuses.
struct RawPng {
    int width, height, colourType, bitDepth, interlace;
    std::vector<std::vector<std::uint8_t>> rows;
    std::vector<png_color> palette;
};

void Append(png_structp png, png_bytep data, png_size_t n) {
    auto* out = static_cast<std::string*>(png_get_io_ptr(png));
    out->append(reinterpret_cast<const char*>(data), n);
}

bool Encode(const RawPng& r, std::vector<png_bytep>& rows, std::string& out) {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_set_write_fn(png, &out, &Append, nullptr);
    png_set_IHDR(png, info, r.width, r.height, r.bitDepth, r.colourType, r.interlace,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!r.palette.empty())
        png_set_PLTE(png, info, r.palette.data(), static_cast<int>(r.palette.size()));
    png_write_info(png, info);
    png_write_image(png, rows.data());
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
    return true;
}

std::string PngBytes(RawPng r) {
    std::vector<png_bytep> rows;
    for (auto& row : r.rows) rows.push_back(row.data());
    std::string out;
    return Encode(r, rows, out) ? out : std::string();
}

class PngFileTest : public kel_imgtest::ImagingTest {};

TEST_F(PngFileTest, WrittenPngReadsBackExactlyAndCompressed) {
    // An odd width, so that the bitmap's rows carry padding.
    const int w = 97, h = 61;
    std::vector<unsigned char> rgb;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 3; ++c)
                rgb.push_back(static_cast<unsigned char>(x * 2 + y * (c + 1)));
    ASSERT_EQ(kel_png::WritePng("\\missing\\a.png", rgb.data(), w, h), 0);
    ASSERT_EQ(Lines().size(), 1u);
    ClearLines();
    ASSERT_EQ(kel_png::WritePng("\\a.png", rgb.data(), w, h), 1);
    const std::string file = kel_test::ReadFileBytes(HostPath("a.png"));
    EXPECT_LT(file.size(), rgb.size() / 4);

    // libpng's simplified reader sees the same RGB rows.
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size()));
    image.format = PNG_FORMAT_RGB;
    std::vector<unsigned char> back(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, back.data(), 0, nullptr));
    EXPECT_EQ(image.width, static_cast<png_uint_32>(w));
    EXPECT_EQ(back, rgb);

    // The library's reader gives blue, green, red, and the photograph holder loads it.
    HBITMAP b = LoadPngFromFile(L"\\a.png");
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b->bitsPerPixel, 24);
    std::vector<std::uint8_t> bgr = rgb;
    for (std::size_t i = 0; i < bgr.size(); i += 3) std::swap(bgr[i], bgr[i + 2]);
    EXPECT_EQ(kel_imgtest::Unpadded(b), bgr);
    DeleteObject(b);
    CFCIMGBitmap img;
    kel_text::CKelString path(L"\\a.png");
    EXPECT_EQ(img.GetFileTypeExt(L"\\A.PNG"), SC_IMG_EXT_PNG);
    ASSERT_EQ(img.LoadImgFile(path.GetString(), 0), SC_IMG_OK);
    EXPECT_EQ(img.GetImageWidth(), w);
    EXPECT_EQ(img.GetRate_Res(), 1);
    const unsigned long need = 40u + 292u * h;  // 97 * 3 = 291, padded to 292
    EXPECT_EQ(GetPngFileSizeFromFile(L"\\a.png"), need);
    EXPECT_EQ(img.GetImgFileSize(path), need);
    EXPECT_EQ(GetScanningImageFileSize(path), need);
    EXPECT_TRUE(Lines().empty());
}

TEST_F(PngFileTest, EveryKindLoadsAsTheBitmapDocuments) {
    struct Case {
        const char* name;
        RawPng png;
        int bits;                        // of the bitmap
        std::vector<std::uint8_t> want;  // unpadded bitmap rows
    };
    const std::vector<png_color> pal = {{10, 20, 30}, {40, 50, 60}, {70, 80, 90}};
    const std::vector<Case> cases = {
        // 1-bit grey, interlaced: 0 and 1 become 0 and 255.
        {"grey1",
         {5, 3, PNG_COLOR_TYPE_GRAY, 1, PNG_INTERLACE_ADAM7, {{0xA8}, {0x50}, {0xF8}}, {}},
         8,
         {255, 0, 255, 0, 255, 0, 255, 0, 255, 0, 255, 255, 255, 255, 255}},
        // 16-bit grey keeps the high byte.
        {"grey16",
         {2, 1, PNG_COLOR_TYPE_GRAY, 16, PNG_INTERLACE_NONE, {{0x12, 0x34, 0xFE, 0xFF}}, {}},
         8,
         {0x12, 0xFE}},
        // Grey with alpha drops the alpha.
        {"greyA",
         {2, 1, PNG_COLOR_TYPE_GRAY_ALPHA, 8, PNG_INTERLACE_NONE, {{7, 0, 9, 255}}, {}},
         8,
         {7, 9}},
        // A 4-bit palette is expanded to blue, green, red.
        {"pal4",
         {3, 1, PNG_COLOR_TYPE_PALETTE, 4, PNG_INTERLACE_NONE, {{0x21, 0x00}}, pal},
         24,
         {90, 80, 70, 60, 50, 40, 30, 20, 10}},
        // 16-bit RGB with alpha, interlaced.
        {"rgba16",
         {1, 2, PNG_COLOR_TYPE_RGB_ALPHA, 16, PNG_INTERLACE_ADAM7,
          {{1, 0, 2, 0, 3, 0, 0, 0}, {4, 9, 5, 9, 6, 9, 9, 9}}, {}},
         24,
         {3, 2, 1, 6, 5, 4}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string bytes = PngBytes(c.png);
        ASSERT_FALSE(bytes.empty());
        Write("k.png", bytes);
        HBITMAP b = LoadPngFromFile(L"\\k.png");
        ASSERT_NE(b, nullptr);
        EXPECT_EQ(b->bitsPerPixel, c.bits);
        EXPECT_EQ(kel_imgtest::Unpadded(b), c.want);
        DeleteObject(b);
        CFCIMGBitmap img;
        ASSERT_EQ(img.LoadImgFile(L"\\k.png", 1), SC_IMG_OK);
        EXPECT_EQ(img.IsGrayScale(), c.bits == 8 ? 1 : 0);
    }
    EXPECT_TRUE(Lines().empty());
}

TEST_F(PngFileTest, BrokenFilesAndBadArgumentsFailWithOneLine) {
    const unsigned char rgb[12] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
    ASSERT_EQ(kel_png::WritePng("\\good.png", rgb, 2, 2), 1);
    const std::string good = kel_test::ReadFileBytes(HostPath("good.png"));
    std::string badCrc = good;
    const std::size_t idat = good.find("IDAT");
    const std::size_t idatLength = static_cast<std::uint8_t>(good[idat - 1]);  // below 256 here
    badCrc[idat + 4 + idatLength] ^= 0x40;  // the first byte of the chunk's CRC
    struct Broken {
        std::string bytes, line;
    };
    for (const Broken& c :
         {Broken{"not a PNG at all", "LoadPngFromFile libpng: Not a PNG file"},
          Broken{good.substr(0, 20), "LoadPngFromFile libpng: the file ends early"},
          Broken{good.substr(0, good.size() - 20), "LoadPngFromFile libpng: the file ends early"},
          Broken{badCrc, "LoadPngFromFile libpng: IDAT: CRC error"}}) {
        Write("bad.png", c.bytes);
        ClearLines();
        EXPECT_EQ(LoadPngFromFile(L"\\bad.png"), nullptr);
        EXPECT_EQ(Lines(), std::vector<std::string>{c.line});
        CFCIMGBitmap img;
        EXPECT_EQ(img.LoadImgFile(L"\\bad.png", 0), SC_IMG_ERR_GDI);
        EXPECT_EQ(img.GetNoImgFlg(), 1);
        EXPECT_EQ(img.GethBitmap(), nullptr);
    }
    Write("bad.png", good.substr(0, 30));
    ClearLines();
    EXPECT_EQ(GetPngFileSizeFromFile(L"\\bad.png"), 0u);
    EXPECT_EQ(Lines(),
              std::vector<std::string>{"GetPngFileSizeFromFile libpng: the file ends early"});

    // The writer: arguments, then a disk that refuses the write (the torn file is removed).
    ClearLines();
    EXPECT_EQ(kel_png::WritePng("\\w.png", rgb, 0, 2), 0);
    EXPECT_EQ(kel_png::WritePng("\\w.png", nullptr, 2, 2), 0);
    EXPECT_EQ(kel_png::WritePng("\\w.png", rgb, 2, 65536), 0);
    EXPECT_EQ(kel_png::WritePng(nullptr, rgb, 2, 2), 0);
    const std::string range = "kel_png::EncodePng rgb == NULL || width or height out of range";
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{range, range, range, "kel_png::WritePng path == NULL"}));
    struct Refuse {
        static int Write(void*, kel_platform::FileOp op, const char*) {
            return op == kel_platform::FileOp::Write ? 1 : 0;
        }
    };
    kel_platform::SetFileFaultHook(&Refuse::Write, nullptr);
    ClearLines();
    EXPECT_EQ(kel_png::WritePng("\\w.png", rgb, 2, 2), 0);
    kel_platform::SetFileFaultHook(nullptr, nullptr);
    EXPECT_EQ(Lines(), std::vector<std::string>{"kel_png::WritePng CFileException"});
    EXPECT_FALSE(FileExists(L"\\w.png"));
}

}  // namespace
