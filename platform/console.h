// The process's console: Ctrl-C as a request to stop, whether standard error is a terminal, and raw
// (binary) standard input for piped frames.
#pragma once

namespace QVN {

// From now on the first Ctrl-C (SIGINT / CTRL_C_EVENT) only sets a flag that InterruptRequested reports; a
// second one ends the process as usual, so that a stuck program can still be stopped.
void InstallInterruptHandler();
bool InterruptRequested();
// Clears the flag and re-arms the handler (tests, and a program that runs several jobs).
void ResetInterrupt();
// Sends this process the interrupt a Ctrl-C would, for tests of the path.
void RaiseInterrupt();

bool StandardErrorIsTerminal();

// Standard input delivers bytes unchanged (no text-mode translation on Windows).
void SetStandardInputBinary();

} // namespace QVN
