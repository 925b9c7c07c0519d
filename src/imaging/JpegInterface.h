#pragma once
// The interface object of the run-time loaded JPEG codec module "JPEG_LIB.dll" and the types of
// its three entry points. The module implements the class; the library only calls it through
// its table of virtual functions, so the order of the functions below is part of the module's
// binary interface and must not change.
//
// Paths given to the module are HOST paths (the device path already mapped).
#include "platform/Bitmap.h"

class CJpegInterface {
public:
    // Opens the file and reads its header; nonzero on success.
    virtual int Open(const wchar_t* hostPath) = 0;
    // Dimensions of the opened image at full resolution (pixels); 0 before a successful Open.
    virtual int GetWidth() const = 0;
    virtual int GetHeight() const = 0;
    // Decodes the opened image at 1/scaleDenom (1, 2, 4 or 8) of its size; flags must be 0.
    // Nonzero on success. A grey image gives 8 bits per pixel with a grey ramp palette, any
    // other 24 bits per pixel.
    virtual int Decode(int scaleDenom, int flags) = 0;
    // Hands over the decoded bitmap: the caller owns it (DeleteObject) and the interface holds
    // none afterwards. Null when nothing was decoded.
    virtual HBITMAP DetachBitmap() = 0;

protected:
    // Destroyed only through the module's "Destroy_JpegInterface_ExplicitLoading".
    virtual ~CJpegInterface() {}
};

// "Create_JpegInterface_ExplicitLoading": a new interface object, or null.
typedef CJpegInterface* (*PFN_CREATE_JPEG_INTERFACE)();
// "Destroy_JpegInterface_ExplicitLoading": releases an interface object and any bitmap it holds.
typedef void (*PFN_DESTROY_JPEG_INTERFACE)(CJpegInterface* jpeg);
// "getJPEGFileSize_ExplicitLoading": bytes of the bitmap that decoding the file at full
// resolution makes (header, palette and pixels as kel_bitmap::DibBytes counts them), 0 when the
// file is no readable JPEG.
typedef unsigned long (*PFN_GET_JPEG_FILE_SIZE)(const wchar_t* hostPath);
