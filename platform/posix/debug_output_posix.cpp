#include <cstdio>

#include "platform/debug_output.h"

namespace QVN {

void DebugOutput(const char* text) {
    std::fputs(text, stderr);
    std::fflush(stderr);
}

} // namespace QVN
