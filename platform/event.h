// An auto-reset event: Set releases exactly one waiter (or the next thread to wait), then resets itself.
#pragma once

#include <cstdint>

namespace QVN {

inline constexpr std::uint32_t kInfinite = 0xFFFFFFFFu;

class CAutoResetEvent {
public:
    CAutoResetEvent(); // not signalled
    ~CAutoResetEvent();
    CAutoResetEvent(const CAutoResetEvent&) = delete;
    CAutoResetEvent& operator=(const CAutoResetEvent&) = delete;

    bool IsValid() const { return impl_ != nullptr; }
    void Set();
    // True when signalled (the signal is consumed), false on time-out.
    bool Wait(std::uint32_t timeoutMs = kInfinite);

private:
    struct Impl;
    Impl* impl_;
};

} // namespace QVN
