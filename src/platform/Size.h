#pragma once
// CSize: a width and height in pixels, as MFC's (cx columns, cy rows).
#include "platform/Types.h"

struct CSize {
    LONG cx;
    LONG cy;
    CSize() : cx(0), cy(0) {}
    CSize(int width, int height) : cx(width), cy(height) {}
    bool operator==(const CSize& o) const { return cx == o.cx && cy == o.cy; }
    bool operator!=(const CSize& o) const { return !(*this == o); }
};
