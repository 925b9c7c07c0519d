#pragma once
// CCleverScanValues: the angular box and the spacing of a scan plan, instrument angles in
// degrees (H horizontal, V zenith angle).
#include "platform/Alloc.h"
#include "platform/Export.h"

class KELSCAN_API CCleverScanValues {
public:
    KEL_DECLARE_ALLOCATOR

    CCleverScanValues() = default;
    CCleverScanValues(const CCleverScanValues&) = default;
    CCleverScanValues& operator=(const CCleverScanValues&) = default;
    virtual ~CCleverScanValues();

    // Stores the scan box. unit == 1: the angles are decimal degrees and each is reduced into
    // [0, 360). Any other unit: they are packed DDD.MMSS, unpacked and NOT reduced.
    void SetSEVH(double startV, double startH, double endV, double endH, int unit);

    double m_dV = 0.0;      // vertical spacing, degrees, never negative
    double m_dH = 0.0;      // horizontal spacing, degrees, never negative
    double m_startV = 0.0;  // degrees
    double m_startH = 0.0;
    double m_endV = 0.0;  // may be moved by +-360 when a plan is computed (see the planners)
    double m_endH = 0.0;

protected:
    // Stores the spacing as absolute values, unpacking DDD.MMSS unless unit == 1 (the sign
    // is dropped before unpacking, so -0.3000 is 0.5 degrees).
    void StoreDVH(double dV, double dH, int unit);
};
