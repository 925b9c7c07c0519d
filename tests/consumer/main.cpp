// Uses the installed package: headers under include/kelscan, the exported target.
#include <cstdio>

#include "geometry/KelArray.h"
#include "platform/KelMath.h"
#include "platform/KelString.h"

int main() {
    kel_templ::CKelArray<double, double> a;
    a.Add(ModDeg360(-90.0, true));
    kel_text::CKelString s;
    s.Format(L"%.1lf", a[0]);
    return s == L"270.0" ? 0 : 1;
}
