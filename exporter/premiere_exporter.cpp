#include "exporter/premiere_exporter.h"

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
    const void* suite = nullptr;
    if (broker->AcquireSuite(name, version, &suite) != prsdk::kSPNoError)
        throw PrSDKException{3, kFunction, kSourceFile, line};
    out = static_cast<Suite*>(const_cast<void*>(suite));
}

template <class Suite>
void Release(prsdk::SPBasicSuite* broker, const char* name, prsdk::int32 version, Suite*& s) {
    if (s)
        broker->ReleaseSuite(name, version);
    s = nullptr;
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
    Release(broker, prsdk::kExportParamSuite, prsdk::kExportParamSuiteVersion, paramSuite);
    Release(broker, prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, fileSuite);
    Release(broker, prsdk::kExportInfoSuite, prsdk::kExportInfoSuiteVersion, infoSuite);
    Release(broker, prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, ppixSuite);
    Release(broker, prsdk::kTimeSuite, prsdk::kTimeSuiteVersion, timeSuite);
    Release(broker, prsdk::kMemoryManagerSuite, prsdk::kMemoryManagerSuiteVersion, memorySuite);
    Release(broker, prsdk::kWindowSuite, prsdk::kWindowSuiteVersion, windowSuite);
}

} // namespace QVN
