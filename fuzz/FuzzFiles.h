#pragma once
// Shared by the file-reader fuzz targets: a private device root, silenced traces and messages,
// and the input written as a file the readers open by device path.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "platform/File.h"
#include "platform/Message.h"
#include "platform/Trace.h"

namespace kel_fuzz {

inline void Quiet(void*, int, const wchar_t*) {}
inline int QuietBox(void*, HWND, const wchar_t*, const wchar_t*, unsigned int) { return 1; }

// Once per process: a fresh device root under the temporary folder, with a "temp" folder.
inline void Init() {
    static bool done = false;
    if (done) return;
    done = true;
    char dir[] = "/tmp/kelscan-fuzz-XXXXXX";
    if (mkdtemp(dir) == nullptr) std::abort();
    static std::string root = dir;
    std::atexit([]() {
        std::error_code ec;
        std::filesystem::remove_all(root, ec);
    });
    kel_platform::SetDeviceRoot(root.c_str());
    CreateDirectoryW(L"\\temp", nullptr);
    kel_trace::SetTraceSink(&Quiet, nullptr);
    kel_message::SetMessageSink(&QuietBox, nullptr);
}

// Writes the input as the file at a device path.
inline void WriteInput(const wchar_t* path, const std::uint8_t* data, std::size_t size) {
    CFile f;
    if (!f.Open(path, CFile::modeCreate | CFile::modeWrite)) std::abort();
    if (size > 0) f.Write(data, static_cast<UINT>(size));
    f.Close();
}

}  // namespace kel_fuzz
