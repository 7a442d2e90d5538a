#include "exporter/settings_summary.h"

#include <cstdio>

#include "exporter/codec_catalogue.h"

namespace QVN {

std::string VideoSummary(const ExportSettings& settings) {
    // The aspect is divided in single precision, so the fourth decimal is that of the float quotient.
    const float aspect = static_cast<float>(settings.pixelAspectNumerator) /
                         static_cast<float>(settings.pixelAspectDenominator);
    char line[256];
    std::snprintf(line, sizeof line, "%ix%i %.4f ,%s", settings.width, settings.height,
                  static_cast<double>(aspect), FieldTypeName(settings.fieldType));
    return line;
}

std::string AudioSummary() {
    char line[64];
    std::snprintf(line, sizeof line, "%f Hz", 48000.0);
    return line;
}

} // namespace QVN
