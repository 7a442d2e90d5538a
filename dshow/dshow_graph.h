// The state and logic behind CDShowEncoder: one filter graph per export, built from our video and audio
// sources, a Smart Tee, an optional compressor chain, our AVI multiplexer and a File Writer, with Null
// Renderers ending the branches that are not written. Every operation answers an HRESULT; CDShowEncoder
// turns failures into the encoder's 99.
#pragma once

#include <string>
#include <vector>

#include "dshow/base/media_type.h"
#include "encoders/audio_steps.h"
#include "encoders/frame_sink.h"

class CVideoSource;
class CAudioSource;
class CSampleGrabberFilter;

// The card family's Motion JPEG compressor (its own COM server, created by class identifier).
extern "C" const CLSID CLSID_QVNMotionJpegCompressor;

class CDShowGraph {
public:
    // Option bits of Initialise, for the DV codes only: shift the frame geometry in front of the DV
    // encoder; fix the encoded stream behind it.
    static constexpr DWORD kOptionFrameShift = 2;
    static constexpr DWORD kOptionDvPostProcess = 4;
    // Finish waits at least 50 s (5 ms a try) for the graph to complete.
    static constexpr int kCompletionTries = 10000;

    CDShowGraph() = default;
    ~CDShowGraph();
    CDShowGraph(const CDShowGraph&) = delete;
    CDShowGraph& operator=(const CDShowGraph&) = delete;

    // Builds the graph: video wired through the Smart Tee (and the compressor chain the target's code
    // asks for) to the multiplexer, audio to its Null Renderer, the video frame buffers allocated. The
    // first failing step ends it; what was built stays for the destructor. E_POINTER for a missing format.
    HRESULT Initialise(const BITMAPINFOHEADER* sourceFormat, const BITMAPINFOHEADER* targetFormat,
                       DWORD options, DWORD rate, DWORD scale, BYTE bufferCount, DWORD bufferSize,
                       IFrameSink* sink);
    HRESULT GetFreeBuffers(std::vector<void*>& buffers);
    HRESULT ReclaimBuffers(std::vector<void*>& buffers);
    HRESULT SetAudioFormat(WORD channels, DWORD samplesPerSecond, WORD bitsPerSample, SHORT formatTag);
    // Names the file, wires the branches that are written to the multiplexer, sets the stream controls so
    // that every stream ends after frameLimit frames, and runs the graph.
    HRESULT Open(DWORD hasVideo, DWORD hasAudio, DWORD frameLimit, const wchar_t* path);
    HRESULT WriteVideo(const void* buffer, DWORD size);
    HRESULT WriteAudio(const BYTE* samples, DWORD size);
    // Carries every stream past its stop time, waits for the graph to complete, stops it and patches the
    // file's video stream header.
    HRESULT Finish();
    // Ends both streams where they are, stops the graph and patches the header.
    HRESULT Close();
    HRESULT WritePixelAspect(LONG numerator, LONG denominator);
    DWORD AudioSamplesForFrames(DWORD frames) const;
    DWORD AudioSamplesForNextFrame(DWORD frames);
    HRESULT ReleaseSink();

    // The video stream header's quality (0 unless Motion JPEG), for the header patch and tests.
    double Quality() const { return quality_; }
    // The running-object-table registration (0 when not registered).
    DWORD RotCookie() const { return rotCookie_; }
    IGraphBuilder* Graph() const { return graph_; }

private:
    HRESULT CreateFilter(const CLSID& clsid, const wchar_t* name, IBaseFilter** filter);
    HRESULT AddOwnFilter(IBaseFilter* filter, const wchar_t* name);
    HRESULT RegisterInRunningObjectTable();
    HRESULT BuildVideoMediaType(DWORD rawScale, CMediaType* type) const;
    HRESULT BuildEncoderChain(const BITMAPINFOHEADER& target, DWORD options);
    HRESULT Rewire(DWORD hasVideo, DWORD hasAudio);
    // A Null Renderer that ends no branch leaves the graph before it runs: the platform's graph manager
    // may wait for every renderer's completion, and one without input never completes there.
    HRESULT RemoveIdleRenderers();
    HRESULT SetStreamControls(DWORD hasVideo, DWORD hasAudio, DWORD frameLimit);
    // After a run that failed part-way (the multiplexer could not open its file), some graph managers
    // leave the filters that did start running, and their own Stop stops nothing: each is stopped here.
    void StopEveryFilter();
    // Looks at the next graph event without waiting; an error event makes the write fail.
    HRESULT PollEvents();
    HRESULT PatchHeader();
    // A free audio buffer of the pin's pool, waiting while downstream holds all of them.
    HRESULT TakeAudioBuffer(BYTE** buffer, DWORD* capacity);

    IGraphBuilder* graph_ = nullptr;
    IMediaControl* control_ = nullptr;
    IMediaEvent* events_ = nullptr;
    CVideoSource* videoSource_ = nullptr;
    CAudioSource* audioSource_ = nullptr;
    IBaseFilter* encoderTail_ = nullptr;
    IBaseFilter* smartTee_ = nullptr;
    IBaseFilter* mux_ = nullptr;
    IBaseFilter* fileWriter_ = nullptr;
    CSampleGrabberFilter* sampleGrabber_ = nullptr;
    IBaseFilter* grabberRenderer_ = nullptr;
    IBaseFilter* videoRenderer_ = nullptr;
    IBaseFilter* audioRenderer_ = nullptr;
    DWORD rotCookie_ = 0;
    std::wstring path_;
    DWORD failed_ = 0;
    DWORD videoConnected_ = 1;
    DWORD audioConnected_ = 0;
    double quality_ = 0.0;
    DWORD rate_ = 0;
    DWORD scale_ = 1;
    BITMAPINFOHEADER sourceFormat_{};
    IFrameSink* sink_ = nullptr;
    LONG sampleRate_ = 0;
    QVN::CAudioSteps audioSteps_;

    // Beyond the graph's own state: the filters of the compressor chain (the tail among them), so that a
    // rewiring can take them all apart; the audio pool, which the producer's blocks are copied into;
    // whether this object initialised COM on the thread; and a completion seen by a write's event poll.
    std::vector<IBaseFilter*> chain_;
    std::vector<void*> audioFree_;
    bool comInitialised_ = false;
    bool completed_ = false; // the graph reported completion since it last ran
};
