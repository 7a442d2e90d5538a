// The module's debugger lines on qvnhost's standard error. Natively the module writes them there itself;
// on Windows it calls OutputDebugString, which nobody reads without a debugger, so qvnhost takes them from
// the exception that call raises in the process.
#pragma once

namespace qvnhost {

// From now on for the whole process (Windows); does nothing elsewhere.
void ShowModuleDebugOutput();

} // namespace qvnhost
