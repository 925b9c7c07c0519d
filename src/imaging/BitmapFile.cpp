#include "imaging/BitmapFile.h"

#include <algorithm>
#include <cstdint>
#include <new>
#include <vector>

#include "platform/Bytes.h"
#include "platform/File.h"
#include "platform/Trace.h"

namespace {

constexpr std::size_t kFileHeaderBytes = 14;
constexpr std::uint32_t kInfoHeaderMin = 40;   // BITMAPINFOHEADER
constexpr std::uint32_t kInfoHeaderMax = 124;  // BITMAPV5HEADER
constexpr std::uint32_t kBiRgb = 0;
constexpr std::uint32_t kBiRle8 = 1;
constexpr std::uint32_t kBiRle4 = 2;

// What the headers say, checked against the file length.
struct BmpLayout {
    LONG width = 0;
    LONG height = 0;  // rows, positive
    bool topDown = false;
    int bitsPerPixel = 0;
    std::uint32_t compression = 0;
    DWORD paletteSize = 0;
    std::uint32_t paletteOffset = 0;  // bytes from the start of the file
    std::uint32_t bitsOffset = 0;
    std::size_t bitsBytes = 0;  // pixel data to read from bitsOffset
};

// Reads and checks the headers; false after one trace line "<op> condition".
bool ReadLayout(CFile& f, const wchar_t* op, BmpLayout& lay) {
    const ULONGLONG fileLength = f.GetLength();
    std::uint8_t h[kFileHeaderBytes + kInfoHeaderMin];
    if (fileLength < sizeof(h) || f.Read(h, sizeof(h)) != sizeof(h)) {
        KEL_TRACE_ALWAYS(L"%s fileLength < 54", op);
        return false;
    }
    using namespace kel_bytes;
    const std::uint32_t infoSize = GetU32(h, 14);
    const std::int32_t width = GetI32(h, 18);
    const std::int32_t height = GetI32(h, 22);
    const std::uint16_t planes = GetU16(h, 26);
    lay.bitsPerPixel = GetU16(h, 28);
    lay.compression = GetU32(h, 30);
    const std::uint32_t colorsUsed = GetU32(h, 46);
    lay.bitsOffset = GetU32(h, 10);
    if (h[0] != 'B' || h[1] != 'M') {
        KEL_TRACE_ALWAYS(L"%s magic != \"BM\"", op);
        return false;
    }
    if (infoSize < kInfoHeaderMin || infoSize > kInfoHeaderMax || planes != 1) {
        KEL_TRACE_ALWAYS(L"%s infoSize < 40 || infoSize > 124 || planes != 1", op);
        return false;
    }
    if (width <= 0 || width > kel_bitmap::kMaxDimension || height == 0 ||
        height < -kel_bitmap::kMaxDimension || height > kel_bitmap::kMaxDimension) {
        KEL_TRACE_ALWAYS(L"%s width or height out of range", op);
        return false;
    }
    lay.width = width;
    lay.topDown = height < 0;
    lay.height = height < 0 ? -height : height;
    const int bpp = lay.bitsPerPixel;
    const bool rgb = lay.compression == kBiRgb &&
                     (bpp == 1 || bpp == 4 || bpp == 8 || bpp == 24 || bpp == 32);
    const bool rle = (lay.compression == kBiRle8 && bpp == 8) ||
                     (lay.compression == kBiRle4 && bpp == 4);
    if (!rgb && !(rle && !lay.topDown)) {
        KEL_TRACE_ALWAYS(L"%s unsupported bitsPerPixel or compression", op);
        return false;
    }
    const std::uint32_t maxColours = bpp <= 8 ? (1u << bpp) : 0u;
    if (colorsUsed > maxColours && bpp <= 8) {
        KEL_TRACE_ALWAYS(L"%s colorsUsed > 1 << bitsPerPixel", op);
        return false;
    }
    lay.paletteSize = bpp <= 8 ? (colorsUsed != 0 ? colorsUsed : maxColours) : 0;
    lay.paletteOffset = static_cast<std::uint32_t>(kFileHeaderBytes) + infoSize;
    const ULONGLONG paletteEnd =
        static_cast<ULONGLONG>(lay.paletteOffset) + 4ull * lay.paletteSize;
    if (paletteEnd > fileLength || lay.bitsOffset < paletteEnd || lay.bitsOffset >= fileLength) {
        KEL_TRACE_ALWAYS(L"%s palette or pixel offset beyond the file", op);
        return false;
    }
    if (rgb) {
        lay.bitsBytes = kel_bitmap::RowBytes(lay.width, bpp) * static_cast<std::size_t>(lay.height);
        if (lay.bitsOffset + static_cast<ULONGLONG>(lay.bitsBytes) > fileLength) {
            KEL_TRACE_ALWAYS(L"%s bitsOffset + rowBytes * height > fileLength", op);
            return false;
        }
    } else {
        lay.bitsBytes = static_cast<std::size_t>(fileLength - lay.bitsOffset);
    }
    return true;
}

void SetIndex(BYTE* row, LONG x, int bitsPerPixel, int v) {
    if (bitsPerPixel == 8) {
        row[x] = static_cast<BYTE>(v);
    } else if ((x & 1) == 0) {
        row[x >> 1] = static_cast<BYTE>((row[x >> 1] & 0x0F) | ((v & 0x0F) << 4));
    } else {
        row[x >> 1] = static_cast<BYTE>((row[x >> 1] & 0xF0) | (v & 0x0F));
    }
}

// Expands BI_RLE8 / BI_RLE4 data (rows bottom-up) into the bitmap (rows top-down). Pixels
// beyond the right edge are dropped; pixels never written stay index 0. False when the data
// end before the end-of-bitmap mark or a run would go above the top row.
bool ExpandRle(const std::vector<std::uint8_t>& src, HBITMAP dib) {
    const int bpp = dib->bitsPerPixel;
    // 64 bits: runs and deltas in a long file cannot overflow them.
    long long x = 0, y = 0;  // y counts rows from the bottom
    std::size_t i = 0;
    auto put = [&](int v) {
        if (x < dib->width && y < dib->height)
            SetIndex(dib->bits + static_cast<std::size_t>(dib->height - 1 - y) *
                                     static_cast<std::size_t>(dib->bytesPerLine),
                     static_cast<LONG>(x), bpp, v);
        ++x;
    };
    while (i + 2 <= src.size()) {
        const int count = src[i];
        const int value = src[i + 1];
        i += 2;
        if (count > 0) {
            for (int k = 0; k < count; ++k)
                put(bpp == 8 ? value : ((k & 1) == 0 ? value >> 4 : value & 0x0F));
        } else if (value == 0) {
            x = 0;
            ++y;
        } else if (value == 1) {
            return true;
        } else if (value == 2) {
            if (i + 2 > src.size()) return false;
            x += src[i];
            y += src[i + 1];
            i += 2;
        } else {
            const std::size_t bytes = bpp == 8 ? static_cast<std::size_t>(value)
                                               : (static_cast<std::size_t>(value) + 1) / 2;
            if (i + bytes > src.size()) return false;
            for (int k = 0; k < value; ++k)
                put(bpp == 8 ? src[i + k] : ((k & 1) == 0 ? src[i + k / 2] >> 4 : src[i + k / 2] & 0x0F));
            i += (bytes + 1) & ~static_cast<std::size_t>(1);  // runs are padded to 16 bits
        }
        if (y > dib->height) return false;
    }
    return false;
}

HBITMAP ReadBitmap(CFile& f, const BmpLayout& lay) {
    std::vector<std::uint8_t> palette(4u * lay.paletteSize);
    f.Seek(lay.paletteOffset, CFile::begin);
    if (!palette.empty() && f.ReadAll(palette.data(), palette.size()) != palette.size()) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile palette read short");
        return nullptr;
    }
    std::vector<std::uint8_t> bits(lay.bitsBytes);
    f.Seek(lay.bitsOffset, CFile::begin);
    if (f.ReadAll(bits.data(), bits.size()) != bits.size()) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile pixel read short");
        return nullptr;
    }
    HBITMAP dib = kel_bitmap::NewDib(lay.width, lay.height, lay.bitsPerPixel, lay.paletteSize);
    if (dib == nullptr) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile NewDib == NULL");
        return nullptr;
    }
    for (DWORD k = 0; k < lay.paletteSize; ++k)
        dib->palette[k] = RGBQUAD{palette[4 * k], palette[4 * k + 1], palette[4 * k + 2], 0};
    if (lay.compression == kBiRgb) {
        const std::size_t row = static_cast<std::size_t>(dib->bytesPerLine);
        for (LONG r = 0; r < lay.height; ++r) {
            const LONG dst = lay.topDown ? r : lay.height - 1 - r;
            std::copy(bits.begin() + static_cast<std::ptrdiff_t>(r * row),
                      bits.begin() + static_cast<std::ptrdiff_t>((r + 1) * row),
                      dib->bits + static_cast<std::size_t>(dst) * row);
        }
    } else if (!ExpandRle(bits, dib)) {
        DeleteObject(dib);
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile run-length data broken");
        return nullptr;
    }
    return dib;
}

}  // namespace

HBITMAP LoadBitmapFromFile(const wchar_t* path) {
    if (path == nullptr) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile path == NULL");
        return nullptr;
    }
    try {
        CFile f;
        if (!f.Open(path, CFile::modeRead)) {
            KEL_TRACE_ALWAYS(L"LoadBitmapFromFile cannot open %s", path);
            return nullptr;
        }
        BmpLayout lay;
        if (!ReadLayout(f, L"LoadBitmapFromFile", lay)) return nullptr;
        return ReadBitmap(f, lay);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile CMemoryException");
    } catch (const CFileException&) {
        KEL_TRACE_ALWAYS(L"LoadBitmapFromFile CFileException");
    }
    return nullptr;
}

unsigned long GetBitmapFileSizeFromFile(const wchar_t* path) {
    if (path == nullptr) {
        KEL_TRACE_ALWAYS(L"GetBitmapFileSizeFromFile path == NULL");
        return 0;
    }
    try {
        CFile f;
        if (!f.Open(path, CFile::modeRead)) {
            KEL_TRACE_ALWAYS(L"GetBitmapFileSizeFromFile cannot open %s", path);
            return 0;
        }
        BmpLayout lay;
        if (!ReadLayout(f, L"GetBitmapFileSizeFromFile", lay)) return 0;
        return static_cast<unsigned long>(
            kel_bitmap::DibBytes(lay.width, lay.height, lay.bitsPerPixel, lay.paletteSize));
    } catch (const CFileException&) {
        KEL_TRACE_ALWAYS(L"GetBitmapFileSizeFromFile CFileException");
    }
    return 0;
}
