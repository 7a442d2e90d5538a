// CDShowEncoder driven as the export run drives it, in real graphs: the graph it builds and registers, the
// frame limit, the stream header it patches, its audio arithmetic and failures.
#include <algorithm>
#include <cstring>
#include <cwchar>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/dshow_encoder.h"
#include "encoders/fourcc.h"
#include "host/dshow_standins/file_writer_standin.h"
#include "host/dshow_standins/smart_tee_standin.h"
#include "tests/dshow/graph_fixture.h"
#include "tests/dshow/mux/avi_readers.h"

namespace {

using QVN::MakeFourCC;
using qvn_test::TempPath;

constexpr LONG kWidth = 64, kHeight = 48;

BITMAPINFOHEADER Format(DWORD code, WORD bits) {
    BITMAPINFOHEADER h{sizeof(BITMAPINFOHEADER), kWidth, kHeight, 1, bits, code, 0, 0, 0, 0, 0};
    h.biSizeImage = static_cast<DWORD>(kWidth * kHeight * bits / 8);
    return h;
}

// The running-object table's display names that belong to this process, and the graph's filter names.
std::vector<std::wstring> GraphEntries() {
    std::vector<std::wstring> names;
    IRunningObjectTable* table = nullptr;
    IEnumMoniker* monikers = nullptr;
    IBindCtx* context = nullptr;
    if (FAILED(GetRunningObjectTable(0, &table)) || FAILED(table->EnumRunning(&monikers)) ||
        FAILED(CreateBindCtx(0, &context))) {
        ADD_FAILURE() << "no running-object table";
        return names;
    }
    wchar_t pid[32];
    std::swprintf(pid, 32, L"pid %08x", static_cast<unsigned>(GetCurrentProcessId()));
    for (IMoniker* moniker = nullptr; monikers->Next(1, &moniker, nullptr) == S_OK; moniker->Release()) {
        LPOLESTR name = nullptr;
        if (SUCCEEDED(moniker->GetDisplayName(context, nullptr, &name)) && std::wcsstr(name, pid) != nullptr)
            names.push_back(name);
        CoTaskMemFree(name);
    }
    for (IUnknown* object : std::initializer_list<IUnknown*>{context, monikers, table})
        object->Release();
    return names;
}

std::set<std::wstring> FilterNames(IGraphBuilder* graph) {
    std::set<std::wstring> names;
    IEnumFilters* filters = nullptr;
    graph->EnumFilters(&filters);
    for (IBaseFilter* filter = nullptr; filters->Next(1, &filter, nullptr) == S_OK; filter->Release()) {
        FILTER_INFO info{};
        filter->QueryFilterInfo(&info);
        names.insert(info.achName);
        info.pGraph->Release();
    }
    filters->Release();
    return names;
}

class DShowEncoderTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        ASSERT_TRUE(SUCCEEDED(fileWriter_.Register(false)));
        ASSERT_TRUE(SUCCEEDED(smartTee_.Register(false)));
    }
    void ReleaseFilters() override {
        EXPECT_EQ(S_OK, fileWriter_.Revoke());
        EXPECT_EQ(S_OK, smartTee_.Revoke());
    }

    qvn_standins::FileWriterStandInRegistration fileWriter_;
    qvn_standins::SmartTeeStandInRegistration smartTee_;
};

TEST_F(DShowEncoderTest, InitialiseAnswersForEachSourceAndTarget) {
    const BITMAPINFOHEADER uyvy = Format(MakeFourCC("UYVY"), 16);
    const BITMAPINFOHEADER rgb = Format(BI_RGB, 32);
    const BITMAPINFOHEADER uyvy20 = Format(MakeFourCC("UYVY"), 20);
    const BITMAPINFOHEADER v210 = Format(MakeFourCC("v210"), 20);
    BITMAPINFOHEADER dv = Format(MakeFourCC("dvsd"), 0);
    dv.biWidth = 720;
    dv.biHeight = 480;
    struct Case {
        const char* what;
        const BITMAPINFOHEADER* source;
        const BITMAPINFOHEADER* target;
        std::uint32_t scale;
        std::uint32_t expected;
    } cases[] = {
        {"no source format", nullptr, &uyvy, 1001, static_cast<std::uint32_t>(E_POINTER)},
        {"no target format", &uyvy, nullptr, 1001, static_cast<std::uint32_t>(E_POINTER)},
        {"16-bit UYVY", &uyvy, &uyvy, 1001, 0},
        {"20-bit v210", &v210, &v210, 1001, 0},
        {"32-bit RGB", &rgb, &rgb, 1001, 0},
        {"UYVY that is not 16 bits", &uyvy20, &uyvy20, 1001, 99},
        // A scale of 0 makes a frame time of 0, which the video source refuses.
        {"a scale of 0", &uyvy, &uyvy, 0, 99},
        // Wine has no DV encoder and none stands in here.
        {"DV without a DV encoder", &rgb, &dv, 1001, 99},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.expected,
                  CDShowEncoder().Initialise(c.source, c.target, 1, 30000, c.scale, 4, 0, nullptr))
            << c.what;
}

TEST_F(DShowEncoderTest, GraphIsNamedAndRegisteredForItsLifetimeAndAMissingFolderFailsTheOpen) {
    const BITMAPINFOHEADER uyvy = Format(MakeFourCC("UYVY"), 16);
    const size_t before = GraphEntries().size();
    {
        CDShowEncoder encoder;
        ASSERT_EQ(0u, encoder.Initialise(&uyvy, &uyvy, 1, 25, 1, 4, uyvy.biSizeImage, nullptr));
        const std::set<std::wstring> expected = {
            L"Video Frame Source",    L"Audio Frame Source",   L"Smart Tee", L"AVI Mux", L"File writer",
            L"Null Renderer (Video)", L"Null Renderer (Audio)"};
        EXPECT_EQ(expected, FilterNames(encoder.State().Graph()));
        wchar_t name[64];
        std::swprintf(
            name, 64, L"!FilterGraph %08x pid %08x",
            static_cast<unsigned>(reinterpret_cast<DWORD_PTR>(encoder.State().Graph()) & 0xFFFFFFFF),
            static_cast<unsigned>(GetCurrentProcessId()));
        const std::vector<std::wstring> entries = GraphEntries();
        ASSERT_EQ(before + 1, entries.size());
        EXPECT_NE(entries.end(), std::find(entries.begin(), entries.end(), std::wstring(name)));
        BufferList buffers;
        EXPECT_EQ(0u, encoder.GetFreeBuffers(buffers));
        EXPECT_EQ(4u, buffers.size()) << "the buffer count Initialise was given";
        // A file in a missing folder fails the open, and the close after it.
        EXPECT_EQ(99u, encoder.Open(1, 0, 10, TempPath(L"qvn-no-such-folder\\out.avi").c_str()));
        EXPECT_EQ(99u, encoder.Close());
    }
    EXPECT_EQ(before, GraphEntries().size()) << "the entry is revoked with the encoder";
}

// Frames beyond the limit stop at the stream control; the header gets the exact rate, then the aspect record.
TEST_F(DShowEncoderTest, FinishWritesTheFrameLimitAndPatchesTheHeader) {
    const std::wstring path = TempPath(L"qvn-dshow-encoder.avi");
    const BITMAPINFOHEADER uyvy = Format(MakeFourCC("UYVY"), 16);
    constexpr int kLimit = 5, kPushed = 8;
    {
        CDShowEncoder encoder;
        ASSERT_EQ(0u, encoder.Initialise(&uyvy, &uyvy, 1, 30000, 1001, 6, uyvy.biSizeImage, nullptr));
        ASSERT_EQ(0u, encoder.SetAudioFormat(2, 48000, 16, WAVE_FORMAT_PCM));
        ASSERT_EQ(0u, encoder.Open(1, 1, kLimit, path.c_str()));
        BufferList free;
        encoder.GetFreeBuffers(free);
        std::vector<BYTE> audio(1601 * 4);
        for (int k = 0; k < kPushed; ++k) {
            while (free.empty()) {
                ASSERT_EQ(0u, encoder.ReclaimBuffers(free));
                Sleep(1);
            }
            auto* frame = static_cast<BYTE*>(free.back());
            free.pop_back();
            std::memset(frame, 0x40 + k, uyvy.biSizeImage);
            ASSERT_EQ(0u, encoder.WriteVideo(frame, uyvy.biSizeImage));
            std::memset(audio.data(), k, audio.size());
            ASSERT_EQ(0u, encoder.WriteAudio(audio.data(), static_cast<std::uint32_t>(audio.size())));
        }
        ASSERT_EQ(0u, encoder.Finish());
        ASSERT_EQ(0u, encoder.WritePixelAspect(10, 11));
    }
    const qvn_test::RiffFile file = qvn_test::WalkRiff(path);
    ASSERT_TRUE(file.valid) << file.problem;
    ASSERT_EQ(2u, file.streams.size());
    const qvn_test::RiffStream& video = file.streams[0];
    EXPECT_EQ(std::make_tuple(MakeFourCC("vids"), 30000u, 1001u, 0u),
              std::make_tuple(video.fccType, video.rate, video.scale, video.quality));
    const auto frames = file.Entries(0);
    ASSERT_EQ(static_cast<size_t>(kLimit), frames.size());
    for (int k = 0; k < kLimit; ++k)
        EXPECT_EQ(0x40 + k, frames[k]->payload.at(0)) << "frame " << k;
    // Audio blocks that start by the last frame's start time are written whole; later ones are not.
    size_t audioBytes = 0;
    for (const auto* entry : file.Entries(1))
        audioBytes += entry->size;
    EXPECT_EQ(static_cast<size_t>(kLimit) * 1601 * 4, audioBytes);
    std::ifstream in(path.c_str(), std::ios::binary);
    char tail[40] = {};
    ASSERT_TRUE(in.seekg(-40, std::ios::end).read(tail, sizeof(tail)));
    in.close();
    EXPECT_EQ(0, std::memcmp(tail, "RIFF", 4));
    EXPECT_EQ(0, std::memcmp(tail + 32, "\0\0\0\x0a\0\0\0\x0b", 8))
        << "numerator and denominator, big-endian";
    DeleteFileW(path.c_str());
}

TEST(DShowEncoderAudio, StepsTruncateForAChunkAndCarryRoundingFrameByFrame) {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    const BITMAPINFOHEADER uyvy = Format(MakeFourCC("UYVY"), 16);
    struct Case {
        DWORD sampleRate, rate, scale, chunk, chunkSamples;
        std::vector<std::uint32_t> firstSteps;
        std::uint32_t totalOf30;
    } cases[] = {
        // 1601.6 samples a frame: the chunk count truncates, the steps mix 1601 and 1602.
        {48000, 30000, 1001, 1, 1601, {1602, 1601, 1602, 1601, 1602}, 48048},
        // 1837.5: the half goes up first, then the carry brings the next one down.
        {44100, 24, 1, 1, 1837, {1838, 1837, 1838, 1837}, 55125},
        {48000, 25, 1, 25, 48000, {1920, 1920}, 57600},
    };
    for (const Case& c : cases) {
        CDShowEncoder encoder;
        ASSERT_EQ(0u, encoder.Initialise(&uyvy, &uyvy, 1, c.rate, c.scale, 2, uyvy.biSizeImage, nullptr));
        ASSERT_EQ(0u, encoder.SetAudioFormat(2, c.sampleRate, 16, WAVE_FORMAT_PCM));
        EXPECT_EQ(c.chunkSamples, encoder.AudioSamplesForFrames(c.chunk)) << c.sampleRate;
        std::uint32_t total = 0;
        for (size_t i = 0; i < 30; ++i) {
            const std::uint32_t step = encoder.AudioSamplesForNextFrame(1);
            if (i < c.firstSteps.size()) {
                EXPECT_EQ(c.firstSteps[i], step) << c.sampleRate << " step " << i;
            }
            total += step;
        }
        EXPECT_EQ(c.totalOf30, total) << c.sampleRate;
    }
    CoUninitialize();
}

} // namespace
