#pragma once
// The program's main job, shared by `kelscan scan` and `kelscan demo`: from a photograph and
// named control to a recorded scan.
//
//   camera file + photograph + control (object points north first, their pixels)
//     -> target centres by image moments (optional) -> camera orientation (OrientCalc)
//     -> region drawn on the photograph -> fine-scan or tracking-scan plan through the surface
//     -> scan against the instrument (the simulator) -> database, scan log, scan text file
//     -> measured surface, compared with the surface the simulator measured
//     -> pictures: the photograph with region, plan and measured points (PNG), the plan (SVG),
//        the measured surface (LandXML)
//
// Frames: object points, the station and every file of points are in the surveying frame
// (north, east, height, metres); pixels are full-resolution image pixels, column to the right
// and row downwards from the photograph's top-left corner (pixel (i, j) covers [i, i + 1) x
// [j, j + 1)); H and V are the instrument's circle reading and zenith angle in degrees.
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "geometry/CalcXYZHV.h"
#include "scanning/CleverFineScan.h"
#include "scanning/CleverTrkScan.h"
#include "scanning/ScanProject.h"
#include "surface/Tin.h"

namespace kelscan_cli {

// Everything a scan job is made from. The job file of a scan's folder holds these values, so
// that `kelscan scan resume` rebuilds exactly the same orientation and plan.
struct ScanJobArgs {
    std::string camera, photo, object, image, surface, truth, region, out;
    bool refine = false;          // --image holds approximate clicks: find the target centres
    std::vector<double> station;  // north, east, height (m)
    double height = 0.0;          // instrument height (m)
    double bsAzimuth = kTaskInverseNotSet, bsReading = kTaskInverseNotSet;  // degrees
    double fine = 0.0, track = 0.0;                // spacing on the ground (m); one of them is set
    int speed = kDefaultSpeed;                     // tracking scan's rotation-speed setting
    double angleSigma = 0.0, distanceSigma = 0.0;  // the simulated instrument's noise
    unsigned seed = 1;
    // For trying out resume: after this many shots the process ends at once (exit status 3),
    // leaving the files as a power failure would. 0: never.
    int interruptAfter = 0;

    static constexpr int kDefaultSpeed = 60;
};

// One measured pixel of a control point and where it was clicked.
struct ControlPixel {
    std::string name;
    double column = 0.0, row = 0.0;
    double seedColumn = 0.0, seedRow = 0.0;
};

class ScanJob {
public:
    explicit ScanJob(const ScanJobArgs& args) : m_args(args) {}

    // Reads the camera, the photograph (when refine or pictures need it), the control and the
    // surface; finds the targets' centres (refine); orients the camera; sets the station.
    // 0 or Fail's status. Adds the orientation's figures to report.
    int Orient(Report& report);
    // Plans the scan over the region (fine when args.fine > 0, else tracking). 0 or Fail's.
    int Plan(Report& report);
    // Plans both kinds over the region with the given spacings and adds their counts and
    // times to report (the demo shows both). 0 or Fail's status.
    int PlanBoth(double fine, double track, Report& report);
    // Instrument angles of pixels (name, column, row) through the surface: a table name, column,
    // row, H, V; a pixel whose ray misses the surface is bad input. 0 or Fail's status.
    int Angles(const std::vector<ControlPixel>& pixels, Report& report);

    CKelScanProject& Project() { return m_project; }
    const std::vector<ControlPixel>& Control() const { return m_pixels; }
    const CCleverFineScan& FinePlan() const { return m_finePlan; }
    const CCleverTrkScan& TrackPlan() const { return m_trackPlan; }
    const CPolyline& Region() const { return m_region; }
    int PhotoWidth() const { return m_width; }
    int PhotoHeight() const { return m_height; }

    // The measured surface from points in the surveying frame, compared with `truth` (x east,
    // y north, metres) on a 0.25 m grid inside the measured surface: RMS and largest height
    // difference (m), and the number of grid points compared. 0, or Fail's status.
    static int CompareSurfaces(const CTin& measured, const CTin& truth, double& rms, double& maxAbs,
                               int& count);
    // Reads a surface file (its first surface with triangles) or a points CSV (north first,
    // triangulated) into tin, x east, y north, metres. "" or the failure.
    static std::string ReadSurface(const std::string& path, CTin& tin);

    // Draws the photograph with the region, the planned targets (as the instrument will see
    // them: through the surface into the photograph) and measured points (surveying frame)
    // into a PNG. 0 or Fail's status.
    int WritePicture(const std::string& path, const CKelScanProject::CXYZArray& measured);
    // The plan as SVG (angular frame). 0 or Fail's status.
    int WritePlanSvg(const std::string& path) const;
    // Runs the planned scan (Plan first) against the simulated instrument over the surface of
    // args.truth (the surface itself when no truth is given), recording into args.out:
    // scan.dbs (scan point database), scan.txt (scan text file) and temp/SDB.log (scan
    // recovery log); the out folder becomes the device root. resume continues an interrupted
    // scan of the same job. measured receives the database's points (surveying frame).
    // Progress on stderr when it is a terminal. 0 or Fail's status.
    int Scan(bool resume, Report& report, CKelScanProject::CXYZArray& measured);

    // What follows a scan: the measured points (surveying frame) triangulated, compared with
    // the true surface when truthPath is given, and the pictures written into the scan's
    // folder: picture.png, plan.svg, surface.xml (LandXML). Figures into report.
    int Finish(const CKelScanProject::CXYZArray& measured, const std::string& truthPath,
               Report& report);

private:
    int ReadRegion();
    int RefineTargets();

    ScanJobArgs m_args;
    CKelScanProject m_project;
    std::vector<ControlPixel> m_pixels;
    CPolyline m_region;
    CCleverFineScan m_finePlan;
    CCleverTrkScan m_trackPlan;
    bool m_tracking = false;
    // Shots done, planned, and the estimate (s) half-way, and the instrument time (s) then,
    // for the report on the remaining-time estimate.
    int m_halfDone = 0, m_halfEstimate = -1;
    double m_halfElapsed = 0.0;
    friend void ScanProgress(void*, int, int, double, int);
    int m_width = 0, m_height = 0;
};

}  // namespace kelscan_cli
