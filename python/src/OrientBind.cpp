// Cameras and orientation: kelscan.Camera (CCamera), kelscan.OpenCvCamera (COpenCvCamera) with
// export_opencv / import_opencv, kelscan.orient (CDlt, CSinOri) and its Orientation, and
// kelscan.OrientedCamera (CSinOriToTin).
#include <memory>

#include "Common.h"
#include "geometry/Rot.h"
#include "photogrammetry/Camera.h"
#include "photogrammetry/Dlt.h"
#include "photogrammetry/OpenCvCamera.h"
#include "photogrammetry/SinOri.h"
#include "surface/SinOriToTin.h"

namespace kel_py {

namespace {

typedef kel_templ::CKelArray<CXYZ, CXYZ&> Points;

py::array_t<double> Array(const double* v, py::ssize_t n) {
    py::array_t<double> a(n);
    std::copy(v, v + n, a.mutable_data());
    return a;
}

py::array_t<double> Xy(const CXYZ& p, int n) {
    const double v[3] = {p.x, p.y, p.z};
    return Array(v, n);
}

py::array_t<double> Matrix3(const double* m) {
    py::array_t<double> a({py::ssize_t{3}, py::ssize_t{3}});
    std::copy(m, m + 9, a.mutable_data());
    return a;
}

CRot ToRot(const py::handle& obj) {
    const Doubles r = Rows(obj, 3, "rotation");
    if (r.shape(0) != 3) throw py::value_error("rotation: expected a 3 x 3 array");
    CRot rot;
    std::copy(r.data(), r.data() + 9, rot.m);
    return rot;
}

CXYZ ToPoint(const py::handle& obj, const char* what) {
    const std::vector<double> v = Vector(obj, 3, what);
    return CXYZ(v[0], v[1], v[2]);
}

// Everything an orientation reports, whichever class computed it.
struct Orientation {
    std::string method, variant;
    int pairs = 0, iterations = 0;
    double centre[3] = {}, angles[3] = {}, rotation[9] = {}, sigma[6] = {};
    bool hasSigma = false, dlt = false;
    double focal = 0.0, focalXY[2] = {}, principal[2] = {};
    std::vector<double> b, distortion;
    int distortionModel = 0;
    std::vector<std::string> names;
    std::vector<double> residuals;  // x, y per pair
    double rms[2] = {};
};

template <class Solver>
void Fill(Orientation& o, const std::string& method, const Solver& s) {
    o.method = method;
    o.pairs = s.m_obj.GetSize();
    o.iterations = s.m_ite;
    const double c[3] = {s.m_pos.x, s.m_pos.y, s.m_pos.z};
    const double a[3] = {s.m_ang.omega, s.m_ang.phi, s.m_ang.kappa};
    std::copy(c, c + 3, o.centre);
    std::copy(a, a + 3, o.angles);
    std::copy(s.m_rot.m, s.m_rot.m + 9, o.rotation);
    o.focal = s.m_focal;
    for (int i = 0; i < s.m_res.GetSize(); ++i) {
        o.names.push_back(Utf8(s.m_res[i].m_name));
        o.residuals.push_back(s.m_res[i].x);
        o.residuals.push_back(s.m_res[i].y);
    }
    o.rms[0] = s.m_rms.x;
    o.rms[1] = s.m_rms.y;
}

const char* const kMethods[] = {"dlt",
                                "dlt2d",
                                "dlt3d",
                                "dlt-iterative",
                                "selfcal-k1k2k3k4",
                                "selfcal-k1k2p1p2",
                                "selfcal-k1k2k3p1p2",
                                "resection",
                                "resection-multistart"};

Orientation Orient(const py::handle& object, const py::handle& photo, const std::string& method,
                   double focal, const py::handle& principal, const py::handle& names) {
    if (std::find(std::begin(kMethods), std::end(kMethods), method) == std::end(kMethods))
        throw py::value_error(
            "method: expected one of dlt, dlt2d, dlt3d, dlt-iterative, "
            "selfcal-k1k2k3k4, selfcal-k1k2p1p2, selfcal-k1k2k3p1p2, resection, "
            "resection-multistart");
    const Doubles obj = Rows(object, 3, "object_points");
    const Doubles phc = Rows(photo, 2, "photo_points");
    if (obj.shape(0) != phc.shape(0))
        throw py::value_error("object_points and photo_points: expected the same number of rows");
    if (!std::isfinite(focal) || focal < 0.0)
        throw py::value_error("focal: expected a number >= 0 (mm)");
    const std::vector<double> pp = Vector(principal, 2, "principal");
    const std::vector<std::string> n = Names(names, obj.shape(0), "names");
    Points o = ToXYZ(obj, n), p = ToXYZ(phc, n);
    Orientation r;
    Call call;
    if (method.rfind("resection", 0) == 0) {
        for (int i = 0; i < p.GetSize(); ++i) {
            p[i].x -= pp[0];
            p[i].y -= pp[1];
        }
        CSinOri so;
        if (!so.Create(o, p, focal))
            call.Fail("orient: " + method + " needs at least 3 pairs and a focal length > 0");
        if (!(method == "resection" ? so.CalSinOri() : so.CalSinOri2()))
            call.Fail("orient: " + method);
        Fill(r, method, so);
        r.hasSigma = true;
        std::copy(so.m_sigma, so.m_sigma + 6, r.sigma);
        return r;
    }
    CDlt dlt;
    if (!dlt.Create(o, p, focal)) call.Fail("orient: " + method + " needs at least 4 pairs");
    dlt.SetPrincipalPoint(pp[0], pp[1]);
    int ok = 0;
    if (method == "dlt") ok = dlt.CalDlt();
    if (method == "dlt2d") ok = dlt.CalDlt2D();
    if (method == "dlt3d") ok = dlt.CalDlt3D();
    if (method == "dlt-iterative") ok = dlt.CalDltIte3D();
    if (method == "selfcal-k1k2k3k4") ok = dlt.CalDltSelfCalib_k1k2k3k4();
    if (method == "selfcal-k1k2p1p2") ok = dlt.CalDltSelfCalib_k1k2p1p2();
    if (method == "selfcal-k1k2k3p1p2") ok = dlt.CalDltSelfCalib_k1k2k3p1p2();
    if (!ok) call.Fail("orient: " + method);
    Fill(r, method, dlt);
    r.variant = dlt.m_b.GetSize() == 8 ? "plane DLT" : "spatial DLT";
    r.dlt = true;
    r.focalXY[0] = dlt.m_focalX;
    r.focalXY[1] = dlt.m_focalY;
    r.principal[0] = dlt.m_pp.x;
    r.principal[1] = dlt.m_pp.y;
    r.b.assign(dlt.m_b.GetData(), dlt.m_b.GetData() + dlt.m_b.GetSize());
    r.distortionModel = static_cast<int>(dlt.m_dist.GetDistModel());
    r.distortion.assign(dlt.m_dist.m_para, dlt.m_dist.m_para + dlt.m_dist.GetNumPara());
    return r;
}

std::unique_ptr<CCamera> NewCamera(double focal, const py::handle& principal,
                                   const py::handle& pixelSize, int model,
                                   const py::handle& parameters) {
    const std::vector<double> pp = Vector(principal, 2, "principal");
    const std::vector<double> px = Vector(pixelSize, 2, "pixel_size");
    if (model < 0 || model > 4) throw py::value_error("model: expected 0..4");
    auto cam = std::make_unique<CCamera>();
    cam->m_focal = focal;
    cam->m_principal.SetXYZ(pp[0], pp[1], 0.0);
    cam->m_resolution.SetXYZ(px[0], px[1], 0.0);
    cam->m_dist.SetDistModel(static_cast<DIST_MODEL>(model));
    const int n = cam->m_dist.GetNumPara();
    const std::vector<double> para =
        parameters.is_none() ? std::vector<double>(n, 0.0) : Vector(parameters, n, "parameters");
    std::copy(para.begin(), para.end(), cam->m_dist.m_para);
    return cam;
}

void SetDistortion(CCamera& cam, int model, const py::handle& parameters) {
    if (model < 0 || model > 4) throw py::value_error("model: expected 0..4");
    CDist d;
    d.SetDistModel(static_cast<DIST_MODEL>(model));
    const std::vector<double> para = Vector(parameters, d.GetNumPara(), "parameters");
    std::copy(para.begin(), para.end(), d.m_para);
    d.m_radius = cam.m_dist.m_radius;
    d.m_distortion = cam.m_dist.m_distortion;
    cam.m_dist = d;
}

std::unique_ptr<CCamera> ReadCamera(const std::string& path) {
    auto cam = std::make_unique<CCamera>();
    Call call;
    if (cam->Read(Wide(path).c_str()) != 1) {
        if (cam->GetLastReadLine() == 0) call.Fail("Camera.read: cannot read " + path);
        call.Fail("Camera.read: " + path + ":" + std::to_string(cam->GetLastReadLine()) +
                  ": missing or unreadable camera line");
    }
    return cam;
}

void ImageSize(const py::handle& obj, int& w, int& h) {
    const std::vector<double> v = Vector(obj, 2, "image_size");
    if (v[0] != std::round(v[0]) || v[1] != std::round(v[1]) || v[0] < 1 || v[1] < 1 ||
        v[0] > COpenCvCamera::kMaxImageSide || v[1] > COpenCvCamera::kMaxImageSide)
        throw py::value_error("image_size: expected two whole numbers of pixels from 1 to " +
                              std::to_string(COpenCvCamera::kMaxImageSide));
    w = static_cast<int>(v[0]);
    h = static_cast<int>(v[1]);
}

std::unique_ptr<COpenCvCamera> FromCamera(const CCamera& cam, const py::handle& imageSize,
                                          int coefficients) {
    int w = 0, h = 0;
    if (!imageSize.is_none()) {
        ImageSize(imageSize, w, h);
    } else if (!COpenCvCamera::CentredImageSize(cam, w, h)) {
        throw py::value_error("image_size: the principal point gives no image size; give one");
    }
    if (coefficients != 5 && coefficients != 8)
        throw py::value_error("coefficients: expected 5 or 8");
    auto cv = std::make_unique<COpenCvCamera>();
    Call call;
    if (!cv->FromCamera(cam, w, h, coefficients)) call.Fail("OpenCvCamera.from_camera");
    return cv;
}

std::unique_ptr<CCamera> ToCamera(COpenCvCamera& cv, const py::handle& pixelSize,
                                  const py::object& model) {
    const std::vector<double> px = Vector(pixelSize, 2, "pixel_size");
    int m = cv.DefaultModel();
    if (!model.is_none()) {
        if (!py::isinstance<py::int_>(model))
            throw py::type_error("model: expected an int 0..4 or None");
        m = model.cast<int>();
    }
    if (m < 0 || m > 4) throw py::value_error("model: expected 0..4");
    auto cam = std::make_unique<CCamera>();
    Call call;
    if (!cv.ToCamera(px[0], px[1], static_cast<DIST_MODEL>(m), *cam))
        call.Fail("OpenCvCamera.to_camera");
    return cam;
}

std::unique_ptr<COpenCvCamera> ReadOpenCv(const std::string& path) {
    auto cv = std::make_unique<COpenCvCamera>();
    Call call;
    if (!cv->ReadYaml(Wide(path).c_str())) {
        if (cv->GetErrorLine() > 0)
            call.Fail(path + ":" + std::to_string(cv->GetErrorLine()) + ": " + cv->GetError());
        call.Fail(path + ": " + cv->GetError());
    }
    return cv;
}

// f(x, y, u, v) -> ok over the rows of an N x 2 array; NaN rows where it says no.
template <class F>
Doubles Map2(const py::handle& in, const char* what, F f) {
    return MapRows(in, 2, 2, what,
                   [&f](const double* a, double* o) { return f(a[0], a[1], o[0], o[1]); });
}

}  // namespace

void BindOrientation(py::module_& m) {
    py::class_<CCamera>(m, "Camera",
                        "A camera file's interior orientation (CCamera).\n\n"
                        "Focal length and pixel size in mm; the principal point in mm from the "
                        "image's top-left corner (x to the right, y down the rows). Its lens model "
                        "CORRECTS a measured photo point: ideal = measured + D(measured).")
        .def(py::init<>(), "An empty camera (all zero, no distortion).")
        .def(py::init(&NewCamera), py::arg("focal"), py::arg("principal"), py::arg("pixel_size"),
             py::arg("model") = 0, py::arg("parameters") = py::none(),
             "A camera of focal length (mm), principal point (2, mm), pixel size (2, mm) and "
             "distortion model 0..4 with its parameters (4, 4, 5 or 8 of them).")
        .def_static("read", &ReadCamera, py::arg("path"), "Reads a camera file.")
        .def(
            "write",
            [](CCamera& c, const std::string& path) {
                Call call;
                if (!c.Write(Wide(path).c_str())) call.Fail("Camera.write: cannot write " + path);
            },
            py::arg("path"), "Writes the camera file (it is then named after the file).")
        .def_property_readonly("name", [](const CCamera& c) { return Utf8(c.m_name); })
        .def_readwrite("focal", &CCamera::m_focal, "Focal length, mm.")
        .def_property(
            "principal", [](const CCamera& c) { return Xy(c.m_principal, 2); },
            [](CCamera& c, const py::handle& v) {
                const std::vector<double> p = Vector(v, 2, "principal");
                c.m_principal.SetXYZ(p[0], p[1], 0.0);
            },
            "Principal point (x, y), mm from the image's top-left corner.")
        .def_property(
            "pixel_size", [](const CCamera& c) { return Xy(c.m_resolution, 2); },
            [](CCamera& c, const py::handle& v) {
                const std::vector<double> p = Vector(v, 2, "pixel_size");
                c.m_resolution.SetXYZ(p[0], p[1], 0.0);
            },
            "Pixel size (x, y), mm per pixel.")
        .def_property_readonly(
            "model", [](const CCamera& c) { return static_cast<int>(c.m_dist.GetDistModel()); },
            "Distortion model: 0 none, 1 k1..k4, 2 k1 k2 p1 p2, 3 k1 k2 k3 p1 p2, 4 k1 k2 a1..a6.")
        .def_property_readonly(
            "parameters",
            [](const CCamera& c) { return Array(c.m_dist.m_para, c.m_dist.GetNumPara()); },
            "The model's parameters (photo mm).")
        .def("set_distortion", &SetDistortion, py::arg("model"), py::arg("parameters"),
             "Sets the distortion model and its parameters.")
        .def_property_readonly(
            "fiducials",
            [](const CCamera& c) {
                py::list l;
                for (int i = 0; i < c.m_fiducialMark.GetSize(); ++i)
                    l.append(py::make_tuple(Utf8(c.m_fiducialMark[i].m_name), c.m_fiducialMark[i].x,
                                            c.m_fiducialMark[i].y));
                return l;
            },
            "Fiducial marks as (name, x mm, y mm).")
        .def_property_readonly(
            "radial_table",
            [](const CCamera& c) {
                const int k =
                    std::min(c.m_dist.m_radius.GetSize(), c.m_dist.m_distortion.GetSize());
                Doubles out = NewRows(k, 2);
                for (int j = 0; j < k; ++j) {
                    out.mutable_data()[2 * j] = c.m_dist.m_radius[j];
                    out.mutable_data()[2 * j + 1] = c.m_dist.m_distortion[j];
                }
                return out;
            },
            "The radial table, K x 2 (radius mm, value mm).")
        .def(
            "img_to_phc",
            [](const CCamera& c, const py::handle& px) {
                return Map2(px, "pixels", [&c](double u, double v, double& x, double& y) {
                    c.ImgToPhc(u, v, x, y);
                    return true;
                });
            },
            py::arg("pixels"),
            "Pixels (N x 2: u right, v down, full resolution) to ideal photo points (N x 2, mm "
            "from the principal point, y up): the measured point corrected by the lens model.")
        .def(
            "phc_to_img",
            [](const CCamera& c, const py::handle& phc) {
                return Map2(phc, "photo_points", [&c](double x, double y, double& u, double& v) {
                    return c.PhcToImg(x, y, u, v) == 1;
                });
            },
            py::arg("photo_points"),
            "Ideal photo points (N x 2, mm) to the pixels where they are seen (N x 2); NaN where "
            "the lens model's inversion does not settle or the pixel size is zero.")
        .def("__repr__", [](const CCamera& c) {
            return "<kelscan.Camera '" + Utf8(c.m_name) + "': focal " + std::to_string(c.m_focal) +
                   " mm, model " + std::to_string(static_cast<int>(c.m_dist.GetDistModel())) + ">";
        });

    py::class_<COpenCvCamera>(
        m, "OpenCvCamera",
        "A camera as OpenCV describes it: camera matrix (pixels, centres at whole numbers), "
        "distortion coefficients (k1 k2 p1 p2 k3 k4 k5 k6 s1 s2 s3 s4 tauX tauY) and image size, "
        "read and written as OpenCV's FileStorage YAML.\n\n"
        "OpenCV's lens model DISTORTS an ideal point; the camera file's corrects a measured one. "
        "Conversions therefore fit the target model by least squares on a grid over the image "
        "and report the largest difference of the two models' pixels (max_residual).")
        .def(py::init<>())
        .def_static("read", &ReadOpenCv, py::arg("path"),
                    "Reads OpenCV's YAML (camera_matrix, distortion_coefficients, image_width, "
                    "image_height); kelscan.Error names the line of anything else.")
        .def(
            "write",
            [](const COpenCvCamera& c, const std::string& path) {
                Call call;
                if (!c.WriteYaml(Wide(path).c_str())) call.Fail("OpenCvCamera.write " + path);
            },
            py::arg("path"), "Writes the YAML as OpenCV writes it.")
        .def("format", &COpenCvCamera::FormatYaml, "The YAML text.")
        .def_static(
            "from_camera", &FromCamera, py::arg("camera"), py::arg("image_size") = py::none(),
            py::arg("coefficients") = 8,
            "OpenCV's camera for a kelscan Camera: the matrix exactly, 5 or 8 coefficients "
            "fitted. image_size (width, height pixels) defaults to twice the principal point.")
        .def("to_camera", &ToCamera, py::arg("pixel_size"), py::arg("model") = py::none(),
             "A kelscan Camera for a sensor of pixel_size (2, mm): focal = fx * sx, pixel height "
             "focal / fy, the lens model `model` (default default_model) fitted.")
        .def_property_readonly(
            "default_model",
            [](const COpenCvCamera& c) { return static_cast<int>(c.DefaultModel()); },
            "1 for a purely radial lens, else 3.")
        .def_property(
            "matrix", [](const COpenCvCamera& c) { return Matrix3(c.m_matrix); },
            [](COpenCvCamera& c, const py::handle& v) {
                const Doubles r = Rows(v, 3, "matrix");
                if (r.shape(0) != 3) throw py::value_error("matrix: expected a 3 x 3 array");
                std::copy(r.data(), r.data() + 9, c.m_matrix);
            },
            "Camera matrix, 3 x 3: [fx skew cx; 0 fy cy; 0 0 1] (pixels).")
        .def_property(
            "coefficients", [](const COpenCvCamera& c) { return Array(c.m_coef, c.m_numCoef); },
            [](COpenCvCamera& c, const py::handle& v) {
                py::array a = py::array::ensure(v);
                const py::ssize_t n = a ? a.size() : 0;
                if (n != 4 && n != 5 && n != 8 && n != 12 && n != 14)
                    throw py::value_error("coefficients: expected 4, 5, 8, 12 or 14 numbers");
                const std::vector<double> k =
                    Vector(a.reshape({n}), static_cast<int>(n), "coefficients");
                std::fill(c.m_coef, c.m_coef + COpenCvCamera::kMaxCoefficients, 0.0);
                std::copy(k.begin(), k.end(), c.m_coef);
                c.m_numCoef = static_cast<int>(n);
            },
            "Distortion coefficients in OpenCV's order.")
        .def_property(
            "image_size",
            [](const COpenCvCamera& c) { return py::make_tuple(c.m_width, c.m_height); },
            [](COpenCvCamera& c, const py::handle& v) { ImageSize(v, c.m_width, c.m_height); },
            "(width, height), pixels.")
        .def_property_readonly("max_residual", &COpenCvCamera::GetMaxResidual,
                               "The last conversion's largest difference of the two models' pixels "
                               "over the grid, pixels.")
        .def_property_readonly("rms_residual", &COpenCvCamera::GetRmsResidual, "Its RMS, pixels.")
        .def_property_readonly("grid_points", &COpenCvCamera::GetGridPoints, "Points of its grid.")
        .def(
            "distort",
            [](const COpenCvCamera& c, const py::handle& xy) {
                return Map2(xy, "points", [&c](double x, double y, double& u, double& v) {
                    c.Distort(x, y, u, v);
                    return true;
                });
            },
            py::arg("points"),
            "Ideal normalised points (N x 2) to distorted ones (OpenCV's model).")
        .def(
            "undistort",
            [](const COpenCvCamera& c, const py::handle& xy) {
                return Map2(xy, "points", [&c](double x, double y, double& u, double& v) {
                    return c.Undistort(x, y, u, v) == 1;
                });
            },
            py::arg("points"),
            "Distorted normalised points (N x 2) to ideal ones; NaN where Newton's method does not "
            "settle.")
        .def_static(
            "pose_to_opencv",
            [](const py::handle& rotation, const py::handle& centre) {
                double r[9], t[3];
                COpenCvCamera::PoseToOpenCv(ToRot(rotation), ToPoint(centre, "centre"), r, t);
                return py::make_tuple(Matrix3(r), Array(t, 3));
            },
            py::arg("rotation"), py::arg("centre"),
            "A kelscan pose (camera frame = R (P - C), looking along -z, y up) as OpenCV's "
            "(camera frame = Rcv P + t, looking along +z, y down): (Rcv 3 x 3, t (3,)).");

    m.def(
        "export_opencv",
        [](const std::string& camera, const std::string& output, const py::handle& imageSize,
           int coefficients) {
            auto cam = ReadCamera(camera);
            auto cv = FromCamera(*cam, imageSize, coefficients);
            Call call;
            if (!cv->WriteYaml(Wide(output).c_str()))
                call.Fail("export_opencv: cannot write " + output);
            return cv;
        },
        py::arg("camera"), py::arg("output"), py::arg("image_size") = py::none(),
        py::arg("coefficients") = 8,
        "kelscan camera export-opencv: reads a camera file, writes OpenCV's YAML; returns the "
        "OpenCvCamera (max_residual: pixels).");
    m.def(
        "import_opencv",
        [](const std::string& input, const py::handle& pixelSize, const py::object& model,
           const py::object& output) {
            auto cv = ReadOpenCv(input);
            auto cam = ToCamera(*cv, pixelSize, model);
            if (!output.is_none()) {
                Call call;
                const std::string path = py::str(output).cast<std::string>();
                if (!cam->Write(Wide(path).c_str()))
                    call.Fail("import_opencv: cannot write " + path);
            }
            return py::make_tuple(std::move(cam), std::move(cv));
        },
        py::arg("input"), py::arg("pixel_size"), py::arg("model") = py::none(),
        py::arg("output") = py::none(),
        "kelscan camera import-opencv: reads OpenCV's YAML, fits a camera file's lens model and "
        "writes the camera file when output is given; returns (Camera, OpenCvCamera).");

    py::class_<Orientation>(m, "Orientation",
                            "The result of orient(). The rotation R maps object differences into "
                            "the camera frame, which looks along its negative z axis: camera = R "
                            "(P - centre); R = Rx(omega) Ry(phi) Rz(kappa).")
        .def_readonly("method", &Orientation::method)
        .def_readonly("variant", &Orientation::variant,
                      "'plane DLT' or 'spatial DLT' for the DLT methods, else ''.")
        .def_readonly("pairs", &Orientation::pairs, "Control points paired by name.")
        .def_readonly("iterations", &Orientation::iterations)
        .def_property_readonly(
            "centre", [](const Orientation& o) { return Array(o.centre, 3); },
            "Projection centre, object frame and units.")
        .def_property_readonly(
            "angles", [](const Orientation& o) { return Array(o.angles, 3); },
            "omega, phi, kappa, radians.")
        .def_property_readonly(
            "rotation", [](const Orientation& o) { return Matrix3(o.rotation); }, "R, 3 x 3.")
        .def_property_readonly(
            "sigma",
            [](const Orientation& o) -> py::object {
                if (!o.hasSigma) return py::none();
                return Array(o.sigma, 6);
            },
            "Standard errors of X0, Y0, Z0 (object units), omega, phi, kappa (rad); None for DLT.")
        .def_readonly("focal", &Orientation::focal, "Focal length, mm.")
        .def_property_readonly(
            "focal_xy",
            [](const Orientation& o) -> py::object {
                if (!o.dlt) return py::none();
                return Array(o.focalXY, 2);
            },
            "DLT: focal length along x and y, mm; None for the resections.")
        .def_property_readonly(
            "principal_point",
            [](const Orientation& o) -> py::object {
                if (!o.dlt) return py::none();
                return Array(o.principal, 2);
            },
            "DLT: the principal point in the photo points' frame, mm; None for the resections.")
        .def_property_readonly(
            "b",
            [](const Orientation& o) -> py::object {
                if (!o.dlt) return py::none();
                return Array(o.b.data(), static_cast<py::ssize_t>(o.b.size()));
            },
            "DLT parameters b1..b11 (b1..b8 for the plane DLT); None for the resections.")
        .def_readonly("distortion_model", &Orientation::distortionModel)
        .def_property_readonly(
            "distortion",
            [](const Orientation& o) {
                return Array(o.distortion.data(), static_cast<py::ssize_t>(o.distortion.size()));
            },
            "Self-calibrated distortion parameters (empty for the other methods).")
        .def_readonly("names", &Orientation::names, "Names of the pairs, in the residuals' order.")
        .def_property_readonly(
            "residuals",
            [](const Orientation& o) {
                Doubles out = NewRows(static_cast<py::ssize_t>(o.names.size()), 2);
                std::copy(o.residuals.begin(), o.residuals.end(), out.mutable_data());
                return out;
            },
            "Residual of each pair, projected minus measured, N x 2 mm.")
        .def_property_readonly(
            "rms", [](const Orientation& o) { return Array(o.rms, 2); },
            "RMS residual in x and y, mm.")
        .def("__repr__", [](const Orientation& o) {
            return "<kelscan.Orientation " + o.method + ": " + std::to_string(o.pairs) + " pairs>";
        });

    m.def("orient", &Orient, py::arg("object_points"), py::arg("photo_points"),
          py::arg("method") = "dlt", py::arg("focal") = 0.0,
          py::arg("principal") = py::make_tuple(0.0, 0.0), py::arg("names") = py::none(),
          "Orients a photograph from control points, row i of object_points (N x 3, any object "
          "frame) with row i of photo_points (N x 2, mm, y up).\n\n"
          "Methods: dlt (plane DLT on coplanar control, else spatial), dlt2d, dlt3d, "
          "dlt-iterative, selfcal-k1k2k3k4, selfcal-k1k2p1p2, selfcal-k1k2k3p1p2 (photo points as "
          "measured, any photo frame), resection and resection-multistart (photo points corrected "
          "for distortion; focal needed). principal: the principal point in the photo points' "
          "frame for dlt2d (and dlt's plane variant) and the resections. names: the pairs' names "
          "(default '0', '1', ...).");

    py::class_<CSinOriToTin>(m, "OrientedCamera",
                             "An oriented camera over a surface (CSinOriToTin). Object points, "
                             "the centre and the surface share one frame (the scan project uses "
                             "x east, y north, z height, millimetres); camera = R (P - centre), "
                             "looking along -z.")
        .def(py::init([](const CCamera& camera, double focal, const py::handle& centre,
                         const py::handle& rotation) {
                 auto o = std::make_unique<CSinOriToTin>();
                 const CXYZ c = ToPoint(centre, "centre");
                 const CRot r = ToRot(rotation);
                 o->SetCamera(camera);
                 Call call;
                 if (!o->SetOrientation(focal, c, r)) call.Fail("OrientedCamera");
                 return o;
             }),
             py::arg("camera"), py::arg("focal"), py::arg("centre"), py::arg("rotation"))
        .def(
            "set_surface",
            [](CSinOriToTin& o, const CTin& tin) {
                const double f = o.GetFocal();
                const CXYZ c = o.GetCentre();
                const CRot r = o.GetRot();
                Call call;
                if (!o.SetTin(tin)) call.Fail("OrientedCamera.set_surface");
                o.SetOrientation(f, c, r);
            },
            py::arg("tin"), "The surface that rays meet (a copy).")
        .def(
            "obj_to_phc",
            [](const CSinOriToTin& o, const py::handle& in) {
                return MapRows(in, 3, 2, "points", [&o](const double* a, double* out) {
                    CXYZ q;
                    return o.ObjToPhc(CXYZ(a[0], a[1], a[2]), q) == 1 && Put(q, out, 2);
                });
            },
            py::arg("points"),
            "Ideal photo points (N x 2, mm) of object points (N x 3); NaN behind the camera.")
        .def(
            "obj_to_img",
            [](const CSinOriToTin& o, const py::handle& in) {
                return MapRows(in, 3, 2, "points", [&o](const double* a, double* out) {
                    CXYZ q;
                    return o.ObjToImg(CXYZ(a[0], a[1], a[2]), q) == 1 && Put(q, out, 2);
                });
            },
            py::arg("points"),
            "Pixels (N x 2, full resolution, pixel i spanning [i, i + 1)) where object points are "
            "seen, lens distortion applied; NaN behind the camera.")
        .def(
            "phc_to_xyz",
            [](const CSinOriToTin& o, const py::handle& in) {
                return MapRows(in, 2, 3, "photo_points", [&o](const double* a, double* out) {
                    CXYZ q;
                    return o.PhcToXYZ(CXYZ(a[0], a[1], 0.0), q) == 1 && Put(q, out, 3);
                });
            },
            py::arg("photo_points"),
            "The first surface point on the ray of each ideal photo point (N x 2 mm -> N x 3); NaN "
            "where the ray misses.")
        .def_property_readonly("focal", &CSinOriToTin::GetFocal)
        .def_property_readonly("centre", [](const CSinOriToTin& o) { return Xy(o.GetCentre(), 3); })
        .def_property_readonly("rotation",
                               [](const CSinOriToTin& o) { return Matrix3(o.GetRot().m); });
}

}  // namespace kel_py
