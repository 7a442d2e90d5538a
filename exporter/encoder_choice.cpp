#include "exporter/encoder_choice.h"

#include <string>

#include "encoders/simple_avi_encoder.h"
#include "exporter/codec_catalogue.h"
#include "exporter/unavailable_encoder.h"
#include "exporter/video_format.h"
#include "platform/debug_output.h"

#if QVN_HAS_DSHOW_ENCODER
#include <cstdlib>
#include <cstring>

#include "dshow/dshow_encoder.h"
#endif

namespace QVN {
namespace {

// Only "PAL wide" (1024/702) among the offered aspects passes this; the graph encoder then shifts frames.
constexpr std::int32_t kWideAspectNumerator = 768;

bool IsGraphRgbSource(std::uint32_t codec) {
    return codec == FourCC("dvsd") || codec == FourCC("pvsd") || codec == FourCC("nvsd") ||
           codec == FourCC("MJPG");
}

// The graph's uncompressed codes, which the AVI encoder writes just as well where there is no graph.
bool IsUncompressed(std::uint32_t codec) {
    return codec == FourCC("UYVY") || codec == FourCC("HDYC") || codec == FourCC("v210") ||
           codec == FourCC("r210");
}

// Whether the graph writes the codes that belong to it. QVN_ENCODER=avi sends the uncompressed ones to the
// AVI encoder instead, so that the two paths can be measured against each other on one machine.
bool GraphAvailable() {
#if QVN_HAS_DSHOW_ENCODER
    const char* forced = std::getenv("QVN_ENCODER");
    return forced == nullptr || std::strcmp(forced, "avi") != 0;
#else
    return false;
#endif
}

std::string CodeText(std::uint32_t codec) {
    std::string s;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>((codec >> (8 * i)) & 0xFF);
        s += (c >= 32 && c < 127) ? c : '?';
    }
    return s;
}

} // namespace

std::uint32_t CUnavailableEncoder::Initialise(const BITMAPINFOHEADER*, const BITMAPINFOHEADER*, std::uint32_t,
                                              std::uint32_t, std::uint32_t, std::uint8_t, std::uint32_t,
                                              IFrameSink*) {
    const std::string line =
        "QVNExport: '" + CodeText(codec_) +
        "' is compressed by a DirectShow filter, and this build has no DirectShow encoder\n";
    DebugOutput(line.c_str());
    return EncoderStatus::kFailed;
}

EncoderChoice ChooseEncoder(std::uint32_t codec, std::int32_t width, std::int32_t height,
                            std::int32_t pixelAspectNumerator) {
    EncoderChoice choice;
    choice.output = BuildVideoFormat(codec, width, height);
    choice.input = choice.output;
    if (IsGraphRgbSource(codec)) {
        // These compressors take 32-bit RGB frames as the host renders them.
        choice.input.biCompression = 0;
        choice.input.biBitCount = 32;
        choice.input.biSizeImage = static_cast<DWORD>(width) * static_cast<DWORD>(height) * 4;
        choice.output.biSizeImage = choice.input.biSizeImage;
    }
    choice.mode = pixelAspectNumerator > kWideAspectNumerator ? 4u : 1u;

    const CodecInfo* info = FindCodec(codec);
    if (info && info->route == EncoderRoute::SimpleAvi) {
        choice.output.biCompression = info->writtenFourCC;
        choice.output.biSizeImage = static_cast<DWORD>(info->writtenFrameBytes);
        choice.output.biBitCount = static_cast<WORD>(info->writtenBitCount);
        choice.mode = 0;
        choice.encoder = std::make_unique<CSimpleAviEncoder>(info->writtenFourCC);
    } else if (codec == FourCC("dv50") || codec == FourCC("dvh1") ||
               (IsUncompressed(codec) && !GraphAvailable())) {
        choice.encoder = std::make_unique<CSimpleAviEncoder>(codec);
    } else {
#if QVN_HAS_DSHOW_ENCODER
        choice.encoder = std::make_unique<CDShowEncoder>();
#else
        choice.encoder = std::make_unique<CUnavailableEncoder>(codec);
#endif
    }
    return choice;
}

} // namespace QVN
