#pragma once
// CKelScanProject: the object through which the host runs an image-assisted scan. It owns the
// image view, the oriented camera over the surface (CSinOriToTin), the camera model and the
// scan arrays, keeps the instrument's station set-up, and converts between image pixels,
// photo coordinates, object points and instrument angles.
//
// Frames and units:
// - image pixels: full resolution, x to the right, y down the rows;
// - photo coordinates: millimetres relative to the principal point, y up;
// - object points handed in and out: the surveying frame (x north, y east, z height, metres);
//   CSinOriToTin works in the computation frame (x east, y north, z height, millimetres), and
//   ToMath / ToSoku below are the one place where points cross between the two;
// - instrument angles: degrees, H the horizontal circle reading in [0, 360) (see TaskInverse),
//   V the zenith angle (0 up, 90 level).
//
// Mind the camera's offset: it sits beside the telescope, so a pixel's ray is not the
// instrument's line of sight. Every pixel-to-angle path goes through the surface point.
//
// The scan-region operations write one trace line on failure; the core conversions (XYZToHV,
// ImgToPhc, PhcToImg, CalDist, ImgToXYZ, ImgToHV) and the estimate report by result only.
// The project owns its objects through raw pointers and cannot be copied.
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/Polyline.h"
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class CCamera;
class CImgViewEx;
class CSinOriToTin;
class CCleverScanBase;

class KELSCAN_API CKelScanProject {
public:
    KEL_DECLARE_ALLOCATOR

    typedef kel_templ::CKelArray<CXYZ, CXYZ&> CXYZArray;

    // Largest gap between neighbouring points of a region's outline, image pixels, when the
    // outline is densified to follow the terrain (m_flag == 1).
    static constexpr double kDensifyPx = 4.0;
    // Largest angular gap (degrees) between the outline points NoImgToImg traces.
    static constexpr double kOutlineStepDeg = 0.25;

    CKelScanProject();
    CKelScanProject(const CKelScanProject&) = delete;
    CKelScanProject& operator=(const CKelScanProject&) = delete;
    virtual ~CKelScanProject();

    // Each Create first destroys what it replaces; each Destroy may be called at any time.
    int CreateProject();    // a new CSinOriToTin; 1 when it exists
    void DestroyProject();  // destroys it, empties both working point arrays
    int CreateCamera();     // a default CCamera (its Init state); 1 when it exists
    void DestroyCamera();
    int CreateImage();  // a new CImgViewEx; 1 when it exists
    void DestroyImage();
    int CreateScanArrays();  // the three scan arrays, empty; 1 only when all three exist
    void DestroyScanArrays();

    // The station (surveying frame) and its three values: value1 the instrument height (m),
    // value2 the azimuth of the backsight, value3 the circle reading set on it (degrees; -180
    // for either means the circle is not oriented and reads the azimuth).
    void SetOccBs(const CXYZ& station, double value1, double value2, double value3);
    // H and V from the station to a target in the surveying frame (TaskInverse), each reduced
    // into [0, 360). A target in plumb line with the axis gives TaskInverse's documented values.
    void XYZToHV(const CXYZ& target, double& h, double& v);

    // Pixels to photo millimetres: x = img.x resx - ppx, y = ppy - img.y resy, then CalDist.
    // Needs the camera; without one phc is a plain copy of img and the list is left as it is.
    void ImgToPhc(const CXYZ& img, CXYZ& phc);
    void ImgToPhc(CXYZArray& pts);
    // Photo millimetres to pixels, removing no distortion (the exact inverse of ImgToPhc only
    // for a camera without distortion). 0 without a camera or with a zero pixel size.
    int PhcToImg(const CXYZ& phc, CXYZ& img);
    // Adds the camera's correction: x += dx, y += dy. 0 (values unchanged) without a camera.
    int CalDist(double& x, double& y);
    // A pixel to the first object point its ray meets on the surface (surveying frame), or to
    // the instrument's angles to that point. 0 without camera, surface intersection object or
    // its ready state, or when the ray misses.
    int ImgToXYZ(const CXYZ& img, CXYZ& xyz);
    int ImgToHV(const CXYZ& img, double& h, double& v);

    // Remaining-time estimate of a running scan: N = r = count, T = seconds.
    void SetEstimateParams(int count, int seconds);
    // Lowers (or sets) the count still to measure, r, as the scan goes on.
    void SetEstimateRemaining(int count);
    // Seconds still needed, given the time since the scan began. With h = N / 2 (integer) and
    // e the elapsed seconds: r > h: ((T / N)(r - h) + e) / h * r; otherwise r / (N - r) * e,
    // each in doubles (T / N is not rounded to whole seconds). Truncated. Guards: N <= 0
    // gives 0; r is taken clamped into [0, N]; N == 1 (h == 0) with r == 1 gives T (nothing
    // measured yet: the plan); results beyond the int range are clamped.
    int EstimateRemainingTime(unsigned long elapsedMilliseconds);

    // ---- surface and orientation -------------------------------------------------------
    // The surface from measured points in the surveying frame: converted to the computation
    // frame and triangulated into the CSinOriToTin (its ready state drops to 0: orient again).
    // 1, or 0 after one trace line without the project or when the triangulation fails.
    int SetSurface(const CXYZArray& pts);
    // Orients the camera from named control points: img in full-resolution pixels, obj in the
    // surveying frame, paired by name. Pixels go to photo millimetres through the camera
    // (distortion corrected), object points to the computation frame, reduced by their mean
    // so that control thousands of metres from the origin keeps its precision; CSinOri's
    // multi-start resection (CalSinOri2) solves; the result (and the camera) go into the
    // CSinOriToTin, which becomes ready. 1; 0 after one trace line without project or camera,
    // with fewer than 4 pairs, a camera focal length <= 0, or when the resection fails (its
    // own line).
    int OrientCalc(const CXYZArray& img, const CXYZArray& obj);

    // ---- the inverse direction -------------------------------------------------------------
    // The first surface point along the instrument's line of sight (h, v) from the axis point
    // (surveying frame). 1, or 0 without a surface or when the sight misses it.
    int HVToXYZ(double h, double v, CXYZ& xyz);
    // The pixel where that point is seen (distortion applied). 1, or 0 as HVToXYZ, when the
    // camera is not oriented or the point is behind it.
    int HVToImg(double h, double v, CXYZ& img);

    // ---- scan-region operations --------------------------------------------------------
    // A region drawn in image pixels (closed, at least 3 vertices) to a polygon of instrument
    // angles: vertex x = H, y = V (degrees), z = 0. With m_flag == 1 every edge is first
    // densified to at most kDensifyPx pixels so that the outline follows the terrain. H is
    // unwrapped along the outline (each within 180 of the previous), so a region across
    // north runs e.g. from 350 to 370. Also stores the region's object points and angles in
    // the working arrays and its box in the working points. 1; 0 after one trace line for
    // fewer than 3 vertices or when a point misses the surface.
    int PolyToHV(const CPolyline& region, CPolyline& hv);
    // The same outline's object points in the surveying frame (name: the vertex index).
    int PolyToXYZ(const CPolyline& region, CXYZArray& xyz);
    // Pixels to angles, point by point: hv receives (H, V, 0) with each pixel's name, for
    // the pixels whose rays meet the surface; returns how many did.
    int PointsToHV(const CXYZArray& img, CXYZArray& hv);
    // The planner's angular box from an angles polygon: start H/V its minimum, end H/V its
    // maximum (SetSEVH, decimal degrees: a box across north becomes e.g. 350 .. 10, which the
    // planner runs the short way round). 1; 0 after one trace line for fewer than 3 vertices
    // or an H extent of 180 degrees or more.
    int AdjustSEVH(const CPolyline& hv, CCleverScanBase& planner);
    // Angular spacing (degrees) that gives `spacing` metres between neighbouring targets at
    // the region's mean slope distance d from the axis point, across the line of sight:
    // dV = 2 atan(spacing / 2d), and dH = dV / sin(V) at the region's mean zenith angle V
    // (a horizontal step spans d sin(V) dH). 1; 0 after one trace line for no points, a
    // spacing <= 0, a zero distance, or sin(V) below 1e-6 (the region at the zenith).
    int AdjustVH(const CXYZArray& xyz, double spacing, double& dV, double& dH);
    // Fills a fine-scan or tracking-scan planner from a region drawn on the photograph: its
    // polygon becomes the angles polygon (PolyToHV), its box the polygon's box (AdjustSEVH)
    // and its spacing the one of `spacing` metres at the region's distance (AdjustVH). The
    // polygon then maps one to one onto the box. The caller plans (CalcPtAngle or
    // CalcLineAngle). 1, or 0 after the failing step's trace line.
    int ComputeInclineGrid(const CPolyline& region, double spacing, CCleverScanBase& planner);
    // A scan planned by angles alone drawn back onto the photograph: the outline of the
    // planner's angular box (edges sampled every kOutlineStepDeg degrees at most) traced along
    // the instrument's line of sight to the surface and into the image (HVToImg). Directions
    // that miss the surface or the camera are left out. 1 with the closed outline in image
    // pixels; 0 after one trace line when fewer than 3 outline points were seen.
    int NoImgToImg(const CCleverScanBase& planner, CPolyline& region);
    // The region drawn on the image view (image pixels). 1; 0 after one trace line without an
    // image view or with fewer than 3 vertices.
    int GetPolylineFromImage(CPolyline& region);

    CImgViewEx* GetImage() { return m_pImage; }
    CSinOriToTin* GetSinOriToTin() { return m_pSinOriToTin; }
    CCamera* GetCamera() { return m_pCamera; }

    // Owned objects, members in this order.
    CImgViewEx* m_pImage;
    CSinOriToTin* m_pSinOriToTin;
    CXYZArray* m_pScanHV;                  // planned targets: x = H, y = V (degrees)
    CXYZArray* m_pScanXYZ;                 // measured points, surveying frame
    CXYZArray* m_pScanImg;                 // the measured points' image pixels
    kel_text::CKelString m_strFolder;      // project folder (device path)
    kel_text::CKelString m_strName;        // project name
    kel_text::CKelString m_strCameraFile;  // camera file
    kel_text::CKelString m_strImageFile;   // photograph
    kel_text::CKelString m_strTinFile;     // surface file
    kel_text::CKelString m_strScanFile;    // scan point database
    std::uint8_t m_flag;                   // 1: region outlines are densified to follow the terrain
    CXYZ m_station;                        // surveying frame
    double m_value1;                       // instrument height (m)
    double m_value2;                       // backsight azimuth (degrees), -180 not set
    double m_value3;        // circle reading on the backsight (degrees), -180 not set
    CXYZ m_ptRegionMin;     // the last region's angles box, lower corner (x = H, y = V)
    CXYZ m_ptRegionMax;     // its upper corner
    CXYZ m_ptRegionMean;    // the mean of its object points (surveying frame)
    CXYZ m_ptRegionSight;   // x: mean slope distance (m), y: mean zenith angle (degrees)
    CXYZArray m_regionXYZ;  // the last region's outline points, surveying frame
    CXYZArray m_regionHV;   // their angles (x = H, y = V)
    CCamera* m_pCamera;
    std::int32_t m_estCount;    // N
    std::int32_t m_estSeconds;  // T
    std::int32_t m_estRemain;   // r

private:
    // The one crossing between the frames: surveying (m, x north) <-> computation (mm, x east).
    static void ToMath(CXYZ& p);
    static void ToSoku(CXYZ& p);
    // The region's outline in pixels, densified when m_flag == 1; 0 for fewer than 3 vertices.
    int Outline(const CPolyline& region, CXYZArray& pts) const;
    // Object points and angles of the outline into the working arrays; 0 at the first miss.
    int TraceOutline(const CXYZArray& pts);
};
