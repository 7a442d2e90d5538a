// The host-facing half of the export run: render requests, the completion callback that converts each frame
// into an encoder buffer and hands frames over strictly in order, progress, and audio.
#include <algorithm>
#include <cstring>

#include "converter/converter.h"
#include "exporter/codec_catalogue.h"
#include "exporter/legacy_compiler.h"

namespace QVN {
namespace {

constexpr prsdk::int32 kResultFailed = static_cast<prsdk::int32>(0x80004005u);
constexpr prsdk::int32 kAbortUnsupported = 3;   // a frame the codec cannot take, or a render error
constexpr prsdk::int32 kAbortUnknownFormat = 6; // a frame in a format outside the three BGRA depths

// The 10-bit codecs take every depth, best first; the others take 8-bit frames only.
const prsdk::PrPixelFormat kDeepFormats[] = {prsdk::PrPixelFormat_BGRA_4444_32f,
                                             prsdk::PrPixelFormat_BGRA_4444_16u,
                                             prsdk::PrPixelFormat_BGRA_4444_8u};

enum class Depth { k8u, k16u, k32f, kOther };

Depth DepthOf(prsdk::PrPixelFormat format) {
    switch (format) {
    case prsdk::PrPixelFormat_BGRA_4444_8u:
    case prsdk::PrPixelFormat_BGRX_4444_8u:
        return Depth::k8u;
    case prsdk::PrPixelFormat_BGRA_4444_16u:
    case prsdk::PrPixelFormat_BGRX_4444_16u:
        return Depth::k16u;
    case prsdk::PrPixelFormat_BGRA_4444_32f:
    case prsdk::PrPixelFormat_BGRX_4444_32f:
        return Depth::k32f;
    default:
        return Depth::kOther;
    }
}

// Codes whose 8-bit frames are handed on as they are, for a graph filter to compress.
bool TakesRowCopy(std::uint32_t codec) {
    return codec == 0 || codec == FourCC("MJPG") || codec == FourCC("dvsd") || codec == FourCC("nvsd") ||
           codec == FourCC("pvsd") || codec == FourCC("BGRA") || codec == FourCC("ARGB");
}

// Copies rows of rowBytes bytes; a negative step walks the source from its last row up.
void CopyRows(const char* src, std::int32_t srcStep, char* dst, std::int32_t dstStep, std::int32_t rowBytes,
              std::int32_t rows) {
    if (srcStep == dstStep && srcStep == rowBytes) {
        std::memcpy(dst, src, static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(rows));
        return;
    }
    for (std::int32_t r = 0; r < rows; ++r)
        std::memcpy(dst + static_cast<std::ptrdiff_t>(r) * dstStep,
                    src + static_cast<std::ptrdiff_t>(r) * srcStep, static_cast<std::size_t>(rowBytes));
}

} // namespace

prsdk::int32 LegacyCompiler::SetUpAudio(std::uint16_t* bitsPerSample) {
    std::uint16_t channels = 0;
    switch (settings_.audioChannelType) {
    case 1:
        channels = 1;
        break;
    case 2:
        channels = 2;
        break;
    case 3:
        channels = 6;
        break;
    default:
        return prsdk::exportReturn_InternalError;
    }
    std::uint16_t bits = 0;
    switch (settings_.audioSampleType) {
    case 1:
        bits = 8;
        break;
    case 3:
        bits = 16;
        break;
    case 4:
        bits = 24;
        break;
    case 5:
    case 6:
        bits = 32;
        break;
    default:
        return prsdk::exportReturn_InternalError;
    }
    channels_ = channels;
    bitsPerSample_ = bits;
    *bitsPerSample = bits;
    const std::int16_t tag = settings_.audioSampleType == 6 ? 3 : 1; // IEEE float or PCM
    const auto rate = static_cast<std::uint32_t>(settings_.audioSampleRate + 0.5);
    return static_cast<prsdk::int32>(encoder_->SetAudioFormat(channels, rate, bits, tag));
}

prsdk::int32 LegacyCompiler::RequestFrame(std::int32_t frame) {
    InterlockedInc(&inFlight_);
    const bool deep = settings_.codec == FourCC("v210") || settings_.codec == FourCC("r210");
    renderParams_.inRequestedPixelFormatArray = kDeepFormats + (deep ? 0 : 2);
    renderParams_.inRequestedPixelFormatArrayCount = deep ? 3 : 1;
    renderParams_.inWidth = settings_.width;
    renderParams_.inHeight = settings_.height;
    renderParams_.inPixelAspectRatioNumerator = settings_.pixelAspectNumerator;
    renderParams_.inPixelAspectRatioDenominator = settings_.pixelAspectDenominator;
    renderParams_.inRenderQuality = prsdk::kPrRenderQuality_High;
    renderParams_.inFieldType = settings_.fieldType;
    renderParams_.inDeinterlace = 0;
    renderParams_.inDeinterlaceQuality = 0;
    renderParams_.inCompositeOnBlack = 1;
    prsdk::csSDK_uint32 request = 0;
    const prsdk::prSuiteError err = renderSuite_->QueueAsyncVideoFrameRender(
        videoRenderer_, static_cast<prsdk::PrTime>(frame) * settings_.ticksPerFrame, &request, &renderParams_,
        0, nullptr);
    if (err != prsdk::suiteError_NoError) {
        FrameDone();
        return kResultFailed;
    }
    return 0;
}

void LegacyCompiler::OnFrameRendered(prsdk::csSDK_uint32, void* self, prsdk::PrTime time,
                                     prsdk::PPixHand frame, prsdk::SequenceRender_GetFrameReturnRec* result) {
    static_cast<LegacyCompiler*>(self)->FrameRendered(time, frame, result);
}

void LegacyCompiler::FrameRendered(prsdk::PrTime time, prsdk::PPixHand frame,
                                   const prsdk::SequenceRender_GetFrameReturnRec* result) {
    const auto n = static_cast<std::int32_t>(time / settings_.ticksPerFrame);
    void* buffer = nullptr;
    {
        CAutoLock<CW32CriticalSection> hold(lock_);
        if (!pending_.empty()) {
            buffer = pending_.front();
            pending_.pop_front();
        }
    }
    const bool failed = (result && result->returnVal != 0) || !frame || !buffer;
    prsdk::int32 abort = failed ? kAbortUnsupported : ConvertFrame(n, frame, buffer);
    if (frame && ppixSuite_)
        ppixSuite_->Dispose(frame);
    if (abort == 0) {
        // This runs on the host's thread: an exception leaving it would end the host. The frame is lost
        // instead, and the run stops as for any frame that cannot be delivered.
        try {
            DeliverInOrder(n, buffer);
        } catch (...) {
            abort = kAbortUnsupported;
            InterlockedWrite(&moduleFailure_, abort);
        }
    }
    if (abort != 0) {
        SetAbort(abort);
        InterlockedWrite(&frameLost_, 1);
    }
    FrameDone();
}

prsdk::int32 LegacyCompiler::ConvertFrame(std::int32_t n, prsdk::PPixHand frame, void* buffer) {
    char* pixels = nullptr;
    prsdk::prRect bounds{};
    prsdk::csSDK_int32 rowBytes = 0;
    prsdk::PrPixelFormat format = 0;
    if (ppixSuite_->GetPixels(frame, 0, &pixels) != prsdk::suiteError_NoError || !pixels)
        return kAbortUnsupported;
    ppixSuite_->GetBounds(frame, &bounds);
    ppixSuite_->GetRowBytes(frame, &rowBytes);
    ppixSuite_->GetPixelFormat(frame, &format);
    const std::int32_t width = bounds.right - bounds.left;
    const std::int32_t height = bounds.bottom - bounds.top;
    const std::int32_t absHeight = output_.biHeight < 0 ? -output_.biHeight : output_.biHeight;
    const auto dstRowBytes = static_cast<std::uint32_t>(absHeight ? output_.biSizeImage / absHeight : 0);
    // The host's frame must fit the buffer it is converted into, whatever size it chose to render.
    if (width <= 0 || height <= 0 || width > settings_.width || height > absHeight)
        return kAbortUnsupported;

    const std::uint32_t codec = settings_.codec;
    if (hostCompresses_) {
        if (!imageSuite_)
            return kAbortUnsupported;
        prsdk::prSuiteError err;
        if (alternatingFieldPhase_) {
            const prsdk::int32 phase = ((n - firstFrame_) % 2 == 0) ? 0 : 2;
            err = imageSuite_->CompressDV100720p(format, static_cast<prsdk::csSDK_uint32>(width),
                                                 static_cast<prsdk::csSDK_uint32>(height), rowBytes, pixels,
                                                 codec, static_cast<prsdk::csSDK_int32>(output_.biSizeImage),
                                                 buffer, phase, prsdk::kPrRenderQuality_High);
        } else {
            err = imageSuite_->ScaleConvert(
                format, static_cast<prsdk::csSDK_uint32>(width), static_cast<prsdk::csSDK_uint32>(height),
                rowBytes, settings_.fieldType, pixels, codec, static_cast<prsdk::csSDK_uint32>(width),
                static_cast<prsdk::csSDK_uint32>(height), static_cast<prsdk::csSDK_int32>(dstRowBytes),
                settings_.fieldType, buffer, prsdk::kPrRenderQuality_High);
        }
        return err == prsdk::suiteError_NoError ? 0 : kAbortUnsupported;
    }

    namespace Video = Converter::Video;
    const auto src = static_cast<std::uint32_t>(rowBytes);
    // A converter that fails (its tables could not be allocated) leaves the buffer as it was: the frame
    // is lost rather than written with stale pixels.
    const auto converted = [this](std::int32_t answer) {
        if (answer == Video::kResultOk)
            return prsdk::int32{0};
        InterlockedWrite(&moduleFailure_, kAbortUnsupported);
        return kAbortUnsupported;
    };
    switch (DepthOf(format)) {
    case Depth::k32f:
    case Depth::k16u: {
        const std::uint32_t from =
            DepthOf(format) == Depth::k32f ? Video::kPixelFormatBgra32f : Video::kPixelFormatBgra16u;
        if (codec == FourCC("r210"))
            return converted(
                Video::r210::CreateFrom(pixels, src, from, buffer, dstRowBytes, width, height, 0, 0));
        if (codec == FourCC("v210"))
            return converted(
                Video::v210::CreateFrom(pixels, src, from, buffer, dstRowBytes, width, height, 0, 0));
        return kAbortUnsupported;
    }
    case Depth::k8u:
        if (codec == FourCC("UYVY") || codec == FourCC("HDYC"))
            return converted(Video::uyvy::CreateFrom(pixels, src, Video::kPixelFormatBgra8u, buffer,
                                                     dstRowBytes, width, height, 0, 0));
        if (codec == FourCC("r210"))
            return converted(Video::r210::CreateFrom(pixels, src, Video::kPixelFormatBgra8u, buffer,
                                                     dstRowBytes, width, height, 0, 0));
        if (codec == FourCC("v210"))
            return converted(Video::v210::CreateFrom(pixels, src, Video::kPixelFormatBgra8u, buffer,
                                                     dstRowBytes, width, height, 0, 0));
        if (TakesRowCopy(codec)) {
            CopyRows(pixels, rowBytes, static_cast<char*>(buffer), static_cast<std::int32_t>(dstRowBytes),
                     width * 4, height);
            return 0;
        }
        return kAbortUnsupported;
    default:
        return kAbortUnknownFormat;
    }
}

// Frames complete in any order on several host threads. The whole hand-over runs under the lock: with a
// direct write outside it, a frame filed in the map just after the writer of its predecessor looked at the
// map would wait there for ever (and the export with it). The encoder serialises writes anyway.
void LegacyCompiler::DeliverInOrder(std::int32_t n, void* buffer) {
    CAutoLock<CW32CriticalSection> hold(lock_);
    reorder_.emplace(n, buffer); // the only step that can throw, before anything has changed
    while (!reorder_.empty() && reorder_.begin()->first == InterlockedRead(&nextFrame_)) {
        const auto first = reorder_.begin();
        const std::uint32_t written = encoder_->WriteVideo(first->second, output_.biSizeImage);
        if (written != 0) {
            // The hand-over stops at a frame the encoder could not take: the frames after it would
            // otherwise be written one place early. The run stops with the encoder's result.
            reorder_.erase(first);
            InterlockedWrite(&moduleFailure_, static_cast<prsdk::int32>(written));
            InterlockedWrite(&frameLost_, 1);
            SetAbort(static_cast<prsdk::int32>(written));
            return;
        }
        ReportProgress(first->first);
        reorder_.erase(first);
        InterlockedInc(&nextFrame_);
    }
}

void LegacyCompiler::ReportProgress(std::int32_t n) {
    if (!progressSuite_)
        return;
    const float fraction = static_cast<float>(n - firstFrame_) / static_cast<float>(endFrame_ - firstFrame_);
    const prsdk::prSuiteError answer = progressSuite_->UpdateProgressPercent(pluginId_, fraction);
    if (answer == prsdk::suiteError_ExporterSuspended)
        progressSuite_->WaitForResume(pluginId_);
    else
        SetAbort(answer); // 0 clears an earlier abort word, as the host intends
}

prsdk::int32 LegacyCompiler::DeliverAudio(std::uint32_t frames) {
    if (channels_ == 0 || bitsPerSample_ == 0 || channelBuffers_.empty())
        return 3; // the audio set-up did not know the channel or sample type
    const std::uint32_t total = encoder_->AudioSamplesForNextFrame(frames);
    const std::size_t bytesPerSample = bitsPerSample_ / 8u;
    const std::size_t frameBytes = channels_ * bytesPerSample;
    if (interleaved_.size() < total * frameBytes)
        interleaved_.resize(total * frameBytes);
    std::size_t at = 0;
    for (std::uint32_t remaining = total; remaining > 0;) {
        const std::uint32_t m = std::min(remaining, static_cast<std::uint32_t>(std::max(maxBlip_, 1)));
        if (m > channelBuffers_.front().size())
            return 1;
        if (audioRenderSuite_->GetAudio(audioRenderer_, m, channelPointers_.data(), 0) !=
            prsdk::suiteError_NoError)
            return 1;
        std::uint8_t* out = interleaved_.data() + at;
        prsdk::prSuiteError converted = 0;
        switch (settings_.audioSampleType) {
        case 1:
            converted = audioSuite_->ConvertAndInterleaveTo8BitInteger(
                channelPointers_.data(), reinterpret_cast<char*>(out), channels_, m);
            break;
        case 3:
            converted = audioSuite_->ConvertAndInterleaveTo16BitInteger(
                channelPointers_.data(), reinterpret_cast<short*>(out), channels_, m);
            break;
        case 4:
            converted = audioSuite_->ConvertAndInterleaveTo24BitInteger(
                channelPointers_.data(), reinterpret_cast<char*>(out), channels_, m);
            break;
        case 5:
            converted = audioSuite_->ConvertAndInterleaveTo32BitInteger(
                channelPointers_.data(), reinterpret_cast<prsdk::int32*>(out), channels_, m);
            break;
        case 6: {
            auto* dst = reinterpret_cast<float*>(out);
            for (std::uint32_t i = 0; i < m; ++i)
                for (std::uint16_t c = 0; c < channels_; ++c)
                    dst[static_cast<std::size_t>(i) * channels_ + c] = channelPointers_[c][i];
            break;
        }
        default:
            return 3;
        }
        if (converted < 0)
            return 6;
        at += m * frameBytes;
        remaining -= m;
    }
    if (at == 0)
        return 0;
    const std::uint32_t written = encoder_->WriteAudio(interleaved_.data(), static_cast<std::uint32_t>(at));
    if (written != 0) // the file would lack this block: the run ends with the encoder's result
        InterlockedWrite(&moduleFailure_, static_cast<prsdk::int32>(written));
    return static_cast<prsdk::int32>(written);
}

} // namespace QVN
