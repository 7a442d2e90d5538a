// Writes test AVI files through CSimpleAviEncoder the way the export run drives it, and runs the
// independent reader tools on them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/inspect_command.h"
#include "platform/win_types.h"
#include "riff_reader.h"

namespace avitest {

// A video format as the export run fills it in; 400000 units a frame is 25 fps.
inline VIDEOINFOHEADER Video(const char* fourcc, std::int32_t width, std::int32_t height, std::uint32_t image,
                             std::uint16_t bits = 16, std::int64_t duration = 400000) {
    VIDEOINFOHEADER v{};
    v.AvgTimePerFrame = duration;
    v.bmiHeader = {40, width, height, 1, bits, Fcc(fourcc), image, 0, 0, 0, 0};
    return v;
}

// The first movi list's chunks (JUNK included) of a file in memory.
inline std::vector<Chunk> MoviChunks(const Bytes& b) {
    const std::uint64_t movi = 20 + U32(b, 16); // right after the header list
    return Walk(b, movi + 12, movi + 8 + U32(b, movi + 4));
}

// qvnhost inspect on a command line, with what it printed.
struct Inspected {
    int code;
    std::string out, err;
};
inline Inspected Inspect(std::vector<std::string> args) {
    args.insert(args.begin(), "inspect");
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const int code = QvnInspectCommand(static_cast<int>(argv.size()), argv.data());
    std::string out = testing::internal::GetCapturedStdout();
    return {code, out, testing::internal::GetCapturedStderr()};
}

// The non-empty lines of a tool's output.
inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        if (!line.empty())
            lines.push_back(line);
    return lines;
}

// Offset of the second stream's strh in our files: behind the video strl with its 64 KiB super index.
inline constexpr std::uint64_t kAudioStrh = 100 + 64 + 40 + 8 + 65548;

struct ExportConfig {
    const char* fourcc = "v210";
    std::int32_t width = 0; // 0: no video
    std::int32_t height = 0;
    std::uint32_t frameBytes = 0;
    std::uint32_t rate = 30000, scale = 1001;
    std::uint32_t frames = 0;
    std::uint16_t channels = 0; // 0: no audio
    std::uint32_t sampleRate = 48000;
    std::uint16_t bits = 16;
};

struct ExportResult {
    std::uint32_t status = 0;  // first nonzero encoder status, if any
    std::uint64_t samples = 0; // audio samples handed to the encoder
};

// Bytes per row of the codecs the cards play, as the readers expect them.
std::uint32_t FrameBytes(const char* fourcc, std::int32_t width, std::int32_t height);

// An export of a codec the cards play, or of audio alone for an empty code.
inline ExportConfig Config(const char* fourcc, std::int32_t width, std::int32_t height, std::uint32_t frames,
                           std::uint16_t channels, std::uint32_t rate = 30000, std::uint16_t bits = 16,
                           std::uint32_t sampleRate = 48000) {
    ExportConfig c;
    if (*fourcc)
        c = {fourcc, width, height, FrameBytes(fourcc, width, height)};
    c.rate = rate;
    c.frames = frames;
    c.channels = channels;
    c.bits = bits;
    c.sampleRate = sampleRate;
    return c;
}

ExportResult WriteExport(const std::filesystem::path& path, const ExportConfig& config);

// Running the reader tools (native builds only: tool_runner.cpp).
struct CommandResult {
    int exitCode = -1;
    std::string output; // standard output
    std::string errors; // standard error
};
CommandResult Run(const std::string& command);
// True when the tool can be started; a missing tool must fail the test, not skip it.
bool HaveTool(const char* name);
std::string Quote(const std::filesystem::path& path);

} // namespace avitest
