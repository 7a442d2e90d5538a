// qvnhost: a host that loads the exporter module and drives it as Premiere Pro does.
#include <cstdio>
#include <cstring>
#include <string>

#include "host/command_line.h"
#include "host/info_command.h"
#include "host/module_debug_output.h"
// The build defines these when the subsystems' commands are present.
#ifdef QVNHOST_HAS_CONVERT
#include "host/convert_command.h"
#endif
#ifdef QVNHOST_HAS_INSPECT
#include "host/inspect_command.h"
#endif
#ifdef QVNHOST_HAS_PARAMS
#include "host/params_command.h"
#endif
#ifdef QVNHOST_HAS_EXPORT
#include "host/export_command.h"
#endif

namespace {

void PrintUsage(std::FILE* out) {
    std::fputs("usage: qvnhost <command> [options]\n"
               "commands:\n"
               "  info [--module PATH]   load the exporter module and print the identity it reports\n"
#ifdef QVNHOST_HAS_CONVERT
               "  convert ...            convert raw host frames with the exporter's pixel converters\n"
#endif
#ifdef QVNHOST_HAS_INSPECT
               "  inspect FILE [--json]  print an AVI file's structure and check its indexes\n"
#endif
#ifdef QVNHOST_HAS_PARAMS
               "  params [--module PATH] [--codec C] [--set ID=VALUE ...]\n"
               "                         show the export settings dialog after the given choices\n"
#endif
#ifdef QVNHOST_HAS_EXPORT
               "  export --out FILE [...] export the test sequence through the module (docs/export.md)\n"
#endif
               "  help [COMMAND]         this text, or a command's options\n"
               "'qvnhost COMMAND --help' (or -h) prints that command's usage and options.\n",
               out);
}

int Dispatch(int argc, char** argv) {
    const std::string command = argv[1];
    if (command == "info")
        return qvnhost::InfoCommand(argc - 1, argv + 1);
#ifdef QVNHOST_HAS_CONVERT
    if (command == "convert")
        return QvnConvertCommand(argc - 1, argv + 1);
#endif
#ifdef QVNHOST_HAS_INSPECT
    if (command == "inspect")
        return QvnInspectCommand(argc - 1, argv + 1);
#endif
#ifdef QVNHOST_HAS_PARAMS
    if (command == "params")
        return QvnParamsCommand(argc - 1, argv + 1);
#endif
#ifdef QVNHOST_HAS_EXPORT
    if (command == "export")
        return QvnExportCommand(argc - 1, argv + 1);
#endif
    return qvnhost::UsageError("unknown command: " + command + " (the commands: qvnhost help)");
}

} // namespace

int main(int argc, char** argv) {
    qvnhost::ShowModuleDebugOutput();
    if (argc < 2)
        return PrintUsage(stderr), qvnhost::kExitUsage;
    const std::string command = argv[1];
    if (command == "help" || command == "--help" || command == "-h") {
        if (argc < 3)
            return PrintUsage(stdout), 0;
        // "help COMMAND" is "COMMAND --help".
        char help[] = "--help";
        char* forward[] = {argv[0], argv[2], help};
        return Dispatch(3, forward);
    }
    return Dispatch(argc, argv);
}
