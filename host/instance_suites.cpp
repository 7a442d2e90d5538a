#include "host/instance_suites.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include "host/ppix_suites.h"
#include "host/suite_broker.h"
#include "platform/text_encoding.h"

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

SequenceInfo gSequence;

// --- Export Info Suite ---
prSuiteError GetExportSourceInfo(prsdk::csSDK_uint32, prsdk::PrExportSourceInfoKey key,
                                 prsdk::PrParam* info) {
    if (!info)
        return prsdk::suiteError_InvalidParms;
    std::memset(info, 0, sizeof *info);
    const SequenceInfo& s = gSequence;
    switch (key) {
    case prsdk::kExportInfo_VideoWidth:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.width;
        break;
    case prsdk::kExportInfo_VideoHeight:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.height;
        break;
    case prsdk::kExportInfo_VideoFrameRate:
        info->mType = prsdk::kPrParamType_Int64, info->mInt64 = s.ticksPerFrame;
        break;
    case prsdk::kExportInfo_VideoFieldType:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.fieldType;
        break;
    case prsdk::kExportInfo_VideoDuration:
        info->mType = prsdk::kPrParamType_Int64, info->mInt64 = s.videoDurationTicks;
        break;
    case prsdk::kExportInfo_PixelAspectNumerator:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.pixelAspectNumerator;
        break;
    case prsdk::kExportInfo_PixelAspectDenominator:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.pixelAspectDenominator;
        break;
    case prsdk::kExportInfo_AudioDuration:
        info->mType = prsdk::kPrParamType_Int64, info->mInt64 = s.audioDurationTicks;
        break;
    case prsdk::kExportInfo_AudioChannelsType:
        info->mType = prsdk::kPrParamType_Int32, info->mInt32 = s.audioChannelType;
        break;
    case prsdk::kExportInfo_AudioSampleRate:
        info->mType = prsdk::kPrParamType_Float64, info->mFloat64 = s.audioSampleRate;
        break;
    default:
        return prsdk::suiteError_InvalidParms;
    }
    return prsdk::suiteError_NoError;
}
const prsdk::ExportInfoSuite kInfoSuite = {GetExportSourceInfo};

// --- Export File Suite: the host owns the file; the module only asks for its path. ---
prSuiteError FileOpen(prsdk::csSDK_uint32) {
    return prsdk::suiteError_NoError;
}
prSuiteError FileWrite(prsdk::csSDK_uint32, void*, prsdk::csSDK_int32) {
    return prsdk::suiteError_NotImplemented;
}
prSuiteError FileSeek(prsdk::csSDK_uint32, prsdk::int64, prsdk::int64*, prsdk::int32) {
    return prsdk::suiteError_NotImplemented;
}
prSuiteError FileClose(prsdk::csSDK_uint32) {
    return prsdk::suiteError_NoError;
}
// With a null path buffer the length (in characters, with the terminating zero) is answered; otherwise the
// path is copied when the caller's length is enough.
prSuiteError GetPlatformPath(prsdk::csSDK_uint32, prsdk::csSDK_int32* length, prsdk::prUTF16Char* path) {
    if (!length)
        return prsdk::suiteError_InvalidParms;
    const std::u16string wide = QVN::Utf8ToUtf16(gSequence.outputPath);
    const auto needed = static_cast<prsdk::csSDK_int32>(wide.size() + 1);
    if (!path) {
        *length = needed;
        return prsdk::suiteError_NoError;
    }
    if (*length < needed)
        return prsdk::suiteError_InvalidParms;
    for (std::size_t i = 0; i < wide.size(); ++i)
        path[i] = static_cast<prsdk::prUTF16Char>(wide[i]);
    path[wide.size()] = 0;
    *length = needed;
    return prsdk::suiteError_NoError;
}
const prsdk::ExportFileSuite kFileSuite = {FileOpen, FileWrite, FileSeek, FileClose, GetPlatformPath};

// --- Time Suite ---
prSuiteError GetTicksPerSecond(prsdk::PrTime* ticks) {
    *ticks = kTicksPerSecond;
    return prsdk::suiteError_NoError;
}
prSuiteError GetTicksPerVideoFrame(prsdk::int32, prsdk::PrTime*) {
    return prsdk::suiteError_NotImplemented;
}
prSuiteError GetTicksPerAudioSample(float rate, prsdk::PrTime* ticks) {
    if (!(rate > 0.0f))
        return prsdk::suiteError_InvalidParms;
    *ticks = static_cast<prsdk::PrTime>(static_cast<double>(kTicksPerSecond) / static_cast<double>(rate));
    return prsdk::suiteError_NoError;
}
const prsdk::TimeSuite kTimeSuite = {GetTicksPerSecond, GetTicksPerVideoFrame, GetTicksPerAudioSample};

// --- Memory Manager Suite: pointers carry their size in a 16-byte header. ---
constexpr std::size_t kHeader = 16;
prsdk::PrMemoryPtr NewPtrImpl(prsdk::csSDK_uint32 size, bool clear) {
    auto* raw = static_cast<char*>(clear ? std::calloc(1, size + kHeader) : std::malloc(size + kHeader));
    if (!raw)
        return nullptr;
    std::memcpy(raw, &size, sizeof size);
    return raw + kHeader;
}
prsdk::csSDK_uint32 PtrSize(prsdk::PrMemoryPtr p) {
    prsdk::csSDK_uint32 size = 0;
    if (p)
        std::memcpy(&size, p - kHeader, sizeof size);
    return size;
}
prSuiteError ReserveMemory(prsdk::csSDK_uint32, prsdk::csSDK_uint32) {
    return prsdk::suiteError_NoError;
}
prSuiteError GetMemoryManagerSize(std::size_t* size) {
    *size = std::size_t{4} << 30;
    return prsdk::suiteError_NoError;
}
prSuiteError AddBlock(std::size_t) {
    return prsdk::suiteError_NoError;
}
prSuiteError TouchBlock(void*) {
    return prsdk::suiteError_NoError;
}
prSuiteError RemoveBlock(void*) {
    return prsdk::suiteError_NoError;
}
prsdk::PrMemoryPtr NewPtrClear(prsdk::csSDK_uint32 n) {
    return NewPtrImpl(n, true);
}
prsdk::PrMemoryPtr NewPtr(prsdk::csSDK_uint32 n) {
    return NewPtrImpl(n, false);
}
void SetPtrSize(prsdk::PrMemoryPtr* p, prsdk::csSDK_uint32 n) {
    auto* raw = static_cast<char*>(std::realloc(*p ? *p - kHeader : nullptr, n + kHeader));
    if (!raw)
        return;
    std::memcpy(raw, &n, sizeof n);
    *p = raw + kHeader;
}
void DisposePtr(prsdk::PrMemoryPtr p) {
    if (p)
        std::free(p - kHeader);
}
prsdk::PrMemoryHandle NewHandleImpl(prsdk::csSDK_uint32 n, bool clear) {
    auto* h = static_cast<prsdk::PrMemoryHandle>(std::malloc(sizeof(prsdk::PrMemoryPtr)));
    if (!h)
        return nullptr;
    *h = NewPtrImpl(n, clear);
    if (!*h) {
        std::free(h);
        return nullptr;
    }
    return h;
}
prsdk::PrMemoryHandle NewHandle(prsdk::csSDK_uint32 n) {
    return NewHandleImpl(n, false);
}
prsdk::PrMemoryHandle NewHandleClear(prsdk::csSDK_uint32 n) {
    return NewHandleImpl(n, true);
}
void DisposeHandle(prsdk::PrMemoryHandle h) {
    if (h) {
        DisposePtr(*h);
        std::free(h);
    }
}
prSuiteError SetHandleSize(prsdk::PrMemoryHandle h, prsdk::csSDK_uint32 n) {
    if (!h)
        return prsdk::suiteError_InvalidParms;
    SetPtrSize(h, n);
    return PtrSize(*h) == n ? prsdk::suiteError_NoError : prsdk::suiteError_OutOfMemory;
}
prsdk::csSDK_uint32 GetHandleSize(prsdk::PrMemoryHandle h) {
    return h ? PtrSize(*h) : 0;
}
const prsdk::MemoryManagerSuite kMemorySuite = {
    ReserveMemory, GetMemoryManagerSize, AddBlock,  TouchBlock,     RemoveBlock, NewPtrClear,   NewPtr,
    PtrSize,       SetPtrSize,           NewHandle, NewHandleClear, DisposePtr,  DisposeHandle, SetHandleSize,
    GetHandleSize};

// --- Window Suite: no windows in a command-line host. ---
void* GetMainWindow() {
    return nullptr;
}
void UpdateAllWindows() {}
const prsdk::WindowSuite kWindowSuite = {GetMainWindow, UpdateAllWindows};

} // namespace

SequenceInfo& CurrentSequence() {
    return gSequence;
}

void RegisterInstanceSuites() {
    SuiteBroker& broker = SuiteBroker::Instance();
    broker.Register(prsdk::kExportParamSuite, prsdk::kExportParamSuiteVersion, ExportParamSuiteTable());
    broker.Register(prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, &kFileSuite);
    broker.Register(prsdk::kExportInfoSuite, prsdk::kExportInfoSuiteVersion, &kInfoSuite);
    broker.Register(prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, PPixSuiteTable());
    broker.Register(prsdk::kTimeSuite, prsdk::kTimeSuiteVersion, &kTimeSuite);
    broker.Register(prsdk::kMemoryManagerSuite, prsdk::kMemoryManagerSuiteVersion, &kMemorySuite);
    broker.Register(prsdk::kWindowSuite, prsdk::kWindowSuiteVersion, &kWindowSuite);
}

} // namespace qvnhost
