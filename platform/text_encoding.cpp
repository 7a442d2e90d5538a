// UTF-8 / UTF-16 / wide conversions written out by hand: the same code on both targets, no locale involved.
#include "platform/text_encoding.h"

#include <cstdint>

namespace QVN {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& out, char32_t c) {
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        c = kReplacement;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

template <class Out> void AppendUtf16(Out& out, char32_t c) {
    using Unit = typename Out::value_type;
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        c = kReplacement;
    if (c < 0x10000) {
        out += static_cast<Unit>(c);
    } else {
        c -= 0x10000;
        out += static_cast<Unit>(0xD800 + (c >> 10));
        out += static_cast<Unit>(0xDC00 + (c & 0x3FF));
    }
}

// Decodes one code point of UTF-8 at text[i], advancing i; malformed input yields U+FFFD for one byte.
char32_t NextUtf8(std::string_view text, std::size_t& i) {
    const auto b0 = static_cast<unsigned char>(text[i++]);
    if (b0 < 0x80)
        return b0;
    int extra;
    char32_t c;
    char32_t minimum;
    if ((b0 & 0xE0) == 0xC0) {
        extra = 1, c = b0 & 0x1F, minimum = 0x80;
    } else if ((b0 & 0xF0) == 0xE0) {
        extra = 2, c = b0 & 0x0F, minimum = 0x800;
    } else if ((b0 & 0xF8) == 0xF0) {
        extra = 3, c = b0 & 0x07, minimum = 0x10000;
    } else {
        return kReplacement;
    }
    std::size_t j = i;
    for (int k = 0; k < extra; ++k, ++j) {
        if (j >= text.size() || (static_cast<unsigned char>(text[j]) & 0xC0) != 0x80)
            return kReplacement;
        c = (c << 6) | (static_cast<unsigned char>(text[j]) & 0x3F);
    }
    if (c < minimum || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))
        return kReplacement;
    i = j;
    return c;
}

template <class Unit> char32_t NextUtf16(std::basic_string_view<Unit> text, std::size_t& i) {
    const auto u0 = static_cast<char32_t>(static_cast<std::uint16_t>(text[i++]));
    if (u0 < 0xD800 || u0 > 0xDFFF)
        return u0;
    if (u0 <= 0xDBFF && i < text.size()) {
        const auto u1 = static_cast<char32_t>(static_cast<std::uint16_t>(text[i]));
        if (u1 >= 0xDC00 && u1 <= 0xDFFF) {
            ++i;
            return 0x10000 + ((u0 - 0xD800) << 10) + (u1 - 0xDC00);
        }
    }
    return kReplacement;
}

} // namespace

std::string Utf16ToUtf8(std::u16string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();)
        AppendUtf8(out, NextUtf16(text, i));
    return out;
}

std::u16string Utf8ToUtf16(std::string_view text) {
    std::u16string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();)
        AppendUtf16(out, NextUtf8(text, i));
    return out;
}

std::string WideToUtf8(std::wstring_view text) {
    if constexpr (sizeof(wchar_t) == 2) {
        std::string out;
        for (std::size_t i = 0; i < text.size();)
            AppendUtf8(out, NextUtf16(text, i));
        return out;
    } else {
        std::string out;
        for (wchar_t w : text)
            AppendUtf8(out, static_cast<char32_t>(w));
        return out;
    }
}

std::wstring Utf8ToWide(std::string_view text) {
    std::wstring out;
    for (std::size_t i = 0; i < text.size();) {
        const char32_t c = NextUtf8(text, i);
        if constexpr (sizeof(wchar_t) == 2)
            AppendUtf16(out, c);
        else
            out += static_cast<wchar_t>(c);
    }
    return out;
}

} // namespace QVN
