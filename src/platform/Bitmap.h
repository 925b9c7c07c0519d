#pragma once
// The portable device-independent bitmap that stands in for the graphics interface's bitmap and
// palette objects: a bitmap handle points to a DIB (width, height, bits per pixel, bytes per
// line, palette, pixels) made in ONE block, so that a run-time loaded codec module can build it
// with the inline NewDib below and the library releases it with DeleteObject. Small blocks come
// from the heap, photographs from the page allocator (platform/PageBlock.h); the header records
// which.
//
// Pixels: rows from the TOP row down (as a DIB with negative height), each row padded to a
// multiple of 4 bytes. 24 bits per pixel are blue, green, red; 32 bits blue, green, red,
// reserved; 1, 4 and 8 bits index the palette, the high bits holding the left pixel.
#include <cstddef>
#include <cstdlib>

#include "platform/Export.h"
#include "platform/PageBlock.h"
#include "platform/Types.h"

#if !defined(_WIN32)
// A palette entry: blue, green, red, reserved.
struct RGBQUAD {
    BYTE rgbBlue;
    BYTE rgbGreen;
    BYTE rgbRed;
    BYTE rgbReserved;
};

// The bitmap description record that GetObjectW fills.
struct BITMAP {
    LONG bmType;        // always 0
    LONG bmWidth;       // pixels
    LONG bmHeight;      // pixels
    LONG bmWidthBytes;  // bytes per row, a multiple of 4
    WORD bmPlanes;      // always 1
    WORD bmBitsPixel;   // 1, 4, 8, 16, 24 or 32
    void* bmBits;       // the top row
};
#endif

// The object behind a bitmap handle.
struct KelDib {
    LONG width;
    LONG height;
    LONG bytesPerLine;
    WORD bitsPerPixel;
    DWORD paletteSize;  // entries in palette
    RGBQUAD* palette;   // null when paletteSize is 0
    BYTE* bits;         // height * bytesPerLine bytes, top row first
    std::size_t mappedBytes;  // length of the page mapping that holds the block; 0: heap block
};
typedef KelDib* HBITMAP;

// The object behind a palette handle.
struct KelPalette {
    DWORD size;
    RGBQUAD* entries;
};
typedef KelPalette* HPALETTE;

namespace kel_bitmap {

// Largest width or height accepted (pixels); keeps every size product inside 64 bits.
constexpr LONG kMaxDimension = 65535;

// Bytes of one padded row, or 0 for an unsupported depth or a size out of range.
inline std::size_t RowBytes(LONG width, int bitsPerPixel) {
    if (width <= 0 || width > kMaxDimension) return 0;
    if (bitsPerPixel != 1 && bitsPerPixel != 4 && bitsPerPixel != 8 && bitsPerPixel != 16 &&
        bitsPerPixel != 24 && bitsPerPixel != 32)
        return 0;
    return ((static_cast<std::size_t>(width) * static_cast<std::size_t>(bitsPerPixel) + 31) / 32) *
           4;
}

// The 40-byte information header of a device-independent bitmap, counted by DibBytes so that
// the size a photograph needs is the same figure on every platform, whatever the size of the
// in-memory KelDib header.
constexpr std::size_t kDibHeaderBytes = 40;

// Bytes that a bitmap of this size needs as a device-independent bitmap (information header,
// palette and pixels); 0 when out of range. The size queries of the loaders report this.
inline std::size_t DibBytes(LONG width, LONG height, int bitsPerPixel, DWORD paletteSize) {
    const std::size_t row = RowBytes(width, bitsPerPixel);
    if (row == 0 || height <= 0 || height > kMaxDimension || paletteSize > 256) return 0;
    return kDibHeaderBytes + paletteSize * sizeof(RGBQUAD) + row * static_cast<std::size_t>(height);
}

// Largest bitmap made (bytes, header and palette included): 512 MiB, room for a 24-bit photo
// of 12000 x 9000 pixels. A run-length BMP of a few bytes may claim 65535 x 65535 pixels; a
// larger JPEG is decoded at a coarser scale instead (the loaders fall back when this fails).
constexpr std::size_t kMaxDibBytes = std::size_t(512) << 20;

// A new bitmap with zeroed palette and pixels, or null when the size is out of range (above
// kMaxDibBytes included) or the memory is short. Release it with DeleteObject.
inline HBITMAP NewDib(LONG width, LONG height, int bitsPerPixel, DWORD paletteSize) {
    const std::size_t dibBytes = DibBytes(width, height, bitsPerPixel, paletteSize);
    if (dibBytes == 0 || dibBytes > kMaxDibBytes) return nullptr;
    const std::size_t total = dibBytes - kDibHeaderBytes + sizeof(KelDib);
    std::size_t mapped = 0;
    void* block = kel_pages::AllocZeroed(total, mapped);
    if (block == nullptr) return nullptr;
    KelDib* dib = static_cast<KelDib*>(block);
    dib->mappedBytes = mapped;
    BYTE* tail = static_cast<BYTE*>(block) + sizeof(KelDib);
    dib->width = width;
    dib->height = height;
    dib->bytesPerLine = static_cast<LONG>(RowBytes(width, bitsPerPixel));
    dib->bitsPerPixel = static_cast<WORD>(bitsPerPixel);
    dib->paletteSize = paletteSize;
    dib->palette = paletteSize > 0 ? reinterpret_cast<RGBQUAD*>(tail) : nullptr;
    dib->bits = tail + paletteSize * sizeof(RGBQUAD);
    return dib;
}

// Releases a bitmap of NewDib (null is ignored); DeleteObject calls this.
inline void FreeDib(HBITMAP dib) {
    if (dib != nullptr) kel_pages::FreePages(dib, dib->mappedBytes);
}

// Palette index of pixel x of a row of 1, 4 or 8 bits per pixel.
inline int PixelIndex(const BYTE* row, LONG x, int bitsPerPixel) {
    switch (bitsPerPixel) {
        case 1: return (row[x >> 3] >> (7 - (x & 7))) & 1;
        case 4: return (x & 1) != 0 ? row[x >> 1] & 0x0F : row[x >> 1] >> 4;
        default: return row[x];
    }
}

// Blue, green and red of pixel x of a row: the palette entry at 1, 4 or 8 bits (black for an
// index past the palette), 5-5-5 at 16 bits (blue in the low bits), the stored bytes at 24
// and 32 bits.
inline void PixelBgr(const KelDib& b, const BYTE* row, LONG x, BYTE bgr[3]) {
    if (b.bitsPerPixel <= 8) {
        const int i = PixelIndex(row, x, b.bitsPerPixel);
        const RGBQUAD q =
            static_cast<DWORD>(i) < b.paletteSize ? b.palette[i] : RGBQUAD{0, 0, 0, 0};
        bgr[0] = q.rgbBlue;
        bgr[1] = q.rgbGreen;
        bgr[2] = q.rgbRed;
    } else if (b.bitsPerPixel == 16) {
        const unsigned v = row[2 * x] | (row[2 * x + 1] << 8);
        bgr[0] = static_cast<BYTE>((v & 31) * 255 / 31);
        bgr[1] = static_cast<BYTE>(((v >> 5) & 31) * 255 / 31);
        bgr[2] = static_cast<BYTE>(((v >> 10) & 31) * 255 / 31);
    } else {
        const BYTE* p =
            row + static_cast<std::size_t>(x) * static_cast<std::size_t>(b.bitsPerPixel / 8);
        for (int k = 0; k < 3; ++k) bgr[k] = p[k];
    }
}

}  // namespace kel_bitmap

// Releases a bitmap or palette; FALSE for a null handle.
KELSCAN_API BOOL DeleteObject(HBITMAP bitmap);
KELSCAN_API BOOL DeleteObject(HPALETTE palette);
// Fills a BITMAP record (size must be at least sizeof(BITMAP)); returns the bytes written, or
// 0 for a null handle or a short buffer.
KELSCAN_API int GetObjectW(HBITMAP bitmap, int size, void* record);
// A palette of n entries (1 to 256) copied from entries, or null.
KELSCAN_API HPALETTE CreatePalette(const RGBQUAD* entries, int n);
