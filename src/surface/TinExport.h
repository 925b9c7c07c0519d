#pragma once
// Writers that hand a triangulated surface (CTin) to other programs: ASCII PLY and Wavefront
// OBJ meshes for any mesh viewer, a LandXML 1.2 TIN surface for surveying and design software,
// and an SVG plan drawing.
//
// Coordinates are written as the surface holds them: x east, y north, z up, in metres, with
// kTinExportDecimals decimals (kel_num::Fixed: a point whatever the locale). Only vertices that
// some triangle uses are written, in vertex-index order, numbered from 0 (PLY) or 1 (OBJ,
// LandXML); a vertex left out of the mesh (a skipped duplicate, a corner cut off by
// thin-triangle removal) would only be a stray point in the other program. Faces keep the
// surface's vertex order: counter-clockwise seen from above in the x east, y north plane.
//
// Each writer returns 1, or 0 after one trace line when the surface has no triangle, when a
// vertex of a triangle is not finite (NaN or infinite: it would reach the other program as
// "nan" or "inf"), the stream failed or memory ran out ("<writer> CMemoryException"). What
// was written before a failure stays in the stream.
#include <ostream>
#include <vector>

#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "platform/Export.h"
#include "platform/Time.h"

class CTin;

constexpr int kTinExportDecimals = 6;  // decimals of every exported coordinate (m): 1 µm

// The export number of each vertex (1-based, in vertex order), 0 for a vertex no triangle
// uses; nUsed receives the count of used vertices (-1, with an empty result and the line
// "NumberTinVertices CMemoryException", when memory runs out).
KELSCAN_API std::vector<int> NumberTinVertices(const CTin& tin, int& nUsed);

// "ply", "format ascii 1.0", comments, element vertex (double x, y, z), element face (list
// uchar int vertex_indices), "end_header", then one line per vertex and per face ("3 a b c").
KELSCAN_API int WriteTinPly(const CTin& tin, std::ostream& out);
// Comment lines, "v x y z" per vertex, "f a b c" per triangle (1-based).
KELSCAN_API int WriteTinObj(const CTin& tin, std::ostream& out);
// A LandXML 1.2 document (namespace http://www.landxml.org/schema/LandXML-1.2) holding Units
// (metric), Application and one Surfaces/Surface named `name` (UTF-8, escaped here) whose
// Definition has surfType="TIN", the plan and slope areas (each left out when it is not finite,
// as on a surface whose area exceeds the range of a double) and the height range, Pnts/P with
// id="k" and the text "northing easting elevation" (y x z), and Faces/F with three P ids.
// `when` gives the root's date (YYYY-MM-DD) and time (hh:mm:ss) attributes.
KELSCAN_API int WriteTinLandXml(const CTin& tin, std::ostream& out, const char* name,
                                const SYSTEMTIME& when);
// A plan view, y up, kTinSvgSize pixels along the longer side: the triangles filled by their
// mean height (low green to high brown), the outer boundary (edges without a neighbour), the
// convex hull of the start triangulation (dashed), the break lines if given (may be null), and
// a caption with the counts and the extent.
KELSCAN_API int WriteTinSvg(const CTin& tin, std::ostream& out,
                            const kel_templ::CKelArray<CPolyline, CPolyline&>* breakLines);

constexpr double kTinSvgSize = 800.0;  // pixels along the longer side of the plan
