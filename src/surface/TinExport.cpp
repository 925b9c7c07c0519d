// The surface exporters: PLY, OBJ, LandXML 1.2 and an SVG plan.
#include "surface/TinExport.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <new>
#include <string>
#include <vector>

#include "platform/NumText.h"
#include "platform/Trace.h"
#include "surface/Tin.h"

namespace {

// Appends v with the export's decimals ('.' whatever the locale).
void Num(std::string& s, double v, int places = kTinExportDecimals) {
    s += kel_num::Fixed(v, places);
}

// Calls line(number, point) for every used vertex, in vertex order.
template <class Line>
void ForUsed(const CTin& tin, const std::vector<int>& number, Line line) {
    for (int i = 0; i < tin.GetPointSize(); ++i)
        if (number[static_cast<std::size_t>(i)] != 0)
            line(number[static_cast<std::size_t>(i)], tin.m_point[i]);
}

// Writes s and empties it once it grew past a block, so a large mesh is not held twice.
bool Flush(std::ostream& out, std::string& s, bool force = false) {
    if (force || s.size() >= (1u << 16)) {
        out.write(s.data(), static_cast<std::streamsize>(s.size()));
        s.clear();
    }
    return static_cast<bool>(out);
}

std::string XmlEscape(const char* text) {
    std::string s;
    for (const char* p = text; p != nullptr && *p != '\0'; ++p) {
        switch (*p) {
            case '&':
                s += "&amp;";
                break;
            case '<':
                s += "&lt;";
                break;
            case '>':
                s += "&gt;";
                break;
            case '"':
                s += "&quot;";
                break;
            case '\'':
                s += "&apos;";
                break;
            default:
                s += *p;
        }
    }
    return s;
}

// Ends a writer: 1 when the stream is good, else 0 with the trace line.
int Finish(std::ostream& out, std::string& s, const wchar_t* failLine) {
    if (!Flush(out, s, true)) {
        KEL_TRACE_ALWAYS(L"%s", failLine);
        return 0;
    }
    return 1;
}

// 1 when the surface has a triangle to export and every vertex of its triangles is finite (no
// "nan" or "inf" in another program's file); else 0 with one trace line, `writer` followed by
// the condition.
int Exportable(const CTin& tin, const wchar_t* writer) {
    if (tin.GetTriSize() < 1) {
        KEL_TRACE_ALWAYS(L"%s tin.GetTriSize() < 1", writer);
        return 0;
    }
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) {
            const CXYZ& p = tin.m_point[tin.GetTri(i).v[k]];
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
                KEL_TRACE_ALWAYS(
                    L"%s !std::isfinite(p.x) || !std::isfinite(p.y) || "
                    L"!std::isfinite(p.z)",
                    writer);
                return 0;
            }
        }
    return 1;
}

// The body of a text mesh: every used vertex as vertexHead(number) + "x y z" (or "y x z" with
// northFirst) + vertexTail, then `between`, then every triangle as faceHead + its three numbers
// less `shift` (separated by blanks) + faceTail.
template <class Head>
void MeshLines(const CTin& tin, std::ostream& out, std::string& s, const std::vector<int>& number,
               Head vertexHead, bool northFirst, const char* vertexTail, const char* between,
               const char* faceHead, int shift, const char* faceTail) {
    ForUsed(tin, number, [&](int id, const CXYZ& p) {
        s += vertexHead(id);
        Num(s, northFirst ? p.y : p.x);
        s += ' ';
        Num(s, northFirst ? p.x : p.y);
        s += ' ';
        Num(s, p.z);
        s += vertexTail;
        Flush(out, s);
    });
    s += between;
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        s += faceHead;
        for (int k = 0; k < 3; ++k) {
            if (k > 0) s += ' ';
            s += std::to_string(number[static_cast<std::size_t>(tin.GetTri(i).v[k])] - shift);
        }
        s += faceTail;
        Flush(out, s);
    }
}

}  // namespace

namespace {

// NumberTinVertices, which may throw std::bad_alloc.
std::vector<int> Numbered(const CTin& tin, int& nUsed) {
    std::vector<int> number(static_cast<std::size_t>(tin.GetPointSize()), 0);
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) number[static_cast<std::size_t>(tin.GetTri(i).v[k])] = 1;
    nUsed = 0;
    for (int& n : number)
        if (n != 0) n = ++nUsed;
    return number;
}

// A writer's body, run so that running out of memory gives 0 and one line "<writer>
// CMemoryException" instead of an exception.
template <class Body>
int Guarded(const wchar_t* writer, Body body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"%s CMemoryException", writer);
        return 0;
    }
}

}  // namespace

std::vector<int> NumberTinVertices(const CTin& tin, int& nUsed) {
    try {
        return Numbered(tin, nUsed);
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"NumberTinVertices CMemoryException");
        nUsed = -1;
        return std::vector<int>();
    }
}

namespace {

int PlyText(const CTin& tin, std::ostream& out) {
    if (!Exportable(tin, L"WriteTinPly")) return 0;
    int nUsed = 0;
    const std::vector<int> number = Numbered(tin, nUsed);
    std::string s =
        "ply\nformat ascii 1.0\ncomment kelscan surface: x east, y north, z up (m)\n"
        "element vertex " +
        std::to_string(nUsed) +
        "\nproperty double x\nproperty double y\nproperty double z\nelement face " +
        std::to_string(tin.GetTriSize()) + "\nproperty list uchar int vertex_indices\nend_header\n";
    MeshLines(
        tin, out, s, number, [](int) { return ""; }, false, "\n", "", "3 ", 1, "\n");
    return Finish(out, s, L"WriteTinPly !out");
}

int ObjText(const CTin& tin, std::ostream& out) {
    if (!Exportable(tin, L"WriteTinObj")) return 0;
    int nUsed = 0;
    const std::vector<int> number = Numbered(tin, nUsed);
    std::string s = "# kelscan surface: x east, y north, z up (m)\n# " + std::to_string(nUsed) +
                    " vertices, " + std::to_string(tin.GetTriSize()) + " triangles\n";
    MeshLines(
        tin, out, s, number, [](int) { return "v "; }, false, "\n", "", "f ", 0, "\n");
    return Finish(out, s, L"WriteTinObj !out");
}

int LandXmlText(const CTin& tin, std::ostream& out, const char* name, const SYSTEMTIME& when) {
    if (!Exportable(tin, L"WriteTinLandXml")) return 0;
    int nUsed = 0;
    const std::vector<int> number = Numbered(tin, nUsed);
    double zMin = 0.0, zMax = 0.0;
    bool first = true;
    ForUsed(tin, number, [&](int, const CXYZ& p) {
        zMin = first ? p.z : std::min(zMin, p.z);
        zMax = first ? p.z : std::max(zMax, p.z);
        first = false;
    });
    char stamp[64];
    std::snprintf(stamp, sizeof stamp, "date=\"%04u-%02u-%02u\" time=\"%02u:%02u:%02u\"",
                  when.wYear, when.wMonth, when.wDay, when.wHour, when.wMinute, when.wSecond);
    std::string s =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        "<LandXML xmlns=\"http://www.landxml.org/schema/LandXML-1.2\" "
        "xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:schemaLocation=\"http://www.landxml.org/schema/LandXML-1.2 "
        "http://www.landxml.org/schema/LandXML-1.2/LandXML-1.2.xsd\" version=\"1.2\" ";
    s += stamp;
    s += ">\n"
         "  <Units>\n"
         "    <Metric areaUnit=\"squareMeter\" linearUnit=\"meter\" volumeUnit=\"cubicMeter\" "
         "temperatureUnit=\"celsius\" pressureUnit=\"milliBars\" angularUnit=\"decimal degrees\" "
         "directionUnit=\"decimal degrees\"/>\n"
         "  </Units>\n"
         "  <Application name=\"kelscan\" desc=\"triangulated surface\"/>\n"
         "  <Surfaces>\n"
         "    <Surface name=\"" +
         XmlEscape(name) +
         "\">\n"
         "      <Definition surfType=\"TIN\"";
    // The areas are optional in LandXML; one that does not fit a double is left out.
    const double plan = tin.GetPlanArea(), slope = tin.GetSlopeArea();
    if (std::isfinite(plan)) {
        s += " area2DSurf=\"";
        Num(s, plan);
        s += '"';
    }
    if (std::isfinite(slope)) {
        s += " area3DSurf=\"";
        Num(s, slope);
        s += '"';
    }
    s += " elevMax=\"";
    Num(s, zMax);
    s += "\" elevMin=\"";
    Num(s, zMin);
    s += "\">\n        <Pnts>\n";
    // P: "northing easting elevation"; F: the three P ids.
    MeshLines(
        tin, out, s, number,
        [](int id) { return "          <P id=\"" + std::to_string(id) + "\">"; }, true, "</P>\n",
        "        </Pnts>\n        <Faces>\n", "          <F>", 0, "</F>\n");
    s += "        </Faces>\n      </Definition>\n    </Surface>\n  </Surfaces>\n</LandXML>\n";
    return Finish(out, s, L"WriteTinLandXml !out");
}

// Plan-to-picture mapping: x to the right, y up (the SVG's own y runs down).
struct SvgFrame {
    double x0 = 0.0, y1 = 0.0, scale = 1.0;
    static constexpr double kMargin = 20.0;  // pixels
    void Point(std::string& s, double x, double y) const {
        Num(s, kMargin + (x - x0) * scale, 2);
        s += ',';
        Num(s, kMargin + (y1 - y) * scale, 2);
    }
};

// A colour for height fraction f in [0, 1]: green (low) through yellow to brown (high).
std::string Ramp(double f) {
    static const int stops[3][3] = {{0x5e, 0xa8, 0x5a}, {0xe8, 0xd8, 0x7a}, {0x9a, 0x62, 0x38}};
    f = std::min(1.0, std::max(0.0, f));
    const int seg = f < 0.5 ? 0 : 1;
    const double t = f < 0.5 ? f * 2.0 : (f - 0.5) * 2.0;
    char buf[8];
    int rgb[3];
    for (int c = 0; c < 3; ++c)
        rgb[c] = static_cast<int>(stops[seg][c] + t * (stops[seg + 1][c] - stops[seg][c]) + 0.5);
    std::snprintf(buf, sizeof buf, "#%02x%02x%02x", rgb[0], rgb[1], rgb[2]);
    return buf;
}

int SvgText(const CTin& tin, std::ostream& out,
            const kel_templ::CKelArray<CPolyline, CPolyline&>* breakLines) {
    if (!Exportable(tin, L"WriteTinSvg")) return 0;
    // Extent of the used vertices (the break lines lie inside or on it once forced in).
    int nUsed = 0;
    const std::vector<int> number = Numbered(tin, nUsed);
    double lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
    bool first = true;
    ForUsed(tin, number, [&](int, const CXYZ& p) {
        const double c[3] = {p.x, p.y, p.z};
        for (int k = 0; k < 3; ++k) {
            lo[k] = first ? c[k] : std::min(lo[k], c[k]);
            hi[k] = first ? c[k] : std::max(hi[k], c[k]);
        }
        first = false;
    });
    const double spanX = hi[0] - lo[0], spanY = hi[1] - lo[1], spanZ = hi[2] - lo[2];
    SvgFrame f;
    f.x0 = lo[0];
    f.y1 = hi[1];
    f.scale = kTinSvgSize / std::max(std::max(spanX, spanY), 1e-9);
    const double width = spanX * f.scale + 2 * SvgFrame::kMargin;
    const double height = spanY * f.scale + 2 * SvgFrame::kMargin;

    std::string s = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"";
    Num(s, width, 0);
    s += "\" height=\"";
    Num(s, height + 40, 0);
    s += "\">\n<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
         "<g id=\"triangles\" stroke=\"#707070\" stroke-width=\"0.4\" stroke-linejoin=\"round\">\n";
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        const CTin::CTri& t = tin.GetTri(i);
        double zMean = 0.0;
        s += "<polygon points=\"";
        for (int k = 0; k < 3; ++k) {
            const CXYZ& p = tin.m_point[t.v[k]];
            if (k > 0) s += ' ';
            f.Point(s, p.x, p.y);
            zMean += p.z / 3.0;
        }
        s += "\" fill=\"" + Ramp(spanZ > 0.0 ? (zMean - lo[2]) / spanZ : 0.5) + "\"/>\n";
        Flush(out, s);
    }
    s += "</g>\n<g id=\"boundary\" stroke=\"#202020\" stroke-width=\"2\" "
         "stroke-linecap=\"round\">\n";
    int nBoundary = 0;
    for (int i = 0; i < tin.GetTriSize(); ++i) {
        const CTin::CTri& t = tin.GetTri(i);
        for (int k = 0; k < 3; ++k) {
            if (t.nb[k] >= 0) continue;
            // Slot k is the edge v[k-1] - v[k].
            const CXYZ& a = tin.m_point[t.v[(k + 2) % 3]];
            const CXYZ& b = tin.m_point[t.v[k]];
            s += "<polyline points=\"";
            f.Point(s, a.x, a.y);
            s += ' ';
            f.Point(s, b.x, b.y);
            s += "\"/>\n";
            ++nBoundary;
        }
        Flush(out, s);
    }
    s += "</g>\n";
    const auto& hull = tin.GetHull();
    if (hull.GetSize() >= 3) {
        s += "<polygon id=\"hull\" fill=\"none\" stroke=\"#2050a0\" stroke-width=\"1.2\" "
             "stroke-dasharray=\"6 4\" points=\"";
        for (int h = 0; h < hull.GetSize(); ++h) {
            if (h > 0) s += ' ';
            f.Point(s, tin.m_point[hull[h]].x, tin.m_point[hull[h]].y);
        }
        s += "\"/>\n";
    }
    int nBreak = 0;
    if (breakLines != nullptr && breakLines->GetSize() > 0) {
        s += "<g id=\"breaklines\" fill=\"none\" stroke=\"#d02020\" stroke-width=\"2.5\" "
             "stroke-linejoin=\"round\">\n";
        for (int l = 0; l < breakLines->GetSize(); ++l) {
            const CPolyline& pl = (*breakLines)[l];
            if (pl.GetVertexSize() < 2) continue;
            s += "<polyline points=\"";
            for (int v = 0; v < pl.GetVertexSize(); ++v) {
                const CVertex* p = pl.GetVertex(static_cast<unsigned int>(v));
                if (v > 0) s += ' ';
                f.Point(s, p->x, p->y);
            }
            s += "\"/>\n";
            ++nBreak;
        }
        s += "</g>\n";
    }
    // Caption: the counts, then the extent on a second line.
    s += "<text x=\"20\" font-family=\"sans-serif\" font-size=\"12\"><tspan y=\"";
    Num(s, height + 14, 0);
    s += "\">" + std::to_string(nUsed) + " points, " + std::to_string(tin.GetTriSize()) +
         " triangles, " + std::to_string(nBoundary) + " boundary edges";
    if (nBreak > 0) s += ", " + std::to_string(nBreak) + " break lines (red)";
    s += "; convex hull dashed</tspan><tspan x=\"20\" y=\"";
    Num(s, height + 30, 0);
    const char* axes[3] = {"\">X ", ", Y ", " (north up), Z "};
    for (int k = 0; k < 3; ++k) {
        s += axes[k];
        Num(s, lo[k], 3);
        s += "..";
        Num(s, hi[k], 3);
    }
    s += " m</tspan></text>\n</svg>\n";
    return Finish(out, s, L"WriteTinSvg !out");
}

}  // namespace

int WriteTinPly(const CTin& tin, std::ostream& out) {
    return Guarded(L"WriteTinPly", [&] { return PlyText(tin, out); });
}

int WriteTinObj(const CTin& tin, std::ostream& out) {
    return Guarded(L"WriteTinObj", [&] { return ObjText(tin, out); });
}

int WriteTinLandXml(const CTin& tin, std::ostream& out, const char* name, const SYSTEMTIME& when) {
    return Guarded(L"WriteTinLandXml", [&] { return LandXmlText(tin, out, name, when); });
}

int WriteTinSvg(const CTin& tin, std::ostream& out,
                const kel_templ::CKelArray<CPolyline, CPolyline&>* breakLines) {
    return Guarded(L"WriteTinSvg", [&] { return SvgText(tin, out, breakLines); });
}
