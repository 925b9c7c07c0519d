#pragma once
// CMoment: the sub-pixel centre of a bright or dark target in a small grey-value patch by
// first-order image moments. Results are in patch pixels with a pixel's centre at index + 0.5
// (column x to the right, row y downwards).
//
// Usage: SetData(size, dark, binary, percent), write width * height grey values row by row
// into GetBuffer(), then DoMoment or DoMoment2.
#include <cstdint>

#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/Size.h"

class KELSCAN_API CMoment {
public:
    KEL_DECLARE_ALLOCATOR

    // Largest patch accepted by SetData (pixels along one side).
    static constexpr int kMaxSide = 16384;

    CMoment();
    CMoment(const CMoment&) = delete;
    CMoment& operator=(const CMoment&) = delete;
    virtual ~CMoment();

    // Stores the patch size and the options and allocates width * height bytes (any earlier
    // buffer is released first). 1 when a buffer exists afterwards; a size that is not
    // positive or above kMaxSide gives 0 and no buffer.
    int SetData(CSize size, int darkTarget, int binaryWeights, int thresholdPercent);
    CSize GetImageSize() const { return CSize(m_width, m_height); }
    unsigned char* GetBuffer() { return m_pixels; }

    // Polarity given by the caller; every pixel of the patch may count. 1 with the centre.
    int DoMoment(double* cx, double* cy);
    // Polarity from the centre pixel; only pixels inside the inscribed circle that see the
    // seed along a straight line without crossing the threshold count. A seed outside the
    // patch is rejected: the result is 0 (no message).
    int DoMoment2(int seedX, int seedY, double* cx, double* cy);
    // Bresenham walk from (x0, y0) to (x1, y1), both ends included: 0 at the first pixel below
    // (Under) or above (Over) the threshold, else 1. Points outside size give 0.
    int CheckUnderOnLine(int x0, int y0, int x1, int y1, unsigned char* pixels, const CSize& size,
                         int threshold);
    int CheckOverOnLine(int x0, int y0, int x1, int y1, unsigned char* pixels, const CSize& size,
                        int threshold);

private:
    int WalkLine(int x0, int y0, int x1, int y1, const unsigned char* pixels, const CSize& size,
                 int threshold, bool under) const;

    unsigned char* m_pixels;
    std::int32_t m_width;
    std::int32_t m_height;
    std::int32_t m_dark;
    std::int32_t m_binary;
    std::int32_t m_percent;
};
