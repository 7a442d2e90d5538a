#include "host/params_command.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/command_line.h"
#include "host/instance_suites.h"
#include "host/module_loader.h"
#include "host/param_store.h"
#include "host/param_text.h"
#include "host/suite_broker.h"
#include "platform/text_encoding.h"

namespace qvnhost {
namespace {

constexpr prsdk::uint32 kPluginId = 1;
constexpr prsdk::int32 kMultiGroup = 0;
constexpr const char* kCodecParam = "ADBEVideoCodec";

// Sets the one-line message and answers false.
bool Fail(std::string* error, std::string message) {
    *error = std::move(message);
    return false;
}

std::string Utf8(const std::u16string& text) {
    return QVN::Utf16ToUtf8(text);
}

template <std::size_t N> std::string Utf8(const prsdk::prUTF16Char (&text)[N]) {
    return Utf8(HostString(text, N));
}

const char* ResultName(prsdk::int32 result) {
    switch (result) {
    case 0:
        return "no error";
    case 3:
        return "internal error";
    case -100:
        return "unsupported";
    default:
        return "error";
    }
}

// One exporter instance as the dialog drives it.
class Dialog {
public:
    Dialog(const Module& module, prsdk::exportStdParms* stdParms) : module_(module), stdParms_(stdParms) {}

    bool Begin() {
        prsdk::exExporterInfoRec info;
        std::memset(&info, 0, sizeof info);
        Call("start-up", prsdk::exSelStartup, &info);
        fileType_ = info.fileType;
        instance_ = {kPluginId, fileType_, nullptr};
        return Call("begin instance", prsdk::exSelBeginInstance, &instance_) == 0;
    }
    void End() {
        if (instance_.privateData)
            Call("end instance", prsdk::exSelEndInstance, &instance_);
        instance_.privateData = nullptr;
    }

    void Generate() {
        prsdk::exGenerateDefaultParamRec rec{kPluginId, instance_.privateData, fileType_};
        Call("generate default parameters", prsdk::exSelGenerateDefaultParams, &rec);
    }
    void PostProcess() {
        prsdk::exPostProcessParamsRec rec{kPluginId, instance_.privateData, fileType_, 1, 1};
        Call("post-process parameters", prsdk::exSelPostProcessParams, &rec);
    }
    void Changed(const std::string& id) {
        prsdk::exParamChangedRec rec{};
        rec.exporterPluginID = kPluginId;
        rec.privateData = instance_.privateData;
        rec.fileType = fileType_;
        rec.exportAudio = 1;
        rec.exportVideo = 1;
        rec.multiGroupIndex = kMultiGroup;
        std::strncpy(rec.changedParamIdentifier, id.c_str(), sizeof rec.changedParamIdentifier - 1);
        Call("validate parameter changed", prsdk::exSelValidateParamChanged, &rec);
    }
    prsdk::exParamSummaryRec Summary() {
        prsdk::exParamSummaryRec rec{};
        rec.exporterPluginID = kPluginId;
        rec.privateData = instance_.privateData;
        rec.exportAudio = 1;
        rec.exportVideo = 1;
        Call("get parameter summary", prsdk::exSelGetParamSummary, &rec);
        return rec;
    }
    prsdk::exQueryOutputSettingsRec OutputSettings() {
        prsdk::exQueryOutputSettingsRec rec{};
        rec.exporterPluginID = kPluginId;
        rec.privateData = instance_.privateData;
        rec.fileType = fileType_;
        rec.inMultiGroupIndex = kMultiGroup;
        rec.inExportVideo = 1;
        rec.inExportAudio = 1;
        Call("query output settings", prsdk::exSelQueryOutputSettings, &rec);
        return rec;
    }

    // Every selector the module answered with something other than 0.
    const std::vector<std::string>& Failures() const { return failures_; }

private:
    prsdk::int32 Call(const char* what, prsdk::int32 selector, void* record) {
        const prsdk::int32 result = module_.Call(selector, stdParms_, record);
        if (result != 0)
            failures_.push_back(std::string(what) + " answered " + std::to_string(result) + " (" +
                                ResultName(result) + ")");
        return result;
    }

    const Module& module_;
    prsdk::exportStdParms* stdParms_;
    prsdk::uint32 fileType_ = 0;
    prsdk::exExporterInstanceRec instance_{};
    std::vector<std::string> failures_;
};

const StoredParam* FindStored(const std::vector<MultiGroup>& groups, const std::string& id) {
    if (groups.empty())
        return nullptr;
    for (const StoredParam& p : groups.front().entries) {
        if (p.identifier == id)
            return &p;
    }
    return nullptr;
}

// The codec choice named by its four characters (exactly) or its display name (exact, then ignoring case).
bool ResolveCodec(const StoredParam& codec, const std::string& wanted, prsdk::exParamValues* values,
                  std::string* error) {
    for (const ConstrainedValue& c : codec.choices) {
        if (ValueText(codec, c.value) == "'" + wanted + "'") {
            values->value = c.value;
            return true;
        }
    }
    if (ParseUserValue(codec, wanted, values, error) && ChoiceIndex(codec, values->value) >= 0)
        return true;
    std::string offered;
    for (const ConstrainedValue& c : codec.choices) {
        const std::string code = ValueText(codec, c.value);
        offered += (offered.empty() ? "" : ", ") + (code.front() == '\'' ? code.substr(1, 4) : code);
    }
    *error = "unknown codec: " + wanted + " (choices: " + offered + ")";
    return false;
}

// Applies one user choice through the store and tells the module, as the dialog does.
bool Apply(Dialog& dialog, const std::string& id, const std::string& text, bool isCodec, std::string* error) {
    ParamStore& store = ParamStore::Instance();
    const std::vector<MultiGroup> groups = store.Snapshot(kPluginId);
    const StoredParam* p = FindStored(groups, id);
    if (!p)
        return Fail(error, "unknown parameter: " + id);
    if (p->group)
        return Fail(error, id + " is a group, not a parameter");
    if (p->values.disabled)
        return Fail(error, "parameter " + id + " is disabled");
    if (p->values.hidden)
        return Fail(error, "parameter " + id + " is hidden");
    prsdk::exParamValues values;
    if (store.GetParamValue(kPluginId, kMultiGroup, id.c_str(), &values) != prsdk::suiteError_NoError)
        return Fail(error, "cannot read parameter " + id);
    const bool ok =
        isCodec ? ResolveCodec(*p, text, &values, error) : ParseUserValue(*p, text, &values, error);
    if (!ok)
        return false;
    values.arbData = nullptr; // unchanged
    store.ChangeParam(kPluginId, kMultiGroup, id.c_str(), &values);
    dialog.Changed(id);
    return true;
}

std::string Label(const StoredParam& p) {
    const std::string name = Utf8(p.name);
    return name.empty() ? p.identifier : name;
}

// The value as "name (value)" when it is one of the choices; frame rates also in frames per second.
std::string CurrentValue(const StoredParam& p, int chosen) {
    if (p.type == prsdk::exParamType_string)
        return "\"" + Utf8(p.values.paramString) + "\"";
    std::string raw = ValueText(p, p.values.value);
    if (p.type == prsdk::exParamType_ticksFrameRate) {
        raw += " ticks per frame";
        if (chosen < 0 && p.values.value.timeValue > 0) {
            char fps[32];
            std::snprintf(fps, sizeof fps, ", %.6g fps",
                          static_cast<double>(kTicksPerSecond) /
                              static_cast<double>(p.values.value.timeValue));
            raw += fps;
        }
    }
    if (chosen < 0)
        return raw;
    return Utf8(p.choices[static_cast<std::size_t>(chosen)].name) + " (" + raw + ")";
}

bool HasRange(const StoredParam& p) {
    const prsdk::exParamValues& v = p.values;
    if (p.type == prsdk::exParamType_int)
        return v.rangeMin.intValue != 0 || v.rangeMax.intValue != 0;
    if (p.type == prsdk::exParamType_float)
        return v.rangeMin.floatValue != 0.0 || v.rangeMax.floatValue != 0.0;
    return false;
}

// Items joined by ", ", wrapped before kWidth columns with the continuation under the first item.
void PrintWrapped(const std::string& head, const std::vector<std::string>& items) {
    constexpr std::size_t kWidth = 110;
    std::string line = head;
    const std::string continuation(head.size(), ' ');
    for (std::size_t i = 0; i < items.size(); ++i) {
        const std::string item = items[i] + (i + 1 < items.size() ? "," : "");
        if (line.size() > head.size() && line.size() + 1 + item.size() > kWidth) {
            std::printf("%s\n", line.c_str());
            line = continuation;
        } else if (line.size() > head.size()) {
            line += ' ';
        }
        line += item;
    }
    std::printf("%s\n", line.c_str());
}

void PrintParam(const StoredParam& p, const std::string& indent) {
    const int chosen = ChoiceIndex(p, p.values.value);
    std::string line = indent + Label(p) + " [" + p.identifier + "]: " + CurrentValue(p, chosen);
    if (!p.choices.empty() && chosen < 0)
        line += ", not among the choices";
    if (p.choices.empty() && HasRange(p))
        line += ", range " + ValueText(p, p.values.rangeMin) + " to " + ValueText(p, p.values.rangeMax);
    if (p.values.disabled)
        line += ", disabled";
    if (p.values.hidden)
        line += ", hidden";
    std::printf("%s\n", line.c_str());
    if (p.choices.empty())
        return;
    // Integer and ratio values are short and are what --set takes besides the names; ticks are not.
    const bool showValues = p.type == prsdk::exParamType_int || p.type == prsdk::exParamType_ratio;
    std::vector<std::string> items;
    for (const ConstrainedValue& c : p.choices)
        items.push_back(Utf8(c.name) + (showValues ? " (" + ValueText(p, c.value) + ")" : ""));
    if (p.choicesOptional)
        items.push_back("or any other value");
    PrintWrapped(indent + "  choices: ", items);
}

void PrintTree(const std::vector<StoredParam>& entries, const std::string& parent,
               const std::string& indent) {
    for (const StoredParam& p : entries) {
        if (p.parent != parent)
            continue;
        if (!p.group) {
            PrintParam(p, indent);
            continue;
        }
        std::string flags;
        if (p.values.disabled)
            flags += ", disabled";
        if (p.values.hidden)
            flags += ", hidden";
        std::printf("%s%s%s\n", indent.c_str(), Label(p).c_str(),
                    flags.empty() ? "" : (" (" + flags.substr(2) + ")").c_str());
        PrintTree(entries, p.identifier, indent + "  ");
    }
}

const char* SampleTypeName(prsdk::int32 type) {
    switch (type) {
    case 1:
        return "8-bit";
    case 3:
        return "16-bit";
    case 4:
        return "24-bit";
    case 5:
        return "32-bit integer";
    case 6:
        return "32-bit float";
    default:
        return "unknown";
    }
}

const char* ChannelTypeName(prsdk::int32 type) {
    switch (type) {
    case 1:
        return "mono";
    case 2:
        return "stereo";
    case 3:
        return "5.1";
    default:
        return "unknown";
    }
}

const char* FieldName(prsdk::int32 type) {
    switch (type) {
    case 0:
        return "progressive";
    case 1:
        return "upper field first";
    case 2:
        return "lower field first";
    default:
        return "unknown";
    }
}

void PrintOutputSettings(const prsdk::exQueryOutputSettingsRec& out) {
    const prsdk::PrTime frame = out.outVideoFrameRate;
    const double fps = frame > 0 ? static_cast<double>(kTicksPerSecond) / static_cast<double>(frame) : 0.0;
    std::printf("  video: %dx%d, %" PRId64
                " ticks per frame (%.6g fps), pixel aspect %d/%d, field type %d (%s)\n",
                out.outVideoWidth, out.outVideoHeight, frame, fps, out.outVideoAspectNum,
                out.outVideoAspectDen, out.outVideoFieldType, FieldName(out.outVideoFieldType));
    const double rate = out.outAudioSampleRate;
    std::printf("  audio: %.10g Hz, sample type %d (%s), channel type %d (%s)\n", rate,
                out.outAudioSampleType, SampleTypeName(out.outAudioSampleType), out.outAudioChannelType,
                ChannelTypeName(out.outAudioChannelType));
}

struct Options {
    std::string modulePath;
    std::string codec;
    bool haveCodec = false;
    std::vector<std::pair<std::string, std::string>> sets;
};

// The options, or a one-line error.
std::string ParseOptions(int argc, char** argv, Options* o) {
    for (int i = 1; i < argc; ++i) {
        bool missing = false;
        std::string value;
        if (TakeOption(argc, argv, i, "--module", &o->modulePath, &missing)) {
            if (missing)
                return "option --module needs a path";
        } else if (TakeOption(argc, argv, i, "--codec", &o->codec, &missing)) {
            if (missing)
                return "option --codec needs a codec name or four-character code";
            o->haveCodec = true;
        } else if (TakeOption(argc, argv, i, "--set", &value, &missing)) {
            const std::size_t eq = value.find('=');
            if (missing || eq == std::string::npos || eq == 0)
                return "option --set needs ID=VALUE" + (missing ? "" : ": " + value);
            o->sets.emplace_back(value.substr(0, eq), value.substr(eq + 1));
        } else {
            return std::string("unknown option for params: ") + argv[i] +
                   " (the options: qvnhost params --help)";
        }
    }
    return "";
}

constexpr const char* kHelp =
    "usage: qvnhost params [--module PATH] [--codec C] [--set ID=VALUE ...]\n"
    "Builds the export settings dialog through the module, applies the choices as the dialog would, and\n"
    "prints the parameters, the summary and the output settings (docs/settings.md).\n"
    "options:\n"
    "  --module PATH           the module to load (the one beside qvnhost)\n"
    "  --codec C               a codec by its four characters or its name in the list\n"
    "  --set ID=VALUE          a parameter's value, by choice name or value; repeatable, applied in order\n"
    "  -h, --help              this text\n";

int Run(int argc, char** argv) {
    if (HelpRequested(argc, argv, {"--module", "--codec", "--set"}))
        return PrintHelp(kHelp);
    Options options;
    std::string error = ParseOptions(argc, argv, &options);
    if (!error.empty())
        return UsageError(error);

    Module module;
    if (!module.Load(options.modulePath, &error))
        return UsageError(error);

    SuiteBroker& broker = SuiteBroker::Instance();
    RegisterInstanceSuites();
    broker.ClearEvents();
    ParamStore::Instance().Reset();

    Dialog dialog(module, broker.StdParms());
    if (!dialog.Begin()) {
        for (const std::string& f : dialog.Failures())
            std::fprintf(stderr, "qvnhost: %s\n", f.c_str());
        return 1;
    }
    dialog.Generate();
    dialog.PostProcess();

    bool ok = !options.haveCodec || Apply(dialog, kCodecParam, options.codec, true, &error);
    for (std::size_t i = 0; ok && i < options.sets.size(); ++i)
        ok = Apply(dialog, options.sets[i].first, options.sets[i].second, false, &error);
    if (!ok) {
        dialog.End();
        return UsageError(error);
    }

    const prsdk::exParamSummaryRec summary = dialog.Summary();
    const prsdk::exQueryOutputSettingsRec output = dialog.OutputSettings();

    std::printf("module: %s\n", module.Path().c_str());
    const std::vector<MultiGroup> groups = ParamStore::Instance().Snapshot(kPluginId);
    for (std::size_t i = 0; i < groups.size(); ++i) {
        if (groups.size() > 1)
            std::printf("multigroup %zu:\n", i);
        PrintTree(groups[i].entries, prsdk::ADBETopParamGroup, "  ");
    }
    std::printf("summary:\n  %s\n  %s\n", Utf8(summary.videoSummaryLine1).c_str(),
                Utf8(summary.audioSummaryLine2).c_str());
    if (summary.bitrateSummaryLine3[0] != 0)
        std::printf("  %s\n", Utf8(summary.bitrateSummaryLine3).c_str());
    std::printf("output settings:\n");
    PrintOutputSettings(output);

    dialog.End();
    const auto outstanding = broker.Outstanding();
    for (const std::string& line : outstanding)
        std::fprintf(stderr, "qvnhost: suite %s\n", line.c_str());
    for (const std::string& f : dialog.Failures())
        std::fprintf(stderr, "qvnhost: %s\n", f.c_str());
    std::printf("suites: %s\n", outstanding.empty()
                                    ? "every suite released with the version it was acquired with"
                                    : "not all released");
    return outstanding.empty() && dialog.Failures().empty() ? 0 : 1;
}

} // namespace
} // namespace qvnhost

int QvnParamsCommand(int argc, char** argv) {
    return qvnhost::Run(argc, argv);
}
