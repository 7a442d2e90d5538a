// Page-committed memory straight from the operating system (VirtualAlloc / mmap). Blocks start on a page
// boundary, so they satisfy both the vector code (16 or 32 bytes) and unbuffered file I/O (4096 bytes).
#pragma once

#include <cstddef>

namespace QVN {

std::size_t PageSize();

// Committed read-write memory, zero-filled; null on failure.
void* CommitPages(std::size_t bytes);
void ReleasePages(void* block, std::size_t bytes);

// A buffer whose last byte abuts an inaccessible page, and whose first byte follows one, so that any read
// or write past either end faults at once. For tests of code that must stay inside its buffer.
class CGuardedBuffer {
public:
    // The data area is `bytes` long and ends exactly at the trailing guard page; `endAligned` false puts
    // the start on a page boundary instead (the end is then followed by slack up to the guard page).
    explicit CGuardedBuffer(std::size_t bytes, bool endAligned = true);
    ~CGuardedBuffer();
    CGuardedBuffer(const CGuardedBuffer&) = delete;
    CGuardedBuffer& operator=(const CGuardedBuffer&) = delete;

    unsigned char* data() const { return data_; }
    std::size_t size() const { return size_; }

private:
    unsigned char* base_ = nullptr;
    std::size_t total_ = 0;
    unsigned char* data_ = nullptr;
    std::size_t size_ = 0;
};

} // namespace QVN
