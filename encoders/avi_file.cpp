#include "encoders/avi_file.h"

#include <cstring>
#include <new>

#include "encoders/fourcc.h"
#include "platform/virtual_memory.h"

namespace {

using QVN::MakeFourCC;

constexpr std::uint64_t kAlign = 4096;
constexpr std::size_t kScratchBytes = 8192;
// Everything a stream adds to the header list besides its strf payload: LIST header (12), strh (64),
// strf header (8), indx (65,536).
constexpr std::uint32_t kStrlOverhead = 65620;
constexpr std::uint64_t kFirstStrhPosition = 100;
constexpr std::uint64_t kTotalFramesPosition = 48;
constexpr char kSignature[20] = "QVN AVI Writer v1.0";

// A failed file-system call; Open, WriteChunk and Close turn it back into their result.
struct FileError {
    HRESULT hr;
};

void Check(HRESULT hr) {
    if (FAILED(hr))
        throw FileError{hr};
}

bool IsVideo(const StreamInfo& info) {
    return info.Header().fccType == MakeFourCC("vids");
}

} // namespace

AVIFile::AVIFile() : junk_(8 + kScratchBytes, 0) {}

AVIFile::~AVIFile() {
    if (IsOpen())
        Close();
    if (scratch_)
        QVN::ReleasePages(scratch_, kScratchBytes);
}

std::int64_t AVIFile::JunkSize(std::int64_t position, std::int64_t bias) {
    constexpr std::int64_t align = static_cast<std::int64_t>(kAlign);
    if ((position - bias) % align == 0)
        return 0;
    const std::int64_t end = (position + 8 - bias + align - 1) / align * align;
    std::int64_t n = end - position + bias - 8;
    if (n < 2040) // a short gap takes a whole extra block: the padding is never below 2040 bytes
        n += align;
    return n;
}

void AVIFile::Write(const void* data, std::size_t size) {
    Check(cached_.WriteAt(position_, data, size));
    position_ += size;
}

void AVIFile::WriteFourCC(std::uint32_t fcc, std::uint32_t size) {
    const std::uint32_t header[2] = {fcc, size};
    Write(header, sizeof(header));
}

std::uint64_t AVIFile::WriteJunk(std::int64_t bias) {
    const std::int64_t n = JunkSize(static_cast<std::int64_t>(position_), bias);
    if (n > 0) {
        const std::uint32_t header[2] = {MakeFourCC("JUNK"), static_cast<std::uint32_t>(n)};
        std::memcpy(junk_.data(), header, sizeof(header));
        Write(junk_.data(), 8 + static_cast<std::size_t>(n));
    }
    return position_;
}

HRESULT AVIFile::Open(const char* path, const std::vector<StreamInfo*>& streams) {
    if (IsOpen())
        return E_FAIL;
    try {
        if (!scratch_) {
            scratch_ = static_cast<unsigned char*>(QVN::CommitPages(kScratchBytes));
            if (!scratch_)
                return E_OUTOFMEMORY;
        }
        // Everything the header needs is allocated before the file exists: running out of memory leaves
        // no half-written file behind.
        PrepareStreams(streams);
        Check(cached_.Open(path, QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kCached));
        Check(unbuffered_.Open(path, QVN::FileCreation::kCreateAlways, QVN::FileBuffering::kUnbuffered));
        position_ = 0;
        WriteFourCC(MakeFourCC("RIFF"), 4);
        const std::uint32_t avi = MakeFourCC("AVI ");
        Write(&avi, 4);
        WriteHeaders(streams);
        return S_OK;
    } catch (const FileError& e) {
        Reset();
        return e.hr;
    } catch (const std::bad_alloc&) {
        Reset();
        return E_OUTOFMEMORY;
    }
}

void AVIFile::PrepareStreams(const std::vector<StreamInfo*>& streams) {
    streams_.clear();
    streams_.reserve(streams.size());
    for (std::uint32_t s = 0; s < streams.size(); ++s) {
        const StreamInfo& info = *streams[s];
        StreamRecord record;
        record.info = info.Clone();
        record.chunkId = QVN::AviIndex::ChunkId(s, info.Header().fccType);
        record.superIndex = std::make_unique<SuperIndexChunk>();
        record.standardIndex = std::make_unique<StandardIndexChunk>();
        QVN::AviIndex::InitSuperIndex(*record.superIndex, record.chunkId);
        QVN::AviIndex::InitStandardIndex(*record.standardIndex, s, record.chunkId);
        streams_.push_back(std::move(record));
    }
    segments_.reserve(4);
}

void AVIFile::WriteHeaders(const std::vector<StreamInfo*>& streams) {
    std::uint32_t headerSize = 64; // avih chunk
    const VideoStreamInfo* video = nullptr;
    std::uint32_t largestBuffer = 0;
    for (const StreamInfo* info : streams) {
        headerSize += info->GetFormatSize() + kStrlOverhead;
        if (!video)
            video = dynamic_cast<const VideoStreamInfo*>(info);
        if (info->Header().dwSuggestedBufferSize > largestBuffer)
            largestBuffer = info->Header().dwSuggestedBufferSize;
    }

    const std::int64_t pad = JunkSize(static_cast<std::int64_t>(position_ + headerSize + 12), -12);
    WriteFourCC(MakeFourCC("LIST"), static_cast<std::uint32_t>(headerSize + pad + 12));
    const std::uint32_t hdrl = MakeFourCC("hdrl");
    Write(&hdrl, 4);

    std::uint32_t avih[14] = {};
    if (video) {
        const VIDEOINFOHEADER& format = video->VideoFormat();
        avih[0] = static_cast<std::uint32_t>(format.AvgTimePerFrame / 10);
        avih[1] = format.dwBitRate;
        avih[2] = 4096;
        avih[3] = 0x10; // AVIF_HASINDEX
        avih[7] = largestBuffer;
        avih[8] = static_cast<std::uint32_t>(format.bmiHeader.biWidth);
        avih[9] = static_cast<std::uint32_t>(format.bmiHeader.biHeight);
    }
    avih[6] = static_cast<std::uint32_t>(streams.size());
    WriteFourCC(MakeFourCC("avih"), sizeof(avih));
    Write(avih, sizeof(avih));
    // Motion JPEG payloads are small and variable: they all go through the cached handle.
    alignedWrites_ = video && video->Header().fccHandler != MakeFourCC("MJPG");

    for (std::uint32_t s = 0; s < streams.size(); ++s) {
        const StreamInfo& info = *streams[s];
        StreamRecord& record = streams_[s];
        const std::uint32_t formatSize = info.GetFormatSize();
        WriteFourCC(MakeFourCC("LIST"), formatSize + kStrlOverhead - 8);
        const std::uint32_t strl = MakeFourCC("strl");
        Write(&strl, 4);
        Write(&record.info->Header(), sizeof(StreamHeaderChunk));
        WriteFourCC(MakeFourCC("strf"), formatSize);
        Write(info.GetFormat(), formatSize);
        record.indxPosition = position_;
        Write(record.superIndex.get(), sizeof(SuperIndexChunk));
    }

    const std::uint64_t moviList = WriteJunk(-12);
    segments_.push_back({0, moviList + 12});
    WriteFourCC(MakeFourCC("LIST"), 4);
    const std::uint32_t movi = MakeFourCC("movi");
    Write(&movi, 4);
}

StreamInfo* AVIFile::GetStream(std::uint32_t stream) {
    return stream < streams_.size() ? streams_[stream].info.get() : nullptr;
}

HRESULT AVIFile::WriteRepeat(std::uint32_t stream) {
    if (stream >= streams_.size() || !IsVideo(*streams_[stream].info) || !streams_[stream].hasChunk)
        return E_FAIL;
    return WriteChunk(stream, nullptr, 0, true);
}

std::uint64_t AVIFile::WriteUnaligned(const StreamRecord& record, const void* data, std::uint32_t size) {
    const std::uint64_t chunkPosition = position_;
    WriteFourCC(record.chunkId, size);
    Write(data, size);
    position_ += size & 1u; // RIFF pads chunks to even sizes; the pad byte itself need not be written
    if (alignedWrites_)
        WriteJunk(0);
    return chunkPosition;
}

std::uint64_t AVIFile::WriteAligned(const StreamRecord& record, const void* data, std::uint32_t size) {
    // The chunk header sits in the last 8 bytes of a 4096-byte block that is otherwise one JUNK chunk, so
    // the payload starts on the next block boundary and goes to the disk straight from the caller's buffer.
    const std::uint64_t p = WriteJunk(0);
    std::memset(scratch_, 0, kScratchBytes);
    const std::uint32_t block0[2] = {MakeFourCC("JUNK"), 4080};
    std::memcpy(scratch_, block0, sizeof(block0));
    const std::uint32_t chunkHeader[2] = {record.chunkId, size};
    std::memcpy(scratch_ + 4088, chunkHeader, sizeof(chunkHeader));
    Check(unbuffered_.WriteAt(p, scratch_, kAlign));

    const std::uint32_t whole = size & ~4095u;
    if (whole > 0)
        Check(unbuffered_.WriteAt(p + kAlign, data, whole));
    std::uint64_t length = whole + kAlign;

    const std::uint32_t tail = size - whole;
    if (tail > 0) {
        // The tail is copied into a full block and closed by a JUNK chunk up to the block's end (or the
        // next block's end when the chunk header no longer fits).
        std::memset(scratch_, 0, kScratchBytes);
        std::memcpy(scratch_, static_cast<const unsigned char*>(data) + whole, tail);
        const std::uint32_t even = (tail + 1u) & ~1u;
        std::int64_t junk = 4088 - static_cast<std::int64_t>(even);
        std::size_t blockBytes = kAlign;
        if (junk < 0) {
            junk += 4096;
            blockBytes = 2 * kAlign;
        }
        const std::uint32_t junkHeader[2] = {MakeFourCC("JUNK"), static_cast<std::uint32_t>(junk)};
        std::memcpy(scratch_ + even, junkHeader, sizeof(junkHeader));
        Check(unbuffered_.WriteAt(p + length, scratch_, blockBytes));
        length += blockBytes;
    }
    position_ = p + length;
    return p + 4088;
}

HRESULT AVIFile::WriteChunk(std::uint32_t stream, const void* data, std::uint32_t size, bool keyframe) {
    if (!IsOpen() || stream >= streams_.size())
        return E_FAIL;
    StreamRecord& record = streams_[stream];
    StreamHeaderChunk& header = record.info->Header();
    SuperIndexChunk& super = *record.superIndex;
    StandardIndexChunk& standard = *record.standardIndex;
    if (super.header.nEntriesInUse >= QVN::AviIndex::kSuperRefuseAt)
        return E_FAIL;
    if (!data && !record.hasChunk) // nothing to repeat yet
        return E_FAIL;
    try {
        // The lists grow before anything is written, so that a chunk is either in the file and in every
        // index, or in none.
        if (firstSegment_ && idx1_.size() == idx1_.capacity())
            idx1_.reserve(idx1_.size() * 2 + 1024);
        if (segments_.size() == segments_.capacity())
            segments_.reserve(segments_.size() * 2);
        std::uint32_t duration = 0;
        if (header.fccType == MakeFourCC("vids")) {
            duration = 1;
        } else if (header.fccType == MakeFourCC("auds")) {
            const auto* audio = dynamic_cast<const AudioStreamInfo*>(record.info.get());
            if (audio && audio->AudioFormat().nBlockAlign > 0)
                duration = size / audio->AudioFormat().nBlockAlign;
        }
        header.dwLength += duration;

        if (data) {
            const bool aligned = alignedWrites_ && reinterpret_cast<std::uintptr_t>(data) % kAlign == 0;
            record.lastChunkPosition =
                aligned ? WriteAligned(record, data, size) : WriteUnaligned(record, data, size);
            record.lastSizeField = size | (keyframe ? 0u : QVN::AviIndex::kNotKeyFrame);
            record.hasChunk = true;
            if (size > header.dwSuggestedBufferSize)
                header.dwSuggestedBufferSize = size;
        }
        const std::uint64_t chunkPosition = record.lastChunkPosition;

        StandardIndexEntry& entry = standard.entries[standard.header.nEntriesInUse];
        entry.dwOffset = static_cast<std::uint32_t>(chunkPosition - standard.header.qwBaseOffset + 8);
        entry.dwSize = record.lastSizeField;
        standard.header.nEntriesInUse += 1;
        super.entries[super.header.nEntriesInUse].dwDuration += duration;

        if (firstSegment_) {
            if (data)
                idx1_.push_back(
                    {record.chunkId, keyframe ? 0x10u : 0u, static_cast<std::uint32_t>(chunkPosition), size});
            else if (!idx1_.empty())
                idx1_.push_back(idx1_.back());
        }

        const bool newSegment = position_ - segments_.back().riffPosition > kSegmentLimit;
        for (StreamRecord& other : streams_) {
            if (newSegment || other.standardIndex->header.nEntriesInUse >= QVN::AviIndex::kStandardCapacity)
                FlushStandardIndex(other, chunkPosition);
        }
        if (newSegment && firstSegment_) {
            firstSegment_ = false;
            WriteIdx1AndSignature();
        }
        if (newSegment)
            StartSegment();
        return S_OK;
    } catch (const FileError& e) {
        return e.hr;
    } catch (const std::bad_alloc&) { // a list could not grow: nothing was written
        return E_OUTOFMEMORY;
    }
}

void AVIFile::FlushStandardIndex(StreamRecord& record, std::uint64_t nextBase) {
    const std::uint64_t at = position_;
    StandardIndexChunk& standard = *record.standardIndex;
    Write(&standard, sizeof(standard));
    WriteJunk(0);
    SuperIndexChunk& super = *record.superIndex;
    SuperIndexEntry& entry = super.entries[super.header.nEntriesInUse];
    entry.qwOffset = at;
    entry.dwSize = 0x10000;
    super.header.nEntriesInUse += 1;
    standard.header.qwBaseOffset = nextBase;
    standard.header.nEntriesInUse = 0;
}

void AVIFile::WriteIdx1AndSignature() {
    idx1Position_ = position_;
    WriteFourCC(MakeFourCC("idx1"), static_cast<std::uint32_t>(idx1_.size() * sizeof(Idx1Entry)));
    if (!idx1_.empty())
        Write(idx1_.data(), idx1_.size() * sizeof(Idx1Entry));
    WriteFourCC(MakeFourCC("QVN "), sizeof(kSignature));
    Write(kSignature, sizeof(kSignature));
    WriteJunk(0);
}

void AVIFile::StartSegment() {
    const std::uint64_t riff = position_;
    WriteFourCC(MakeFourCC("RIFF"), 4);
    const std::uint32_t avix = MakeFourCC("AVIX");
    Write(&avix, 4);
    WriteJunk(-12);
    WriteFourCC(MakeFourCC("LIST"), 4);
    const std::uint32_t movi = MakeFourCC("movi");
    Write(&movi, 4);
    segments_.push_back({riff, position_});
}

void AVIFile::PatchHeaders() {
    const std::uint64_t end = position_;
    for (std::size_t i = 0; i < segments_.size(); ++i) {
        const Segment& segment = segments_[i];
        const std::uint64_t segmentEnd = i + 1 < segments_.size() ? segments_[i + 1].riffPosition : end;
        const auto riffSize = static_cast<std::uint32_t>(segmentEnd - segment.riffPosition - 8);
        Check(cached_.WriteAt(segment.riffPosition + 4, &riffSize, 4));
        // The first segment's movi list stops where idx1 begins; later ones run to the segment's end.
        const std::uint64_t moviEnd = segment.moviDataStart < idx1Position_ ? idx1Position_ : segmentEnd;
        const auto moviSize = static_cast<std::uint32_t>(moviEnd - segment.moviDataStart + 4);
        Check(cached_.WriteAt(segment.moviDataStart - 8, &moviSize, 4));
    }
    for (const StreamRecord& record : streams_)
        Check(cached_.WriteAt(record.indxPosition, record.superIndex.get(), sizeof(SuperIndexChunk)));

    std::uint32_t totalFrames = 0;
    for (const StreamRecord& record : streams_) {
        if (dynamic_cast<const VideoStreamInfo*>(record.info.get())) {
            totalFrames = record.info->Header().dwLength;
            break;
        }
    }
    Check(cached_.WriteAt(kTotalFramesPosition, &totalFrames, 4));

    std::uint64_t strh = kFirstStrhPosition;
    for (const StreamRecord& record : streams_) {
        Check(cached_.WriteAt(strh, &record.info->Header(), sizeof(StreamHeaderChunk)));
        strh += sizeof(StreamHeaderChunk) + record.info->GetFormatSize() + 8 + 65548;
    }
}

HRESULT AVIFile::Close() {
    if (!IsOpen())
        return S_OK;
    HRESULT result = S_OK;
    // The trailing indexes first; if the disk refuses them, the headers are still patched as far as the
    // file goes, so that what was written stays readable.
    try {
        for (StreamRecord& record : streams_)
            FlushStandardIndex(record, record.standardIndex->header.qwBaseOffset);
        if (firstSegment_)
            WriteIdx1AndSignature();
    } catch (const FileError& e) {
        result = e.hr;
    }
    try {
        PatchHeaders();
    } catch (const FileError& e) {
        if (SUCCEEDED(result))
            result = e.hr;
    }
    const HRESULT closeA = cached_.Close();
    const HRESULT closeB = unbuffered_.Close();
    if (SUCCEEDED(result))
        result = FAILED(closeA) ? closeA : closeB;
    Reset();
    return result;
}

void AVIFile::Reset() {
    cached_.Close();
    unbuffered_.Close();
    streams_.clear();
    idx1_.clear();
    segments_.clear();
    idx1Position_ = 0;
    position_ = 0;
    firstSegment_ = true;
    alignedWrites_ = false;
}
