// AVIFile writes one OpenDML (AVI 2.0) file: an "AVI " RIFF segment holding the headers, the legacy idx1
// index and the writer's signature, then "AVIX" segments of about 1 GB each. Video payloads in 4096-aligned
// buffers go to the disk through a second, unbuffered handle, so an uncompressed HD stream is written at
// disk speed; everything else goes through the cached handle. Not thread-safe: one writer at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "encoders/avi_index.h"
#include "encoders/stream_info.h"
#include "platform/file.h"
#include "platform/win_types.h"

class AVIFile {
public:
    AVIFile();
    virtual ~AVIFile(); // closes a file that is still open
    AVIFile(const AVIFile&) = delete;
    AVIFile& operator=(const AVIFile&) = delete;

    // Creates the file and writes everything up to the first movi list. The caller keeps the descriptions;
    // the file works on copies. On failure the object is closed again (the bytes written stay on disk).
    HRESULT Open(const char* path, const std::vector<StreamInfo*>& streams);
    // Writes one payload chunk of a stream and indexes it. Null data repeats the stream's previous chunk in
    // the indexes without writing a payload.
    HRESULT WriteChunk(std::uint32_t stream, const void* data, std::uint32_t size, bool keyframe);
    // A repeated video frame: index entries only. E_FAIL for audio or before the stream's first chunk.
    HRESULT WriteRepeat(std::uint32_t stream);
    // The file's copy of a stream description, with its running counters; null when out of range.
    StreamInfo* GetStream(std::uint32_t stream);
    // Writes the remaining indexes, patches every size and counter, closes the handles; reusable afterwards.
    HRESULT Close();
    bool IsOpen() const { return cached_.IsOpen(); }

    // The segment size after which the next chunk starts a new "AVIX" segment.
    static constexpr std::uint64_t kSegmentLimit = 1000000000;
    // JUNK payload size that makes the position after the JUNK chunk, minus bias, a multiple of 4096.
    static std::int64_t JunkSize(std::int64_t position, std::int64_t bias);

private:
    struct StreamRecord {
        std::unique_ptr<StreamInfo> info;
        std::unique_ptr<SuperIndexChunk> superIndex;
        std::unique_ptr<StandardIndexChunk> standardIndex;
        std::uint32_t chunkId = 0;
        std::uint64_t indxPosition = 0;
        bool hasChunk = false;
        std::uint64_t lastChunkPosition = 0;
        std::uint32_t lastSizeField = 0;
    };
    struct Idx1Entry {
        std::uint32_t chunkId;
        std::uint32_t flags;
        std::uint32_t offset;
        std::uint32_t size;
    };
    struct Segment {
        std::uint64_t riffPosition;
        std::uint64_t moviDataStart; // just after "LIST", size, "movi"
    };

    void PrepareStreams(const std::vector<StreamInfo*>& streams); // allocations only
    void WriteHeaders(const std::vector<StreamInfo*>& streams);
    // Both return the file position of the chunk header.
    std::uint64_t WriteUnaligned(const StreamRecord& record, const void* data, std::uint32_t size);
    std::uint64_t WriteAligned(const StreamRecord& record, const void* data, std::uint32_t size);
    void FlushStandardIndex(StreamRecord& record, std::uint64_t nextBase);
    void WriteIdx1AndSignature();
    void StartSegment();
    void PatchHeaders();
    void Reset();

    // Cached-handle writes at the tracked position; failures throw the HRESULT.
    void Write(const void* data, std::size_t size);
    void WriteFourCC(std::uint32_t fcc, std::uint32_t size);
    std::uint64_t WriteJunk(std::int64_t bias);

    QVN::CFile cached_;          // headers, indexes, JUNK and unaligned payloads
    QVN::CFile unbuffered_;      // aligned payload blocks only, at explicit positions
    std::uint64_t position_ = 0; // where the cached handle writes next
    std::vector<StreamRecord> streams_;
    std::uint64_t idx1Position_ = 0;
    std::vector<Idx1Entry> idx1_;
    bool firstSegment_ = true;
    bool alignedWrites_ = false;
    std::vector<Segment> segments_;
    unsigned char* scratch_ = nullptr; // 8192 bytes, page-aligned: the JUNK block and tail of aligned chunks
    std::vector<unsigned char> junk_;  // header and zero payload of JUNK chunks
};
