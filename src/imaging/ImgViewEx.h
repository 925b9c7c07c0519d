#pragma once
// CImgViewEx: the image view with what is drawn over the photograph: the scan region the user
// draws, and overlays chosen by the caller (points such as planned targets or measured points,
// polylines such as tracking lines), each with its colour and size. Render draws the visible
// part of the photograph and the overlays onto an RGB raster of the view's size.
//
// Every coordinate handed in or out is in full-resolution image pixels (see CImgView), except
// where a name says View. Colours are 0xRRGGBB.
#include <cstdint>
#include <vector>

#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "geometry/XYZ.h"
#include "imaging/ImgView.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CImgViewEx : public CImgView {
public:
    KEL_DECLARE_ALLOCATOR

    // How a point overlay marks each point.
    enum EMark : std::int32_t { MARK_SQUARE = 0, MARK_CROSS = 1 };

    CImgViewEx();
    ~CImgViewEx() override;

    // The region drawn on the photograph (a closed polyline in image pixels).
    void AddRegionVertexView(double vx, double vy);  // appends the image point under (vx, vy)
    void SetRegion(const CPolyline& region);
    const CPolyline& GetRegion() const { return m_region; }
    void ClearRegion() { m_region.DelAllVertex(); }
    void SetRegionStyle(std::uint32_t rgb, int width) {
        m_regionRgb = rgb;
        m_regionWidth = width;
    }

    // Overlays, drawn in the order added, after the photograph and before the region. size is
    // the mark's width (points) or the line width (polylines), view pixels, at least 1.
    void AddPoints(const kel_templ::CKelArray<CXYZ, CXYZ&>& pts, std::uint32_t rgb, int size,
                   EMark mark);
    void AddPolyline(const CPolyline& line, std::uint32_t rgb, int width);
    void ClearOverlays();
    int GetOverlayCount() const { return static_cast<int>(m_overlays.size()); }

    // The view as 8-bit RGB, rows from the top, width GetViewWidth() and height
    // GetViewHeight() (3 bytes a pixel, no padding). View pixels outside the photograph are
    // the background colour. Returns 1 (0 only when memory is short).
    int Render(std::vector<unsigned char>& rgb) const;
    // Render, written as an 8-bit RGB PNG at path (a device path in UTF-8). Returns 1, or 0
    // after one trace line ("CImgViewEx::WritePng CMemoryException" or the PNG writer's).
    int WritePng(const char* path) const;
    void SetBackground(std::uint32_t rgb) { m_backgroundRgb = rgb; }

private:
    struct Overlay {
        std::vector<CXYZ> pts;
        bool isLine;
        bool closed;
        std::uint32_t rgb;
        int size;
        EMark mark;
    };
    void DrawPhoto(std::vector<unsigned char>& rgb) const;
    void DrawChain(std::vector<unsigned char>& rgb, const std::vector<CXYZ>& pts, bool closed,
                   std::uint32_t colour, int width) const;
    void DrawMark(std::vector<unsigned char>& rgb, double vx, double vy, std::uint32_t colour,
                  int size, EMark mark) const;

    CPolyline m_region;
    std::uint32_t m_regionRgb;
    int m_regionWidth;
    std::uint32_t m_backgroundRgb;
    std::vector<Overlay> m_overlays;
};
