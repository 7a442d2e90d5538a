// A counting semaphore with a maximum count, like a Win32 semaphore.
#pragma once

#include <cstdint>

#include "platform/event.h"

namespace QVN {

class CSemaphore {
public:
    CSemaphore(std::int32_t initialCount, std::int32_t maximumCount);
    ~CSemaphore();
    CSemaphore(const CSemaphore&) = delete;
    CSemaphore& operator=(const CSemaphore&) = delete;

    // False when the semaphore could not be created; every other call then fails.
    bool IsValid() const { return impl_ != nullptr; }
    // Adds count; fails (and changes nothing) when that would pass the maximum or count <= 0.
    bool Release(std::int32_t count = 1, std::int32_t* previousCount = nullptr);
    // Takes one unit; false on time-out.
    bool Wait(std::uint32_t timeoutMs = kInfinite);

private:
    struct Impl;
    Impl* impl_;
};

} // namespace QVN
