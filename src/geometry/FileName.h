#pragma once
// File-name helper shared by the camera, the project and the point files.
#include "platform/Export.h"
#include "platform/KelString.h"

// The file name of path without its folder (after the last backslash or slash) and without its
// extension (from the last dot of the file name on). Always 1.
KELSCAN_API int EditFileName(const wchar_t* path, kel_text::CKelString& name);
