#include "platform/Bitmap.h"

#include <cstring>
#include <new>

BOOL DeleteObject(HBITMAP bitmap) {
    if (bitmap == nullptr) return FALSE;
    kel_bitmap::FreeDib(bitmap);
    return TRUE;
}

BOOL DeleteObject(HPALETTE palette) {
    if (palette == nullptr) return FALSE;
    std::free(palette);
    return TRUE;
}

int GetObjectW(HBITMAP bitmap, int size, void* record) {
    if (bitmap == nullptr || record == nullptr || size < static_cast<int>(sizeof(BITMAP)))
        return 0;
    BITMAP bm;
    bm.bmType = 0;
    bm.bmWidth = bitmap->width;
    bm.bmHeight = bitmap->height;
    bm.bmWidthBytes = bitmap->bytesPerLine;
    bm.bmPlanes = 1;
    bm.bmBitsPixel = bitmap->bitsPerPixel;
    bm.bmBits = bitmap->bits;
    std::memcpy(record, &bm, sizeof(bm));
    return static_cast<int>(sizeof(bm));
}

HPALETTE CreatePalette(const RGBQUAD* entries, int n) {
    if (entries == nullptr || n < 1 || n > 256) return nullptr;
    void* block = std::malloc(sizeof(KelPalette) + static_cast<std::size_t>(n) * sizeof(RGBQUAD));
    if (block == nullptr) return nullptr;
    KelPalette* pal = static_cast<KelPalette*>(block);
    pal->size = static_cast<DWORD>(n);
    pal->entries = reinterpret_cast<RGBQUAD*>(static_cast<BYTE*>(block) + sizeof(KelPalette));
    std::memcpy(pal->entries, entries, static_cast<std::size_t>(n) * sizeof(RGBQUAD));
    return pal;
}
