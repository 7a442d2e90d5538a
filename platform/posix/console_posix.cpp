#include <atomic>
#include <csignal>
#include <unistd.h>

#include "platform/console.h"

namespace QVN {
namespace {

std::atomic<bool> gInterrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free); // read and written from a signal handler

void OnInterrupt(int) {
    gInterrupted.store(true);
    // The next Ctrl-C ends the process.
    std::signal(SIGINT, SIG_DFL);
}

} // namespace

void InstallInterruptHandler() {
    struct sigaction action = {};
    action.sa_handler = OnInterrupt;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    sigaction(SIGINT, &action, nullptr);
}

bool InterruptRequested() {
    return gInterrupted.load();
}

void ResetInterrupt() {
    gInterrupted.store(false);
    InstallInterruptHandler();
}

void RaiseInterrupt() {
    std::raise(SIGINT);
}

bool StandardErrorIsTerminal() {
    return isatty(STDERR_FILENO) == 1;
}

void SetStandardInputBinary() {}

} // namespace QVN
