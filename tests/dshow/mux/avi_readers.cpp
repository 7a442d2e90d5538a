#include "tests/dshow/mux/avi_readers.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include <vfw.h>

namespace qvn_test {

namespace {

std::uint32_t U32(const std::vector<std::uint8_t>& data, size_t at) {
    std::uint32_t value = 0;
    memcpy(&value, data.data() + at, 4);
    return value;
}

template <class T> void Release(T*& object) {
    if (object != nullptr)
        object->Release();
    object = nullptr;
}

} // namespace

std::wstring WinePath(const char* unixPath) {
    std::wstring path = L"Z:";
    for (const char* c = unixPath; *c != 0; ++c)
        path += *c == '/' ? L'\\' : static_cast<wchar_t>(*c);
    return path;
}

std::wstring TempPath(const wchar_t* name) {
    wchar_t dir[MAX_PATH];
    GetTempPathW(MAX_PATH, dir);
    return std::wstring(dir) + name;
}

int RunProcess(std::wstring commandLine, DWORD ms) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                        &process))
        return -2;
    DWORD status = 0;
    const bool ended = WaitForSingleObject(process.hProcess, ms) == WAIT_OBJECT_0;
    if (!ended)
        TerminateProcess(process.hProcess, 1);
    GetExitCodeProcess(process.hProcess, &status);
    CloseHandle(process.hThread);
    CloseHandle(process.hProcess);
    return ended ? static_cast<int>(status) : -1;
}

IPin* FirstPin(IBaseFilter* filter, PIN_DIRECTION wanted) {
    IEnumPins* pins = nullptr;
    if (FAILED(filter->EnumPins(&pins)))
        return nullptr;
    IPin* pin = nullptr;
    PIN_DIRECTION direction{};
    while (pins->Next(1, &pin, nullptr) == S_OK && (pin->QueryDirection(&direction), direction != wanted))
        Release(pin);
    pins->Release();
    return pin;
}

std::vector<const RiffIndexEntry*> RiffFile::Entries(std::uint32_t stream) const {
    const std::uint32_t wanted = ('0' + stream / 10) | ('0' + stream % 10) << 8;
    std::vector<const RiffIndexEntry*> result;
    for (const RiffIndexEntry& entry : idx1)
        if ((entry.chunkId & 0xFFFF) == wanted)
            result.push_back(&entry);
    return result;
}

RiffFile WalkRiff(const std::wstring& path) {
    RiffFile out;
    std::ifstream file(path.c_str(), std::ios::binary);
    const std::vector<std::uint8_t> d{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    auto bytes = [&d](size_t at, size_t size) {
        return std::vector<std::uint8_t>(d.begin() + static_cast<std::ptrdiff_t>(at),
                                         d.begin() + static_cast<std::ptrdiff_t>(at + size));
    };
    if (!file.is_open() || d.size() < 12 || U32(d, 0) != MAKEFOURCC('R', 'I', 'F', 'F') ||
        U32(d, 8) != MAKEFOURCC('A', 'V', 'I', ' ')) {
        out.problem = "no RIFF AVI file";
        return out;
    }
    // Chunks of the list body [begin, end): whole, each passed to visit(position, id, size).
    auto walk = [&](size_t begin, size_t end, auto&& visit) {
        for (size_t at = begin; at + 8 <= end;) {
            const std::uint32_t id = U32(d, at), size = U32(d, at + 4);
            if (at + 8 + size > d.size()) {
                out.problem = "chunk runs past the end of the file";
                return;
            }
            visit(at, id, size, id == MAKEFOURCC('L', 'I', 'S', 'T') ? U32(d, at + 8) : 0);
            at += 8 + size + (size & 1);
        }
    };
    size_t movi = 0, idx1 = 0, idx1Size = 0; // movi: the position of the "movi" type
    walk(12, std::min(d.size(), static_cast<size_t>(U32(d, 4)) + 8),
         [&](size_t at, auto id, auto size, auto list) {
             if (list == MAKEFOURCC('h', 'd', 'r', 'l')) {
                 walk(at + 12, at + 8 + size, [&](size_t in, auto inner, auto innerSize, auto innerList) {
                     if (inner == MAKEFOURCC('a', 'v', 'i', 'h') && innerSize >= 28)
                         out.avihStreams = U32(d, in + 8 + 24);
                     else if (innerList == MAKEFOURCC('s', 't', 'r', 'l'))
                         walk(in + 12, in + 8 + innerSize, [&](size_t s, auto sid, auto ssize, auto) {
                             if (sid == MAKEFOURCC('s', 't', 'r', 'h') && ssize >= 44)
                                 out.streams.push_back(
                                     {U32(d, s + 8), U32(d, s + 32), U32(d, s + 28), U32(d, s + 48)});
                         });
                 });
             } else if (list == MAKEFOURCC('m', 'o', 'v', 'i')) {
                 movi = at + 8;
             } else if (id == MAKEFOURCC('i', 'd', 'x', '1')) {
                 idx1 = at + 8;
                 idx1Size = size;
             }
         });
    if (out.problem.empty() && movi == 0)
        out.problem = "no movi list";
    if (!out.problem.empty())
        return out;
    // idx1 offsets count from "movi" or from the file's start; the first entry tells which.
    size_t origin = movi;
    if (idx1 != 0 && idx1Size >= 16 &&
        (movi + U32(d, idx1 + 8) + 8 > d.size() || U32(d, movi + U32(d, idx1 + 8)) != U32(d, idx1)))
        origin = 0;
    for (size_t at = idx1; idx1 != 0 && at + 16 <= idx1 + idx1Size; at += 16) {
        RiffIndexEntry entry{U32(d, at), U32(d, at + 8), U32(d, at + 12), {}};
        // The chunk an entry points at must carry the entry's id and size.
        const size_t chunk = origin + entry.offset;
        if (chunk + 8 + entry.size > d.size() || U32(d, chunk) != entry.chunkId ||
            U32(d, chunk + 4) != entry.size) {
            out.problem = "an idx1 entry does not point at its chunk";
            return out;
        }
        entry.payload = bytes(chunk + 8, entry.size);
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
            AviFileStream& read = out.stream.emplace_back();
            if (FAILED(AVIFileGetStream(file, &stream, 0, static_cast<LONG>(i))))
                continue;
            AVISTREAMINFOW s{};
            AVIStreamInfoW(stream, &s, sizeof(s));
            read = {s.fccType, s.dwRate, s.dwScale, s.dwQuality, s.dwSampleSize, AVIStreamLength(stream),
                    {},        {},       {}};
            LONG size = 0, samples = 0;
            AVIStreamReadFormat(stream, 0, nullptr, &size);
            read.format.resize(static_cast<size_t>(size));
            if (size > 0)
                AVIStreamReadFormat(stream, 0, read.format.data(), &size);
            for (LONG k = 0; s.fccType == streamtypeVIDEO && k < read.streamLength; ++k) {
                AVIStreamRead(stream, k, 1, nullptr, 0, &size, &samples);
                std::vector<BYTE>& frame = read.frames.emplace_back(static_cast<size_t>(size));
                if (size > 0)
                    AVIStreamRead(stream, k, 1, frame.data(), size, &size, &samples);
            }
            if (s.fccType == streamtypeAUDIO && read.streamLength > 0 && s.dwSampleSize > 0) {
                read.samples.resize(static_cast<size_t>(read.streamLength) * s.dwSampleSize);
                AVIStreamRead(stream, 0, read.streamLength, read.samples.data(),
                              static_cast<LONG>(read.samples.size()), &size, &samples);
                read.samples.resize(static_cast<size_t>(size));
            }
            AVIStreamRelease(stream);
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
    IPin* sourceOut = nullptr;
    IPin* splitIn = nullptr;
    IMediaFilter* clock = nullptr;
    IMediaControl* control = nullptr;
    IMediaEvent* events = nullptr;
    std::vector<CRecordingRenderer*> renderers;
    // Each step in turn; the first that fails names the problem and the result.
    auto step = [&](HRESULT result, const char* problem) {
        if (out.problem.empty() && FAILED(result)) {
            out.problem = problem;
            out.result = result;
        }
        return out.problem.empty();
    };
    auto pin = [](IBaseFilter* filter, PIN_DIRECTION direction, IPin** found) {
        return (*found = FirstPin(filter, direction)) != nullptr ? S_OK : E_FAIL;
    };
    long code = 0;
    if (step(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                              reinterpret_cast<void**>(&graph)),
             "no filter graph") &&
        step(graph->QueryInterface(IID_IMediaFilter, reinterpret_cast<void**>(&clock)), "no IMediaFilter") &&
        step(graph->QueryInterface(IID_IMediaControl, reinterpret_cast<void**>(&control)), "no control") &&
        step(graph->QueryInterface(IID_IMediaEvent, reinterpret_cast<void**>(&events)), "no events") &&
        step(clock->SetSyncSource(nullptr), "no clockless graph") &&
        step(graph->AddSourceFilter(path.c_str(), L"Source", &source), "AddSourceFilter failed") &&
        step(CoCreateInstance(CLSID_AviSplitter, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                              reinterpret_cast<void**>(&splitter)),
             "no AVI splitter") &&
        step(graph->AddFilter(splitter, L"AVI Splitter"), "no AVI splitter") &&
        step(pin(source, PINDIR_OUTPUT, &sourceOut), "the source has no output pin") &&
        step(pin(splitter, PINDIR_INPUT, &splitIn), "the splitter has no input pin") &&
        step(graph->ConnectDirect(sourceOut, splitIn, nullptr), "the splitter refused the file")) {
        IEnumPins* pins = nullptr;
        splitter->EnumPins(&pins);
        for (IPin* output = nullptr; pins->Next(1, &output, nullptr) == S_OK; Release(output)) {
            PIN_DIRECTION direction{};
            if (output->QueryDirection(&direction), direction != PINDIR_OUTPUT)
                continue;
            HRESULT made = S_OK;
            renderers.push_back(new CRecordingRenderer(&made));
            renderers.back()->AddRef();
            renderers.back()->pin.acceptAny = true;
            graph->AddFilter(renderers.back(), L"Recorder");
            step(graph->ConnectDirect(output, &renderers.back()->pin, nullptr),
                 "a splitter output did not connect");
        }
        pins->Release();
        if (step(control->Run(), "the playback graph did not run") &&
            step(events->WaitForCompletion(20000, &code), "the playback graph did not complete") &&
            step(code == EC_COMPLETE ? S_OK : E_FAIL, "the playback graph did not complete"))
            out.result = S_OK;
        control->Stop();
    }
    for (CRecordingRenderer* renderer : renderers) {
        PlaybackStream& stream = out.streams.emplace_back();
        AM_MEDIA_TYPE type{};
        if (SUCCEEDED(renderer->pin.ConnectionMediaType(&type))) {
            stream.majortype = type.majortype;
            FreeMediaType(type);
        }
        stream.samples = renderer->pin.Samples();
        stream.endOfStreams = renderer->pin.endOfStreams;
    }
    for (IUnknown* object : std::initializer_list<IUnknown*>{sourceOut, splitIn, clock, control, events,
                                                             graph, source, splitter})
        if (object != nullptr)
            object->Release();
    for (CRecordingRenderer* renderer : renderers)
        renderer->Release();
    return out;
}

} // namespace qvn_test
