#include "platform/Process.h"

#include <unistd.h>

namespace kel_platform {

long ProcessId() { return static_cast<long>(::getpid()); }

bool StderrIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

}  // namespace kel_platform
