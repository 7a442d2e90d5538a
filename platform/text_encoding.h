// Conversions between the host's UTF-16 strings, wide strings and the UTF-8 narrow strings that the file
// layer takes. Invalid sequences become U+FFFD rather than failing: a path is never silently truncated.
#pragma once

#include <string>
#include <string_view>

namespace QVN {

std::string Utf16ToUtf8(std::u16string_view text);
std::u16string Utf8ToUtf16(std::string_view text);
std::string WideToUtf8(std::wstring_view text);
std::wstring Utf8ToWide(std::string_view text);

} // namespace QVN
