// Turning the operating system's error numbers into HRESULTs, the one failure currency of the file layer.
#pragma once

#include "platform/win_types.h"

namespace QVN {

// The HRESULT for the calling thread's last system error (GetLastError on Windows, errno elsewhere).
HRESULT HresultFromLastError();

// The HRESULT for an errno value. Windows builds use it only in tests; the mapping is documented in the
// README ("Errors") and pinned by the platform tests.
HRESULT HresultFromErrno(int err);

} // namespace QVN
