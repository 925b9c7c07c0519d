#pragma once
// PNG files through libpng: reading into the portable bitmap (as the BMP reader does) and
// writing 8-bit RGB images, compressed. libpng reports its errors by a long jump; the jump
// lands inside these functions, so neither it nor an exception reaches the caller: a failure
// is one trace line and the failure result. Paths are device paths (platform/File.h).
#include <vector>

#include "platform/Bitmap.h"
#include "platform/Export.h"

// The bitmap of a PNG file, rows top first. An image without colour (grey of 1 to 16 bits,
// with or without alpha) becomes 8 bits per pixel with the grey-ramp palette (entry i =
// (i, i, i)); every other one 24 bits per pixel (blue, green, red). Palettes are expanded,
// 16-bit samples keep their high byte, alpha and transparency are dropped, interlaced images
// are de-interlaced. Null after one trace line "LoadPngFromFile condition" when the file is
// missing, is no PNG, is cut short or corrupt, or its bitmap would be too large
// (kel_bitmap::NewDib).
KELSCAN_API HBITMAP LoadPngFromFile(const wchar_t* path);

// Bytes that the bitmap of the file will need (kel_bitmap::DibBytes of the size, depth and
// palette LoadPngFromFile gives it), read from the file's header; 0 after one trace line
// "GetPngFileSizeFromFile condition".
KELSCAN_API unsigned long GetPngFileSizeFromFile(const wchar_t* path);

namespace kel_png {

// Encodes an 8-bit RGB image (rows top-down, 3 * width bytes each, red first) as a PNG of
// colour type 2, deflate-compressed, into png (replacing its contents). Width and height are
// 1 to kel_bitmap::kMaxDimension. Returns 1, or 0 after one trace line
// "kel_png::EncodePng condition".
KELSCAN_API int EncodePng(const unsigned char* rgb, int width, int height,
                          std::vector<unsigned char>& png);

// EncodePng, then writes the bytes to the file at path (a device path in UTF-8), replacing it.
// Returns 1, or 0 after one trace line "kel_png::WritePng condition" (or EncodePng's line);
// a file that could not be written completely is removed.
KELSCAN_API int WritePng(const char* path, const unsigned char* rgb, int width, int height);

}  // namespace kel_png
