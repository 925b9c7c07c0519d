#pragma once
// Shared helpers of the planner tests: regions and the map of a region onto the angular box,
// computed here independently of the planners.
#include <array>
#include <initializer_list>

#include "geometry/Polyline.h"

namespace plan_test {

inline CPolyline Region(std::initializer_list<std::array<double, 2>> pts) {
    CPolyline pl(CPolyline::kClosed, 0);
    for (const auto& p : pts) {
        CVertex v(p[0], p[1], 0.0, 0);
        pl.AddVertex(v);
    }
    return pl;
}

// A concave region (a notch from the top down to y 57.7) whose vertices, apart from the lowest
// and the highest, lie off the rows of a box with 40 row steps.
inline CPolyline Notched() {
    return Region({{50, 0}, {98, 33.1}, {90, 100}, {55, 57.7}, {12, 96.2}, {3, 41.9}});
}

// Linear map of the region's bounding box onto an angular box (angles already shifted by the
// direction rule), and back.
struct BoxMap {
    double minX, maxX, minY, maxY, startH, endH, startV, endV;
    explicit BoxMap(const CPolyline& pl, double sH, double eH, double sV, double eV)
        : startH(sH), endH(eH), startV(sV), endV(eV) {
        double z0, z1;
        pl.GetRange(minX, maxX, minY, maxY, z0, z1);
    }
    double X(double h) const { return (h - startH) / (endH - startH) * (maxX - minX) + minX; }
    double Y(double v) const { return (v - startV) / (endV - startV) * (maxY - minY) + minY; }
    double H(double x) const { return (x - minX) / (maxX - minX) * (endH - startH) + startH; }
    double V(double y) const { return (y - minY) / (maxY - minY) * (endV - startV) + startV; }
};

}  // namespace plan_test
