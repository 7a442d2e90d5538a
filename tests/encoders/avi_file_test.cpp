// Stream descriptions and AVIFile output, checked field by field against the file layout the playback
// software expects.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "encoders/avi_file.h"
#include "encoders/avi_index.h"
#include "platform/virtual_memory.h"
#include "test_files.h"

using namespace avitest;

namespace {

const VIDEOINFOHEADER kVideo = [] {
    VIDEOINFOHEADER v = Video("v210", 64, 32, 8192, 20);
    v.dwBitRate = 123456; // copied unchanged into avih
    return v;
}();
const WAVEFORMATEX kStereo16{WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
const WAVEFORMATEX kMono8{WAVE_FORMAT_PCM, 1, 22050, 22050, 1, 8, 0};

// Page-aligned payload memory.
struct Pages {
    explicit Pages(std::size_t n) : size(n), data(static_cast<unsigned char*>(QVN::CommitPages(n))) {}
    ~Pages() { QVN::ReleasePages(data, size); }
    std::size_t size;
    unsigned char* data;
};

// A recognisable pattern per chunk.
void Fill(unsigned char* p, std::size_t n, unsigned seed) {
    for (std::size_t i = 0; i < n; ++i)
        p[i] = static_cast<unsigned char>(seed * 31 + i * 7);
}

// Consecutive 32-bit fields from `at` on.
void ExpectFields(const Bytes& b, std::uint64_t at, std::initializer_list<std::uint32_t> values) {
    for (std::uint32_t v : values) {
        EXPECT_EQ(U32(b, at), v) << "field at " << at;
        at += 4;
    }
}

struct Written {
    std::string id;
    std::uint32_t size;
    bool aligned;
    bool key;
    unsigned seed;
};

struct List {
    std::uint64_t position, bodyEnd; // "LIST" header position, end of its body
};

List ListAt(const Bytes& b, std::uint64_t at, const char* type) {
    EXPECT_EQ(Tag(b, at), "LIST") << at;
    EXPECT_EQ(Tag(b, at + 8), type) << at;
    return {at, at + 8 + U32(b, at + 4)};
}

} // namespace

TEST(VideoStreamInfo, QualityAndSuggestedBufferAtTheirBoundaries) {
    struct Case {
        std::int32_t width;
        std::uint32_t image, quality, suggested;
    };
    for (const Case& c : {Case{1000, 0, 9000, 0}, Case{1001, 8192, 9800, 8192}, Case{720, 8193, 9000, 12288},
                          Case{1920, 5529601, 9800, 5529600 + 4096}}) {
        const VideoStreamInfo s(Video("v210", c.width, 2, c.image));
        EXPECT_EQ(s.Header().dwQuality, c.quality) << c.width;
        EXPECT_EQ(s.Header().dwSuggestedBufferSize, c.suggested) << c.image;
        EXPECT_EQ(s.Header().dwSampleSize, c.image);
    }
}

TEST(VideoStreamInfo, FrameDurationsMapToTheSupportedRatesOnly) {
    // Each rate takes the durations strictly between its bounds: both bounds and both values just inside
    // them are tried, so that every comparison of the table is pinned.
    struct Row {
        std::int64_t above, below;
        std::uint32_t rate, scale;
    };
    const Row rows[] = {{417081, 417085, 24000, 1001}, {416665, 416669, 24, 1}, {399998, 400002, 25, 1},
                        {333665, 333669, 30000, 1001}, {333331, 333335, 30, 1}, {199998, 200002, 50, 1},
                        {166831, 166835, 60000, 1001}, {166665, 166669, 60, 1}};
    const auto rateOf = [](std::int64_t duration) {
        const VideoStreamInfo s(Video("", 720, 486, 0, 16, duration));
        return std::make_pair(s.Header().dwRate, s.Header().dwScale);
    };
    using P = std::pair<std::uint32_t, std::uint32_t>;
    for (const Row& r : rows) {
        EXPECT_EQ(rateOf(r.above), P(0, 0)) << r.above;
        EXPECT_EQ(rateOf(r.above + 1), P(r.rate, r.scale)) << r.above + 1;
        EXPECT_EQ(rateOf(r.below - 1), P(r.rate, r.scale)) << r.below - 1;
        EXPECT_EQ(rateOf(r.below), P(0, 0)) << r.below;
    }
    EXPECT_EQ(rateOf(0), P(0, 0));
    EXPECT_EQ(rateOf(-333667), P(0, 0));
}

// Plain PCM keeps 18 bytes (whatever follows it in memory), WAVE_FORMAT_EXTENSIBLE 40. The file's strf shows
// the plain one; the 6-channel export of the reader tests the other.
TEST(AudioStreamInfo, PcmGivesEighteenBytesAndExtensibleForty) {
    WAVEFORMATEXTENSIBLE ext{};
    std::memset(&ext, 0xAB, sizeof(ext));
    ext.Format = {WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
    const AudioStreamInfo pcm(&ext.Format);
    EXPECT_EQ(pcm.GetFormatSize(), 18u);
    EXPECT_EQ(std::memcmp(pcm.GetFormat(), &ext, 18), 0);
    ext.Format.wFormatTag = WAVE_FORMAT_EXTENSIBLE;
    ext.Format.cbSize = 22;
    const AudioStreamInfo six(&ext.Format);
    EXPECT_EQ(six.GetFormatSize(), 40u);
    EXPECT_EQ(std::memcmp(six.GetFormat(), &ext, 40), 0);
}

// Streams 0 and 1 are read in every file; the tens digit and the type of other streams only here.
TEST(AviIndex, TwoDigitStreamNumbersAndOtherTypes) {
    EXPECT_EQ(QVN::AviIndex::ChunkId(12, Fcc("txts")), Fcc("12un"));
    EXPECT_EQ(QVN::AviIndex::StandardIndexId(23), Fcc("ix23"));
}

TEST(AviFile, JunkSizeIsTheSmallestPaddingOfAtLeast2040Bytes) {
    for (std::int64_t bias : {0, -12}) {
        for (std::int64_t pos = 0; pos < 3 * 4096; pos += 2) {
            std::int64_t expected = 0;
            if ((pos - bias) % 4096 != 0) {
                expected = 2040;
                while ((pos + 8 + expected - bias) % 4096 != 0)
                    ++expected;
            }
            ASSERT_EQ(AVIFile::JunkSize(pos, bias), expected) << pos << " bias " << bias;
        }
    }
}

TEST(AviFile, SmallFileMatchesTheLayoutFieldByField) {
    TempDir dir("layout");
    const auto path = dir / "small.avi";
    VideoStreamInfo video(kVideo);
    AudioStreamInfo audio(&kStereo16);
    Pages pages(64 * 1024);
    std::vector<unsigned char> heap(16 * 1024 + 16);
    // Never 4096-aligned, so these chunks take the cached path.
    unsigned char* unaligned =
        heap.data() + (reinterpret_cast<std::uintptr_t>(heap.data()) % 4096 == 4 ? 8 : 4);
    const std::vector<Written> plan = {
        {"00db", 12288, true, true, 1},       // whole blocks, larger than the suggested buffer
        {"01wb", 4 * 1601, false, true, 2},   // audio from an unaligned buffer
        {"00db", 5000, true, true, 3},        // short tail
        {"01wb", 4 * 1602, true, true, 4},    // audio from an aligned buffer also goes unbuffered
        {"00db", 4096 + 4093, true, true, 5}, // tail rounds to 4094: the JUNK spills into a second block
        {"00db", 1001, false, true, 6},       // odd size: one pad byte skipped
        {"00db", 0, false, true, 0},          // repeat of the previous frame
        {"00db", 4096 + 4088, true, true, 7}, // tail leaves exactly a JUNK header
        {"00db", 4096 + 4089, true, true, 8}, // one byte more spills
        {"00db", 4096, true, false, 9},       // not a key frame
    };
    {
        AVIFile file;
        ASSERT_EQ(file.Open(path.string().c_str(), {&video, &audio}), S_OK);
        for (const Written& w : plan) {
            const std::uint32_t stream = w.id == "00db" ? 0 : 1;
            if (w.seed == 0) {
                ASSERT_EQ(file.WriteRepeat(stream), S_OK);
                continue;
            }
            unsigned char* data = w.aligned ? pages.data : unaligned;
            Fill(data, w.size, w.seed);
            ASSERT_EQ(file.WriteChunk(stream, data, w.size, w.key), S_OK);
        }
        EXPECT_EQ(file.GetStream(0)->Header().dwLength, 8u);
        EXPECT_EQ(file.GetStream(1)->Header().dwLength, 3203u);
        ASSERT_EQ(file.Close(), S_OK);
        EXPECT_FALSE(file.IsOpen());
    }
    EXPECT_EQ(video.Header().dwLength, 0u); // the file counts in its own copy of the description
    const Bytes b = ReadAll(path);
    ASSERT_GT(b.size(), 200000u);
    EXPECT_EQ(b.size() % 4096, 0u);
    ExpectFields(b, 0, {Fcc("RIFF"), static_cast<std::uint32_t>(b.size() - 8), Fcc("AVI ")});
    const List hdrl = ListAt(b, 12, "hdrl");
    // avih: microseconds per frame, max bytes per second, padding granularity, has index, total frames
    // (patched at close), 0, streams, the largest suggested buffer when the file was opened, width, height.
    ExpectFields(b, 24, {Fcc("avih"), 56, 40000, 123456, 4096, 0x10, 8, 0, 2, 192000, 64, 32, 0, 0, 0, 0});
    const List strl0 = ListAt(b, 88, "strl");
    EXPECT_EQ(strl0.bodyEnd - strl0.position, 8u + 40 + 65612);
    // Video strh: scale 1, rate 25, length 8 (7 video chunks and one repeat), the suggested buffer raised
    // to the largest payload, quality, sample size; then strf and the bitmap.
    ExpectFields(b, 100,
                 {Fcc("strh"), 56, Fcc("vids"), Fcc("v210"), 0, 0, 0, 1, 25, 0, 8, 12288, 9000, 8192, 0, 0,
                  Fcc("strf"), 40});
    EXPECT_EQ(std::memcmp(b.data() + 172, &kVideo.bmiHeader, 40), 0);
    const std::uint64_t indx0 = 212;
    EXPECT_EQ(Tag(b, indx0), "indx");
    EXPECT_EQ(strl0.bodyEnd, indx0 + 65536);
    const List strl1 = ListAt(b, strl0.bodyEnd, "strl");
    EXPECT_EQ(strl1.bodyEnd - strl1.position, 8u + 18 + 65612);
    const std::uint64_t strh1 = strl1.position + 12;
    EXPECT_EQ(strh1, kAudioStrh);
    ExpectFields(
        b, strh1,
        {Fcc("strh"), 56, Fcc("auds"), 0, 0, 0, 0, 1, 48000, 0, 3203, 192000, 0, 4, 0, 0, Fcc("strf"), 18});
    EXPECT_EQ(std::memcmp(b.data() + strh1 + 72, &kStereo16, 18), 0);
    const std::uint64_t indx1 = strh1 + 72 + 18;
    EXPECT_EQ(Tag(b, indx1), "indx");
    // The header list ends with JUNK so that the movi data starts on a block boundary.
    EXPECT_EQ(Tag(b, strl1.bodyEnd), "JUNK");
    EXPECT_EQ(strl1.bodyEnd + 8 + U32(b, strl1.bodyEnd + 4), hdrl.bodyEnd);
    const List movi = ListAt(b, hdrl.bodyEnd, "movi");
    const std::uint64_t moviData = movi.position + 12;
    EXPECT_EQ(moviData % 4096, 0u);
    // The movi list: the payloads in order, then both standard indexes, each closed by JUNK.
    std::vector<Chunk> payloads;
    const auto chunks = Walk(b, moviData, movi.bodyEnd);
    ASSERT_FALSE(chunks.empty());
    EXPECT_EQ(chunks.back().position + 8 + chunks.back().size + (chunks.back().size & 1), movi.bodyEnd);
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        if (chunks[i].id != "JUNK") {
            payloads.push_back(chunks[i]);
        } else if (i > 0 && chunks[i - 1].id.rfind("ix", 0) == 0) {
            EXPECT_EQ((chunks[i].position + 8 + chunks[i].size) % 4096, 0u);
        }
    }
    ASSERT_EQ(payloads.size(), plan.size() - 1 + 2);
    std::size_t next = 0;
    std::vector<std::uint64_t> positions;
    for (const Written& w : plan) {
        if (w.seed == 0)
            continue;
        const Chunk& c = payloads[next++];
        positions.push_back(c.position);
        EXPECT_EQ(c.id, w.id) << w.seed;
        EXPECT_EQ(c.size, w.size) << w.seed;
        if (w.aligned) {
            EXPECT_EQ((c.position + 8) % 4096, 0u) << w.seed;
            const std::uint64_t tailEnd = c.position + 8 + w.size;
            const std::uint64_t even = tailEnd + (w.size & 1);
            if (w.size % 4096 != 0) { // the tail block closes with JUNK on the next boundary
                EXPECT_EQ(Tag(b, even), "JUNK") << w.seed;
                EXPECT_EQ((even + 8 + U32(b, even + 4)) % 4096, 0u) << w.seed;
            }
        }
        std::vector<unsigned char> expect(w.size);
        Fill(expect.data(), w.size, w.seed);
        EXPECT_EQ(std::memcmp(b.data() + c.position + 8, expect.data(), w.size), 0) << w.seed;
    }
    EXPECT_EQ(payloads[next].id, "ix00");
    EXPECT_EQ(payloads[next + 1].id, "ix01");
    EXPECT_EQ(payloads[next].position % 4096, 0u);
    EXPECT_EQ(payloads[next + 1].position % 4096, 0u);
    // The odd chunk is followed one pad byte later by the repeat-free next chunk's JUNK.
    EXPECT_EQ(Tag(b, positions[5] + 8 + 1001 + 1), "JUNK");
    // Super indexes point at the standard indexes, which point at the chunks.
    struct Expect {
        std::uint64_t indx;
        const char* id;
        const char* ix;
        std::uint32_t duration;
        std::vector<std::uint64_t> chunkPositions;
        std::vector<std::uint32_t> sizeFields;
    };
    const std::vector<Expect> streams = {
        {indx0,
         "00db",
         "ix00",
         8,
         {positions[0], positions[2], positions[4], positions[5], positions[5], positions[6], positions[7],
          positions[8]},
         {12288, 5000, 8189, 1001, 1001, 8184, 8185, 4096 | 0x80000000u}},
        {indx1, "01wb", "ix01", 3203, {positions[1], positions[3]}, {6404, 6408}},
    };
    for (const Expect& e : streams) {
        SCOPED_TRACE(e.ix);
        // indx: entry size 4, sub-type and type 0, one entry in use; the entry's size and duration.
        ExpectFields(b, e.indx + 4, {65528, 4, 1, Fcc(e.id)});
        const std::uint64_t ix = U64(b, e.indx + 32);
        ExpectFields(b, e.indx + 40, {0x10000, e.duration, 0, 0}); // no second entry
        ASSERT_LT(ix + 65536, b.size());
        // ix: entry size 2, type 1 (chunks), entries in use, base offset 0.
        ExpectFields(b, ix,
                     {Fcc(e.ix), 65528, 0x01000002, static_cast<std::uint32_t>(e.chunkPositions.size()),
                      Fcc(e.id), 0, 0});
        for (std::size_t i = 0; i < e.chunkPositions.size(); ++i) {
            EXPECT_EQ(U32(b, ix + 32 + 8 * i) - 8, e.chunkPositions[i]) << i;
            EXPECT_EQ(U32(b, ix + 36 + 8 * i), e.sizeFields[i]) << i;
        }
    }
    // idx1 right after the movi list, absolute offsets; the repeat copies the last entry.
    const std::uint64_t idx1 = movi.bodyEnd;
    ASSERT_EQ(Tag(b, idx1), "idx1");
    ASSERT_EQ(U32(b, idx1 + 4), 16u * plan.size());
    std::size_t chunkIndex = 0;
    for (std::size_t i = 0; i < plan.size(); ++i) {
        const std::uint64_t e = idx1 + 8 + 16 * i;
        if (plan[i].seed == 0) {
            EXPECT_EQ(std::memcmp(b.data() + e, b.data() + e - 16, 16), 0);
            continue;
        }
        EXPECT_EQ(Tag(b, e), plan[i].id) << i;
        EXPECT_EQ(U32(b, e + 4), plan[i].key ? 0x10u : 0u) << i;
        EXPECT_EQ(U32(b, e + 8), positions[chunkIndex++]) << i;
        EXPECT_EQ(U32(b, e + 12), plan[i].size) << i;
    }
    const std::uint64_t signature = idx1 + 8 + 16 * plan.size();
    ExpectFields(b, signature, {Fcc("QVN "), 20});
    EXPECT_EQ(std::memcmp(b.data() + signature + 8, "QVN AVI Writer v1.0", 20), 0);
    EXPECT_EQ(Tag(b, signature + 28), "JUNK");
    EXPECT_EQ(signature + 28 + 8 + U32(b, signature + 32), b.size());
}

// An audio-only file: empty video fields in avih, chunks packed without alignment, and 8188 + 2 entries: one
// full standard index, flushed after the chunk that filled it, then two entries in the next.
TEST(AviFile, AudioOnlyFileFlushesAFullStandardIndexAndTheNextCountsFromTheChunkThatFilledIt) {
    TempDir dir("audio");
    const auto path = dir / "audio.avi";
    AudioStreamInfo audio(&kMono8);
    Pages pages(8192);
    constexpr std::uint32_t kChunks = 8188 + 2;
    const auto sizeOf = [](std::uint32_t i) { return i == 0 ? 4096u : i == 1 ? 735u : i == 2 ? 736u : 2u; };
    {
        AVIFile file;
        ASSERT_EQ(file.Open(path.string().c_str(), {&audio}), S_OK);
        for (std::uint32_t i = 0; i < kChunks; ++i) {
            Fill(pages.data, sizeOf(i), i);
            ASSERT_EQ(file.WriteChunk(0, pages.data, sizeOf(i), true), S_OK) << i;
        }
        EXPECT_EQ(file.WriteRepeat(0), E_FAIL); // audio cannot repeat
        ASSERT_EQ(file.Close(), S_OK);
    }
    const Bytes b = ReadAll(path);
    for (int at = 32; at < 88; at += 4)
        EXPECT_EQ(U32(b, at), at == 56 ? 1u : 0u) << at;
    EXPECT_EQ(U32(b, 100 + 40), 4096u + 735 + 736 + 2 * 8187);
    const List hdrl = ListAt(b, 12, "hdrl");
    const List movi = ListAt(b, hdrl.bodyEnd, "movi");
    EXPECT_EQ((movi.position + 12) % 4096, 0u);
    std::vector<std::uint64_t> data, indexes;
    for (const auto& c : Walk(b, movi.position + 12, movi.bodyEnd))
        if (c.id != "JUNK")
            (c.id == "00wb" ? data : indexes).push_back(c.position);
    ASSERT_EQ(data.size(), kChunks);
    // Chunks follow each other directly: 4096 + 8, then 735 + 8 + 1 pad byte.
    EXPECT_EQ(data[1], data[0] + 8 + 4096);
    EXPECT_EQ(data[2], data[1] + 8 + 736);
    EXPECT_EQ(data[3], data[2] + 8 + 736);
    ASSERT_EQ(indexes.size(), 2u);
    EXPECT_EQ(Tag(b, indexes[0]) + Tag(b, indexes[1]), "ix00ix00");
    EXPECT_LT(indexes[0], data[8188]) << "flushed right after the chunk that filled it";
    EXPECT_GT(indexes[0], data[8187]);
    // The base of the second index is the chunk of the call that flushed the first, not the second's
    // first chunk: every offset still fits in 32 bits.
    const std::uint64_t bases[2] = {0, data[8187]};
    const std::uint32_t counts[2] = {8188, 2}, durations[2] = {4096 + 735 + 736 + 2 * 8185, 4};
    for (std::uint32_t k = 0; k < 2; ++k) {
        const std::uint64_t ix = indexes[k];
        EXPECT_EQ(U64(b, ix + 20), bases[k]) << k;
        ASSERT_EQ(U32(b, ix + 12), counts[k]) << k;
        for (std::uint32_t e = 0, chunk = 8188 * k; e < counts[k]; ++e, ++chunk) {
            ASSERT_EQ(bases[k] + U32(b, ix + 32 + 8 * e) - 8, data[chunk]) << k << " " << e;
            ASSERT_EQ(U32(b, ix + 36 + 8 * e), sizeOf(chunk));
            Bytes expect(sizeOf(chunk));
            Fill(expect.data(), expect.size(), chunk);
            ASSERT_EQ(std::memcmp(b.data() + data[chunk] + 8, expect.data(), expect.size()), 0) << chunk;
        }
    }
    // The super index lists both, with the duration of each (one sample a byte).
    const std::uint64_t indx = 12 + 12 + 64 + 12 + 64 + 8 + 18;
    ASSERT_EQ(Tag(b, indx), "indx");
    ASSERT_EQ(U32(b, indx + 12), 2u);
    for (int k = 0; k < 2; ++k) {
        EXPECT_EQ(U64(b, indx + 32 + 16 * k), indexes[k]);
        EXPECT_EQ(U32(b, indx + 44 + 16 * k), durations[k]);
    }
}

TEST(AviFile, FailuresAreReportedAsResults) {
    TempDir dir("fail");
    VideoStreamInfo video(kVideo);
    AudioStreamInfo audio(&kStereo16);
    AVIFile file;
    const auto missing = dir / "no-such-folder" / "x.avi";
    unsigned char data[16] = {};
    {
        AVIFile scoped; // destroyed open: closed as by Close
        ASSERT_EQ(scoped.Open((dir / "scoped.avi").string().c_str(), {&video}), S_OK);
        EXPECT_EQ(scoped.Open((dir / "again.avi").string().c_str(), {&video}), E_FAIL); // already open
        ASSERT_EQ(scoped.WriteChunk(0, data, 16, true), S_OK);
    }
    const Bytes b = ReadAll(dir / "scoped.avi");
    EXPECT_EQ(U32(b, 4), b.size() - 8);
    EXPECT_EQ(U32(b, 48), 1u);
    const HRESULT hr = file.Open(missing.string().c_str(), {&video});
    EXPECT_TRUE(FAILED(hr));
    EXPECT_EQ(static_cast<std::uint32_t>(hr) & 0xFFFF0000u, 0x80070000u); // a system error, not a generic one
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.WriteChunk(0, data, 16, true), E_FAIL);
    EXPECT_EQ(file.Close(), S_OK);
    ASSERT_EQ(file.Open((dir / "ok.avi").string().c_str(), {&video, &audio}), S_OK);
    EXPECT_EQ(file.WriteRepeat(0), E_FAIL); // nothing to repeat yet
    EXPECT_EQ(file.WriteChunk(2, data, 16, true), E_FAIL);
    EXPECT_EQ(file.GetStream(2), nullptr);
    EXPECT_EQ(file.GetStream(0)->Header().dwLength, 0u);
    EXPECT_EQ(file.Close(), S_OK);
}
