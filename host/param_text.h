// Parameter values as a user reads and types them in qvnhost's settings dialog.
#pragma once

#include <string>

#include "host/param_store.h"

namespace qvnhost {

// A value of p's type as text: integers in decimal (or 'abcd' when the four bytes are a printable
// four-character code), ratios as "N/D", frame rates and times in ticks, floats shortest.
std::string ValueText(const StoredParam& p, const prsdk::exOneParamValueRec& value);

// The choice of p whose value equals value, or -1.
int ChoiceIndex(const StoredParam& p, const prsdk::exOneParamValueRec& value);

// Reads what a user typed for p into *values (value or string only): one of p's choices by name (exact, then
// ignoring case) or by value, or, for a parameter without a fixed list, a value of its type within its
// range. False with a one-line *error otherwise.
bool ParseUserValue(const StoredParam& p, const std::string& text, prsdk::exParamValues* values,
                    std::string* error);

// "integer", "ratio", ... for messages.
const char* TypeName(prsdk::exParamType type);

} // namespace qvnhost
