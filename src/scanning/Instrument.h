#pragma once
// CInstrument: what a scan needs from a total station, and SInstrumentShot, one measurement.
// A driver of a real instrument and the simulator (CSimInstrument) sit behind it; the scan
// runner (CScanRunner) drives it.
//
// Frames and units: directions are instrument angles in degrees, H the horizontal circle
// reading (any value is accepted and taken modulo 360; a planner may hand out e.g. 370), V the
// zenith angle (0 up, 90 level); the line of sight starts at the telescope's axis point
// (station + instrument height). Measured points are in the surveying frame (x north, y east,
// z height, metres). Time is the instrument's own clock, seconds.
//
// A fine scan: BeginFine once, then per target TurnTo and Measure. A tracking line is driven
// as timed shots: BeginSweep turns to the line's start and sets the telescope rotating
// towards its end at a rate; each SweepShot waits until the telescope passes the given H and
// measures there; EndSweep lets the line run out to its end. The runner names each H of a
// line itself, so a line resumed in its middle measures the very directions it would have.
//
// Results: 1 for success, 0 when the instrument failed (a driver writes one trace line). A
// sight that meets nothing is not a failure: it is a shot with hit 0.
#include "geometry/XYZ.h"
#include "platform/Alloc.h"
#include "platform/Export.h"

struct SInstrumentShot {
    double h = 0.0;        // horizontal circle reading as measured, degrees, [0, 360)
    double v = 0.0;        // zenith angle as measured, degrees
    double slope = 0.0;    // slope distance from the axis point, metres; 0 for a miss
    int hit = 0;           // 1: a point was measured; 0: no return
    CXYZ point;            // the measured point, surveying frame; (0, 0, 0) for a miss
    double seconds = 0.0;  // instrument time since the end of the previous call, seconds
};

class KELSCAN_API CInstrument {
public:
    KEL_DECLARE_ALLOCATOR

    CInstrument() = default;
    CInstrument(const CInstrument&) = default;
    CInstrument& operator=(const CInstrument&) = default;
    virtual ~CInstrument();

    // Prepares a fine scan of nTargets single shots. fresh = 1 for a new scan (the instrument
    // sets up, which takes its time), 0 for a scan continued after an interruption.
    virtual int BeginFine(int nTargets, int fresh) = 0;
    // Turns the telescope to (h, v). Its time is counted in the next shot's seconds.
    virtual int TurnTo(double h, double v) = 0;
    // Measures along the current direction into shot.
    virtual int Measure(SInstrumentShot& shot) = 0;

    // Starts a tracking line at zenith angle v: turns to hFrom and rotates towards hTo at
    // degPerSec (> 0), H rising when hTo > hFrom and falling otherwise.
    virtual int BeginSweep(double v, double hFrom, double hTo, double degPerSec) = 0;
    // Measures when the telescope passes h, which lies between hFrom and hTo and not behind
    // the previous shot of the line.
    virtual int SweepShot(double h, SInstrumentShot& shot) = 0;
    // Ends the line when the telescope reaches hTo.
    virtual int EndSweep() = 0;

    // The instrument's clock, seconds.
    virtual double Clock() const = 0;
};
