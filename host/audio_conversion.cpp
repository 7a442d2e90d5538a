#include "host/audio_conversion.h"

#include <cmath>
#include <cstdint>

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

// x scaled to a signed integer of `bits` bits, rounded half away from zero and clipped.
std::int64_t ToInteger(float x, int bits) {
    if (std::isnan(x))
        return 0;
    const double scale = std::ldexp(1.0, bits - 1);
    const double v = std::round(static_cast<double>(x) * scale);
    if (v >= scale)
        return static_cast<std::int64_t>(scale) - 1;
    if (v <= -scale)
        return -static_cast<std::int64_t>(scale);
    return static_cast<std::int64_t>(v);
}

float ToFloat(std::int64_t v, int bits) {
    return static_cast<float>(static_cast<double>(v) / std::ldexp(1.0, bits - 1));
}

bool PlanesValid(float** planes, prsdk::csSDK_uint32 channels) {
    if (!planes || channels == 0)
        return false;
    for (prsdk::csSDK_uint32 c = 0; c < channels; ++c) {
        if (!planes[c])
            return false;
    }
    return true;
}

// Calls put(index into the interleaved output, sample) for every sample, channel by channel within a frame.
template <class Put>
prSuiteError Interleave(float** source, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames, Put put) {
    if (!PlanesValid(source, channels))
        return prsdk::suiteError_InvalidParms;
    for (prsdk::csSDK_uint32 i = 0; i < frames; ++i) {
        for (prsdk::csSDK_uint32 c = 0; c < channels; ++c)
            put(static_cast<std::size_t>(i) * channels + c, source[c][i]);
    }
    return prsdk::suiteError_NoError;
}

template <class Get>
prSuiteError Uninterleave(float** dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames, Get get) {
    if (!PlanesValid(dest, channels))
        return prsdk::suiteError_InvalidParms;
    for (prsdk::csSDK_uint32 i = 0; i < frames; ++i) {
        for (prsdk::csSDK_uint32 c = 0; c < channels; ++c)
            dest[c][i] = get(static_cast<std::size_t>(i) * channels + c);
    }
    return prsdk::suiteError_NoError;
}

prSuiteError To8(float** source, char* dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!dest)
        return prsdk::suiteError_InvalidParms;
    auto* out = reinterpret_cast<std::uint8_t*>(dest);
    return Interleave(source, channels, frames, [out](std::size_t at, float x) {
        out[at] = static_cast<std::uint8_t>(ToInteger(x, 8) + 128);
    });
}

prSuiteError To16(float** source, short* dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!dest)
        return prsdk::suiteError_InvalidParms;
    return Interleave(source, channels, frames,
                      [dest](std::size_t at, float x) { dest[at] = static_cast<short>(ToInteger(x, 16)); });
}

prSuiteError To24(float** source, char* dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!dest)
        return prsdk::suiteError_InvalidParms;
    auto* out = reinterpret_cast<std::uint8_t*>(dest);
    return Interleave(source, channels, frames, [out](std::size_t at, float x) {
        const auto v = static_cast<std::uint32_t>(ToInteger(x, 24));
        out[at * 3] = static_cast<std::uint8_t>(v);
        out[at * 3 + 1] = static_cast<std::uint8_t>(v >> 8);
        out[at * 3 + 2] = static_cast<std::uint8_t>(v >> 16);
    });
}

prSuiteError To32(float** source, prsdk::int32* dest, prsdk::csSDK_uint32 channels,
                  prsdk::csSDK_uint32 frames) {
    if (!dest)
        return prsdk::suiteError_InvalidParms;
    return Interleave(source, channels, frames, [dest](std::size_t at, float x) {
        dest[at] = static_cast<prsdk::int32>(ToInteger(x, 32));
    });
}

prSuiteError From8(char* source, float** dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!source)
        return prsdk::suiteError_InvalidParms;
    const auto* in = reinterpret_cast<const std::uint8_t*>(source);
    return Uninterleave(dest, channels, frames, [in](std::size_t at) { return ToFloat(in[at] - 128, 8); });
}

prSuiteError From16(short* source, float** dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!source)
        return prsdk::suiteError_InvalidParms;
    return Uninterleave(dest, channels, frames, [source](std::size_t at) { return ToFloat(source[at], 16); });
}

prSuiteError From24(char* source, float** dest, prsdk::csSDK_uint32 channels, prsdk::csSDK_uint32 frames) {
    if (!source)
        return prsdk::suiteError_InvalidParms;
    const auto* in = reinterpret_cast<const std::uint8_t*>(source);
    return Uninterleave(dest, channels, frames, [in](std::size_t at) {
        const std::uint32_t raw = in[at * 3] | static_cast<std::uint32_t>(in[at * 3 + 1]) << 8 |
                                  static_cast<std::uint32_t>(in[at * 3 + 2]) << 16;
        // Sign-extend from bit 23.
        const std::int64_t v = static_cast<std::int64_t>(raw) - ((raw & 0x800000u) ? 0x1000000 : 0);
        return ToFloat(v, 24);
    });
}

prSuiteError From32(prsdk::int32* source, float** dest, prsdk::csSDK_uint32 channels,
                    prsdk::csSDK_uint32 frames) {
    if (!source)
        return prsdk::suiteError_InvalidParms;
    return Uninterleave(dest, channels, frames, [source](std::size_t at) { return ToFloat(source[at], 32); });
}

const prsdk::AudioSuite kSuite = {To8, To16, To24, To32, From8, From16, From24, From32};

} // namespace

const prsdk::AudioSuite* AudioSuiteTable() {
    return &kSuite;
}

} // namespace qvnhost
