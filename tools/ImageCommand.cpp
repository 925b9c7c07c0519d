// kelscan image info | convert: the photograph as the library loads it (BMP/DIB, PNG, or JPEG
// through the codec module), its rate of resolution and the bytes it needs, written out as an
// uncompressed BMP or a compressed PNG.
#include <cstdint>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "imaging/FCIMGBitmap.h"
#include "imaging/JpegInterface.h"
#include "imaging/PngFile.h"
#include "platform/Bytes.h"
#include "platform/DynLoad.h"
#include "platform/File.h"
#include "platform/KelString.h"

namespace {

using kelscan_cli::EndsWithNoCase;
using kelscan_cli::Fail;
using kelscan_cli::SetExit;

const char* TypeName(SC_IMG_EXT_TYPE t) {
    switch (t) {
        case SC_IMG_EXT_JPEG:
            return "JPEG";
        case SC_IMG_EXT_BMP:
            return "BMP";
        case SC_IMG_EXT_PNG:
            return "PNG";
        default:
            return "unknown";
    }
}

// Whether the JPEG codec module and its entry point can be loaded: a decode failure is the
// photo's fault only when they can.
bool CodecModuleLoads() {
    HMODULE module = nullptr;
    const bool found = GetLibraryFunction(L"JPEG_LIB.dll", "Create_JpegInterface_ExplicitLoading",
                                          &module) != nullptr;
    FreeLibraryFunction(module);
    return found;
}

// The one line for a loader result; 0 when the load succeeded.
}  // namespace

int kelscan_cli::PhotoLoadFailure(SC_IMG_ERRORS rc, const std::string& photo) {
    switch (rc) {
        case SC_IMG_OK:
            return 0;
        case SC_IMG_ERR_TYPE:
            return Fail(photo + ": not a photo (.bmp, .dib, .png, .jpg, .jpe, .jpeg or .jfif)");
        case SC_IMG_ERR_OPEN:
            return Fail("cannot read " + photo + " as a JPEG");
        case SC_IMG_ERR_DECODE:
            if (!CodecModuleLoads())
                return Fail(photo + ": cannot decode it: the JPEG codec module " +
                            MapModuleName(L"JPEG_LIB.dll") + " is not installed");
            return Fail(photo + ": cannot decode it (a damaged or cut-short JPEG)");
        default: {
            CFCIMGBitmap probe;
            const kel_text::CKelString path = kel_text::Utf8ToWide(photo.c_str());
            const bool png = probe.GetFileTypeExt(path.GetString()) == SC_IMG_EXT_PNG;
            return Fail("cannot read " + photo + (png ? " as a PNG" : " as a BMP"));
        }
    }
}

namespace {

using kelscan_cli::PhotoLoadFailure;

int Load(CFCIMGBitmap& img, const std::string& photo, int noSetResRate) {
    return PhotoLoadFailure(
        img.LoadImgFile(kel_text::Utf8ToWide(photo.c_str()).GetString(), noSetResRate), photo);
}

// A JPEG decoded at 1/scale straight through the module's interface (the bitmap class picks
// its own scale). Null after the failure line; rc gets the exit status.
HBITMAP DecodeAtScale(const std::string& photo, int scale, int& rc) {
    HMODULE module = nullptr;
    auto create = reinterpret_cast<PFN_CREATE_JPEG_INTERFACE>(
        GetLibraryFunction(L"JPEG_LIB.dll", "Create_JpegInterface_ExplicitLoading", &module));
    auto destroy = reinterpret_cast<PFN_DESTROY_JPEG_INTERFACE>(
        create != nullptr
            ? GetLibraryFunction(L"JPEG_LIB.dll", "Destroy_JpegInterface_ExplicitLoading", &module)
            : nullptr);
    CJpegInterface* jpeg = destroy != nullptr ? create() : nullptr;
    HBITMAP bitmap = nullptr;
    SC_IMG_ERRORS err = SC_IMG_ERR_DECODE;
    if (jpeg != nullptr) {
        const kel_text::CKelString host = kel_text::Utf8ToWide(
            kel_platform::MapDevicePath(kel_text::Utf8ToWide(photo.c_str()).GetString()).c_str());
        if (!jpeg->Open(host.GetString()))
            err = SC_IMG_ERR_OPEN;
        else if (jpeg->Decode(scale, 0))
            bitmap = jpeg->DetachBitmap();
        destroy(jpeg);
    }
    FreeLibraryFunction(module);
    rc = bitmap != nullptr ? 0 : PhotoLoadFailure(err, photo);
    return bitmap;
}

const BYTE* Row(const KelDib& b, LONG y) {
    return b.bits + static_cast<std::size_t>(y) * static_cast<std::size_t>(b.bytesPerLine);
}

// A 24-bit bottom-up BI_RGB file.
std::string BmpFile(const KelDib& b) {
    const std::size_t stride = kel_bitmap::RowBytes(b.width, 24);
    std::string file(54 + stride * static_cast<std::size_t>(b.height), '\0');
    auto* p = reinterpret_cast<std::uint8_t*>(&file[0]);
    using namespace kel_bytes;
    p[0] = 'B';
    p[1] = 'M';
    PutU32(p, 2, static_cast<std::uint32_t>(file.size()));
    PutU32(p, 10, 54);
    PutU32(p, 14, 40);
    PutI32(p, 18, b.width);
    PutI32(p, 22, b.height);
    PutU16(p, 26, 1);
    PutU16(p, 28, 24);
    PutU32(p, 34, static_cast<std::uint32_t>(stride * static_cast<std::size_t>(b.height)));
    for (LONG y = 0; y < b.height; ++y) {
        std::uint8_t* out = p + 54 + static_cast<std::size_t>(b.height - 1 - y) * stride;
        for (LONG x = 0; x < b.width; ++x) kel_bitmap::PixelBgr(b, Row(b, y), x, out + 3 * x);
    }
    return file;
}

// An 8-bit RGB PNG, deflate-compressed by libpng; empty after the library's trace line.
std::string PngFile(const KelDib& b) {
    std::vector<unsigned char> rgb(3 * static_cast<std::size_t>(b.width) *
                                   static_cast<std::size_t>(b.height));
    unsigned char* out = rgb.data();
    for (LONG y = 0; y < b.height; ++y)
        for (LONG x = 0; x < b.width; ++x, out += 3) {
            BYTE bgr[3];
            kel_bitmap::PixelBgr(b, Row(b, y), x, bgr);
            out[0] = bgr[2];
            out[1] = bgr[1];
            out[2] = bgr[0];
        }
    std::vector<unsigned char> png;
    if (!kel_png::EncodePng(rgb.data(), b.width, b.height, png)) return std::string();
    return std::string(png.begin(), png.end());
}

int Info(std::ostream& out, const std::string& photo, kelscan_cli::Format format) {
    using kelscan_cli::Value;
    CFCIMGBitmap full;
    if (const int rc = Load(full, photo, 1)) return rc;
    CFCIMGBitmap rated;
    rated.SetRate_Res(1, 1);
    if (const int rc = Load(rated, photo, 0)) return rc;
    kel_text::CKelString path = kel_text::Utf8ToWide(photo.c_str());
    BITMAP bm;
    full.GetBitmap(&bm);
    kelscan_cli::Report r;
    r.Add("type", "", Value::Text(TypeName(full.GetFileTypeExt(path.GetString()))));
    r.Add("width", "px", Value::Int(full.GetImageWidth()));
    r.Add("height", "px", Value::Int(full.GetImageHeight()));
    r.Add("bits_per_pixel", "", Value::Int(bm.bmBitsPixel));
    r.Add("grey_scale", "", Value::Text(full.IsGrayScale() ? "yes" : "no"));
    r.Add("rate", "", Value::Int(rated.GetRate_Res()),
          " (shown " + std::to_string(rated.GetImageWidth()) + " x " +
              std::to_string(rated.GetImageHeight()) + ")");
    r.Add("bytes_needed", "", Value::Int(static_cast<long long>(GetScanningImageFileSize(path))));
    kelscan_cli::PrintReport(out, r, format);
    return 0;
}

struct ConvertArgs {
    std::string photo, output;
    int scale = 1;
};

int Convert(const ConvertArgs& a) {
    const bool png = EndsWithNoCase(a.output, ".png");
    if (!png && !EndsWithNoCase(a.output, ".bmp"))
        return Fail(a.output + ": the output must end in .bmp or .png");
    CFCIMGBitmap img;
    HBITMAP scaled = nullptr;
    if (a.scale == 1) {
        if (const int rc = Load(img, a.photo, 1)) return rc;
    } else {
        if (img.GetFileTypeExt(kel_text::Utf8ToWide(a.photo.c_str()).GetString()) !=
            SC_IMG_EXT_JPEG)
            return Fail("--scale " + std::to_string(a.scale) + " needs a JPEG photo");
        int rc = 0;
        scaled = DecodeAtScale(a.photo, a.scale, rc);
        if (scaled == nullptr) return rc;
    }
    const KelDib& b = scaled != nullptr ? *scaled : *img.GethBitmap();
    const std::string bytes = png ? PngFile(b) : BmpFile(b);
    const LONG w = b.width, h = b.height;
    DeleteObject(scaled);
    if (bytes.empty()) return Fail("cannot encode " + a.output);
    if (const int rc = kelscan_cli::WriteOutputStream(a.output, {a.photo}, [&](std::ostream& o) {
            return static_cast<bool>(
                o.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
        }))
        return rc;
    kelscan_cli::ReportStream(a.output) << a.output << ": " << w << " x " << h << '\n';
    return 0;
}

void Setup(CLI::App& app) {
    CLI::App* image = app.add_subcommand("image", "Photographs: BMP/DIB, PNG and JPEG");
    image->require_subcommand(1);

    static std::string infoPhoto;
    static kelscan_cli::Format infoFormat = kelscan_cli::Format::kText;
    CLI::App* info = image->add_subcommand(
        "info", "Type, size, the rate of resolution chosen for it and the bytes it needs");
    info->add_option("photo", infoPhoto, "BMP, DIB, PNG or JPEG file")->required();
    kelscan_cli::AddFormatOption(info, infoFormat);
    info->callback([]() { SetExit(Info(std::cout, infoPhoto, infoFormat)); });

    static ConvertArgs ca;
    CLI::App* convert =
        image->add_subcommand("convert", "Write the photo as a 24-bit BMP or a PNG");
    convert->add_option("photo", ca.photo, "BMP, DIB, PNG or JPEG file")->required();
    convert->add_option("-o,--output", ca.output, "Output file, .bmp or .png")->required();
    convert->add_option("--scale", ca.scale, "Decode a JPEG at 1/scale")
        ->check(CLI::IsMember({1, 2, 4, 8}))
        ->capture_default_str();
    convert->callback([]() { SetExit(Convert(ca)); });
}

int Demo(std::ostream& out, const std::string& dataDir) {
    const std::string photo = dataDir + "/photo.jpg";
    out << "photo.jpg as the bitmap holds it:\n";
    return Info(out, photo, kelscan_cli::Format::kText);
}

kelscan_cli::CommandRegistrar reg("image", &Setup);
kelscan_cli::DemoRegistrar demo(70, "The photograph", &Demo);

}  // namespace

int kelscan_cli::PhotoGrey(const KelDib& b, long x, long y) {
    BYTE bgr[3];
    kel_bitmap::PixelBgr(b, Row(b, static_cast<LONG>(y)), static_cast<LONG>(x), bgr);
    return (bgr[0] + bgr[1] + bgr[2] + 1) / 3;
}
