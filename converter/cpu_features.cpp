#include "converter/cpu_features.h"

#include <cstdlib>
#include <cstring>

namespace QVN::Converter::Video::detail {

bool CpuHasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}

VectorIsa ActiveVectorIsa() {
    static const VectorIsa isa = [] {
        const char* forced = std::getenv("QVN_SIMD");
        if (forced != nullptr && std::strcmp(forced, "sse2") == 0) {
            return VectorIsa::kSse2;
        }
        return CpuHasAvx2() ? VectorIsa::kAvx2 : VectorIsa::kSse2;
    }();
    return isa;
}

} // namespace QVN::Converter::Video::detail
