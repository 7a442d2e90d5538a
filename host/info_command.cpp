#include "host/info_command.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/command_line.h"
#include "host/instance_suites.h"
#include "host/module_loader.h"
#include "host/suite_broker.h"
#include "platform/text_encoding.h"

namespace qvnhost {
namespace {

template <std::size_t N> std::string Narrow(const prsdk::prUTF16Char (&text)[N]) {
    std::u16string wide;
    for (std::size_t i = 0; i < N && text[i] != 0; ++i)
        wide += static_cast<char16_t>(text[i]);
    return QVN::Utf16ToUtf8(wide);
}

const char* ResultName(prsdk::int32 result) {
    switch (result) {
    case 0:
        return "no error";
    case 3:
        return "internal error";
    case 7:
        return "out of memory";
    case -100:
        return "unsupported";
    default:
        return "error";
    }
}

constexpr const char* kHelp =
    "usage: qvnhost info [--module PATH]\n"
    "Starts the module, begins and ends an instance, prints the identity it reports, and checks that every\n"
    "suite it acquired was released with the same version.\n"
    "options:\n"
    "  --module PATH           the module to load (the one beside qvnhost)\n"
    "  -h, --help              this text\n";

} // namespace

int InfoCommand(int argc, char** argv) {
    if (HelpRequested(argc, argv, {"--module"}))
        return PrintHelp(kHelp);
    std::string modulePath;
    for (int i = 1; i < argc; ++i) {
        bool missing = false;
        if (TakeOption(argc, argv, i, "--module", &modulePath, &missing)) {
            if (missing)
                return UsageError("option --module needs a path");
            continue;
        }
        return UsageError(std::string("unknown option for info: ") + argv[i] +
                          " (the options: qvnhost info --help)");
    }

    Module module;
    std::string error;
    if (!module.Load(modulePath, &error))
        return UsageError(error);

    SuiteBroker& broker = SuiteBroker::Instance();
    RegisterInstanceSuites();
    broker.ClearEvents();

    // The host hands start-up a record it has filled with its own values; a pattern shows what the module
    // left alone.
    prsdk::exExporterInfoRec info;
    std::memset(&info, 0, sizeof info);
    const prsdk::int32 startup = module.Call(prsdk::exSelStartup, broker.StdParms(), &info);

    prsdk::exExporterInstanceRec instance{};
    instance.exporterPluginID = 1;
    instance.fileType = info.fileType;
    const prsdk::int32 begin = module.Call(prsdk::exSelBeginInstance, broker.StdParms(), &instance);
    prsdk::int32 end = -1;
    if (begin == 0)
        end = module.Call(prsdk::exSelEndInstance, broker.StdParms(), &instance);

    std::printf("module:       %s\n", module.Path().c_str());
    std::printf("start-up:     %d (%s)\n", startup, ResultName(startup));
    std::printf("name:         %s\n", Narrow(info.fileTypeName).c_str());
    std::printf("extension:    %s\n", Narrow(info.fileTypeDefaultExtension).c_str());
    std::printf("file type:    '%s' (0x%08" PRIX32 ")\n", FourCCHighFirst(info.fileType).c_str(),
                info.fileType);
    std::printf("class:        '%s' (0x%08" PRIX32 ")\n", FourCCHighFirst(info.classID).c_str(),
                info.classID);
    std::printf("video:        %s\n", info.canExportVideo ? "yes" : "no");
    std::printf("audio:        %s\n", info.canExportAudio ? "yes" : "no");
    std::printf("hidden:       %s\n", info.hideInUI ? "yes" : "no");
    std::printf("interface:    %d\n", info.interfaceVersion);
    std::printf("instance:     begin %d (%s), end %d (%s)\n", begin, ResultName(begin), end, ResultName(end));

    int acquired = 0;
    int released = 0;
    for (const auto& e : broker.Events()) {
        if (e.acquire && e.granted)
            ++acquired;
        else if (!e.acquire)
            ++released;
    }
    const auto outstanding = broker.Outstanding();
    std::printf("suites:       %d acquired, %d released%s\n", acquired, released,
                outstanding.empty() ? ", each with the version it was acquired with" : "");
    for (const auto& line : outstanding)
        std::fprintf(stderr, "qvnhost: suite %s\n", line.c_str());
    return (startup == 0 && begin == 0 && end == 0 && outstanding.empty()) ? 0 : 1;
}

} // namespace qvnhost
