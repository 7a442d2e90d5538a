// Page-committed memory and guarded buffers on mmap.
#include <sys/mman.h>
#include <unistd.h>

#include "platform/virtual_memory.h"

namespace QVN {

std::size_t PageSize() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

void* CommitPages(std::size_t bytes) {
    if (bytes == 0)
        return nullptr;
    void* block = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return block == MAP_FAILED ? nullptr : block;
}

void ReleasePages(void* block, std::size_t bytes) {
    if (block)
        munmap(block, bytes);
}

CGuardedBuffer::CGuardedBuffer(std::size_t bytes, bool endAligned) : size_(bytes) {
    const std::size_t page = PageSize();
    const std::size_t dataPages = (bytes + page - 1) / page;
    total_ = (dataPages + 2) * page;
    void* block = mmap(nullptr, total_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (block == MAP_FAILED) {
        total_ = 0;
        size_ = 0;
        return;
    }
    base_ = static_cast<unsigned char*>(block);
    if (dataPages)
        mprotect(base_ + page, dataPages * page, PROT_READ | PROT_WRITE);
    data_ = endAligned ? base_ + page + dataPages * page - bytes : base_ + page;
}

CGuardedBuffer::~CGuardedBuffer() {
    if (base_)
        munmap(base_, total_);
}

} // namespace QVN
