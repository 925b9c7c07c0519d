#pragma once
// The running process as the program sees it: its identifier (for scratch folder names) and
// whether a standard stream is an interactive terminal (progress lines are drawn only there).
#include "platform/Export.h"

namespace kel_platform {

// The host's process identifier.
KELSCAN_API long ProcessId();
// True when the standard error stream is a terminal.
KELSCAN_API bool StderrIsTerminal();

}  // namespace kel_platform
