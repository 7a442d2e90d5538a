// The settings selectors: the parameter tree and its defaults, labels and lists, changes, the summary lines
// and the output settings the host asks for.
#include <cstring>

#include "exporter/codec_catalogue.h"
#include "exporter/selectors.h"
#include "exporter/settings_lists.h"
#include "exporter/settings_params.h"
#include "exporter/settings_summary.h"
#include "exporter/source_info.h"

namespace QVN {
namespace {

// The exporter keeps all its parameters in one multigroup, the first.
constexpr prsdk::int32 kMultiGroup = 0;

constexpr prsdk::int32 kDefaultSampleType = 3;  // 16-bit
constexpr prsdk::int32 kQueriedSampleType = 6;  // 32-bit float
constexpr prsdk::int32 kQueriedChannelType = 2; // stereo

HostParams ParamsOf(const PremiereExporter& exporter, prsdk::int32 multiGroup) {
    return HostParams(exporter.paramSuite, exporter.pluginId, multiGroup);
}

std::int64_t TicksPerSecond(const PremiereExporter& exporter) {
    prsdk::PrTime ticks = 0;
    exporter.timeSuite->GetTicksPerSecond(&ticks);
    return ticks;
}

prsdk::exOneParamValueRec Int(prsdk::int32 value) {
    prsdk::exOneParamValueRec v{};
    v.intValue = value;
    return v;
}

template <class T> T Narrow(std::optional<prsdk::int64> value) {
    return static_cast<T>(value.value_or(0));
}

} // namespace

prsdk::int32 GenerateDefaultParams(PremiereExporter& exporter, prsdk::exGenerateDefaultParamRec*) {
    // The defaults are the source's own.
    ExportSettings& s = exporter.settings;
    const prsdk::ExportInfoSuite* info = exporter.infoSuite;
    const prsdk::uint32 id = exporter.pluginId;
    s.width = Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_VideoWidth));
    s.height = Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_VideoHeight));
    s.ticksPerFrame = Narrow<std::int64_t>(SourceInteger(info, id, prsdk::kExportInfo_VideoFrameRate));
    s.fieldType = Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_VideoFieldType));
    s.pixelAspectNumerator =
        Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_PixelAspectNumerator));
    s.pixelAspectDenominator =
        Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_PixelAspectDenominator));
    s.audioChannelType = Narrow<std::int32_t>(SourceInteger(info, id, prsdk::kExportInfo_AudioChannelsType));
    s.audioSampleRate = SourceReal(info, id, prsdk::kExportInfo_AudioSampleRate).value_or(0.0);
    s.codec = FourCC("UYVY");
    s.audioSampleType = kDefaultSampleType;
    s.ticksPerSecond = TicksPerSecond(exporter);

    prsdk::int32 multiGroup = kMultiGroup;
    exporter.paramSuite->AddMultiGroup(id, &multiGroup);
    const HostParams params = ParamsOf(exporter, multiGroup);
    namespace P = ParamId;

    params.AddGroup(prsdk::ADBETopParamGroup, P::kVideoTabGroup, "Sample top-level video param group");
    params.AddGroup(P::kVideoTabGroup, P::kVideoCodecGroup, "Sample Video codec group");
    params.AddParam(P::kVideoCodecGroup, P::kVideoCodec, prsdk::exParamType_int,
                    Int(static_cast<prsdk::int32>(s.codec)));

    params.AddGroup(P::kVideoTabGroup, P::kBasicVideoGroup, "Video settings");
    params.AddParam(P::kBasicVideoGroup, P::kVideoWidth, prsdk::exParamType_int, Int(s.width),
                    Int(kMinFrameSide), Int(kMaxFrameSide));
    params.AddParam(P::kBasicVideoGroup, P::kVideoHeight, prsdk::exParamType_int, Int(s.height),
                    Int(kMinFrameSide), Int(kMaxFrameSide));
    params.AddParam(P::kBasicVideoGroup, P::kVideoFieldType, prsdk::exParamType_int, Int(s.fieldType));
    prsdk::exOneParamValueRec aspect{};
    aspect.ratioValue = {s.pixelAspectNumerator, s.pixelAspectDenominator};
    params.AddParam(P::kBasicVideoGroup, P::kVideoAspect, prsdk::exParamType_ratio, aspect);
    prsdk::exOneParamValueRec rate{};
    rate.timeValue = s.ticksPerFrame;
    params.AddParam(P::kBasicVideoGroup, P::kVideoFPS, prsdk::exParamType_ticksFrameRate, rate);

    params.AddGroup(prsdk::ADBETopParamGroup, P::kAudioTabGroup, "Audio tab");
    params.AddGroup(P::kAudioTabGroup, P::kBasicAudioGroup, "Audio settings");
    params.AddParam(P::kBasicAudioGroup, P::kAudioSampleType, prsdk::exParamType_int, Int(s.audioSampleType));
    params.AddParam(P::kBasicAudioGroup, P::kAudioNumChannels, prsdk::exParamType_int,
                    Int(s.audioChannelType));
    prsdk::exOneParamValueRec sampleRate{};
    sampleRate.floatValue = s.audioSampleRate;
    params.AddParam(P::kBasicAudioGroup, P::kAudioRatePerSecond, prsdk::exParamType_float, sampleRate);
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 PostProcessParams(PremiereExporter& exporter, prsdk::exPostProcessParamsRec*) {
    const HostParams params = ParamsOf(exporter, kMultiGroup);
    PublishLabels(params);
    PublishValueLists(params, TicksPerSecond(exporter));
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 ValidateParamChanged(PremiereExporter& exporter, prsdk::exParamChangedRec* rec) {
    const HostParams params = ParamsOf(exporter, rec->multiGroupIndex);
    const char* id = rec->changedParamIdentifier;
    prsdk::exParamValues v;
    if (!params.Get(id, &v))
        return prsdk::exportReturn_ErrNone;

    ExportSettings& s = exporter.settings;
    const auto is = [id](const char* name) { return std::strcmp(id, name) == 0; };
    if (is(ParamId::kVideoCodec)) {
        // The record's codec stays: the export run reads the parameter itself.
        ApplyCodecLimits(params, TicksPerSecond(exporter), static_cast<std::uint32_t>(v.value.intValue));
    } else if (is(ParamId::kVideoWidth)) {
        s.width = v.value.intValue;
    } else if (is(ParamId::kVideoHeight)) {
        s.height = v.value.intValue;
    } else if (is(ParamId::kVideoFieldType)) {
        s.fieldType = v.value.intValue;
    } else if (is(ParamId::kAudioSampleType)) {
        s.audioSampleType = v.value.intValue;
    } else if (is(ParamId::kAudioNumChannels)) {
        s.audioChannelType = v.value.intValue;
    } else if (is(ParamId::kVideoAspect)) {
        s.pixelAspectNumerator = v.value.ratioValue.numerator;
        s.pixelAspectDenominator = v.value.ratioValue.denominator;
    } else if (is(ParamId::kVideoFPS)) {
        s.ticksPerSecond = TicksPerSecond(exporter);
        s.ticksPerFrame = v.value.timeValue;
    } else if (is(ParamId::kAudioRatePerSecond)) {
        s.audioSampleRate = v.value.floatValue;
    }
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 GetParamSummary(PremiereExporter& exporter, prsdk::exParamSummaryRec* rec) {
    CopyToHostText(rec->videoSummaryLine1, std::size(rec->videoSummaryLine1),
                   VideoSummary(exporter.settings));
    CopyToHostText(rec->audioSummaryLine2, std::size(rec->audioSummaryLine2), AudioSummary());
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 QueryOutputSettings(PremiereExporter& exporter, prsdk::exQueryOutputSettingsRec* rec) {
    const HostParams params = ParamsOf(exporter, rec->inMultiGroupIndex);
    ExportSettings& s = exporter.settings;
    prsdk::exParamValues v;
    if (params.Get(ParamId::kVideoWidth, &v))
        rec->outVideoWidth = s.width = v.value.intValue;
    if (params.Get(ParamId::kVideoHeight, &v))
        rec->outVideoHeight = s.height = v.value.intValue;
    if (params.Get(ParamId::kVideoFPS, &v))
        rec->outVideoFrameRate = s.ticksPerFrame = v.value.timeValue;
    if (params.Get(ParamId::kVideoAspect, &v)) {
        rec->outVideoAspectNum = s.pixelAspectNumerator = v.value.ratioValue.numerator;
        rec->outVideoAspectDen = s.pixelAspectDenominator = v.value.ratioValue.denominator;
    }
    if (params.Get(ParamId::kVideoFieldType, &v))
        rec->outVideoFieldType = s.fieldType = v.value.intValue;
    if (params.Get(ParamId::kAudioRatePerSecond, &v))
        rec->outAudioSampleRate = s.audioSampleRate = v.value.floatValue;
    // The host is always told 32-bit float stereo, and the record follows it for the sample type: presets
    // made with this exporter have always been reported so.
    rec->outAudioSampleType = s.audioSampleType = kQueriedSampleType;
    rec->outAudioChannelType = kQueriedChannelType;
    return prsdk::exportReturn_ErrNone;
}

} // namespace QVN
