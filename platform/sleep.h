// Sleep and a monotonic clock, in milliseconds.
#pragma once

#include <cstdint>

namespace QVN {

void SleepMs(std::uint32_t milliseconds);
std::uint64_t MonotonicMs();

} // namespace QVN
