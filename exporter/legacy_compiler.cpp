// The export run: frame rate, encoder set-up, the chunked render loop with its waits for free buffers,
// cancel, drain and finish.
#include "exporter/legacy_compiler.h"

#include <algorithm>
#include <string>

#include "exporter/codec_catalogue.h"
#include "exporter/encoder_choice.h"
#include "exporter/suite_access.h"
#include "exporter/video_format.h"
#include "platform/sleep.h"
#include "platform/text_encoding.h"

namespace QVN {
namespace {

constexpr prsdk::int32 kResultFailed = static_cast<prsdk::int32>(0x80004005u);
constexpr std::uint8_t kFrameBuffers = 30;
constexpr std::uint32_t kBufferPollMs = 20;
constexpr std::uint32_t kDrainPollMs = 10;
// Longer than any Windows path the host hands out, so that long paths are never cut.
constexpr prsdk::csSDK_int32 kPathCapacity = 32768;

std::wstring WidePath(const prsdk::prUTF16Char* path) {
    std::u16string text;
    for (std::size_t i = 0; path[i] != 0; ++i)
        text += static_cast<char16_t>(path[i]);
    return Utf8ToWide(Utf16ToUtf8(text));
}

} // namespace

LegacyCompiler::LegacyCompiler(const ExportSettings& settings, prsdk::SPBasicSuite* broker)
    : settings_(settings), broker_(broker) {
    AcquireSuite(broker_, prsdk::kSequenceRenderSuite, prsdk::kSequenceRenderSuiteVersion, renderSuite_);
    AcquireSuite(broker_, prsdk::kSequenceAudioSuite, prsdk::kSequenceAudioSuiteVersion, audioRenderSuite_);
    AcquireSuite(broker_, prsdk::kAudioSuite, prsdk::kAudioSuiteVersion, audioSuite_);
    AcquireSuite(broker_, prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, fileSuite_);
    AcquireSuite(broker_, prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, ppixSuite_);
    AcquireSuite(broker_, prsdk::kPPix2Suite, prsdk::kPPix2SuiteVersion, ppix2Suite_);
    AcquireSuite(broker_, prsdk::kExportProgressSuite, prsdk::kExportProgressSuiteVersion, progressSuite_);
    AcquireSuite(broker_, prsdk::kImageProcessingSuite, prsdk::kImageProcessingSuiteVersion, imageSuite_);
}

LegacyCompiler::~LegacyCompiler() {
    // The encoder goes first: its writer thread may still hold buffers of ours.
    encoder_.reset();
    ReleaseSuite(broker_, prsdk::kSequenceRenderSuite, prsdk::kSequenceRenderSuiteVersion, renderSuite_);
    ReleaseSuite(broker_, prsdk::kSequenceAudioSuite, prsdk::kSequenceAudioSuiteVersion, audioRenderSuite_);
    ReleaseSuite(broker_, prsdk::kAudioSuite, prsdk::kAudioSuiteVersion, audioSuite_);
    ReleaseSuite(broker_, prsdk::kExportFileSuite, prsdk::kExportFileSuiteVersion, fileSuite_);
    ReleaseSuite(broker_, prsdk::kPPixSuite, prsdk::kPPixSuiteVersion, ppixSuite_);
    ReleaseSuite(broker_, prsdk::kPPix2Suite, prsdk::kPPix2SuiteVersion, ppix2Suite_);
    ReleaseSuite(broker_, prsdk::kExportProgressSuite, prsdk::kExportProgressSuiteVersion, progressSuite_);
    ReleaseSuite(broker_, prsdk::kImageProcessingSuite, prsdk::kImageProcessingSuiteVersion, imageSuite_);
}

void LegacyCompiler::ReleaseRenderers() {
    if (videoRendererMade_ && renderSuite_)
        renderSuite_->ReleaseVideoRenderer(pluginId_, videoRenderer_);
    if (audioRendererMade_ && exportAudio_ && audioRenderSuite_)
        audioRenderSuite_->ReleaseAudioRenderer(pluginId_, audioRenderer_);
    videoRendererMade_ = false;
    audioRendererMade_ = false;
}

prsdk::int32 LegacyCompiler::Run(const prsdk::exDoExportRec& rec) {
    pluginId_ = rec.exporterPluginID;
    exportAudio_ = rec.exportAudio;
    exportVideo_ = rec.exportVideo;
    startTime_ = rec.startTime;
    endTime_ = rec.endTime;
    fileObject_ = rec.fileObject;
    if (progressSuite_) {
        const std::u16string text = u"Writing QVN File";
        std::vector<prsdk::prUTF16Char> wide(text.begin(), text.end());
        wide.push_back(0);
        progressSuite_->SetProgressString(pluginId_, wide.data());
    }
    SetAbort(0);

    const std::int64_t ticksPerFrame = settings_.ticksPerFrame;
    const auto rate = AviRateFromTicks(settings_.ticksPerSecond, ticksPerFrame);
    if (!rate)
        return prsdk::exportReturn_InternalError;

    firstFrame_ = static_cast<std::int32_t>(startTime_ / ticksPerFrame);
    endFrame_ = static_cast<std::int32_t>(endTime_ / ticksPerFrame);
    const std::int32_t frameCount = endFrame_ - firstFrame_;

    EncoderChoice choice =
        ChooseEncoder(settings_.codec, settings_.width, settings_.height, settings_.pixelAspectNumerator);
    encoder_ = std::move(choice.encoder);
    output_ = choice.output;
    const CodecInfo* codec = FindCodec(settings_.codec);
    hostCompresses_ = codec ? codec->conversion == FrameConversion::HostDv
                            : settings_.codec == FourCC("dv50") || settings_.codec == FourCC("dvh1");
    alternatingFieldPhase_ = codec && codec->alternatingFieldPhase;

    const std::uint32_t initialised =
        encoder_->Initialise(&choice.input, &output_, choice.mode, rate->rate, rate->scale, kFrameBuffers,
                             output_.biSizeImage, nullptr);
    if (initialised != 0)
        return static_cast<prsdk::int32>(initialised);

    // Without its buffers the run would wait for one for ever.
    const std::uint32_t buffers = encoder_->GetFreeBuffers(knownBuffers_);
    if (buffers != 0)
        return static_cast<prsdk::int32>(buffers);
    pool_.assign(knownBuffers_.begin(), knownBuffers_.end());

    const std::uint32_t chunk = (rate->rate + rate->scale - 1) / rate->scale;

    if (exportAudio_) {
        std::uint16_t bits = 0;
        const prsdk::int32 set = SetUpAudio(&bits);
        // Only a negative answer stops the run: an unknown channel or sample type goes on as it stands.
        if (set < 0) {
            knownBuffers_.clear();
            return set;
        }
        prsdk::prSuiteError err = prsdk::suiteError_Fail;
        if (audioRenderSuite_) {
            err = audioRenderSuite_->MakeAudioRenderer(
                pluginId_, startTime_, static_cast<prsdk::PrAudioChannelType>(settings_.audioChannelType),
                static_cast<prsdk::PrAudioSampleType>(settings_.audioSampleType),
                static_cast<float>(settings_.audioSampleRate), &audioRenderer_);
            audioRendererMade_ = err == prsdk::suiteError_NoError;
            if (err == prsdk::suiteError_NoError)
                err = audioRenderSuite_->ResetAudioToBeginning(audioRenderer_);
            if (err == prsdk::suiteError_NoError)
                err = audioRenderSuite_->GetMaxBlip(audioRenderer_, ticksPerFrame, &maxBlip_);
        }
        if (err != prsdk::suiteError_NoError || maxBlip_ < 0) {
            knownBuffers_.clear();
            return err != prsdk::suiteError_NoError ? err : prsdk::suiteError_Fail;
        }
        channelBuffers_.assign(channels_, std::vector<float>(static_cast<std::size_t>(maxBlip_)));
        channelPointers_.clear();
        for (auto& b : channelBuffers_)
            channelPointers_.push_back(b.data());
        const std::uint64_t samples = std::max<std::uint64_t>(static_cast<std::uint64_t>(maxBlip_),
                                                              encoder_->AudioSamplesForFrames(chunk));
        interleaved_.assign(static_cast<std::size_t>(channels_ * bitsPerSample_ * samples / 8), 0);
    }

    if (!renderSuite_)
        return prsdk::suiteError_Fail;
    prsdk::prSuiteError made = renderSuite_->MakeVideoRenderer(pluginId_, &videoRenderer_, ticksPerFrame);
    if (made != prsdk::suiteError_NoError)
        return made;
    videoRendererMade_ = true;
    made = renderSuite_->SetAsyncRenderCompletionProc(videoRenderer_, &LegacyCompiler::OnFrameRendered, this);
    if (made != prsdk::suiteError_NoError)
        return made;

    InterlockedWrite(&nextFrame_, firstFrame_);
    InterlockedWrite(&inFlight_, 0);
    std::vector<prsdk::prUTF16Char> path(static_cast<std::size_t>(kPathCapacity) + 1, 0);
    prsdk::csSDK_int32 pathLength = kPathCapacity;
    if (fileSuite_)
        fileSuite_->GetPlatformPath(fileObject_, &pathLength, path.data());
    const std::wstring widePath = WidePath(path.data());

    const std::uint32_t opened = encoder_->Open(exportVideo_ ? 1u : 0u, exportAudio_ ? 1u : 0u,
                                                static_cast<std::uint32_t>(frameCount), widePath.c_str());
    if (opened != 0)
        return static_cast<prsdk::int32>(opened); // the renderers stay made; the host tears them down

    prsdk::int32 result = 0;
    try {
        result = RequestFrames(chunk);
    } catch (...) {
        // Renders may still be in flight and use this object: the run waits for them like any failed run,
        // and ends as an exception through the entry point would.
        InterlockedWrite(&moduleFailure_, prsdk::exportReturn_InternalError);
        result = kResultFailed;
    }
    if (Abort() != 0 || InterlockedRead(&frameLost_) != 0)
        result = kResultFailed;

    while (InterlockedRead(&inFlight_) != 0)
        SleepMs(kDrainPollMs);
    // Frames that failed while the run drained, or that the encoder could not take, would leave Finish
    // waiting for frames that cannot come: such a run closes the file instead. An abort word set during the
    // drain does not count when every frame arrived.
    if (result >= 0 && (InterlockedRead(&frameLost_) != 0 || InterlockedRead(&moduleFailure_) != 0 ||
                        (exportVideo_ && InterlockedRead(&nextFrame_) != endFrame_)))
        result = kResultFailed;

    prsdk::int32 outcome;
    if (result < 0) {
        encoder_->Close();
        // A failure inside the module stands even when a later progress answer cleared the abort word.
        outcome = Abort() != 0 ? Abort() : InterlockedRead(&moduleFailure_);
    } else {
        outcome = static_cast<prsdk::int32>(encoder_->Finish());
    }
    ReleaseRenderers();
    pool_.clear();
    {
        CAutoLock<CW32CriticalSection> hold(lock_);
        pending_.clear();
        reorder_.clear();
    }
    return outcome;
}

prsdk::int32 LegacyCompiler::RequestFrames(std::uint32_t chunk) {
    prsdk::int32 result = 0;
    for (std::int32_t current = firstFrame_; current < endFrame_ && result >= 0;) {
        const std::int32_t k = std::min(static_cast<std::int32_t>(chunk), endFrame_ - current);
        if (exportVideo_) {
            for (std::int32_t i = 0; i < k && result >= 0; ++i) {
                while (pool_.empty()) {
                    BufferList returned;
                    encoder_->ReclaimBuffers(returned);
                    while (returned.empty()) {
                        SleepMs(kBufferPollMs);
                        if (Abort() != 0 || InterlockedRead(&frameLost_) != 0) {
                            result = kResultFailed;
                            break;
                        }
                        encoder_->ReclaimBuffers(returned);
                    }
                    for (void* b : returned) {
                        if (std::find(knownBuffers_.begin(), knownBuffers_.end(), b) != knownBuffers_.end())
                            pool_.push_back(b);
                    }
                    if (result < 0)
                        break;
                }
                if (result < 0 || pool_.empty())
                    break;
                {
                    CAutoLock<CW32CriticalSection> hold(lock_);
                    pending_.push_back(pool_.front());
                }
                pool_.pop_front();
                result = RequestFrame(current + i);
            }
        }
        if (exportAudio_ && result >= 0 && DeliverAudio(static_cast<std::uint32_t>(k)) != 0)
            result = kResultFailed;
        current += k;
    }
    return result;
}

} // namespace QVN
