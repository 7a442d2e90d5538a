// The render side of the simulated host: the suites an export run acquires (sequence render, sequence
// audio, audio conversion, PPix 2, export progress, image processing) and how the host behaves behind
// them. Video renders run on the host's own threads and complete in a seeded random order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/sequence_source.h"
#include "prsdk/prsdk.h"

namespace qvnhost {

struct RenderHostOptions {
    int threads = 4;
    std::uint64_t seed = 1;
    // Handed over whatever the module asked for, when not 0 (to exercise the module's refusals).
    prsdk::PrPixelFormat forcedFormat = 0;
    std::int32_t rowPadding = 0;
    bool unaligned = false;
    // The render of this frame completes with an error and no frame.
    std::int64_t failRenderAt = -1;
};

// What the video renderers did since the last reset.
struct RenderHostReport {
    std::uint64_t renderersMade = 0;
    std::uint64_t renderersReleased = 0;
    std::uint64_t requests = 0;
    // Frame numbers in the order their completion procs were called (sync renders are not included).
    std::vector<std::int64_t> completed;
    std::uint64_t failedRenders = 0;
    std::uint64_t droppedRequests = 0; // queued, never completed: the renderer was released first
    int mostConcurrent = 0;
    std::string sourceError;           // the first reason the source could not draw a frame
    std::vector<std::string> problems; // the module's misuse of the renderers, one line each
};

// How the host renders, and what: source must outlive the renderers made after this call (nullptr: none,
// every render fails).
void ConfigureRenderHost(const RenderHostOptions& options, SequenceSource* source);
// Forgets every renderer (completing nothing) and clears the report.
void ResetRenderHost();
RenderHostReport RenderHostState();

// The format the host renders in for a request: the forced one, or the first requested that it supports;
// 0 when there is none.
prsdk::PrPixelFormat ChooseRenderFormat(const prsdk::PrPixelFormat* requested, prsdk::int32 count,
                                        prsdk::PrPixelFormat forced);

const prsdk::SequenceRenderSuite* SequenceRenderSuiteTable();

// Offers every render-side suite through the broker.
void RegisterRenderSuites();

} // namespace qvnhost
