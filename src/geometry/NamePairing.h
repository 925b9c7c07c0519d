#pragma once
// Pairing of two named point lists, shared by the Helmert fit, the DLT and the single-image
// orientation: each point of `first` is matched with the first point of `second` whose name
// compares equal (exact, case-sensitive), and the pair goes to the next free slot of
// `outFirst` / `outSecond` (same index = same name). Points of `first` without a match are
// skipped; several points of `first` with the same name may all match the same point of
// `second`; points of `second` that match nothing are dropped.
#include "geometry/KelArray.h"
#include "geometry/XYZ.h"
#include "platform/Export.h"

namespace kel_geom {

// Returns the number of pairs k; both output lists hold exactly k points afterwards.
// `outFirst` / `outSecond` may not alias the inputs.
KELSCAN_API int PairPointsByName(const kel_templ::CKelArray<CXYZ, CXYZ&>& first,
                                 const kel_templ::CKelArray<CXYZ, CXYZ&>& second,
                                 kel_templ::CKelArray<CXYZ, CXYZ&>& outFirst,
                                 kel_templ::CKelArray<CXYZ, CXYZ&>& outSecond);

}  // namespace kel_geom
