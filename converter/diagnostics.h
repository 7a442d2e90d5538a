// The one route by which the converters report to the standard error stream.
#pragma once

namespace QVN::Converter::Video::detail {

// Formats one line and writes it to stderr in a single write, so that lines from converters running on
// several host threads do not interleave.
#if defined(__GNUC__)
__attribute__((format(printf, 1, 2)))
#endif
void Diagnostic(const char* format, ...);

} // namespace QVN::Converter::Video::detail
