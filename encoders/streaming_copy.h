// Copying a whole frame into a payload buffer that only the disk will read again: stores that bypass the
// cache halve the memory traffic of the copy, which otherwise competes with the unbuffered writes of the
// writer thread for memory bandwidth.
#pragma once

#include <cstddef>

namespace QVN {

void StreamingCopy(void* destination, const void* source, std::size_t bytes);

} // namespace QVN
