#include "imaging/FCIMGBitmap.h"

#include <new>

#include "imaging/BitmapFile.h"
#include "imaging/JpegInterface.h"
#include "imaging/PngFile.h"
#include "platform/DynLoad.h"
#include "platform/File.h"
#include "platform/Trace.h"

namespace {

const wchar_t* const kJpegModule = L"JPEG_LIB.dll";
const char* const kCreateEntry = "Create_JpegInterface_ExplicitLoading";
const char* const kDestroyEntry = "Destroy_JpegInterface_ExplicitLoading";
const char* const kFileSizeEntry = "getJPEGFileSize_ExplicitLoading";

// Level of the informational line naming each scale tried.
constexpr int kScaleLogLevel = 2;
// Scale denominators tried in turn when no rate is requested.
constexpr int kScaleDenoms[] = {1, 2, 4, 8};
// The requested rate by the larger image dimension m (pixels): 1 for m < 321, 2 for m < 801,
// 4 for m < 1025, else 8.
constexpr int kRateLimit1 = 321;
constexpr int kRateLimit2 = 801;
constexpr int kRateLimit4 = 1025;
constexpr int kGreyEntries = 256;

int RateForSize(int m) {
    if (m < kRateLimit1) return 1;
    if (m < kRateLimit2) return 2;
    if (m < kRateLimit4) return 4;
    return 8;
}

// The codec module loaded for one use: resolves Create and Destroy and creates the interface;
// holds none when the module or an entry point is missing (GetLibraryFunction has written the
// line). Releases the interface and the module when it ends.
class CJpegHolder {
public:
    CJpegHolder() {
        auto create = reinterpret_cast<PFN_CREATE_JPEG_INTERFACE>(
            GetLibraryFunction(kJpegModule, kCreateEntry, &m_module));
        if (create == nullptr) return;
        m_destroy = reinterpret_cast<PFN_DESTROY_JPEG_INTERFACE>(
            GetLibraryFunction(kJpegModule, kDestroyEntry, &m_module));
        if (m_destroy != nullptr) m_jpeg = create();
        if (m_jpeg == nullptr && m_destroy != nullptr)
            KEL_TRACE_ALWAYS(
                L"CJpegHolder::CJpegHolder Create_JpegInterface_ExplicitLoading() == NULL");
    }
    CJpegHolder(const CJpegHolder&) = delete;
    CJpegHolder& operator=(const CJpegHolder&) = delete;
    ~CJpegHolder() {
        if (m_jpeg != nullptr) m_destroy(m_jpeg);
        FreeLibraryFunction(m_module);
    }
    CJpegInterface* Get() const { return m_jpeg; }

private:
    HMODULE m_module = nullptr;
    PFN_DESTROY_JPEG_INTERFACE m_destroy = nullptr;
    CJpegInterface* m_jpeg = nullptr;
};

bool EndsWith(const kel_text::CKelString& s, const wchar_t* tail) {
    const kel_text::CKelString t(tail);
    return s.GetLength() >= t.GetLength() && s.Right(t.GetLength()) == t;
}

}  // namespace

CFCIMGBitmap::CFCIMGBitmap()
    : m_paletteSize(0),
      m_noImgFlg(0),
      m_noSetResRate(0),
      m_reserved(0),
      m_hPalette(nullptr),
      m_imageSizeInBytes(0),
      m_imageHeight(0),
      m_imageWidth(0),
      m_pPalEntries(nullptr),
      m_hBitmap(nullptr),
      m_rateRes(1),
      m_rateResSum(0),
      m_bitmap(),
      m_fixedRate(0) {}

CFCIMGBitmap::~CFCIMGBitmap() { Empty(); }

SC_IMG_ERRORS CFCIMGBitmap::LoadImgFile(const wchar_t* path, int noSetResRate) {
    m_fixedRate = 0;
    return Load(path, noSetResRate);
}

SC_IMG_ERRORS CFCIMGBitmap::LoadImgFileAtRate(const wchar_t* path, int rate) {
    if (rate != 1 && rate != 2 && rate != 4 && rate != 8) {
        KEL_TRACE_ALWAYS(
            L"CFCIMGBitmap::LoadImgFileAtRate rate != 1 && rate != 2 && rate != 4 && rate != 8");
        return SC_IMG_ERR_TYPE;
    }
    if (rate != 1 && GetFileTypeExt(path) != SC_IMG_EXT_JPEG) {
        KEL_TRACE_ALWAYS(
            L"CFCIMGBitmap::LoadImgFileAtRate rate != 1 && GetFileTypeExt(path) != "
            L"SC_IMG_EXT_JPEG");
        return SC_IMG_ERR_TYPE;
    }
    m_fixedRate = rate;
    return Load(path, rate == 1 ? 1 : 0);
}

SC_IMG_ERRORS CFCIMGBitmap::Load(const wchar_t* path, int noSetResRate) {
    try {
        m_imgFile = path != nullptr ? path : L"";
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::LoadImgFile CMemoryException");
        m_noImgFlg = 1;
        return SC_IMG_ERR_DECODE;
    }
    m_noSetResRate = noSetResRate;
    const SC_IMG_ERRORS rc = ReloadImgFile();
    m_noImgFlg = rc != SC_IMG_OK ? 1 : 0;
    return rc;
}

SC_IMG_ERRORS CFCIMGBitmap::ReloadImgFile() {
    m_imageSizeInBytes = 0;
    if (m_hBitmap != nullptr) {
        if (!DeleteObject(m_hBitmap)) {
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::ReloadImgFile DeleteObject(m_hBitmap) == FALSE");
            return SC_IMG_ERR_GDI;
        }
        m_hBitmap = nullptr;
        m_bitmap = BITMAP();
    }
    if (m_rateResSum == 0) m_rateRes = 1;
    const wchar_t* path = m_imgFile.GetString();
    switch (GetFileTypeExt(path)) {
        case SC_IMG_EXT_BMP:
            m_hBitmap = LoadBitmapFromFile(path);
            break;
        case SC_IMG_EXT_PNG:
            m_hBitmap = LoadPngFromFile(path);
            break;
        case SC_IMG_EXT_JPEG: {
            const SC_IMG_ERRORS rc = LoadJpeg(path);
            if (rc != SC_IMG_OK) return rc;
            break;
        }
        default:
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::ReloadImgFile GetFileTypeExt == SC_IMG_EXT_UNKNOWN");
            return SC_IMG_ERR_TYPE;
    }
    // A BMP or PNG that could not be read has already written its line.
    if (GetObjectW(m_hBitmap, static_cast<int>(sizeof(BITMAP)), &m_bitmap) == 0) {
        if (m_hBitmap != nullptr) {
            DeleteObject(m_hBitmap);
            m_hBitmap = nullptr;
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::ReloadImgFile GetObjectW == 0");
        }
        m_bitmap = BITMAP();
        return SC_IMG_ERR_GDI;
    }
    m_imageHeight = m_bitmap.bmHeight;
    m_imageWidth = m_bitmap.bmWidth;
    m_imageSizeInBytes = static_cast<unsigned int>(m_bitmap.bmWidthBytes) *
                         static_cast<unsigned int>(m_bitmap.bmHeight);
    if (!TakePalette()) {
        DeleteObject(m_hBitmap);
        m_hBitmap = nullptr;
        m_bitmap = BITMAP();
        return SC_IMG_ERR_GDI;
    }
    return SC_IMG_OK;
}

SC_IMG_EXT_TYPE CFCIMGBitmap::GetFileTypeExt(const wchar_t* path) const {
    kel_text::CKelString s(path != nullptr ? path : L"");
    s.MakeLower();
    if (EndsWith(s, L".jpg") || EndsWith(s, L".jpe") || EndsWith(s, L".jpeg") ||
        EndsWith(s, L".jfif"))
        return SC_IMG_EXT_JPEG;
    if (EndsWith(s, L".bmp") || EndsWith(s, L".dib")) return SC_IMG_EXT_BMP;
    if (EndsWith(s, L".png")) return SC_IMG_EXT_PNG;
    return SC_IMG_EXT_UNKNOWN;
}

// Without a requested rate and without forced full resolution, tries 1/1, 1/2, 1/4 and 1/8 in
// turn, each with a fresh interface, so that a photograph too large for the memory left is
// still shown, coarser. A requested rate picks the denominator from the image size; forced
// full resolution decodes at 1/1 only.
SC_IMG_ERRORS CFCIMGBitmap::LoadJpeg(const wchar_t* path) {
    const kel_text::CKelString host =
        kel_text::Utf8ToWide(kel_platform::MapDevicePath(path != nullptr ? path : L"").c_str());
    if (m_rateResSum == 0 && m_noSetResRate == 0 && m_fixedRate == 0) {
        for (const int d : kScaleDenoms) {
            m_rateRes = d;
            m_rateResSum = 0;
            LOGMESSAGE(kScaleLogLevel, L"************scaleDenom=%d", d);
            CJpegHolder jpeg;
            if (jpeg.Get() == nullptr) return SC_IMG_ERR_DECODE;
            if (!jpeg.Get()->Open(host.GetString())) {
                KEL_TRACE_ALWAYS(L"CFCIMGBitmap::LoadJpeg Open(path) == 0");
                return SC_IMG_ERR_OPEN;
            }
            if (jpeg.Get()->Decode(d, 0)) {
                m_hBitmap = jpeg.Get()->DetachBitmap();
                return SC_IMG_OK;
            }
        }
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::LoadJpeg Decode(scaleDenom, 0) == 0 for every scale");
        return SC_IMG_ERR_DECODE;
    }
    CJpegHolder jpeg;
    if (jpeg.Get() == nullptr) return SC_IMG_ERR_DECODE;
    if (!jpeg.Get()->Open(host.GetString())) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::LoadJpeg Open(path) == 0");
        return SC_IMG_ERR_OPEN;
    }
    int d = m_fixedRate > 0 ? m_fixedRate : 1;
    if (m_fixedRate == 0 && m_rateResSum != 0) {
        const int w = jpeg.Get()->GetWidth();
        const int h = jpeg.Get()->GetHeight();
        d = RateForSize(w > h ? w : h);
    }
    m_rateRes = d;
    m_rateResSum = 0;
    if (!jpeg.Get()->Decode(d, 0)) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::LoadJpeg Decode(scaleDenom, 0) == 0");
        return SC_IMG_ERR_DECODE;
    }
    m_hBitmap = jpeg.Get()->DetachBitmap();
    return SC_IMG_OK;
}

int CFCIMGBitmap::CopyRgb(unsigned char* rgb) const {
    if (m_hBitmap == nullptr) return 0;
    const KelDib& b = *m_hBitmap;
    for (LONG y = 0; y < b.height; ++y) {
        const BYTE* row =
            b.bits + static_cast<std::size_t>(y) * static_cast<std::size_t>(b.bytesPerLine);
        for (LONG x = 0; x < b.width; ++x, rgb += 3) {
            BYTE bgr[3];
            kel_bitmap::PixelBgr(b, row, x, bgr);
            rgb[0] = bgr[2];
            rgb[1] = bgr[1];
            rgb[2] = bgr[0];
        }
    }
    return 1;
}

unsigned long CFCIMGBitmap::GetImgFileSize(kel_text::CKelString& path) const {
    switch (GetFileTypeExt(path.GetString())) {
        case SC_IMG_EXT_BMP:
            return GetBitmapFileSizeFromFile(path.GetString());
        case SC_IMG_EXT_JPEG:
            return GetJPEGFileSize(path);
        case SC_IMG_EXT_PNG:
            return GetPngFileSizeFromFile(path.GetString());
        default:
            return 0;
    }
}

unsigned long CFCIMGBitmap::GetJPEGFileSize(kel_text::CKelString& path) const {
    HMODULE module = nullptr;
    auto fileSize = reinterpret_cast<PFN_GET_JPEG_FILE_SIZE>(
        GetLibraryFunction(kJpegModule, kFileSizeEntry, &module));
    if (fileSize == nullptr) return 0;
    unsigned long size = 0;
    try {
        const kel_text::CKelString host =
            kel_text::Utf8ToWide(kel_platform::MapDevicePath(path.GetString()).c_str());
        size = fileSize(host.GetString());
    } catch (const std::bad_alloc&) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::GetJPEGFileSize CMemoryException");
    }
    FreeLibraryFunction(module);
    return size;
}

int CFCIMGBitmap::Create(int bitsPerPixel, int colours, int grey) {
    Empty();
    int n = 0;
    switch (bitsPerPixel) {
        case 1:
            n = 2;
            break;
        case 4:
            n = 16;
            break;
        case 8:
            n = grey ? kGreyEntries : (colours < 0 ? 0 : (colours > 256 ? 256 : colours));
            break;
        case 16:
        case 24:
        case 32:
            n = 0;
            break;
        default:
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::Create bitsPerPixel not 1, 4, 8, 16, 24 or 32");
            return 0;
    }
    if (n > 0) {
        m_pPalEntries = new (std::nothrow) RGBQUAD[n]();
        if (m_pPalEntries == nullptr) {
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::Create CMemoryException");
            return 0;
        }
        m_paletteSize = n;
        if (bitsPerPixel == 8 && grey)
            for (int i = 0; i < n; ++i) {
                const BYTE v = static_cast<BYTE>(i);
                m_pPalEntries[i] = RGBQUAD{v, v, v, 0};
            }
        if (!MakePalette()) return 0;
    }
    if (m_imageWidth > 0 && m_imageHeight > 0) {
        m_hBitmap =
            kel_bitmap::NewDib(m_imageWidth, m_imageHeight, bitsPerPixel, static_cast<DWORD>(n));
        if (m_hBitmap == nullptr) {
            KEL_TRACE_ALWAYS(L"CFCIMGBitmap::Create NewDib == NULL");
            return 0;
        }
        for (int i = 0; i < n; ++i) m_hBitmap->palette[i] = m_pPalEntries[i];
        GetObjectW(m_hBitmap, static_cast<int>(sizeof(BITMAP)), &m_bitmap);
        m_imageSizeInBytes = static_cast<unsigned int>(m_bitmap.bmWidthBytes) *
                             static_cast<unsigned int>(m_bitmap.bmHeight);
    }
    return 1;
}

int CFCIMGBitmap::MakePalette() {
    if (m_paletteSize == 0) return 1;
    if (m_pPalEntries == nullptr || m_paletteSize < 0 || m_paletteSize > 256) {
        KEL_TRACE_ALWAYS(
            L"CFCIMGBitmap::MakePalette m_pPalEntries == NULL || m_paletteSize out of range");
        return 0;
    }
    if (m_hPalette != nullptr) DeleteObject(m_hPalette);
    m_hPalette = CreatePalette(m_pPalEntries, m_paletteSize);
    if (m_hPalette == nullptr) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::MakePalette CreatePalette == NULL");
        return 0;
    }
    return 1;
}

int CFCIMGBitmap::IsGrayScale() {
    if (m_hBitmap == nullptr || m_pPalEntries == nullptr || m_paletteSize != kGreyEntries) return 0;
    for (int i = 0; i < kGreyEntries; ++i) {
        const RGBQUAD& e = m_pPalEntries[i];
        if (e.rgbRed != i || e.rgbGreen != i || e.rgbBlue != i) return 0;
    }
    return 1;
}

void CFCIMGBitmap::Empty() {
    if (m_hPalette != nullptr) DeleteObject(m_hPalette);
    if (m_hBitmap != nullptr) DeleteObject(m_hBitmap);
    delete[] m_pPalEntries;
    m_pPalEntries = nullptr;
    m_paletteSize = 0;
    m_reserved = 0;
    m_hPalette = nullptr;
    m_hBitmap = nullptr;
    m_bitmap = BITMAP();
}

int CFCIMGBitmap::TakePalette() {
    if (m_hPalette != nullptr) DeleteObject(m_hPalette);
    m_hPalette = nullptr;
    delete[] m_pPalEntries;
    m_pPalEntries = nullptr;
    m_paletteSize = 0;
    const int n = static_cast<int>(m_hBitmap->paletteSize);
    if (n == 0) return 1;
    m_pPalEntries = new (std::nothrow) RGBQUAD[n];
    if (m_pPalEntries == nullptr) {
        KEL_TRACE_ALWAYS(L"CFCIMGBitmap::ReloadImgFile CMemoryException");
        return 0;
    }
    for (int i = 0; i < n; ++i) m_pPalEntries[i] = m_hBitmap->palette[i];
    m_paletteSize = n;
    return MakePalette();
}

unsigned long GetScanningImageFileSize(kel_text::CKelString& path) {
    CFCIMGBitmap bitmap;
    return bitmap.GetImgFileSize(path);
}
