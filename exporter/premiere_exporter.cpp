#include "exporter/premiere_exporter.h"

#include "exporter/suite_access.h"

#include <cstring>

namespace QVN {
namespace {

constexpr const char* kFunction = "PremiereExporter::PremiereExporter";
constexpr const char* kSourceFile = ".\\exporter.cpp";

// The line each refusal reports, so that a support engineer with a debugger can tell the suites apart.
constexpr prsdk::int32 kLineNoBroker = 32;

template <class Suite>
void Acquire(prsdk::SPBasicSuite* broker, const char* name, prsdk::int32 version, Suite*& out,
             prsdk::int32 line) {
    if (!AcquireSuite(broker, name, version, out))
        throw PrSDKException{3, kFunction, kSourceFile, line};
}

} // namespace

PremiereExporter::PremiereExporter(prsdk::uint32 id, prsdk::exportStdParms* stdParms) : pluginId(id) {
    std::memset(&settings, 0, sizeof settings);
    settings.pluginId = id;
    prsdk::SPBasicSuite* broker =
        stdParms && stdParms->getSPBasicSuite ? stdParms->getSPBasicSuite() : nullptr;
    if (!broker)
        throw PrSDKException{3, kFunction, kSourceFile, kLineNoBroker};
    Acquire(broker, prsdk::kExportParamSuite, prsdk::kExportParamSuiteVersion, paramSuite, 38);
    Acquire(broker, prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, fileSuite, 44);
    Acquire(broker, prsdk::kExportInfoSuite, prsdk::kExportInfoSuiteVersion, infoSuite, 50);
    Acquire(broker, prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, ppixSuite, 56);
    Acquire(broker, prsdk::kTimeSuite, prsdk::kTimeSuiteVersion, timeSuite, 62);
    Acquire(broker, prsdk::kMemoryManagerSuite, prsdk::kMemoryManagerSuiteVersion, memorySuite, 68);
    Acquire(broker, prsdk::kWindowSuite, prsdk::kWindowSuiteVersion, windowSuite, 74);
}

void PremiereExporter::ReleaseSuites(prsdk::exportStdParms* stdParms) {
    prsdk::SPBasicSuite* broker =
        stdParms && stdParms->getSPBasicSuite ? stdParms->getSPBasicSuite() : nullptr;
    if (!broker)
        return;
    ReleaseSuite(broker, prsdk::kExportParamSuite, prsdk::kExportParamSuiteVersion, paramSuite);
    ReleaseSuite(broker, prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, fileSuite);
    ReleaseSuite(broker, prsdk::kExportInfoSuite, prsdk::kExportInfoSuiteVersion, infoSuite);
    ReleaseSuite(broker, prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, ppixSuite);
    ReleaseSuite(broker, prsdk::kTimeSuite, prsdk::kTimeSuiteVersion, timeSuite);
    ReleaseSuite(broker, prsdk::kMemoryManagerSuite, prsdk::kMemoryManagerSuiteVersion, memorySuite);
    ReleaseSuite(broker, prsdk::kWindowSuite, prsdk::kWindowSuiteVersion, windowSuite);
}

} // namespace QVN
