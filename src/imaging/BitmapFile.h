#pragma once
// Reading of BMP/DIB files into the portable bitmap: 1, 4, 8, 24 and 32 bits per pixel,
// bottom-up and top-down rows, uncompressed (BI_RGB) and run-length encoded (BI_RLE8 with 8,
// BI_RLE4 with 4 bits per pixel). Every header field is checked against the file length before
// anything is allocated. Paths are device paths (platform/File.h).
#include "platform/Bitmap.h"
#include "platform/Export.h"

// The bitmap of the file, with its depth and palette kept (rows top first), or null after one
// trace line "LoadBitmapFromFile condition" when the file is missing, short or malformed.
KELSCAN_API HBITMAP LoadBitmapFromFile(const wchar_t* path);

// Bytes that the bitmap of the file will need (kel_bitmap::DibBytes of its size, depth and
// palette), or 0 after one trace line "GetBitmapFileSizeFromFile condition".
KELSCAN_API unsigned long GetBitmapFileSizeFromFile(const wchar_t* path);
