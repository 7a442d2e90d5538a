// The process-wide r210 look-up tables built by r210::Init.
#pragma once

#include <cstddef>
#include <cstdint>

namespace QVN::Converter::Video::detail {

inline constexpr std::size_t kR210LutEntries = 32769; // every 16u component 0..32768
inline constexpr std::size_t kComponentLutEntries = 1024;

// Valid once r210::Init has returned 0 for a host pixel format; null before.
const std::uint16_t* R210Lut();
const std::uint8_t* Component8uLut();
const std::uint16_t* Component16uLut();
const float* Component32fLut();

// Test hook: allocation goes through `allocator` (null restores the process heap) and the tables are
// forgotten, without being freed, so that the next Init builds them again through it.
using TableAllocator = void* (*)(std::size_t bytes);
void SetTableAllocatorForTesting(TableAllocator allocator);

} // namespace QVN::Converter::Video::detail
