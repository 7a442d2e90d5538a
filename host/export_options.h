// The options of `qvnhost export`, read from the command line and checked before anything is loaded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "host/sequence_source.h"
#include "prsdk/prsdk.h"

namespace qvnhost {

struct ExportOptions {
    std::string out;
    std::string modulePath;
    std::string codec; // empty: the module's default
    bool haveSize = false;
    std::int32_t width = 1920;
    std::int32_t height = 1080;
    bool haveRate = false;
    std::string rate = "29.97";
    std::int64_t rateNumerator = 30000; // frames per second as a fraction
    std::int64_t rateDenominator = 1001;
    std::int64_t ticksPerFrame = 0;
    bool haveField = false;
    std::string field = "progressive";
    std::string aspect; // empty: the module's default
    bool haveSeconds = false;
    double seconds = 10.0;
    std::int64_t frames = -1; // -1: from --seconds, or the raw file's length
    std::int64_t startFrame = 0;
    std::int32_t channelType = 2; // 0: no audio
    std::int32_t sampleType = 3;
    double sampleRate = 48000.0;
    bool exportVideo = true;
    SourceOptions source;
    prsdk::PrPixelFormat hostFormat = 0;
    int threads = 4;
    std::int32_t rowPadding = 0;
    bool unaligned = false;
    std::int64_t cancelAt = -1;
    std::int64_t suspendAt = -1;
    std::int64_t failRenderAt = -1;
    std::uint64_t seed = 1;
    bool forceStandIns = false; // Windows: our stand-ins even where the platform's filters would do
    bool graph = false;         // print the module's DirectShow graph (Windows build only)
};

// One option of `qvnhost export`: its name, its value's placeholder (nullptr for a flag) and its meaning.
// The parser accepts exactly these; --help prints them; docs/export.md lists them.
struct ExportOptionHelp {
    const char* name;
    const char* value;
    const char* meaning;
};
extern const ExportOptionHelp kExportOptionHelp[];
extern const std::size_t kExportOptionCount;

// What `qvnhost export --help` prints.
std::string ExportHelpText();

// True when argv holds -h or --help where an option may stand (not as another option's value).
bool ExportHelpRequested(int argc, char** argv);

// argv[0] is "export". False with a one-line *error for bad input.
bool ParseExportOptions(int argc, char** argv, ExportOptions* options, std::string* error);

// The frame count of an export: --frames, --seconds at the export's rate (at least one frame), or what is
// left of a raw file after the start frame.
std::int64_t FrameCountOf(const ExportOptions& options, std::int64_t rawFrames, std::int64_t ticksPerFrame);

} // namespace qvnhost
