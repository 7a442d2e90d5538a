// The export run: not built yet.
#include "exporter/selectors.h"

namespace QVN {

prsdk::int32 DoExport(PremiereExporter&, prsdk::exDoExportRec*) { return prsdk::exportReturn_Unsupported; }

} // namespace QVN
