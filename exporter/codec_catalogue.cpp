#include "exporter/codec_catalogue.h"

#include <initializer_list>

namespace QVN {
namespace {

constexpr std::uint8_t Offer(std::initializer_list<int> entries) {
    unsigned mask = 0;
    for (int e : entries)
        mask |= 1u << e;
    return static_cast<std::uint8_t>(mask);
}

// Entry positions in kPixelAspects, kFrameRates and kFieldTypes.
enum Aspect { kSquare, kHd32, kHd43, kPal, kPalWide, kNtsc, kNtscWide };
enum Rate { k23976, k24, k25, k2997, k30, k50, k5994, k60 };
enum Field { kProgressive, kUpper, kLower };

constexpr std::uint8_t kAllAspects = Offer({kSquare, kHd32, kHd43, kPal, kPalWide, kNtsc, kNtscWide});
constexpr std::uint8_t kAllRates = Offer({k23976, k24, k25, k2997, k30, k50, k5994, k60});
constexpr std::uint8_t kAllFields = Offer({kProgressive, kUpper, kLower});

constexpr CodecLimits kUnrestricted = {0, 0, kAllAspects, kAllRates, kAllFields};

// The 10-bit converters take every BGRA depth, so the deepest is asked for first; the others need 8-bit.
constexpr std::uint32_t kDeepFormats[] = {FourCC("BGra"), FourCC("Bgra"), FourCC("bgra")};
constexpr std::uint32_t k8BitFormat[] = {FourCC("bgra")};

constexpr std::uint32_t kDvh1 = FourCC("dvh1");
constexpr std::uint32_t kDv50 = FourCC("dv50");

constexpr CodecInfo Uncompressed(const char (&code)[5], const char* name, FrameConversion conversion,
                                 std::span<const std::uint32_t> formats) {
    return {.fourcc = FourCC(code),
            .code = code,
            .displayName = name,
            .route = EncoderRoute::Graph,
            .conversion = conversion,
            .writtenFourCC = FourCC(code),
            .writtenFrameBytes = 0,
            .writtenBitCount = 0,
            .alternatingFieldPhase = false,
            .hostFormats = formats,
            .limits = kUnrestricted};
}

// Compressed by a graph filter from 8-bit frames handed on as they are.
constexpr CodecInfo GraphCompressed(const char (&code)[5], const char* name, CodecLimits limits) {
    CodecInfo c = Uncompressed(code, name, FrameConversion::RowCopy, k8BitFormat);
    c.limits = limits;
    return c;
}

constexpr CodecInfo Dvcpro(const char (&code)[5], const char* name, std::uint32_t written, std::int32_t bytes,
                           CodecLimits limits) {
    return {.fourcc = FourCC(code),
            .code = code,
            .displayName = name,
            .route = EncoderRoute::SimpleAvi,
            .conversion = FrameConversion::HostDv,
            .writtenFourCC = written,
            .writtenFrameBytes = bytes,
            .writtenBitCount = 16,
            .alternatingFieldPhase = code[3] == '7', // the 720p variants, "dvn7" and "dvp7"
            .hostFormats = k8BitFormat,
            .limits = limits};
}

// clang-format off
constexpr CodecInfo kCatalogue[] = {
    Uncompressed("UYVY", "Uncompressed 8-bit SD YUV", FrameConversion::Uyvy, k8BitFormat),
    Uncompressed("HDYC", "Uncompressed 8-bit HD YUV", FrameConversion::Uyvy, k8BitFormat),
    Uncompressed("v210", "Uncompressed 10-bit YUV", FrameConversion::V210, kDeepFormats),
    Uncompressed("r210", "Uncompressed 10-bit RGB", FrameConversion::R210, kDeepFormats),
    GraphCompressed("MJPG", "Motion JPEG", kUnrestricted),
    Dvcpro("dvn1", "DVCPROHD 1080i 60Hz", kDvh1, 480000,
           {1280, 1080, Offer({kHd32}), Offer({k23976, k2997}), Offer({kProgressive, kUpper})}),
    Dvcpro("dvp1", "DVCPROHD 1080i 50Hz", kDvh1, 576000,
           {1440, 1080, Offer({kHd43}), Offer({k25}), Offer({kUpper})}),
    // The 50 Hz 720p variant deliberately offers 59.94, exactly as the 60 Hz one does.
    Dvcpro("dvn7", "DVCPROHD 720p 60Hz", kDvh1, 240000,
           {960, 720, Offer({kHd43}), Offer({k5994}), Offer({kProgressive})}),
    Dvcpro("dvp7", "DVCPROHD 720p 50Hz", kDvh1, 288000,
           {960, 720, Offer({kHd43}), Offer({k5994}), Offer({kProgressive})}),
    Dvcpro("dvn5", "DVCPRO50 NTSC", kDv50, 240000,
           {720, 480, Offer({kNtsc, kNtscWide}), Offer({k2997}), Offer({kLower})}),
    Dvcpro("dvp5", "DVCPRO50 PAL", kDv50, 288000,
           {720, 576, Offer({kPal, kPalWide}), Offer({k25}), Offer({kLower})}),
    GraphCompressed("dvsd", "DV",
                    {0, 0, Offer({kPal, kPalWide, kNtsc, kNtscWide}), Offer({k25, k2997}), Offer({kLower})}),
};
// clang-format on

} // namespace

const char* FieldTypeName(std::int32_t fieldType) {
    for (const FieldType& f : kFieldTypes) {
        if (f.value == fieldType)
            return f.name;
    }
    return "Unknown";
}

std::span<const CodecInfo> Codecs() {
    return kCatalogue;
}

const CodecInfo* FindCodec(std::uint32_t fourcc) {
    for (const CodecInfo& c : kCatalogue) {
        if (c.fourcc == fourcc)
            return &c;
    }
    return nullptr;
}

const CodecLimits& LimitsFor(std::uint32_t fourcc) {
    const CodecInfo* codec = FindCodec(fourcc);
    return codec ? codec->limits : kUnrestricted;
}

} // namespace QVN
