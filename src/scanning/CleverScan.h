#pragma once
// The common pieces of both scan planners: the region polygon (CCleverScanCalc), the angular
// box and spacing (CCleverScanValues) and their join, the planners' base (CCleverScanBase).
#include "scanning/CleverScanBase.h"
#include "scanning/CleverScanCalc.h"
#include "scanning/CleverScanValues.h"
