// The codecs the exporter offers and everything decided by codec: the dialog's lists and fixed sizes, the
// encoder that writes the file, how a host frame becomes a codec frame, and what goes into the file header.
// The settings dialog and the export run both switch on this one table.
#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace QVN {

// A four-character code as stored in the codec parameter, in biCompression and in host pixel formats: first
// character in the lowest byte.
constexpr std::uint32_t FourCC(const char (&code)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(code[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(code[3])) << 24;
}

// Which encoder writes the file.
enum class EncoderRoute {
    // CDShowEncoder on Windows. Where there is no DirectShow, the uncompressed codecs go to
    // CSimpleAviEncoder and the graph-compressed ones cannot be written.
    Graph,
    // CSimpleAviEncoder: the host compresses each frame, the exporter only stores it.
    SimpleAvi,
};

// How one rendered host frame becomes the codec's frame in an encoder buffer.
enum class FrameConversion {
    Uyvy,    // the exporter's UYVY converter (8-bit source only)
    V210,    // the exporter's v210 converter (any BGRA depth)
    R210,    // the exporter's r210 converter (any BGRA depth)
    RowCopy, // 8-bit BGRA handed on as it is; a graph filter compresses it
    HostDv,  // the host's Image Processing Suite compresses straight into the buffer
};

// What the dialog allows for a codec. Bit i of a mask offers entry i of kPixelAspects, kFrameRates or
// kFieldTypes.
struct CodecLimits {
    std::int32_t fixedWidth;  // 0: free, within kMinFrameSide..kMaxFrameSide
    std::int32_t fixedHeight; // 0: free
    std::uint8_t aspects;
    std::uint8_t rates;
    std::uint8_t fields;
};

struct CodecInfo {
    std::uint32_t fourcc; // the codec parameter's value
    const char* code;     // the same four characters, for text
    const char* displayName;
    EncoderRoute route;
    FrameConversion conversion;
    // What a DVCPRO frame is written as: biCompression "dvh1"/"dv50", the fixed compressed frame size and bit
    // count 16. For the other codecs, the code itself with size and bit count left to the format builder (0).
    std::uint32_t writtenFourCC;
    std::int32_t writtenFrameBytes;
    std::int32_t writtenBitCount;
    // DVCPRO HD 720p is compressed with a field phase that alternates from frame to frame.
    bool alternatingFieldPhase;
    // The host pixel formats asked for, in order of preference.
    std::span<const std::uint32_t> hostFormats;
    CodecLimits limits;
};

inline constexpr std::int32_t kMinFrameSide = 16;
inline constexpr std::int32_t kMaxFrameSide = 4096;

struct PixelAspect {
    std::int32_t numerator;
    std::int32_t denominator;
    const char* name;
};

inline constexpr std::array<PixelAspect, 7> kPixelAspects = {{
    {1, 1, "Square"},
    {3, 2, "HD 3:2"},
    {4, 3, "HD 4:3"},
    {768, 702, "PAL"},
    {1024, 702, "PAL wide"},
    {10, 11, "NTSC"},
    {40, 33, "NTSC wide"},
}};

// A frame rate in the host's time units: ticks per frame = ticks per second / divisor, times 1001 for the
// NTSC-style rates.
struct FrameRate {
    std::int64_t divisor;
    bool times1001;
    const char* name;
};

inline constexpr std::array<FrameRate, 8> kFrameRates = {{
    {24000, true, "23.976"},
    {24, false, "24"},
    {25, false, "25"},
    {30000, true, "29.97"},
    {30, false, "30"},
    {50, false, "50"},
    {60000, true, "59.94"},
    {60, false, "60"},
}};

// The division comes first, as the host's own presets compute it: with 240240 ticks per second "29.97" is
// 8008 ticks, not 8016.
constexpr std::int64_t TicksPerFrame(const FrameRate& rate, std::int64_t ticksPerSecond) {
    const std::int64_t whole = ticksPerSecond / rate.divisor;
    return rate.times1001 ? whole * 1001 : whole;
}

struct FieldType {
    std::int32_t value;
    const char* name;
};

inline constexpr std::array<FieldType, 3> kFieldTypes = {{{0, "Progressive"}, {1, "Upper"}, {2, "Lower"}}};

// "Progressive", "Upper", "Lower", or "Unknown" for any other value.
const char* FieldTypeName(std::int32_t fieldType);

// The catalogue in the order the codec list offers it.
std::span<const CodecInfo> Codecs();

// The entry of a catalogue code, or nullptr for any other code.
const CodecInfo* FindCodec(std::uint32_t fourcc);

// The dialog limits of a code; codes outside the catalogue (0 included) get the unrestricted ones.
const CodecLimits& LimitsFor(std::uint32_t fourcc);

} // namespace QVN
