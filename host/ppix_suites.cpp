#include "host/ppix_suites.h"

#include <cstring>

#include "host/host_frame.h"

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

constexpr prsdk::int32 kAccessReadOnly = 0;
constexpr prsdk::int32 kAccessWriteOnly = 1;
constexpr prsdk::int32 kAccessReadWrite = 2;

prSuiteError Dispose(prsdk::PPixHand h) {
    return FrameRegistry::Instance().Dispose(h) ? prsdk::suiteError_NoError : prsdk::suiteError_InvalidParms;
}

prSuiteError GetPixels(prsdk::PPixHand h, prsdk::int32 access, char** pixels) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (pixels)
        *pixels = nullptr;
    if (!f || !pixels)
        return prsdk::suiteError_InvalidParms;
    if (access != kAccessReadOnly && access != kAccessWriteOnly && access != kAccessReadWrite)
        return prsdk::suiteError_InvalidParms;
    *pixels = reinterpret_cast<char*>(f->pixels);
    return prsdk::suiteError_NoError;
}

prSuiteError GetBounds(prsdk::PPixHand h, prsdk::prRect* bounds) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !bounds)
        return prsdk::suiteError_InvalidParms;
    *bounds = {0, 0, f->layout.width, f->layout.height};
    return prsdk::suiteError_NoError;
}

prSuiteError GetRowBytes(prsdk::PPixHand h, prsdk::csSDK_int32* rowBytes) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !rowBytes)
        return prsdk::suiteError_InvalidParms;
    *rowBytes = f->rowBytes;
    return prsdk::suiteError_NoError;
}

prSuiteError GetPixelAspectRatio(prsdk::PPixHand h, prsdk::csSDK_uint32* num, prsdk::csSDK_uint32* den) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !num || !den)
        return prsdk::suiteError_InvalidParms;
    *num = static_cast<prsdk::csSDK_uint32>(f->layout.parNumerator);
    *den = static_cast<prsdk::csSDK_uint32>(f->layout.parDenominator);
    return prsdk::suiteError_NoError;
}

prSuiteError GetPixelFormat(prsdk::PPixHand h, prsdk::PrPixelFormat* format) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !format)
        return prsdk::suiteError_InvalidParms;
    *format = f->layout.format;
    return prsdk::suiteError_NoError;
}

// The key is the frame's serial number; every frame made is a different picture to this host.
prSuiteError GetUniqueKey(prsdk::PPixHand h, unsigned char* key, std::size_t size) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !key || size < sizeof f->key)
        return prsdk::suiteError_InvalidParms;
    std::memset(key, 0, size);
    std::memcpy(key, &f->key, sizeof f->key);
    return prsdk::suiteError_NoError;
}

prSuiteError GetUniqueKeySize(std::size_t* size) {
    if (!size)
        return prsdk::suiteError_InvalidParms;
    *size = sizeof(std::uint64_t);
    return prsdk::suiteError_NoError;
}

prSuiteError GetRenderTime(prsdk::PPixHand h, prsdk::csSDK_int32* milliseconds) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !milliseconds)
        return prsdk::suiteError_InvalidParms;
    *milliseconds = f->renderMilliseconds;
    return prsdk::suiteError_NoError;
}

const prsdk::PPixSuite kPPixSuite = {Dispose,      GetPixels,           GetBounds,
                                     GetRowBytes,  GetPixelAspectRatio, GetPixelFormat,
                                     GetUniqueKey, GetUniqueKeySize,    GetRenderTime};

// --- PPix 2 ---
prSuiteError GetSize(prsdk::PPixHand h, std::size_t* size) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !size)
        return prsdk::suiteError_InvalidParms;
    *size = f->Size();
    return prsdk::suiteError_NoError;
}

// The host renders only BGRA frames here; none has planar YUV buffers.
prSuiteError GetYUV420PlanarBuffers(prsdk::PPixHand h, prsdk::int32, char** y, prsdk::csSDK_uint32* yRow,
                                    char** u, prsdk::csSDK_uint32* uRow, char** v,
                                    prsdk::csSDK_uint32* vRow) {
    for (char** p : {y, u, v}) {
        if (p)
            *p = nullptr;
    }
    for (prsdk::csSDK_uint32* r : {yRow, uRow, vRow}) {
        if (r)
            *r = 0;
    }
    return FrameRegistry::Instance().Find(h) ? prsdk::suiteError_InvalidCall : prsdk::suiteError_InvalidParms;
}

prSuiteError GetOrigin(prsdk::PPixHand h, prsdk::csSDK_int32* x, prsdk::csSDK_int32* y) {
    if (!FrameRegistry::Instance().Find(h) || !x || !y)
        return prsdk::suiteError_InvalidParms;
    *x = 0;
    *y = 0;
    return prsdk::suiteError_NoError;
}

prSuiteError GetFieldOrder(prsdk::PPixHand h, prsdk::int32* fieldType) {
    HostFrame* f = FrameRegistry::Instance().Find(h);
    if (!f || !fieldType)
        return prsdk::suiteError_InvalidParms;
    *fieldType = f->layout.fieldType;
    return prsdk::suiteError_NoError;
}

const prsdk::PPix2Suite kPPix2Suite = {GetSize, GetYUV420PlanarBuffers, GetOrigin, GetFieldOrder};

} // namespace

const prsdk::PPixSuite* PPixSuiteTable() {
    return &kPPixSuite;
}
const prsdk::PPix2Suite* PPix2SuiteTable() {
    return &kPPix2Suite;
}

} // namespace qvnhost
