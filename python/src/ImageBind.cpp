// Photographs: kelscan.load_photo, a photograph (CFCIMGBitmap) as an H x W x 3 array.
#include "Common.h"
#include "imaging/FCIMGBitmap.h"

namespace kel_py {

namespace {

std::string LoadError(SC_IMG_ERRORS rc) {
    switch (rc) {
        case SC_IMG_ERR_TYPE:
            return "not a photo (.bmp, .dib, .png, .jpg, .jpe, .jpeg or .jfif), or a rate it "
                   "cannot take";
        case SC_IMG_ERR_OPEN:
            return "cannot read it as a JPEG";
        case SC_IMG_ERR_DECODE:
            return "cannot decode it (a damaged JPEG, or the codec module is missing)";
        default:
            return "cannot read it";
    }
}

py::tuple LoadPhoto(const std::string& path, const py::object& rate) {
    int r = 0;
    if (!rate.is_none()) {
        if (!py::isinstance<py::int_>(rate))
            throw py::type_error("rate: expected 1, 2, 4, 8 or None");
        r = rate.cast<int>();
        if (r != 1 && r != 2 && r != 4 && r != 8)
            throw py::value_error("rate: expected 1, 2, 4, 8 or None");
    }
    CFCIMGBitmap img;
    Call call;
    SC_IMG_ERRORS rc = SC_IMG_OK;
    if (r == 0) {
        img.SetRate_Res(1, 1);  // the viewer's request: the rate follows the image's size
        rc = img.LoadImgFile(Wide(path).c_str(), 0);
    } else {
        rc = img.LoadImgFileAtRate(Wide(path).c_str(), r);
    }
    if (rc != SC_IMG_OK) call.Fail("load_photo: " + path + ": " + LoadError(rc));
    py::array_t<std::uint8_t> out({static_cast<py::ssize_t>(img.GetImageHeight()),
                                   static_cast<py::ssize_t>(img.GetImageWidth()), py::ssize_t{3}});
    img.CopyRgb(out.mutable_data());
    return py::make_tuple(out, img.GetRate_Res());
}

}  // namespace

void BindImaging(py::module_& m) {
    m.def("load_photo", &LoadPhoto, py::arg("path"), py::arg("rate") = py::none(),
          "Loads a photograph (BMP, PNG or JPEG) as (pixels, rate): pixels an H x W x 3 uint8 "
          "array of red, green, blue, rows from the top; rate the rate of resolution it was "
          "loaded at (full-resolution pixel = loaded pixel * rate).\n\n"
          "rate: 1, 2, 4 or 8 loads at that rate (2, 4 and 8 decode a JPEG at 1/rate of its "
          "size; a BMP or PNG loads at 1 only); None lets the library choose as the image view "
          "does (a JPEG at 1 below 321 pixels on the longer side, 2 below 801, 4 below 1025, "
          "else 8; other files at 1).");
}

}  // namespace kel_py
