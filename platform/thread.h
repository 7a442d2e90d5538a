// A joinable thread running a plain function.
#pragma once

#include <cstdint>

namespace QVN {

using ThreadProc = std::uint32_t (*)(void* argument);

class CThread {
public:
    CThread() = default;
    ~CThread(); // joins a thread that is still running
    CThread(const CThread&) = delete;
    CThread& operator=(const CThread&) = delete;
    CThread(CThread&& other) noexcept;
    CThread& operator=(CThread&& other) noexcept;

    bool Start(ThreadProc proc, void* argument);
    // Waits for the thread to end and returns its exit code (0 when it was never started).
    std::uint32_t Join();
    bool IsStarted() const { return handle_ != nullptr; }

private:
    void* handle_ = nullptr;
};

} // namespace QVN
