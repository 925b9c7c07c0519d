#include "platform/Message.h"

#include <cstdio>
#include <string>

#include "platform/KelString.h"

namespace kel_message {
namespace {

int StderrSink(void* /*context*/, HWND /*owner*/, const wchar_t* text, const wchar_t* caption,
               unsigned int /*style*/) {
    const std::string c = kel_text::WideToUtf8(caption);
    const std::string t = kel_text::WideToUtf8(text);
    std::fprintf(stderr, "%s: %s\n", c.c_str(), t.c_str());
    return 1;
}

MessageSink g_sink = &StderrSink;
void* g_context = nullptr;

}  // namespace

void SetMessageSink(MessageSink sink, void* context) {
    g_sink = sink != nullptr ? sink : &StderrSink;
    g_context = sink != nullptr ? context : nullptr;
}

}  // namespace kel_message

int MessagePopup(HWND owner, const wchar_t* text, const wchar_t* caption, unsigned int style,
                 const MBPARAMS& /*params*/) {
    return kel_message::g_sink(kel_message::g_context, owner, text != nullptr ? text : L"",
                               caption != nullptr ? caption : L"", style);
}
