// Selector dispatch, start-up, begin and end instance, and the file extension query.
#include <algorithm>
#include <new>

#include "exporter/module_identity.h"
#include "exporter/selectors.h"

namespace QVN {
namespace {

template <std::size_t N> void CopyWide(prsdk::prUTF16Char (&dst)[N], const char16_t* src) {
    std::size_t i = 0;
    for (; src[i] != 0 && i + 1 < N; ++i)
        dst[i] = static_cast<prsdk::prUTF16Char>(src[i]);
    dst[i] = 0;
}

// Every record after start-up and begin instance carries the instance in its private-data field.
PremiereExporter* InstanceOf(void* record) {
    return static_cast<PremiereExporter*>(static_cast<prsdk::exRecordHead*>(record)->privateData);
}

} // namespace

prsdk::int32 Startup(prsdk::exExporterInfoRec* info) {
    info->fileType = kFileTypeAVIV;
    CopyWide(info->fileTypeName, kFileTypeName);
    CopyWide(info->fileTypeDefaultExtension, kDefaultExtension);
    info->classID = kClassIdQVNW;
    info->exportReqIndex = 0;
    info->wantsNoProgressBar = 0;
    info->hideInUI = 0;
    info->doesNotSupportAudioOnly = 0;
    info->canExportVideo = 1;
    info->canExportAudio = 1;
    info->interfaceVersion = kExporterInterfaceVersion;
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 BeginInstance(prsdk::exportStdParms* stdParms, prsdk::exExporterInstanceRec* rec) {
    auto* exporter = new (std::nothrow) PremiereExporter(rec->exporterPluginID, stdParms);
    if (!exporter)
        return prsdk::exportReturn_ErrMemory;
    rec->privateData = exporter;
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 EndInstance(prsdk::exportStdParms* stdParms, prsdk::exExporterInstanceRec* rec) {
    auto* exporter = static_cast<PremiereExporter*>(rec->privateData);
    if (exporter)
        exporter->ReleaseSuites(stdParms);
    delete exporter;
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 QueryExportFileExtension(prsdk::exQueryExportFileExtensionRec* rec) {
    // Only "avi" and its terminating zero: the rest of the host's buffer stays as it was.
    std::copy_n(kDefaultExtension, 4, rec->outFileExtension);
    return prsdk::exportReturn_ErrNone;
}

prsdk::int32 Dispatch(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1) {
    switch (selector) {
    case prsdk::exSelStartup:
        return Startup(static_cast<prsdk::exExporterInfoRec*>(param1));
    case prsdk::exSelBeginInstance:
        return BeginInstance(stdParms, static_cast<prsdk::exExporterInstanceRec*>(param1));
    case prsdk::exSelEndInstance:
        return EndInstance(stdParms, static_cast<prsdk::exExporterInstanceRec*>(param1));
    case prsdk::exSelGenerateDefaultParams:
        return GenerateDefaultParams(*InstanceOf(param1),
                                     static_cast<prsdk::exGenerateDefaultParamRec*>(param1));
    case prsdk::exSelPostProcessParams:
        return PostProcessParams(*InstanceOf(param1), static_cast<prsdk::exPostProcessParamsRec*>(param1));
    case prsdk::exSelValidateParamChanged:
        return ValidateParamChanged(*InstanceOf(param1), static_cast<prsdk::exParamChangedRec*>(param1));
    case prsdk::exSelGetParamSummary:
        return GetParamSummary(*InstanceOf(param1), static_cast<prsdk::exParamSummaryRec*>(param1));
    case prsdk::exSelParamButton:
        return prsdk::exportReturn_ErrNone; // the exporter has no buttons
    case prsdk::exSelExport:
        return DoExport(*InstanceOf(param1), stdParms, static_cast<prsdk::exDoExportRec*>(param1));
    case prsdk::exSelQueryExportFileExtension:
        return QueryExportFileExtension(static_cast<prsdk::exQueryExportFileExtensionRec*>(param1));
    case prsdk::exSelQueryOutputSettings:
        return QueryOutputSettings(*InstanceOf(param1),
                                   static_cast<prsdk::exQueryOutputSettingsRec*>(param1));
    default:
        return prsdk::exportReturn_Unsupported;
    }
}

} // namespace QVN
