#include "encoders/avi_index.h"

#include <cstring>

#include "encoders/fourcc.h"

namespace QVN::AviIndex {

namespace {

char Digit(std::uint32_t value) {
    return static_cast<char>('0' + value % 10);
}

} // namespace

std::uint32_t ChunkId(std::uint32_t stream, std::uint32_t streamType) {
    const char tens = Digit(stream / 10);
    const char units = Digit(stream);
    if (streamType == MakeFourCC("vids"))
        return MakeFourCC(tens, units, 'd', 'b');
    if (streamType == MakeFourCC("auds"))
        return MakeFourCC(tens, units, 'w', 'b');
    return MakeFourCC(tens, units, 'u', 'n');
}

std::uint32_t StandardIndexId(std::uint32_t stream) {
    return MakeFourCC('i', 'x', Digit(stream / 10), Digit(stream));
}

void InitSuperIndex(SuperIndexChunk& index, std::uint32_t chunkId) {
    std::memset(&index, 0, sizeof(index));
    SuperIndexHeader& header = index.header;
    header.fcc = MakeFourCC("indx");
    header.cb = kChunkPayload;
    header.wLongsPerEntry = 4;
    header.bIndexSubType = 0;
    header.bIndexType = kIndexOfIndexes;
    header.dwChunkId = chunkId;
}

void InitStandardIndex(StandardIndexChunk& index, std::uint32_t stream, std::uint32_t chunkId) {
    std::memset(&index, 0, sizeof(index));
    StandardIndexHeader& header = index.header;
    header.fcc = StandardIndexId(stream);
    header.cb = kChunkPayload;
    header.wLongsPerEntry = 2;
    header.bIndexSubType = 0;
    header.bIndexType = kIndexOfChunks;
    header.dwChunkId = chunkId;
    header.qwBaseOffset = 0;
}

} // namespace QVN::AviIndex
