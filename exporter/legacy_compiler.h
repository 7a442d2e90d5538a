// One export run: renders the chosen stretch of the sequence through the host, frame by frame and chunk by
// chunk of audio, into one encoder. Made on the export handler's stack for one run.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <vector>

#include "encoders/encoder_base.h"
#include "exporter/export_settings.h"
#include "platform/critical_section.h"
#include "platform/interlocked.h"
#include "platform/win_types.h"
#include "prsdk/prsdk.h"

namespace QVN {

class LegacyCompiler {
public:
    // Acquires the render-side suites (a refusal leaves that suite null; the run then fails where it needs
    // it).
    LegacyCompiler(const ExportSettings& settings, prsdk::SPBasicSuite* broker);
    virtual ~LegacyCompiler();
    LegacyCompiler(const LegacyCompiler&) = delete;
    LegacyCompiler& operator=(const LegacyCompiler&) = delete;

    // Returns the host's export result.
    prsdk::int32 Run(const prsdk::exDoExportRec& rec);

private:
    // The main loop: asks for every frame and delivers the audio, chunk by chunk; 0 or a negative result.
    prsdk::int32 RequestFrames(std::uint32_t chunk);
    // The host side of each frame and audio chunk.
    prsdk::int32 SetUpAudio(std::uint16_t* bitsPerSample);
    prsdk::int32 RequestFrame(std::int32_t frame);
    static void OnFrameRendered(prsdk::csSDK_uint32 renderer, void* self, prsdk::PrTime time,
                                prsdk::PPixHand frame, prsdk::SequenceRender_GetFrameReturnRec* result);
    void FrameRendered(prsdk::PrTime time, prsdk::PPixHand frame,
                       const prsdk::SequenceRender_GetFrameReturnRec* result);
    // Fills buffer with the codec's frame; 0, or the abort value (3 unsupported pair, 6 unknown format).
    prsdk::int32 ConvertFrame(std::int32_t frame, prsdk::PPixHand pixels, void* buffer);
    void DeliverInOrder(std::int32_t frame, void* buffer);
    void ReportProgress(std::int32_t frame);
    prsdk::int32 DeliverAudio(std::uint32_t frames);
    void FrameDone() { InterlockedDec(&inFlight_); }
    void SetAbort(prsdk::int32 value) { InterlockedWrite(&abort_, value); }
    prsdk::int32 Abort() const { return InterlockedRead(&abort_); }
    void ReleaseRenderers();

    ExportSettings settings_;
    // The export record's fields.
    prsdk::uint32 pluginId_ = 0;
    prsdk::int32 exportAudio_ = 0;
    prsdk::int32 exportVideo_ = 0;
    prsdk::PrTime startTime_ = 0;
    prsdk::PrTime endTime_ = 0;
    prsdk::uint32 fileObject_ = 0;

    prsdk::SPBasicSuite* broker_;
    prsdk::SequenceRenderSuite* renderSuite_ = nullptr;
    prsdk::SequenceAudioSuite* audioRenderSuite_ = nullptr;
    prsdk::AudioSuite* audioSuite_ = nullptr;
    prsdk::ExportFileSuite* fileSuite_ = nullptr;
    prsdk::PPixSuite* ppixSuite_ = nullptr;
    prsdk::PPix2Suite* ppix2Suite_ = nullptr;
    prsdk::ExportProgressSuite* progressSuite_ = nullptr;
    prsdk::ImageProcessingSuite* imageSuite_ = nullptr;

    prsdk::csSDK_uint32 videoRenderer_ = 0;
    prsdk::csSDK_uint32 audioRenderer_ = 0;
    bool videoRendererMade_ = false;
    bool audioRendererMade_ = false;

    // Written by render threads, read by the run; 0 while all is well, else the host result to stop with.
    volatile prsdk::int32 abort_ = 0;
    // Set when a frame could not be delivered. The abort word alone is not enough to stop the run: a later
    // progress answer may clear it, and the frames after the lost one would then wait for it forever.
    volatile std::int32_t frameLost_ = 0;
    // The result of a failure inside the module (out of memory, the encoder refusing a frame or a block),
    // which the run returns even when a progress answer cleared the abort word since.
    volatile std::int32_t moduleFailure_ = 0;

    std::unique_ptr<CEncoderBase> encoder_;
    bool hostCompresses_ = false;
    bool alternatingFieldPhase_ = false;
    BufferList knownBuffers_;
    std::deque<void*> pool_;
    BITMAPINFOHEADER output_{};

    // Audio block.
    std::uint16_t bitsPerSample_ = 0;
    std::uint16_t channels_ = 0;
    prsdk::csSDK_int32 maxBlip_ = 0;
    std::vector<std::vector<float>> channelBuffers_;
    std::vector<float*> channelPointers_;
    std::vector<std::uint8_t> interleaved_;

    CW32CriticalSection lock_;
    std::deque<void*> pending_;
    volatile std::int32_t inFlight_ = 0;
    std::map<std::int32_t, void*> reorder_;
    volatile std::int32_t nextFrame_ = 0;
    std::int32_t firstFrame_ = 0;
    std::int32_t endFrame_ = 0;

    prsdk::SequenceRender_ParamsRec renderParams_{};
};

} // namespace QVN
