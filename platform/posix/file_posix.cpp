// The write handles of the AVI writer on POSIX: O_DIRECT for the unbuffered kind, with a fall back to a
// cached descriptor where the file system refuses it at open. A descriptor opened with O_DIRECT stays so:
// a misaligned write through it fails (EINVAL), as the same write fails on Windows.
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/file.h"
#include "platform/hresult.h"

namespace QVN {

namespace {

// When a file is being created, ENOENT can only mean a missing folder on the way, which Windows reports
// as "path not found"; both targets answer the same.
HRESULT OpenFailure(int flags) {
    if (errno == ENOENT && (flags & O_CREAT))
        return HRESULT_FROM_WIN32(kErrorPathNotFound);
    return HresultFromLastError();
}

} // namespace

CFile::~CFile() {
    Close();
}

CFile::CFile(CFile&& other) noexcept : fd_(other.fd_), unbuffered_(other.unbuffered_) {
    other.fd_ = -1;
    other.unbuffered_ = false;
}

CFile& CFile::operator=(CFile&& other) noexcept {
    if (this != &other) {
        Close();
        fd_ = other.fd_;
        unbuffered_ = other.unbuffered_;
        other.fd_ = -1;
        other.unbuffered_ = false;
    }
    return *this;
}

bool CFile::IsOpen() const {
    return fd_ >= 0;
}

HRESULT CFile::Open(const char* path, FileCreation creation, FileBuffering buffering) {
    Close();
    if (!path)
        return E_POINTER;
    int flags = O_RDWR | O_CLOEXEC;
    if (creation == FileCreation::kCreateAlways)
        flags |= O_CREAT | O_TRUNC;
    else if (creation == FileCreation::kOpenAlways)
        flags |= O_CREAT;
    if (buffering == FileBuffering::kUnbuffered) {
        if (UnbufferedIoDisabled()) {
            fd_ = -1;
            errno = EINVAL; // taken exactly like a file system without direct I/O
        } else {
            fd_ = open(path, flags | O_DIRECT, 0666);
        }
        if (fd_ >= 0) {
            unbuffered_ = true;
            return S_OK;
        }
        if (errno != EINVAL) // EINVAL: this file system has no direct I/O; anything else is a real failure
            return OpenFailure(flags);
    }
    fd_ = open(path, flags, 0666);
    if (fd_ < 0)
        return OpenFailure(flags);
    return S_OK;
}

HRESULT CFile::OpenRead(const char* path) {
    Close();
    if (!path)
        return E_POINTER;
    fd_ = open(path, O_RDONLY | O_CLOEXEC);
    return fd_ < 0 ? HresultFromLastError() : S_OK;
}

HRESULT CFile::Close() {
    if (fd_ < 0)
        return S_OK;
    const int rc = close(fd_);
    fd_ = -1;
    unbuffered_ = false;
    return rc == 0 ? S_OK : HresultFromLastError();
}

HRESULT CFile::Write(const void* data, std::size_t size) {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    const auto* p = static_cast<const unsigned char*>(data);
    while (size > 0) {
        const ssize_t n = write(fd_, p, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return HresultFromLastError();
        }
        if (n == 0)
            return HRESULT_FROM_WIN32(kErrorDiskFull);
        p += n;
        size -= static_cast<std::size_t>(n);
    }
    return S_OK;
}

HRESULT CFile::WriteAt(std::uint64_t position, const void* data, std::size_t size) {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    const auto* p = static_cast<const unsigned char*>(data);
    while (size > 0) {
        const ssize_t n = pwrite(fd_, p, size, static_cast<off_t>(position));
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return HresultFromLastError();
        }
        if (n == 0)
            return HRESULT_FROM_WIN32(kErrorDiskFull);
        p += n;
        size -= static_cast<std::size_t>(n);
        position += static_cast<std::uint64_t>(n);
    }
    return S_OK;
}

HRESULT CFile::Read(void* data, std::size_t size, std::size_t* got) {
    *got = 0;
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    for (;;) {
        const ssize_t n = read(fd_, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return HresultFromLastError();
        *got = static_cast<std::size_t>(n);
        return S_OK;
    }
}

HRESULT CFile::Seek(std::uint64_t position) {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    if (position > static_cast<std::uint64_t>(INT64_MAX))
        return HRESULT_FROM_WIN32(kErrorNegativeSeek);
    return lseek(fd_, static_cast<off_t>(position), SEEK_SET) < 0 ? HresultFromLastError() : S_OK;
}

HRESULT CFile::SeekToEnd(std::uint64_t* position) {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    const off_t end = lseek(fd_, 0, SEEK_END);
    if (end < 0)
        return HresultFromLastError();
    if (position)
        *position = static_cast<std::uint64_t>(end);
    return S_OK;
}

HRESULT CFile::Position(std::uint64_t* position) const {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    const off_t pos = lseek(fd_, 0, SEEK_CUR);
    if (pos < 0)
        return HresultFromLastError();
    *position = static_cast<std::uint64_t>(pos);
    return S_OK;
}

HRESULT CFile::Size(std::uint64_t* size) const {
    if (fd_ < 0)
        return HRESULT_FROM_WIN32(kErrorInvalidHandle);
    struct stat st {};
    if (fstat(fd_, &st) != 0)
        return HresultFromLastError();
    *size = static_cast<std::uint64_t>(st.st_size);
    return S_OK;
}

HRESULT DeleteFileUtf8(const char* path) {
    if (unlink(path) == 0 || errno == ENOENT)
        return S_OK;
    return HresultFromLastError();
}

HRESULT HresultFromLastError() {
    return HresultFromErrno(errno);
}

} // namespace QVN
