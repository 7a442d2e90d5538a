// Independent readers of the files the multiplexer writes: a RIFF walk of our own, the platform's AVIFile
// API, and a playback graph of its AVI splitter into recording renderers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/dshow/base/graph_test_filters.h"

namespace qvn_test {

// A Unix path as Wine's Z: drive sees it; a file name in the temporary folder.
std::wstring WinePath(const char* unixPath);
std::wstring TempPath(const wchar_t* name);

// A command line's exit status; -1 when it did not end within ms (it is then ended), -2 when not started.
int RunProcess(std::wstring commandLine, DWORD ms);

// The filter's first pin of that direction, with a reference; null when it has none.
IPin* FirstPin(IBaseFilter* filter, PIN_DIRECTION direction);

struct RiffStream { // from strh
    std::uint32_t fccType = 0, rate = 0, scale = 0, quality = 0;
};

struct RiffIndexEntry {
    std::uint32_t chunkId = 0, offset = 0, size = 0; // offset as stored (from "movi" or the file's start)
    std::vector<std::uint8_t> payload;               // the bytes the entry points at
};

struct RiffFile {
    bool valid = false;
    std::string problem;
    std::uint32_t avihStreams = 0;
    std::vector<RiffStream> streams;
    std::vector<RiffIndexEntry> idx1;
    // The idx1 entries of one stream ("00dc", "01wb", ...).
    std::vector<const RiffIndexEntry*> Entries(std::uint32_t stream) const;
};

RiffFile WalkRiff(const std::wstring& path);

struct AviFileStream {
    DWORD fccType = 0, rate = 0, scale = 0, quality = 0, sampleSize = 0;
    LONG streamLength = -1; // AVIStreamLength
    std::vector<BYTE> format;
    std::vector<std::vector<BYTE>> frames; // video: each frame read with AVIStreamRead
    std::vector<BYTE> samples;             // audio: every sample
};

struct AviFileRead {
    HRESULT openResult = E_FAIL;
    DWORD streams = 0;
    std::vector<AviFileStream> stream;
};

// Through the platform's AVIFile API (avifil32).
AviFileRead ReadWithAviFile(const std::wstring& path);

struct PlaybackStream {
    GUID majortype = GUID_NULL;
    std::vector<ReceivedSample> samples;
    int endOfStreams = 0;
};

struct PlaybackRead {
    HRESULT result = E_FAIL; // S_OK once the graph ran to EC_COMPLETE
    std::string problem;
    std::vector<PlaybackStream> streams;
};

// File Source (Async.) and the platform's AVI splitter, each output into a recording renderer, run without
// a clock to completion. The caller's thread must be in a COM apartment.
PlaybackRead PlayWithAviSplitter(const std::wstring& path);

} // namespace qvn_test
