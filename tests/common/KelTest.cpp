#include "common/KelTest.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/File.h"
#include "platform/KelString.h"
#include "platform/Message.h"
#include "platform/Trace.h"

namespace kel_test {
namespace {

void CaptureTrace(void* context, int /*level*/, const wchar_t* line) {
    static_cast<KelFixture*>(context)->m_lines.push_back(kel_text::WideToUtf8(line));
}

int CaptureMessage(void* context, HWND /*owner*/, const wchar_t* text, const wchar_t* caption,
                   unsigned int style) {
    static_cast<KelFixture*>(context)->m_messages.push_back(
        kel_text::WideToUtf8(caption) + "|" + kel_text::WideToUtf8(text) + "|" +
        std::to_string(style));
    return 1;
}

}  // namespace

void KelFixture::SetUp() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "kelscan-test-XXXXXX").string();
    std::vector<char> buf(tmpl.begin(), tmpl.end());
    buf.push_back('\0');
    ASSERT_NE(mkdtemp(buf.data()), nullptr);
    m_root = buf.data();
    kel_platform::SetDeviceRoot(m_root.c_str());
    kel_trace::SetTraceSink(&CaptureTrace, this);
    kel_message::SetMessageSink(&CaptureMessage, this);
}

void KelFixture::TearDown() {
    kel_trace::SetTraceSink(nullptr, nullptr);
    kel_message::SetMessageSink(nullptr, nullptr);
    kel_platform::SetDeviceRoot(nullptr);
    kel_platform::SetFileFaultHook(nullptr, nullptr);
    std::error_code ec;
    std::filesystem::remove_all(m_root, ec);
}

void WriteFileBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

std::string ReadFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

}  // namespace kel_test
