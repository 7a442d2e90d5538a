// The two per-stream OpenDML index chunks that AVIFile keeps in memory and writes whole: the super index
// ("indx", in the stream's header list) and the standard index ("ix##", in the movi list). Both buffers are
// 64 KiB including the chunk header, so their capacity is fixed.
#pragma once

#include <cstddef>
#include <cstdint>

#pragma pack(push, 1)
struct SuperIndexHeader {
    std::uint32_t fcc; // "indx"
    std::uint32_t cb;  // 65,528
    std::uint16_t wLongsPerEntry;
    std::uint8_t bIndexSubType;
    std::uint8_t bIndexType;
    std::uint32_t nEntriesInUse;
    std::uint32_t dwChunkId;
    std::uint32_t dwReserved[3];
};

struct SuperIndexEntry {
    std::uint64_t qwOffset; // file position of an ix## chunk
    std::uint32_t dwSize;
    std::uint32_t dwDuration; // frames for video, blocks for audio
};

struct StandardIndexHeader {
    std::uint32_t fcc; // "ix" + two stream digits
    std::uint32_t cb;  // 65,528
    std::uint16_t wLongsPerEntry;
    std::uint8_t bIndexSubType;
    std::uint8_t bIndexType;
    std::uint32_t nEntriesInUse;
    std::uint32_t dwChunkId;
    std::uint64_t qwBaseOffset;
    std::uint32_t dwReserved;
};

struct StandardIndexEntry {
    std::uint32_t dwOffset; // of the chunk's data, relative to the base offset
    std::uint32_t dwSize;   // bit 31 set: not a key frame
};
#pragma pack(pop)

static_assert(sizeof(SuperIndexHeader) == 32 && sizeof(SuperIndexEntry) == 16);
static_assert(sizeof(StandardIndexHeader) == 32 && sizeof(StandardIndexEntry) == 8);

// The whole 64 KiB chunks, header included, exactly as they are written.
struct SuperIndexChunk {
    SuperIndexHeader header;
    SuperIndexEntry entries[4094];
};
struct StandardIndexChunk {
    StandardIndexHeader header;
    StandardIndexEntry entries[8188];
};
static_assert(sizeof(SuperIndexChunk) == 65536 && sizeof(StandardIndexChunk) == 65536);

namespace QVN::AviIndex {

inline constexpr std::size_t kChunkBytes = 65536;
inline constexpr std::uint32_t kChunkPayload = kChunkBytes - 8;
inline constexpr std::uint8_t kIndexOfIndexes = 0;
inline constexpr std::uint8_t kIndexOfChunks = 1;
// 8188 entries fill a standard index exactly; it is flushed when full.
inline constexpr std::uint32_t kStandardCapacity = 8188;
// The super index has room for 4094 entries; one stays free for the flush at close.
inline constexpr std::uint32_t kSuperRefuseAt = 4093;
inline constexpr std::uint32_t kNotKeyFrame = 0x80000000u;

// Chunk ids of stream s: "NNdb" (video), "NNwb" (audio), "NNun" (other); its standard index "ixNN".
std::uint32_t ChunkId(std::uint32_t stream, std::uint32_t streamType);
std::uint32_t StandardIndexId(std::uint32_t stream);

// An empty index of the given kind: header filled, no entries, everything else zero.
void InitSuperIndex(SuperIndexChunk& index, std::uint32_t chunkId);
void InitStandardIndex(StandardIndexChunk& index, std::uint32_t stream, std::uint32_t chunkId);

} // namespace QVN::AviIndex
