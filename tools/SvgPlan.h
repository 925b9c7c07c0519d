#pragma once
// SvgPlan: an SVG drawing of a scan plan in the angular frame (H to the right, V, the zenith
// angle, downwards, so the picture stands as the instrument sees it): the region, the path
// through the targets or the sweep lines of a tracking scan, the start circled.
#include <algorithm>
#include <array>
#include <ostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "geometry/Polyline.h"
#include "scanning/CleverScanBase.h"

namespace kelscan_cli {

class SvgPlan {
public:
    void Extend(double h, double v) {
        m_minH = std::min(m_minH, h);
        m_maxH = std::max(m_maxH, h);
        m_minV = std::min(m_minV, v);
        m_maxV = std::max(m_maxV, v);
    }
    // The region mapped onto the planner's (direction-ruled) box.
    void Region(const CCleverScanBase& p) {
        if (p.m_polyline.GetVertexSize() < 3) return;
        double x0, x1, y0, y1, z0, z1;
        p.m_polyline.GetRange(x0, x1, y0, y1, z0, z1);
        for (int i = 0; i < p.m_polyline.GetVertexSize(); ++i) {
            const CVertex* v = p.m_polyline.GetVertex(static_cast<unsigned int>(i));
            const double h = (v->x - x0) / (x1 - x0) * (p.m_endH - p.m_startH) + p.m_startH;
            const double vv = (v->y - y0) / (y1 - y0) * (p.m_endV - p.m_startV) + p.m_startV;
            m_region.push_back({h, vv});
            Extend(h, vv);
        }
    }
    void Path(double h, double v) {
        m_path.push_back({h, v});
        Extend(h, v);
    }
    void Sweep(double v, double h0, double h1) {
        m_sweeps.push_back({v, h0, h1});
        Extend(h0, v);
        Extend(h1, v);
    }
    void Title(const std::string& t) { m_title = t; }

    bool Write(std::ostream& out) const {
        const double spanH = std::max(m_maxH - m_minH, 1e-9),
                     spanV = std::max(m_maxV - m_minV, 1e-9);
        const double scale = kSize / std::max(spanH, spanV);
        const double width = spanH * scale + 2 * kMargin, height = spanV * scale + 2 * kMargin;
        auto X = [&](double h) { return Fixed(kMargin + (h - m_minH) * scale, 2); };
        auto Y = [&](double v) { return Fixed(kMargin + (v - m_minV) * scale, 2); };
        out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << Fixed(width, 0)
            << "\" height=\"" << Fixed(height + 20, 0) << "\">\n"
            << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
        if (!m_region.empty()) {
            out << "<polygon fill=\"#dde8f6\" stroke=\"#3060a0\" stroke-width=\"1.5\" points=\"";
            for (const auto& p : m_region) out << X(p[0]) << ',' << Y(p[1]) << ' ';
            out << "\"/>\n";
        }
        if (m_path.size() > 1) {
            out << "<polyline fill=\"none\" stroke=\"#909090\" stroke-width=\"0.8\" points=\"";
            for (const auto& p : m_path) out << X(p[0]) << ',' << Y(p[1]) << ' ';
            out << "\"/>\n";
        }
        for (const auto& s : m_sweeps)
            out << "<line x1=\"" << X(s[1]) << "\" y1=\"" << Y(s[0]) << "\" x2=\"" << X(s[2])
                << "\" y2=\"" << Y(s[0]) << "\" stroke=\"#c03020\" stroke-width=\"2\"/>\n";
        if (m_sweeps.empty())
            for (const auto& p : m_path)
                out << "<circle cx=\"" << X(p[0]) << "\" cy=\"" << Y(p[1])
                    << "\" r=\"1.8\" fill=\"#c03020\"/>\n";
        if (!m_path.empty())
            out << "<circle cx=\"" << X(m_path.front()[0]) << "\" cy=\"" << Y(m_path.front()[1])
                << "\" r=\"4\" fill=\"none\" stroke=\"#208030\" stroke-width=\"2\"/>\n";
        out << "<text x=\"" << Fixed(kMargin, 0) << "\" y=\"" << Fixed(height + 10, 0)
            << "\" font-family=\"sans-serif\" font-size=\"12\">" << m_title << " (H "
            << Fixed(m_minH, 3) << ".." << Fixed(m_maxH, 3) << " right, V " << Fixed(m_minV, 3)
            << ".." << Fixed(m_maxV, 3) << " down; start circled)</text>\n</svg>\n";
        return static_cast<bool>(out);
    }

private:
    static constexpr double kSize = 800.0;   // pixels along the longer side of the plan
    static constexpr double kMargin = 20.0;  // pixels
    double m_minH = 1e300, m_maxH = -1e300, m_minV = 1e300, m_maxV = -1e300;
    std::vector<std::array<double, 2>> m_region, m_path;
    std::vector<std::array<double, 3>> m_sweeps;
    std::string m_title;
};

}  // namespace kelscan_cli
