// The selector handlers behind the entry point. Each may throw; the entry point catches everything.
#pragma once

#include "exporter/premiere_exporter.h"
#include "prsdk/prsdk.h"

namespace QVN {

prsdk::int32 Startup(prsdk::exExporterInfoRec* info);
prsdk::int32 BeginInstance(prsdk::exportStdParms* stdParms, prsdk::exExporterInstanceRec* rec);
prsdk::int32 EndInstance(prsdk::exportStdParms* stdParms, prsdk::exExporterInstanceRec* rec);
prsdk::int32 QueryExportFileExtension(prsdk::exQueryExportFileExtensionRec* rec);

// Settings (parameter tree, labels, value lists, summaries, output settings).
prsdk::int32 GenerateDefaultParams(PremiereExporter& exporter, prsdk::exGenerateDefaultParamRec* rec);
prsdk::int32 PostProcessParams(PremiereExporter& exporter, prsdk::exPostProcessParamsRec* rec);
prsdk::int32 ValidateParamChanged(PremiereExporter& exporter, prsdk::exParamChangedRec* rec);
prsdk::int32 GetParamSummary(PremiereExporter& exporter, prsdk::exParamSummaryRec* rec);
prsdk::int32 QueryOutputSettings(PremiereExporter& exporter, prsdk::exQueryOutputSettingsRec* rec);

// The export run.
prsdk::int32 DoExport(PremiereExporter& exporter, prsdk::exportStdParms* stdParms, prsdk::exDoExportRec* rec);

// The whole dispatch, without the catch-all of the exported entry point.
prsdk::int32 Dispatch(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1);

} // namespace QVN
