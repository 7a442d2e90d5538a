#include <atomic>
#include <cstdio>
#include <fcntl.h>
#include <io.h>

#include "platform/console.h"
#include "platform/win_types.h"

namespace QVN {
namespace {

std::atomic<bool> gInterrupted{false};

BOOL WINAPI OnConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT)
        return FALSE;
    // The first one is ours; after it the default handler ends the process.
    if (gInterrupted.exchange(true))
        return FALSE;
    return TRUE;
}

bool gInstalled = false;

} // namespace

void InstallInterruptHandler() {
    if (!gInstalled)
        gInstalled = SetConsoleCtrlHandler(OnConsoleEvent, TRUE) != 0;
}

bool InterruptRequested() {
    return gInterrupted.load();
}

void ResetInterrupt() {
    gInterrupted.store(false);
    InstallInterruptHandler();
}

void RaiseInterrupt() {
    OnConsoleEvent(CTRL_C_EVENT);
}

bool StandardErrorIsTerminal() {
    return _isatty(_fileno(stderr)) != 0;
}

void SetStandardInputBinary() {
    _setmode(_fileno(stdin), _O_BINARY);
}

} // namespace QVN
