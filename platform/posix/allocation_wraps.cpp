// The allocation functions of a build with QVN_ALLOCATION_FAULTS: the binary is linked with --wrap for each
// of them, so that every call made by its own code comes here first and can be made to fail the way the
// real function fails (null, MAP_FAILED with ENOMEM, or std::bad_alloc). Calls made inside the C and C++
// libraries themselves are not seen.
#include <cerrno>
#include <cstddef>
#include <new>
#include <sys/mman.h>
#include <sys/types.h>

#include "platform/allocation_faults.h"

using QVN::AllocationFaults::Fail;

extern "C" {

void* __real_malloc(std::size_t bytes);
void* __real_calloc(std::size_t count, std::size_t bytes);
void* __real_realloc(void* block, std::size_t bytes);
void* __real_mmap(void* address, std::size_t bytes, int protection, int flags, int fd, off_t offset);
void* __real__Znwm(std::size_t bytes);
void* __real__Znam(std::size_t bytes);
void* __real__ZnwmRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& tag) noexcept;
void* __real__ZnamRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& tag) noexcept;

void* __wrap_malloc(std::size_t bytes) {
    return Fail() ? nullptr : __real_malloc(bytes);
}

void* __wrap_calloc(std::size_t count, std::size_t bytes) {
    return Fail() ? nullptr : __real_calloc(count, bytes);
}

void* __wrap_realloc(void* block, std::size_t bytes) {
    return Fail() ? nullptr : __real_realloc(block, bytes); // a failed realloc leaves the block alone
}

void* __wrap_mmap(void* address, std::size_t bytes, int protection, int flags, int fd, off_t offset) {
    if ((flags & MAP_ANONYMOUS) && Fail()) {
        errno = ENOMEM;
        return MAP_FAILED;
    }
    return __real_mmap(address, bytes, protection, flags, fd, offset);
}

void* __wrap__Znwm(std::size_t bytes) {
    if (Fail())
        throw std::bad_alloc();
    return __real__Znwm(bytes);
}

void* __wrap__Znam(std::size_t bytes) {
    if (Fail())
        throw std::bad_alloc();
    return __real__Znam(bytes);
}

void* __wrap__ZnwmRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& tag) noexcept {
    return Fail() ? nullptr : __real__ZnwmRKSt9nothrow_t(bytes, tag);
}

void* __wrap__ZnamRKSt9nothrow_t(std::size_t bytes, const std::nothrow_t& tag) noexcept {
    return Fail() ? nullptr : __real__ZnamRKSt9nothrow_t(bytes, tag);
}

} // extern "C"
