#pragma once
// Test pictures with a known answer: BMP files of every depth written field by field, and
// JPEG files encoded (and independently decoded) with libjpeg.
#include <cstdint>
#include <string>
#include <vector>

#include "common/KelTest.h"
#include "platform/Bitmap.h"

namespace kel_imgtest {

// The imaging tests' fixture: files are written under the fresh device root.
class ImagingTest : public kel_test::KelFixture {
protected:
    void Write(const std::string& name, const std::string& bytes) {
        kel_test::WriteFileBytes(HostPath(name), bytes);
    }
};

// A picture as the bitmap holds it: rows top first, each row width * bytesPerPixel (no
// padding); for indexed depths one palette index per byte.
struct Picture {
    int width = 0;
    int height = 0;
    int bitsPerPixel = 24;
    std::vector<std::uint8_t> palette;  // 4 bytes per entry: blue, green, red, 0
    std::vector<std::uint8_t> pixels;   // indices, or blue-green-red(-x)
};

// A loaded bitmap's pixels in the picture's form: rows as stored, without their padding; one
// byte per palette index for the indexed depths.
std::vector<std::uint8_t> Unpadded(HBITMAP b);

// A picture whose pixel (x, y) is a fixed function of x, y and the depth.
Picture Pattern(int width, int height, int bitsPerPixel);

// The BMP file of the picture, BI_RGB, bottom-up or top-down.
std::string BmpBytes(const Picture& p, bool topDown);

// Writes a BMP file with the given compression, palette and raw pixel data (already encoded).
std::string BmpRaw(int width, int height, int bitsPerPixel, std::uint32_t compression,
                   const std::vector<std::uint8_t>& palette, const std::vector<std::uint8_t>& data);

// A smooth colour (or grey) test scene encoded as JPEG at the given quality.
std::string JpegBytes(int width, int height, bool grey, int quality);

// libjpeg's own decode of the bytes at 1/scaleDenom: blue-green-red (or grey) rows, top first.
bool DecodeReference(const std::string& jpeg, int scaleDenom, int& width, int& height,
                     std::vector<std::uint8_t>& pixels);

}  // namespace kel_imgtest
