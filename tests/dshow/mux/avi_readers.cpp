#include "tests/dshow/mux/avi_readers.h"

#include <cstring>
#include <fstream>
#include <iterator>

#include <vfw.h>

namespace qvn_test {

namespace {

constexpr std::uint32_t Fcc(const char (&s)[5]) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(s[0])) |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[1])) << 8 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[2])) << 16 |
           static_cast<std::uint32_t>(static_cast<unsigned char>(s[3])) << 24;
}

std::uint32_t U32(const std::vector<std::uint8_t>& data, size_t at) {
    std::uint32_t value = 0;
    memcpy(&value, data.data() + at, 4);
    return value;
}

bool ReadAll(const std::wstring& path, std::vector<std::uint8_t>& data) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return false;
    }
    LARGE_INTEGER size{};
    bool ok = GetFileSizeEx(file, &size) != FALSE;
    if (ok) {
        data.resize(static_cast<size_t>(size.QuadPart));
        DWORD got = 0;
        ok = data.empty() || (ReadFile(file, data.data(), static_cast<DWORD>(data.size()), &got, nullptr) &&
                              got == data.size());
    }
    CloseHandle(file);
    return ok;
}

// The strl list body [begin, end): strh and strf.
void ReadStrl(const std::vector<std::uint8_t>& d, size_t begin, size_t end, RiffFile& out) {
    RiffStream stream;
    for (size_t at = begin; at + 8 <= end;) {
        const std::uint32_t id = U32(d, at), size = U32(d, at + 4);
        if (id == Fcc("strh") && size >= 36) {
            stream.fccType = U32(d, at + 8);
            stream.scale = U32(d, at + 8 + 20);
            stream.rate = U32(d, at + 8 + 24);
            stream.length = U32(d, at + 8 + 32);
            stream.quality = size >= 44 ? U32(d, at + 8 + 40) : 0;
        } else if (id == Fcc("strf")) {
            stream.format.assign(d.begin() + static_cast<std::ptrdiff_t>(at + 8),
                                 d.begin() + static_cast<std::ptrdiff_t>(at + 8 + size));
        }
        at += 8 + size + (size & 1);
    }
    out.streams.push_back(std::move(stream));
}

} // namespace

IPin* FirstPin(IBaseFilter* filter, PIN_DIRECTION wanted) {
    IEnumPins* pins = nullptr;
    if (FAILED(filter->EnumPins(&pins))) {
        return nullptr;
    }
    IPin* pin = nullptr;
    while (pins->Next(1, &pin, nullptr) == S_OK) {
        PIN_DIRECTION direction{};
        pin->QueryDirection(&direction);
        if (direction == wanted) {
            break;
        }
        pin->Release();
        pin = nullptr;
    }
    pins->Release();
    return pin;
}

std::vector<const RiffIndexEntry*> RiffFile::Entries(std::uint32_t stream) const {
    std::vector<const RiffIndexEntry*> result;
    for (const RiffIndexEntry& entry : idx1) {
        const std::uint32_t digits = entry.chunkId & 0xFFFF;
        const std::uint32_t wanted = static_cast<std::uint32_t>('0' + stream / 10) |
                                     static_cast<std::uint32_t>('0' + stream % 10) << 8;
        if (digits == wanted) {
            result.push_back(&entry);
        }
    }
    return result;
}

RiffFile WalkRiff(const std::wstring& path) {
    RiffFile out;
    std::vector<std::uint8_t> d;
    if (!ReadAll(path, d)) {
        out.problem = "cannot read the file";
        return out;
    }
    if (d.size() < 12 || U32(d, 0) != Fcc("RIFF") || U32(d, 8) != Fcc("AVI ")) {
        out.problem = "no RIFF AVI header";
        return out;
    }
    const size_t riffEnd = std::min(d.size(), static_cast<size_t>(U32(d, 4)) + 8);
    size_t movi = 0; // position of the "movi" type
    size_t idx1 = 0, idx1Size = 0;
    for (size_t at = 12; at + 8 <= riffEnd;) {
        const std::uint32_t id = U32(d, at), size = U32(d, at + 4);
        if (at + 8 + size > d.size()) {
            out.problem = "chunk runs past the end of the file";
            return out;
        }
        if (id == Fcc("LIST") && U32(d, at + 8) == Fcc("hdrl")) {
            for (size_t in = at + 12; in + 8 <= at + 8 + size;) {
                const std::uint32_t inner = U32(d, in), innerSize = U32(d, in + 4);
                if (inner == Fcc("avih") && innerSize >= 28) {
                    out.avihFrames = U32(d, in + 8 + 16);
                    out.avihStreams = U32(d, in + 8 + 24);
                } else if (inner == Fcc("LIST") && U32(d, in + 8) == Fcc("strl")) {
                    ReadStrl(d, in + 12, in + 8 + innerSize, out);
                }
                in += 8 + innerSize + (innerSize & 1);
            }
        } else if (id == Fcc("LIST") && U32(d, at + 8) == Fcc("movi")) {
            movi = at + 8;
        } else if (id == Fcc("idx1")) {
            idx1 = at + 8;
            idx1Size = size;
        }
        at += 8 + size + (size & 1);
    }
    if (movi == 0) {
        out.problem = "no movi list";
        return out;
    }
    // idx1 offsets count from "movi" or from the file's start; the first entry tells which.
    size_t origin = movi;
    if (idx1 != 0 && idx1Size >= 16) {
        const size_t first = U32(d, idx1 + 8);
        if (movi + first + 8 > d.size() || U32(d, movi + first) != U32(d, idx1)) {
            origin = 0;
        }
    }
    for (size_t at = idx1; idx1 != 0 && at + 16 <= idx1 + idx1Size; at += 16) {
        RiffIndexEntry entry;
        entry.chunkId = U32(d, at);
        entry.offset = U32(d, at + 8);
        entry.size = U32(d, at + 12);
        // The chunk an entry points at must carry the entry's id and size.
        const size_t chunk = origin + entry.offset;
        if (chunk + 8 + entry.size > d.size() || U32(d, chunk) != entry.chunkId ||
            U32(d, chunk + 4) != entry.size) {
            out.problem = "an idx1 entry does not point at its chunk";
            return out;
        }
        entry.payload.assign(d.begin() + static_cast<std::ptrdiff_t>(chunk + 8),
                             d.begin() + static_cast<std::ptrdiff_t>(chunk + 8 + entry.size));
        out.idx1.push_back(std::move(entry));
    }
    out.valid = true;
    return out;
}

AviFileRead ReadWithAviFile(const std::wstring& path) {
    AviFileRead out;
    AVIFileInit();
    PAVIFILE file = nullptr;
    out.openResult = AVIFileOpenW(&file, path.c_str(), OF_READ | OF_SHARE_DENY_NONE, nullptr);
    if (SUCCEEDED(out.openResult)) {
        AVIFILEINFOW info{};
        AVIFileInfoW(file, &info, sizeof(info));
        out.streams = info.dwStreams;
        for (DWORD i = 0; i < info.dwStreams; ++i) {
            PAVISTREAM stream = nullptr;
            AviFileStream read;
            if (FAILED(AVIFileGetStream(file, &stream, 0, static_cast<LONG>(i)))) {
                out.stream.push_back(read);
                continue;
            }
            AVISTREAMINFOW streamInfo{};
            AVIStreamInfoW(stream, &streamInfo, sizeof(streamInfo));
            read.fccType = streamInfo.fccType;
            read.rate = streamInfo.dwRate;
            read.scale = streamInfo.dwScale;
            read.length = streamInfo.dwLength;
            read.quality = streamInfo.dwQuality;
            read.sampleSize = streamInfo.dwSampleSize;
            read.streamLength = AVIStreamLength(stream);
            LONG formatSize = 0;
            AVIStreamReadFormat(stream, 0, nullptr, &formatSize);
            read.format.resize(static_cast<size_t>(formatSize));
            if (formatSize > 0) {
                AVIStreamReadFormat(stream, 0, read.format.data(), &formatSize);
            }
            if (streamInfo.fccType == streamtypeVIDEO) {
                for (LONG k = 0; k < read.streamLength; ++k) {
                    LONG bytes = 0, samples = 0;
                    AVIStreamRead(stream, k, 1, nullptr, 0, &bytes, &samples);
                    std::vector<BYTE> frame(static_cast<size_t>(bytes));
                    if (bytes > 0) {
                        AVIStreamRead(stream, k, 1, frame.data(), bytes, &bytes, &samples);
                    }
                    read.frames.push_back(std::move(frame));
                }
            } else if (streamInfo.fccType == streamtypeAUDIO && read.streamLength > 0 &&
                       streamInfo.dwSampleSize > 0) {
                read.samples.resize(static_cast<size_t>(read.streamLength) * streamInfo.dwSampleSize);
                LONG bytes = 0, samples = 0;
                AVIStreamRead(stream, 0, read.streamLength, read.samples.data(),
                              static_cast<LONG>(read.samples.size()), &bytes, &samples);
                read.samples.resize(static_cast<size_t>(bytes));
            }
            AVIStreamRelease(stream);
            out.stream.push_back(std::move(read));
        }
        AVIFileRelease(file);
    }
    AVIFileExit();
    return out;
}

PlaybackRead PlayWithAviSplitter(const std::wstring& path) {
    PlaybackRead out;
    IGraphBuilder* graph = nullptr;
    IBaseFilter* source = nullptr;
    IBaseFilter* splitter = nullptr;
    std::vector<CRecordingRenderer*> renderers;
    auto fail = [&](const char* problem, HRESULT hr) {
        out.problem = problem;
        out.result = FAILED(hr) ? hr : E_FAIL;
    };
    HRESULT hr = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                                  reinterpret_cast<void**>(&graph));
    if (FAILED(hr)) {
        fail("no filter graph", hr);
        return out;
    }
    IMediaFilter* mediaFilter = nullptr;
    graph->QueryInterface(IID_IMediaFilter, reinterpret_cast<void**>(&mediaFilter));
    mediaFilter->SetSyncSource(nullptr);
    mediaFilter->Release();
    IPin* sourceOut = nullptr;
    IPin* splitIn = nullptr;
    if (FAILED(hr = graph->AddSourceFilter(path.c_str(), L"Source", &source))) {
        fail("AddSourceFilter failed", hr);
    } else if (FAILED(hr = CoCreateInstance(CLSID_AviSplitter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                            reinterpret_cast<void**>(&splitter))) ||
               FAILED(hr = graph->AddFilter(splitter, L"AVI Splitter"))) {
        fail("no AVI splitter", hr);
    } else if ((sourceOut = FirstPin(source, PINDIR_OUTPUT)) == nullptr) {
        fail("the source has no output pin", E_FAIL);
    } else if ((splitIn = FirstPin(splitter, PINDIR_INPUT)) == nullptr) {
        fail("the splitter has no input pin", E_FAIL);
    } else if (FAILED(hr = graph->ConnectDirect(sourceOut, splitIn, nullptr))) {
        fail("the splitter refused the file", hr);
    } else {
        IEnumPins* pins = nullptr;
        splitter->EnumPins(&pins);
        IPin* pin = nullptr;
        while (pins->Next(1, &pin, nullptr) == S_OK) {
            PIN_DIRECTION direction{};
            pin->QueryDirection(&direction);
            if (direction == PINDIR_OUTPUT) {
                HRESULT made = S_OK;
                auto* renderer = new CRecordingRenderer(&made);
                renderer->AddRef();
                renderer->pin.acceptAny = true;
                renderers.push_back(renderer);
                graph->AddFilter(renderer, L"Recorder");
                if (FAILED(hr = graph->ConnectDirect(pin, &renderer->pin, nullptr))) {
                    fail("a splitter output did not connect", hr);
                }
            }
            pin->Release();
        }
        pins->Release();
    }
    if (sourceOut != nullptr) {
        sourceOut->Release();
    }
    if (splitIn != nullptr) {
        splitIn->Release();
    }
    if (out.problem.empty()) {
        IMediaControl* control = nullptr;
        IMediaEvent* events = nullptr;
        graph->QueryInterface(IID_IMediaControl, reinterpret_cast<void**>(&control));
        graph->QueryInterface(IID_IMediaEvent, reinterpret_cast<void**>(&events));
        if (FAILED(hr = control->Run())) {
            fail("the playback graph did not run", hr);
        } else {
            long code = 0;
            hr = events->WaitForCompletion(20000, &code);
            if (hr != S_OK || code != EC_COMPLETE) {
                fail("the playback graph did not complete", hr);
            } else {
                out.result = S_OK;
            }
        }
        control->Stop();
        control->Release();
        events->Release();
    }
    for (CRecordingRenderer* renderer : renderers) {
        PlaybackStream stream;
        AM_MEDIA_TYPE type{};
        if (SUCCEEDED(renderer->pin.ConnectionMediaType(&type))) {
            stream.majortype = type.majortype;
            FreeMediaType(type);
        }
        stream.samples = renderer->pin.Samples();
        stream.endOfStreams = renderer->pin.endOfStreams;
        out.streams.push_back(std::move(stream));
    }
    graph->Release();
    for (CRecordingRenderer* renderer : renderers) {
        renderer->Release();
    }
    if (source != nullptr) {
        source->Release();
    }
    if (splitter != nullptr) {
        splitter->Release();
    }
    return out;
}

} // namespace qvn_test
