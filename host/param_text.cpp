#include "host/param_text.h"

#include <cctype>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/text_encoding.h"

namespace qvnhost {
namespace {

// Sets the one-line message and answers false.
bool Fail(std::string* error, std::string message) {
    *error = std::move(message);
    return false;
}

bool IEquals(const std::string& a, const std::string& b) {
    if (a.size() != b.size())
        return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    }
    return true;
}

bool ParseInt64(const std::string& text, std::int64_t* out) {
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, *out);
    return !text.empty() && ec == std::errc() && ptr == end;
}

bool ParseDouble(const std::string& text, double* out) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text[0])))
        return false;
    char* end = nullptr;
    *out = std::strtod(text.c_str(), &end);
    return end == text.c_str() + text.size();
}

// A code of four characters, first in the lowest byte.
bool ParseFourCC(const std::string& text, std::int32_t* out) {
    if (text.size() != 4)
        return false;
    std::uint32_t code = 0;
    for (int i = 3; i >= 0; --i)
        code = code << 8 | static_cast<unsigned char>(text[static_cast<std::size_t>(i)]);
    *out = static_cast<std::int32_t>(code);
    return true;
}

bool SameValue(prsdk::exParamType type, const prsdk::exOneParamValueRec& a,
               const prsdk::exOneParamValueRec& b) {
    switch (type) {
    case prsdk::exParamType_bool:
    case prsdk::exParamType_int:
        return a.intValue == b.intValue;
    case prsdk::exParamType_float:
        return a.floatValue == b.floatValue;
    case prsdk::exParamType_ticksFrameRate:
    case prsdk::exParamType_ticksTime:
        return a.timeValue == b.timeValue;
    case prsdk::exParamType_ratio:
        return a.ratioValue.numerator == b.ratioValue.numerator &&
               a.ratioValue.denominator == b.ratioValue.denominator;
    default:
        return std::memcmp(&a, &b, sizeof a) == 0;
    }
}

// A value of p's type, without regard to its list or range; false when text is not one.
bool ParseTyped(const StoredParam& p, const std::string& text, prsdk::exOneParamValueRec* v) {
    std::int64_t whole = 0;
    switch (p.type) {
    case prsdk::exParamType_bool: {
        const bool on = text == "1" || IEquals(text, "true") || IEquals(text, "on");
        const bool off = text == "0" || IEquals(text, "false") || IEquals(text, "off");
        v->intValue = on ? 1 : 0;
        return on || off;
    }
    case prsdk::exParamType_int:
        if (ParseInt64(text, &whole) && whole >= INT32_MIN && whole <= INT32_MAX) {
            v->intValue = static_cast<std::int32_t>(whole);
            return true;
        }
        return ParseFourCC(text, &v->intValue);
    case prsdk::exParamType_float:
        return ParseDouble(text, &v->floatValue);
    case prsdk::exParamType_ticksFrameRate:
    case prsdk::exParamType_ticksTime:
        return ParseInt64(text, &v->timeValue);
    case prsdk::exParamType_ratio: {
        const std::size_t slash = text.find_first_of("/:");
        std::int64_t num = 0;
        std::int64_t den = 0;
        if (slash == std::string::npos || !ParseInt64(text.substr(0, slash), &num) ||
            !ParseInt64(text.substr(slash + 1), &den) || den <= 0 || num <= 0 || num > INT32_MAX ||
            den > INT32_MAX)
            return false;
        v->ratioValue = {static_cast<std::int32_t>(num), static_cast<std::int32_t>(den)};
        return true;
    }
    default:
        return false;
    }
}

// The range a free value must keep to; false when the parameter has none (both ends zero).
bool HasRange(const StoredParam& p) {
    if (p.type == prsdk::exParamType_int)
        return p.values.rangeMin.intValue != 0 || p.values.rangeMax.intValue != 0;
    if (p.type == prsdk::exParamType_float)
        return p.values.rangeMin.floatValue != 0.0 || p.values.rangeMax.floatValue != 0.0;
    return false;
}

bool InRange(const StoredParam& p, const prsdk::exOneParamValueRec& v) {
    if (p.type == prsdk::exParamType_int)
        return v.intValue >= p.values.rangeMin.intValue && v.intValue <= p.values.rangeMax.intValue;
    return v.floatValue >= p.values.rangeMin.floatValue && v.floatValue <= p.values.rangeMax.floatValue;
}

std::string ChoiceNames(const StoredParam& p) {
    std::string names;
    for (const ConstrainedValue& c : p.choices)
        names += (names.empty() ? "" : ", ") + QVN::Utf16ToUtf8(c.name);
    return names;
}

} // namespace

const char* TypeName(prsdk::exParamType type) {
    switch (type) {
    case prsdk::exParamType_bool:
        return "on/off";
    case prsdk::exParamType_int:
        return "integer";
    case prsdk::exParamType_float:
        return "number";
    case prsdk::exParamType_ticksFrameRate:
        return "ticks per frame";
    case prsdk::exParamType_ticksTime:
        return "ticks";
    case prsdk::exParamType_string:
        return "text";
    case prsdk::exParamType_ratio:
        return "ratio N/D";
    case prsdk::exParamType_group:
        return "group";
    default:
        return "value the dialog cannot type";
    }
}

std::string ValueText(const StoredParam& p, const prsdk::exOneParamValueRec& v) {
    char text[64];
    switch (p.type) {
    case prsdk::exParamType_bool:
        return v.intValue ? "on" : "off";
    case prsdk::exParamType_int: {
        const auto code = static_cast<std::uint32_t>(v.intValue);
        std::string chars;
        for (int shift = 0; shift < 32; shift += 8) {
            const auto c = static_cast<unsigned char>(code >> shift);
            if (!std::isalnum(c) && c != ' ')
                return std::to_string(v.intValue);
            chars += static_cast<char>(c);
        }
        return "'" + chars + "'";
    }
    case prsdk::exParamType_float:
        std::snprintf(text, sizeof text, "%.10g", v.floatValue);
        return text;
    case prsdk::exParamType_ticksFrameRate:
    case prsdk::exParamType_ticksTime:
        std::snprintf(text, sizeof text, "%" PRId64, v.timeValue);
        return text;
    case prsdk::exParamType_ratio:
        return std::to_string(v.ratioValue.numerator) + "/" + std::to_string(v.ratioValue.denominator);
    default:
        return "";
    }
}

int ChoiceIndex(const StoredParam& p, const prsdk::exOneParamValueRec& value) {
    for (std::size_t i = 0; i < p.choices.size(); ++i) {
        if (SameValue(p.type, p.choices[i].value, value))
            return static_cast<int>(i);
    }
    return -1;
}

bool ParseUserValue(const StoredParam& p, const std::string& text, prsdk::exParamValues* values,
                    std::string* error) {
    const std::string& id = p.identifier;
    if (p.type == prsdk::exParamType_string) {
        const std::u16string wide = QVN::Utf8ToUtf16(text);
        if (wide.size() > 255)
            return Fail(error, "text too long for " + id + " (at most 255 characters)");
        std::memset(values->paramString, 0, sizeof values->paramString);
        for (std::size_t i = 0; i < wide.size(); ++i)
            values->paramString[i] = static_cast<prsdk::prUTF16Char>(wide[i]);
        return true;
    }
    if (!p.choices.empty() && !p.choicesOptional) {
        for (const bool ignoreCase : {false, true}) {
            for (const ConstrainedValue& c : p.choices) {
                const std::string name = QVN::Utf16ToUtf8(c.name);
                if (ignoreCase ? IEquals(name, text) : name == text) {
                    values->value = c.value;
                    return true;
                }
            }
        }
        prsdk::exOneParamValueRec typed{};
        if (ParseTyped(p, text, &typed)) {
            const int index = ChoiceIndex(p, typed);
            if (index >= 0) {
                values->value = p.choices[static_cast<std::size_t>(index)].value;
                return true;
            }
        }
        return Fail(error,
                    "value not offered for " + id + ": " + text + " (choices: " + ChoiceNames(p) + ")");
    }
    prsdk::exOneParamValueRec typed{};
    if (!ParseTyped(p, text, &typed))
        return Fail(error, "malformed value for " + id + " (" + TypeName(p.type) + " expected): " + text);
    if (HasRange(p) && !InRange(p, typed))
        return Fail(error, "value out of range for " + id + ": " + text + " (" +
                               ValueText(p, p.values.rangeMin) + " to " + ValueText(p, p.values.rangeMax) +
                               ")");
    values->value = typed;
    return true;
}

} // namespace qvnhost
