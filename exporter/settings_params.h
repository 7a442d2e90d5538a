// The exporter's parameter identifiers and its access to the host's parameter store through the Export Param
// Suite. Both the settings selectors and the export run read the parameters through this.
#pragma once

#include <string_view>

#include "prsdk/prsdk.h"

namespace QVN {

namespace ParamId {
inline constexpr const char* kVideoTabGroup = "ADBEVideoTabGroup";
inline constexpr const char* kVideoCodecGroup = "ADBEVideoCodecGroup";
inline constexpr const char* kVideoCodec = "ADBEVideoCodec";
inline constexpr const char* kBasicVideoGroup = "ADBEBasicVideoGroup";
inline constexpr const char* kVideoWidth = "ADBEVideoWidth";
inline constexpr const char* kVideoHeight = "ADBEVideoHeight";
inline constexpr const char* kVideoFieldType = "ADBEVideoFieldType";
inline constexpr const char* kVideoAspect = "ADBEVideoAspect";
inline constexpr const char* kVideoFPS = "ADBEVideoFPS";
inline constexpr const char* kAudioTabGroup = "ADBEAudioTabGroup";
inline constexpr const char* kBasicAudioGroup = "ADBEBasicAudioGroup";
inline constexpr const char* kAudioSampleType = "ADBEAudioSampleType";
inline constexpr const char* kAudioNumChannels = "ADBEAudioNumChannels";
inline constexpr const char* kAudioRatePerSecond = "ADBEAudioRatePerSecond";
} // namespace ParamId

// Copies ASCII text into a host string buffer of the given capacity, always terminated.
void CopyToHostText(prsdk::prUTF16Char* dst, std::size_t capacity, std::string_view text);

// One exporter instance's parameters in one multigroup. The host's answers are passed back as they are;
// the handlers decide which refusals matter.
class HostParams {
public:
    HostParams(const prsdk::ExportParamSuite* suite, prsdk::uint32 pluginId, prsdk::int32 multiGroup)
        : suite_(suite), pluginId_(pluginId), multiGroup_(multiGroup) {}

    prsdk::prSuiteError AddGroup(const char* parent, const char* group, std::string_view name) const;
    // A parameter with the given type, value and range; no name (the labels come later), enabled, shown.
    prsdk::prSuiteError AddParam(const char* group, const char* id, prsdk::exParamType type,
                                 const prsdk::exOneParamValueRec& value,
                                 const prsdk::exOneParamValueRec& min = {},
                                 const prsdk::exOneParamValueRec& max = {}) const;

    // False when the host refuses; *values is then cleared.
    bool Get(const char* id, prsdk::exParamValues* values) const;
    prsdk::prSuiteError Change(const char* id, const prsdk::exParamValues& values) const;

    prsdk::prSuiteError SetName(const char* id, std::string_view name) const;
    prsdk::prSuiteError ClearChoices(const char* id) const;
    prsdk::prSuiteError AddChoice(const char* id, const prsdk::exOneParamValueRec& value,
                                  std::string_view name) const;

private:
    const prsdk::ExportParamSuite* suite_;
    prsdk::uint32 pluginId_;
    prsdk::int32 multiGroup_;
};

} // namespace QVN
