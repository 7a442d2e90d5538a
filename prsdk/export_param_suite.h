// "MediaCore Export Param Suite" version 3 and the parameter value records it exchanges.
#pragma once

#include "prsdk/sdk_types.h"

namespace prsdk {

inline constexpr const char* kExportParamSuite = "MediaCore Export Param Suite";
inline constexpr int32 kExportParamSuiteVersion = 3;

enum exParamType : int32 {
    exParamType_undefined = 0,
    exParamType_bool = 1,
    exParamType_int = 2,
    exParamType_float = 3,
    exParamType_ticksFrameRate = 4,
    exParamType_ticksTime = 5,
    exParamType_string = 6,
    exParamType_button = 7,
    exParamType_arbData = 8,
    exParamType_group = 9,
    exParamType_multiGroup = 10,
    exParamType_ratio = 11,
};

enum exParamFlags : int32 {
    exParamFlag_none = 0,
    exParamFlag_slider = 1,
    exParamFlag_independant = 2,
    exParamFlag_shared = 4,
    exParamFlag_optional = 0x40,
};

#pragma pack(push, 1)

struct exRatioValue {
    int32 numerator;
    int32 denominator;
};

union exOneParamValueRec {
    int32 intValue;
    double floatValue;
    PrTime timeValue;
    exRatioValue ratioValue;
    unsigned char reserved[128];
};

struct exParamValues {
    int32 structVersion;
    exOneParamValueRec rangeMin;
    exOneParamValueRec rangeMax;
    exOneParamValueRec value;
    prUTF16Char paramString[256];
    int32 disabled;
    int32 hidden;
    void* arbData;
    int32 arbDataSize;
    int32 optionalParamEnabled;
};

struct exNewParamInfo {
    int32 structVersion;
    exParamIdentifier identifier;
    prUTF16Char name[256];
    exParamType paramType;
    exParamFlags flags;
    exParamValues paramValues;
};

// Entries after ClearParamGroupChildren are kept in the host's order; the module uses only up to
// GetConstrainedValue.
struct ExportParamSuite {
    prSuiteError (*SetParamsVersion)(csSDK_uint32 exporterPluginID, csSDK_int32 version);
    prSuiteError (*GetParamsVersion)(csSDK_uint32 exporterPluginID, csSDK_int32* version);
    prSuiteError (*AddMultiGroup)(csSDK_uint32 exporterPluginID, csSDK_int32* outMultiGroupIndex);
    prSuiteError (*AddParam)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                             const char* groupIdentifier, const exNewParamInfo* param);
    prSuiteError (*AddParamGroup)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                  const char* parentGroupIdentifier, const char* groupIdentifier,
                                  const prUTF16Char* groupName, prBool hidden, prBool disabled,
                                  prBool isParamPairGroup);
    prSuiteError (*ChangeParam)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                const char* identifier, const exParamValues* value);
    prSuiteError (*GetParamValue)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                  const char* identifier, exParamValues* value);
    prSuiteError (*GetParamType)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                 const char* identifier, exParamType* paramType);
    prSuiteError (*ClearParamGroupChildren)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                            const char* groupIdentifier);
    prSuiteError (*SetParamName)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                 const char* identifier, const prUTF16Char* name);
    prSuiteError (*AddConstrainedValuePair)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                            const char* identifier, const exOneParamValueRec* value,
                                            const prUTF16Char* name);
    prSuiteError (*ClearConstrainedValues)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                           const char* identifier);
    prSuiteError (*GetConstrainedValueCount)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                             const char* identifier, csSDK_int32* count);
    prSuiteError (*GetConstrainedValue)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                        const char* identifier, csSDK_int32 index, exOneParamValueRec* value,
                                        prUTF16Char* name);
    prSuiteError (*GetArbData)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                               const char* identifier, csSDK_int32* arbDataSize, void* arbData);
    prSuiteError (*SetArbData)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                               const char* identifier, csSDK_int32 arbDataSize, const void* arbData);
    prSuiteError (*CountMultiGroups)(csSDK_uint32 exporterPluginID, csSDK_int32* count);
    prSuiteError (*SetConstrainedListIsOptional)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                                 const char* identifier, prBool isOptional);
    prSuiteError (*GetConstrainedValueDisplayName)(csSDK_uint32 exporterPluginID, csSDK_int32 multiGroupIndex,
                                                   const char* identifier, csSDK_int32 index,
                                                   prUTF16Char* name);
};

#pragma pack(pop)

static_assert(sizeof(exOneParamValueRec) == 128);
static_assert(sizeof(exParamValues) == 924);
static_assert(offsetof(exParamValues, rangeMin) == 4);
static_assert(offsetof(exParamValues, rangeMax) == 132);
static_assert(offsetof(exParamValues, value) == 260);
static_assert(offsetof(exParamValues, paramString) == 388);
static_assert(offsetof(exParamValues, disabled) == 900);
static_assert(offsetof(exParamValues, hidden) == 904);
static_assert(offsetof(exParamValues, arbData) == 908);
static_assert(offsetof(exParamValues, arbDataSize) == 916);
static_assert(offsetof(exParamValues, optionalParamEnabled) == 920);
static_assert(sizeof(exNewParamInfo) == 1704);
static_assert(offsetof(exNewParamInfo, identifier) == 4);
static_assert(offsetof(exNewParamInfo, name) == 260);
static_assert(offsetof(exNewParamInfo, paramType) == 772);
static_assert(offsetof(exNewParamInfo, flags) == 776);
static_assert(offsetof(exNewParamInfo, paramValues) == 780);
static_assert(sizeof(ExportParamSuite) == 19 * 8);

// Group identifiers the host defines.
inline constexpr const char* ADBETopParamGroup = "ADBETopParamGroup";

} // namespace prsdk
