// Test-side reading of written files (little-endian fields at offsets and a flat walk over RIFF chunks,
// written independently of the writer's own structures), test exports through CSimpleAviEncoder the way
// the export run drives it, and the independent reader tools.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/inspect_command.h"
#include "platform/win_types.h"

namespace avitest {

using Bytes = std::vector<unsigned char>;

inline Bytes ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}
inline std::uint32_t U32(const Bytes& b, std::uint64_t at) {
    std::uint32_t v = 0;
    std::memcpy(&v, b.data() + at, 4);
    return v;
}
inline std::uint64_t U64(const Bytes& b, std::uint64_t at) {
    return U32(b, at) | std::uint64_t{U32(b, at + 4)} << 32;
}
inline std::string Tag(const Bytes& b, std::uint64_t at) {
    return std::string(b.begin() + at, b.begin() + at + 4);
}
inline std::uint32_t Fcc(const std::string& t) {
    std::uint32_t v = 0;
    for (std::size_t i = 0; i < 4 && i < t.size(); ++i)
        v |= std::uint32_t(std::uint8_t(t[i])) << (8 * i);
    return v;
}

struct Chunk {
    std::string id;
    std::uint64_t position; // of the chunk header
    std::uint32_t size;
};

// The chunks of a list body [begin, end), padded to even sizes; LISTs are returned, not entered.
inline std::vector<Chunk> Walk(const Bytes& b, std::uint64_t begin, std::uint64_t end) {
    std::vector<Chunk> chunks;
    for (std::uint64_t at = begin; at + 8 <= end; at += 8 + chunks.back().size + (chunks.back().size & 1u))
        chunks.push_back({Tag(b, at), at, U32(b, at + 4)});
    return chunks;
}

// The first movi list's chunks (JUNK included) of a file in memory.
inline std::vector<Chunk> MoviChunks(const Bytes& b) {
    const std::uint64_t movi = 20 + U32(b, 16); // right after the header list
    return Walk(b, movi + 12, movi + 8 + U32(b, movi + 4));
}

// A fresh folder under the system's temporary directory, removed with the object.
class TempDir {
public:
    explicit TempDir(const std::string& name) {
        static std::atomic<unsigned> counter{0};
        path_ = std::filesystem::temp_directory_path() /
                ("qvn-avi-" + name + "-" +
                 std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()) + "-" +
                 std::to_string(counter++));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// A video format as the export run fills it in; 400000 units a frame is 25 fps.
inline VIDEOINFOHEADER Video(const char* fourcc, std::int32_t width, std::int32_t height, std::uint32_t image,
                             std::uint16_t bits = 16, std::int64_t duration = 400000) {
    VIDEOINFOHEADER v{};
    v.AvgTimePerFrame = duration;
    v.bmiHeader = {40, width, height, 1, bits, Fcc(fourcc), image, 0, 0, 0, 0};
    return v;
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

// An export of a codec the cards play (at 1001 units a frame), or of audio alone for an empty code.
struct ExportConfig {
    const char* fourcc;
    std::int32_t width, height; // 0: no video
    std::uint32_t frames;
    std::uint16_t channels; // 0: no audio
    std::uint32_t rate = 30000;
    std::uint16_t bits = 16;
    std::uint32_t sampleRate = 48000;
};
struct ExportResult {
    std::uint32_t status = 0;  // first nonzero encoder status, if any
    std::uint64_t samples = 0; // audio samples handed to the encoder
};
ExportResult WriteExport(const std::filesystem::path& path, const ExportConfig& config);

// Running the reader tools (native builds only).
struct CommandResult {
    int exitCode = -1;
    std::string output; // standard output
    std::string errors; // standard error
};
CommandResult Shell(const std::string& command);
// True when the tool can be started; a missing tool must fail the test, not skip it.
inline bool HaveTool(const char* name) {
    return Shell(std::string("command -v ") + name).exitCode == 0;
}
inline std::string Quote(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}
// The audio samples ffprobe decodes from a file.
inline std::uint64_t AudioSamples(const std::filesystem::path& file) {
    const CommandResult r = Shell(
        "ffprobe -v error -select_streams a:0 -show_entries frame=nb_samples -of csv=p=0 " + Quote(file));
    EXPECT_EQ(r.exitCode, 0) << r.errors;
    std::uint64_t total = 0;
    for (const std::string& line : Lines(r.output))
        total += std::stoull(line);
    return total;
}

} // namespace avitest
