// Settings selectors: not built yet. The host treats -100 as "not supported" and 0 as "nothing to do".
#include "exporter/selectors.h"

namespace QVN {

prsdk::int32 GenerateDefaultParams(PremiereExporter&, prsdk::exGenerateDefaultParamRec*) {
    return prsdk::exportReturn_Unsupported;
}
prsdk::int32 PostProcessParams(PremiereExporter&, prsdk::exPostProcessParamsRec*) {
    return prsdk::exportReturn_Unsupported;
}
prsdk::int32 ValidateParamChanged(PremiereExporter&, prsdk::exParamChangedRec*) { return prsdk::exportReturn_ErrNone; }
prsdk::int32 GetParamSummary(PremiereExporter&, prsdk::exParamSummaryRec*) { return prsdk::exportReturn_ErrNone; }
prsdk::int32 QueryOutputSettings(PremiereExporter&, prsdk::exQueryOutputSettingsRec*) {
    return prsdk::exportReturn_Unsupported;
}

} // namespace QVN
