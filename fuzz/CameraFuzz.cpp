// The camera file reader over arbitrary bytes; a camera that reads is written and read again.
#include <cstdint>

#include "FuzzFiles.h"
#include "photogrammetry/Camera.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\fuzz.cam", data, size);
    CCamera cam;
    if (cam.Read(L"\\fuzz.cam") == 1 && cam.Write(L"\\again.cam") == 1) {
        CCamera again(cam);
        again.Read(L"\\again.cam");
    }
    cam.GetLastReadLine();
    return 0;
}
