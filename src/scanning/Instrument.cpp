#include "scanning/Instrument.h"

CInstrument::~CInstrument() = default;
