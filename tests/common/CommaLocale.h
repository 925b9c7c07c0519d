#pragma once
// Runs a test under a comma-decimal locale (LC_ALL, so printf would write "1,5"), restoring the
// "C" locale afterwards. Where no such locale is installed the test is skipped with the reason.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdio>
#include <cstring>

namespace kel_test {

class CommaLocale {
public:
    CommaLocale() {
        for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "de_DE"}) {
            if (std::setlocale(LC_ALL, name) == nullptr) continue;
            char probe[16];
            std::snprintf(probe, sizeof probe, "%.1f", 1.5);
            if (std::strcmp(probe, "1,5") == 0) {
                m_name = name;
                return;
            }
        }
        std::setlocale(LC_ALL, "C");
    }
    ~CommaLocale() { std::setlocale(LC_ALL, "C"); }
    CommaLocale(const CommaLocale&) = delete;
    CommaLocale& operator=(const CommaLocale&) = delete;
    // The locale in force, or null when none with a decimal comma exists here.
    const char* Name() const { return m_name; }

private:
    const char* m_name = nullptr;
};

}  // namespace kel_test

// Enters a comma-decimal locale for the rest of the scope, or skips the test.
#define KEL_UNDER_COMMA_LOCALE(var)                                                    \
    kel_test::CommaLocale var;                                                         \
    if (var.Name() == nullptr)                                                         \
    GTEST_SKIP() << "no comma-decimal locale is installed (generate de_DE.UTF-8 with " \
                    "localedef or locale-gen)"
