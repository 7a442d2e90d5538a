#include "dshow/dshow_graph.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "dshow/audio_source.h"
#include "dshow/dv_post_process.h"
#include "dshow/frame_shift.h"
#include "dshow/graph_wiring.h"
#include "dshow/qvn_avi_writer.h"
#include "dshow/sample_grabber_filter.h"
#include "dshow/video_source.h"
#include "encoders/fourcc.h"
#include "encoders/pixel_aspect_record.h"
#include "platform/debug_output.h"
#include "platform/file.h"
#include "platform/text_encoding.h"

// {6C2F1A93-4D07-4B8E-9A61-3E5B2C7D0F18}
extern "C" const CLSID CLSID_QVNMotionJpegCompressor = {
    0x6C2F1A93, 0x4D07, 0x4B8E, {0x9A, 0x61, 0x3E, 0x5B, 0x2C, 0x7D, 0x0F, 0x18}};
// Declared by no platform header, though strmiids defines it.
extern "C" const CLSID CLSID_NullRenderer;

namespace {

using QVN::MakeFourCC;
using QVN::Graph::ConnectFilters;

// Events that end an export: the multiplexer's write failure, a stream that stopped on an error.
bool IsErrorEvent(long code) {
    return code == EC_ERRORABORT || code == EC_STREAM_ERROR_STOPPED;
}

template <class T> void ReleaseAndClear(T*& object) {
    if (object != nullptr) {
        object->Release();
        object = nullptr;
    }
}

template <class Interface> Interface* Query(IUnknown* object, REFIID iid) {
    Interface* result = nullptr;
    if (object == nullptr || FAILED(object->QueryInterface(iid, reinterpret_cast<void**>(&result)))) {
        return nullptr;
    }
    return result;
}

bool IsDv(DWORD code) {
    return code == MakeFourCC("dvsd") || code == MakeFourCC("pvsd") || code == MakeFourCC("nvsd");
}

bool IsMotionJpeg(DWORD code) {
    return code == MakeFourCC("MJPG") || code == MakeFourCC("GPJM");
}

// The media subtype of the frames the producer hands in; false for a layout the graph does not carry.
bool SourceSubtype(const BITMAPINFOHEADER& format, GUID* subtype) {
    const DWORD code = format.biCompression;
    if (code == BI_RGB && format.biBitCount == 24) {
        *subtype = MEDIASUBTYPE_RGB24;
        return true;
    }
    if (code == BI_RGB && format.biBitCount == 32) {
        *subtype = MEDIASUBTYPE_RGB32;
        return true;
    }
    const bool known = (code == MakeFourCC("UYVY") && format.biBitCount == 16) ||
                       (code == MakeFourCC("HDYC") && format.biBitCount == 16) ||
                       (code == MakeFourCC("v210") && format.biBitCount == 20) ||
                       (code == MakeFourCC("r210") && format.biBitCount == 30);
    if (!known) {
        return false;
    }
    // A FourCC subtype: the code in the first field of {xxxxxxxx-0000-0010-8000-00AA00389B71}.
    *subtype = MEDIASUBTYPE_PCM;
    subtype->Data1 = code;
    return true;
}

// Every stream control a graph filter offers has the same two calls: start at once, stop where asked.
HRESULT StartNowStopAt(IUnknown* pin, const REFERENCE_TIME* stop, BOOL sendExtra) {
    IAMStreamControl* control = Query<IAMStreamControl>(pin, IID_IAMStreamControl);
    if (control == nullptr) {
        return S_OK; // a compressor's output pin may have no stream control: its input is gated
    }
    HRESULT hr = control->StartAt(nullptr, 0);
    if (SUCCEEDED(hr)) {
        hr = control->StopAt(stop, sendExtra, 0);
    }
    control->Release();
    return hr;
}

} // namespace

CDShowGraph::~CDShowGraph() {
    if (control_ != nullptr) {
        control_->Stop();
    }
    if (rotCookie_ != 0) {
        IRunningObjectTable* table = nullptr;
        if (SUCCEEDED(GetRunningObjectTable(0, &table))) {
            table->Revoke(rotCookie_);
            table->Release();
        }
        rotCookie_ = 0;
    }
    if (sampleGrabber_ != nullptr) {
        sampleGrabber_->SetSink(nullptr, FALSE);
    }
    for (IBaseFilter*& filter : chain_) {
        ReleaseAndClear(filter);
    }
    ReleaseAndClear(encoderTail_);
    ReleaseAndClear(smartTee_);
    ReleaseAndClear(mux_);
    ReleaseAndClear(fileWriter_);
    ReleaseAndClear(sampleGrabber_);
    ReleaseAndClear(grabberRenderer_);
    ReleaseAndClear(videoRenderer_);
    ReleaseAndClear(audioRenderer_);
    ReleaseAndClear(videoSource_);
    ReleaseAndClear(audioSource_);
    ReleaseAndClear(events_);
    ReleaseAndClear(control_);
    ReleaseAndClear(graph_);
    ReleaseAndClear(sink_);
    if (comInitialised_) {
        CoUninitialize();
    }
}

HRESULT CDShowGraph::CreateFilter(const CLSID& clsid, const wchar_t* name, IBaseFilter** filter) {
    HRESULT hr = CoCreateInstance(clsid, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                  reinterpret_cast<void**>(filter));
    if (FAILED(hr)) {
        // The usual cause is a filter the machine lacks (an encoder whose software is not installed), which
        // the export's result alone cannot tell.
        wchar_t clsidText[40] = {};
        StringFromGUID2(clsid, clsidText, 40);
        char line[200];
        std::snprintf(line, sizeof line,
                      "QVNExport: the graph cannot create its \"%ls\" filter %ls: 0x%08lX\n", name, clsidText,
                      static_cast<unsigned long>(hr));
        QVN::DebugOutput(line);
        return hr;
    }
    return graph_->AddFilter(*filter, name);
}

HRESULT CDShowGraph::AddOwnFilter(IBaseFilter* filter, const wchar_t* name) {
    return filter == nullptr ? E_OUTOFMEMORY : graph_->AddFilter(filter, name);
}

HRESULT CDShowGraph::RegisterInRunningObjectTable() {
    wchar_t name[128];
    std::swprintf(name, 128, L"FilterGraph %08x pid %08x",
                  static_cast<unsigned>(reinterpret_cast<DWORD_PTR>(graph_) & 0xFFFFFFFFu),
                  static_cast<unsigned>(GetCurrentProcessId()));
    IRunningObjectTable* table = nullptr;
    HRESULT hr = GetRunningObjectTable(0, &table);
    if (FAILED(hr)) {
        return hr;
    }
    IMoniker* moniker = nullptr;
    hr = CreateItemMoniker(L"!", name, &moniker);
    if (SUCCEEDED(hr)) {
        hr = table->Register(ROTFLAGS_REGISTRATIONKEEPSALIVE, graph_, moniker, &rotCookie_);
        moniker->Release();
    }
    table->Release();
    return hr;
}

HRESULT CDShowGraph::BuildVideoMediaType(DWORD rawScale, CMediaType* type) const {
    GUID subtype{};
    if (!SourceSubtype(sourceFormat_, &subtype)) {
        return E_FAIL;
    }
    VIDEOINFOHEADER format{};
    // Rounded half up, with the scale as given (so a scale of 0 gives 0, which the pin refuses).
    const LONGLONG scaled = static_cast<LONGLONG>(rawScale) * 10000000;
    format.AvgTimePerFrame = rate_ == 0 ? 0 : (scaled + rate_ / 2) / rate_;
    format.bmiHeader = sourceFormat_;
    type->InitMediaType();
    type->SetType(&MEDIATYPE_Video);
    type->SetSubtype(&subtype);
    type->SetFormatType(&FORMAT_VideoInfo);
    type->SetVariableSize();
    type->SetTemporalCompression(FALSE);
    type->SetSampleSize(0);
    return type->SetFormat(reinterpret_cast<BYTE*>(&format), sizeof(format)) ? S_OK : E_OUTOFMEMORY;
}

HRESULT CDShowGraph::Initialise(const BITMAPINFOHEADER* sourceFormat, const BITMAPINFOHEADER* targetFormat,
                                DWORD options, DWORD rate, DWORD scale, BYTE bufferCount, DWORD bufferSize,
                                IFrameSink* sink) {
    if (sourceFormat == nullptr || targetFormat == nullptr) {
        return E_POINTER;
    }
    // The host's export thread may not have COM yet; an apartment it already has is kept.
    comInitialised_ = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));

    // 1. The graph, without a reference clock: samples flow as fast as the filters take them.
    HRESULT hr = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_ALL, IID_IGraphBuilder,
                                  reinterpret_cast<void**>(&graph_));
    if (FAILED(hr)) {
        return hr;
    }
    IMediaFilter* mediaFilter = Query<IMediaFilter>(graph_, IID_IMediaFilter);
    if (mediaFilter == nullptr) {
        return E_NOINTERFACE;
    }
    hr = mediaFilter->SetSyncSource(nullptr);
    mediaFilter->Release();
    // 2, 3. Visible to graph viewers; control and events.
    if (SUCCEEDED(hr)) {
        hr = RegisterInRunningObjectTable();
    }
    if (SUCCEEDED(hr)) {
        hr = graph_->QueryInterface(IID_IMediaControl, reinterpret_cast<void**>(&control_));
    }
    if (SUCCEEDED(hr)) {
        hr = graph_->QueryInterface(IID_IMediaEvent, reinterpret_cast<void**>(&events_));
    }
    // 4, 5. The filters every export has.
    if (SUCCEEDED(hr)) {
        videoSource_ = new (std::nothrow) CVideoSource(&hr);
        if (videoSource_ != nullptr) {
            videoSource_->AddRef();
        }
        if (SUCCEEDED(hr)) {
            hr = AddOwnFilter(videoSource_, L"Video Frame Source");
        }
    }
    if (SUCCEEDED(hr)) {
        audioSource_ = new (std::nothrow) CAudioSource(&hr);
        if (audioSource_ != nullptr) {
            audioSource_->AddRef();
        }
        if (SUCCEEDED(hr)) {
            hr = AddOwnFilter(audioSource_, L"Audio Frame Source");
        }
    }
    if (SUCCEEDED(hr)) {
        hr = CreateFilter(CLSID_SmartTee, L"Smart Tee", &smartTee_);
    }
    if (SUCCEEDED(hr)) {
        CUnknown* mux = CQVNAVIWriter::CreateInstance(nullptr, &hr);
        if (mux != nullptr && SUCCEEDED(hr)) {
            hr = mux->NonDelegatingQueryInterface(IID_IBaseFilter, reinterpret_cast<void**>(&mux_));
        } else if (mux != nullptr) {
            delete mux;
        } else if (SUCCEEDED(hr)) {
            hr = E_OUTOFMEMORY;
        }
        if (SUCCEEDED(hr)) {
            hr = graph_->AddFilter(mux_, L"AVI Mux");
        }
    }
    if (SUCCEEDED(hr)) {
        hr = CreateFilter(CLSID_FileWriter, L"File writer", &fileWriter_);
    }
    if (SUCCEEDED(hr)) {
        hr = CreateFilter(CLSID_NullRenderer, L"Null Renderer (Video)", &videoRenderer_);
    }
    if (SUCCEEDED(hr)) {
        hr = CreateFilter(CLSID_NullRenderer, L"Null Renderer (Audio)", &audioRenderer_);
    }
    if (FAILED(hr)) {
        return hr;
    }

    // 6. The frames' type.
    rate_ = rate;
    scale_ = scale == 0 ? 1 : scale;
    sourceFormat_ = *sourceFormat;
    if (sink != nullptr) {
        sink->AddRef();
    }
    sink_ = sink;
    CMediaType videoType;
    hr = BuildVideoMediaType(scale, &videoType);
    if (SUCCEEDED(hr)) {
        hr = videoSource_->Pin()->SetStreamMediaType(&videoType);
    }
    // 7. The producer's buffer count and size win over the pin's own choice.
    if (SUCCEEDED(hr)) {
        IAMBufferNegotiation* negotiation =
            Query<IAMBufferNegotiation>(static_cast<IPin*>(videoSource_->Pin()), IID_IAMBufferNegotiation);
        if (negotiation == nullptr) {
            return E_NOINTERFACE;
        }
        const ALLOCATOR_PROPERTIES suggested{bufferCount, static_cast<LONG>(bufferSize), -1, -1};
        hr = negotiation->SuggestAllocatorProperties(&suggested);
        negotiation->Release();
    }
    // 8. The preview branch, only for a caller that watches the frames.
    if (SUCCEEDED(hr) && sink_ != nullptr) {
        sampleGrabber_ = new (std::nothrow) CSampleGrabberFilter(nullptr, &hr);
        if (sampleGrabber_ != nullptr) {
            sampleGrabber_->AddRef();
        }
        if (SUCCEEDED(hr)) {
            hr = AddOwnFilter(sampleGrabber_, L"Sample Grabber");
        }
        if (SUCCEEDED(hr)) {
            hr = CreateFilter(CLSID_NullRenderer, L"Null Renderer (Sample Grabber)", &grabberRenderer_);
        }
        if (SUCCEEDED(hr)) {
            hr = sampleGrabber_->SetAcceptedMediaType(&videoType);
        }
    }
    // 9-13. The wiring.
    if (SUCCEEDED(hr)) {
        hr = ConnectFilters(graph_, videoSource_, nullptr, smartTee_, nullptr);
    }
    if (SUCCEEDED(hr) && sampleGrabber_ != nullptr) {
        hr = ConnectFilters(graph_, smartTee_, L"Preview", sampleGrabber_, nullptr);
        if (SUCCEEDED(hr)) {
            hr = ConnectFilters(graph_, sampleGrabber_, nullptr, grabberRenderer_, nullptr);
        }
    }
    if (SUCCEEDED(hr)) {
        hr = BuildEncoderChain(*targetFormat, options);
    }
    if (SUCCEEDED(hr)) {
        hr = ConnectFilters(graph_, audioSource_, nullptr, audioRenderer_, nullptr);
    }
    if (SUCCEEDED(hr)) {
        hr = ConnectFilters(graph_, mux_, nullptr, fileWriter_, nullptr);
    }
    // 14. The frame buffers the producer renders into.
    if (SUCCEEDED(hr)) {
        hr = videoSource_->Pin()->AllocateBuffers();
    }
    return hr;
}

HRESULT CDShowGraph::BuildEncoderChain(const BITMAPINFOHEADER& target, DWORD options) {
    HRESULT hr = S_OK;
    IBaseFilter* encoder = nullptr;
    if (IsDv(target.biCompression)) {
        hr = CreateFilter(CLSID_DVVideoEnc, L"DV encoder", &encoder);
        if (encoder != nullptr) {
            chain_.push_back(encoder);
        }
        if (FAILED(hr)) {
            return hr;
        }
        encoder->AddRef();
        encoderTail_ = encoder;
        if (IDVEnc* dv = Query<IDVEnc>(encoder, IID_IDVEnc)) {
            const int videoFormat =
                target.biHeight == 576 ? DVENCODERVIDEOFORMAT_PAL : DVENCODERVIDEOFORMAT_NTSC;
            hr = dv->put_IFormatResolution(videoFormat, DVENCODERFORMAT_DVSD, DVENCODERRESOLUTION_720x480,
                                           FALSE, nullptr);
            dv->Release();
        }
        if (SUCCEEDED(hr) && (options & kOptionFrameShift) != 0) {
            auto* shift = new (std::nothrow) CFrameShift(nullptr, &hr);
            IBaseFilter* shiftFilter = shift;
            if (shiftFilter != nullptr) {
                shiftFilter->AddRef();
                chain_.push_back(shiftFilter);
            }
            if (SUCCEEDED(hr)) {
                hr = AddOwnFilter(shiftFilter, L"Frame Shift");
            }
            if (SUCCEEDED(hr)) {
                hr = ConnectFilters(graph_, smartTee_, L"Capture", shiftFilter, nullptr);
            }
            if (SUCCEEDED(hr)) {
                hr = ConnectFilters(graph_, shiftFilter, nullptr, encoder, nullptr);
            }
        } else if (SUCCEEDED(hr)) {
            hr = ConnectFilters(graph_, smartTee_, L"Capture", encoder, nullptr);
        }
        if (SUCCEEDED(hr) && (options & kOptionDvPostProcess) != 0) {
            auto* post = new (std::nothrow) CDVPostProcess(nullptr, &hr);
            IBaseFilter* postFilter = post;
            if (postFilter != nullptr) {
                postFilter->AddRef();
                chain_.push_back(postFilter);
            }
            if (SUCCEEDED(hr)) {
                hr = AddOwnFilter(postFilter, L"DV Post Process");
            }
            if (SUCCEEDED(hr)) {
                hr = ConnectFilters(graph_, encoder, nullptr, postFilter, nullptr);
            }
            if (SUCCEEDED(hr)) {
                postFilter->AddRef();
                encoderTail_->Release();
                encoderTail_ = postFilter;
            }
        }
    } else if (IsMotionJpeg(target.biCompression)) {
        hr = CreateFilter(CLSID_QVNMotionJpegCompressor, L"MJPEG encoder", &encoder);
        if (encoder != nullptr) {
            chain_.push_back(encoder);
        }
        if (FAILED(hr)) {
            return hr;
        }
        encoder->AddRef();
        encoderTail_ = encoder;
        // Wide frames carry more detail per byte; the stream header records what was asked for.
        quality_ = target.biWidth >= 1000 ? 0.9 : 0.98;
        if (IAMVideoCompression* compression = Query<IAMVideoCompression>(encoder, IID_IAMVideoCompression)) {
            hr = compression->put_Quality(quality_);
            compression->Release();
        }
        if (SUCCEEDED(hr)) {
            hr = ConnectFilters(graph_, smartTee_, L"Capture", encoder, nullptr);
        }
    }
    if (FAILED(hr)) {
        return hr;
    }
    if (encoderTail_ != nullptr) {
        return ConnectFilters(graph_, encoderTail_, nullptr, mux_, nullptr);
    }
    return ConnectFilters(graph_, smartTee_, L"Capture", mux_, nullptr);
}

HRESULT CDShowGraph::GetFreeBuffers(std::vector<void*>& buffers) {
    if (videoSource_ == nullptr) {
        buffers.clear();
        return S_OK;
    }
    return videoSource_->Pin()->GetFreeBuffers(buffers);
}

HRESULT CDShowGraph::ReclaimBuffers(std::vector<void*>& buffers) {
    return videoSource_ == nullptr ? E_NOINTERFACE : videoSource_->Pin()->ReclaimBuffers(buffers);
}

HRESULT CDShowGraph::SetAudioFormat(WORD channels, DWORD samplesPerSecond, WORD bitsPerSample,
                                    SHORT formatTag) {
    if (audioSource_ == nullptr) {
        return E_UNEXPECTED;
    }
    if (channels < 2) {
        channels = 1;
    }
    const HRESULT hr =
        audioSource_->Pin()->SetAudioFormat(channels, samplesPerSecond, bitsPerSample, formatTag);
    if (SUCCEEDED(hr)) {
        sampleRate_ = static_cast<LONG>(samplesPerSecond);
    }
    return hr;
}

HRESULT CDShowGraph::Rewire(DWORD hasVideo, DWORD hasAudio) {
    HRESULT hr = S_OK;
    if (hasVideo != videoConnected_) {
        videoConnected_ = hasVideo;
        QVN::Graph::DisconnectBelow(graph_, smartTee_, L"Capture");
        for (IBaseFilter* filter : chain_) {
            QVN::Graph::DisconnectFilter(graph_, filter);
        }
        if (hasVideo != 0 && encoderTail_ != nullptr) {
            // Only the tail rejoins; the rest of the chain stays out.
            hr = ConnectFilters(graph_, smartTee_, L"Capture", encoderTail_, nullptr);
            if (SUCCEEDED(hr)) {
                hr = ConnectFilters(graph_, encoderTail_, nullptr, mux_, nullptr);
            }
        } else if (hasVideo != 0) {
            hr = ConnectFilters(graph_, smartTee_, L"Capture", mux_, nullptr);
        } else {
            hr = ConnectFilters(graph_, smartTee_, L"Capture", videoRenderer_, nullptr);
        }
        if (FAILED(hr)) {
            return hr;
        }
    }
    if (hasAudio != audioConnected_) {
        audioConnected_ = hasAudio;
        QVN::Graph::DisconnectFilter(graph_, audioSource_);
        hr = ConnectFilters(graph_, audioSource_, nullptr, hasAudio != 0 ? mux_ : audioRenderer_, nullptr);
    }
    return hr;
}

HRESULT CDShowGraph::RemoveIdleRenderers() {
    for (IBaseFilter** renderer : {&videoRenderer_, &audioRenderer_}) {
        if (*renderer == nullptr) {
            continue;
        }
        IPin* input = QVN::Graph::FindPin(*renderer, nullptr, PINDIR_INPUT);
        if (input == nullptr) {
            continue; // its input is connected: it ends a branch
        }
        input->Release();
        const HRESULT hr = graph_->RemoveFilter(*renderer);
        if (FAILED(hr)) {
            return hr;
        }
        ReleaseAndClear(*renderer);
    }
    return S_OK;
}

HRESULT CDShowGraph::SetStreamControls(DWORD hasVideo, DWORD hasAudio, DWORD frameLimit) {
    // Without a limit every stream stops at once (nothing is to be written); a limit read as negative
    // means no stop at all; otherwise the last frame to write starts at the stop time.
    REFERENCE_TIME stopTime = MAXLONGLONG;
    const REFERENCE_TIME* stop = nullptr;
    if (static_cast<LONG>(frameLimit) < 0) {
        stop = &stopTime;
    } else if (frameLimit > 0) {
        AM_MEDIA_TYPE* type = nullptr;
        HRESULT hr = videoSource_->Pin()->GetStreamMediaType(&type);
        if (FAILED(hr)) {
            return hr;
        }
        const REFERENCE_TIME perFrame =
            type->cbFormat >= sizeof(VIDEOINFOHEADER)
                ? reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat)->AvgTimePerFrame
                : 0;
        DeleteMediaType(type);
        if (perFrame == 0) {
            return E_FAIL;
        }
        stopTime = static_cast<REFERENCE_TIME>(frameLimit - 1) * perFrame;
        stop = &stopTime;
    }
    IPin* videoPin = videoSource_->Pin();
    IPin* audioPin = audioSource_->Pin();
    HRESULT hr = StartNowStopAt(videoPin, hasVideo != 0 ? stop : nullptr, TRUE);
    if (SUCCEEDED(hr)) {
        hr = StartNowStopAt(audioPin, hasAudio != 0 ? stop : nullptr, TRUE);
    }
    for (const wchar_t* name : {L"Capture", L"Preview"}) {
        IPin* pin = SUCCEEDED(hr) ? QVN::Graph::FindPin(smartTee_, name, PINDIR_OUTPUT) : nullptr;
        if (pin != nullptr) {
            hr = StartNowStopAt(pin, hasVideo != 0 ? stop : nullptr, FALSE);
            pin->Release();
        }
    }
    // What feeds the multiplexer stops at the same time, without an extra sample.
    IEnumPins* pins = nullptr;
    if (SUCCEEDED(hr)) {
        hr = mux_->EnumPins(&pins);
    }
    IPin* pin = nullptr;
    while (SUCCEEDED(hr) && pins->Next(1, &pin, nullptr) == S_OK) {
        PIN_DIRECTION direction{};
        IPin* upstream = nullptr;
        if (SUCCEEDED(pin->QueryDirection(&direction)) && direction == PINDIR_INPUT &&
            SUCCEEDED(pin->ConnectedTo(&upstream)) && upstream != nullptr) {
            hr = StartNowStopAt(upstream, stop, FALSE);
            upstream->Release();
        }
        pin->Release();
    }
    if (pins != nullptr) {
        pins->Release();
    }
    return hr;
}

HRESULT CDShowGraph::Open(DWORD hasVideo, DWORD hasAudio, DWORD frameLimit, const wchar_t* path) {
    if (graph_ == nullptr || fileWriter_ == nullptr || path == nullptr) {
        return E_UNEXPECTED;
    }
    path_ = path;
    IFileSinkFilter2* fileSink = Query<IFileSinkFilter2>(fileWriter_, IID_IFileSinkFilter2);
    if (fileSink == nullptr) {
        return E_NOINTERFACE;
    }
    HRESULT hr = fileSink->SetFileName(path, nullptr);
    fileSink->SetMode(AM_FILE_OVERWRITE);
    fileSink->Release();
    if (SUCCEEDED(hr)) {
        hr = Rewire(hasVideo, hasAudio);
    }
    if (SUCCEEDED(hr)) {
        hr = RemoveIdleRenderers();
    }
    if (SUCCEEDED(hr)) {
        hr = audioSource_->Pin()->AllocateBuffers();
    }
    if (SUCCEEDED(hr)) {
        hr = audioSource_->Pin()->GetFreeBuffers(audioFree_);
    }
    if (SUCCEEDED(hr)) {
        hr = SetStreamControls(hasVideo, hasAudio, frameLimit);
    }
    if (SUCCEEDED(hr) && sampleGrabber_ != nullptr && sink_ != nullptr) {
        hr = sampleGrabber_->SetSink(sink_, TRUE);
    }
    if (SUCCEEDED(hr)) {
        completed_ = false;
        hr = control_->Run();
        if (FAILED(hr)) {
            StopEveryFilter();
        }
    }
    audioSteps_.Reset();
    return hr;
}

void CDShowGraph::StopEveryFilter() {
    IEnumFilters* filters = nullptr;
    if (graph_ == nullptr || FAILED(graph_->EnumFilters(&filters))) {
        return;
    }
    IBaseFilter* filter = nullptr;
    while (filters->Next(1, &filter, nullptr) == S_OK) {
        filter->Stop();
        filter->Release();
    }
    filters->Release();
}

HRESULT CDShowGraph::PollEvents() {
    long code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    if (events_ == nullptr || events_->GetEvent(&code, &param1, &param2, 0) != S_OK) {
        return S_OK; // E_ABORT: no event waiting
    }
    events_->FreeEventParams(code, param1, param2);
    if (IsErrorEvent(code)) {
        failed_ = 1;
        return E_FAIL;
    }
    // Every stream can end before Finish (a producer that wrote past the frame limit): Finish must not
    // wait for a completion that was already taken here.
    completed_ = completed_ || code == EC_COMPLETE;
    return S_OK;
}

HRESULT CDShowGraph::WriteVideo(const void* buffer, DWORD size) {
    if (videoSource_ == nullptr) {
        return E_UNEXPECTED;
    }
    const HRESULT hr =
        videoSource_->Pin()->DeliverBuffer(static_cast<BYTE*>(const_cast<void*>(buffer)), size);
    return FAILED(hr) ? hr : PollEvents();
}

HRESULT CDShowGraph::TakeAudioBuffer(BYTE** buffer, DWORD* capacity) {
    ALLOCATOR_PROPERTIES props = audioSource_->Pin()->ActualProperties();
    // Downstream returns a buffer within one write of the multiplexer; a minute without one means the
    // graph has stopped taking samples.
    for (int waited = 0; audioFree_.empty(); ++waited) {
        HRESULT hr = audioSource_->Pin()->ReclaimBuffers(audioFree_);
        if (FAILED(hr)) {
            return hr;
        }
        if (!audioFree_.empty()) {
            break;
        }
        if (waited % 20 == 0 && FAILED(hr = PollEvents())) {
            return hr;
        }
        if (waited >= 60000) {
            return VFW_E_TIMEOUT;
        }
        Sleep(1);
    }
    *buffer = static_cast<BYTE*>(audioFree_.back());
    audioFree_.pop_back();
    *capacity = static_cast<DWORD>(props.cbBuffer);
    return S_OK;
}

HRESULT CDShowGraph::WriteAudio(const BYTE* samples, DWORD size) {
    if (audioSource_ == nullptr) {
        return E_UNEXPECTED;
    }
    // The producer reuses its block as soon as this returns, so the samples travel in the pin's own
    // buffers, whole sample frames in each.
    AM_MEDIA_TYPE* type = nullptr;
    HRESULT hr = audioSource_->Pin()->GetStreamMediaType(&type);
    if (FAILED(hr)) {
        return hr;
    }
    const DWORD blockAlign = type->cbFormat >= sizeof(WAVEFORMATEX)
                                 ? reinterpret_cast<WAVEFORMATEX*>(type->pbFormat)->nBlockAlign
                                 : 1;
    DeleteMediaType(type);
    DWORD offset = 0;
    do {
        BYTE* buffer = nullptr;
        DWORD capacity = 0;
        hr = TakeAudioBuffer(&buffer, &capacity);
        if (FAILED(hr)) {
            return hr;
        }
        DWORD piece = size - offset;
        if (piece > capacity) {
            piece = blockAlign > 0 && capacity >= blockAlign ? capacity / blockAlign * blockAlign : capacity;
        }
        if (piece > 0) {
            std::memcpy(buffer, samples + offset, piece);
        }
        hr = audioSource_->Pin()->DeliverBuffer(buffer, piece);
        if (FAILED(hr)) {
            audioFree_.push_back(buffer);
            return hr;
        }
        offset += piece;
    } while (offset < size);
    return PollEvents();
}

HRESULT CDShowGraph::Finish() {
    ReleaseSink();
    if (control_ == nullptr) {
        return E_UNEXPECTED;
    }
    // Empty samples carry every stream past its stop time: the first after the stop goes as the extra
    // sample, the next ends the stream, and the multiplexer completes the file once all its streams ended.
    BYTE* scratch = new (std::nothrow) BYTE[256];
    if (scratch == nullptr) {
        failed_ = 1;
    } else {
        WriteVideo(scratch, 0);
        WriteAudio(scratch, 0);
        if (videoConnected_ != 0) {
            WriteVideo(scratch, 0);
        }
        if (audioConnected_ != 0) {
            WriteAudio(scratch, 0);
        }
    }
    for (int tries = 0; failed_ == 0 && !completed_ && tries < kCompletionTries; ++tries) {
        long code = 0;
        LONG_PTR param1 = 0;
        LONG_PTR param2 = 0;
        if (events_->GetEvent(&code, &param1, &param2, 5) == S_OK) {
            events_->FreeEventParams(code, param1, param2);
            if (code == EC_COMPLETE) {
                completed_ = true;
                break;
            }
            if (IsErrorEvent(code)) {
                failed_ = 1; // the file will not complete: stop waiting for it
            }
        }
        Sleep(1);
    }
    HRESULT hr = control_->Stop();
    delete[] scratch;
    if (SUCCEEDED(hr) && failed_ == 0) {
        hr = PatchHeader();
    }
    return failed_ != 0 ? E_FAIL : hr;
}

HRESULT CDShowGraph::Close() {
    ReleaseSink();
    if (videoSource_ == nullptr || audioSource_ == nullptr || control_ == nullptr) {
        return E_UNEXPECTED;
    }
    const HRESULT video = videoSource_->Pin()->SignalEndOfStream();
    const HRESULT audio = audioSource_->Pin()->SignalEndOfStream();
    const HRESULT stop = control_->Stop();
    const HRESULT patch = PatchHeader();
    if (FAILED(video)) {
        return video;
    }
    if (FAILED(audio)) {
        return audio;
    }
    return FAILED(stop) ? stop : patch;
}

HRESULT CDShowGraph::PatchHeader() {
    const std::string narrow = QVN::WideToUtf8(path_);
    QVN::CFile file;
    HRESULT hr = file.Open(narrow.c_str(), QVN::FileCreation::kOpenExisting, QVN::FileBuffering::kCached);
    if (FAILED(hr)) {
        return hr;
    }
    DWORD lead[6] = {};
    std::size_t got = 0;
    hr = file.Read(lead, sizeof(lead), &got);
    if (FAILED(hr) || got != sizeof(lead)) {
        return FAILED(hr) ? hr : E_FAIL;
    }
    // Anything but an AVI file with its header list first is left as it is.
    if (lead[0] != MakeFourCC("RIFF") || lead[2] != MakeFourCC("AVI ") || lead[3] != MakeFourCC("LIST") ||
        lead[5] != MakeFourCC("hdrl") || lead[4] < 4) {
        return S_OK;
    }
    std::vector<BYTE> body;
    try {
        body.resize(lead[4] - 4);
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    hr = file.Read(body.data(), body.size(), &got);
    if (FAILED(hr) || got != body.size()) {
        return FAILED(hr) ? hr : E_FAIL;
    }
    // The stream header fields the multiplexer cannot know: the compressor's quality and the exact rate.
    constexpr std::size_t kScale = 20, kRate = 24, kQuality = 40, kStrhBytes = 56;
    for (std::size_t at = 0; at + 8 <= body.size();) {
        DWORD id = 0, size = 0;
        std::memcpy(&id, &body[at], 4);
        std::memcpy(&size, &body[at + 4], 4);
        if (id == MakeFourCC("LIST") && size >= 4 + 8 + kStrhBytes && at + 8 + size <= body.size()) {
            BYTE* list = &body[at + 8];
            DWORD type = 0, first = 0, fccType = 0;
            std::memcpy(&type, list, 4);
            std::memcpy(&first, list + 4, 4);
            std::memcpy(&fccType, list + 12, 4);
            if (type == MakeFourCC("strl") && first == MakeFourCC("strh") && fccType == MakeFourCC("vids")) {
                BYTE* strh = list + 12;
                const auto quality = static_cast<DWORD>(quality_ * 10000);
                std::memcpy(strh + kQuality, &quality, 4);
                std::memcpy(strh + kRate, &rate_, 4);
                std::memcpy(strh + kScale, &scale_, 4);
                hr = file.WriteAt(24, body.data(), body.size());
                if (SUCCEEDED(hr)) {
                    hr = file.Close();
                }
                return hr;
            }
        }
        at += static_cast<std::size_t>(size) + 8;
    }
    return S_OK;
}

HRESULT CDShowGraph::WritePixelAspect(LONG numerator, LONG denominator) {
    return QVN::AppendPixelAspectRecord(path_, numerator, denominator) == 0 ? S_OK : E_FAIL;
}

DWORD CDShowGraph::AudioSamplesForFrames(DWORD frames) const {
    if (rate_ == 0) {
        return 0;
    }
    return static_cast<DWORD>(static_cast<LONGLONG>(sampleRate_) * scale_ * frames / rate_);
}

DWORD CDShowGraph::AudioSamplesForNextFrame(DWORD frames) {
    return rate_ == 0 ? 0 : audioSteps_.Next(static_cast<DWORD>(sampleRate_), rate_, scale_, frames);
}

HRESULT CDShowGraph::ReleaseSink() {
    return sampleGrabber_ != nullptr ? sampleGrabber_->SetSink(nullptr, FALSE) : S_OK;
}
