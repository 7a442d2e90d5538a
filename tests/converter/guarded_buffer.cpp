#include "guarded_buffer.h"

#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace qvn_test {
namespace {

std::size_t PageBytes() {
#if defined(_WIN32)
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
#else
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
#endif
}

} // namespace

GuardedBuffer::GuardedBuffer(std::size_t size, bool align16) {
    const std::size_t page = PageBytes();
    const std::size_t dataPages = (size + page - 1) / page;
    mappingBytes_ = (dataPages + 1) * page;
#if defined(_WIN32)
    mapping_ = VirtualAlloc(nullptr, mappingBytes_, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    DWORD old = 0;
    if (mapping_ == nullptr ||
        !VirtualProtect(static_cast<std::uint8_t*>(mapping_) + dataPages * page, page, PAGE_NOACCESS, &old))
        std::abort();
#else
    mapping_ = mmap(nullptr, mappingBytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping_ == MAP_FAILED ||
        mprotect(static_cast<std::uint8_t*>(mapping_) + dataPages * page, page, PROT_NONE) != 0)
        std::abort();
#endif
    const auto end = reinterpret_cast<std::uintptr_t>(mapping_) + dataPages * page;
    std::uintptr_t start = end - size;
    if (align16)
        start &= ~std::uintptr_t{15};
    data_ = reinterpret_cast<std::uint8_t*>(start);
}

GuardedBuffer::~GuardedBuffer() {
#if defined(_WIN32)
    VirtualFree(mapping_, 0, MEM_RELEASE);
#else
    munmap(mapping_, mappingBytes_);
#endif
}

} // namespace qvn_test
