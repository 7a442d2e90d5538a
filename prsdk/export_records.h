// The selector records the host passes to xSDKExport as param1.
#pragma once

#include "prsdk/sdk_types.h"

namespace prsdk {

#pragma pack(push, 1)

struct exExporterInfoRec {
    uint32 unused;
    uint32 fileType;
    prUTF16Char fileTypeName[256];
    prUTF16Char fileTypeDefaultExtension[256];
    uint32 classID;
    int32 exportReqIndex;
    int32 wantsNoProgressBar;
    int32 hideInUI;
    int32 doesNotSupportAudioOnly;
    int32 canExportVideo;
    int32 canExportAudio;
    int32 singleFrameOnly;
    int32 maxAudiences;
    int32 interfaceVersion;
    uint32 isCacheable;
};

struct exExporterInstanceRec {
    uint32 exporterPluginID;
    uint32 fileType;
    void* privateData;
};

// The head that the remaining records share.
struct exRecordHead {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
};

struct exDoExportRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    int32 exportAudio;
    int32 exportVideo;
    PrTime startTime;
    PrTime endTime;
    uint32 fileObject;
    int32 timelineData;
    int32 reserveMetaDataSpace;
    int32 maximumRenderQuality;
};

struct exGenerateDefaultParamRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
};

struct exPostProcessParamsRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    int32 exportAudio;
    int32 exportVideo;
};

struct exParamChangedRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    int32 exportAudio;
    int32 exportVideo;
    int32 multiGroupIndex;
    exParamIdentifier changedParamIdentifier;
    int32 rebuildAllParams;
};

// No file type in this one: the flags follow the private data directly.
struct exParamSummaryRec {
    uint32 exporterPluginID;
    void* privateData;
    int32 exportAudio;
    int32 exportVideo;
    prUTF16Char videoSummaryLine1[256];
    prUTF16Char audioSummaryLine2[256];
    prUTF16Char bitrateSummaryLine3[256];
};

struct exParamButtonRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    int32 exportAudio;
    int32 exportVideo;
    int32 multiGroupIndex;
    exParamIdentifier buttonParamIdentifier;
};

struct exQueryExportFileExtensionRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    prUTF16Char outFileExtension[256];
};

struct exQueryOutputSettingsRec {
    uint32 exporterPluginID;
    void* privateData;
    uint32 fileType;
    int32 inMultiGroupIndex;
    int32 inExportVideo;
    int32 inExportAudio;
    int32 outVideoWidth;
    int32 outVideoHeight;
    PrTime outVideoFrameRate;
    int32 outVideoAspectNum;
    int32 outVideoAspectDen;
    int32 outVideoFieldType;
    double outAudioSampleRate;
    int32 outAudioSampleType;
    int32 outAudioChannelType;
    uint32 outBitratePerSecond;
};

#pragma pack(pop)

static_assert(sizeof(exExporterInfoRec) == 1076);
static_assert(offsetof(exExporterInfoRec, fileType) == 4);
static_assert(offsetof(exExporterInfoRec, fileTypeName) == 8);
static_assert(offsetof(exExporterInfoRec, fileTypeDefaultExtension) == 520);
static_assert(offsetof(exExporterInfoRec, classID) == 1032);
static_assert(offsetof(exExporterInfoRec, exportReqIndex) == 1036);
static_assert(offsetof(exExporterInfoRec, wantsNoProgressBar) == 1040);
static_assert(offsetof(exExporterInfoRec, hideInUI) == 1044);
static_assert(offsetof(exExporterInfoRec, doesNotSupportAudioOnly) == 1048);
static_assert(offsetof(exExporterInfoRec, canExportVideo) == 1052);
static_assert(offsetof(exExporterInfoRec, canExportAudio) == 1056);
static_assert(offsetof(exExporterInfoRec, singleFrameOnly) == 1060);
static_assert(offsetof(exExporterInfoRec, maxAudiences) == 1064);
static_assert(offsetof(exExporterInfoRec, interfaceVersion) == 1068);
static_assert(offsetof(exExporterInfoRec, isCacheable) == 1072);

static_assert(sizeof(exExporterInstanceRec) == 16);
static_assert(offsetof(exExporterInstanceRec, fileType) == 4);
static_assert(offsetof(exExporterInstanceRec, privateData) == 8);

static_assert(sizeof(exRecordHead) == 16);
static_assert(offsetof(exRecordHead, privateData) == 4);
static_assert(offsetof(exRecordHead, fileType) == 12);

static_assert(sizeof(exDoExportRec) == 56);
static_assert(offsetof(exDoExportRec, privateData) == 4);
static_assert(offsetof(exDoExportRec, fileType) == 12);
static_assert(offsetof(exDoExportRec, exportAudio) == 16);
static_assert(offsetof(exDoExportRec, exportVideo) == 20);
static_assert(offsetof(exDoExportRec, startTime) == 24);
static_assert(offsetof(exDoExportRec, endTime) == 32);
static_assert(offsetof(exDoExportRec, fileObject) == 40);
static_assert(offsetof(exDoExportRec, timelineData) == 44);
static_assert(offsetof(exDoExportRec, reserveMetaDataSpace) == 48);
static_assert(offsetof(exDoExportRec, maximumRenderQuality) == 52);

static_assert(sizeof(exGenerateDefaultParamRec) == 16);
static_assert(sizeof(exPostProcessParamsRec) == 24);
static_assert(offsetof(exPostProcessParamsRec, exportAudio) == 16);
static_assert(offsetof(exPostProcessParamsRec, exportVideo) == 20);

static_assert(sizeof(exParamChangedRec) == 288);
static_assert(offsetof(exParamChangedRec, exportAudio) == 16);
static_assert(offsetof(exParamChangedRec, multiGroupIndex) == 24);
static_assert(offsetof(exParamChangedRec, changedParamIdentifier) == 28);
static_assert(offsetof(exParamChangedRec, rebuildAllParams) == 284);

static_assert(sizeof(exParamSummaryRec) == 1556);
static_assert(offsetof(exParamSummaryRec, exportAudio) == 12);
static_assert(offsetof(exParamSummaryRec, exportVideo) == 16);
static_assert(offsetof(exParamSummaryRec, videoSummaryLine1) == 20);
static_assert(offsetof(exParamSummaryRec, audioSummaryLine2) == 532);
static_assert(offsetof(exParamSummaryRec, bitrateSummaryLine3) == 1044);

static_assert(sizeof(exParamButtonRec) == 284);
static_assert(offsetof(exParamButtonRec, multiGroupIndex) == 24);
static_assert(offsetof(exParamButtonRec, buttonParamIdentifier) == 28);

static_assert(sizeof(exQueryExportFileExtensionRec) == 528);
static_assert(offsetof(exQueryExportFileExtensionRec, outFileExtension) == 16);

static_assert(sizeof(exQueryOutputSettingsRec) == 76);
static_assert(offsetof(exQueryOutputSettingsRec, inMultiGroupIndex) == 16);
static_assert(offsetof(exQueryOutputSettingsRec, inExportVideo) == 20);
static_assert(offsetof(exQueryOutputSettingsRec, inExportAudio) == 24);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoWidth) == 28);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoHeight) == 32);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoFrameRate) == 36);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoAspectNum) == 44);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoAspectDen) == 48);
static_assert(offsetof(exQueryOutputSettingsRec, outVideoFieldType) == 52);
static_assert(offsetof(exQueryOutputSettingsRec, outAudioSampleRate) == 56);
static_assert(offsetof(exQueryOutputSettingsRec, outAudioSampleType) == 64);
static_assert(offsetof(exQueryOutputSettingsRec, outAudioChannelType) == 68);
static_assert(offsetof(exQueryOutputSettingsRec, outBitratePerSecond) == 72);

} // namespace prsdk
