#pragma once
// Test helpers: a fixture that captures trace lines and message boxes and points the device
// root at a fresh temporary folder, removed afterwards.
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace kel_test {

class KelFixture : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Captured KEL_TRACE_ALWAYS / LOGMESSAGE lines (UTF-8), in order.
    const std::vector<std::string>& Lines() const { return m_lines; }
    // Captured message boxes as "caption|text|style".
    const std::vector<std::string>& Messages() const { return m_messages; }
    void ClearLines() {
        m_lines.clear();
        m_messages.clear();
    }
    // The host path of the device root (no trailing slash).
    const std::string& Root() const { return m_root; }
    // Host path of a file under the root.
    std::string HostPath(const std::string& relative) const { return m_root + "/" + relative; }

public:
    // Filled by the capturing sinks.
    std::vector<std::string> m_lines;
    std::vector<std::string> m_messages;

private:
    std::string m_root;
};

// Writes / reads a whole file as bytes.
void WriteFileBytes(const std::string& path, const std::string& bytes);
std::string ReadFileBytes(const std::string& path);

}  // namespace kel_test
