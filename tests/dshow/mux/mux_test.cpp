// CQVNAVIWriter in real graphs made by the platform's filter graph manager: our push sources (or a scripted
// source for exact stamps) into the multiplexer, the multiplexer into the File Writer created by
// CoCreateInstance(CLSID_FileWriter) with the host's stand-in registered where the platform's cannot tell
// its file name. Every file is read back by readers we did not write the writer for: a RIFF walk, the
// platform's AVIFile API and a playback graph through the platform's AVI splitter. The files of the
// read-back cases stay in mux-out/ beside the program, each with a NAME.expect and the raw video and audio
// it must decode to, for read_back.sh (ffprobe and ffmpeg on the Linux side).
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "dshow/audio_source.h"
#include "dshow/avi_input_pin.h"
#include "dshow/qvn_avi_writer.h"
#include "dshow/video_source.h"
#include "host/dshow_standins/file_writer_standin.h"
#include "tests/dshow/graph_fixture.h"
#include "tests/dshow/mux/avi_readers.h"
#include "tests/dshow/push_helpers.h"

namespace {

using qvn_test::FirstPin;

constexpr REFERENCE_TIME kFrame = 333667; // 29.97 frames per second
constexpr REFERENCE_TIME kNoTime = 0x7FFFFFFFFFFFFFFF;

using qvn_test::Query;
using qvn_test::UyvyType;

// Frame k: its number in the first four bytes, then a pattern that differs from frame to frame.
BYTE FrameByte(int k, DWORD i) {
    return i < 4 ? static_cast<BYTE>(static_cast<unsigned>(k) >> (8 * i)) : static_cast<BYTE>(k * 13 + i * 7);
}
std::vector<BYTE> Frame(int k, DWORD bytes) {
    std::vector<BYTE> frame(bytes);
    for (DWORD i = 0; i < bytes; ++i) {
        frame[i] = FrameByte(k, i);
    }
    return frame;
}
int FrameNumber(const std::vector<BYTE>& payload) {
    if (payload.size() < 4) {
        return -1;
    }
    return payload[0] | payload[1] << 8 | payload[2] << 16 | payload[3] << 24;
}

// The sample of sample frame f, channel c (in the producer's order), as bytes-wide little-endian.
std::uint32_t AudioValue(long long f, int c) {
    return static_cast<std::uint32_t>(f * 97 + c * 5003 + (f >> 3) * 1237);
}

std::wstring OutDir() {
    wchar_t cwd[MAX_PATH] = {};
    GetCurrentDirectoryW(MAX_PATH, cwd);
    std::wstring dir = std::wstring(cwd) + L"\\mux-out";
    CreateDirectoryW(dir.c_str(), nullptr);
    return dir;
}

void WriteBytes(const std::wstring& path, const std::vector<BYTE>& bytes) {
    HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file);
    DWORD written = 0;
    if (!bytes.empty()) {
        WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    }
    CloseHandle(file);
    ASSERT_EQ(bytes.size(), written);
}

// NAME.expect (shell-readable key=value lines), NAME.video.raw and NAME.audio.raw for read_back.sh.
void WriteExpectation(const std::wstring& base, const std::string& lines, const std::vector<BYTE>& video,
                      const std::vector<BYTE>& audio) {
    WriteBytes(base + L".video.raw", video);
    WriteBytes(base + L".audio.raw", audio);
    WriteBytes(base + L".expect", std::vector<BYTE>(lines.begin(), lines.end()));
}

struct Event {
    long code;
    LONG_PTR p1, p2;
};

// A source whose one pin delivers UYVY frames stamped exactly as the test says: frame k of the script
// starts at starts[k] and lasts one frame, and carries Frame(k).
class CScriptedStream : public CSourceStream {
public:
    CScriptedStream(HRESULT* phr, CSource* filter) : CSourceStream(L"scripted stream", phr, filter, L"Out") {}

    std::vector<REFERENCE_TIME> starts;
    CMediaType type = UyvyType(64, 8, kFrame);
    ALLOCATOR_PROPERTIES requested{}, granted{};
    volatile LONG next = 0;

    HRESULT GetMediaType(CMediaType* mt) override { return mt->Set(type); }
    HRESULT DecideBufferSize(IMemAllocator* allocator, ALLOCATOR_PROPERTIES* request) override {
        requested = *request;
        ALLOCATOR_PROPERTIES wanted = *request;
        wanted.cBuffers = wanted.cBuffers > 0 ? wanted.cBuffers : 4;
        wanted.cbBuffer = wanted.cbBuffer > 0 ? wanted.cbBuffer : static_cast<LONG>(type.GetSampleSize());
        const HRESULT hr = allocator->SetProperties(&wanted, &granted);
        return FAILED(hr) ? hr : (granted.cbBuffer < wanted.cbBuffer ? E_FAIL : S_OK);
    }
    HRESULT FillBuffer(IMediaSample* sample) override {
        if (next >= static_cast<LONG>(starts.size())) {
            return S_FALSE;
        }
        const int k = next;
        InterlockedIncrement(&next);
        BYTE* data = nullptr;
        sample->GetPointer(&data);
        const std::vector<BYTE> frame = Frame(k, type.GetSampleSize());
        memcpy(data, frame.data(), frame.size());
        sample->SetActualDataLength(static_cast<LONG>(frame.size()));
        REFERENCE_TIME start = starts[static_cast<size_t>(k)];
        REFERENCE_TIME stop = start + kFrame;
        sample->SetTime(&start, &stop);
        sample->SetSyncPoint(TRUE);
        return S_OK;
    }
};

class CScriptedSource : public CSource {
public:
    explicit CScriptedSource(HRESULT* phr) : CSource(L"scripted source", nullptr, GUID_NULL, phr) {
        stream = new CScriptedStream(phr, this);
    }
    CScriptedStream* stream;
};

class MuxTest : public qvn_test::GraphTest {
protected:
    void SetUp() override {
        GraphTest::SetUp();
        if (HasFatalFailure()) {
            return;
        }
        ASSERT_TRUE(SUCCEEDED(standIn_.Register(false)));
        HRESULT hr = E_FAIL;
        mux = static_cast<CQVNAVIWriter*>(CQVNAVIWriter::CreateInstance(nullptr, &hr));
        ASSERT_EQ(S_OK, hr);
        muxFilter = mux;
        muxFilter->AddRef();
        ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                         reinterpret_cast<void**>(&fileWriter)));
        sink = Query<IFileSinkFilter2>(fileWriter, IID_IFileSinkFilter2);
        ASSERT_NE(nullptr, sink) << "the File Writer in use has IFileSinkFilter2";
        writerState = Query<IQVNAVIWriter>(muxFilter, IID_IQVNAVIWriter);
        ASSERT_NE(nullptr, writerState);
        IMediaFilter* clock = Query<IMediaFilter>(graph, IID_IMediaFilter);
        ASSERT_EQ(S_OK, clock->SetSyncSource(nullptr));
        clock->Release();
        ASSERT_EQ(S_OK, graph->AddFilter(muxFilter, L"AVI Mux"));
        ASSERT_EQ(S_OK, graph->AddFilter(fileWriter, L"File writer"));
    }

    void ReleaseFilters() override {
        for (IUnknown* object :
             {static_cast<IUnknown*>(sink), static_cast<IUnknown*>(writerState),
              static_cast<IUnknown*>(fileWriter), static_cast<IUnknown*>(muxFilter),
              static_cast<IUnknown*>(static_cast<IBaseFilter*>(video)),
              static_cast<IUnknown*>(static_cast<IBaseFilter*>(audio)), static_cast<IUnknown*>(scripted)}) {
            if (object != nullptr) {
                object->Release();
            }
        }
        EXPECT_EQ(S_OK, standIn_.Revoke());
    }

    void ConnectOutput() {
        IPin* out = FirstPin(muxFilter, PINDIR_OUTPUT);
        IPin* in = FirstPin(fileWriter, PINDIR_INPUT);
        ASSERT_TRUE(out != nullptr && in != nullptr);
        EXPECT_EQ(S_OK, graph->ConnectDirect(out, in, nullptr));
        out->Release();
        in->Release();
    }

    // Connects out to the multiplexer's spare input pin (always the last one).
    void ConnectInput(IPin* out) {
        const int spare = mux->InputPinCount() - 1;
        ASSERT_FALSE(mux->InputPin(spare)->IsConnected());
        ASSERT_EQ(S_OK, graph->ConnectDirect(out, mux->InputPin(spare), nullptr));
    }

    void AddVideo(LONG width, LONG height, REFERENCE_TIME perFrame) {
        HRESULT hr = S_OK;
        video = new CVideoSource(&hr);
        video->AddRef();
        ASSERT_EQ(S_OK, hr);
        ASSERT_EQ(S_OK, graph->AddFilter(video, L"Video Frame Source"));
        const CMediaType type = UyvyType(width, height, perFrame);
        ASSERT_EQ(S_OK, video->Pin()->SetStreamMediaType(&type));
        ConnectInput(video->Pin());
    }

    void AddAudio(WORD channels, DWORD rate, WORD bits) {
        HRESULT hr = S_OK;
        audio = new CAudioSource(&hr);
        audio->AddRef();
        ASSERT_EQ(S_OK, hr);
        ASSERT_EQ(S_OK, graph->AddFilter(audio, L"Audio Frame Source"));
        ASSERT_EQ(S_OK, audio->Pin()->SetAudioFormat(channels, rate, bits, WAVE_FORMAT_PCM));
        ConnectInput(audio->Pin());
    }

    void AddScripted(std::vector<REFERENCE_TIME> starts) {
        HRESULT hr = S_OK;
        auto* source = new CScriptedSource(&hr);
        scripted = source;
        scripted->AddRef();
        ASSERT_EQ(S_OK, hr);
        script = source->stream;
        script->starts = std::move(starts);
        ASSERT_EQ(S_OK, graph->AddFilter(scripted, L"Scripted Source"));
        ConnectInput(script);
    }

    void SetFile(const std::wstring& path) {
        DeleteFileW(path.c_str());
        ASSERT_EQ(S_OK, sink->SetFileName(path.c_str(), nullptr));
        ASSERT_EQ(S_OK, sink->SetMode(AM_FILE_OVERWRITE));
    }

    static void Produce(CPushSourcePin* pin, int count, const std::function<DWORD(int, BYTE*)>& fill) {
        qvn_test::Produce(pin, count, fill);
    }

    // Every event until one of code arrives (included) or the time-out.
    std::vector<Event> EventsUntil(long code, DWORD ms = 10000) {
        std::vector<Event> seen;
        const DWORD deadline = GetTickCount() + ms;
        while (static_cast<LONG>(deadline - GetTickCount()) > 0) {
            Event e{};
            if (events->GetEvent(&e.code, &e.p1, &e.p2, 20) != S_OK) {
                continue;
            }
            events->FreeEventParams(e.code, e.p1, e.p2);
            seen.push_back(e);
            if (e.code == code) {
                break;
            }
        }
        return seen;
    }
    static bool Has(const std::vector<Event>& seen, long code) {
        for (const Event& e : seen) {
            if (e.code == code) {
                return true;
            }
        }
        return false;
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

    CQVNAVIWriter* mux = nullptr;
    IBaseFilter* muxFilter = nullptr;
    IBaseFilter* fileWriter = nullptr;
    IFileSinkFilter2* sink = nullptr;
    IQVNAVIWriter* writerState = nullptr;
    CVideoSource* video = nullptr;
    CAudioSource* audio = nullptr;
    IBaseFilter* scripted = nullptr;
    CScriptedStream* script = nullptr;
    qvn_standins::FileWriterStandInRegistration standIn_;
};

// ---------------------------------------------------------------------------------------------------------
// The stand-in and the filter's shape.

TEST_F(MuxTest, FileWriterInUseReportsItsNameTypeAndModeAsWindowsOneDoes) {
    CLSID clsid{};
    EXPECT_EQ(S_OK, fileWriter->GetClassID(&clsid));
    EXPECT_TRUE(IsEqualCLSID(CLSID_FileWriter, clsid));
    LPOLESTR name = nullptr;
    AM_MEDIA_TYPE type{};
    EXPECT_EQ(E_FAIL, sink->GetCurFile(&name, &type)) << "no name before SetFileName";
    EXPECT_EQ(nullptr, name);
    EXPECT_EQ(E_POINTER, sink->GetCurFile(nullptr, nullptr));
    CMediaType given(&MEDIATYPE_Stream);
    given.SetSubtype(&MEDIASUBTYPE_Avi);
    BYTE format[3] = {1, 2, 3};
    given.SetFormatType(&FORMAT_None);
    given.SetFormat(format, sizeof(format));
    ASSERT_EQ(S_OK, sink->SetFileName(L"C:\\some folder\\\x00e9t\x00e9.avi", &given));
    ASSERT_EQ(S_OK, sink->GetCurFile(&name, &type));
    ASSERT_NE(nullptr, name);
    EXPECT_STREQ(L"C:\\some folder\\\x00e9t\x00e9.avi", name);
    EXPECT_TRUE(IsEqualGUID(MEDIASUBTYPE_Avi, type.subtype));
    ASSERT_EQ(3u, type.cbFormat);
    EXPECT_EQ(0, memcmp(format, type.pbFormat, 3)) << "the format block is the caller's own copy";
    EXPECT_NE(given.pbFormat, type.pbFormat);
    CoTaskMemFree(name);
    FreeMediaType(type);
    DWORD mode = 7;
    EXPECT_EQ(S_OK, sink->GetMode(&mode));
    EXPECT_EQ(0u, mode);
    EXPECT_EQ(S_OK, sink->SetMode(AM_FILE_OVERWRITE));
    EXPECT_EQ(S_OK, sink->GetMode(&mode));
    EXPECT_EQ(static_cast<DWORD>(AM_FILE_OVERWRITE), mode);
    EXPECT_EQ(E_INVALIDARG, sink->SetMode(2));
    IAMFilterMiscFlags* flags = Query<IAMFilterMiscFlags>(fileWriter, IID_IAMFilterMiscFlags);
    ASSERT_NE(nullptr, flags);
    EXPECT_EQ(static_cast<ULONG>(AM_FILTER_MISC_FLAGS_IS_RENDERER), flags->GetMiscFlags());
    flags->Release();
    // Its one pin takes the multiplexer's stream and nothing else.
    IPin* in = FirstPin(fileWriter, PINDIR_INPUT);
    ASSERT_NE(nullptr, in);
    CMediaType avi(&MEDIATYPE_Stream);
    avi.SetSubtype(&MEDIASUBTYPE_Avi);
    EXPECT_EQ(S_OK, in->QueryAccept(&avi));
    avi.SetSubtype(&MEDIASUBTYPE_Asf);
    EXPECT_EQ(S_FALSE, in->QueryAccept(&avi));
    in->Release();
}

TEST_F(MuxTest, StandInIsRegisteredOnlyWhereThePlatformsWriterCannotTellItsNameOrWhenForced) {
    const bool registered = standIn_.Registered();
    ASSERT_EQ(S_OK, standIn_.Revoke());
    EXPECT_FALSE(standIn_.Registered());
    // Asked with the stand-in revoked: while registered, CLSID_FileWriter makes the stand-in.
    const bool fit = qvn_standins::PlatformFileWriterReportsName();
    EXPECT_EQ(!fit, registered) << "the fixture registered the stand-in exactly when the platform's is unfit";
    IBaseFilter* made = nullptr;
    if (SUCCEEDED(CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                   reinterpret_cast<void**>(&made)))) {
        IFileSinkFilter2* platform = Query<IFileSinkFilter2>(made, IID_IFileSinkFilter2);
        if (!fit) {
            EXPECT_EQ(nullptr, platform)
                << "after the revocation, the platform's own (Wine's has no IFileSinkFilter2)";
        }
        if (platform != nullptr) {
            platform->Release();
        }
        made->Release();
    }
    qvn_standins::FileWriterStandInRegistration forced;
    ASSERT_EQ(S_OK, forced.Register(true));
    ASSERT_EQ(S_OK, CoCreateInstance(CLSID_FileWriter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                     reinterpret_cast<void**>(&made)));
    IFileSinkFilter2* second = Query<IFileSinkFilter2>(made, IID_IFileSinkFilter2);
    EXPECT_NE(nullptr, second) << "forced: the stand-in";
    if (second != nullptr) {
        second->Release();
    }
    made->Release();
    EXPECT_EQ(S_OK, forced.Revoke());
}

TEST_F(MuxTest, KeepsOneSpareInputAndAnswersTypesRequirementsAndInterfaces) {
    CLSID clsid{};
    EXPECT_EQ(S_OK, muxFilter->GetClassID(&clsid));
    EXPECT_TRUE(IsEqualCLSID(CLSID_QVNAVIWriter, clsid));
    IAMStreamControl* filterControl = Query<IAMStreamControl>(muxFilter, IID_IAMStreamControl);
    ASSERT_NE(nullptr, filterControl);
    LPOLESTR name = reinterpret_cast<LPOLESTR>(1);
    EXPECT_EQ(S_FALSE, writerState->GetFileName(&name));
    EXPECT_EQ(nullptr, name);
    // Output first, then one unconnected input.
    EXPECT_EQ(2, mux->GetPinCount());
    EXPECT_STREQ(L"Output", mux->GetPin(0)->Name());
    EXPECT_STREQ(L"Input", mux->GetPin(1)->Name());
    CMediaType stream(&MEDIATYPE_Stream);
    stream.SetSubtype(&MEDIASUBTYPE_Avi);
    EXPECT_EQ(S_OK, mux->GetPin(0)->QueryAccept(&stream));
    stream.SetSubtype(&MEDIASUBTYPE_Asf);
    EXPECT_EQ(S_FALSE, mux->GetPin(0)->QueryAccept(&stream));
    // Input types: video with VIDEOINFOHEADER and audio with WAVEFORMATEX only.
    CMediaType videoType = UyvyType(64, 8, kFrame);
    EXPECT_EQ(S_OK, mux->InputPin(0)->QueryAccept(&videoType));
    videoType.SetFormatType(&FORMAT_VideoInfo2);
    EXPECT_EQ(S_FALSE, mux->InputPin(0)->QueryAccept(&videoType));
    CMediaType audioType(&MEDIATYPE_Audio);
    audioType.SetFormatType(&FORMAT_WaveFormatEx);
    WAVEFORMATEX wave{WAVE_FORMAT_PCM, 2, 48000, 192000, 4, 16, 0};
    audioType.SetFormat(reinterpret_cast<BYTE*>(&wave), sizeof(wave));
    EXPECT_EQ(S_OK, mux->InputPin(0)->QueryAccept(&audioType));
    EXPECT_EQ(S_FALSE, mux->InputPin(0)->QueryAccept(&stream));

    ConnectOutput();
    AddVideo(64, 8, kFrame);
    EXPECT_EQ(2, mux->InputPinCount()) << "a spare pin after the first connection";
    AddAudio(2, 48000, 16);
    ASSERT_EQ(3, mux->InputPinCount());
    EXPECT_TRUE(mux->InputPin(0)->IsConnected());
    EXPECT_TRUE(mux->InputPin(1)->IsConnected());
    EXPECT_FALSE(mux->InputPin(2)->IsConnected());
    IEnumPins* pins = nullptr;
    ASSERT_EQ(S_OK, muxFilter->EnumPins(&pins));
    IPin* all[8] = {};
    ULONG got = 0;
    pins->Next(8, all, &got);
    pins->Release();
    EXPECT_EQ(4u, got) << "enumerators see the added pins";
    for (ULONG i = 0; i < got; ++i) {
        all[i]->Release();
    }

    // Allocator requirements: 30 buffers of the connection's sample size, 4096-aligned; our push sources
    // impose their own allocator all the same.
    ALLOCATOR_PROPERTIES props{};
    ASSERT_EQ(S_OK, mux->InputPin(0)->GetAllocatorRequirements(&props));
    EXPECT_EQ(30, props.cBuffers);
    EXPECT_EQ(64 * 8 * 2, props.cbBuffer);
    EXPECT_EQ(4096, props.cbAlign);
    EXPECT_EQ(0, props.cbPrefix);

    // Filter-level stream control reaches every connected input pin, and only those.
    const REFERENCE_TIME stop = 5 * kFrame, start = 2 * kFrame;
    ASSERT_EQ(S_OK, filterControl->StopAt(&stop, TRUE, 5));
    ASSERT_EQ(S_OK, filterControl->StartAt(&start, 6));
    for (int pin = 0; pin < 3; ++pin) {
        AM_STREAM_INFO info{};
        ASSERT_EQ(S_OK, mux->InputPin(pin)->GetInfo(&info));
        const AM_STREAM_INFO expected =
            pin < 2 ? AM_STREAM_INFO{start, stop, 6, 5, 1 | 2 | 16} : AM_STREAM_INFO{};
        EXPECT_EQ(0, memcmp(&expected, &info, sizeof(info))) << "pin " << pin << " flags " << info.dwFlags;
    }
    ASSERT_EQ(S_OK, filterControl->StopAt(nullptr, FALSE, 0));
    AM_STREAM_INFO info{};
    ASSERT_EQ(S_OK, filterControl->GetInfo(&info));
    EXPECT_EQ(1u | 16u, info.dwFlags) << "a null stop clears flag 2 only";
    EXPECT_EQ(E_POINTER, filterControl->GetInfo(nullptr));
    EXPECT_EQ(E_POINTER, mux->InputPin(0)->GetInfo(nullptr));
    filterControl->Release();
}

// ---------------------------------------------------------------------------------------------------------
// Whole files from our push sources, read back by the platform's readers (and by read_back.sh).

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

class MuxFileTest : public MuxTest, public ::testing::WithParamInterface<FileCase> {};

TEST_P(MuxFileTest, EveryFrameAndSampleReadsBackThroughThePlatformsReaders) {
    const FileCase& c = GetParam();
    const bool hasVideo = c.frames > 0, hasAudio = c.channels > 0;
    ConnectOutput();
    if (hasVideo) {
        AddVideo(c.width, c.height, c.perFrame);
    }
    if (hasAudio) {
        AddAudio(c.channels, c.sampleRate, c.bits);
    }
    ASSERT_FALSE(HasFatalFailure());
    const std::wstring base = OutDir() + L"\\" + std::wstring(c.name, c.name + strlen(c.name));
    const std::wstring path = base + L".avi";
    SetFile(path);

    const DWORD frameBytes = static_cast<DWORD>(c.width * c.height * 2);
    const int bytesPerSample = c.bits / 8;
    const DWORD blockAlign = static_cast<DWORD>(c.channels * bytesPerSample);
    std::vector<BYTE> expectedVideo, expectedAudio;
    for (int k = 0; k < c.frames; ++k) {
        const std::vector<BYTE> frame = Frame(k, frameBytes);
        expectedVideo.insert(expectedVideo.end(), frame.begin(), frame.end());
    }
    // The producer's 5.1 order is L, R, Ls, Rs, C, LFE; the file's L, R, C, LFE, Ls, Rs.
    static const int kFileToProducer[6] = {0, 1, 4, 5, 2, 3};
    const long long totalSamples = static_cast<long long>(c.blockFrames) * c.blocks;
    for (long long f = 0; f < totalSamples; ++f) {
        for (int ch = 0; ch < c.channels; ++ch) {
            const std::uint32_t v = AudioValue(f, c.channels == 6 ? kFileToProducer[ch] : ch);
            for (int b = 0; b < bytesPerSample; ++b) {
                expectedAudio.push_back(static_cast<BYTE>(v >> (8 * b)));
            }
        }
    }

    if (video != nullptr) {
        ASSERT_EQ(S_OK, video->Pin()->AllocateBuffers());
    }
    if (audio != nullptr) {
        ASSERT_EQ(S_OK, audio->Pin()->AllocateBuffers());
    }
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    EXPECT_TRUE(State().fileOpen);
    if (hasVideo) {
        Produce(video->Pin(), c.frames, [&](int k, BYTE* buffer) {
            const std::vector<BYTE> frame = Frame(k, frameBytes);
            memcpy(buffer, frame.data(), frame.size());
            return frameBytes;
        });
    }
    if (hasAudio) {
        Produce(audio->Pin(), c.blocks, [&](int k, BYTE* buffer) {
            for (int f = 0; f < c.blockFrames; ++f) {
                for (int ch = 0; ch < c.channels; ++ch) {
                    const std::uint32_t v = AudioValue(static_cast<long long>(k) * c.blockFrames + f, ch);
                    for (int b = 0; b < bytesPerSample; ++b) {
                        *buffer++ = static_cast<BYTE>(v >> (8 * b));
                    }
                }
            }
            return static_cast<DWORD>(c.blockFrames) * blockAlign;
        });
    }
    const std::vector<Event> seen = EventsUntil(EC_COMPLETE);
    ASSERT_TRUE(Has(seen, EC_COMPLETE)) << "every stream ended, so the File Writer completed";
    EXPECT_FALSE(Has(seen, EC_ERRORABORT));
    const ULONG streams = (hasVideo ? 1u : 0u) + (hasAudio ? 1u : 0u);
    QVNAVIWriterState state = State();
    EXPECT_EQ(streams, state.streams);
    EXPECT_EQ(0u, state.openStreams);
    EXPECT_EQ(0u, state.dropped);
    ASSERT_EQ(S_OK, control->Stop());
    state = State();
    EXPECT_FALSE(state.fileOpen);
    EXPECT_EQ(S_OK, state.error);
    LPOLESTR name = nullptr;
    ASSERT_EQ(S_OK, writerState->GetFileName(&name));
    EXPECT_EQ(path, std::wstring(name)) << "the path came from the File Writer";
    CoTaskMemFree(name);
    const ULONG videoStream = 0, audioStream = hasVideo ? 1 : 0;
    if (hasVideo) {
        const QVNAVIStreamState s = StreamState(videoStream);
        EXPECT_EQ(static_cast<ULONG>(c.frames), s.chunksWritten);
        EXPECT_EQ(0u, s.repeatsWritten);
        EXPECT_EQ(0, s.pin);
    }
    if (hasAudio) {
        const QVNAVIStreamState s = StreamState(audioStream);
        EXPECT_EQ(static_cast<ULONG>(c.blocks), s.chunksWritten);
        EXPECT_EQ(expectedAudio.size(), s.bytesWritten);
        EXPECT_EQ(hasVideo ? 1 : 0, s.pin);
    }

    // The connection formats the file must carry.
    AM_MEDIA_TYPE videoMt{}, audioMt{};
    std::vector<BYTE> bitmapHeader, waveFormat;
    if (hasVideo) {
        ASSERT_EQ(S_OK, mux->InputPin(0)->ConnectionMediaType(&videoMt));
        const auto* vih = reinterpret_cast<const VIDEOINFOHEADER*>(videoMt.pbFormat);
        bitmapHeader.assign(reinterpret_cast<const BYTE*>(&vih->bmiHeader),
                            reinterpret_cast<const BYTE*>(&vih->bmiHeader) + sizeof(BITMAPINFOHEADER));
        FreeMediaType(videoMt);
    }
    if (hasAudio) {
        ASSERT_EQ(S_OK, mux->InputPin(hasVideo ? 1 : 0)->ConnectionMediaType(&audioMt));
        const auto* wave = reinterpret_cast<const WAVEFORMATEX*>(audioMt.pbFormat);
        const size_t size =
            wave->wFormatTag == WAVE_FORMAT_EXTENSIBLE ? sizeof(WAVEFORMATEXTENSIBLE) : sizeof(WAVEFORMATEX);
        waveFormat.assign(audioMt.pbFormat, audioMt.pbFormat + size);
        FreeMediaType(audioMt);
    }

    // 1. Our own RIFF walk: headers, formats, and every idx1 entry's payload.
    const qvn_test::RiffFile riff = qvn_test::WalkRiff(path);
    ASSERT_TRUE(riff.valid) << riff.problem;
    EXPECT_EQ(streams, riff.avihStreams);
    ASSERT_EQ(streams, riff.streams.size());
    if (hasVideo) {
        EXPECT_EQ(static_cast<std::uint32_t>(c.frames), riff.avihFrames);
        EXPECT_EQ(bitmapHeader, riff.streams[videoStream].format);
        const auto entries = riff.Entries(videoStream);
        ASSERT_EQ(static_cast<size_t>(c.frames), entries.size());
        for (int k = 0; k < c.frames; ++k) {
            ASSERT_EQ(Frame(k, frameBytes), entries[static_cast<size_t>(k)]->payload) << "frame " << k;
        }
    }
    if (hasAudio) {
        EXPECT_EQ(waveFormat, riff.streams[audioStream].format);
        std::vector<BYTE> all;
        for (const auto* entry : riff.Entries(audioStream)) {
            all.insert(all.end(), entry->payload.begin(), entry->payload.end());
        }
        EXPECT_TRUE(all == expectedAudio) << "audio bytes through idx1";
    }

    // 2. The platform's AVIFile API. Wine's cannot open an audio-only file: the design leaves avih zero but
    // for the stream count, so without AVIF_HASINDEX it scans the movi list for chunks and gives up at the
    // JUNK padding (AVIERR_BADFORMAT). ffprobe and the splitter read those files.
    const qvn_test::AviFileRead avifile = qvn_test::ReadWithAviFile(path);
    if (!hasVideo) {
        printf("AVIFile API skipped for an audio-only file (answered 0x%08lx)\n",
               static_cast<unsigned long>(avifile.openResult));
    } else {
        ASSERT_EQ(S_OK, avifile.openResult);
    }
    if (hasVideo) {
        ASSERT_EQ(streams, avifile.streams);
    }
    if (hasVideo) {
        const qvn_test::AviFileStream& s = avifile.stream[videoStream];
        EXPECT_EQ(MAKEFOURCC('v', 'i', 'd', 's'), s.fccType);
        EXPECT_EQ(c.rate, s.rate);
        EXPECT_EQ(c.scale, s.scale);
        EXPECT_EQ(c.frames, s.streamLength);
        EXPECT_EQ(bitmapHeader, s.format);
        ASSERT_EQ(static_cast<size_t>(c.frames), s.frames.size());
        for (int k = 0; k < c.frames; ++k) {
            ASSERT_EQ(Frame(k, frameBytes), s.frames[static_cast<size_t>(k)])
                << "AVIStreamRead of frame " << k;
        }
    }
    if (hasAudio && hasVideo) {
        const qvn_test::AviFileStream& s = avifile.stream[audioStream];
        EXPECT_EQ(MAKEFOURCC('a', 'u', 'd', 's'), s.fccType);
        EXPECT_EQ(c.sampleRate, s.rate);
        EXPECT_EQ(1u, s.scale);
        EXPECT_EQ(totalSamples, s.streamLength);
        EXPECT_EQ(waveFormat, s.format);
        EXPECT_TRUE(s.samples == expectedAudio) << "AVIStreamRead of every sample";
    }

    // 3. The platform's AVI splitter in a playback graph.
    const qvn_test::PlaybackRead played = qvn_test::PlayWithAviSplitter(path);
    ASSERT_EQ(S_OK, played.result) << played.problem;
    ASSERT_EQ(streams, played.streams.size());
    for (const qvn_test::PlaybackStream& s : played.streams) {
        std::vector<BYTE> all;
        for (const qvn_test::ReceivedSample& sample : s.samples) {
            all.insert(all.end(), sample.bytes.begin(), sample.bytes.end());
        }
        if (IsEqualGUID(s.majortype, MEDIATYPE_Video)) {
            EXPECT_EQ(static_cast<size_t>(c.frames), s.samples.size());
            EXPECT_TRUE(all == expectedVideo) << "the splitter's video samples";
        } else {
            EXPECT_TRUE(all == expectedAudio) << "the splitter's audio samples";
        }
        EXPECT_EQ(1, s.endOfStreams);
    }

    std::string pts;
    for (int k = 0; k < c.frames; ++k) {
        pts += (k == 0 ? "" : " ") + std::to_string(k);
    }
    std::string lines = "name=" + std::string(c.name) + "\nvideo_frames=" + std::to_string(c.frames) +
                        "\nvideo_pts=\"" + pts + "\"" + "\nwidth=" + std::to_string(c.width) +
                        "\nheight=" + std::to_string(c.height) + "\nvideo_rate=" + std::to_string(c.rate) +
                        "/" + std::to_string(c.scale) + "\naudio_samples=" + std::to_string(totalSamples) +
                        "\nchannels=" + std::to_string(c.channels) +
                        "\nsample_rate=" + std::to_string(c.sampleRate) + "\naudio_format=s" +
                        std::to_string(c.bits) + "le\n";
    WriteExpectation(base, lines, expectedVideo, expectedAudio);
}

INSTANTIATE_TEST_SUITE_P(
    Files, MuxFileTest,
    ::testing::Values(FileCase{"small_stereo16", 64, 8, kFrame, 30000, 1001, 90, 2, 48000, 16, 1601, 60},
                      FileCase{"sd_5_1", 720, 480, 400000, 25, 1, 40, 6, 48000, 16, 1920, 40},
                      FileCase{"video_only_24", 64, 8, 416667, 24, 1, 48, 0, 0, 0, 0, 0},
                      FileCase{"audio_only_24bit", 0, 0, 0, 0, 0, 0, 2, 44100, 24, 2205, 20}),
    [](const ::testing::TestParamInfo<FileCase>& p) { return std::string(p.param.name); });

// ---------------------------------------------------------------------------------------------------------
// Gaps in the video stamps become repeat entries pointing at the previous frame.

struct GapCase {
    const char* name;
    REFERENCE_TIME gap; // between frame 2's stop and frame 3's start
    int repeats;
};

class MuxGapTest : public MuxTest, public ::testing::WithParamInterface<GapCase> {};

TEST_P(MuxGapTest, RepeatEntriesPointAtThePreviousFrame) {
    const GapCase& c = GetParam();
    ConnectOutput();
    AddScripted({0, kFrame, 2 * kFrame, 3 * kFrame + c.gap, 4 * kFrame + c.gap});
    ASSERT_FALSE(HasFatalFailure());
    const std::wstring base = OutDir() + L"\\gap_" + std::wstring(c.name, c.name + strlen(c.name));
    SetFile(base + L".avi");
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    ASSERT_TRUE(Has(EventsUntil(EC_COMPLETE), EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    EXPECT_EQ(30, script->requested.cBuffers) << "the multiplexer's requirements reach the upstream pin";
    EXPECT_EQ(4096, script->requested.cbAlign);
    // (The platform's memory allocator aligns its block, not each buffer: alignment is not checked here.)
    EXPECT_EQ(static_cast<ULONG>(c.repeats), StreamState(0).repeatsWritten);
    EXPECT_EQ(5u, StreamState(0).chunksWritten);

    // Expected index: frames 0, 1, 2, then 2 repeated, then 3, 4.
    std::vector<int> order = {0, 1, 2};
    order.insert(order.end(), static_cast<size_t>(c.repeats), 2);
    order.push_back(3);
    order.push_back(4);
    const qvn_test::RiffFile riff = qvn_test::WalkRiff(base + L".avi");
    ASSERT_TRUE(riff.valid) << riff.problem;
    const auto entries = riff.Entries(0);
    ASSERT_EQ(order.size(), entries.size());
    std::vector<BYTE> expectedVideo;
    std::string pts;
    for (size_t i = 0; i < order.size(); ++i) {
        EXPECT_EQ(order[i], FrameNumber(entries[i]->payload)) << "entry " << i;
        if (i > 0 && order[i] == order[i - 1]) {
            EXPECT_EQ(entries[i - 1]->offset, entries[i]->offset) << "a repeat points at the previous chunk";
        } else if (i > 0) {
            EXPECT_NE(entries[i - 1]->offset, entries[i]->offset);
        }
        if (i == 0 || order[i] != order[i - 1]) {
            // ffmpeg's reading: each chunk once, at the time of its first index entry.
            const std::vector<BYTE> frame = Frame(order[i], 64 * 8 * 2);
            expectedVideo.insert(expectedVideo.end(), frame.begin(), frame.end());
            pts += (i == 0 ? "" : " ") + std::to_string(i);
        }
    }
    EXPECT_EQ(order.size(), riff.avihFrames);
    const qvn_test::AviFileRead avifile = qvn_test::ReadWithAviFile(base + L".avi");
    ASSERT_EQ(S_OK, avifile.openResult);
    ASSERT_EQ(1u, avifile.streams);
    EXPECT_EQ(static_cast<LONG>(order.size()), avifile.stream[0].streamLength);
    for (size_t i = 0; i < avifile.stream[0].frames.size() && i < order.size(); ++i) {
        EXPECT_EQ(order[i], FrameNumber(avifile.stream[0].frames[i])) << "AVIStreamRead of entry " << i;
    }
    const std::string lines = std::string("name=gap_") + c.name +
                              "\nvideo_frames=" + std::to_string(order.size()) + "\nvideo_pts=\"" + pts +
                              "\"\nwidth=64\nheight=8\nvideo_rate=30000/1001\naudio_samples=0\nchannels=0\n"
                              "sample_rate=0\naudio_format=none\n";
    WriteExpectation(base, lines, expectedVideo, {});
}

INSTANTIATE_TEST_SUITE_P(Gaps, MuxGapTest,
                         ::testing::Values(GapCase{"three_frames", 3 * kFrame, 3},
                                           GapCase{"three_frames_and_a_bit", 3 * kFrame + 5, 3},
                                           GapCase{"just_under_three", 3 * kFrame - 1, 2},
                                           GapCase{"ten_units", 10, 0}, GapCase{"eleven_units", 11, 0},
                                           GapCase{"none", 0, 0}),
                         [](const ::testing::TestParamInfo<GapCase>& p) {
                             return std::string(p.param.name);
                         });

// ---------------------------------------------------------------------------------------------------------
// The input pin's own stream control, on six frames stamped k x kFrame.

struct ControlCase {
    const char* name;
    std::function<void(IAMStreamControl*)> setup;
    AM_STREAM_INFO info;         // GetInfo after the setup
    std::vector<int> written;    // the frames that reach the file
    std::vector<Event> expected; // stream-control events (p1 is checked to be the pin)
};

class MuxControlTest : public MuxTest, public ::testing::WithParamInterface<ControlCase> {};

TEST_P(MuxControlTest, GatesSamplesAndSendsEachEventOnce) {
    const ControlCase& c = GetParam();
    ConnectOutput();
    AddScripted({0, kFrame, 2 * kFrame, 3 * kFrame, 4 * kFrame, 5 * kFrame});
    ASSERT_FALSE(HasFatalFailure());
    CAVIInputPin* pin = mux->InputPin(0);
    IAMStreamControl* pinControl = Query<IAMStreamControl>(static_cast<IPin*>(pin), IID_IAMStreamControl);
    ASSERT_NE(nullptr, pinControl);
    c.setup(pinControl);
    AM_STREAM_INFO info{};
    ASSERT_EQ(S_OK, pinControl->GetInfo(&info));
    pinControl->Release();
    EXPECT_EQ(0, memcmp(&c.info, &info, sizeof(info))) << "flags " << info.dwFlags;
    const std::wstring path =
        OutDir() + L"\\control_" + std::wstring(c.name, c.name + strlen(c.name)) + L".avi";
    SetFile(path);
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    const std::vector<Event> seen = EventsUntil(EC_COMPLETE);
    ASSERT_TRUE(Has(seen, EC_COMPLETE));
    ASSERT_EQ(S_OK, control->Stop());
    std::vector<Event> got;
    for (const Event& e : seen) {
        if (e.code == EC_STREAM_CONTROL_STARTED || e.code == EC_STREAM_CONTROL_STOPPED) {
            EXPECT_EQ(reinterpret_cast<LONG_PTR>(static_cast<IPin*>(pin)), e.p1) << "the event names the pin";
            got.push_back(e);
        }
    }
    ASSERT_EQ(c.expected.size(), got.size());
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_EQ(c.expected[i].code, got[i].code) << "event " << i;
        EXPECT_EQ(c.expected[i].p2, got[i].p2) << "cookie of event " << i;
    }
    const qvn_test::RiffFile riff = qvn_test::WalkRiff(path);
    ASSERT_TRUE(riff.valid) << riff.problem;
    std::vector<int> written;
    for (const auto* entry : riff.Entries(0)) {
        written.push_back(FrameNumber(entry->payload));
    }
    EXPECT_EQ(c.written, written);
}

const REFERENCE_TIME kTwo = 2 * kFrame, kThree = 3 * kFrame, kZero = 0, kMax = kNoTime;

INSTANTIATE_TEST_SUITE_P(
    Control, MuxControlTest,
    ::testing::Values(ControlCase{"null_start_removes_the_start_gate",
                                  [](IAMStreamControl* s) {
                                      s->StartAt(&kThree, 4);
                                      s->StartAt(nullptr, 0);
                                  },
                                  {kThree, 0, 4, 0, 0},
                                  {0, 1, 2, 3, 4, 5},
                                  {}},
                      ControlCase{"start_time_drops_samples_ending_at_it",
                                  [](IAMStreamControl* s) { s->StartAt(&kTwo, 7); },
                                  {kTwo, 0, 7, 0, 1},
                                  {2, 3, 4, 5},
                                  {{EC_STREAM_CONTROL_STARTED, 0, 7}}},
                      ControlCase{"stop_sends_one_stopped_for_two_late_samples",
                                  [](IAMStreamControl* s) {
                                      s->StartAt(&kZero, 3);
                                      s->StopAt(&kThree, FALSE, 9);
                                  },
                                  {0, kThree, 3, 9, 1 | 2},
                                  {0, 1, 2, 3},
                                  {{EC_STREAM_CONTROL_STARTED, 0, 3}, {EC_STREAM_CONTROL_STOPPED, 0, 9}}},
                      ControlCase{"stop_without_start_drops_silently",
                                  [](IAMStreamControl* s) { s->StopAt(&kTwo, TRUE, 4); },
                                  {0, kTwo, 0, 4, 2 | 16},
                                  {0, 1, 2},
                                  {}},
                      ControlCase{"stop_at_max_removes_the_stop_gate",
                                  [](IAMStreamControl* s) {
                                      s->StopAt(&kTwo, TRUE, 4);
                                      s->StopAt(&kMax, FALSE, 5);
                                  },
                                  {0, kTwo, 0, 4, 16},
                                  {0, 1, 2, 3, 4, 5},
                                  {}}),
    [](const ::testing::TestParamInfo<ControlCase>& p) { return std::string(p.param.name); });

// ---------------------------------------------------------------------------------------------------------
// Opening without streams, opening again, and failures.

TEST_F(MuxTest, NoConnectedInputOpensAFileWithNoStreamsAndEachRunOpensAgain) {
    ConnectOutput();
    for (int run = 0; run < 2; ++run) {
        const std::wstring path = OutDir() + L"\\no_streams_" + std::to_wstring(run) + L".avi";
        SetFile(path);
        ASSERT_TRUE(SUCCEEDED(control->Run()));
        const QVNAVIWriterState state = State();
        EXPECT_TRUE(state.fileOpen);
        EXPECT_EQ(0u, state.streams);
        ASSERT_EQ(S_OK, control->Stop());
        EXPECT_FALSE(State().fileOpen);
        const qvn_test::RiffFile riff = qvn_test::WalkRiff(path);
        ASSERT_TRUE(riff.valid) << riff.problem;
        EXPECT_EQ(0u, riff.avihStreams);
        EXPECT_TRUE(riff.streams.empty());
        EXPECT_TRUE(riff.idx1.empty());
        const qvn_test::AviFileRead avifile = qvn_test::ReadWithAviFile(path);
        if (SUCCEEDED(avifile.openResult)) {
            EXPECT_EQ(0u, avifile.streams);
        }
    }
}

struct OpenFailureCase {
    const char* name;
    std::function<std::wstring()> makePath; // prepares the file system, answers the File Writer's name
    HRESULT expected;                       // 0: any failure
};

class MuxOpenFailureTest : public MuxTest, public ::testing::WithParamInterface<OpenFailureCase> {};

TEST_P(MuxOpenFailureTest, TheGraphFailsToRunAndKeepsNoFile) {
    const OpenFailureCase& c = GetParam();
    ConnectOutput();
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
    // Wine's graph stays stopped after a failed pause, so its Stop stops nothing, while the filters that
    // did pause (the source, its streaming thread running) stay paused, and releasing the graph would
    // hang in the source: a caller stops every filter itself after a failed Run.
    EXPECT_EQ(S_OK, video->Stop());
    EXPECT_EQ(S_OK, muxFilter->Stop());
    EXPECT_EQ(S_OK, fileWriter->Stop());
    LPOLESTR name = nullptr;
    ASSERT_EQ(S_OK, writerState->GetFileName(&name));
    EXPECT_EQ(path, std::wstring(name));
    CoTaskMemFree(name);
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
    ConnectOutput();
    AddVideo(720, 480, 400000);
    ASSERT_FALSE(HasFatalFailure());
    SetFile(OutDir() + L"\\write_failure.avi");
    ASSERT_EQ(S_OK, video->Pin()->AllocateBuffers());
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    const DWORD frameBytes = 720 * 480 * 2;
    const int frames = static_cast<int>(limitBytes / frameBytes) * 3 + 10;
    std::thread producer([&] {
        Produce(video->Pin(), frames, [&](int k, BYTE* buffer) {
            memset(buffer, k, frameBytes);
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
    printf("write failure: 0x%08lx after %lu frames\n", static_cast<unsigned long>(state.error),
           StreamState(0).chunksWritten);
}

} // namespace
