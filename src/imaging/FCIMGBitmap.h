#pragma once
// The photograph of a scan held as a bitmap of the portable graphics layer (platform/Bitmap.h),
// loaded from a BMP/DIB or PNG file (imaging/PngFile.h) or decoded from a JPEG file by the run-time
// loaded codec module "JPEG_LIB.dll" (imaging/JpegInterface.h). A large JPEG may be decoded at 1/2,
// 1/4 or 1/8 of its size; the rate of resolution (GetRate_Res) is that denominator, and image views
// multiply displayed pixel coordinates by it to get full-resolution ones.
#include "platform/Alloc.h"
#include "platform/Bitmap.h"
#include "platform/Export.h"
#include "platform/KelString.h"

// PNG files load as BMP files do (at full resolution, rate 1), and an unreadable one gives
// SC_IMG_ERR_GDI too.
enum SC_IMG_EXT_TYPE {
    SC_IMG_EXT_UNKNOWN = 0,
    SC_IMG_EXT_BMP = 1,
    SC_IMG_EXT_JPEG = 2,
    SC_IMG_EXT_PNG = 3
};

enum SC_IMG_ERRORS {
    SC_IMG_OK = 0,
    SC_IMG_ERR_OPEN = 1,       // the codec could not open the file
    SC_IMG_ERR_TOO_LARGE = 2,  // kept for the host; no path here returns it
    SC_IMG_ERR_TYPE = 4,       // unknown extension
    SC_IMG_ERR_DECODE = 5,     // codec module missing, or no scale decoded
    SC_IMG_ERR_GDI = 6         // old bitmap not released, or the new one not described
};

class KELSCAN_API CFCIMGBitmap {
public:
    KEL_DECLARE_ALLOCATOR

    CFCIMGBitmap();
    CFCIMGBitmap(const CFCIMGBitmap&) = delete;
    CFCIMGBitmap& operator=(const CFCIMGBitmap&) = delete;
    virtual ~CFCIMGBitmap();

    // Stores the path (a device path) and the full-resolution flag, loads the file, sets the
    // no-image flag to (result != 0) and returns the result.
    SC_IMG_ERRORS LoadImgFile(const wchar_t* path, int noSetResRate);
    // Loads the file at the rate of resolution `rate` (1, 2, 4 or 8): a JPEG decoded at 1/rate
    // of its size, a BMP or PNG at rate 1 only; another rate gives SC_IMG_ERR_TYPE after one
    // trace line (nothing else changes). ReloadImgFile keeps the rate until the next load.
    SC_IMG_ERRORS LoadImgFileAtRate(const wchar_t* path, int rate);
    // Loads the stored path again. Releases the old bitmap first; a failed reload leaves none.
    // An unreadable BMP or PNG gives SC_IMG_ERR_GDI (the bitmap cannot be described).
    SC_IMG_ERRORS ReloadImgFile();
    // By extension, ignoring case: ".jpg", ".jpe", ".jpeg", ".jfif" -> JPEG; ".bmp", ".dib" ->
    // BMP; ".png" -> PNG; else unknown.
    SC_IMG_EXT_TYPE GetFileTypeExt(const wchar_t* path) const;
    // Decodes a JPEG through the codec module and chooses the rate (see the .cpp).
    SC_IMG_ERRORS LoadJpeg(const wchar_t* path);

    // Bytes that the image of the file will need once loaded (at full resolution); 0 for an
    // unknown type, an unreadable file or a missing codec module.
    unsigned long GetImgFileSize(kel_text::CKelString& path) const;
    unsigned long GetJPEGFileSize(kel_text::CKelString& path) const;

    // Empties, then sets up an image of bitsPerPixel (1, 4, 8, 16, 24, 32) and its palette:
    // 2 entries for 1 bit, 16 for 4 bits, for 8 bits 256 when grey is set (the grey ramp, entry
    // i = (i, i, i)) else min(colours, 256); none above 8 bits. Entries other than the grey ramp
    // start black. When an image size is known (a file was loaded), a blank bitmap of that size
    // is made too. Returns 1, or 0 after one trace line.
    int Create(int bitsPerPixel, int colours, int grey);
    // Builds the palette handle from the palette entries; 1, or 0 after one trace line. Nothing
    // to build (palette size 0) is a success.
    int MakePalette();
    // 1 when a bitmap exists with a 256-entry palette whose entry i is (i, i, i); else 0.
    int IsGrayScale();
    // Releases palette and bitmap, frees the palette entries, zeroes sizes and handles.
    void Empty();

    const kel_text::CKelString& GetImgfile() const { return m_imgFile; }
    void SetNoImgFlg(int flag) { m_noImgFlg = flag; }
    int GetNoImgFlg() const { return m_noImgFlg; }
    void SetNoSetResRate(int flag) { m_noSetResRate = flag; }
    int GetNoSetResRate() const { return m_noSetResRate; }
    unsigned int GetImageSizeInBytes() const { return m_imageSizeInBytes; }
    int GetImageHeight() const { return m_imageHeight; }
    int GetImageWidth() const { return m_imageWidth; }
    HBITMAP GethBitmap() const { return m_hBitmap; }
    HPALETTE GethPalette() const { return m_hPalette; }
    int GetPaletteSize() const { return m_paletteSize; }
    RGBQUAD* GetPaletteEntries() const { return m_pPalEntries; }
    int GetRate_Res() const { return m_rateRes; }
    int GetRate_ResSum() const { return m_rateResSum; }
    void SetRate_Res(int rate, int rateSum) {
        m_rateRes = rate;
        m_rateResSum = rateSum;
    }
    // The loaded bitmap as 8-bit red, green, blue triples, rows from the top: 3 x width x
    // height bytes into rgb (palette entries looked up, 5-bit channels of 16-bit pixels
    // widened). 1, or 0 without a bitmap (rgb untouched).
    int CopyRgb(unsigned char* rgb) const;
    // Copies the bitmap description record filled after loading.
    void GetBitmap(BITMAP* bm) const {
        if (bm != nullptr) *bm = m_bitmap;
    }

private:
    // Copies the palette of the loaded bitmap into the entries and builds the handle.
    int TakePalette();
    // LoadImgFile's work, with the rate m_fixedRate set by the caller (0: none).
    SC_IMG_ERRORS Load(const wchar_t* path, int noSetResRate);

    int m_paletteSize;
    kel_text::CKelString m_imgFile;
    int m_noImgFlg;
    int m_noSetResRate;
    int m_reserved;
    HPALETTE m_hPalette;
    unsigned int m_imageSizeInBytes;
    int m_imageHeight;
    int m_imageWidth;
    RGBQUAD* m_pPalEntries;
    HBITMAP m_hBitmap;
    int m_rateRes;
    int m_rateResSum;
    BITMAP m_bitmap;
    int m_fixedRate;  // the rate LoadImgFileAtRate asked for, 0 for none
};

// Bytes that the image at path will need (a temporary CFCIMGBitmap's GetImgFileSize).
KELSCAN_API unsigned long GetScanningImageFileSize(kel_text::CKelString& path);
