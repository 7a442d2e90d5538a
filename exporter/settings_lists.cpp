#include "exporter/settings_lists.h"

#include <utility>

#include "exporter/codec_catalogue.h"

namespace QVN {
namespace {

bool Offered(std::uint8_t mask, std::size_t entry) {
    return (mask >> entry & 1u) != 0;
}

void ApplySize(const HostParams& params, const char* id, std::int32_t fixed) {
    prsdk::exParamValues v;
    if (!params.Get(id, &v))
        return;
    if (fixed != 0) {
        v.value.intValue = fixed;
        v.disabled = 1;
    } else {
        v.rangeMin.intValue = kMinFrameSide;
        v.rangeMax.intValue = kMaxFrameSide;
        v.disabled = 0;
    }
    params.Change(id, v);
}

} // namespace

void ApplyCodecLimits(const HostParams& params, std::int64_t ticksPerSecond, std::uint32_t codec) {
    params.ClearChoices(ParamId::kVideoAspect);
    params.ClearChoices(ParamId::kVideoFPS);
    params.ClearChoices(ParamId::kVideoFieldType);

    const CodecLimits& limits = LimitsFor(codec);
    ApplySize(params, ParamId::kVideoWidth, limits.fixedWidth);
    ApplySize(params, ParamId::kVideoHeight, limits.fixedHeight);

    prsdk::exOneParamValueRec v{};
    for (std::size_t i = 0; i < kPixelAspects.size(); ++i) {
        if (!Offered(limits.aspects, i))
            continue;
        v.ratioValue = {kPixelAspects[i].numerator, kPixelAspects[i].denominator};
        params.AddChoice(ParamId::kVideoAspect, v, kPixelAspects[i].name);
    }
    for (std::size_t i = 0; i < kFrameRates.size(); ++i) {
        if (!Offered(limits.rates, i))
            continue;
        v.timeValue = TicksPerFrame(kFrameRates[i], ticksPerSecond);
        params.AddChoice(ParamId::kVideoFPS, v, kFrameRates[i].name);
    }
    for (std::size_t i = 0; i < kFieldTypes.size(); ++i) {
        if (!Offered(limits.fields, i))
            continue;
        v = {};
        v.intValue = kFieldTypes[i].value;
        params.AddChoice(ParamId::kVideoFieldType, v, kFieldTypes[i].name);
    }
}

void PublishLabels(const HostParams& params) {
    params.SetName(ParamId::kVideoCodecGroup, "Video codec");
    params.SetName(ParamId::kVideoCodec, "Codec");
    params.SetName(ParamId::kBasicVideoGroup, "Video settings");
    params.SetName(ParamId::kVideoWidth, "Width");
    params.SetName(ParamId::kVideoHeight, "Height");
    params.SetName(ParamId::kVideoFieldType, "Field Order");
    params.SetName(ParamId::kVideoAspect, "Aspect ratio");
    params.SetName(ParamId::kVideoFPS, "Frame rate");
    params.SetName(ParamId::kBasicAudioGroup, "Audio settings");
    params.SetName(ParamId::kAudioRatePerSecond, "Sample rate");
    params.SetName(ParamId::kAudioSampleType, "Sample type");
    params.SetName(ParamId::kAudioNumChannels, "Channels");
}

void PublishValueLists(const HostParams& params, std::int64_t ticksPerSecond) {
    prsdk::exOneParamValueRec v{};

    params.ClearChoices(ParamId::kVideoCodec);
    for (const CodecInfo& codec : Codecs()) {
        v.intValue = static_cast<prsdk::int32>(codec.fourcc);
        params.AddChoice(ParamId::kVideoCodec, v, codec.displayName);
    }

    ApplyCodecLimits(params, ticksPerSecond, 0);

    // Every sample type entry carries the value the codec list left in v ("dvsd"), as this dialog always
    // has: saved presets hold that value, and the default 3 stays in force until the user picks an entry.
    params.ClearChoices(ParamId::kAudioSampleType);
    for (const char* name : {"16Bit", "24Bit", "32Bit", "32Bit float"})
        params.AddChoice(ParamId::kAudioSampleType, v, name);

    params.ClearChoices(ParamId::kAudioRatePerSecond);
    v = {};
    v.floatValue = 48000.0;
    params.AddChoice(ParamId::kAudioRatePerSecond, v, "48000Hz");

    params.ClearChoices(ParamId::kAudioNumChannels);
    for (const auto& [type, name] :
         {std::pair<prsdk::int32, const char*>{1, "Mono"}, {2, "Stereo"}, {3, "5.1 Channels"}}) {
        v = {};
        v.intValue = type;
        params.AddChoice(ParamId::kAudioNumChannels, v, name);
    }
}

} // namespace QVN
