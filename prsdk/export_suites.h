// The per-instance suites besides the parameter suite: export info, export file, export progress, PPix,
// time, memory manager and window.
#pragma once

#include "prsdk/sdk_types.h"

namespace prsdk {

inline constexpr const char* kExportInfoSuite = "MediaCore Export Info Suite";
inline constexpr int32 kExportInfoSuiteVersion = 1;
inline constexpr const char* kExportFileSuite = "MediaCore Export File Suite";
inline constexpr int32 kExportFileSuiteVersion = 1;
inline constexpr const char* kExportProgressSuite = "MediaCore Export Progress Suite";
inline constexpr int32 kExportProgressSuiteVersion = 2;
inline constexpr const char* kPPixSuite = "Premiere PPix Suite";
inline constexpr int32 kPPixSuiteVersion = 1;
inline constexpr const char* kTimeSuite = "Premiere Time Suite";
inline constexpr int32 kTimeSuiteVersion = 1;
inline constexpr const char* kMemoryManagerSuite = "Premiere Memory Manager Suite";
inline constexpr int32 kMemoryManagerSuiteVersion = 3;
inline constexpr const char* kWindowSuite = "Premiere Window Suite";
inline constexpr int32 kWindowSuiteVersion = 1;

// Keys of GetExportSourceInfo.
enum PrExportSourceInfoKey : int32 {
    kExportInfo_VideoWidth = 0,
    kExportInfo_VideoHeight = 1,
    kExportInfo_VideoFrameRate = 2,
    kExportInfo_VideoFieldType = 3,
    kExportInfo_VideoDuration = 4,
    kExportInfo_PixelAspectNumerator = 5,
    kExportInfo_PixelAspectDenominator = 6,
    kExportInfo_AudioDuration = 7,
    kExportInfo_AudioChannelsType = 8,
    kExportInfo_AudioSampleRate = 9,
};

enum PrParamType : int32 {
    kPrParamType_Int8 = 1,
    kPrParamType_Int16 = 2,
    kPrParamType_Int32 = 3,
    kPrParamType_Int64 = 4,
    kPrParamType_Float32 = 5,
    kPrParamType_Float64 = 6,
    kPrParamType_Bool = 7,
};

#pragma pack(push, 1)

struct prPoint {
    int32 h, v;
};

struct prPluginID {
    uint32 data1;
    std::uint16_t data2, data3;
    std::uint8_t data4[8];
};

struct PrParam {
    PrParamType mType;
    union {
        int8 mInt8;
        int16 mInt16;
        int32 mInt32;
        int64 mInt64;
        float mFloat32;
        double mFloat64;
        std::uint8_t mBool;
        prPoint mPoint;
        prPluginID mGuid;
        void* mMemoryPtr;
        unsigned char mReserved[37];
    };
};

struct prRect {
    int32 left, top, right, bottom;
};

struct ExportInfoSuite {
    prSuiteError (*GetExportSourceInfo)(csSDK_uint32 exporterPluginID, PrExportSourceInfoKey key,
                                        PrParam* info);
};

struct ExportFileSuite {
    prSuiteError (*Open)(csSDK_uint32 fileObject);
    prSuiteError (*Write)(csSDK_uint32 fileObject, void* data, csSDK_int32 size);
    prSuiteError (*Seek)(csSDK_uint32 fileObject, int64 position, int64* newPosition, int32 seekMode);
    prSuiteError (*Close)(csSDK_uint32 fileObject);
    prSuiteError (*GetPlatformPath)(csSDK_uint32 fileObject, csSDK_int32* pathLength,
                                    prUTF16Char* platformPath);
};

struct ExportProgressSuite {
    prSuiteError (*SetProgressString)(csSDK_uint32 exporterPluginID, const prUTF16Char* text);
    prSuiteError (*UpdateProgressPercent)(csSDK_uint32 exporterPluginID, float percent);
    prSuiteError (*UpdateProgressPercentWithFrame)(csSDK_uint32 exporterPluginID, float percent,
                                                   PPixHand frame);
    prSuiteError (*WaitForResume)(csSDK_uint32 exporterPluginID);
};

struct PPixSuite {
    prSuiteError (*Dispose)(PPixHand pixels);
    prSuiteError (*GetPixels)(PPixHand pixels, int32 requestedAccess, char** pixelAddress);
    prSuiteError (*GetBounds)(PPixHand pixels, prRect* bounds);
    prSuiteError (*GetRowBytes)(PPixHand pixels, csSDK_int32* rowBytes);
    prSuiteError (*GetPixelAspectRatio)(PPixHand pixels, csSDK_uint32* numerator, csSDK_uint32* denominator);
    prSuiteError (*GetPixelFormat)(PPixHand pixels, PrPixelFormat* format);
    prSuiteError (*GetUniqueKey)(PPixHand pixels, unsigned char* key, std::size_t keySize);
    prSuiteError (*GetUniqueKeySize)(std::size_t* keySize);
    prSuiteError (*GetRenderTime)(PPixHand pixels, csSDK_int32* renderMilliseconds);
};

struct TimeSuite {
    prSuiteError (*GetTicksPerSecond)(PrTime* ticksPerSecond);
    prSuiteError (*GetTicksPerVideoFrame)(int32 videoFrameRate, PrTime* ticksPerFrame);
    prSuiteError (*GetTicksPerAudioSample)(float sampleRate, PrTime* ticksPerSample);
};

using PrMemoryPtr = char*;
using PrMemoryHandle = char**;

struct MemoryManagerSuite {
    prSuiteError (*ReserveMemory)(csSDK_uint32 pluginId, csSDK_uint32 size);
    prSuiteError (*GetMemoryManagerSize)(std::size_t* size);
    prSuiteError (*AddBlock)(std::size_t size);
    prSuiteError (*TouchBlock)(void* block);
    prSuiteError (*RemoveBlock)(void* block);
    PrMemoryPtr (*NewPtrClear)(csSDK_uint32 byteCount);
    PrMemoryPtr (*NewPtr)(csSDK_uint32 byteCount);
    csSDK_uint32 (*GetPtrSize)(PrMemoryPtr p);
    void (*SetPtrSize)(PrMemoryPtr* p, csSDK_uint32 newSize);
    PrMemoryHandle (*NewHandle)(csSDK_uint32 byteCount);
    PrMemoryHandle (*NewHandleClear)(csSDK_uint32 byteCount);
    void (*PrDisposePtr)(PrMemoryPtr p);
    void (*DisposeHandle)(PrMemoryHandle h);
    prSuiteError (*SetHandleSize)(PrMemoryHandle h, csSDK_uint32 newSize);
    csSDK_uint32 (*GetHandleSize)(PrMemoryHandle h);
};

struct WindowSuite {
    void* (*GetMainWindow)(void);
    void (*UpdateAllWindows)(void);
};

#pragma pack(pop)

static_assert(sizeof(PrParam) == 41);
static_assert(offsetof(PrParam, mInt64) == 4);
static_assert(sizeof(ExportInfoSuite) == 8);
static_assert(sizeof(ExportFileSuite) == 5 * 8);
static_assert(sizeof(ExportProgressSuite) == 4 * 8);
static_assert(sizeof(PPixSuite) == 9 * 8);
static_assert(sizeof(TimeSuite) == 3 * 8);
static_assert(sizeof(MemoryManagerSuite) == 15 * 8);
static_assert(sizeof(WindowSuite) == 2 * 8);
static_assert(sizeof(prRect) == 16);

} // namespace prsdk
