// Numbers as text never follow the process locale: kel_num and CKelStringT::Format agree with
// the C library in the "C" locale and stay the same under a comma-decimal one.
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <limits>
#include <string>
#include <vector>

#include "common/CommaLocale.h"
#include "platform/KelString.h"
#include "platform/NumText.h"

using kel_text::CKelString;
using kel_text::CKelStringT;

namespace {

const double kInf = std::numeric_limits<double>::infinity();
const double kValues[] = {0.0,    -0.0,    1.5, -2.25, 1e-7, 123456.789,   0.1,  9.99995, 1e300,
                          5e-324, -1e-310, 0.5, 2.5,   1e15, std::nan(""), kInf, -kInf};
const char* const kFloatForms[] = {
    "%f",    "%.0f",    "%#.0f", "%12.3f", "%-12.3f|", "%+f",      "% f",      "%012.3f",
    "%F",    "%e",      "%.3E",  "%.0e",   "%#.0e",    "%10.2e",   "%+012.4e", "%g",
    "%G",    "%.10g",   "%#g",   "%#.3g",  "%.0g",     "%-+9.2g|", "%a",       "%.2a",
    "%#.0a", "%015.3a", "%lf",   "%.1le",  "%.17g",    "%08.3f"};

// The C library's text for one value, narrow and wide.
std::string CText(const char* form, double v) {
    char buf[512];
    std::snprintf(buf, sizeof buf, form, v);
    return buf;
}

CKelString Widen(const char* s) { return kel_text::Utf8ToWide(s); }

// Format of every form and value, narrow and wide (wide forms built from the narrow ones).
std::vector<std::string> FormatAll() {
    std::vector<std::string> out;
    for (const char* form : kFloatForms)
        for (double v : kValues) {
            CKelStringT<char> n;
            n.Format(form, v);
            CKelString w;
            w.Format(Widen(form), v);
            out.push_back(std::string(n.GetString()) + " / " + kel_text::WideToUtf8(w));
        }
    return out;
}

TEST(NumText, FormatWritesFloatsAsTheCLocaleDoesUnderAnyLocale) {
    // In the "C" locale the C library is the reference.
    std::vector<std::string> want;
    for (const char* form : kFloatForms)
        for (double v : kValues) want.push_back(CText(form, v) + " / " + CText(form, v));
    const std::vector<std::string> inC = FormatAll();
    EXPECT_EQ(inC, want);
    CKelStringT<char> n;
    n.Format("%*.*f|%-*d|%I64d|%Lf|%05.1f%%", 9, 2, 3.14159, -4, 7, 1LL << 40, 2.5L, -0.25);
    EXPECT_STREQ(n, "     3.14|7   |1099511627776|2.500000|-00.2%");  // -0.25 rounds to even
    n.Format("%d%n", 1, static_cast<int*>(nullptr));
    EXPECT_TRUE(n.IsEmpty());  // %n is refused, as on Windows

    KEL_UNDER_COMMA_LOCALE(comma);
    ASSERT_EQ(CText("%.1f", 1.5), "1,5");  // the C library does follow it
    EXPECT_EQ(FormatAll(), inC);
    EXPECT_EQ(kel_num::Fixed(1.5, 6), "1.500000");
    EXPECT_EQ(kel_num::Sci(-1.5e-5, 6), "-1.500000e-05");
    double v = 0.0;
    EXPECT_TRUE(kel_num::Parse("1.25", v));
    EXPECT_EQ(v, 1.25);
    EXPECT_FALSE(kel_num::Parse("1,25", v));
}

}  // namespace
