// Atomic increment and decrement of a shared 32-bit counter, returning the new value (like Interlocked*).
#pragma once

#include <cstdint>

namespace QVN {

inline std::int32_t InterlockedInc(volatile std::int32_t* value) {
    return __atomic_add_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline std::int32_t InterlockedDec(volatile std::int32_t* value) {
    return __atomic_sub_fetch(value, 1, __ATOMIC_SEQ_CST);
}
inline std::int32_t InterlockedRead(const volatile std::int32_t* value) {
    return __atomic_load_n(value, __ATOMIC_SEQ_CST);
}
inline void InterlockedWrite(volatile std::int32_t* value, std::int32_t newValue) {
    __atomic_store_n(value, newValue, __ATOMIC_SEQ_CST);
}

} // namespace QVN
