// What the host reports about the sequence being exported (Export Info Suite), read whatever width the host
// chose for each answer.
#pragma once

#include <optional>

#include "prsdk/prsdk.h"

namespace QVN {

// The answer under key as an integer (floating-point answers truncate); empty when the host refuses.
std::optional<prsdk::int64> SourceInteger(const prsdk::ExportInfoSuite* suite, prsdk::uint32 pluginId,
                                          prsdk::PrExportSourceInfoKey key);
// The answer under key as a double; empty when the host refuses.
std::optional<double> SourceReal(const prsdk::ExportInfoSuite* suite, prsdk::uint32 pluginId,
                                 prsdk::PrExportSourceInfoKey key);

} // namespace QVN
