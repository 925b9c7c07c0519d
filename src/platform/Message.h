#pragma once
// The host's modal message box, replaced by a message sink. The default sink writes one line
// "caption: text" to stderr; a host installs its own to show a real box, and tests install a
// capturing one.
#include "platform/Export.h"
#include "platform/Types.h"

// Style bit of the information icon.
constexpr unsigned int MB_ICONINFORMATION_STYLE = 64;

// Extra parameters of a message box (kept for the host's signature; nothing here reads them).
struct MBPARAMS {
    int nTimeoutMs = 0;
    int nDefaultButton = 0;
};

namespace kel_message {
typedef int (*MessageSink)(void* context, HWND owner, const wchar_t* text,
                           const wchar_t* caption, unsigned int style);
// Installs a sink; a null sink restores the default (stderr).
KELSCAN_API void SetMessageSink(MessageSink sink, void* context);
}  // namespace kel_message

// Shows a message through the current sink and returns the sink's answer (the default sink
// returns 1, "OK"). owner may be null.
KELSCAN_API int MessagePopup(HWND owner, const wchar_t* text, const wchar_t* caption,
                             unsigned int style, const MBPARAMS& params);
