// Test-side reading of written files: little-endian fields at offsets and a flat walk over RIFF chunks,
// written independently of the writer's own structures.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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
inline std::uint16_t U16(const Bytes& b, std::uint64_t at) {
    std::uint16_t v = 0;
    std::memcpy(&v, b.data() + at, 2);
    return v;
}
inline std::uint64_t U64(const Bytes& b, std::uint64_t at) {
    std::uint64_t v = 0;
    std::memcpy(&v, b.data() + at, 8);
    return v;
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
    std::uint64_t at = begin;
    while (at + 8 <= end) {
        const Chunk c{Tag(b, at), at, U32(b, at + 4)};
        chunks.push_back(c);
        at += 8 + c.size + (c.size & 1u);
    }
    return chunks;
}

// A fresh folder under the system's temporary directory, removed with the object.
class TempDir {
public:
    explicit TempDir(const std::string& name) {
        path_ = std::filesystem::temp_directory_path() / ("qvn-avi-" + name + "-" + std::to_string(Unique()));
        std::filesystem::remove_all(path_);
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }
    const std::filesystem::path& path() const { return path_; }

private:
    static unsigned long long Unique() {
        static std::atomic<unsigned> counter{0};
        return static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count()) *
                   64 +
               counter++ % 64;
    }
    std::filesystem::path path_;
};

} // namespace avitest
