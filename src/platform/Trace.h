#pragma once
// The one trace facility. Every failed check of a computing class writes exactly one line,
// "Class::Operation condition", through KEL_TRACE_ALWAYS; informational lines with a level go
// through LOGMESSAGE. Lines go to a sink that the host can replace (a function plus a context
// pointer); the default sink writes each line to stderr followed by a newline.
//
// Formats are wide and follow CKelStringT::Format (in a wide format %s is a wide string).
#include "platform/Export.h"

namespace kel_trace {

// Level of KEL_TRACE_ALWAYS lines. LOGMESSAGE lines carry the level their caller gives.
constexpr int kLevelAlways = 0;

// Receives one finished line (no trailing newline) and the context given to SetTraceSink.
typedef void (*TraceSink)(void* context, int level, const wchar_t* line);

// Installs a sink; a null sink restores the default (stderr).
KELSCAN_API void SetTraceSink(TraceSink sink, void* context);
KELSCAN_API void GetTraceSink(TraceSink* sink, void** context);

// Formats one line and hands it to the sink.
KELSCAN_API void TraceLine(int level, const wchar_t* format, ...);

}  // namespace kel_trace

#define KEL_TRACE_ALWAYS(...) ::kel_trace::TraceLine(::kel_trace::kLevelAlways, __VA_ARGS__)
#define LOGMESSAGE(level, ...) ::kel_trace::TraceLine((level), __VA_ARGS__)
