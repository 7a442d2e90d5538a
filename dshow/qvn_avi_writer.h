// CQVNAVIWriter: the system's own AVI multiplexer ("AVI Mux"). It never streams the file through its output
// pin: when the output pin becomes active it asks the filter downstream (the File Writer) for its file name
// through IFileSinkFilter::GetCurFile, opens that path itself with AVIFile (one stream per connected input
// pin, numbered in pin order), and writes every delivered sample as one chunk on one writer thread. It
// closes the file when the output pin becomes inactive. The filter always keeps one unconnected input pin at
// the end of its list, so another stream can always be connected.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "dshow/base/base_filter.h"
#include "encoders/avi_file.h"
#include "encoders/task.h"

// {3C5D9E27-8A41-4F6B-B0D3-6E2A91C4F705}
extern "C" const CLSID CLSID_QVNAVIWriter;
// {3C5D9E28-8A41-4F6B-B0D3-6E2A91C4F705}
extern "C" const IID IID_IQVNAVIWriter;

// The state of the file as a whole.
struct QVNAVIWriterState {
    BOOL fileOpen;     // between the output pin's activation and its deactivation
    ULONG streams;     // streams of the open file, or of the last one opened
    ULONG openStreams; // streams whose end of stream has not arrived yet
    HRESULT error;     // the writer thread's first failure, S_OK while every write has succeeded
    ULONG queued;      // items waiting for the writer thread
    ULONG dropped;     // samples and repeats lost because the queue was full (since the last open)
};

// One stream of the open file, or of the last one opened; the counters start at 0 with every open.
struct QVNAVIStreamState {
    DWORD fccType;           // 'vids' or 'auds' as it appears in the file
    LONG pin;                // index of the input pin that feeds it
    ULONG chunksWritten;     // payload chunks the writer thread wrote
    ULONG repeatsWritten;    // repeated frames (index entries pointing at the previous frame)
    ULONGLONG bytesWritten;  // payload bytes written
    REFERENCE_TIME lastStop; // stop time of the last sample queued (0 before the first)
};

// What a caller (the encoder graph, a test) reads about the multiplexer's file.
struct IQVNAVIWriter : public IUnknown {
    // The path of the open file, or of the last file the filter tried to open, as the File Writer reported
    // it (task memory: free it with CoTaskMemFree). S_FALSE with a null name before any open.
    virtual HRESULT STDMETHODCALLTYPE GetFileName(LPOLESTR* name) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetState(QVNAVIWriterState* state) = 0;
    // E_INVALIDARG for a stream the file does not have.
    virtual HRESULT STDMETHODCALLTYPE GetStreamState(ULONG stream, QVNAVIStreamState* state) = 0;
};

class CAVIInputPin;
class CAVIOutputPin;

class CQVNAVIWriter : public CBaseFilter, public IQVNAVIWriter, public IAMStreamControl {
    friend class CAVIInputPin;
    friend class CAVIOutputPin;

public:
    // CFactoryTemplate's creation function: a new filter (aggregated by outer when not null), or null with
    // *phr set.
    static CUnknown* WINAPI CreateInstance(IUnknown* outer, HRESULT* phr);

    CQVNAVIWriter(IUnknown* outer, HRESULT* phr);
    ~CQVNAVIWriter() override;

    DECLARE_IUNKNOWN
    STDMETHODIMP NonDelegatingQueryInterface(REFIID iid, void** object) override;

    // Pin 0 is the output pin, the input pins follow in the order they were made.
    int GetPinCount() override;
    CBasePin* GetPin(int n) override;

    // IQVNAVIWriter
    STDMETHODIMP GetFileName(LPOLESTR* name) override;
    STDMETHODIMP GetState(QVNAVIWriterState* state) override;
    STDMETHODIMP GetStreamState(ULONG stream, QVNAVIStreamState* state) override;

    // IAMStreamControl at filter level: StartAt and StopAt go, with the same arguments, to every connected
    // input pin (the first failure is returned). GetInfo reports the first connected input pin's record.
    STDMETHODIMP StartAt(const REFERENCE_TIME* start, DWORD cookie) override;
    STDMETHODIMP StopAt(const REFERENCE_TIME* stop, BOOL sendExtra, DWORD cookie) override;
    STDMETHODIMP GetInfo(AM_STREAM_INFO* info) override;

    // The input pins (without a reference), for callers that hold the filter.
    int InputPinCount();
    CAVIInputPin* InputPin(int n);

private:
    struct QueuedSample {
        LONG stream;          // negative: the stop marker
        IMediaSample* sample; // with a reference; null: repeat the stream's previous frame
    };
    struct StreamRecord {
        bool video = false;
        REFERENCE_TIME avgTimePerFrame = 0;
        REFERENCE_TIME lastStop = 0; // under the filter lock
        DWORD fccType = 0;
        LONG pin = -1;
        std::atomic<ULONG> chunks{0};
        std::atomic<ULONG> repeats{0};
        std::atomic<ULONGLONG> bytes{0};
    };
    class WriterTask : public QVN::CTask<QueuedSample, QVN::CNullDestroyer, QVN::CW32CriticalSection> {
    public:
        explicit WriterTask(CQVNAVIWriter* owner) : owner_(owner) {}
        std::uint32_t ItemLoop() override { return owner_->WorkerLoop(); }

    private:
        CQVNAVIWriter* owner_;
    };

    // A pin connected: appends a spare pin when every input pin is connected.
    void PinConnected();
    // Open and close the file, called by the output pin's activation and deactivation.
    HRESULT OpenFile();
    HRESULT CloseFile();
    // Queues one sample for the writer thread (on an upstream streaming thread).
    HRESULT Deliver(LONG stream, IMediaSample* sample);
    // One stream's end: true when this was the last open stream (the caller ends the output's stream).
    bool StreamEnded();
    // The writer thread: writes queued samples in arrival order until told to stop or a write fails.
    std::uint32_t WorkerLoop();
    // The File Writer's file name, or an empty string.
    std::wstring DownstreamFileName();
    void ReleaseQueued();

    CCritSec lock_; // the filter lock: pins, open, close, delivery, the end-of-stream count
    std::vector<CAVIInputPin*> inputs_;
    CAVIOutputPin* output_ = nullptr;
    std::unique_ptr<AVIFile> file_;
    ULONG openStreams_ = 0;
    std::vector<std::unique_ptr<StreamRecord>> streams_;
    std::unique_ptr<WriterTask> task_;
    std::atomic<HRESULT> error_{S_OK};
    std::atomic<bool> workerRunning_{false};
    std::atomic<ULONG> dropped_{0};
    std::wstring fileName_;
    bool triedOpen_ = false;
};
