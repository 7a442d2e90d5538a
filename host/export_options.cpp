#include "host/export_options.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <vector>

#include "host/command_line.h"
#include "host/sequence.h"

namespace qvnhost {
namespace {

struct RateName {
    const char* name;
    std::int64_t numerator;
    std::int64_t denominator;
};

constexpr RateName kRates[] = {{"23.976", 24000, 1001}, {"24", 24, 1}, {"25", 25, 1},
                               {"29.97", 30000, 1001},  {"30", 30, 1}, {"50", 50, 1},
                               {"59.94", 60000, 1001},  {"60", 60, 1}};

bool ParseInt(const std::string& text, std::int64_t min, std::int64_t max, std::int64_t* value) {
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || v < min || v > max)
        return false;
    *value = v;
    return true;
}

bool ParseReal(const std::string& text, double* value) {
    if (text.empty())
        return false;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    if (*end != '\0' || !std::isfinite(v))
        return false;
    *value = v;
    return true;
}

bool ParseFormat(const std::string& text, prsdk::PrPixelFormat* format) {
    if (text == "8u")
        *format = prsdk::PrPixelFormat_BGRA_4444_8u;
    else if (text == "16u")
        *format = prsdk::PrPixelFormat_BGRA_4444_16u;
    else if (text == "32f")
        *format = prsdk::PrPixelFormat_BGRA_4444_32f;
    else
        return false;
    return true;
}

const ExportOptionHelp* FindOption(const std::string& name) {
    for (std::size_t i = 0; i < kExportOptionCount; ++i) {
        if (name == kExportOptionHelp[i].name)
            return &kExportOptionHelp[i];
    }
    return nullptr;
}

} // namespace

const ExportOptionHelp kExportOptionHelp[] = {
    {"--out", "FILE", "the file to write (required)"},
    {"--module", "PATH", "the module to load (the one beside qvnhost)"},
    {"--codec", "NAME|FOURCC", "a codec of the module's list, by its four characters or its name"},
    {"--size", "WxH", "frame size (1920x1080, or the codec's fixed size)"},
    {"--rate", "R", "23.976, 24, 25, 29.97, 30, 50, 59.94 or 60 (29.97, or the codec's first)"},
    {"--field", "F", "progressive, upper or lower (progressive, or the codec's first)"},
    {"--aspect", "NAME", "a pixel aspect of the module's list, or N/D (the module's default)"},
    {"--seconds", "S", "length of the range in seconds (10; a raw file: all its frames)"},
    {"--frames", "N", "length of the range in frames, instead of --seconds"},
    {"--start-frame", "N", "first frame of the range (0)"},
    {"--audio", "A", "none, mono, stereo or 5.1 (stereo)"},
    {"--sample-type", "T", "8, 16, 24, 32 or float (16)"},
    {"--sample-rate", "HZ", "audio rate handed to the module (48000)"},
    {"--no-video", nullptr, "audio only"},
    {"--source", "S", "bars, ramp, noise, raw:FILE or raw:- (bars)"},
    {"--host-format", "F", "8u, 16u or 32f: every frame in this depth, whatever the module asked"},
    {"--threads", "N", "host threads completing asynchronous renders (4)"},
    {"--row-padding", "BYTES", "bytes after each row of a rendered frame, a multiple of 4 (0)"},
    {"--unaligned", nullptr, "rendered frames start 4 bytes past a 64-byte boundary"},
    {"--cancel-at", "N", "the progress report of frame N (and later) answers cancelled"},
    {"--suspend-at", "N", "the progress report of frame N answers suspended, once"},
    {"--fail-render-at", "N", "the render of frame N completes with an error"},
    {"--seed", "N", "seed of the completion order and of the noise pattern (1)"},
    {"--stand-ins", nullptr,
     "every stand-in filter of ours, even where the platform's own would do (Windows)"},
    {"--graph", nullptr, "print the module's DirectShow filter graph while it runs (Windows build only)"},
};
const std::size_t kExportOptionCount = std::size(kExportOptionHelp);

std::string ExportHelpText() {
    std::string text = "usage: qvnhost export --out FILE [options]\n"
                       "Runs one export through the module with a simulated sequence (docs/export.md).\n"
                       "options:\n";
    for (std::size_t i = 0; i < kExportOptionCount; ++i) {
        const ExportOptionHelp& h = kExportOptionHelp[i];
        std::string left = std::string("  ") + h.name + (h.value ? std::string(" ") + h.value : "");
        left.resize(std::max<std::size_t>(left.size() + 2, 24), ' ');
        text += left + h.meaning + "\n";
    }
    text += "  -h, --help            this text\n";
    return text;
}

bool ExportHelpRequested(int argc, char** argv) {
    std::vector<std::string> valueOptions;
    for (std::size_t i = 0; i < kExportOptionCount; ++i) {
        if (kExportOptionHelp[i].value)
            valueOptions.push_back(kExportOptionHelp[i].name);
    }
    return HelpRequested(argc, argv, valueOptions);
}

bool ParseExportOptions(int argc, char** argv, ExportOptions* o, std::string* error) {
    bool haveFrames = false;
    bool haveOut = false;
    std::string sourceName = "bars";
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        std::string v;
        bool missing = false;
        const auto take = [&](const char* name) { return TakeOption(argc, argv, i, name, &v, &missing); };
        const auto bad = [&](const std::string& what) { return *error = what, false; };
        // Only the options --help lists get further.
        const ExportOptionHelp* known = FindOption(arg.substr(0, arg.find('=')));
        if (!known)
            return bad("unknown option for export: " + arg + " (the options: qvnhost export --help)");
        if (!known->value && arg != known->name)
            return bad("option " + std::string(known->name) + " takes no value");
        if (arg == "--graph") {
#ifdef _WIN32
            o->graph = true;
            continue;
#else
            return bad("--graph needs the Windows build: only qvnhost.exe with QVNExport.prm runs exports "
                       "through a DirectShow graph");
#endif
        }
        if (arg == "--no-video") {
            o->exportVideo = false;
            continue;
        }
        if (arg == "--unaligned") {
            o->unaligned = true;
            continue;
        }
        if (arg == "--stand-ins") {
            o->forceStandIns = true;
            continue;
        }
        std::int64_t n = 0;
        if (take("--out")) {
            o->out = v;
            haveOut = true;
        } else if (take("--module")) {
            o->modulePath = v;
        } else if (take("--codec")) {
            o->codec = v;
        } else if (take("--size")) {
            const std::size_t x = v.find('x');
            std::int64_t w = 0;
            std::int64_t h = 0;
            if (!missing && (x == std::string::npos || !ParseInt(v.substr(0, x), 1, 16384, &w) ||
                             !ParseInt(v.substr(x + 1), 1, 16384, &h)))
                return bad("bad --size: " + v + " (WIDTHxHEIGHT expected, e.g. 1920x1080)");
            o->haveSize = true;
            o->width = static_cast<std::int32_t>(w);
            o->height = static_cast<std::int32_t>(h);
        } else if (take("--rate")) {
            bool found = false;
            for (const RateName& r : kRates) {
                if (v == r.name) {
                    o->rate = v, o->rateNumerator = r.numerator, o->rateDenominator = r.denominator;
                    found = true;
                }
            }
            if (!missing && !found)
                return bad("bad --rate: " + v + " (choices: 23.976, 24, 25, 29.97, 30, 50, 59.94, 60)");
            o->haveRate = true;
        } else if (take("--field")) {
            if (!missing && v != "progressive" && v != "upper" && v != "lower")
                return bad("bad --field: " + v + " (choices: progressive, upper, lower)");
            o->field = v;
            o->haveField = true;
        } else if (take("--aspect")) {
            o->aspect = v;
        } else if (take("--seconds")) {
            if (!missing && (!ParseReal(v, &o->seconds) || !(o->seconds > 0.0) || o->seconds > 86400.0))
                return bad("bad --seconds: " + v + " (a positive number of seconds expected)");
            o->haveSeconds = true;
        } else if (take("--frames")) {
            if (!missing && !ParseInt(v, 1, 1 << 24, &o->frames))
                return bad("bad --frames: " + v + " (a whole number from 1 expected)");
            haveFrames = true;
        } else if (take("--start-frame")) {
            if (!missing && !ParseInt(v, 0, 1 << 24, &o->startFrame))
                return bad("bad --start-frame: " + v + " (a whole number from 0 expected)");
        } else if (take("--audio")) {
            if (v == "none")
                o->channelType = 0;
            else if (v == "mono")
                o->channelType = prsdk::kPrAudioChannelType_Mono;
            else if (v == "stereo")
                o->channelType = prsdk::kPrAudioChannelType_Stereo;
            else if (v == "5.1")
                o->channelType = prsdk::kPrAudioChannelType_51;
            else if (!missing)
                return bad("bad --audio: " + v + " (choices: none, mono, stereo, 5.1)");
        } else if (take("--sample-type")) {
            if (v == "8")
                o->sampleType = prsdk::kPrAudioSampleType_8BitInt;
            else if (v == "16")
                o->sampleType = prsdk::kPrAudioSampleType_16BitInt;
            else if (v == "24")
                o->sampleType = prsdk::kPrAudioSampleType_24BitInt;
            else if (v == "32")
                o->sampleType = prsdk::kPrAudioSampleType_32BitInt;
            else if (v == "float")
                o->sampleType = prsdk::kPrAudioSampleType_32BitFloat;
            else if (!missing)
                return bad("bad --sample-type: " + v + " (choices: 8, 16, 24, 32, float)");
        } else if (take("--sample-rate")) {
            if (!missing &&
                (!ParseReal(v, &o->sampleRate) || !(o->sampleRate >= 1000.0) || o->sampleRate > 384000.0))
                return bad("bad --sample-rate: " + v + " (hertz from 1000 to 384000 expected)");
        } else if (take("--source")) {
            sourceName = v;
        } else if (take("--host-format")) {
            if (!missing && !ParseFormat(v, &o->hostFormat))
                return bad("bad --host-format: " + v + " (choices: 8u, 16u, 32f)");
        } else if (take("--threads")) {
            if (!missing && !ParseInt(v, 1, 64, &n))
                return bad("bad --threads: " + v + " (1 to 64 expected)");
            o->threads = static_cast<int>(n);
        } else if (take("--row-padding")) {
            if (!missing && (!ParseInt(v, 0, 1 << 20, &n) || n % 4 != 0))
                return bad("bad --row-padding: " + v + " (bytes, a multiple of 4 from 0 expected)");
            o->rowPadding = static_cast<std::int32_t>(n);
        } else if (take("--cancel-at")) {
            if (!missing && !ParseInt(v, 0, 1 << 24, &o->cancelAt))
                return bad("bad --cancel-at: " + v + " (a frame number expected)");
        } else if (take("--suspend-at")) {
            if (!missing && !ParseInt(v, 0, 1 << 24, &o->suspendAt))
                return bad("bad --suspend-at: " + v + " (a frame number expected)");
        } else if (take("--fail-render-at")) {
            if (!missing && !ParseInt(v, 0, 1 << 24, &o->failRenderAt))
                return bad("bad --fail-render-at: " + v + " (a frame number expected)");
        } else if (take("--seed")) {
            if (!missing && !ParseInt(v, 0, INT64_MAX, &n))
                return bad("bad --seed: " + v + " (a whole number from 0 expected)");
            o->seed = static_cast<std::uint64_t>(n);
        } else {
            return bad("option " + arg + " is listed but not handled");
        }
        if (missing)
            return bad("option " + arg + " needs a value");
    }
    if (!haveOut || o->out.empty())
        return *error = "export needs --out FILE", false;
    if (haveFrames && o->haveSeconds)
        return *error = "give --seconds or --frames, not both", false;
    if (!o->exportVideo && o->channelType == 0)
        return *error = "nothing to export: --no-video with --audio none", false;
    if (!ParseSourceName(sourceName, &o->source, error))
        return false;
    o->source.seed = static_cast<std::uint32_t>(o->seed);
    // Division first, as the host's presets compute it.
    o->ticksPerFrame = kTicksPerSecond / o->rateNumerator * o->rateDenominator;
    return true;
}

std::int64_t FrameCountOf(const ExportOptions& o, std::int64_t rawFrames, std::int64_t ticksPerFrame) {
    if (o.frames > 0)
        return o.frames;
    if (!o.haveSeconds && rawFrames >= 0)
        return rawFrames - o.startFrame;
    const double count =
        o.seconds * static_cast<double>(kTicksPerSecond) / static_cast<double>(ticksPerFrame);
    return std::max<std::int64_t>(1, std::llround(count));
}

} // namespace qvnhost
