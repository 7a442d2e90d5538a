#include "host/convert_command.h"

#include "converter/converter.h"
#include "host/command_line.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

namespace cv = QVN::Converter::Video;

constexpr const char* kUsage =
    "usage: qvnhost convert --codec v210|r210|uyvy --from bgra|Bgra|BGra --size WxH [--src-row-bytes N]\n"
    "                       [--dst-row-bytes N] [--path auto|scalar|vector] [--matrix 0|1|2]\n"
    "                       --in RAW --out RAW [--frames N]\n"
    "Source frames are bottom-up host rows; the output holds the codec's rows top-down "
    "(docs/converters.md).\n"
    "  -h, --help  this text\n";

// Parse's answer when it printed the help: the command ends with status 0.
constexpr int kHelpShown = -1;

using EntryPoint = std::int32_t (*)(const void*, std::uint32_t, std::uint32_t, void*, std::uint32_t,
                                    std::int32_t, std::int32_t, std::uint32_t, std::uint32_t);

struct Options {
    EntryPoint convert = nullptr;
    std::string codec;
    std::uint32_t format = 0;
    std::uint64_t pixelBytes = 0;
    std::int64_t width = 0, height = 0;
    std::int64_t srcRowBytes = -1, dstRowBytes = -1;
    std::uint32_t path = cv::kPathAuto, matrix = cv::kMatrixByWidth;
    std::string in, out;
    std::int64_t frames = -1;
};

// A whole decimal number in 0..limit, or -1.
std::int64_t ParseCount(const std::string& text, std::int64_t limit) {
    if (text.empty() || text.size() > 10) {
        return -1;
    }
    std::int64_t v = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            return -1;
        }
        v = v * 10 + (c - '0');
    }
    return v <= limit ? v : -1;
}

// Row bytes each codec's rows need on the path that may run, and the layout its decoders expect.
std::int64_t MinimumRowBytes(const std::string& codec, std::int64_t width) {
    if (codec == "v210") {
        return (width + 23) / 24 * 64; // vector blocks of 24 pixels
    }
    if (codec == "r210") {
        return (width + 7) / 8 * 32; // vector blocks of 8 pixels
    }
    return (width + 1) / 2 * 4;
}

std::int64_t DefaultRowBytes(const std::string& codec, std::int64_t width) {
    if (codec == "v210") {
        return (width + 47) / 48 * 128; // the usual v210 stride: 48-pixel groups of 128 bytes
    }
    if (codec == "r210") {
        return (width + 63) / 64 * 256; // r210 rows padded to 64 pixels
    }
    return (width + 1) / 2 * 4;
}

struct AlignedBytes {
    void operator()(std::uint8_t* p) const { ::operator delete[](p, std::align_val_t{64}); }
};
using Bytes = std::unique_ptr<std::uint8_t[], AlignedBytes>;

Bytes Allocate(std::uint64_t size) {
    return Bytes(static_cast<std::uint8_t*>(::operator new[](size, std::align_val_t{64}, std::nothrow)));
}

int Parse(int argc, char** argv, Options& o) {
    std::string codec, from, size, srcRow, dstRow, path = "auto", matrix = "0", frames;
    const struct {
        const char* name;
        std::string* value;
    } options[] = {{"--codec", &codec},
                   {"--from", &from},
                   {"--size", &size},
                   {"--src-row-bytes", &srcRow},
                   {"--dst-row-bytes", &dstRow},
                   {"--path", &path},
                   {"--matrix", &matrix},
                   {"--in", &o.in},
                   {"--out", &o.out},
                   {"--frames", &frames}};
    std::vector<std::string> names;
    for (const auto& option : options)
        names.push_back(option.name);
    if (qvnhost::HelpRequested(argc, argv, names)) {
        std::fputs(kUsage, stdout);
        return kHelpShown;
    }
    for (int i = 1; i < argc; ++i) {
        bool missing = false;
        std::string* target = nullptr;
        for (const auto& option : options) {
            if (qvnhost::TakeOption(argc, argv, i, option.name, option.value, &missing)) {
                target = option.value;
                break;
            }
        }
        if (target == nullptr) {
            std::fputs(kUsage, stderr);
            return qvnhost::UsageError(std::string("convert: unknown option '") + argv[i] +
                                       "' (the options: qvnhost convert --help)");
        }
        if (missing) {
            return qvnhost::UsageError(std::string("convert: ") + argv[i] + " needs a value");
        }
    }
    if (codec == "v210") {
        o.convert = cv::v210::CreateFrom;
    } else if (codec == "r210") {
        o.convert = cv::r210::CreateFrom;
    } else if (codec == "uyvy") {
        o.convert = cv::uyvy::CreateFrom;
    } else {
        return qvnhost::UsageError("convert: unknown codec '" + codec + "' (v210, r210 or uyvy)");
    }
    o.codec = codec;
    if (from == "bgra") {
        o.format = cv::kPixelFormatBgra8u, o.pixelBytes = 4;
    } else if (from == "Bgra") {
        o.format = cv::kPixelFormatBgra16u, o.pixelBytes = 8;
    } else if (from == "BGra") {
        o.format = cv::kPixelFormatBgra32f, o.pixelBytes = 16;
    } else {
        return qvnhost::UsageError("convert: unknown source format '" + from + "' (bgra, Bgra or BGra)");
    }
    const std::size_t x = size.find('x');
    o.width = x == std::string::npos ? -1 : ParseCount(size.substr(0, x), 16384);
    o.height = x == std::string::npos ? -1 : ParseCount(size.substr(x + 1), 16384);
    if (o.width <= 0 || o.height <= 0) {
        return qvnhost::UsageError("convert: bad --size '" + size + "' (WxH, 1 to 16384 each)");
    }
    const std::int64_t maxRow = 0x7FFFFFFF;
    o.srcRowBytes =
        srcRow.empty() ? o.width * static_cast<std::int64_t>(o.pixelBytes) : ParseCount(srcRow, maxRow);
    if (o.srcRowBytes < o.width * static_cast<std::int64_t>(o.pixelBytes)) {
        return qvnhost::UsageError("convert: --src-row-bytes must be at least " +
                                   std::to_string(o.width * static_cast<std::int64_t>(o.pixelBytes)));
    }
    o.dstRowBytes = dstRow.empty() ? DefaultRowBytes(codec, o.width) : ParseCount(dstRow, maxRow);
    if (o.dstRowBytes < MinimumRowBytes(codec, o.width)) {
        return qvnhost::UsageError("convert: --dst-row-bytes must be at least " +
                                   std::to_string(MinimumRowBytes(codec, o.width)) + " for " + codec);
    }
    if (path == "auto" || path == "scalar" || path == "vector") {
        o.path = path == "auto" ? cv::kPathAuto : path == "scalar" ? cv::kPathScalar : cv::kPathVector;
    } else {
        return qvnhost::UsageError("convert: unknown --path '" + path + "' (auto, scalar or vector)");
    }
    const std::int64_t m = ParseCount(matrix, 2);
    if (m < 0) {
        return qvnhost::UsageError("convert: unknown --matrix '" + matrix + "' (0 by width, 1 SD, 2 HD)");
    }
    o.matrix = static_cast<std::uint32_t>(m);
    if (!frames.empty() && (o.frames = ParseCount(frames, 1000000)) <= 0) {
        return qvnhost::UsageError("convert: bad --frames '" + frames + "'");
    }
    if (o.in.empty() || o.out.empty()) {
        return qvnhost::UsageError("convert: --in and --out are required");
    }
    return 0;
}

} // namespace

int QvnConvertCommand(int argc, char** argv) {
    Options o;
    if (const int status = Parse(argc, argv, o); status != 0) {
        return status == kHelpShown ? 0 : status;
    }
    std::ifstream in(o.in, std::ios::binary | std::ios::ate);
    if (!in) {
        return qvnhost::UsageError("convert: cannot open '" + o.in + "'");
    }
    const auto inBytes = static_cast<std::uint64_t>(in.tellg());
    in.seekg(0);
    const auto srcFrame = static_cast<std::uint64_t>(o.srcRowBytes * o.height);
    const auto dstFrame = static_cast<std::uint64_t>(o.dstRowBytes * o.height);
    if (o.frames < 0) {
        if (inBytes == 0 || inBytes % srcFrame != 0) {
            return qvnhost::UsageError("convert: '" + o.in + "' holds " + std::to_string(inBytes) +
                                       " bytes, not a whole number of " + std::to_string(srcFrame) +
                                       "-byte frames");
        }
        o.frames = static_cast<std::int64_t>(inBytes / srcFrame);
    } else if (inBytes < static_cast<std::uint64_t>(o.frames) * srcFrame) {
        return qvnhost::UsageError("convert: short input: '" + o.in + "' holds " + std::to_string(inBytes) +
                                   " bytes, " + std::to_string(o.frames) + " frames need " +
                                   std::to_string(static_cast<std::uint64_t>(o.frames) * srcFrame));
    }
    // Slack after the frame: vector UYVY rows before the last may run up to 46 bytes past their width, which
    // for a tiny frame is beyond its end.
    const Bytes src = Allocate(srcFrame);
    const Bytes dst = Allocate(dstFrame + 64);
    if (!src || !dst) {
        std::fprintf(stderr, "qvnhost: convert: out of memory\n");
        return 1;
    }
    std::memset(dst.get(), 0, dstFrame); // row padding, which no converter writes, is zero in the file
    std::ofstream out(o.out, std::ios::binary | std::ios::trunc);
    if (!out) {
        std::fprintf(stderr, "qvnhost: convert: cannot create '%s'\n", o.out.c_str());
        return 1;
    }
    for (std::int64_t f = 0; f < o.frames; ++f) {
        in.read(reinterpret_cast<char*>(src.get()), static_cast<std::streamsize>(srcFrame));
        if (!in) {
            return qvnhost::UsageError("convert: short input: '" + o.in + "'");
        }
        const std::int32_t result =
            o.convert(src.get(), static_cast<std::uint32_t>(o.srcRowBytes), o.format, dst.get(),
                      static_cast<std::uint32_t>(o.dstRowBytes), static_cast<std::int32_t>(o.width),
                      static_cast<std::int32_t>(o.height), o.matrix, o.path);
        if (result != 0) {
            std::fprintf(stderr, "qvnhost: convert: frame %lld: converter result %d\n",
                         static_cast<long long>(f), result);
            return 1;
        }
        out.write(reinterpret_cast<const char*>(dst.get()), static_cast<std::streamsize>(dstFrame));
    }
    out.flush();
    if (!out) {
        std::fprintf(stderr, "qvnhost: convert: cannot write '%s'\n", o.out.c_str());
        return 1;
    }
    return 0;
}
