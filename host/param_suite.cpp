// The Export Param Suite: each operation hands over to the host's parameter store.
#include "host/instance_suites.h"
#include "host/param_store.h"

namespace qvnhost {
namespace {

using prsdk::csSDK_int32;
using prsdk::csSDK_uint32;
using prsdk::prSuiteError;

ParamStore& Store() {
    return ParamStore::Instance();
}

prSuiteError SetParamsVersion(csSDK_uint32 plugin, csSDK_int32 version) {
    return Store().SetParamsVersion(plugin, version);
}
prSuiteError GetParamsVersion(csSDK_uint32 plugin, csSDK_int32* version) {
    return Store().GetParamsVersion(plugin, version);
}
prSuiteError AddMultiGroup(csSDK_uint32 plugin, csSDK_int32* index) {
    return Store().AddMultiGroup(plugin, index);
}
prSuiteError AddParam(csSDK_uint32 plugin, csSDK_int32 mg, const char* group,
                      const prsdk::exNewParamInfo* info) {
    return Store().AddParam(plugin, mg, group, info);
}
prSuiteError AddParamGroup(csSDK_uint32 plugin, csSDK_int32 mg, const char* parent, const char* group,
                           const prsdk::prUTF16Char* name, prsdk::prBool hidden, prsdk::prBool disabled,
                           prsdk::prBool paramPair) {
    return Store().AddParamGroup(plugin, mg, parent, group, name, hidden != 0, disabled != 0, paramPair != 0);
}
prSuiteError ChangeParam(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                         const prsdk::exParamValues* values) {
    return Store().ChangeParam(plugin, mg, id, values);
}
prSuiteError GetParamValue(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                           prsdk::exParamValues* values) {
    return Store().GetParamValue(plugin, mg, id, values);
}
prSuiteError GetParamType(csSDK_uint32 plugin, csSDK_int32 mg, const char* id, prsdk::exParamType* type) {
    return Store().GetParamType(plugin, mg, id, type);
}
prSuiteError ClearParamGroupChildren(csSDK_uint32 plugin, csSDK_int32 mg, const char* group) {
    return Store().ClearParamGroupChildren(plugin, mg, group);
}
prSuiteError SetParamName(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                          const prsdk::prUTF16Char* name) {
    return Store().SetParamName(plugin, mg, id, name);
}
prSuiteError AddConstrainedValuePair(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                                     const prsdk::exOneParamValueRec* value, const prsdk::prUTF16Char* name) {
    return Store().AddConstrainedValuePair(plugin, mg, id, value, name);
}
prSuiteError ClearConstrainedValues(csSDK_uint32 plugin, csSDK_int32 mg, const char* id) {
    return Store().ClearConstrainedValues(plugin, mg, id);
}
prSuiteError GetConstrainedValueCount(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                                      csSDK_int32* count) {
    return Store().GetConstrainedValueCount(plugin, mg, id, count);
}
prSuiteError GetConstrainedValue(csSDK_uint32 plugin, csSDK_int32 mg, const char* id, csSDK_int32 index,
                                 prsdk::exOneParamValueRec* value, prsdk::prUTF16Char* name) {
    return Store().GetConstrainedValue(plugin, mg, id, index, value, name);
}
prSuiteError GetArbData(csSDK_uint32 plugin, csSDK_int32 mg, const char* id, csSDK_int32* size, void* data) {
    return Store().GetArbData(plugin, mg, id, size, data);
}
prSuiteError SetArbData(csSDK_uint32 plugin, csSDK_int32 mg, const char* id, csSDK_int32 size,
                        const void* data) {
    return Store().SetArbData(plugin, mg, id, size, data);
}
prSuiteError CountMultiGroups(csSDK_uint32 plugin, csSDK_int32* count) {
    return Store().CountMultiGroups(plugin, count);
}
prSuiteError SetConstrainedListIsOptional(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                                          prsdk::prBool optional) {
    return Store().SetConstrainedListIsOptional(plugin, mg, id, optional != 0);
}
prSuiteError GetConstrainedValueDisplayName(csSDK_uint32 plugin, csSDK_int32 mg, const char* id,
                                            csSDK_int32 index, prsdk::prUTF16Char* name) {
    return Store().GetConstrainedValueDisplayName(plugin, mg, id, index, name);
}

const prsdk::ExportParamSuite kParamSuite = {SetParamsVersion,
                                             GetParamsVersion,
                                             AddMultiGroup,
                                             AddParam,
                                             AddParamGroup,
                                             ChangeParam,
                                             GetParamValue,
                                             GetParamType,
                                             ClearParamGroupChildren,
                                             SetParamName,
                                             AddConstrainedValuePair,
                                             ClearConstrainedValues,
                                             GetConstrainedValueCount,
                                             GetConstrainedValue,
                                             GetArbData,
                                             SetArbData,
                                             CountMultiGroups,
                                             SetConstrainedListIsOptional,
                                             GetConstrainedValueDisplayName};

} // namespace

const prsdk::ExportParamSuite* ExportParamSuiteTable() {
    return &kParamSuite;
}

} // namespace qvnhost
