// The debugger output channel: OutputDebugStringA on Windows, standard error elsewhere.
#pragma once

namespace QVN {

void DebugOutput(const char* text);

} // namespace QVN
