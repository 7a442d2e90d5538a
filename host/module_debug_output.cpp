#include "host/module_debug_output.h"

#ifdef _WIN32
#include <cstdio>

#include <windows.h>
#endif

namespace qvnhost {

#ifdef _WIN32
namespace {

// OutputDebugString raises DBG_PRINTEXCEPTION_C (and, for the wide call, DBG_PRINTEXCEPTION_WIDE_C first)
// with the text's length, terminator included, and its address; continuing the exception ends the call.
LONG CALLBACK PrintDebugString(EXCEPTION_POINTERS* info) {
    const EXCEPTION_RECORD* record = info->ExceptionRecord;
    if (record->NumberParameters < 2 || record->ExceptionInformation[1] == 0)
        return EXCEPTION_CONTINUE_SEARCH;
    const ULONG_PTR length = record->ExceptionInformation[0];
    if (record->ExceptionCode == DBG_PRINTEXCEPTION_C) {
        const char* text = reinterpret_cast<const char*>(record->ExceptionInformation[1]);
        std::fprintf(stderr, "module: %.*s", static_cast<int>(length > 0 ? length - 1 : 0), text);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    if (record->ExceptionCode == 0x4001000A) { // DBG_PRINTEXCEPTION_WIDE_C
        const wchar_t* text = reinterpret_cast<const wchar_t*>(record->ExceptionInformation[1]);
        std::fprintf(stderr, "module: %.*ls", static_cast<int>(length > 0 ? length - 1 : 0), text);
        return EXCEPTION_CONTINUE_EXECUTION;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

void ShowModuleDebugOutput() {
    AddVectoredExceptionHandler(1, PrintDebugString);
}
#else
void ShowModuleDebugOutput() {}
#endif

} // namespace qvnhost
