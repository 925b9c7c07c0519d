#pragma once
// CCamera: the interior orientation of the instrument's camera and its camera file.
//
// Focal length and fiducial marks in millimetres; the principal point in photo millimetres
// (the file's comment says "[m]", the values are stored as read); pixel size in mm/pixel.
//
// The camera file is single-byte text, one value per line, each line the value(s), tabs and a
// "//" comment, lines ended by a line feed. Order: focal length, principal point x, y,
// distortion model, parameter count n, n parameter lines, x and y pixel size, fiducial count m,
// m lines "name x y", then (optional) the radial table's count k and k lines "radius value".
//
// Reading is line by line with the scan forms of the C library's sscanf (%lf, %d, %s), read in
// the C locale whatever the process locale (numbers have a '.', never a ','); a missing
// (empty) line in the required part, or a line that is at end of input for the scan, fails.
// Text that is no number leaves the value as it was, as sscanf does; a number that is not
// finite ("nan", "inf") or beyond the range of its type fails the read wherever it stands.
// Writing prints %lf and %le as the C locale does, whatever the process locale.
// Safety limits beyond the file's own rules, so that no file can overrun memory:
// - a line is kept up to kMaxLineBytes bytes; the rest of a longer line is read and dropped;
// - parameter lines past the ten the distortion holds are read and discarded;
// - a negative count counts as 0; the radial table's count is clamped to kMaxRadialValues;
// - the fiducial list grows with the lines actually read (a count larger than the lines
//   present fails at the first missing line, as any missing required line does).
// Writing cuts a line longer than 255 characters to 254 and its line feed.
#include <cstdint>

#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "photogrammetry/Dist.h"
#include "platform/Alloc.h"
#include "platform/Export.h"
#include "platform/KelString.h"

class KELSCAN_API CCamera {
public:
    KEL_DECLARE_ALLOCATOR

    static constexpr int kMaxLineBytes = 4096;
    static constexpr int kMaxRadialValues = 65536;
    static constexpr int kMaxWriteLine = 255;
    // Fixed-point passes of PhcToImg's distortion inversion, and the change (mm) that ends it.
    static constexpr int kInvIteLim = 100;
    static constexpr double kInvTol = 1e-13;

    CCamera();
    CCamera(const CCamera& src);
    CCamera& operator=(const CCamera& src);
    ~CCamera() = default;

    void Init();
    void Copy(const CCamera& src);
    // 1, or 0 when the file cannot be opened (camera unchanged), a required line is missing or
    // a number is not finite (camera left as filled so far). Logs nothing.
    int Read(const wchar_t* path);
    // The 1-based number of the last line the last Read looked at (0 before any line): on a
    // failed Read, the line that was missing or did not scan.
    int GetLastReadLine() const { return m_lastReadLine; }
    // 1, or 0 for a null or empty path or a file that cannot be written. Renames the camera
    // after the file (its name without folder and extension).
    int Write(const wchar_t* path);
    void Trace() const {}

    // Image pixels and photo millimetres. Pixels: full resolution, u to the right, v down the
    // rows, pixel i spanning [i, i + 1) (its centre at i + 0.5). Photo: millimetres relative
    // to the principal point, y up. The measured photo point of pixel (u, v) is
    // m = (u resx - ppx, ppy - v resy), and its ideal (distortion-free) point m + D(m).
    //
    // The ideal photo point of a pixel (the correction of m_dist applied).
    void ImgToPhc(double u, double v, double& x, double& y) const;
    // The pixel where the ideal photo point (x, y) is seen: the measured point m with
    // m + D(m) = (x, y), by fixed-point iteration m = ideal - D(m) (a contraction for any lens
    // whose correction changes slowly), then pixels. 1, or 0 for a zero pixel size or when the
    // iteration does not settle within kInvIteLim passes (u, v unchanged). Logs nothing.
    int PhcToImg(double x, double y, double& u, double& v) const;

    kel_text::CKelString m_name;
    std::int32_t m_fiducial;  // 1 when the last Read found a fiducial mark
    double m_focal;
    CXYZ m_principal;
    CXYZ m_resolution;
    CDist m_dist;
    kel_templ::CKelArray<CXYZ, CXYZ&> m_fiducialMark;
    kel_templ::CKelArray<std::int32_t, std::int32_t> m_aux;

private:
    int m_lastReadLine = 0;
};
