// The Windows structures, GUIDs and result codes the exporter shares with the platform. On Windows they come
// from the system headers; elsewhere they are declared here byte for byte, so that every layout that reaches
// a file (BITMAPINFOHEADER, WAVEFORMATEX, ...) is the same on both targets.
#pragma once

#include <cstdint>

#ifdef _WIN32
// The order matters: windows.h first, then what needs its types; strmif.h declares REFERENCE_TIME for
// amvideo.h.
// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <strmif.h>
#include <amvideo.h>
// clang-format on
#else

using BYTE = std::uint8_t;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using ULONG = std::uint32_t;
using HRESULT = std::int32_t;
using LONGLONG = std::int64_t;
using REFERENCE_TIME = std::int64_t;
using BOOL = std::int32_t;

#pragma pack(push, 1)
struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};

struct RECT {
    LONG left, top, right, bottom;
};

struct BITMAPINFOHEADER {
    DWORD biSize;
    LONG biWidth;
    LONG biHeight;
    WORD biPlanes;
    WORD biBitCount;
    DWORD biCompression;
    DWORD biSizeImage;
    LONG biXPelsPerMeter;
    LONG biYPelsPerMeter;
    DWORD biClrUsed;
    DWORD biClrImportant;
};

struct WAVEFORMATEX {
    WORD wFormatTag;
    WORD nChannels;
    DWORD nSamplesPerSec;
    DWORD nAvgBytesPerSec;
    WORD nBlockAlign;
    WORD wBitsPerSample;
    WORD cbSize;
};

struct WAVEFORMATEXTENSIBLE {
    WAVEFORMATEX Format;
    union {
        WORD wValidBitsPerSample;
        WORD wSamplesPerBlock;
        WORD wReserved;
    } Samples;
    DWORD dwChannelMask;
    GUID SubFormat;
};
#pragma pack(pop)

// VIDEOINFOHEADER keeps natural alignment (the 64-bit time field sits at 48), as in the platform headers.
struct VIDEOINFOHEADER {
    RECT rcSource;
    RECT rcTarget;
    DWORD dwBitRate;
    DWORD dwBitErrorRate;
    REFERENCE_TIME AvgTimePerFrame;
    BITMAPINFOHEADER bmiHeader;
};

inline constexpr WORD WAVE_FORMAT_PCM = 1;
inline constexpr WORD WAVE_FORMAT_IEEE_FLOAT = 3;
inline constexpr WORD WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005u);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003u);
inline constexpr HRESULT E_ABORT = static_cast<HRESULT>(0x80004004u);
inline constexpr HRESULT E_NOTIMPL = static_cast<HRESULT>(0x80004001u);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000Eu);
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057u);

constexpr bool SUCCEEDED(HRESULT hr) {
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) {
    return hr < 0;
}
constexpr HRESULT HRESULT_FROM_WIN32(std::uint32_t error) {
    return error == 0 ? 0 : static_cast<HRESULT>((error & 0x0000FFFFu) | 0x80070000u);
}

#endif

static_assert(sizeof(GUID) == 16);
static_assert(sizeof(BITMAPINFOHEADER) == 40);
static_assert(sizeof(WAVEFORMATEX) == 18);
static_assert(sizeof(WAVEFORMATEXTENSIBLE) == 40);
static_assert(sizeof(VIDEOINFOHEADER) == 88);
static_assert(sizeof(HRESULT) == 4);

namespace QVN {

// Win32 error numbers that the file layer reports on both targets (winerror.h values).
inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorPathNotFound = 3;
inline constexpr std::uint32_t kErrorTooManyOpenFiles = 4;
inline constexpr std::uint32_t kErrorAccessDenied = 5;
inline constexpr std::uint32_t kErrorInvalidHandle = 6;
inline constexpr std::uint32_t kErrorNotEnoughMemory = 8;
inline constexpr std::uint32_t kErrorOutOfMemory = 14;
inline constexpr std::uint32_t kErrorWriteProtect = 19;
inline constexpr std::uint32_t kErrorFileExists = 80;
inline constexpr std::uint32_t kErrorInvalidParameter = 87;
inline constexpr std::uint32_t kErrorDiskFull = 112;
inline constexpr std::uint32_t kErrorFilenameTooLong = 206;
inline constexpr std::uint32_t kErrorFileTooLarge = 223;
inline constexpr std::uint32_t kErrorNegativeSeek = 131;
inline constexpr std::uint32_t kErrorIoDevice = 1117;
inline constexpr std::uint32_t kErrorDiskQuotaExceeded = 1295;

} // namespace QVN
