// CAviEncoder / CSimpleAviEncoder through the encoder interface (formats, sample arithmetic, the frame limit,
// back-pressure, the pixel-aspect record and failure results), and its writer thread (ordering per stream,
// held items and shutdown).
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <functional>
#include <numeric>
#include <random>
#include <thread>

#include "encoders/active_avi_file.h"
#include "encoders/aligned_buffer_pool.h"
#include "encoders/simple_avi_encoder.h"
#include "encoders/streaming_copy.h"
#include "platform/sleep.h"
#include "test_files.h"

using namespace avitest;

namespace {

const BITMAPINFOHEADER kBmi = Video("UYVY", 16, 16, 512).bmiHeader;

struct Sink : IFrameSink {
    HRESULT QueryInterface(const GUID&, void**) override { return E_NOTIMPL; }
    ULONG AddRef() override { return 1; }
    ULONG Release() override { return 1; }
    HRESULT SampleCB(double, void*) override { return S_OK; }
    HRESULT BufferCB(double time, BYTE* data, LONG size) override {
        EXPECT_EQ(time, 0.0);
        last = data;
        bytes = size;
        ++calls;
        return S_OK;
    }
    const void* last = nullptr;
    LONG bytes = 0;
    int calls = 0;
};

// Turns every frame into nothing, as a failed compression would.
class EmptyEncoder : public CSimpleAviEncoder {
public:
    EmptyEncoder() : CSimpleAviEncoder(Fcc("UYVY")) {}
    std::uint32_t EncodeFrame(const void*, std::uint32_t, std::uint8_t*, std::uint32_t) override { return 0; }
};

// Takes over frame 3: keeps the payload and queues it itself, from another thread, 150 ms later.
class LateEncoder : public CSimpleAviEncoder {
public:
    LateEncoder() : CSimpleAviEncoder(Fcc("UYVY")) {}
    ~LateEncoder() override {
        if (late_.joinable())
            late_.join();
    }
    std::uint32_t EncodeFrame(const void* source, std::uint32_t size, std::uint8_t* destination,
                              std::uint32_t destinationSize) override {
        ++encoded;
        return CSimpleAviEncoder::EncodeFrame(source, size, destination, destinationSize);
    }
    std::uint32_t ReuseFrame(std::uint32_t sequence, const void* source, std::uint32_t size,
                             std::uint8_t* destination, std::uint32_t) override {
        if (sequence != 3)
            return 0;
        std::memcpy(destination, source, size);
        late_ = std::thread([=, this] {
            QVN::SleepMs(150);
            QVN::CAutoLock<QVN::CW32CriticalSection> hold(lock_);
            EncodeComplete(sequence, source, size, destination, size);
            delivered = QVN::MonotonicMs();
        });
        return 1;
    }
    std::atomic<int> encoded{0};
    std::atomic<std::uint64_t> delivered{0};

private:
    std::thread late_;
};

std::size_t ThreadsOfProcess() {
#ifdef __linux__
    std::size_t n = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/task"))
        ++n;
    return n;
#else
    return 0;
#endif
}

void WaitFor(const std::function<bool()>& condition) {
    const std::uint64_t start = QVN::MonotonicMs();
    while (!condition()) {
        ASSERT_LT(QVN::MonotonicMs() - start, 20000u) << "condition never became true";
        QVN::SleepMs(1);
    }
}

// Payloads carry their stream and sequence number so the file shows the order they were written in.
WriteFrame* Item(AlignedBufferPool& pool, std::uint32_t stream, std::uint32_t sequence) {
    const std::uint32_t size = stream == 0 ? 512 : 64;
    auto* payload = static_cast<std::uint32_t*>(pool.Allocate(size));
    payload[0] = stream;
    payload[1] = sequence;
    return new WriteFrame{stream, sequence, payload, size, &pool};
}

// (stream, sequence) of every payload chunk in the movi list, in file order.
std::vector<std::pair<std::uint32_t, std::uint32_t>> WrittenOrder(const std::filesystem::path& path) {
    const Bytes b = ReadAll(path);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> order;
    for (const Chunk& c : MoviChunks(b))
        if (c.id == "00db" || c.id == "01wb")
            order.emplace_back(U32(b, c.position + 8), U32(b, c.position + 12));
    return order;
}

} // namespace

TEST(AviEncoder, AudioFormatsAreWrittenAsThePlaybackSoftwareExpects) {
    CSimpleAviEncoder encoder(Fcc("v210"));
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
    ASSERT_EQ(encoder.SetAudioFormat(6, 48000, 24, -2), 0u);
    unsigned char b[40];
    std::memcpy(b, &encoder.AudioFormat(), 40);
    const unsigned char six[40] = {0xFE, 0xFF, 6,    0, 0x80, 0xBB, 0,    0,    0x00, 0x2F,
                                   0x0D, 0,    18,   0, 24,   0,    22,   0,    0,    0,
                                   0x3F, 0,    0,    0, 0xFE, 0xFF, 0xFF, 0xFF, 0,    0,
                                   0x10, 0,    0x80, 0, 0,    0xAA, 0,    0x38, 0x9B, 0x71};
    EXPECT_EQ(std::memcmp(b, six, 40), 0);
    EXPECT_EQ(encoder.AudioFormat().Format.nAvgBytesPerSec, 864000u);
    // The sub-format is ignored below 6 channels. Only Initialise clears the format area: over the 6-channel
    // format, what a plain one does not set keeps its value; after Initialise it is zero.
    const unsigned char two[16] = {1, 0, 2, 0, 0x44, 0xAC, 0, 0, 0x10, 0xB1, 2, 0, 4, 0, 16, 0};
    for (const bool initialised : {false, true}) {
        if (initialised) {
            ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
        }
        ASSERT_EQ(encoder.SetAudioFormat(2, 44100, 16, 3), 0u);
        std::memcpy(b, &encoder.AudioFormat(), 40);
        EXPECT_EQ(std::memcmp(b, two, 16), 0);
        for (int i = 16; i < 40; ++i)
            EXPECT_EQ(b[i], initialised ? 0 : six[i]) << i;
    }
    ASSERT_EQ(encoder.SetAudioFormat(1, 22050, 8, 0), 0u);
    EXPECT_EQ(encoder.AudioFormat().Format.nBlockAlign, 1u);
    EXPECT_EQ(encoder.AudioFormat().Format.nAvgBytesPerSec, 22050u);
}

TEST(AviEncoder, AudioSampleCountsAddUpExactly) {
    CSimpleAviEncoder encoder(Fcc("v210"));
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 30000, 1001, 0, 0, nullptr), 0u);
    EXPECT_EQ(encoder.VideoDescriptor().AvgTimePerFrame, 333666);
    encoder.SetAudioFormat(2, 48000, 16, 0);
    EXPECT_EQ(encoder.AudioSamplesForFrames(1), 1602u);
    EXPECT_EQ(encoder.AudioSamplesForFrames(5), 8008u);
    EXPECT_EQ(encoder.AudioSamplesForFrames(30000), 48048000u); // no 32-bit overflow on the way
    // Call by call, where the rounding of a half sample and the carry decide: 44100 Hz at 24 fps is 1837.5
    // samples a frame, rounded up once and then carried down. No frame counts: one frame a call.
    struct Steps {
        std::uint32_t samplesPerSecond, rate, scale;
        std::vector<std::uint32_t> frames, samples;
    };
    const Steps steps[] = {
        {48000, 30000, 1001, {}, {1602, 1601, 1602, 1601, 1602}},
        {44100, 24, 1, {}, {1838, 1837, 1838, 1837, 1838, 1837}},
        {44100, 24, 1, {5, 5, 3, 1}, {9188, 9187, 5513, 1837}},
        // 735.735 a frame, each call's share rounded to a hundredth before the carry: the 13th call shows it.
        {44100, 60000, 1001, {}, {736, 735, 736, 736, 736, 735, 736, 736, 736, 735, 736, 736, 736}},
        {44100, 30000, 1001, {}, {1471, 1472, 1471, 1472}},
    };
    for (const Steps& st : steps) {
        CSimpleAviEncoder fresh(Fcc("v210")); // no carry from an earlier sequence
        ASSERT_EQ(fresh.Initialise(nullptr, &kBmi, 0, st.rate, st.scale, 0, 0, nullptr), 0u);
        fresh.SetAudioFormat(2, st.samplesPerSecond, 16, 0);
        std::vector<std::uint32_t> got;
        for (std::size_t i = 0; i < st.samples.size(); ++i)
            got.push_back(fresh.AudioSamplesForNextFrame(st.frames.empty() ? 1 : st.frames[i]));
        EXPECT_EQ(got, st.samples) << st.samplesPerSecond << " Hz at " << st.rate << "/" << st.scale;
    }
    // 44.1 kHz at 29.97: 1471.47 samples per frame; the running sum stays within half a sample.
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 30000, 1001, 0, 0, nullptr), 0u);
    encoder.SetAudioFormat(2, 44100, 16, 0);
    std::int64_t sum = 0;
    for (std::int64_t frame = 1; frame <= 3000; ++frame) {
        sum += encoder.AudioSamplesForNextFrame(1);
        const double exact = 44100.0 * 1001.0 * static_cast<double>(frame) / 30000.0;
        ASSERT_LE(std::abs(static_cast<double>(sum) - exact), 0.5) << frame;
    }
    // A scale of 0 counts as 1 for audio but gives a zero frame duration, as the host expects.
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 0, 0, 0, nullptr), 0u);
    encoder.SetAudioFormat(2, 48000, 16, 0);
    EXPECT_EQ(encoder.VideoDescriptor().AvgTimePerFrame, 0);
    EXPECT_EQ(encoder.AudioSamplesForFrames(1), 1920u);
}

TEST(AlignedBufferPool, ClassesAlignmentAndCache) {
    const std::pair<std::uint32_t, std::uint32_t> classes[] = {
        {1, 8192}, {4080, 8192}, {4081, 12288}, {5529600, 5529600 + 8192}};
    for (const auto& [request, size] : classes)
        EXPECT_EQ(AlignedBufferPool::ClassSize(request), size) << request;
    AlignedBufferPool pool;
    std::vector<void*> held;
    for (int i = 0; i < 20; ++i) {
        held.push_back(pool.Allocate(1));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(held.back()) % 4096, 0u);
    }
    void* big = pool.Allocate(4081);
    std::memset(big, 0x5A, 4081); // the whole request fits behind the aligned pointer
    pool.Release(big);
    for (void* p : held)
        pool.Release(p);
    EXPECT_EQ(pool.CachedBlocks(8192), 16u); // the cache keeps 16, frees the rest
    EXPECT_EQ(pool.CachedBlocks(12288), 1u);
    void* again = pool.Allocate(2000);
    EXPECT_EQ(pool.CachedBlocks(8192), 15u);
    pool.Release(again);
}

TEST(AviEncoder, FrameLimitDropsLaterVideoAndAudio) {
    TempDir dir("limit");
    const auto path = dir / "limit.avi";
    CSimpleAviEncoder encoder(Fcc("UYVY"));
    Sink sink;
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 4, 512, &sink), 0u);
    BufferList buffers;
    encoder.GetFreeBuffers(buffers);
    ASSERT_EQ(buffers.size(), 4u);
    encoder.SetAudioFormat(2, 48000, 16, 0);
    ASSERT_EQ(encoder.Open(1, 1, 3, path.wstring().c_str()), 0u);
    std::vector<unsigned char> samples(4 * 1920, 7);
    for (int i = 0; i < 3; ++i) {
        std::memset(buffers[i], i + 1, 512);
        EXPECT_EQ(encoder.WriteVideo(buffers[i], 512), 0u);
        EXPECT_EQ(encoder.WriteAudio(samples.data(), static_cast<std::uint32_t>(samples.size())), 0u);
    }
    EXPECT_EQ(sink.calls, 3);
    EXPECT_EQ(sink.last, buffers[2]);
    EXPECT_EQ(sink.bytes, 512);
    EXPECT_EQ(encoder.WriteVideo(buffers[3], 512), 0u); // the fourth is dropped silently
    EXPECT_EQ(encoder.WriteAudio(samples.data(), static_cast<std::uint32_t>(samples.size())), 0u);
    EXPECT_EQ(sink.calls, 3);
    BufferList returned;
    encoder.ReclaimBuffers(returned);
    EXPECT_EQ(returned, BufferList(buffers.begin(), buffers.begin() + 3));
    encoder.ReclaimBuffers(returned);
    EXPECT_TRUE(returned.empty());
    EXPECT_EQ(encoder.Finish(), 0u); // waits for frame 3 on disk, then closes
    EXPECT_FALSE(encoder.File().IsOpen());
    const Bytes b = ReadAll(path);
    EXPECT_EQ(U32(b, 48), 3u);
    EXPECT_EQ(Tag(b, 112), "UYVY");                 // handler carries the codec
    EXPECT_EQ(Tag(b, 172 + 16), "UYVY");            // and so does the bitmap
    EXPECT_EQ(U32(b, kAudioStrh + 40), 3u * 1920u); // audio after the last frame was dropped
    // The encoder opens again with fresh counters; once the sink is released it hears of no frame.
    const auto second = dir / "second.avi";
    ASSERT_EQ(encoder.Open(1, 0, 0xFFFFFFFFu, second.wstring().c_str()), 0u);
    EXPECT_EQ(encoder.WriteVideo(buffers[0], 512), 0u);
    EXPECT_EQ(sink.calls, 4);
    EXPECT_EQ(encoder.ReleaseSink(), 0u);
    EXPECT_EQ(encoder.WriteVideo(buffers[1], 512), 0u);
    EXPECT_EQ(sink.calls, 4);
    EXPECT_EQ(encoder.Finish(), 0u); // no limit: closes at once, after the queued frames
    EXPECT_EQ(U32(ReadAll(second), 48), 2u);
}

TEST(AviEncoder, FinishWaitsForAFrameTheSubclassDeliversLate) {
    TempDir dir("late");
    const auto path = dir / "late.avi";
    LateEncoder encoder;
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 3, 512, nullptr), 0u);
    BufferList buffers;
    encoder.GetFreeBuffers(buffers);
    ASSERT_EQ(encoder.Open(1, 0, 3, path.wstring().c_str()), 0u);
    for (int i = 0; i < 3; ++i) {
        std::memset(buffers[i], 'a' + i, 512);
        EXPECT_EQ(encoder.WriteVideo(buffers[i], 512), 0u) << "a frame taken over is not a failure";
    }
    EXPECT_EQ(encoder.encoded.load(), 2) << "the frame taken over is not encoded";
    BufferList returned;
    encoder.ReclaimBuffers(returned);
    EXPECT_EQ(returned, BufferList(buffers.begin(), buffers.begin() + 2)) << "nor handed back yet";
    EXPECT_EQ(encoder.Finish(), 0u);
    const std::uint64_t finished = QVN::MonotonicMs();
    ASSERT_NE(encoder.delivered.load(), 0u) << "Finish returned before the last frame was delivered";
    EXPECT_GE(finished, encoder.delivered.load());
    encoder.ReclaimBuffers(returned);
    EXPECT_EQ(returned, BufferList{buffers[2]});
    const Bytes b = ReadAll(path);
    EXPECT_EQ(U32(b, 48), 3u);
    std::string order;
    for (const auto& k : MoviChunks(b))
        if (k.id == "00db")
            order += static_cast<char>(b[k.position + 8]);
    EXPECT_EQ(order, "abc");
}

TEST(AviEncoder, PixelAspectRecordIsAppendedAfterClose) {
    TempDir dir("par");
    const auto path = dir / "par.avi";
    CSimpleAviEncoder encoder(Fcc("UYVY"));
    ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
    ASSERT_EQ(encoder.Open(1, 0, 0x7FFFFFFF, path.wstring().c_str()), 0u);
    ASSERT_EQ(encoder.Close(), 0u);
    const std::uintmax_t closed = std::filesystem::file_size(path);
    ASSERT_EQ(encoder.WritePixelAspect(-10, 11), 0u);
    const Bytes b = ReadAll(path);
    ASSERT_EQ(b.size(), closed + 40);
    const unsigned char record[40] = {
        'R', 'I', 'F', 'F', 32, 0, 0, 0,  'A', 'V', 'I', 'X', 'P',  'r',  'm',  'A',  20, 0, 0, 0,
        'P', 'A', 'R', 'f', 0,  0, 0, 20, 0,   1,   0,   0,   0xFF, 0xFF, 0xFF, 0xF6, 0,  0, 0, 11};
    EXPECT_EQ(std::memcmp(b.data() + closed, record, 40), 0);
    // To a reader it is one more RIFF form after the file, and no problem.
    const Inspected inspected = Inspect({path.string()});
    EXPECT_EQ(inspected.code, 0) << inspected.out;
    EXPECT_NE(inspected.out.find("form=\"AVIX\""), std::string::npos);
    EXPECT_NE(inspected.out.find("chunk id=\"PrmA\""), std::string::npos);
    std::filesystem::remove_all(dir.path());
    EXPECT_EQ(encoder.WritePixelAspect(10, 11), 99u); // its folder is gone
}

TEST(AviEncoder, FailuresLeaveNoThreadBehind) {
    TempDir dir("fail");
    std::thread([] {
    }).join(); // runtimes that start a helper thread with the first thread (TSan) have done so
    const std::size_t threadsBefore = ThreadsOfProcess();
    {
        CSimpleAviEncoder encoder(Fcc("UYVY"));
        ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
        const auto bad = dir / "missing" / "x.avi";
        EXPECT_EQ(encoder.Open(1, 0, 0x7FFFFFFF, bad.wstring().c_str()), 99u);
        EXPECT_EQ(encoder.File().ThreadCount(), 0u);
        EXPECT_EQ(ThreadsOfProcess(), threadsBefore);
        unsigned char frame[512] = {};
        EXPECT_EQ(encoder.WriteVideo(frame, 512), 99u); // nothing is open to take it
        EXPECT_EQ(encoder.Close(), 0u);
        EXPECT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 0, 1, 1, 512, nullptr), 99u); // a rate of 0
    }
    {
        EmptyEncoder encoder;
        ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
        BufferList buffers;
        encoder.GetFreeBuffers(buffers);
        const auto path = dir / "empty.avi";
        ASSERT_EQ(encoder.Open(1, 0, 0x7FFFFFFF, path.wstring().c_str()), 0u);
        EXPECT_EQ(encoder.WriteVideo(buffers[0], 512), 99u);
        BufferList returned;
        encoder.ReclaimBuffers(returned);
        EXPECT_EQ(returned, buffers); // the producer gets its buffer back
        EXPECT_EQ(encoder.Close(), 0u);
        EXPECT_EQ(U32(ReadAll(path), 48), 0u);
    }
    {
        // Destroyed while open: the writer thread is stopped and the file closed.
        CSimpleAviEncoder encoder(Fcc("UYVY"));
        ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
        ASSERT_EQ(encoder.Open(1, 0, 0x7FFFFFFF, (dir / "open.avi").wstring().c_str()), 0u);
    }
    EXPECT_EQ(ThreadsOfProcess(), threadsBefore);
}

TEST(AviEncoder, FullQueueMakesTheProducerWait) {
    for (const bool audio : {false, true}) {
        SCOPED_TRACE(audio ? "audio" : "video");
        TempDir dir("full");
        CSimpleAviEncoder encoder(Fcc("UYVY"));
        ASSERT_EQ(encoder.Initialise(nullptr, &kBmi, 0, 25, 1, 1, 512, nullptr), 0u);
        encoder.SetAudioFormat(2, 48000, 16, 1);
        ASSERT_EQ(encoder.Open(1, 1, 0x7FFFFFFF, (dir / "full.avi").wstring().c_str()), 0u);
        BufferList buffers;
        encoder.GetFreeBuffers(buffers);
        constexpr int kItems = 60;
        std::atomic<int> done{0};
#ifndef _WIN32
        testing::internal::CaptureStderr(); // the debugger channel is standard error here
#endif
        encoder.File().FileLock().Lock(); // the writer stalls on its first item
        std::thread producer([&] {
            for (int i = 0; i < kItems; ++i) {
                if (audio)
                    encoder.WriteAudio(static_cast<const std::uint8_t*>(buffers[0]), 512);
                else
                    encoder.WriteVideo(buffers[0], 512);
                done.fetch_add(1);
            }
        });
        // One item in the writer's hands, 51 queued: the 53rd cannot go anywhere.
        const std::uint64_t start = QVN::MonotonicMs();
        while (done.load() < 52 && QVN::MonotonicMs() - start < 10000)
            QVN::SleepMs(1);
        QVN::SleepMs(60);
        EXPECT_EQ(done.load(), 52);
        EXPECT_EQ(encoder.File().Count(), 51u);
        encoder.File().FileLock().Unlock();
        producer.join();
#ifndef _WIN32
        const std::string messages = testing::internal::GetCapturedStderr();
        EXPECT_NE(messages.find(audio ? "queue full in CAviEncoder::WriteAudio\n"
                                      : "queue full in CAviEncoder::EncodeComplete\n"),
                  std::string::npos);
#endif
        EXPECT_EQ(encoder.Close(), 0u);
        const Bytes b = ReadAll(dir / "full.avi");
        EXPECT_EQ(U32(b, 48), audio ? 0u : static_cast<std::uint32_t>(kItems));
        EXPECT_EQ(U32(b, kAudioStrh + 40), audio ? kItems * 512u / 4 : 0u);
    }
}

TEST(StreamingCopy, CopiesEveryByteAtAnyAlignmentAndLength) {
    std::vector<unsigned char> source(600 * 1024 + 200), destination(source.size() + 128);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = static_cast<unsigned char>(i * 131 + (i >> 9));
    for (std::size_t length :
         {std::size_t{0}, std::size_t{1}, std::size_t{4095}, std::size_t{256 * 1024 - 1},
          std::size_t{256 * 1024}, std::size_t{300 * 1024 + 63}, std::size_t{600 * 1024 + 7}}) {
        for (std::size_t shift : {0, 1, 17, 64}) {
            std::fill(destination.begin(), destination.end(), 0xEE);
            QVN::StreamingCopy(destination.data() + shift, source.data() + (shift * 3) % 64, length);
            ASSERT_EQ(std::memcmp(destination.data() + shift, source.data() + (shift * 3) % 64, length), 0)
                << length << " " << shift;
            for (std::size_t i = 0; i < shift; ++i)
                ASSERT_EQ(destination[i], 0xEE);
            ASSERT_EQ(destination[shift + length], 0xEE) << length << " " << shift; // nothing past the end
        }
    }
}

TEST(ActiveAviFile, ItemsAheadOfTheirTurnWaitForTheMissingOne) {
    TempDir dir("order");
    AlignedBufferPool pool;
    VideoStreamInfo video(Video("UYVY", 16, 16, 512));
    CActiveAviFile file;
    ASSERT_EQ(file.Open((dir / "order.avi").string().c_str(), {&video}), S_OK);
    ASSERT_TRUE(file.StartWriter());
    ASSERT_TRUE(file.Start(5)); // already running: no more threads
    EXPECT_EQ(file.ThreadCount(), 1u);
    ASSERT_TRUE(file.Push(Item(pool, 0, 2)));
    ASSERT_TRUE(file.Push(Item(pool, 0, 3)));
    WaitFor([&] { return file.HeldCount() == 2; });
    EXPECT_EQ(file.LastWritten(0), 0u);
    ASSERT_TRUE(file.Push(Item(pool, 0, 1)));
    WaitFor([&] { return file.LastWritten(0) == 3; });
    EXPECT_EQ(file.HeldCount(), 0u);
    // 5 arrives without 4: held, then dropped at shutdown with the file closed on what was written.
    ASSERT_TRUE(file.Push(Item(pool, 0, 5)));
    WaitFor([&] { return file.HeldCount() == 1; });
    EXPECT_EQ(file.Shutdown(), S_OK);
    EXPECT_FALSE(file.IsOpen());
    EXPECT_EQ(file.ThreadCount(), 0u);
    EXPECT_EQ(file.LastWritten(0), 0u);
    const auto order = WrittenOrder(dir / "order.avi");
    const std::vector<std::pair<std::uint32_t, std::uint32_t>> expected = {{0, 1}, {0, 2}, {0, 3}};
    EXPECT_EQ(order, expected);
    // Every payload went back to the pool, the dropped one included: at most three were out at once
    // (2, 3 and 1), and the fourth reused one of them.
    EXPECT_EQ(pool.CachedBlocks(AlignedBufferPool::ClassSize(512)), 3u);
}

TEST(ActiveAviFile, StreamsInterleaveAndEachKeepsItsOrder) {
    TempDir dir("interleave");
    AlignedBufferPool pool;
    VideoStreamInfo video(Video("UYVY", 16, 16, 512));
    const WAVEFORMATEX pcm{WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
    AudioStreamInfo audio(&pcm);
    CActiveAviFile file;
    constexpr std::uint32_t kVideo = 300, kAudio = 400;
    for (int round = 0; round < 2; ++round) { // sequence numbers start again after a shutdown
        const auto path = dir / ("interleave" + std::to_string(round) + ".avi");
        ASSERT_EQ(file.Open(path.string().c_str(), {&video, &audio}), S_OK);
        ASSERT_TRUE(file.Start(1));
        auto produce = [&](std::uint32_t stream, std::uint32_t count, unsigned seed) {
            // Shuffled in windows of 8, as frames from several render threads arrive.
            std::vector<std::uint32_t> sequence(count);
            std::iota(sequence.begin(), sequence.end(), 1u);
            std::mt19937 random(seed);
            for (std::uint32_t at = 0; at < count; at += 8)
                std::shuffle(sequence.begin() + at, sequence.begin() + std::min(count, at + 8), random);
            for (std::uint32_t n : sequence) {
                WriteFrame* item = Item(pool, stream, n);
                while (!file.Push(item))
                    QVN::SleepMs(1);
            }
        };
        std::thread videoProducer(produce, 0, kVideo, 1 + round);
        std::thread audioProducer(produce, 1, kAudio, 7 + round);
        videoProducer.join();
        audioProducer.join();
        // The stop marker lands behind everything queued: all of it reaches the file.
        EXPECT_EQ(file.Shutdown(), S_OK);
        const auto order = WrittenOrder(path);
        ASSERT_EQ(order.size(), kVideo + kAudio);
        std::uint32_t next[2] = {1, 1};
        for (const auto& [stream, sequence] : order) {
            ASSERT_LT(stream, 2u);
            EXPECT_EQ(sequence, next[stream]++) << "stream " << stream;
        }
        const Bytes b = ReadAll(path);
        EXPECT_EQ(U32(b, 48), kVideo);
    }
}
