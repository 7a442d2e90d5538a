// The suites an export run acquires: sequence render (video), sequence audio, audio conversion, PPix 2 and
// image processing.
#pragma once

#include "prsdk/export_suites.h"
#include "prsdk/sdk_types.h"

namespace prsdk {

inline constexpr const char* kSequenceRenderSuite = "MediaCore Sequence Render Suite";
inline constexpr int32 kSequenceRenderSuiteVersion = 3;
inline constexpr const char* kSequenceAudioSuite = "MediaCore Sequence Audio Suite";
inline constexpr int32 kSequenceAudioSuiteVersion = 1;
inline constexpr const char* kAudioSuite = "Premiere Audio Suite";
inline constexpr int32 kAudioSuiteVersion = 1;
inline constexpr const char* kPPix2Suite = "Premiere PPix 2 Suite";
inline constexpr int32 kPPix2SuiteVersion = 3;
inline constexpr const char* kImageProcessingSuite = "Premiere Image Processing Suite";
inline constexpr int32 kImageProcessingSuiteVersion = 1;

// Render quality values.
enum PrRenderQuality : int32 {
    kPrRenderQuality_Draft = 0,
    kPrRenderQuality_Low = 1,
    kPrRenderQuality_Medium = 2,
    kPrRenderQuality_High = 3,
    kPrRenderQuality_Max = 4,
};

enum PrAudioChannelType : int32 {
    kPrAudioChannelType_Mono = 1,
    kPrAudioChannelType_Stereo = 2,
    kPrAudioChannelType_51 = 3,
};

enum PrAudioSampleType : int32 {
    kPrAudioSampleType_8BitInt = 1,
    kPrAudioSampleType_16BitInt = 3,
    kPrAudioSampleType_24BitInt = 4,
    kPrAudioSampleType_32BitInt = 5,
    kPrAudioSampleType_32BitFloat = 6,
};

#pragma pack(push, 1)

struct SequenceRender_ParamsRec {
    const PrPixelFormat* inRequestedPixelFormatArray;
    int32 inRequestedPixelFormatArrayCount;
    int32 inWidth;
    int32 inHeight;
    int32 inPixelAspectRatioNumerator;
    int32 inPixelAspectRatioDenominator;
    int32 inRenderQuality;
    int32 inFieldType;
    int32 inDeinterlace;
    int32 inDeinterlaceQuality;
    int32 inCompositeOnBlack;
};

struct SequenceRender_GetFrameReturnRec {
    void* asyncCompletionData;
    int32 returnVal;
    int32 repeatCount;
    int32 onMarker;
    PPixHand outFrame;
};

using PrSDKSequenceAsyncRenderCompletionProc = void (*)(csSDK_uint32 videoRenderID, void* callbackRef,
                                                        PrTime renderedTime, PPixHand renderedFrame,
                                                        SequenceRender_GetFrameReturnRec* getFrameReturn);

struct SequenceRenderSuite {
    prSuiteError (*MakeVideoRenderer)(csSDK_uint32 pluginID, csSDK_uint32* videoRenderID, PrTime frameRate);
    prSuiteError (*ReleaseVideoRenderer)(csSDK_uint32 pluginID, csSDK_uint32 videoRenderID);
    prSuiteError (*RenderVideoFrame)(csSDK_uint32 videoRenderID, PrTime time,
                                     SequenceRender_ParamsRec* params, int32 cacheFlags,
                                     SequenceRender_GetFrameReturnRec* frameReturn);
    prSuiteError (*QueueAsyncVideoFrameRender)(csSDK_uint32 videoRenderID, PrTime time,
                                               csSDK_uint32* requestID, SequenceRender_ParamsRec* params,
                                               int32 cacheFlags, void* asyncCompletionData);
    prSuiteError (*SetAsyncRenderCompletionProc)(csSDK_uint32 videoRenderID,
                                                 PrSDKSequenceAsyncRenderCompletionProc proc,
                                                 void* callbackRef);
    prSuiteError (*GetFrameInfo)(csSDK_uint32 videoRenderID, void* frameInfo);
    prSuiteError (*PrefetchMedia)(csSDK_uint32 videoRenderID, PrTime frame);
    prSuiteError (*PrefetchMediaWithRenderParameters)(csSDK_uint32 videoRenderID, PrTime time,
                                                      SequenceRender_ParamsRec* params);
    prSuiteError (*CancelAllOutstandingMediaPrefetches)(csSDK_uint32 videoRenderID);
};

struct SequenceAudioSuite {
    prSuiteError (*MakeAudioRenderer)(csSDK_uint32 pluginID, PrTime startTime, PrAudioChannelType channelType,
                                      PrAudioSampleType sampleType, float sampleRate,
                                      csSDK_uint32* audioRenderID);
    prSuiteError (*ReleaseAudioRenderer)(csSDK_uint32 pluginID, csSDK_uint32 audioRenderID);
    prSuiteError (*GetAudio)(csSDK_uint32 audioRenderID, csSDK_uint32 frameCount, float** buffers, char clip);
    prSuiteError (*ResetAudioToBeginning)(csSDK_uint32 audioRenderID);
    prSuiteError (*GetMaxBlip)(csSDK_uint32 audioRenderID, PrTime ticksPerFrame, csSDK_int32* maxBlipSize);
};

struct AudioSuite {
    prSuiteError (*ConvertAndInterleaveTo8BitInteger)(float** source, char* dest, csSDK_uint32 channels,
                                                      csSDK_uint32 frames);
    prSuiteError (*ConvertAndInterleaveTo16BitInteger)(float** source, short* dest, csSDK_uint32 channels,
                                                       csSDK_uint32 frames);
    prSuiteError (*ConvertAndInterleaveTo24BitInteger)(float** source, char* dest, csSDK_uint32 channels,
                                                       csSDK_uint32 frames);
    prSuiteError (*ConvertAndInterleaveTo32BitInteger)(float** source, int32* dest, csSDK_uint32 channels,
                                                       csSDK_uint32 frames);
    prSuiteError (*UninterleaveAndConvertFrom8BitInteger)(char* source, float** dest, csSDK_uint32 channels,
                                                          csSDK_uint32 frames);
    prSuiteError (*UninterleaveAndConvertFrom16BitInteger)(short* source, float** dest, csSDK_uint32 channels,
                                                           csSDK_uint32 frames);
    prSuiteError (*UninterleaveAndConvertFrom24BitInteger)(char* source, float** dest, csSDK_uint32 channels,
                                                           csSDK_uint32 frames);
    prSuiteError (*UninterleaveAndConvertFrom32BitInteger)(int32* source, float** dest, csSDK_uint32 channels,
                                                           csSDK_uint32 frames);
};

struct PPix2Suite {
    prSuiteError (*GetSize)(PPixHand pixels, std::size_t* size);
    prSuiteError (*GetYUV420PlanarBuffers)(PPixHand pixels, int32 requestedAccess, char** yAddress,
                                           csSDK_uint32* yRowBytes, char** uAddress, csSDK_uint32* uRowBytes,
                                           char** vAddress, csSDK_uint32* vRowBytes);
    prSuiteError (*GetOrigin)(PPixHand pixels, csSDK_int32* originX, csSDK_int32* originY);
    prSuiteError (*GetFieldOrder)(PPixHand pixels, int32* fieldType);
};

struct ImageProcessingSuite {
    prSuiteError (*FormatIsCompressed)(PrPixelFormat format, prBool* isCompressed);
    prSuiteError (*FormatHasAlpha)(PrPixelFormat format, prBool* hasAlpha);
    prSuiteError (*FormatIsOriginTopLeft)(PrPixelFormat format, prBool* isTopLeft);
    prSuiteError (*GetSizeForPixelBuffer)(PrPixelFormat format, csSDK_uint32 width, csSDK_uint32 height,
                                          csSDK_uint32* rowBytes, std::size_t* size);
    prSuiteError (*ScaleConvert)(PrPixelFormat srcFormat, csSDK_uint32 srcWidth, csSDK_uint32 srcHeight,
                                 csSDK_int32 srcRowBytes, int32 srcFieldType, void* srcBuffer,
                                 PrPixelFormat dstFormat, csSDK_uint32 dstWidth, csSDK_uint32 dstHeight,
                                 csSDK_int32 dstRowBytes, int32 dstFieldType, void* dstBuffer, int32 quality);
    prSuiteError (*CompressDV100720p)(PrPixelFormat srcFormat, csSDK_uint32 srcWidth, csSDK_uint32 srcHeight,
                                      csSDK_int32 srcRowBytes, void* srcBuffer, PrPixelFormat dstFormat,
                                      csSDK_int32 dstLength, void* dstBuffer, int32 channelOffset,
                                      int32 quality);
};

#pragma pack(pop)

static_assert(sizeof(SequenceRender_ParamsRec) == 48);
static_assert(offsetof(SequenceRender_ParamsRec, inRequestedPixelFormatArrayCount) == 8);
static_assert(offsetof(SequenceRender_ParamsRec, inWidth) == 12);
static_assert(offsetof(SequenceRender_ParamsRec, inHeight) == 16);
static_assert(offsetof(SequenceRender_ParamsRec, inPixelAspectRatioNumerator) == 20);
static_assert(offsetof(SequenceRender_ParamsRec, inPixelAspectRatioDenominator) == 24);
static_assert(offsetof(SequenceRender_ParamsRec, inRenderQuality) == 28);
static_assert(offsetof(SequenceRender_ParamsRec, inFieldType) == 32);
static_assert(offsetof(SequenceRender_ParamsRec, inDeinterlace) == 36);
static_assert(offsetof(SequenceRender_ParamsRec, inDeinterlaceQuality) == 40);
static_assert(offsetof(SequenceRender_ParamsRec, inCompositeOnBlack) == 44);
static_assert(sizeof(SequenceRender_GetFrameReturnRec) == 28);
static_assert(offsetof(SequenceRender_GetFrameReturnRec, returnVal) == 8);
static_assert(offsetof(SequenceRender_GetFrameReturnRec, repeatCount) == 12);
static_assert(offsetof(SequenceRender_GetFrameReturnRec, onMarker) == 16);
static_assert(offsetof(SequenceRender_GetFrameReturnRec, outFrame) == 20);
static_assert(sizeof(SequenceAudioSuite) == 5 * 8);
static_assert(sizeof(AudioSuite) == 8 * 8);
static_assert(sizeof(PPix2Suite) == 4 * 8);
static_assert(sizeof(ImageProcessingSuite) == 6 * 8);

} // namespace prsdk
