// The write handles of the AVI writer on Win32: FILE_FLAG_NO_BUFFERING for the unbuffered kind, with a
// fall back to a cached handle where the file system refuses it.
#include "platform/file.h"
#include "platform/hresult.h"
#include "platform/text_encoding.h"

namespace QVN {

CFile::~CFile() {
    Close();
}

CFile::CFile(CFile&& other) noexcept : handle_(other.handle_), unbuffered_(other.unbuffered_) {
    other.handle_ = nullptr;
    other.unbuffered_ = false;
}

CFile& CFile::operator=(CFile&& other) noexcept {
    if (this != &other) {
        Close();
        handle_ = other.handle_;
        unbuffered_ = other.unbuffered_;
        other.handle_ = nullptr;
        other.unbuffered_ = false;
    }
    return *this;
}

bool CFile::IsOpen() const {
    return handle_ != nullptr;
}

HRESULT CFile::Open(const char* path, FileCreation creation, FileBuffering buffering) {
    Close();
    if (!path)
        return E_POINTER;
    const std::wstring wide = Utf8ToWide(path);
    const DWORD disposition = creation == FileCreation::kCreateAlways ? CREATE_ALWAYS
                              : creation == FileCreation::kOpenAlways ? OPEN_ALWAYS
                                                                      : OPEN_EXISTING;
    const DWORD access = GENERIC_READ | GENERIC_WRITE;
    const DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE;
    HANDLE h = INVALID_HANDLE_VALUE;
    if (buffering == FileBuffering::kUnbuffered) {
        if (UnbufferedIoDisabled())
            SetLastError(ERROR_INVALID_PARAMETER); // taken exactly like a file system that refuses it
        else
            h = CreateFileW(
                wide.c_str(), access, share, nullptr, disposition,
                FILE_ATTRIBUTE_NORMAL | FILE_ATTRIBUTE_NOT_CONTENT_INDEXED | FILE_FLAG_NO_BUFFERING, nullptr);
        if (h != INVALID_HANDLE_VALUE) {
            handle_ = h;
            unbuffered_ = true;
            return S_OK;
        }
        if (GetLastError() != ERROR_INVALID_PARAMETER) // the one refusal that means "no unbuffered I/O here"
            return HresultFromLastError();
    }
    h = CreateFileW(wide.c_str(), access, share, nullptr, disposition, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return HresultFromLastError();
    handle_ = h;
    return S_OK;
}

HRESULT CFile::OpenRead(const char* path) {
    Close();
    if (!path)
        return E_POINTER;
    const std::wstring wide = Utf8ToWide(path);
    HANDLE h = CreateFileW(wide.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return HresultFromLastError();
    handle_ = h;
    return S_OK;
}

HRESULT CFile::Close() {
    if (!handle_)
        return S_OK;
    const BOOL ok = CloseHandle(static_cast<HANDLE>(handle_));
    handle_ = nullptr;
    unbuffered_ = false;
    return ok ? S_OK : HresultFromLastError();
}

namespace {

HRESULT WriteAll(HANDLE h, const void* data, std::size_t size, OVERLAPPED* at) {
    const auto* p = static_cast<const unsigned char*>(data);
    while (size > 0) {
        const DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
        DWORD written = 0;
        if (!WriteFile(h, p, chunk, &written, at))
            return HresultFromLastError();
        if (written == 0)
            return HRESULT_FROM_WIN32(kErrorDiskFull);
        p += written;
        size -= written;
        if (at) {
            ULARGE_INTEGER next;
            next.LowPart = at->Offset;
            next.HighPart = at->OffsetHigh;
            next.QuadPart += written;
            at->Offset = next.LowPart;
            at->OffsetHigh = next.HighPart;
        }
    }
    return S_OK;
}

} // namespace

HRESULT CFile::Write(const void* data, std::size_t size) {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    return WriteAll(static_cast<HANDLE>(handle_), data, size, nullptr);
}

HRESULT CFile::WriteAt(std::uint64_t position, const void* data, std::size_t size) {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(position);
    at.OffsetHigh = static_cast<DWORD>(position >> 32);
    return WriteAll(static_cast<HANDLE>(handle_), data, size, &at);
}

HRESULT CFile::Read(void* data, std::size_t size, std::size_t* got) {
    *got = 0;
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    DWORD n = 0;
    const DWORD chunk = size > 0x40000000u ? 0x40000000u : static_cast<DWORD>(size);
    if (!ReadFile(static_cast<HANDLE>(handle_), data, chunk, &n, nullptr))
        return HresultFromLastError();
    *got = n;
    return S_OK;
}

HRESULT CFile::Seek(std::uint64_t position) {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    LARGE_INTEGER to;
    to.QuadPart = static_cast<LONGLONG>(position);
    return SetFilePointerEx(static_cast<HANDLE>(handle_), to, nullptr, FILE_BEGIN) ? S_OK
                                                                                   : HresultFromLastError();
}

HRESULT CFile::SeekToEnd(std::uint64_t* position) {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    LARGE_INTEGER zero{}, now{};
    if (!SetFilePointerEx(static_cast<HANDLE>(handle_), zero, &now, FILE_END))
        return HresultFromLastError();
    if (position)
        *position = static_cast<std::uint64_t>(now.QuadPart);
    return S_OK;
}

HRESULT CFile::Position(std::uint64_t* position) const {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    LARGE_INTEGER zero{}, now{};
    if (!SetFilePointerEx(static_cast<HANDLE>(handle_), zero, &now, FILE_CURRENT))
        return HresultFromLastError();
    *position = static_cast<std::uint64_t>(now.QuadPart);
    return S_OK;
}

HRESULT CFile::Size(std::uint64_t* size) const {
    if (!handle_)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    LARGE_INTEGER s{};
    if (!GetFileSizeEx(static_cast<HANDLE>(handle_), &s))
        return HresultFromLastError();
    *size = static_cast<std::uint64_t>(s.QuadPart);
    return S_OK;
}

HRESULT DeleteFileUtf8(const char* path) {
    const std::wstring wide = Utf8ToWide(path);
    if (DeleteFileW(wide.c_str()))
        return S_OK;
    const DWORD err = GetLastError();
    return err == ERROR_FILE_NOT_FOUND ? S_OK : HRESULT_FROM_WIN32(err);
}

HRESULT HresultFromLastError() {
    const DWORD err = GetLastError();
    return err == 0 ? E_FAIL : HRESULT_FROM_WIN32(err);
}

} // namespace QVN
