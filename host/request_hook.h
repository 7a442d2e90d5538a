// A call made once, at the module's first request for a frame or for audio. The module makes that request
// on its own export thread after its encoder is initialised and open, so a hook there sees the encoder's
// state as it runs, in the apartment of the thread that set it up.
#pragma once

#include <functional>

namespace qvnhost {

// Arms the hook for the next export; an empty function disarms it.
void ArmFirstRequestHook(std::function<void()> hook);
// Called by the render and audio suites at each request: runs the armed hook the first time only.
void NoteRequest();
// Whether a request has come since the hook was armed.
bool RequestSeen();

} // namespace qvnhost
