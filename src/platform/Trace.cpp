#include "platform/Trace.h"

#include <cstdarg>
#include <cstdio>
#include <string>

#include "platform/KelString.h"

namespace kel_trace {
namespace {

void StderrSink(void* /*context*/, int /*level*/, const wchar_t* line) {
    const std::string text = kel_text::WideToUtf8(line);
    std::fprintf(stderr, "%s\n", text.c_str());
}

TraceSink g_sink = &StderrSink;
void* g_context = nullptr;

}  // namespace

void SetTraceSink(TraceSink sink, void* context) {
    g_sink = sink != nullptr ? sink : &StderrSink;
    g_context = sink != nullptr ? context : nullptr;
}

void GetTraceSink(TraceSink* sink, void** context) {
    if (sink != nullptr) *sink = g_sink;
    if (context != nullptr) *context = g_context;
}

void TraceLine(int level, const wchar_t* format, ...) {
    if (format == nullptr) return;
    std::wstring line;
    va_list args;
    va_start(args, format);
    const bool ok = kel_text::detail::VFormat(line, format, args);
    va_end(args);
    if (!ok) line = format;  // an unformattable line is still worth seeing as written
    g_sink(g_context, level, line.c_str());
}

}  // namespace kel_trace
