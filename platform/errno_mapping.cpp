// errno -> HRESULT. The codes are those Windows reports for the same condition, so that callers and tests
// see one set of failures on both targets.
#include <cerrno>

#include "platform/hresult.h"

namespace QVN {

HRESULT HresultFromErrno(int err) {
    switch (err) {
    case 0:
        return S_OK;
    case ENOENT:
        return HRESULT_FROM_WIN32(kErrorFileNotFound);
    case ENOTDIR:
        return HRESULT_FROM_WIN32(kErrorPathNotFound);
    case EMFILE:
    case ENFILE:
        return HRESULT_FROM_WIN32(kErrorTooManyOpenFiles);
    case EACCES:
    case EPERM:
    case EISDIR:
        return HRESULT_FROM_WIN32(kErrorAccessDenied);
    case EBADF:
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    case ENOMEM:
        return E_OUTOFMEMORY;
    case EROFS:
        return HRESULT_FROM_WIN32(kErrorWriteProtect);
    case EEXIST:
        return HRESULT_FROM_WIN32(kErrorFileExists);
    case EINVAL:
        return HRESULT_FROM_WIN32(kErrorInvalidParameter);
    case ENOSPC:
        return HRESULT_FROM_WIN32(kErrorDiskFull);
    case ENAMETOOLONG:
        return HRESULT_FROM_WIN32(kErrorFilenameTooLong);
    case EFBIG:
        return HRESULT_FROM_WIN32(kErrorFileTooLarge);
    case EIO:
        return HRESULT_FROM_WIN32(kErrorIoDevice);
#ifdef EDQUOT
    case EDQUOT:
        return HRESULT_FROM_WIN32(kErrorDiskQuotaExceeded);
#endif
    default:
        return E_FAIL;
    }
}

} // namespace QVN
