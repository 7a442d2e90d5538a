// The module's one exported function. No exception ever leaves it: the host would terminate.
#include "exporter/selectors.h"

PR_EXPORT prsdk::int32 xSDKExport(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1,
                                  void*) {
    try {
        return QVN::Dispatch(selector, stdParms, param1);
    } catch (...) {
        return prsdk::exportReturn_InternalError;
    }
}
