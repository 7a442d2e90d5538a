// Page-committed memory and guarded buffers on VirtualAlloc.
#include "platform/virtual_memory.h"
#include "platform/win_types.h"

namespace QVN {

std::size_t PageSize() {
    SYSTEM_INFO info;
    GetSystemInfo(&info);
    return info.dwPageSize;
}

void* CommitPages(std::size_t bytes) {
    if (bytes == 0)
        return nullptr;
    return VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
}

void ReleasePages(void* block, std::size_t) {
    if (block)
        VirtualFree(block, 0, MEM_RELEASE);
}

CGuardedBuffer::CGuardedBuffer(std::size_t bytes, bool endAligned) : size_(bytes) {
    const std::size_t page = PageSize();
    const std::size_t dataPages = (bytes + page - 1) / page;
    total_ = (dataPages + 2) * page;
    base_ = static_cast<unsigned char*>(VirtualAlloc(nullptr, total_, MEM_RESERVE, PAGE_NOACCESS));
    if (!base_) {
        total_ = 0;
        size_ = 0;
        return;
    }
    if (dataPages)
        VirtualAlloc(base_ + page, dataPages * page, MEM_COMMIT, PAGE_READWRITE);
    data_ = endAligned ? base_ + page + dataPages * page - bytes : base_ + page;
}

CGuardedBuffer::~CGuardedBuffer() {
    if (base_)
        VirtualFree(base_, 0, MEM_RELEASE);
}

} // namespace QVN
