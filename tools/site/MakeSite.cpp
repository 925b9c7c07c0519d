// kelscan_make_site: builds the synthetic site that `kelscan demo` scans (data/site/).
//
// The site is a hillside rising away from a station in surveying coordinates (x north, y east,
// z height, metres, thousands of metres from the origin). Everything is made from the
// definitions below, so the sample can be rebuilt at any time:
//   kelscan_make_site DIR
// writes into DIR:
//   camera.cam          the camera (camera file; the lens corrects measured points)
//   photo.jpg           the photograph: one ray per quarter pixel through the camera model onto
//                       the true terrain, shaded by the sun, sky where the ray misses; the
//                       control targets as bright discs in dark rings
//   terrain_true.csv    the true terrain, a 1 m grid (name,north,east,height), which the
//                       simulated instrument measures
//   survey.csv          an earlier survey of the site, every 4th point of that grid: the surface
//                       through which pixels become instrument angles
//   control_object.csv  the control targets (name,north,east,height)
//   control_seeds.csv   approximate target positions on the photograph (name,column,row), as
//                       a user clicks them
//   region.csv          the scan region drawn on the photograph (column,row per vertex)
//   site.csv            the station set-up and the scan's spacing (quantity,value)
//   truth.csv           what only the simulation knows: the camera's true pose and the
//                       simulated instrument's noise (quantity,value)
//   control_truth.csv   the targets' true image positions (name,column,row)
//
// Image pixels: column to the right and row downwards from the top-left corner of the
// photograph; pixel (i, j) covers [i, i + 1) x [j, j + 1), its centre is (i + 0.5, j + 0.5).
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "geometry/CalcXYZHV.h"
#include "geometry/Rot.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Camera.h"
#include "platform/KelMath.h"
#include "platform/KelString.h"
#include "platform/NumText.h"
#include "scanning/ScanProject.h"
#include "surface/SinOriToTin.h"

// jpeglib.h needs size_t and FILE declared before it.
#include <jpeglib.h>

namespace {

// ---- the site -------------------------------------------------------------------------------
const CXYZ kStation(5000.0, 2000.0, 250.0);
constexpr double kInstHeight = 1.55;
constexpr double kBsAzimuth = 45.0, kBsReading = 0.0;  // circle reading = azimuth - 45

// True terrain height at a plan position (surveying frame, metres).
double Terrain(double north, double east) {
    const double dn = north - kStation.x, de = east - kStation.y;
    return 248.6 + 0.42 * dn + 0.06 * de + 0.7 * std::sin(dn / 6.0) * std::cos(de / 8.0) +
           0.25 * std::sin((dn + de) / 3.5);
}
// The true terrain grid: 1 m, north 2 .. 56 m and east -24 .. 24 m from the station.
constexpr int kGridN0 = 2, kGridN1 = 56, kGridE0 = -24, kGridE1 = 24;
constexpr int kSurveyStep = 4;  // the earlier survey keeps every 4th grid point each way

// The camera: 800 x 600 pixels of 7.5 um behind a 6 mm lens, slight barrel distortion.
constexpr int kWidth = 800, kHeight = 600;
constexpr double kFocal = 6.0, kPixel = 0.0075;
constexpr double kPpx = 3.0123, kPpy = 2.2411;
constexpr double kK1 = -1.2e-3, kK2 = 2.0e-5;
// It sits 0.11 m to the right of the telescope and 0.09 m above its axis, looking at azimuth
// 0 degrees (north) and zenith angle 79 degrees (upwards, at the slope).
constexpr double kCamRight = 0.11, kCamUp = 0.09;
constexpr double kLookAzimuth = 0.0, kLookZenith = 79.0;

struct Target {
    const char* name;
    double dn, de;       // from the station, metres
    int seedDx, seedDy;  // where the user's click lands, pixels from the true centre
};
const Target kTargets[] = {
    {"C01", 9.4, -3.3, 2, -1},  {"C02", 10.3, 3.6, -1, 2},  {"C03", 15.2, -5.4, 1, 1},
    {"C04", 17.3, 5.2, -2, -2}, {"C05", 22.4, -1.3, 2, 0},  {"C06", 27.6, -9.3, 0, 2},
    {"C07", 29.3, 8.4, -1, -1}, {"C08", 36.6, -4.3, 1, -2}, {"C09", 41.4, 10.3, -2, 1},
    {"C10", 44.3, -10.6, 2, 2},
};
constexpr double kTargetRadius = 0.25;
// A target whose pixel's ray meets the terrain farther than this (m) from it counts as hidden
// (its height is rounded to the millimetre, and rays graze the far slope).
constexpr double kHiddenTol = 0.05;  // metres: the bright disc; its dark ring is 1.8 times

// The scan region, drawn around this outline on the ground (metres from the station).
const double kRegion[][2] = {{11.0, -3.5}, {12.0, 4.0}, {27.0, 9.0}, {39.0, 6.0}, {37.0, -9.0}};

constexpr double kFineSpacing = 0.3, kTrackSpacing = 0.3;  // metres
// The simulated instrument: angle and distance noise (one sigma) and its seed.
constexpr double kAngleSigmaDeg = 0.0003, kDistanceSigma = 0.002;
constexpr unsigned kSeed = 20261124;

// ---- helpers --------------------------------------------------------------------------------
double Rad(double deg) { return deg / kel_math::kRadToDeg; }

CCamera MakeCamera() {
    CCamera cam;
    cam.m_focal = kFocal;
    cam.m_principal.SetXYZ(kPpx, kPpy, 0.0);
    cam.m_resolution.SetXYZ(kPixel, kPixel, 0.0);
    cam.m_dist.SetDistModel(DIST_K1K2K3K4);
    cam.m_dist.AddPara(0, kK1);
    cam.m_dist.AddPara(1, kK2);
    return cam;
}

// Unit vector of a direction (azimuth, zenith angle; degrees) in the computation frame.
CXYZ Direction(double azimuth, double zenith) {
    const double az = Rad(azimuth), zen = Rad(zenith);
    return CXYZ(std::sin(az) * std::sin(zen), std::cos(az) * std::sin(zen), std::cos(zen));
}

// Object-to-camera rotation, computation frame: rows right, up, backwards (the camera looks
// along its negative z axis).
CRot CameraRot() {
    const CXYZ f = Direction(kLookAzimuth, kLookZenith);
    CXYZ r = f.Out(CXYZ(0.0, 0.0, 1.0));
    r /= r.Len();
    const CXYZ u = r.Out(f);
    CRot rot;
    const double m[9] = {r.x, r.y, r.z, u.x, u.y, u.z, -f.x, -f.y, -f.z};
    for (int i = 0; i < 9; ++i) rot.m[i] = m[i];
    return rot;
}

// Projection centre, surveying frame.
CXYZ CameraCentre() {
    const double az = Rad(kLookAzimuth);
    // Right of the line of sight: azimuth + 90 degrees (north, east components).
    return CXYZ(kStation.x - kCamRight * std::sin(az), kStation.y + kCamRight * std::cos(az),
                kStation.z + kInstHeight + kCamUp);
}

CXYZ SiteToSoku(double dn, double de) {
    const double n = kStation.x + dn, e = kStation.y + de;
    return CXYZ(n, e, Terrain(n, e));
}

// Unit normal of the terrain (computation frame, pointing up) from its gradient.
CXYZ TerrainNormal(double north, double east) {
    const double h = 0.01;
    const double dzdn = (Terrain(north + h, east) - Terrain(north - h, east)) / (2 * h);
    const double dzde = (Terrain(north, east + h) - Terrain(north, east - h)) / (2 * h);
    CXYZ n(-dzde, -dzdn, 1.0);
    return n / n.Len();
}

// Smooth value noise in [0, 1] over the plane (a hash per lattice point, bilinear blend).
double Hash(int x, int y) {
    std::uint32_t h =
        static_cast<std::uint32_t>(x) * 374761393u + static_cast<std::uint32_t>(y) * 668265263u;
    h = (h ^ (h >> 13)) * 1274126177u;
    return static_cast<double>((h ^ (h >> 16)) & 0xffffu) / 65535.0;
}
double Noise(double x, double y) {
    const double fx = std::floor(x), fy = std::floor(y);
    const int ix = static_cast<int>(fx), iy = static_cast<int>(fy);
    const double tx = x - fx, ty = y - fy;
    const double sx = tx * tx * (3 - 2 * tx), sy = ty * ty * (3 - 2 * ty);
    const double a = Hash(ix, iy) + (Hash(ix + 1, iy) - Hash(ix, iy)) * sx;
    const double b = Hash(ix, iy + 1) + (Hash(ix + 1, iy + 1) - Hash(ix, iy + 1)) * sx;
    return a + (b - a) * sy;
}

// Colour (0..1 each) of the ground at a surveying-frame point: grass with patches of bare
// soil, lit by a sun in the south-east.
void GroundColour(const CXYZ& p, double rgb[3]) {
    const double n = p.x, e = p.y;
    const double patch = Noise(n / 6.0, e / 6.0) * 0.6 + Noise(n / 1.5, e / 1.5) * 0.4;
    const double fine = Noise(n * 3.0, e * 3.0);
    const double grass[3] = {0.30, 0.52, 0.18}, soil[3] = {0.52, 0.42, 0.30};
    const double w = std::clamp((patch - 0.62) * 6.0, 0.0, 1.0);
    const CXYZ sun = Direction(140.0, 40.0);
    const double light = 0.35 + 0.75 * std::max(0.0, TerrainNormal(n, e).Inn(sun));
    for (int k = 0; k < 3; ++k)
        rgb[k] =
            std::clamp((grass[k] * (1 - w) + soil[k] * w) * (0.85 + 0.3 * fine) * light, 0.0, 1.0);
}

std::string Num(double v, int decimals) { return kel_num::Fixed(v, decimals); }

bool WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
    return static_cast<bool>(out.flush());
}

bool WriteJpeg(const std::string& path, const std::vector<unsigned char>& rgb, int w, int h) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return false;
    jpeg_compress_struct cinfo;
    jpeg_error_mgr jerr;
    cinfo.err = jpeg_std_error(&jerr);
    jpeg_create_compress(&cinfo);
    jpeg_stdio_dest(&cinfo, f);
    cinfo.image_width = static_cast<JDIMENSION>(w);
    cinfo.image_height = static_cast<JDIMENSION>(h);
    cinfo.input_components = 3;
    cinfo.in_color_space = JCS_RGB;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, 85, TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    while (cinfo.next_scanline < cinfo.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(&rgb[static_cast<size_t>(cinfo.next_scanline) * w * 3]);
        jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    jpeg_destroy_compress(&cinfo);
    return std::fclose(f) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: kelscan_make_site DIR\n";
        return 2;
    }
    const std::string dir = argv[1];

    // The true terrain, and a project that sees it through the true camera.
    CKelScanProject::CXYZArray truth, survey;
    std::string terrainCsv =
        "# The true terrain of the demo's site: a 1 m grid, name,north,east,height (m).\n"
        "# Made by kelscan_make_site; the simulated instrument measures this surface.\n"
        "name,north,east,height\n";
    std::string surveyCsv =
        "# An earlier survey of the demo's site (every 4th point of the true terrain's grid):\n"
        "# the surface through which pixels become instrument angles. name,north,east,height (m)\n"
        "name,north,east,height\n";
    int id = 0;
    for (int dn = kGridN0; dn <= kGridN1; ++dn)
        for (int de = kGridE0; de <= kGridE1; ++de) {
            CXYZ p = SiteToSoku(dn, de);
            p.z = std::round(p.z * 1000.0) / 1000.0;  // as written, so the files are the truth
            truth.Add(p);
            const std::string row = std::to_string(++id) + "," + Num(p.x, 3) + "," + Num(p.y, 3) +
                                    "," + Num(p.z, 3) + "\n";
            terrainCsv += "T" + row;
            if ((dn - kGridN0) % kSurveyStep == 0 && (de - kGridE0) % kSurveyStep == 0) {
                survey.Add(p);
                surveyCsv += "S" + row;
            }
        }

    CKelScanProject project;
    project.CreateProject();
    project.CreateCamera();
    *project.m_pCamera = MakeCamera();
    project.SetOccBs(kStation, kInstHeight, kBsAzimuth, kBsReading);
    if (!project.SetSurface(truth)) {
        std::cerr << "kelscan_make_site: the terrain does not triangulate\n";
        return 1;
    }
    CXYZ centreMath = CameraCentre();
    CCalcXYZHV::CnvSokuToMath(centreMath);
    CSinOriToTin& ori = *project.m_pSinOriToTin;
    ori.SetCamera(*project.m_pCamera);
    ori.SetOrientation(kFocal, centreMath, CameraRot());

    // The photograph: 2 x 2 rays a pixel.
    std::vector<double> acc(static_cast<size_t>(kWidth) * kHeight * 3, 0.0);
    for (int row = 0; row < kHeight; ++row)
        for (int col = 0; col < kWidth; ++col)
            for (int s = 0; s < 4; ++s) {
                const CXYZ img(col + 0.25 + 0.5 * (s % 2), row + 0.25 + 0.5 * (s / 2), 0.0);
                CXYZ hit;
                double rgb[3];
                if (project.ImgToXYZ(img, hit)) {
                    GroundColour(hit, rgb);
                } else {  // sky, lighter towards the horizon
                    const double t = std::clamp(img.y / kHeight, 0.0, 1.0);
                    rgb[0] = 0.45 + 0.35 * t;
                    rgb[1] = 0.62 + 0.25 * t;
                    rgb[2] = 0.88 + 0.08 * t;
                }
                for (int k = 0; k < 3; ++k)
                    acc[(static_cast<size_t>(row) * kWidth + col) * 3 + k] += rgb[k] / 4.0;
            }

    // The targets: a bright disc in a dark ring around the exact image of each centre, drawn
    // with 8 x 8 samples a pixel so that the grey values carry the sub-pixel position.
    std::string objectCsv =
        "# Control targets of the demo's site: name,north,east,height (m)\n"
        "name,north,east,height\n";
    std::string seedsCsv =
        "# Approximate target positions on photo.jpg, as clicked: name,column,row (pixels)\n"
        "name,column,row\n";
    std::string truthPx =
        "# True image positions of the targets: name,column,row (pixels)\nname,column,row\n";
    for (const Target& t : kTargets) {
        // On the true surface (the triangulated grid), so that the simulated instrument and
        // the photograph see the target where the control file says it is.
        CXYZ p = SiteToSoku(t.dn, t.de), onTin = p;
        CCalcXYZHV::CnvSokuToMath(onTin);
        if (!ori.GetTin().GetHeight(onTin.x, onTin.y, onTin.z)) {
            std::cerr << "kelscan_make_site: target " << t.name << " is off the terrain\n";
            return 1;
        }
        p.z = std::round(onTin.z) / 1000.0;
        objectCsv +=
            std::string(t.name) + "," + Num(p.x, 3) + "," + Num(p.y, 3) + "," + Num(p.z, 3) + "\n";
        CXYZ m = p, img, phc;
        CCalcXYZHV::CnvSokuToMath(m);
        if (!ori.ObjToImg(m, img) || !ori.ObjToPhc(m, phc)) {
            std::cerr << "kelscan_make_site: target " << t.name << " is not seen\n";
            return 1;
        }
        // The target must be seen, not hidden behind a rise of the terrain in front of it.
        CXYZ seen;
        if (!project.ImgToXYZ(img, seen) || seen.Len(p) > kHiddenTol) {
            std::cerr << "kelscan_make_site: target " << t.name << " is hidden\n";
            return 1;
        }
        // Depth along the view (mm) gives the disc's radius in pixels.
        CXYZ cam;
        CXYZ d = m - centreMath;
        CameraRot().Rotate(d, cam);
        const double rPx = kTargetRadius * 1000.0 * kFocal / (-cam.z) / kPixel;
        const double ring = 1.8 * rPx;
        if (img.x < ring + 8 || img.y < ring + 8 || img.x > kWidth - ring - 8 ||
            img.y > kHeight - ring - 8) {
            std::cerr << "kelscan_make_site: target " << t.name << " is too near the edge\n";
            return 1;
        }
        const int c0 = static_cast<int>(img.x - ring) - 1, c1 = static_cast<int>(img.x + ring) + 1;
        const int r0 = static_cast<int>(img.y - ring) - 1, r1 = static_cast<int>(img.y + ring) + 1;
        for (int row = r0; row <= r1; ++row)
            for (int col = c0; col <= c1; ++col) {
                double white = 0.0, dark = 0.0;
                for (int s = 0; s < 64; ++s) {
                    const double x = col + (s % 8 + 0.5) / 8.0, y = row + (s / 8 + 0.5) / 8.0;
                    const double r = std::hypot(x - img.x, y - img.y);
                    if (r <= rPx)
                        white += 1.0 / 64.0;
                    else if (r <= ring)
                        dark += 1.0 / 64.0;
                }
                double* px = &acc[(static_cast<size_t>(row) * kWidth + col) * 3];
                for (int k = 0; k < 3; ++k)
                    px[k] = px[k] * (1.0 - white - dark) + white * 0.97 + dark * 0.08;
            }
        seedsCsv += std::string(t.name) + "," + std::to_string(static_cast<int>(img.x) + t.seedDx) +
                    "," + std::to_string(static_cast<int>(img.y) + t.seedDy) + "\n";
        truthPx += std::string(t.name) + "," + Num(img.x, 4) + "," + Num(img.y, 4) + "\n";
    }
    std::vector<unsigned char> rgb(acc.size());
    for (size_t i = 0; i < acc.size(); ++i)
        rgb[i] = static_cast<unsigned char>(std::clamp(acc[i], 0.0, 1.0) * 255.0 + 0.5);

    // The region as the user draws it: the ground outline's image, to whole pixels.
    std::string regionCsv =
        "# The scan region drawn on photo.jpg: column,row per vertex (pixels), closed.\n"
        "column,row\n";
    for (const auto& v : kRegion) {
        CXYZ m = SiteToSoku(v[0], v[1]), img;
        CCalcXYZHV::CnvSokuToMath(m);
        if (!ori.ObjToImg(m, img)) {
            std::cerr << "kelscan_make_site: a region vertex is not seen\n";
            return 1;
        }
        regionCsv += std::to_string(static_cast<int>(std::lround(img.x))) + "," +
                     std::to_string(static_cast<int>(std::lround(img.y))) + "\n";
    }

    const std::string siteCsv =
        "# The demo's scan job: station (surveying frame, m), instrument height, the backsight\n"
        "# (azimuth and the circle reading set on it, degrees) and the scan spacing (m).\n"
        "quantity,value\n"
        "station_north_m," +
        Num(kStation.x, 3) + "\n" + "station_east_m," + Num(kStation.y, 3) + "\n" +
        "station_height_m," + Num(kStation.z, 3) + "\n" + "instrument_height_m," +
        Num(kInstHeight, 3) + "\n" + "backsight_azimuth_deg," + Num(kBsAzimuth, 6) + "\n" +
        "backsight_reading_deg," + Num(kBsReading, 6) + "\n" + "fine_spacing_m," +
        Num(kFineSpacing, 3) + "\n" + "track_spacing_m," + Num(kTrackSpacing, 3) + "\n";

    const CXYZ centre = CameraCentre();
    const CRot rot = CameraRot();
    std::string truthCsv =
        "# What only the simulation knows: the camera's true projection centre (surveying\n"
        "# frame, m), its object-to-camera rotation (computation frame: x east, y north, z up;\n"
        "# row-major) and the simulated instrument's noise (one sigma) and seed.\n"
        "quantity,value\n"
        "camera_north_m," +
        kel_num::Full(centre.x) + "\n" + "camera_east_m," + kel_num::Full(centre.y) + "\n" +
        "camera_height_m," + kel_num::Full(centre.z) + "\n";
    for (int i = 0; i < 9; ++i)
        truthCsv += "r" + std::to_string(i / 3 + 1) + std::to_string(i % 3 + 1) + "," +
                    kel_num::Full(rot.m[i]) + "\n";
    truthCsv += "angle_sigma_deg," + Num(kAngleSigmaDeg, 6) + "\n" + "distance_sigma_m," +
                Num(kDistanceSigma, 4) + "\n" + "seed," + std::to_string(kSeed) + "\n";

    CCamera cam = MakeCamera();
    const std::string camPath = dir + "/camera.cam";
    bool ok = cam.Write(kel_text::Utf8ToWide(camPath.c_str())) != 0;
    ok = ok && WriteJpeg(dir + "/photo.jpg", rgb, kWidth, kHeight);
    ok = ok && WriteText(dir + "/terrain_true.csv", terrainCsv);
    ok = ok && WriteText(dir + "/survey.csv", surveyCsv);
    ok = ok && WriteText(dir + "/control_object.csv", objectCsv);
    ok = ok && WriteText(dir + "/control_seeds.csv", seedsCsv);
    ok = ok && WriteText(dir + "/control_truth.csv", truthPx);
    ok = ok && WriteText(dir + "/region.csv", regionCsv);
    ok = ok && WriteText(dir + "/site.csv", siteCsv);
    ok = ok && WriteText(dir + "/truth.csv", truthCsv);
    if (!ok) {
        std::cerr << "kelscan_make_site: cannot write into " << dir << "\n";
        return 1;
    }
    std::cout << "site written to " << dir << "\n";
    return 0;
}
