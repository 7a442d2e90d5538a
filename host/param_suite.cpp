// The Export Param Suite. The parameter store behind it is not built yet: every call is refused.
#include "host/instance_suites.h"

namespace qvnhost {
namespace {

using prsdk::csSDK_int32;
using prsdk::csSDK_uint32;
using prsdk::prSuiteError;

prSuiteError Refuse() { return prsdk::suiteError_NotImplemented; }

prSuiteError SetParamsVersion(csSDK_uint32, csSDK_int32) { return Refuse(); }
prSuiteError GetParamsVersion(csSDK_uint32, csSDK_int32*) { return Refuse(); }
prSuiteError AddMultiGroup(csSDK_uint32, csSDK_int32*) { return Refuse(); }
prSuiteError AddParam(csSDK_uint32, csSDK_int32, const char*, const prsdk::exNewParamInfo*) { return Refuse(); }
prSuiteError AddParamGroup(csSDK_uint32, csSDK_int32, const char*, const char*, const prsdk::prUTF16Char*,
                           prsdk::prBool, prsdk::prBool, prsdk::prBool) {
    return Refuse();
}
prSuiteError ChangeParam(csSDK_uint32, csSDK_int32, const char*, const prsdk::exParamValues*) { return Refuse(); }
prSuiteError GetParamValue(csSDK_uint32, csSDK_int32, const char*, prsdk::exParamValues*) { return Refuse(); }
prSuiteError GetParamType(csSDK_uint32, csSDK_int32, const char*, prsdk::exParamType*) { return Refuse(); }
prSuiteError ClearParamGroupChildren(csSDK_uint32, csSDK_int32, const char*) { return Refuse(); }
prSuiteError SetParamName(csSDK_uint32, csSDK_int32, const char*, const prsdk::prUTF16Char*) { return Refuse(); }
prSuiteError AddConstrainedValuePair(csSDK_uint32, csSDK_int32, const char*, const prsdk::exOneParamValueRec*,
                                     const prsdk::prUTF16Char*) {
    return Refuse();
}
prSuiteError ClearConstrainedValues(csSDK_uint32, csSDK_int32, const char*) { return Refuse(); }
prSuiteError GetConstrainedValueCount(csSDK_uint32, csSDK_int32, const char*, csSDK_int32*) { return Refuse(); }
prSuiteError GetConstrainedValue(csSDK_uint32, csSDK_int32, const char*, csSDK_int32, prsdk::exOneParamValueRec*,
                                 prsdk::prUTF16Char*) {
    return Refuse();
}
prSuiteError GetArbData(csSDK_uint32, csSDK_int32, const char*, csSDK_int32*, void*) { return Refuse(); }
prSuiteError SetArbData(csSDK_uint32, csSDK_int32, const char*, csSDK_int32, const void*) { return Refuse(); }
prSuiteError CountMultiGroups(csSDK_uint32, csSDK_int32*) { return Refuse(); }
prSuiteError SetConstrainedListIsOptional(csSDK_uint32, csSDK_int32, const char*, prsdk::prBool) { return Refuse(); }
prSuiteError GetConstrainedValueDisplayName(csSDK_uint32, csSDK_int32, const char*, csSDK_int32,
                                            prsdk::prUTF16Char*) {
    return Refuse();
}

const prsdk::ExportParamSuite kParamSuite = {
    SetParamsVersion,         GetParamsVersion,    AddMultiGroup,          AddParam,
    AddParamGroup,            ChangeParam,         GetParamValue,          GetParamType,
    ClearParamGroupChildren,  SetParamName,        AddConstrainedValuePair, ClearConstrainedValues,
    GetConstrainedValueCount, GetConstrainedValue, GetArbData,             SetArbData,
    CountMultiGroups,         SetConstrainedListIsOptional, GetConstrainedValueDisplayName};

} // namespace

const prsdk::ExportParamSuite* ExportParamSuiteTable() { return &kParamSuite; }

} // namespace qvnhost
