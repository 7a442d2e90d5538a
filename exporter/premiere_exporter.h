// One exporter instance: the host suites it holds from begin instance to end instance, and its settings.
#pragma once

#include <string>

#include "exporter/export_settings.h"
#include "prsdk/prsdk.h"

namespace QVN {

// Thrown when the host refuses something while an instance is being made; the entry point turns it into
// the internal-error result. The function, file and line are for a debugger, never shown to the user.
struct PrSDKException {
    prsdk::int32 result;
    std::string function;
    std::string file;
    prsdk::int32 line;
};

class PremiereExporter {
public:
    // Throws PrSDKException when the broker is missing or refuses a suite; suites acquired before the
    // refusal stay acquired (the host tears them down with the plug-in).
    PremiereExporter(prsdk::uint32 pluginId, prsdk::exportStdParms* stdParms);
    virtual ~PremiereExporter() = default;
    PremiereExporter(const PremiereExporter&) = delete;
    PremiereExporter& operator=(const PremiereExporter&) = delete;

    // Releases every acquired suite with the version it was acquired with.
    void ReleaseSuites(prsdk::exportStdParms* stdParms);

    prsdk::uint32 pluginId;
    prsdk::ExportParamSuite* paramSuite = nullptr;
    prsdk::ExportInfoSuite* infoSuite = nullptr;
    prsdk::ExportFileSuite* fileSuite = nullptr;
    prsdk::PPixSuite* ppixSuite = nullptr;
    prsdk::TimeSuite* timeSuite = nullptr;
    prsdk::MemoryManagerSuite* memorySuite = nullptr;
    prsdk::WindowSuite* windowSuite = nullptr;
    ExportSettings settings;
};

} // namespace QVN
