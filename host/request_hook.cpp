#include "host/request_hook.h"

#include <mutex>

namespace qvnhost {
namespace {

struct Hook {
    std::mutex mutex;
    std::function<void()> call;
    bool seen = false;
};

Hook& TheHook() {
    static Hook h;
    return h;
}

} // namespace

void ArmFirstRequestHook(std::function<void()> hook) {
    Hook& h = TheHook();
    std::lock_guard<std::mutex> hold(h.mutex);
    h.call = std::move(hook);
    h.seen = false;
}

void NoteRequest() {
    Hook& h = TheHook();
    std::function<void()> call;
    {
        std::lock_guard<std::mutex> hold(h.mutex);
        if (h.seen)
            return;
        h.seen = true;
        call = std::move(h.call);
        h.call = nullptr;
    }
    // Outside the lock: the hook may take as long as it likes, and later requests pass straight on.
    if (call)
        call();
}

bool RequestSeen() {
    Hook& h = TheHook();
    std::lock_guard<std::mutex> hold(h.mutex);
    return h.seen;
}

} // namespace qvnhost
