// CQVNAVIWriter in real graphs: our push sources (or a scripted one) into it, into the File Writer (the
// stand-in under Wine). Files are read back by AVIFile and the AVI splitter, and stay in mux-out/ with what
// they must decode to, for read_back.sh (ffprobe, ffmpeg, qvnhost inspect).
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/audio_source.h"
#include "dshow/avi_input_pin.h"
#include "dshow/qvn_avi_writer.h"
#include "dshow/video_source.h"
#include "host/dshow_standins/file_writer_standin.h"
#include "tests/dshow/base/graph_test_filters.h"
#include "tests/dshow/mux/avi_readers.h"
#include "tests/dshow/push_helpers.h"

namespace {

using qvn_test::FirstPin;
using qvn_test::Query;
using qvn_test::UyvyType;

constexpr REFERENCE_TIME kFrame = 333667; // 29.97 frames per second

// Frame k: its number in the first four bytes, then a pattern that differs from frame to frame.
std::vector<BYTE> Frame(int k, DWORD bytes) {
    std::vector<BYTE> frame(bytes);
    for (DWORD i = 0; i < bytes; ++i)
        frame[i] = static_cast<BYTE>(i < 4 ? static_cast<unsigned>(k) >> (8 * i) : k * 13 + i * 7);
    return frame;
}

// Sample frame f, channel c (in the producer's order), appended as bytes-wide little-endian.
void PutSample(std::vector<BYTE>& out, long long f, int c, int bytes) {
    const auto v = static_cast<std::uint32_t>(f * 97 + c * 5003 + (f >> 3) * 1237);
    for (int b = 0; b < bytes; ++b)
        out.push_back(static_cast<BYTE>(v >> (8 * b)));
}

std::wstring OutDir() {
    wchar_t cwd[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, cwd);
    const std::wstring dir = std::wstring(cwd) + L"\\mux-out";
    CreateDirectoryW(dir.c_str(), nullptr);
    return dir;
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
    FILE* file = _wfopen(path.c_str(), L"wb");
    ASSERT_NE(nullptr, file);
    EXPECT_EQ(bytes.size(), fwrite(bytes.data(), 1, bytes.size(), file));
    fclose(file);
}

// AM_STREAM_INFO's fields, comparable and printable (its padding is not).
std::tuple<REFERENCE_TIME, REFERENCE_TIME, DWORD, DWORD, DWORD> Fields(const AM_STREAM_INFO& i) {
    return {i.tStart, i.tStop, i.dwStartCookie, i.dwStopCookie, i.dwFlags};
}

struct Event {
    long code;
    LONG_PTR p1, p2;
};

// A file's streams: video frames of width x height at rate / scale, and audio in blocks.
struct FileCase {
    const char* name;
    LONG width, height;
    REFERENCE_TIME perFrame;
    DWORD rate, scale;
    int frames;    // 0: no video
    WORD channels; // 0: no audio
    DWORD sampleRate;
    WORD bits;
    int blockFrames, blocks;
};

// The numbered source's pin: frame k starts at starts[k], lasts one frame and carries Frame(k).
class CScriptedStream : public qvn_test::CNumberedStream {
public:
    CScriptedStream(HRESULT* phr, CSource* filter, std::vector<REFERENCE_TIME> at)
        : CNumberedStream(phr, filter), starts(std::move(at)) {
        type = UyvyType(64, 8, kFrame);
        limit = static_cast<LONG>(starts.size());
        sampleBytes = 64 * 8 * 2;
        for (int k = 0; k < limit; ++k)
            frames.push_back(Frame(k, static_cast<DWORD>(sampleBytes)));
    }
    HRESULT FillBuffer(IMediaSample* sample) override {
        const LONG k = next;
        const HRESULT hr = CNumberedStream::FillBuffer(sample);
        if (hr != S_OK)
            return hr;
        REFERENCE_TIME start = starts[static_cast<size_t>(k)], stop = start + kFrame;
        sample->SetTime(&start, &stop);
        sample->SetSyncPoint(TRUE);
        sample->SetDiscontinuity(FALSE);
        return hr;
    }
    std::vector<REFERENCE_TIME> starts;
};

class CScriptedSource : public CSource {
public:
    CScriptedSource(HRESULT* phr, std::vector<REFERENCE_TIME> starts)
        : CSource(L"scripted source", nullptr, GUID_NULL, phr),
          stream(new CScriptedStream(phr, this, std::move(starts))) {}
    CScriptedStream* stream;
};

// The multiplexer's output connected to the File Writer, in a graph without a clock.
class MuxTest : public qvn_test::OwningGraphTest {
protected:
    void SetUp() override {
        OwningGraphTest::SetUp();
        if (HasFatalFailure())
            return;
        ASSERT_TRUE(SUCCEEDED(standIn_.Register(false)));
        HRESULT hr = E_FAIL;
        muxFilter =
            Own(mux = static_cast<CQVNAVIWriter*>(CQVNAVIWriter::CreateInstance(nullptr, &hr)), L"AVI Mux");
        ASSERT_EQ(S_OK, hr);
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&fileWriter)));
        Own(fileWriter, L"File writer")->Release();
        ASSERT_NE(nullptr, sink = Query<IFileSinkFilter2>(fileWriter, IID_IFileSinkFilter2));
        ASSERT_NE(nullptr, writerState = Query<IQVNAVIWriter>(muxFilter, IID_IQVNAVIWriter));
        IMediaFilter* clock = Query<IMediaFilter>(graph, IID_IMediaFilter);
        ASSERT_EQ(S_OK, clock->SetSyncSource(nullptr));
        clock->Release();
        IPin* out = FirstPin(muxFilter, PINDIR_OUTPUT);
        IPin* in = FirstPin(fileWriter, PINDIR_INPUT);
        ASSERT_TRUE(out != nullptr && in != nullptr);
        EXPECT_EQ(S_OK, graph->ConnectDirect(out, in, nullptr));
        out->Release();
        in->Release();
    }

    void ReleaseFilters() override {
        for (IUnknown* object : std::initializer_list<IUnknown*>{sink, writerState})
            if (object != nullptr)
                object->Release();
        OwningGraphTest::ReleaseFilters();
        EXPECT_EQ(S_OK, standIn_.Revoke());
    }

    // A new source in the graph, its pin connected to the multiplexer's spare input pin (always the last).
    template <class Source> Source* AddSource(Source* source, const wchar_t* name, IPin* pin) {
        Own(source, name);
        const int spare = mux->InputPinCount() - 1;
        EXPECT_FALSE(mux->InputPin(spare)->IsConnected());
        EXPECT_EQ(S_OK, graph->ConnectDirect(pin, mux->InputPin(spare), nullptr));
        return source;
    }
    void AddVideo(LONG width, LONG height, REFERENCE_TIME perFrame) {
        HRESULT hr = S_OK;
        auto* source = new CVideoSource(&hr);
        const CMediaType type = UyvyType(width, height, perFrame);
        EXPECT_EQ(S_OK, source->Pin()->SetStreamMediaType(&type));
        video = AddSource(source, L"Video Frame Source", source->Pin());
    }
    void AddAudio(WORD channels, DWORD rate, WORD bits) {
        HRESULT hr = S_OK;
        auto* source = new CAudioSource(&hr);
        EXPECT_EQ(S_OK, source->Pin()->SetAudioFormat(channels, rate, bits, WAVE_FORMAT_PCM));
        audio = AddSource(source, L"Audio Frame Source", source->Pin());
    }

    void SetFile(const std::wstring& path) {
        DeleteFileW(path.c_str());
        ASSERT_EQ(S_OK, sink->SetFileName(path.c_str(), nullptr));
        ASSERT_EQ(S_OK, sink->SetMode(AM_FILE_OVERWRITE));
    }

    // Every event until one of code arrives (included) or the time-out.
    std::vector<Event> EventsUntil(long code, DWORD ms = 10000) {
        std::vector<Event> seen;
        for (const DWORD deadline = GetTickCount() + ms; static_cast<LONG>(deadline - GetTickCount()) > 0;) {
            Event e{};
            if (events->GetEvent(&e.code, &e.p1, &e.p2, 20) != S_OK)
                continue;
            events->FreeEventParams(e.code, e.p1, e.p2);
            seen.push_back(e);
            if (e.code == code)
                break;
        }
        return seen;
    }
    static bool Has(const std::vector<Event>& seen, long code) {
        return std::any_of(seen.begin(), seen.end(), [code](const Event& e) { return e.code == code; });
    }

    QVNAVIWriterState State() {
        QVNAVIWriterState state{};
        EXPECT_EQ(S_OK, writerState->GetState(&state));
        return state;
    }
    QVNAVIStreamState StreamState(ULONG stream) {
        QVNAVIStreamState state{};
        EXPECT_EQ(S_OK, writerState->GetStreamState(stream, &state));
        return state;
    }
    std::wstring FileName() {
        LPOLESTR name = nullptr;
        EXPECT_EQ(S_OK, writerState->GetFileName(&name));
        const std::wstring result = name != nullptr ? name : L"<none>";
        CoTaskMemFree(name);
        return result;
    }
    // The format block input pin carries: a video type's BITMAPINFOHEADER, an audio type's whole structure.
    std::vector<BYTE> ConnectionFormat(int pin) {
        AM_MEDIA_TYPE mt{};
        EXPECT_EQ(S_OK, mux->InputPin(pin)->ConnectionMediaType(&mt));
        const BYTE* at = mt.pbFormat;
        size_t size = reinterpret_cast<const WAVEFORMATEX*>(at)->wFormatTag == WAVE_FORMAT_EXTENSIBLE
                          ? sizeof(WAVEFORMATEXTENSIBLE)
                          : sizeof(WAVEFORMATEX);
        if (IsEqualGUID(mt.majortype, MEDIATYPE_Video)) {
            at += offsetof(VIDEOINFOHEADER, bmiHeader);
            size = sizeof(BITMAPINFOHEADER);
        }
        std::vector<BYTE> bytes(at, at + size);
        FreeMediaType(mt);
        return bytes;
    }

    // mux-out/NAME.avi against the writer's counts, AVIFile and the splitter; then the files for
    // read_back.sh. order: frame numbers by index entry (a repeat names its frame again); sound: in the
    // file's order.
    void ReadBack(const std::string& name, const FileCase& e, const std::vector<int>& order,
                  const std::vector<BYTE>& sound) {
        const std::wstring base = OutDir() + L"\\" + std::wstring(name.begin(), name.end()),
                           path = base + L".avi";
        const bool hasVideo = !order.empty(), hasAudio = e.channels > 0;
        const ULONG streams = (hasVideo ? 1u : 0u) + (hasAudio ? 1u : 0u), audioStream = hasVideo ? 1 : 0;
        const DWORD frameBytes = static_cast<DWORD>(e.width * e.height * 2);
        const size_t samples = hasAudio ? sound.size() / (e.channels * e.bits / 8) : 0;
        std::vector<BYTE> entries, distinct, bitmapHeader, waveFormat; // video by index entry, by chunk
        std::string pts;
        for (size_t i = 0; i < order.size(); ++i) {
            const std::vector<BYTE> frame = Frame(order[i], frameBytes);
            entries.insert(entries.end(), frame.begin(), frame.end());
            if (i == 0 || order[i] != order[i - 1]) {
                // ffmpeg's reading: each chunk once, at the time of its first index entry.
                distinct.insert(distinct.end(), frame.begin(), frame.end());
                pts += (i == 0 ? "" : " ") + std::to_string(i);
            }
        }
        const ULONG chunks = static_cast<ULONG>(distinct.size() / (frameBytes == 0 ? 1 : frameBytes));
        if (hasVideo) {
            bitmapHeader = ConnectionFormat(0);
            const QVNAVIStreamState s = StreamState(0);
            EXPECT_EQ(std::make_tuple(chunks, static_cast<ULONG>(order.size()) - chunks, 0L),
                      std::make_tuple(s.chunksWritten, s.repeatsWritten, s.pin));
        }
        if (hasAudio) {
            waveFormat = ConnectionFormat(static_cast<int>(audioStream));
            const QVNAVIStreamState s = StreamState(audioStream);
            EXPECT_EQ(
                std::make_tuple(static_cast<ULONG>(e.blocks), ULONGLONG{sound.size()}, LONG(audioStream)),
                std::make_tuple(s.chunksWritten, s.bytesWritten, s.pin));
        }

        // 1. AVIFile. Wine's cannot open an audio-only file (avih is zero by design but for the stream count,
        // so it scans movi for chunks and gives up at the JUNK padding); ffprobe and the splitter read those.
        if (hasVideo) {
            const qvn_test::AviFileRead avifile = qvn_test::ReadWithAviFile(path);
            ASSERT_EQ(S_OK, avifile.openResult);
            ASSERT_EQ(streams, avifile.streams);
            const qvn_test::AviFileStream& v = avifile.stream[0];
            EXPECT_EQ(std::make_tuple(DWORD{MAKEFOURCC('v', 'i', 'd', 's')}, e.rate, e.scale,
                                      static_cast<LONG>(order.size())),
                      std::make_tuple(v.fccType, v.rate, v.scale, v.streamLength));
            EXPECT_EQ(bitmapHeader, v.format);
            ASSERT_EQ(order.size(), v.frames.size());
            for (size_t i = 0; i < order.size(); ++i)
                ASSERT_EQ(Frame(order[i], frameBytes), v.frames[i]) << "AVIStreamRead of entry " << i;
            if (hasAudio) {
                const qvn_test::AviFileStream& a = avifile.stream[1];
                EXPECT_EQ(std::make_tuple(DWORD{MAKEFOURCC('a', 'u', 'd', 's')}, e.sampleRate, 1ul,
                                          static_cast<LONG>(samples)),
                          std::make_tuple(a.fccType, a.rate, a.scale, a.streamLength));
                EXPECT_EQ(waveFormat, a.format);
                EXPECT_TRUE(a.samples == sound) << "AVIStreamRead of every sample";
            }
        }

        // 2. The platform's AVI splitter in a playback graph.
        const qvn_test::PlaybackRead played = qvn_test::PlayWithAviSplitter(path);
        ASSERT_EQ(S_OK, played.result) << played.problem;
        ASSERT_EQ(streams, played.streams.size());
        for (const qvn_test::PlaybackStream& s : played.streams) {
            std::vector<BYTE> all;
            for (const qvn_test::ReceivedSample& sample : s.samples)
                all.insert(all.end(), sample.bytes.begin(), sample.bytes.end());
            const bool isVideo = IsEqualGUID(s.majortype, MEDIATYPE_Video);
            if (isVideo) {
                EXPECT_EQ(order.size(), s.samples.size());
            }
            EXPECT_TRUE(all == (isVideo ? entries : sound)) << "the splitter's samples, video " << isVideo;
            EXPECT_EQ(1, s.endOfStreams);
        }

        WriteBytes(base + L".video.raw", std::string(distinct.begin(), distinct.end()));
        WriteBytes(base + L".audio.raw", std::string(sound.begin(), sound.end()));
        WriteBytes(base + L".expect",
                   "name=" + name + "\nvideo_frames=" + std::to_string(order.size()) + "\nvideo_pts=\"" +
                       pts + "\"\nwidth=" + std::to_string(e.width) + "\nheight=" + std::to_string(e.height) +
                       "\nvideo_rate=" + std::to_string(e.rate) + "/" + std::to_string(e.scale) +
                       "\naudio_samples=" + std::to_string(samples) + "\nchannels=" +
                       std::to_string(e.channels) + "\nsample_rate=" + std::to_string(e.sampleRate) +
                       "\naudio_format=s" + std::to_string(e.bits) + "le\n");
    }

    CQVNAVIWriter* mux = nullptr;
    IBaseFilter* muxFilter = nullptr;
    IBaseFilter* fileWriter = nullptr;
    IFileSinkFilter2* sink = nullptr;
    IQVNAVIWriter* writerState = nullptr;
    CVideoSource* video = nullptr;
    CAudioSource* audio = nullptr;
    qvn_standins::FileWriterStandInRegistration standIn_;
};

// The filter's shape and the answers that no file run asks for: refused types, the allocator requirements,
// filter-level stream control, and the File Writer stand-in's own answers.
TEST_F(MuxTest, KeepsOneSpareInputRefusesOtherTypesAndForwardsStreamControl) {
    LPOLESTR name = reinterpret_cast<LPOLESTR>(1);
    EXPECT_EQ(S_FALSE, writerState->GetFileName(&name)) << "no file yet";
    EXPECT_EQ(nullptr, name);
    EXPECT_EQ(2, mux->GetPinCount()) << "output first, then one unconnected input";
    EXPECT_STREQ(L"Output", mux->GetPin(0)->Name());
    EXPECT_STREQ(L"Input", mux->GetPin(1)->Name());
    CMediaType asf(&MEDIATYPE_Stream), videoInfo2 = UyvyType(64, 8, kFrame);
    asf.SetSubtype(&MEDIASUBTYPE_Asf);
    videoInfo2.SetFormatType(&FORMAT_VideoInfo2);
    EXPECT_EQ(S_FALSE, mux->GetPin(0)->QueryAccept(&asf));
    EXPECT_EQ(S_FALSE, mux->InputPin(0)->QueryAccept(&asf));
    EXPECT_EQ(S_FALSE, mux->InputPin(0)->QueryAccept(&videoInfo2)) << "VIDEOINFOHEADER only";

    AddVideo(64, 8, kFrame);
    EXPECT_EQ(2, mux->InputPinCount()) << "a spare pin after the first connection";
    AddAudio(2, 48000, 16);
    ASSERT_EQ(3, mux->InputPinCount());
    IEnumPins* pins = nullptr;
    ASSERT_EQ(S_OK, muxFilter->EnumPins(&pins));
    ULONG got = 0;
    for (IPin* pin = nullptr; pins->Next(1, &pin, nullptr) == S_OK; pin->Release())
        ++got;
    pins->Release();
    EXPECT_EQ(4u, got) << "enumerators see the added pins";

    // 30 buffers of the sample size, 4096-aligned (the scripted runs see them reach an upstream pin).
    ALLOCATOR_PROPERTIES props{};
    ASSERT_EQ(S_OK, mux->InputPin(0)->GetAllocatorRequirements(&props));
    EXPECT_EQ(std::make_tuple(30L, 64L * 8 * 2, 4096L, 0L),
              std::make_tuple(props.cBuffers, props.cbBuffer, props.cbAlign, props.cbPrefix));

    // Filter-level stream control reaches every connected input pin, and only those.
    IAMStreamControl* filterControl = Query<IAMStreamControl>(muxFilter, IID_IAMStreamControl);
    ASSERT_NE(nullptr, filterControl);
    const REFERENCE_TIME stop = 5 * kFrame, start = 2 * kFrame;
    ASSERT_EQ(S_OK, filterControl->StopAt(&stop, TRUE, 5));
    ASSERT_EQ(S_OK, filterControl->StartAt(&start, 6));
    for (int pin = 0; pin < 3; ++pin) {
        AM_STREAM_INFO info{};
        ASSERT_EQ(S_OK, mux->InputPin(pin)->GetInfo(&info));
        const AM_STREAM_INFO expected =
            pin < 2 ? AM_STREAM_INFO{start, stop, 6, 5, 1 | 2 | 16} : AM_STREAM_INFO{};
        EXPECT_EQ(Fields(expected), Fields(info)) << "pin " << pin;
    }
    ASSERT_EQ(S_OK, filterControl->StopAt(nullptr, FALSE, 0));
    AM_STREAM_INFO info{};
    ASSERT_EQ(S_OK, filterControl->GetInfo(&info));
    EXPECT_EQ(1u | 16u, info.dwFlags) << "a null stop clears flag 2 only";
    EXPECT_EQ(E_POINTER, filterControl->GetInfo(nullptr));
    EXPECT_EQ(E_POINTER, mux->InputPin(0)->GetInfo(nullptr));
    filterControl->Release();

    // The File Writer stand-in answers as Windows' does: name and type come back as the caller's copies.
    AM_MEDIA_TYPE type{};
    IFileSinkFilter2* fresh = nullptr;
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IFileSinkFilter2,
                                     reinterpret_cast<void**>(&fresh)));
    EXPECT_EQ(E_FAIL, fresh->GetCurFile(&name, &type)) << "no name before SetFileName";
    EXPECT_EQ(nullptr, name);
    EXPECT_EQ(E_POINTER, fresh->GetCurFile(nullptr, nullptr));
    CMediaType given(&MEDIATYPE_Stream);
    given.SetSubtype(&MEDIASUBTYPE_Avi);
    const BYTE format[3] = {1, 2, 3};
    given.SetFormat(const_cast<BYTE*>(format), sizeof(format));
    ASSERT_EQ(S_OK, fresh->SetFileName(L"C:\\some folder\\\x00e9t\x00e9.avi", &given));
    ASSERT_EQ(S_OK, fresh->GetCurFile(&name, &type));
    EXPECT_STREQ(L"C:\\some folder\\\x00e9t\x00e9.avi", name);
    EXPECT_TRUE(IsEqualGUID(MEDIASUBTYPE_Avi, type.subtype));
    EXPECT_EQ(std::vector<BYTE>(format, format + 3),
              std::vector<BYTE>(type.pbFormat, type.pbFormat + type.cbFormat));
    EXPECT_NE(given.pbFormat, type.pbFormat) << "the format block is the caller's own copy";
    CoTaskMemFree(name);
    FreeMediaType(type);
    EXPECT_EQ(E_INVALIDARG, fresh->SetMode(2)) << "0 or AM_FILE_OVERWRITE only";
    fresh->Release();
    IPin* in = FirstPin(fileWriter, PINDIR_INPUT);
    EXPECT_EQ(S_FALSE, in->QueryAccept(&asf));
    in->Release();
}

class MuxFileTest : public MuxTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(MuxFileTest, EveryFrameAndSampleReadsBackThroughThePlatformsReaders) {
    const FileCase& c = GetParam();
    if (c.frames > 0)
        AddVideo(c.width, c.height, c.perFrame);
    if (c.channels > 0)
        AddAudio(c.channels, c.sampleRate, c.bits);
    ASSERT_FALSE(HasFatalFailure());
    const std::wstring path = OutDir() + L"\\" + std::wstring(c.name, c.name + strlen(c.name)) + L".avi";
    SetFile(path);
    std::vector<int> order;
    std::vector<BYTE> sound; // in the file's channel order
    for (int k = 0; k < c.frames; ++k)
        order.push_back(k);
    // The producer's 5.1 order is L, R, Ls, Rs, C, LFE; the file's L, R, C, LFE, Ls, Rs.
    static const int kFileToProducer[6] = {0, 1, 4, 5, 2, 3};
    for (long long f = 0; f < static_cast<long long>(c.blockFrames) * c.blocks; ++f)
        for (int ch = 0; ch < c.channels; ++ch)
            PutSample(sound, f, c.channels == 6 ? kFileToProducer[ch] : ch, c.bits / 8);
    for (CPushSourcePin* pin : std::initializer_list<CPushSourcePin*>{
             video != nullptr ? video->Pin() : nullptr, audio != nullptr ? audio->Pin() : nullptr})
        if (pin != nullptr) {
            ASSERT_EQ(S_OK, pin->AllocateBuffers());
        }
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    EXPECT_TRUE(State().fileOpen);
    const DWORD frameBytes = static_cast<DWORD>(c.width * c.height * 2);
    if (video != nullptr)
        qvn_test::Produce(video->Pin(), c.frames, [&](int k, BYTE* buffer) {
            memcpy(buffer, Frame(k, frameBytes).data(), frameBytes);
            return frameBytes;
        });
    if (audio != nullptr)
        qvn_test::Produce(audio->Pin(), c.blocks, [&](int k, BYTE* buffer) {
            std::vector<BYTE> block;
            for (long long f = 0; f < c.blockFrames; ++f)
                for (int ch = 0; ch < c.channels; ++ch)
                    PutSample(block, static_cast<long long>(k) * c.blockFrames + f, ch, c.bits / 8);
            memcpy(buffer, block.data(), block.size());
            return static_cast<DWORD>(block.size());
        });
    const std::vector<Event> seen = EventsUntil(EC_COMPLETE);
    ASSERT_TRUE(Has(seen, EC_COMPLETE)) << "every stream ended, so the File Writer completed";
    EXPECT_FALSE(Has(seen, EC_ERRORABORT));
    QVNAVIWriterState state = State();
    EXPECT_EQ((c.frames > 0 ? 1u : 0u) + (c.channels > 0 ? 1u : 0u), state.streams);
    EXPECT_EQ(0u, state.openStreams);
    EXPECT_EQ(0u, state.dropped);
    ASSERT_EQ(S_OK, control->Stop());
    state = State();
    EXPECT_FALSE(state.fileOpen);
    EXPECT_EQ(S_OK, state.error);
    EXPECT_EQ(path, FileName()) << "the path came from the File Writer";
    ReadBack(c.name, c, order, sound);
}

INSTANTIATE_TEST_SUITE_P(
    Files, MuxFileTest,
    ::testing::Values(FileCase{"small_stereo16", 64, 8, kFrame, 30000, 1001, 90, 2, 48000, 16, 1601, 60},
                      FileCase{"sd_5_1", 720, 480, 400000, 25, 1, 40, 6, 48000, 16, 1920, 40},
                      FileCase{"video_only_24", 64, 8, 416667, 24, 1, 48, 0, 0, 0, 0, 0},
                      FileCase{"audio_only_24bit", 0, 0, 0, 0, 0, 0, 2, 44100, 24, 2205, 20}),
    [](const ::testing::TestParamInfo<FileCase>& p) { return std::string(p.param.name); });

// Six scripted frames: a gap in the stamps between frames 2 and 3 becomes repeat entries pointing at the
// previous frame, and the input pin's own stream control gates frames and sends each event once.

struct Gate { // a call before the run: StopAt (with discard) when stop, else StartAt
    bool stop;
    const REFERENCE_TIME* time;
    BOOL discard;
    DWORD cookie;
};

struct ScriptCase {
    const char* name;
    REFERENCE_TIME gap; // between frame 2's stop and frame 3's start
    std::vector<Gate> gates;
    AM_STREAM_INFO info;       // GetInfo after the gates
    std::vector<int> order;    // the index entries: frame numbers, a repeat names its frame again
    std::vector<Event> events; // stream-control events (p1 is checked to be the pin)
};

class MuxScriptTest : public MuxTest, public ::testing::WithParamInterface<ScriptCase> {};

TEST_P(MuxScriptTest, FramesReachTheFileAsStampedRepeatedAndGated) {
    const ScriptCase& c = GetParam();
    HRESULT hr = S_OK;
    auto* source = new CScriptedSource(
        &hr, {0, kFrame, 2 * kFrame, 3 * kFrame + c.gap, 4 * kFrame + c.gap, 5 * kFrame + c.gap});
    AddSource(source, L"Scripted Source", source->stream);
    ASSERT_FALSE(HasFatalFailure());
    CAVIInputPin* pin = mux->InputPin(0);
    for (const Gate& g : c.gates)
        g.stop ? pin->StopAt(g.time, g.discard, g.cookie) : pin->StartAt(g.time, g.cookie);
    AM_STREAM_INFO info{};
    ASSERT_EQ(S_OK, pin->GetInfo(&info));
    EXPECT_EQ(Fields(c.info), Fields(info));
    const std::string name = std::string("script_") + c.name;
    SetFile(OutDir() + L"\\" + std::wstring(name.begin(), name.end()) + L".avi");
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    const std::vector<Event> seen = EventsUntil(EC_COMPLETE);
    ASSERT_TRUE(Has(seen, EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    std::vector<Event> got;
    for (const Event& e : seen)
        if (e.code == EC_STREAM_CONTROL_STARTED || e.code == EC_STREAM_CONTROL_STOPPED)
            got.push_back(e);
    ASSERT_EQ(c.events.size(), got.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(c.events[i].code, got[i].code) << "event " << i;
        EXPECT_EQ(reinterpret_cast<LONG_PTR>(static_cast<IPin*>(pin)), got[i].p1)
            << "event " << i << " names the pin";
        EXPECT_EQ(c.events[i].p2, got[i].p2) << "cookie of event " << i;
    }
    // The multiplexer's requirements reached the upstream pin.
    IMemAllocator* allocator = nullptr;
    ALLOCATOR_PROPERTIES props{};
    ASSERT_EQ(S_OK, pin->GetAllocator(&allocator));
    EXPECT_EQ(S_OK, allocator->GetProperties(&props));
    allocator->Release();
    EXPECT_EQ(30, props.cBuffers);
    EXPECT_EQ(4096, props.cbAlign);
    ReadBack(name, {nullptr, 64, 8, kFrame, 30000, 1001, 6, 0, 0, 0, 0, 0}, c.order, {});
}

const REFERENCE_TIME kTwo = 2 * kFrame, kThree = 3 * kFrame, kZero = 0, kMax = 0x7FFFFFFFFFFFFFFF;

// clang-format off
INSTANTIATE_TEST_SUITE_P(Script, MuxScriptTest, ::testing::Values(
    ScriptCase{"gap_three_frames", 3 * kFrame, {}, {}, {0, 1, 2, 2, 2, 2, 3, 4, 5}, {}},
    ScriptCase{"gap_three_frames_and_a_bit", 3 * kFrame + 5, {}, {}, {0, 1, 2, 2, 2, 2, 3, 4, 5}, {}},
    ScriptCase{"gap_just_under_three", 3 * kFrame - 1, {}, {}, {0, 1, 2, 2, 2, 3, 4, 5}, {}},
    ScriptCase{"gap_ten_units", 10, {}, {}, {0, 1, 2, 3, 4, 5}, {}},
    ScriptCase{"gap_eleven_units", 11, {}, {}, {0, 1, 2, 3, 4, 5}, {}},
    ScriptCase{"gap_none", 0, {}, {}, {0, 1, 2, 3, 4, 5}, {}},
    ScriptCase{"null_start_removes_the_start_gate", 0,
               {{false, &kThree, FALSE, 4}, {false, nullptr, FALSE, 0}}, {kThree, 0, 4, 0, 0},
               {0, 1, 2, 3, 4, 5}, {}},
    ScriptCase{"start_time_drops_samples_ending_at_it", 0, {{false, &kTwo, FALSE, 7}}, {kTwo, 0, 7, 0, 1},
               {2, 3, 4, 5}, {{EC_STREAM_CONTROL_STARTED, 0, 7}}},
    ScriptCase{"stop_sends_one_stopped_for_two_late_samples", 0,
               {{false, &kZero, FALSE, 3}, {true, &kThree, FALSE, 9}}, {0, kThree, 3, 9, 1 | 2}, {0, 1, 2, 3},
               {{EC_STREAM_CONTROL_STARTED, 0, 3}, {EC_STREAM_CONTROL_STOPPED, 0, 9}}},
    ScriptCase{"stop_without_start_drops_silently", 0, {{true, &kTwo, TRUE, 4}}, {0, kTwo, 0, 4, 2 | 16},
               {0, 1, 2}, {}},
    ScriptCase{"stop_at_max_removes_the_stop_gate", 0, {{true, &kTwo, TRUE, 4}, {true, &kMax, FALSE, 5}},
               {0, kTwo, 0, 4, 16}, {0, 1, 2, 3, 4, 5}, {}}),
    [](const ::testing::TestParamInfo<ScriptCase>& p) { return std::string(p.param.name); });
// clang-format on

TEST_F(MuxTest, NoConnectedInputOpensAFileWithNoStreamsAndEachRunOpensAgain) {
    for (int run = 0; run < 2; ++run) {
        const std::wstring path = OutDir() + L"\\no_streams_" + std::to_wstring(run) + L".avi";
        SetFile(path);
        ASSERT_TRUE(SUCCEEDED(control->Run()));
        EXPECT_TRUE(State().fileOpen);
        EXPECT_EQ(0u, State().streams);
        ASSERT_EQ(S_OK, control->Stop());
        EXPECT_FALSE(State().fileOpen);
        const qvn_test::RiffFile riff = qvn_test::WalkRiff(path);
        ASSERT_TRUE(riff.valid) << riff.problem;
        EXPECT_EQ(0u, riff.avihStreams);
        EXPECT_TRUE(riff.streams.empty() && riff.idx1.empty());
        const qvn_test::AviFileRead avifile = qvn_test::ReadWithAviFile(path);
        EXPECT_EQ(0u, avifile.streams) << "also when AVIFile opens it";
    }
}

struct OpenFailureCase {
    const char* name;
    std::wstring (*makePath)(); // answers the File Writer's name
    HRESULT expected;           // 0: any failure
};

class MuxOpenFailureTest : public MuxTest, public ::testing::WithParamInterface<OpenFailureCase> {};

TEST_P(MuxOpenFailureTest, TheGraphFailsToRunAndKeepsNoFile) {
    const OpenFailureCase& c = GetParam();
    AddVideo(64, 8, kFrame);
    ASSERT_FALSE(HasFatalFailure());
    const std::wstring path = c.makePath();
    ASSERT_EQ(S_OK, sink->SetFileName(path.c_str(), nullptr));
    ASSERT_EQ(S_OK, video->Pin()->AllocateBuffers());
    const HRESULT hr = control->Run();
    EXPECT_TRUE(FAILED(hr));
    if (c.expected != 0) {
        EXPECT_EQ(c.expected, hr) << "the open's own failure is Run's result";
    }
    EXPECT_FALSE(State().fileOpen);
    EXPECT_EQ(S_OK, control->Stop());
    // After a failed pause Wine's Stop stops nothing, and the paused source would hang the release.
    for (IBaseFilter* filter : {static_cast<IBaseFilter*>(video), muxFilter, fileWriter})
        EXPECT_EQ(S_OK, filter->Stop());
    EXPECT_EQ(path, FileName());
}

INSTANTIATE_TEST_SUITE_P(
    OpenFailures, MuxOpenFailureTest,
    ::testing::Values(
        OpenFailureCase{"missing_folder", [] { return OutDir() + L"\\no-such-folder\\file.avi"; },
                        HRESULT_FROM_WIN32(ERROR_PATH_NOT_FOUND)},
        OpenFailureCase{"empty_name", [] { return std::wstring(); }, 0},
        OpenFailureCase{"wildcard_in_name", [] { return OutDir() + L"\\bad*name?.avi"; },
                        HRESULT_FROM_WIN32(ERROR_INVALID_NAME)},
        OpenFailureCase{"a_folder", [] { return OutDir(); }, HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED)}),
    [](const ::testing::TestParamInfo<OpenFailureCase>& p) { return std::string(p.param.name); });

// A real write failure on the writer thread: run by its own CTest entry under a file-size limit
// (ulimit -f, QVN_MUX_FILE_LIMIT says the limit in bytes), skipped otherwise.
TEST_F(MuxTest, WorkerWriteFailureReachesTheGraphAsErrorAbortAndNothingHangs) {
    const char* limit = getenv("QVN_MUX_FILE_LIMIT");
    if (limit == nullptr) {
        GTEST_SKIP() << "needs a file-size limit (the dshow_mux_write_failure entry sets one)";
    }
    const long long limitBytes = atoll(limit);
    AddVideo(720, 480, 400000);
    ASSERT_FALSE(HasFatalFailure());
    SetFile(OutDir() + L"\\write_failure.avi");
    ASSERT_EQ(S_OK, video->Pin()->AllocateBuffers());
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    const DWORD frameBytes = 720 * 480 * 2;
    std::thread producer([&] {
        qvn_test::Produce(video->Pin(), static_cast<int>(limitBytes / frameBytes) * 3 + 10,
                          [&](int k, BYTE* b) {
                              memset(b, k, frameBytes);
                              return frameBytes;
                          });
    });
    LONG_PTR error = 0;
    const bool aborted = WaitForEvent(EC_ERRORABORT, &error, nullptr, 15000);
    const QVNAVIWriterState state = State();
    EXPECT_EQ(S_OK, control->Stop()) << "the stop drains and closes without hanging";
    producer.join();
    ASSERT_TRUE(aborted) << "EC_ERRORABORT after the writer thread failed";
    EXPECT_TRUE(FAILED(state.error));
    EXPECT_EQ(state.error, static_cast<HRESULT>(error)) << "the event carries the writer's error";
    EXPECT_LT(StreamState(0).bytesWritten, static_cast<ULONGLONG>(limitBytes));
}

} // namespace
