// The export selector: reads the settings once more from the parameters, then runs one LegacyCompiler.
#include "exporter/legacy_compiler.h"
#include "exporter/selectors.h"
#include "exporter/settings_params.h"
#include "exporter/source_info.h"
#include "platform/allocation_faults.h"

namespace QVN {
namespace {

constexpr double kLowestRate = 44100.0;
constexpr double kHighestRate = 48000.0;

// The stretch in which the failure-path tests make allocations fail, however the export ends.
struct AllocationFaultBracket {
    AllocationFaultBracket() { AllocationFaults::ExportBegins(); }
    ~AllocationFaultBracket() { AllocationFaults::ExportEnds(); }
    AllocationFaultBracket(const AllocationFaultBracket&) = delete;
    AllocationFaultBracket& operator=(const AllocationFaultBracket&) = delete;
};

} // namespace

prsdk::int32 DoExport(PremiereExporter& exporter, prsdk::exportStdParms* stdParms,
                      prsdk::exDoExportRec* rec) {
    const AllocationFaultBracket faults;
    ExportSettings& s = exporter.settings;
    const HostParams params(exporter.paramSuite, exporter.pluginId, 0);
    prsdk::exParamValues v;
    if (params.Get(ParamId::kVideoCodec, &v))
        s.codec = static_cast<std::uint32_t>(v.value.intValue);
    if (params.Get(ParamId::kVideoWidth, &v))
        s.width = v.value.intValue;
    if (params.Get(ParamId::kVideoHeight, &v))
        s.height = v.value.intValue;
    if (params.Get(ParamId::kVideoFPS, &v))
        s.ticksPerFrame = v.value.timeValue;
    if (params.Get(ParamId::kVideoAspect, &v)) {
        s.pixelAspectNumerator = v.value.ratioValue.numerator;
        s.pixelAspectDenominator = v.value.ratioValue.denominator;
    }
    if (params.Get(ParamId::kVideoFieldType, &v))
        s.fieldType = v.value.intValue;
    if (params.Get(ParamId::kAudioRatePerSecond, &v))
        s.audioSampleRate = v.value.floatValue;
    if (params.Get(ParamId::kAudioSampleType, &v))
        s.audioSampleType = v.value.intValue;
    if (params.Get(ParamId::kAudioNumChannels, &v))
        s.audioChannelType = v.value.intValue;

    if (s.width == 0)
        s.width = static_cast<std::int32_t>(
            SourceInteger(exporter.infoSuite, exporter.pluginId, prsdk::kExportInfo_VideoWidth).value_or(0));
    if (s.height == 0)
        s.height = static_cast<std::int32_t>(
            SourceInteger(exporter.infoSuite, exporter.pluginId, prsdk::kExportInfo_VideoHeight).value_or(0));
    if (s.audioSampleRate < kLowestRate || s.audioSampleRate > kHighestRate)
        s.audioSampleRate = kHighestRate;
    if (exporter.timeSuite)
        exporter.timeSuite->GetTicksPerSecond(&s.ticksPerSecond);

    prsdk::SPBasicSuite* broker =
        stdParms && stdParms->getSPBasicSuite ? stdParms->getSPBasicSuite() : nullptr;
    LegacyCompiler compiler(s, broker);
    return compiler.Run(*rec);
}

} // namespace QVN
