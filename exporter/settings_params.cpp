#include "exporter/settings_params.h"

#include <cstring>

namespace QVN {
namespace {

// The host's names are at most 255 characters and a terminating zero.
struct HostText {
    explicit HostText(std::string_view text) { CopyToHostText(chars, 256, text); }
    prsdk::prUTF16Char chars[256];
};

} // namespace

void CopyToHostText(prsdk::prUTF16Char* dst, std::size_t capacity, std::string_view text) {
    if (capacity == 0)
        return;
    std::size_t i = 0;
    for (; i < text.size() && i + 1 < capacity; ++i)
        dst[i] = static_cast<prsdk::prUTF16Char>(static_cast<unsigned char>(text[i]));
    dst[i] = 0;
}

prsdk::prSuiteError HostParams::AddGroup(const char* parent, const char* group, std::string_view name) const {
    const HostText text(name);
    return suite_->AddParamGroup(pluginId_, multiGroup_, parent, group, text.chars, 0, 0, 0);
}

prsdk::prSuiteError HostParams::AddParam(const char* group, const char* id, prsdk::exParamType type,
                                         const prsdk::exOneParamValueRec& value,
                                         const prsdk::exOneParamValueRec& min,
                                         const prsdk::exOneParamValueRec& max) const {
    prsdk::exNewParamInfo info;
    std::memset(&info, 0, sizeof info);
    info.structVersion = 1;
    std::strncpy(info.identifier, id, sizeof info.identifier - 1);
    info.paramType = type;
    info.flags = prsdk::exParamFlag_none;
    info.paramValues.structVersion = 1;
    info.paramValues.value = value;
    info.paramValues.rangeMin = min;
    info.paramValues.rangeMax = max;
    return suite_->AddParam(pluginId_, multiGroup_, group, &info);
}

bool HostParams::Get(const char* id, prsdk::exParamValues* values) const {
    std::memset(values, 0, sizeof *values);
    values->structVersion = 1;
    if (suite_->GetParamValue(pluginId_, multiGroup_, id, values) == prsdk::suiteError_NoError)
        return true;
    std::memset(values, 0, sizeof *values);
    return false;
}

prsdk::prSuiteError HostParams::Change(const char* id, const prsdk::exParamValues& values) const {
    return suite_->ChangeParam(pluginId_, multiGroup_, id, &values);
}

prsdk::prSuiteError HostParams::SetName(const char* id, std::string_view name) const {
    const HostText text(name);
    return suite_->SetParamName(pluginId_, multiGroup_, id, text.chars);
}

prsdk::prSuiteError HostParams::ClearChoices(const char* id) const {
    return suite_->ClearConstrainedValues(pluginId_, multiGroup_, id);
}

prsdk::prSuiteError HostParams::AddChoice(const char* id, const prsdk::exOneParamValueRec& value,
                                          std::string_view name) const {
    const HostText text(name);
    return suite_->AddConstrainedValuePair(pluginId_, multiGroup_, id, &value, text.chars);
}

} // namespace QVN
