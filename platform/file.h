// A file handle for writing, in the two kinds the AVI writer needs: cached, and unbuffered (the data goes
// straight to the disk, FILE_FLAG_NO_BUFFERING / O_DIRECT). Unbuffered writes need buffer addresses, sizes
// and positions that are multiples of the sector size; 4096 satisfies every disk we support, and a write
// that breaks the rule fails. Where the file system refuses unbuffered I/O at open (some network shares),
// the handle silently becomes a cached one.
// Every failure is an HRESULT made from the system's error. Setting the environment variable
// QVN_NO_UNBUFFERED=1 makes every unbuffered open take that fall back, for disks whose drivers misbehave.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/win_types.h"

namespace QVN {

enum class FileCreation {
    kCreateAlways, // create, or truncate an existing file
    kOpenExisting, // the file must exist; keep its content
    kOpenAlways,   // create when absent; keep the content of an existing file
};

enum class FileBuffering { kCached, kUnbuffered };

class CFile {
public:
    CFile() = default;
    ~CFile();
    CFile(const CFile&) = delete;
    CFile& operator=(const CFile&) = delete;
    CFile(CFile&& other) noexcept;
    CFile& operator=(CFile&& other) noexcept;

    // path is UTF-8. Opens for writing (and reading), shared for writing with other handles of this process.
    HRESULT Open(const char* path, FileCreation creation, FileBuffering buffering);
    // Opens an existing file for reading only (cached).
    HRESULT OpenRead(const char* path);
    HRESULT Close();
    bool IsOpen() const;
    // True when the handle really bypasses the cache (false after a fallback).
    bool IsUnbuffered() const { return unbuffered_; }

    // Writes all of data at the current position and advances it.
    HRESULT Write(const void* data, std::size_t size);
    // Writes all of data at an absolute position; the current position is left undefined.
    HRESULT WriteAt(std::uint64_t position, const void* data, std::size_t size);
    // Reads up to size bytes at the current position; *got is what was read (0 at the end).
    HRESULT Read(void* data, std::size_t size, std::size_t* got);
    HRESULT Seek(std::uint64_t position);
    HRESULT SeekToEnd(std::uint64_t* position = nullptr);
    HRESULT Position(std::uint64_t* position) const;
    HRESULT Size(std::uint64_t* size) const;

private:
#ifdef _WIN32
    void* handle_ = nullptr;
#else
    int fd_ = -1;
#endif
    bool unbuffered_ = false;
};

// True when QVN_NO_UNBUFFERED asks for cached I/O only (read at each open).
bool UnbufferedIoDisabled();

// Deletes a file; S_OK when it did not exist.
HRESULT DeleteFileUtf8(const char* path);

} // namespace QVN
