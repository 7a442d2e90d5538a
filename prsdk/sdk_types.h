// Basic types, selectors and result codes of the host's exporter interface (Premiere Pro CS5, Win64).
// Every record of the interface is packed to 1 byte; see the other headers of this folder.
#pragma once

#include <cstddef>
#include <cstdint>

#ifdef _WIN32
#define PR_EXPORT extern "C" __declspec(dllexport)
#else
#define PR_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace prsdk {

using int8 = std::int8_t;
using int16 = std::int16_t;
using int32 = std::int32_t;
using int64 = std::int64_t;
using uint32 = std::uint32_t;
using csSDK_int32 = std::int32_t;
using csSDK_uint32 = std::uint32_t;
using PrTime = std::int64_t;
using prBool = std::int32_t;
#ifdef _WIN32
using prUTF16Char = wchar_t;
#else
using prUTF16Char = char16_t;
#endif
static_assert(sizeof(prUTF16Char) == 2);

using prSuiteError = std::int32_t;
using SPErr = std::int32_t;
using PrPixelFormat = std::uint32_t;

struct PPix;
using PPixHand = PPix**;

// Identifier of one parameter ("ADBEVideoCodec", ...).
using exParamIdentifier = char[256];

// Selectors of xSDKExport.
enum : int32 {
    exSelStartup = 0,
    exSelShutdown = 1,
    exSelBeginInstance = 2,
    exSelGenerateDefaultParams = 3,
    exSelPostProcessParams = 4,
    exSelValidateParamChanged = 5,
    exSelGetParamSummary = 6,
    exSelParamButton = 7,
    exSelEndInstance = 8,
    exSelExport = 9,
    exSelQueryExportFileExtension = 10,
    exSelQueryOutputFileList = 11,
    exSelQueryStillSequence = 12,
    exSelQueryOutputSettings = 13,
    exSelValidateOutputSettings = 14,
};

// Export results.
enum : int32 {
    exportReturn_ErrNone = 0,
    exportReturn_Abort = 1,
    exportReturn_Done = 2,
    exportReturn_InternalError = 3,
    exportReturn_OutOfDiskSpace = 4,
    exportReturn_BufferFull = 5,
    exportReturn_ErrOther = 6,
    exportReturn_ErrMemory = 7,
    exportReturn_ErrFileNotFound = 8,
    exportReturn_ErrIOError = 14,
    exportReturn_ErrLastErrorSet = 20,
    exportReturn_Unsupported = -100,
};

// Suite results.
inline constexpr prSuiteError suiteError_NoError = 0;
inline constexpr prSuiteError suiteError_Fail = static_cast<prSuiteError>(0x80000000u);
inline constexpr prSuiteError suiteError_InvalidParms = static_cast<prSuiteError>(0x80000001u);
inline constexpr prSuiteError suiteError_OutOfMemory = static_cast<prSuiteError>(0x80000002u);
inline constexpr prSuiteError suiteError_InvalidCall = static_cast<prSuiteError>(0x80000003u);
inline constexpr prSuiteError suiteError_NotImplemented = static_cast<prSuiteError>(0x80000004u);
inline constexpr prSuiteError suiteError_ExporterSuspended = static_cast<prSuiteError>(0x8003000Fu);

// Suite broker results.
inline constexpr SPErr kSPNoError = 0;
// 'S!Fd' as the host spells it: the characters from the most significant byte down.
inline constexpr SPErr kSPSuiteNotFoundError = 0x53214664;

// Exporter interface versions.
enum : int32 {
    EXPORTMOD_VERSION_CS4 = 1,
    EXPORTMOD_VERSION_CS5 = 3,
    EXPORTMOD_VERSION_CS55 = 4,
    EXPORTMOD_VERSION_CS6 = 5,
};

// A four-character code with its first character in the lowest byte (AVI chunk ids, codecs, pixel formats).
constexpr uint32 MakeFourCC(char a, char b, char c, char d) {
    return static_cast<uint32>(static_cast<unsigned char>(a)) |
           static_cast<uint32>(static_cast<unsigned char>(b)) << 8 |
           static_cast<uint32>(static_cast<unsigned char>(c)) << 16 |
           static_cast<uint32>(static_cast<unsigned char>(d)) << 24;
}

// The host's pixel formats the exporter asks for.
inline constexpr PrPixelFormat PrPixelFormat_BGRA_4444_8u = MakeFourCC('b', 'g', 'r', 'a');
inline constexpr PrPixelFormat PrPixelFormat_BGRA_4444_16u = MakeFourCC('B', 'g', 'r', 'a');
inline constexpr PrPixelFormat PrPixelFormat_BGRA_4444_32f = MakeFourCC('B', 'G', 'r', 'a');
inline constexpr PrPixelFormat PrPixelFormat_BGRX_4444_8u = MakeFourCC('b', 'g', 'r', 'x');
inline constexpr PrPixelFormat PrPixelFormat_BGRX_4444_16u = MakeFourCC('B', 'g', 'r', 'x');
inline constexpr PrPixelFormat PrPixelFormat_BGRX_4444_32f = MakeFourCC('B', 'G', 'r', 'x');

} // namespace prsdk
