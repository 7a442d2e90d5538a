#include "platform/debug_output.h"
#include "platform/win_types.h"

namespace QVN {

void DebugOutput(const char* text) {
    OutputDebugStringA(text);
}

} // namespace QVN
