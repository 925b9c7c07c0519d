// The program's main job: photograph, orientation, region, plan (see ScanJob.h).
#include "ScanJob.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include "SvgPlan.h"
#include "geometry/Polyline.h"
#include "imaging/ImgViewEx.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Moment.h"
#include "platform/File.h"
#include "platform/KelMath.h"
#include "platform/NumText.h"
#include "platform/Process.h"
#include "platform/Time.h"
#include "scanning/ScanRunner.h"
#include "scanning/SimInstrument.h"
#include "storage/SDBLog.h"
#include "storage/SFile.h"
#include "surface/SinOriToTin.h"
#include "surface/TinExport.h"

namespace kelscan_cli {
namespace {

// Half the side of the patch in which a target's centre is sought around its click (pixels):
// room for a target of 25 pixels' radius in its ring.
constexpr int kPatchHalf = 32;
// Grey-range percentage that separates a target from its background.
constexpr int kTargetPercent = 50;
// Grid step (m) of the surface comparison.
constexpr double kCompareStep = 0.25;
// Exit status of a run ended by --interrupt-after.
constexpr int kExitInterrupted = 3;

std::wstring Wide(const std::string& s) {
    const kel_text::CKelString w = kel_text::Utf8ToWide(s.c_str());
    return std::wstring(w.GetString());
}

std::string At(const CsvRow& r, const std::string& path) {
    return path + ":" + std::to_string(r.line) + ": ";
}

// Named rows, each name once. 0 or Fail's status.
int ReadNamed(const std::string& path, int coords, const std::string& layout,
              std::vector<CsvRow>& rows) {
    std::string error;
    if (!ReadCsvRows(path, CsvShape{{coords}, CsvShape::kName, layout}, rows, error))
        return Fail(error);
    std::set<std::string> seen;
    for (const auto& r : rows)
        if (!seen.insert(r.name).second)
            return Fail(At(r, path) + "duplicate point name " + r.name);
    return 0;
}

// Surveying-frame point <-> the photograph, through the oriented camera.
int SokuToImg(const CSinOriToTin& ori, const CXYZ& soku, CXYZ& img) {
    CXYZ m = soku;
    CCalcXYZHV::CnvSokuToMath(m);
    return ori.ObjToImg(m, img);
}

}  // namespace

std::string ScanJob::ReadSurface(const std::string& path, CTin& tin) {
    tin.InitData();
    if (EndsWithNoCase(path, ".csv") || path == "-") {
        std::vector<CsvRow> rows;
        std::string error;
        const CsvShape shape{{3}, CsvShape::kOptionalName, "[name,]north,east,height"};
        if (!ReadCsvRows(path, shape, rows, error)) return error;
        for (const auto& r : rows)
            if (tin.AddPoint(r.values[1], r.values[0], r.values[2]) < 0)
                return "out of memory reading " + path;
        if (!tin.CreateTin(0.0))
            return "cannot triangulate the points of " + path +
                   ": fewer than 3, or all on one line";
        return "";
    }
    std::ifstream probe(path, std::ios::binary);
    if (!probe) return "cannot read " + path;
    probe.close();
    kel_templ::CKelArray<CTin, CTin&> tins;
    if (!CTin::ReadBIN_VER2(Wide(path).c_str(), tins))
        return path + ": not a surface file, or a damaged one";
    for (int i = 0; i < tins.GetSize(); ++i)
        if (tins[i].GetTriSize() > 0) {
            tin.Copy(tins[i]);
            return "";
        }
    return path + ": no surface with triangles";
}

int ScanJob::RefineTargets() {
    const HBITMAP bmp = m_project.GetImage()->GetBitmap().GethBitmap();
    const int rate = m_project.GetImage()->GetRate();
    if (bmp == nullptr) return Fail(m_args.photo + ": no photograph loaded");
    for (auto& p : m_pixels) {
        // The click in bitmap pixels (the photograph may be loaded reduced).
        const long sx = static_cast<long>(std::floor(p.seedColumn / rate));
        const long sy = static_cast<long>(std::floor(p.seedRow / rate));
        if (sx < 0 || sy < 0 || sx >= bmp->width || sy >= bmp->height)
            return Fail(m_args.image + ": " + p.name + " (" + Fixed(p.seedColumn, 1) + ", " +
                        Fixed(p.seedRow, 1) + ") is outside the photograph");
        const long x0 = std::max(0L, sx - kPatchHalf), y0 = std::max(0L, sy - kPatchHalf);
        const long x1 = std::min<long>(bmp->width - 1, sx + kPatchHalf);
        const long y1 = std::min<long>(bmp->height - 1, sy + kPatchHalf);
        CMoment moment;
        const int w = static_cast<int>(x1 - x0 + 1), h = static_cast<int>(y1 - y0 + 1);
        if (!moment.SetData(CSize(w, h), 0, 0, kTargetPercent)) return Fail("out of memory");
        unsigned char* grey = moment.GetBuffer();
        for (long y = y0; y <= y1; ++y)
            for (long x = x0; x <= x1; ++x)
                grey[(y - y0) * w + (x - x0)] = static_cast<unsigned char>(PhotoGrey(*bmp, x, y));
        double cx = 0.0, cy = 0.0;
        if (!moment.DoMoment2(static_cast<int>(sx - x0), static_cast<int>(sy - y0), &cx, &cy))
            return Fail("no target centre found around " + p.name + " (" + Fixed(p.seedColumn, 1) +
                        ", " + Fixed(p.seedRow, 1) + ")");
        p.column = (x0 + cx) * rate;
        p.row = (y0 + cy) * rate;
    }
    return 0;
}

int ScanJob::Orient(Report& report) {
    if (m_args.station.size() != 3) return Fail("--station needs north, east and height");
    m_project.CreateProject();
    m_project.CreateCamera();
    m_project.CreateImage();
    m_project.CreateScanArrays();
    CCamera& cam = *m_project.GetCamera();
    if (!cam.Read(Wide(m_args.camera).c_str()))
        return Fail(m_args.camera + ":" + std::to_string(cam.GetLastReadLine()) +
                    ": not a camera file (a missing line or a value that is not a number)");
    if (cam.m_resolution.x <= 0.0 || cam.m_resolution.y <= 0.0 || cam.m_focal <= 0.0)
        return Fail(m_args.camera + ": the focal length and pixel size must be positive");

    if (!m_args.photo.empty()) {
        CImgViewEx& view = *m_project.GetImage();
        if (const int rc =
                PhotoLoadFailure(view.LoadImage(Wide(m_args.photo).c_str(), 1), m_args.photo))
            return rc;
        m_width = view.GetImageWidth();
        m_height = view.GetImageHeight();
    }

    std::vector<CsvRow> obj, img;
    if (const int rc = ReadNamed(m_args.object, 3, "name,north,east,height", obj)) return rc;
    if (const int rc = ReadNamed(m_args.image, 2, "name,column,row", img)) return rc;
    m_pixels.clear();
    for (const auto& r : img)
        m_pixels.push_back({r.name, r.values[0], r.values[1], r.values[0], r.values[1]});
    if (m_args.refine) {
        if (m_args.photo.empty()) return Fail("--refine needs --photo");
        if (const int rc = RefineTargets()) return rc;
    }

    CTin surface;
    std::string error = ReadSurface(m_args.surface, surface);
    if (!error.empty()) return Fail(error);
    CKelScanProject::CXYZArray pts;
    for (int i = 0; i < surface.GetPointSize(); ++i) {
        const CXYZ& v = surface.m_point[i];
        CXYZ q(v.y, v.x, v.z);
        pts.Add(q);
    }
    if (!m_project.SetSurface(pts))
        return Fail("cannot triangulate the surface of " + m_args.surface + " (-v shows why)");

    CKelScanProject::CXYZArray objPts, imgPts;
    for (const auto& r : obj) {
        const kel_text::CKelString name = kel_text::Utf8ToWide(r.name.c_str());
        CXYZ q(name.GetString(), r.values[0], r.values[1], r.values[2]);
        objPts.Add(q);
    }
    for (const auto& p : m_pixels) {
        const kel_text::CKelString name = kel_text::Utf8ToWide(p.name.c_str());
        CXYZ q(name.GetString(), p.column, p.row, 0.0);
        imgPts.Add(q);
    }
    if (!m_project.OrientCalc(imgPts, objPts))
        return Fail("the camera cannot be oriented from " + m_args.object + " and " + m_args.image +
                    ": fewer than 4 points pair by name, or the resection "
                    "fails (-v shows why)");

    // Residuals on the photograph: each control point projected minus its measured pixel.
    const CSinOriToTin& ori = *m_project.GetSinOriToTin();
    Table residuals{"residuals", {"name", "dcolumn_px", "drow_px"}, {}};
    double sum2 = 0.0;
    int n = 0;
    for (const auto& r : obj)
        for (const auto& p : m_pixels)
            if (p.name == r.name) {
                CXYZ px;
                if (!SokuToImg(ori, CXYZ(r.values[0], r.values[1], r.values[2]), px)) continue;
                const double dx = px.x - p.column, dy = px.y - p.row;
                sum2 += dx * dx + dy * dy;
                ++n;
                residuals.rows.push_back(
                    {Value::Text(p.name), Value::Num(dx, 3), Value::Num(dy, 3)});
            }
    CXYZ centre = ori.GetCentre();
    CCalcXYZHV::CnvMathToSoku(centre);
    // The camera's axis (its negative z) in the computation frame: R^T (0, 0, -1).
    const CRot& R = ori.GetRot();
    const double ax = -R.m[6], ay = -R.m[7], az = -R.m[8];
    double axisAzimuth = std::atan2(ax, ay) * kel_math::kRadToDeg;
    CCalcXYZHV::Angle0To360(axisAzimuth);
    const double axisZenith = std::acos(std::clamp(az, -1.0, 1.0)) * kel_math::kRadToDeg;
    report.Add("control_pairs", "", Value::Int(n));
    report.Add("residual_rms", "px", Value::Num(n > 0 ? std::sqrt(sum2 / n) : 0.0, 3));
    report.Add("camera_north", "m", Value::Num(centre.x, 3));
    report.Add("camera_east", "m", Value::Num(centre.y, 3));
    report.Add("camera_height", "m", Value::Num(centre.z, 3));
    report.Add("camera_axis_azimuth", "deg", Value::Num(axisAzimuth, 4));
    report.Add("camera_axis_zenith", "deg", Value::Num(axisZenith, 4));
    report.tables.push_back(residuals);

    const CXYZ station(m_args.station[0], m_args.station[1], m_args.station[2]);
    m_project.SetOccBs(station, m_args.height, m_args.bsAzimuth, m_args.bsReading);
    return 0;
}

int ScanJob::ReadRegion() {
    std::vector<CsvRow> rows;
    std::string error;
    if (!ReadCsvRows(m_args.region, CsvShape{{2}, CsvShape::kNoName, "column,row"}, rows, error))
        return Fail(error);
    if (rows.size() < 3) return Fail(m_args.region + ": a region needs at least 3 vertices");
    m_region = CPolyline(CPolyline::kClosed, 0);
    for (std::size_t k = 0; k < rows.size(); ++k) {
        const CsvRow& r = rows[k];
        const double c = r.values[0], w = r.values[1];
        const std::string where = At(r, m_args.region) + "region vertex " + std::to_string(k + 1) +
                                  " (" + kel_num::Exact(c) + ", " + kel_num::Exact(w) + ")";
        if (m_width > 0 && (c < 0.0 || w < 0.0 || c > m_width || w > m_height))
            return Fail(where + " is outside the photograph (" + std::to_string(m_width) + " x " +
                        std::to_string(m_height) + " pixels)");
        CXYZ xyz;
        if (!m_project.ImgToXYZ(CXYZ(c, w, 0.0), xyz))
            return Fail(where + " does not meet the surface of " + m_args.surface);
        CVertex vertex(c, w, 0.0, 0);
        m_region.AddVertex(vertex);
    }
    return 0;
}

namespace {

// Counts and times of the two plans into report.
void AddFine(Report& report, const CCleverFineScan& p, double spacing) {
    report.Add("fine_spacing", "m", Value::Num(spacing, 3));
    report.Add("fine_step_V", "deg", Value::Num(p.m_dV, 6));
    report.Add("fine_step_H", "deg", Value::Num(p.m_dH, 6));
    report.Add("fine_targets", "", Value::Int(p.GetPtCount()));
    report.Add("fine_time", "s",
               Value::Int(p.CalcTime(CCleverFineScan::MEAS_MODE_NORMAL,
                                     CCleverFineScan::INSTRUMENT_HALVEX)),
               " (" +
                   kel_text::WideToUtf8(CCalcXYZHV::ByoToStr(p.CalcTime(
                       CCleverFineScan::MEAS_MODE_NORMAL, CCleverFineScan::INSTRUMENT_HALVEX))) +
                   ")");
}

void AddTrack(Report& report, CCleverTrkScan& p, double spacing) {
    const int seconds = p.CalcTime(false);
    report.Add("track_spacing", "m", Value::Num(spacing, 3));
    report.Add("track_lines", "", Value::Int(p.GetLineCount()));
    report.Add("track_points", "", Value::Int(p.m_totalPoints));
    report.Add("track_time", "s", Value::Int(seconds),
               " (" + kel_text::WideToUtf8(CCalcXYZHV::ByoToStr(seconds)) + ")");
}

}  // namespace

int ScanJob::PlanBoth(double fine, double track, Report& report) {
    if (m_region.GetVertexSize() < 3)
        if (const int rc = ReadRegion()) return rc;
    if (fine > 0.0) {
        if (!m_project.ComputeInclineGrid(m_region, fine, m_finePlan) ||
            m_finePlan.CalcPtAngle(true) <= 0)
            return Fail("cannot plan a fine scan of " + Fixed(fine, 3) + " m over the region of " +
                        m_args.region + " (-v shows why)");
        AddFine(report, m_finePlan, fine);
    }
    if (track > 0.0) {
        if (!m_project.ComputeInclineGrid(m_region, track, m_trackPlan))
            return Fail("cannot plan a tracking scan over the region of " + m_args.region +
                        " (-v shows why)");
        m_trackPlan.m_speed = m_args.speed;
        if (m_trackPlan.CalcLineAngle(true) <= 0)
            return Fail("cannot plan a tracking scan of " + Fixed(track, 3) +
                        " m over the region of " + m_args.region);
        AddTrack(report, m_trackPlan, track);
    }
    return 0;
}

int ScanJob::Plan(Report& report) {
    m_tracking = !(m_args.fine > 0.0);
    return PlanBoth(m_args.fine, m_tracking ? m_args.track : 0.0, report);
}

int ScanJob::Angles(const std::vector<ControlPixel>& pixels, Report& report) {
    Table t{"angles", {"name", "column_px", "row_px", "H_deg", "V_deg"}, {}};
    for (const auto& p : pixels) {
        double h = 0.0, v = 0.0;
        if (!m_project.ImgToHV(CXYZ(p.column, p.row, 0.0), h, v))
            return Fail("pixel " + (p.name.empty() ? std::string() : p.name + " ") + "(" +
                        kel_num::Exact(p.column) + ", " + kel_num::Exact(p.row) +
                        ") does not meet the surface of " + m_args.surface);
        t.rows.push_back({Value::Text(p.name), Value::Num(p.column, 3), Value::Num(p.row, 3),
                          Value::Num(h, 9), Value::Num(v, 9)});
    }
    report.tables.push_back(t);
    return 0;
}

int ScanJob::CompareSurfaces(const CTin& measured, const CTin& truth, double& rms, double& maxAbs,
                             int& count) {
    rms = maxAbs = 0.0;
    count = 0;
    if (measured.GetTriSize() < 1) return Fail("the measured surface has no triangles");
    double x0 = 1e300, x1 = -1e300, y0 = 1e300, y1 = -1e300;
    for (int i = 0; i < measured.GetPointSize(); ++i) {
        x0 = std::min(x0, measured.m_point[i].x);
        x1 = std::max(x1, measured.m_point[i].x);
        y0 = std::min(y0, measured.m_point[i].y);
        y1 = std::max(y1, measured.m_point[i].y);
    }
    double sum2 = 0.0;
    for (double y = std::ceil(y0 / kCompareStep) * kCompareStep; y <= y1; y += kCompareStep)
        for (double x = std::ceil(x0 / kCompareStep) * kCompareStep; x <= x1; x += kCompareStep) {
            double zm = 0.0, zt = 0.0;
            if (!measured.GetHeight(x, y, zm) || !truth.GetHeight(x, y, zt)) continue;
            const double d = zm - zt;
            sum2 += d * d;
            maxAbs = std::max(maxAbs, std::fabs(d));
            ++count;
        }
    if (count == 0) return Fail("the measured surface does not overlap the true one");
    rms = std::sqrt(sum2 / count);
    return 0;
}

int ScanJob::WritePicture(const std::string& path, const CKelScanProject::CXYZArray& measured) {
    CImgViewEx& view = *m_project.GetImage();
    const CSinOriToTin& ori = *m_project.GetSinOriToTin();
    const int rate = view.GetRate();
    view.SetViewSize(m_width / rate, m_height / rate);
    view.FitToView();
    view.ClearOverlays();
    view.SetRegion(m_region);
    view.SetRegionStyle(0xffd21e, 2);
    CKelScanProject::CXYZArray planned;
    if (!m_tracking) {
        for (int i = 0; i < m_finePlan.GetPtCount(); ++i) {
            CXYZ img;
            if (m_project.HVToImg(m_finePlan.m_planH[i], m_finePlan.m_planV[i], img))
                planned.Add(img);
        }
        view.AddPoints(planned, 0x1e64ff, 5, CImgViewEx::MARK_CROSS);
    } else {
        for (int l = 0; l < m_trackPlan.GetLineCount(); ++l) {
            CPolyline line(0, 0);
            const double h0 = m_trackPlan.m_lineStartH[l], h1 = m_trackPlan.m_lineEndH[l];
            const int steps = std::max(1, static_cast<int>(std::fabs(h1 - h0) / 0.1));
            for (int k = 0; k <= steps; ++k) {
                CXYZ img;
                if (m_project.HVToImg(h0 + (h1 - h0) * k / steps, m_trackPlan.m_lineV[l], img)) {
                    CVertex vertex(img.x, img.y, 0.0, 0);
                    line.AddVertex(vertex);
                }
            }
            if (line.GetVertexSize() > 1) view.AddPolyline(line, 0x1e64ff, 1);
        }
    }
    CKelScanProject::CXYZArray seen;
    for (int i = 0; i < measured.GetSize(); ++i) {
        CXYZ img;
        if (SokuToImg(ori, measured[i], img)) seen.Add(img);
    }
    view.AddPoints(seen, 0xff2d2d, 3, CImgViewEx::MARK_SQUARE);
    return WriteOutputFile(path, {m_args.photo},
                           [&](const std::string& tmp) { return view.WritePng(tmp.c_str()) != 0; });
}

int ScanJob::WritePlanSvg(const std::string& path) const {
    SvgPlan svg;
    if (!m_tracking) {
        svg.Title("fine scan, " + std::to_string(m_finePlan.GetPtCount()) + " targets");
        svg.Region(m_finePlan);
        for (int i = 0; i < m_finePlan.GetPtCount(); ++i)
            svg.Path(m_finePlan.m_planH[i], m_finePlan.m_planV[i]);
    } else {
        svg.Title("tracking scan, " + std::to_string(m_trackPlan.GetLineCount()) + " lines");
        svg.Region(m_trackPlan);
        for (int l = 0; l < m_trackPlan.GetLineCount(); ++l)
            svg.Sweep(m_trackPlan.m_lineV[l], m_trackPlan.m_lineStartH[l],
                      m_trackPlan.m_lineEndH[l]);
    }
    return WriteOutputStream(path, {}, [&](std::ostream& o) { return svg.Write(o); });
}

// The runner's progress: a line on a terminal, and the estimate half-way for the report.
void ScanProgress(void* context, int done, int total, double elapsed, int estimate) {
    ScanJob& job = *static_cast<ScanJob*>(context);
    if (job.m_halfEstimate < 0 && 2 * done >= total) {
        job.m_halfDone = done;
        job.m_halfEstimate = estimate;
        job.m_halfElapsed = elapsed;
    }
    if (job.m_args.interruptAfter > 0 && done >= job.m_args.interruptAfter) {
        std::cerr << "kelscan: interrupted after shot " << done << " (--interrupt-after)\n";
        std::_Exit(kExitInterrupted);
    }
    if (kel_platform::StderrIsTerminal())
        std::cerr << "\rscan: " << done << " of " << total << " shots, "
                  << kel_text::WideToUtf8(CCalcXYZHV::ByoToStr(estimate)) << " to go   "
                  << (done == total ? "\n" : "") << std::flush;
}

int ScanJob::Scan(bool resume, Report& report, CKelScanProject::CXYZArray& measured) {
    std::error_code ec;
    std::filesystem::create_directories(m_args.out, ec);
    if (!std::filesystem::is_directory(m_args.out, ec))
        return Fail("cannot make the folder " + m_args.out);
    // The truth the simulated instrument measures, in the computation frame (mm).
    CTin truthMetres, truth;
    const std::string truthPath = m_args.truth.empty() ? m_args.surface : m_args.truth;
    std::string error = ReadSurface(truthPath, truthMetres);
    if (!error.empty()) return Fail(error);
    truth.SetEPS(truthMetres.GetEPS() * 1000.0);
    for (int i = 0; i < truthMetres.GetPointSize(); ++i) {
        const CXYZ& v = truthMetres.m_point[i];
        CXYZ q(v.y, v.x, v.z);
        CCalcXYZHV::CnvSokuToMath(q);
        truth.AddPoint(q.x, q.y, q.z);
    }
    CSimInstrument sim;
    if (!truth.CreateTin(0.0) || !sim.SetSurface(truth))
        return Fail("cannot triangulate the true surface of " + truthPath);
    const CXYZ station(m_args.station[0], m_args.station[1], m_args.station[2]);
    sim.SetOccBs(station, m_args.height, m_args.bsAzimuth, m_args.bsReading);
    sim.SetNoise(m_args.angleSigma, m_args.distanceSigma, m_args.seed);

    // The scan's files live under the out folder as the device root, so the log is the
    // folder's own temp/SDB.log and the database's path in it stays short.
    kel_platform::SetDeviceRoot(m_args.out.c_str());
    const wchar_t* db = L"\\scan.dbs";
    const wchar_t* text = L"\\scan.txt";
    if (resume) {
        // Say plainly when there is nothing to resume; the runner checks the rest.
        if (!std::filesystem::is_regular_file(m_args.out + "/temp/SDB.log", ec))
            return Fail(m_args.out + " holds no scan log (temp/SDB.log): nothing to resume");
        CSDBLog log;
        log.SetLogMode(1);
        const bool open = log.Start() == 0 && log.JudgeSDBLog() != 0;
        log.Stop();
        if (!open)
            return Fail("the scan recorded in " + m_args.out + " has ended: nothing to resume");
    }
    CScanRunner runner;
    runner.SetProject(&m_project);
    runner.SetProgress(&ScanProgress, this);
    m_halfEstimate = -1;
    int ok = 0;
    if (m_tracking)
        ok = resume ? runner.Resume(m_trackPlan, false, sim, db, text)
                    : runner.Run(m_trackPlan, false, sim, db, text);
    else
        ok = resume ? runner.Resume(m_finePlan, sim, db, text)
                    : runner.Run(m_finePlan, sim, db, text);
    if (!ok)
        return Fail(std::string(resume ? "the scan cannot be resumed" : "the scan failed") +
                    " (-v shows why)");
    report.Add("shots_planned", "", Value::Int(runner.GetTotal()));
    if (resume) report.Add("resumed_at_shot", "", Value::Int(runner.GetFirst() + 1));
    report.Add("points_stored", "", Value::Int(runner.GetStored()));
    report.Add("misses", "", Value::Int(runner.GetTotal() - runner.GetStored()));
    report.Add("scan_time", "s", Value::Num(runner.GetElapsed(), 1),
               " (instrument time of this run)");
    if (m_halfEstimate >= 0)
        report.Add("estimate_at_half", "s", Value::Int(m_halfEstimate),
                   " (after shot " + std::to_string(m_halfDone) + "; it took " +
                       Fixed(runner.GetElapsed() - m_halfElapsed, 1) + " s more)");

    CSFile file;
    const int n = file.OpenDB(db, SFILE_READ);
    if (n < 0) return Fail("cannot read the scan's database " + m_args.out + "/scan.dbs");
    measured.RemoveAll();
    for (int i = 1; i <= n; ++i) {
        CSPoint pt;
        if (file.ReadPoint(pt, i) != i) return Fail("cannot read the scan's database");
        CXYZ q;
        pt.Get(q);
        measured.Add(q);
    }
    file.CloseDB();
    report.Add("database", "", Value::Text(m_args.out + "/scan.dbs"));
    report.Add("text_file", "", Value::Text(m_args.out + "/scan.txt"));
    report.Add("scan_log", "", Value::Text(m_args.out + "/temp/SDB.log"));
    return 0;
}

int ScanJob::Finish(const CKelScanProject::CXYZArray& measured, const std::string& truthPath,
                    Report& report) {
    CTin surface;
    surface.SetName(L"measured");
    for (int i = 0; i < measured.GetSize(); ++i)
        if (surface.AddPoint(measured[i].y, measured[i].x, measured[i].z) < 0)
            return Fail("out of memory");
    report.Add("measured_points", "", Value::Int(measured.GetSize()));
    if (surface.GetPointSize() < 3 || !surface.CreateTin(0.0))
        return Fail("the measured points do not make a surface: fewer than 3, or all on a line");
    report.Add("surface_triangles", "", Value::Int(surface.GetTriSize()));
    if (!truthPath.empty()) {
        CTin truth;
        const std::string error = ReadSurface(truthPath, truth);
        if (!error.empty()) return Fail(error);
        double rms = 0.0, maxAbs = 0.0;
        int count = 0;
        if (const int rc = CompareSurfaces(surface, truth, rms, maxAbs, count)) return rc;
        // The measured points themselves against the true surface: the instrument's noise.
        double sum2 = 0.0, worst = 0.0;
        int n = 0;
        for (int i = 0; i < measured.GetSize(); ++i) {
            double z = 0.0;
            if (!truth.GetHeight(measured[i].y, measured[i].x, z)) continue;
            const double d = measured[i].z - z;
            sum2 += d * d;
            worst = std::max(worst, std::fabs(d));
            ++n;
        }
        report.Add("point_height_rms", "m", Value::Num(n > 0 ? std::sqrt(sum2 / n) : 0.0, 4),
                   " (measured points against the true surface)");
        report.Add("point_height_max", "m", Value::Num(worst, 4));
        report.Add("height_rms", "m", Value::Num(rms, 4),
                   " (measured surface against the true one on " + std::to_string(count) +
                       " points " + Fixed(kCompareStep, 2) + " m apart)");
        report.Add("height_max", "m", Value::Num(maxAbs, 4));
    }
    const std::string dir = m_args.out + "/";
    if (const int rc = WritePicture(dir + "picture.png", measured)) return rc;
    if (const int rc = WritePlanSvg(dir + "plan.svg")) return rc;
    SYSTEMTIME now;
    GetSystemTime(&now);
    if (const int rc = WriteOutputStream(dir + "surface.xml", {}, [&](std::ostream& o) {
            return WriteTinLandXml(surface, o, "measured", now) != 0;
        }))
        return rc;
    report.Add("picture", "", Value::Text(dir + "picture.png"));
    report.Add("plan_drawing", "", Value::Text(dir + "plan.svg"));
    report.Add("surface_landxml", "", Value::Text(dir + "surface.xml"));
    return 0;
}

}  // namespace kelscan_cli
