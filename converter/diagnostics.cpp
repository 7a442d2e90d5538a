#include "converter/diagnostics.h"

#include <cstdarg>
#include <cstdio>

namespace QVN::Converter::Video::detail {

void Diagnostic(const char* format, ...) {
    char line[512];
    std::va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(line, sizeof line, format, args);
    va_end(args);
    if (length < 0) {
        return;
    }
    std::fputs(line, stderr);
    std::fflush(stderr);
}

} // namespace QVN::Converter::Video::detail
