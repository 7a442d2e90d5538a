// The Export Progress Suite as Premiere answers it: 0 to go on, 1 (abort) once the user has cancelled
// (Ctrl-C, or the report of a chosen frame), and once 0x8003000F (suspended) at a chosen frame, after which
// WaitForResume returns following a short pause. Progress is shown on standard error: a bar redrawn in
// place on a terminal, otherwise one line per 10%.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "prsdk/prsdk.h"

namespace qvnhost {

enum class ProgressDisplay { None, Bar, Lines };

struct ProgressOptions {
    // Turns the reported fraction back into a frame number: first + fraction x count.
    std::int64_t firstFrame = 0;
    std::int64_t frameCount = 0;
    std::int64_t cancelAt = -1;  // the report of this frame (or a later one) answers abort
    std::int64_t suspendAt = -1; // the report of this frame (or the first later one) answers suspended, once
    std::uint32_t resumeAfterMs = 200;
    bool cancelOnInterrupt = true; // a Ctrl-C cancels
    ProgressDisplay display = ProgressDisplay::None;
    std::FILE* out = stderr;
};

struct ProgressReport {
    std::string text; // the last progress string
    std::uint64_t updates = 0;
    std::uint64_t abortAnswers = 0;
    std::uint64_t suspendAnswers = 0;
    std::uint64_t waits = 0;
    std::int64_t cancelledAtFrame = -1;
    std::int64_t lastFrame = -1;
};

void ConfigureProgress(const ProgressOptions& options);
ProgressReport ProgressState();
// Ends the bar's line on a terminal.
void FinishProgressDisplay();

const prsdk::ExportProgressSuite* ExportProgressSuiteTable();

} // namespace qvnhost
