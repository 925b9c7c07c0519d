#include "geometry/NamePairing.h"

namespace kel_geom {

int PairPointsByName(const kel_templ::CKelArray<CXYZ, CXYZ&>& first,
                     const kel_templ::CKelArray<CXYZ, CXYZ&>& second,
                     kel_templ::CKelArray<CXYZ, CXYZ&>& outFirst,
                     kel_templ::CKelArray<CXYZ, CXYZ&>& outSecond) {
    outFirst.SetSize(first.GetSize());
    outSecond.SetSize(second.GetSize());
    int k = 0;
    for (int i = 0; i < first.GetSize(); ++i) {
        const CXYZ& target = first[i];
        for (int j = 0; j < second.GetSize(); ++j) {
            if (target.m_name.Compare(second[j].m_name) != 0) continue;
            // k < min(first, second) sizes, as each match uses one target and at most one
            // slot per target; the source list is sized to `second`, so guard both.
            if (k >= outSecond.GetSize()) outSecond.SetSize(k + 1);
            outFirst[k] = target;
            outSecond[k] = second[j];
            ++k;
            break;
        }
    }
    outFirst.SetSize(k);
    outSecond.SetSize(k);
    return k;
}

}  // namespace kel_geom
