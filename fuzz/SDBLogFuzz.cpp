// The scan log reader over arbitrary bytes: judge the log and read its header and point back.
#include <cstdint>

#include "FuzzFiles.h"
#include "storage/SDBLog.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kel_fuzz::Init();
    kel_fuzz::WriteInput(L"\\temp\\SDB.log", data, size);
    CSDBLog log;
    log.SetLogMode(1);
    if (log.Start() != 0) return 0;
    log.JudgeSDBLog();
    char name[64];
    char text[33];
    long dateTime[2];
    int value = 0;
    CSPoint pt;
    log.GetLogInfo(name, value, dateTime, pt, text);
    log.Stop();
    return 0;
}
