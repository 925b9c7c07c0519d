#include "geometry/FileName.h"

int EditFileName(const wchar_t* path, kel_text::CKelString& name) {
    kel_text::CKelString s(path);
    const int back = s.ReverseFind(L'\\');
    const int fwd = s.ReverseFind(L'/');
    s = s.Mid((back > fwd ? back : fwd) + 1);
    const int dot = s.ReverseFind(L'.');
    name = dot >= 0 ? s.Left(dot) : s;
    return 1;
}
