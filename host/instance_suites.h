// The suites every exporter instance acquires, as the simulated host provides them: export param, export
// file, export info, PPix, time, memory manager and window.
#pragma once

#include "host/sequence.h"
#include "prsdk/prsdk.h"

namespace qvnhost {

// The sequence the suites describe; set it before begin instance.
SequenceInfo& CurrentSequence();

// Offers the seven instance suites through the broker.
void RegisterInstanceSuites();

// The parameter suite lives in its own file, with the parameter store behind it.
const prsdk::ExportParamSuite* ExportParamSuiteTable();

} // namespace qvnhost
