// Writes test AVI files through CSimpleAviEncoder the way the export run drives it, and runs the
// independent reader tools on them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace avitest {

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

ExportResult WriteExport(const std::filesystem::path& path, const ExportConfig& config);

// Bytes per row of the codecs the cards play, as the readers expect them.
std::uint32_t FrameBytes(const char* fourcc, std::int32_t width, std::int32_t height);

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
