#include "exporter/video_format.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include "exporter/codec_catalogue.h"

namespace QVN {
namespace {

// The spellings are listed as they lie in memory; several codes are accepted in both byte orders because
// older hosts and tools wrote them reversed.
bool IsAnyOf(std::uint32_t codec, std::initializer_list<std::uint32_t> codes) {
    for (std::uint32_t c : codes) {
        if (codec == c)
            return true;
    }
    return false;
}

std::uint32_t ImageSize(std::int32_t width, std::int32_t height, std::uint16_t bits) {
    const std::uint64_t w = static_cast<std::uint32_t>(width);
    const std::uint64_t h = static_cast<std::uint32_t>(std::abs(height));
    switch (bits) {
    case 16:
    case 24:
    case 32:
    case 64:
        return static_cast<std::uint32_t>(w * h * bits / 8);
    case 20:
        return static_cast<std::uint32_t>((w + 47) / 48 * 128 * h);
    case 30:
        return static_cast<std::uint32_t>((w + 63) / 64 * 256 * h);
    default:
        return 0;
    }
}

} // namespace

BITMAPINFOHEADER BuildVideoFormat(std::uint32_t codec, std::int32_t width, std::int32_t height) {
    BITMAPINFOHEADER f;
    std::memset(&f, 0, sizeof f);
    f.biSize = sizeof f;
    f.biWidth = width;
    f.biHeight = height;
    f.biPlanes = 1;
    std::uint16_t bits = 0;
    std::uint32_t compression = codec;
    if (IsAnyOf(codec, {0, FourCC("BGRA"), FourCC(" WAR")})) {
        bits = 32, compression = 0;
    } else if (IsAnyOf(codec, {FourCC("V210"), FourCC("v210"), FourCC("012V"), FourCC("012v")})) {
        bits = 20, compression = FourCC("v210");
    } else if (IsAnyOf(codec, {FourCC("r210")})) {
        bits = 30, compression = FourCC("r210");
    } else if (IsAnyOf(codec, {FourCC("yuV2"), FourCC("yuv2"), FourCC("YVYU"), FourCC("UYVY"), FourCC("2Vuy"),
                               FourCC("2vuy")})) {
        bits = 16, compression = FourCC("UYVY");
    } else if (IsAnyOf(codec, {FourCC(" RGB"), FourCC("ARGB")})) {
        bits = 32, compression = FourCC("ARGB");
    } else if (IsAnyOf(codec, {FourCC("HDYC"), FourCC("CYDH")})) {
        bits = 16, compression = FourCC("HDYC");
    }
    f.biBitCount = bits;
    f.biCompression = compression;
    f.biSizeImage = ImageSize(width, height, bits);
    return f;
}

std::optional<AviRate> AviRateFromTicks(std::int64_t t, std::int64_t f) {
    if (t <= 0 || f <= 0)
        return std::nullopt;
    if (t % f == 0)
        return AviRate{static_cast<std::uint32_t>(t / f), 1};
    if (t * 1001 == f * 24000 || t * 1000 == f * 23976 || t * 1000 == f * 23980)
        return AviRate{24000, 1001};
    if (t * 1001 == f * 30000 || t * 1000 == f * 29970)
        return AviRate{30000, 1001};
    if (t * 1001 == f * 60000 || t * 1000 == f * 59940)
        return AviRate{60000, 1001};
    return std::nullopt;
}

} // namespace QVN
