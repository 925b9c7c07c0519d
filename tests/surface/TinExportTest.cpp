// The surface exporters: LandXML checked with an XML parser against the schema's structure,
// PLY and OBJ against the mesh, the SVG plan's elements, and the failure lines.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <map>
#include <pugixml.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "TinCheck.h"
#include "common/KelTest.h"
#include "surface/Tin.h"
#include "surface/TinExport.h"

namespace {

class TinExportTest : public kel_test::KelFixture {
protected:
    // A jittered grid far from the origin, heights from a smooth formula, and one batch
    // duplicate that the triangulation leaves out (with its one line): vertex 0 repeated last.
    CTin Surface() {
        CTin tin;
        const int nx = 7, ny = 5;
        tin.BeginAddPoint(nx * ny + 1);
        for (int j = 0; j < ny; ++j)
            for (int i = 0; i < nx; ++i) {
                const double dx = i > 0 && i < nx - 1 ? 0.37 * ((i * 7 + j * 3) % 5 - 2) : 0.0;
                const double dy = j > 0 && j < ny - 1 ? 0.29 * ((i * 5 + j) % 3 - 1) : 0.0;
                tin.AddPoint2(512300.0 + 4.0 * i + dx, 5401200.0 + 3.0 * j + dy,
                              412.25 + 0.5 * std::sin(0.3 * i) + 0.125 * j);
            }
        tin.AddPoint2(512300.0, 5401200.0, 999.0);
        tin.EndAddPoint();
        EXPECT_EQ(tin.CreateTin(0.0), 1);
        EXPECT_EQ(Lines(),
                  std::vector<std::string>{"CTin::DivideTri it < 0 ||\tstatus < 0 || status == 1"});
        ClearLines();
        return tin;
    }
};

const char kLandXmlNs[] = "http://www.landxml.org/schema/LandXML-1.2";
// Half a unit of the last printed decimal, plus the rounding of the parse (m).
const double kPrinted = 0.5 * std::pow(10.0, -kTinExportDecimals) + 1e-9;

std::set<int> Used(const CTin& tin) {
    std::set<int> used;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) used.insert(tin.GetTri(i).v[k]);
    return used;
}

std::vector<std::string> ChildNames(const pugi::xml_node& n) {
    std::vector<std::string> names;
    for (const pugi::xml_node& c : n.children())
        if (c.type() == pugi::node_element) names.push_back(c.name());
    return names;
}

std::vector<double> Numbers(const char* text) {
    std::istringstream in(text);
    std::vector<double> v;
    double d;
    while (in >> d) v.push_back(d);
    EXPECT_TRUE(in.eof()) << "not a list of numbers: " << text;
    return v;
}

// The "x,y x,y ..." pairs of an SVG points attribute.
std::vector<std::pair<double, double>> Pairs(const char* s) {
    std::vector<std::pair<double, double>> v;
    double x, y;
    int used = 0;
    while (std::sscanf(s, " %lf,%lf%n", &x, &y, &used) == 2) {
        v.emplace_back(x, y);
        s += used;
    }
    return v;
}

void ExpectPoint(const CXYZ& p, double x, double y, double z, const std::string& what) {
    EXPECT_NEAR(x, p.x, kPrinted) << what;
    EXPECT_NEAR(y, p.y, kPrinted) << what;
    EXPECT_NEAR(z, p.z, kPrinted) << what;
}

TEST_F(TinExportTest, LandXmlFollowsTheSchemaAndCarriesTheMesh) {
    const CTin tin = Surface();
    const std::set<int> used = Used(tin);
    ASSERT_EQ(static_cast<int>(used.size()), tin.GetPointSize() - 1);  // the duplicate is out
    const SYSTEMTIME when{2024, 3, 0, 7, 9, 5, 41, 0};
    std::ostringstream out;
    ASSERT_EQ(WriteTinLandXml(tin, out, "Pit & \"A\" <1>", when), 1);

    pugi::xml_document doc;
    const pugi::xml_parse_result parsed = doc.load_string(out.str().c_str());
    ASSERT_TRUE(parsed) << parsed.description();
    EXPECT_EQ(ChildNames(doc), std::vector<std::string>{"LandXML"});
    const pugi::xml_node root = doc.child("LandXML");
    EXPECT_STREQ(root.attribute("xmlns").value(), kLandXmlNs);
    EXPECT_STREQ(root.attribute("version").value(), "1.2");
    EXPECT_STREQ(root.attribute("date").value(), "2024-03-07");
    EXPECT_STREQ(root.attribute("time").value(), "09:05:41");
    EXPECT_EQ(ChildNames(root), (std::vector<std::string>{"Units", "Application", "Surfaces"}));

    // Units/Metric with the attributes the schema requires.
    EXPECT_EQ(ChildNames(root.child("Units")), std::vector<std::string>{"Metric"});
    const pugi::xml_node metric = root.child("Units").child("Metric");
    EXPECT_STREQ(metric.attribute("linearUnit").value(), "meter");
    EXPECT_STREQ(metric.attribute("areaUnit").value(), "squareMeter");
    for (const char* a : {"volumeUnit", "temperatureUnit", "pressureUnit"})
        EXPECT_FALSE(metric.attribute(a).empty()) << a;

    EXPECT_EQ(ChildNames(root.child("Surfaces")), std::vector<std::string>{"Surface"});
    const pugi::xml_node surface = root.child("Surfaces").child("Surface");
    EXPECT_STREQ(surface.attribute("name").value(), "Pit & \"A\" <1>");
    EXPECT_EQ(ChildNames(surface), std::vector<std::string>{"Definition"});
    const pugi::xml_node def = surface.child("Definition");
    EXPECT_STREQ(def.attribute("surfType").value(), "TIN");
    EXPECT_EQ(ChildNames(def), (std::vector<std::string>{"Pnts", "Faces"}));
    EXPECT_NEAR(def.attribute("area2DSurf").as_double(), tin.GetPlanArea(), kPrinted);
    EXPECT_NEAR(def.attribute("area3DSurf").as_double(), tin.GetSlopeArea(), kPrinted);
    EXPECT_NEAR(def.attribute("elevMin").as_double(), tin.m_range[0].z, kPrinted);
    EXPECT_NEAR(def.attribute("elevMax").as_double(), tin.m_range[1].z, kPrinted);

    // Pnts: one P per used vertex, unique ids, "northing easting elevation".
    std::map<int, std::vector<double>> pnts;
    for (const pugi::xml_node& p : def.child("Pnts").children()) {
        ASSERT_STREQ(p.name(), "P");
        const int id = p.attribute("id").as_int(-1);
        EXPECT_GE(id, 1);
        const std::vector<double> v = Numbers(p.text().get());
        ASSERT_EQ(v.size(), 3u) << "P " << id;
        EXPECT_TRUE(pnts.emplace(id, v).second) << "id " << id << " twice";
    }
    EXPECT_EQ(pnts.size(), used.size());

    // Faces: one F per triangle in order, three ids that name a P, the mesh's vertices.
    int f = 0;
    std::set<int> named;
    for (const pugi::xml_node& face : def.child("Faces").children()) {
        ASSERT_STREQ(face.name(), "F");
        ASSERT_LT(f, tin.GetTriSize());
        const std::vector<double> ids = Numbers(face.text().get());
        ASSERT_EQ(ids.size(), 3u) << "F " << f;
        std::vector<CXYZ> corners;
        for (int k = 0; k < 3; ++k) {
            const auto it = pnts.find(static_cast<int>(ids[static_cast<std::size_t>(k)]));
            ASSERT_NE(it, pnts.end()) << "F " << f << " names no P";
            named.insert(it->first);
            const CXYZ& want = tin.m_point[tin.GetTri(f).v[k]];
            ExpectPoint(want, it->second[1], it->second[0], it->second[2],
                        "F " + std::to_string(f) + " corner " + std::to_string(k));
            corners.emplace_back(it->second[1], it->second[0], it->second[2]);
        }
        // Counter-clockwise seen from above with x east and y north.
        EXPECT_GT(tin_test::Orient(corners[0], corners[1], corners[2]), 0.0) << "F " << f;
        ++f;
    }
    EXPECT_EQ(f, tin.GetTriSize());
    EXPECT_EQ(named.size(), pnts.size()) << "a P that no face uses";
    EXPECT_TRUE(Lines().empty());
}

// Splits text into lines.
std::vector<std::string> SplitLines(const std::string& s) {
    std::vector<std::string> lines;
    std::istringstream in(s);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

TEST_F(TinExportTest, PlyAndObjHoldTheUsedVerticesAndEveryTriangle) {
    const CTin tin = Surface();
    const std::set<int> used = Used(tin);
    const std::vector<int> order(used.begin(), used.end());  // export number -> vertex
    const int nV = static_cast<int>(order.size()), nT = tin.GetTriSize();

    std::ostringstream ply;
    ASSERT_EQ(WriteTinPly(tin, ply), 1);
    const std::vector<std::string> p = SplitLines(ply.str());
    const std::vector<std::string> header = {"ply",
                                             "format ascii 1.0",
                                             "comment kelscan surface: x east, y north, z up (m)",
                                             "element vertex " + std::to_string(nV),
                                             "property double x",
                                             "property double y",
                                             "property double z",
                                             "element face " + std::to_string(nT),
                                             "property list uchar int vertex_indices",
                                             "end_header"};
    ASSERT_EQ(p.size(), header.size() + nV + nT);
    EXPECT_EQ(std::vector<std::string>(p.begin(), p.begin() + 10), header);
    for (int i = 0; i < nV; ++i) {
        const std::vector<double> v = Numbers(p[10 + i].c_str());
        ASSERT_EQ(v.size(), 3u);
        ExpectPoint(tin.m_point[order[i]], v[0], v[1], v[2], "PLY vertex " + std::to_string(i));
    }
    for (int t = 0; t < nT; ++t) {
        const std::vector<double> v = Numbers(p[10 + nV + t].c_str());
        ASSERT_EQ(v.size(), 4u);
        EXPECT_EQ(v[0], 3.0);
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(order[static_cast<int>(v[k + 1])], tin.GetTri(t).v[k]);
    }

    std::ostringstream obj;
    ASSERT_EQ(WriteTinObj(tin, obj), 1);
    int nv = 0, nf = 0;
    for (const std::string& line : SplitLines(obj.str())) {
        if (line.rfind("v ", 0) == 0) {
            const std::vector<double> v = Numbers(line.c_str() + 2);
            ASSERT_EQ(v.size(), 3u);
            ExpectPoint(tin.m_point[order[nv]], v[0], v[1], v[2], "OBJ v " + std::to_string(nv));
            ++nv;
        } else if (line.rfind("f ", 0) == 0) {
            const std::vector<double> v = Numbers(line.c_str() + 2);
            ASSERT_EQ(v.size(), 3u);
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(order[static_cast<int>(v[k]) - 1], tin.GetTri(nf).v[k]);
            ++nf;
        } else {
            EXPECT_EQ(line[0], '#') << line;
        }
    }
    EXPECT_EQ(nv, nV);
    EXPECT_EQ(nf, nT);
}

TEST_F(TinExportTest, SvgDrawsTrianglesBoundaryHullAndBreakLinesNorthUp) {
    const CTin tin = Surface();
    kel_templ::CKelArray<CPolyline, CPolyline&> lines;
    CPolyline pl(0, 0);
    for (double t : {0.1, 0.5, 0.9}) {
        CVertex v(512300.0 + 24.0 * t, 5401200.0 + 12.0 * t, 0.0, 0);
        pl.AddVertex(v);
    }
    lines.Add(pl);
    std::ostringstream out;
    ASSERT_EQ(WriteTinSvg(tin, out, &lines), 1);
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string(out.str().c_str()));
    const pugi::xml_node svg = doc.child("svg");
    int nBoundary = 0;
    for (int i = 0; i < tin.GetTriSize(); ++i)
        for (int k = 0; k < 3; ++k) nBoundary += tin.GetTri(i).nb[k] < 0 ? 1 : 0;
    const pugi::xml_node tris = svg.find_child_by_attribute("g", "id", "triangles");
    const pugi::xml_node boundary = svg.find_child_by_attribute("g", "id", "boundary");
    const pugi::xml_node breaks = svg.find_child_by_attribute("g", "id", "breaklines");
    EXPECT_EQ(ChildNames(tris),
              std::vector<std::string>(static_cast<std::size_t>(tin.GetTriSize()), "polygon"));
    EXPECT_EQ(ChildNames(boundary),
              std::vector<std::string>(static_cast<std::size_t>(nBoundary), "polyline"));
    EXPECT_EQ(ChildNames(breaks), std::vector<std::string>{"polyline"});
    const pugi::xml_node hull = svg.find_child_by_attribute("polygon", "id", "hull");
    EXPECT_EQ(Pairs(hull.attribute("points").value()).size(),
              static_cast<std::size_t>(tin.GetHull().GetSize()));

    // North up: the picture's y of every triangle corner falls as the plan's y rises. The plan
    // spans 24 m x 12 m: 800 px wide, 400 px high, 20 px margins.
    EXPECT_STREQ(svg.attribute("width").value(), "840");
    int t = 0;
    for (const pugi::xml_node& poly : tris.children()) {
        const std::vector<std::pair<double, double>> picture =
            Pairs(poly.attribute("points").value());
        ASSERT_EQ(picture.size(), 3u);
        for (int k = 0; k < 3; ++k) {
            const CXYZ& p = tin.m_point[tin.GetTri(t).v[k]];
            EXPECT_NEAR(picture[k].first, 20.0 + (p.x - 512300.0) * 800.0 / 24.0, 0.006);
            EXPECT_NEAR(picture[k].second, 20.0 + (5401212.0 - p.y) * 800.0 / 24.0, 0.006);
        }
        ++t;
    }
}

TEST_F(TinExportTest, EmptySurfaceAndFailedStream) {
    const CTin empty;
    std::ostringstream out;
    SYSTEMTIME when{};
    EXPECT_EQ(WriteTinPly(empty, out), 0);
    EXPECT_EQ(WriteTinObj(empty, out), 0);
    EXPECT_EQ(WriteTinLandXml(empty, out, "x", when), 0);
    EXPECT_EQ(WriteTinSvg(empty, out, nullptr), 0);
    EXPECT_TRUE(out.str().empty());
    EXPECT_EQ(Lines(),
              (std::vector<std::string>{
                  "WriteTinPly tin.GetTriSize() < 1", "WriteTinObj tin.GetTriSize() < 1",
                  "WriteTinLandXml tin.GetTriSize() < 1", "WriteTinSvg tin.GetTriSize() < 1"}));
    ClearLines();
    const CTin tin = Surface();
    std::ostringstream broken;
    broken.setstate(std::ios::badbit);
    EXPECT_EQ(WriteTinObj(tin, broken), 0);
    EXPECT_EQ(Lines(), std::vector<std::string>{"WriteTinObj !out"});
    // A vertex that is not a number never reaches the file as "nan".
    ClearLines();
    CTin bad = Surface();
    bad.m_point[bad.GetTri(0).v[1]].z = std::nan("");
    EXPECT_EQ(WriteTinLandXml(bad, out, "x", when), 0);
    EXPECT_TRUE(out.str().empty());
    EXPECT_EQ(Lines(), std::vector<std::string>{"WriteTinLandXml !std::isfinite(p.x) || "
                                                "!std::isfinite(p.y) || !std::isfinite(p.z)"});
}

}  // namespace
