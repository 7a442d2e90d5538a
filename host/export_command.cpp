#include "host/export_command.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "host/command_line.h"
#include "host/dv_formats.h"
#include "host/export_options.h"
#include "host/host_frame.h"
#include "host/image_processing_suite.h"
#include "host/instance_suites.h"
#include "host/module_loader.h"
#include "host/param_store.h"
#include "host/param_text.h"
#include "host/platform_filters.h"
#include "host/progress_suite.h"
#include "host/render_suites.h"
#include "host/request_hook.h"
#include "host/sequence_audio.h"
#include "host/suite_broker.h"
#include "platform/console.h"
#include "platform/sleep.h"
#include "platform/text_encoding.h"
#ifdef QVNHOST_HAS_GRAPH_REPORT
#include "host/graph_report.h"
#endif

namespace qvnhost {
namespace {

constexpr prsdk::uint32 kPluginId = 1;
constexpr prsdk::int32 kMultiGroup = 0;
constexpr prsdk::uint32 kFileObject = 1;

// The host's name for an export result.
std::string ResultText(prsdk::int32 result) {
    const char* name;
    switch (result) {
    case prsdk::exportReturn_ErrNone:
        name = "no error";
        break;
    case prsdk::exportReturn_Abort:
        name = "abort: cancelled";
        break;
    case prsdk::exportReturn_Done:
        name = "done";
        break;
    case prsdk::exportReturn_InternalError:
        name = "internal error";
        break;
    case prsdk::exportReturn_OutOfDiskSpace:
        name = "out of disk space";
        break;
    case prsdk::exportReturn_BufferFull:
        name = "buffer full";
        break;
    case prsdk::exportReturn_ErrOther:
        name = "other error";
        break;
    case prsdk::exportReturn_ErrMemory:
        name = "out of memory";
        break;
    case prsdk::exportReturn_ErrFileNotFound:
        name = "file not found";
        break;
    case prsdk::exportReturn_ErrIOError:
        name = "I/O error";
        break;
    case prsdk::exportReturn_ErrLastErrorSet:
        name = "last error set";
        break;
    case prsdk::exportReturn_Unsupported:
        name = "unsupported";
        break;
    case prsdk::suiteError_Fail:
        name = "suite error: fail";
        break;
    case prsdk::suiteError_InvalidParms:
        name = "suite error: invalid parameters";
        break;
    case prsdk::suiteError_OutOfMemory:
        name = "suite error: out of memory";
        break;
    case prsdk::suiteError_InvalidCall:
        name = "suite error: invalid call";
        break;
    case prsdk::suiteError_NotImplemented:
        name = "suite error: not implemented";
        break;
    default:
        name = "error";
        break;
    }
    char text[96];
    if (result < 0 && result != prsdk::exportReturn_Unsupported)
        std::snprintf(text, sizeof text, "0x%08" PRIX32 " (%s)", static_cast<std::uint32_t>(result), name);
    else
        std::snprintf(text, sizeof text, "%" PRId32 " (%s)", result, name);
    return text;
}

std::string CodeText(std::uint32_t code) {
    std::string s;
    for (int shift = 0; shift < 32; shift += 8)
        s += static_cast<char>(code >> shift & 0xFF);
    return s;
}

// One exporter instance, driven as the export dialog and the render queue drive it.
class Session {
public:
    Session(const Module& module, prsdk::exportStdParms* stdParms) : module_(module), stdParms_(stdParms) {}

    bool Begin(std::string* error) {
        prsdk::exExporterInfoRec info;
        std::memset(&info, 0, sizeof info);
        const prsdk::int32 startup = module_.Call(prsdk::exSelStartup, stdParms_, &info);
        fileType_ = info.fileType;
        instance_ = {kPluginId, fileType_, nullptr};
        const prsdk::int32 begin =
            startup == 0 ? module_.Call(prsdk::exSelBeginInstance, stdParms_, &instance_) : -1;
        if (startup != 0 || begin != 0) {
            *error = "the module refused to start: start-up " + ResultText(startup) + ", begin instance " +
                     ResultText(begin);
            return false;
        }
        return true;
    }

    void End() {
        if (instance_.privateData)
            module_.Call(prsdk::exSelEndInstance, stdParms_, &instance_);
        instance_.privateData = nullptr;
    }

    bool Defaults(bool audio, bool video, std::string* error) {
        audio_ = audio;
        video_ = video;
        prsdk::exGenerateDefaultParamRec gen{kPluginId, instance_.privateData, fileType_};
        const prsdk::int32 g = module_.Call(prsdk::exSelGenerateDefaultParams, stdParms_, &gen);
        prsdk::exPostProcessParamsRec post{kPluginId, instance_.privateData, fileType_, audio, video};
        const prsdk::int32 p = module_.Call(prsdk::exSelPostProcessParams, stdParms_, &post);
        if (g != 0 || p != 0) {
            *error = "the module's settings failed: generate defaults " + ResultText(g) + ", post-process " +
                     ResultText(p);
            return false;
        }
        return true;
    }

    // Stores values for id and tells the module, as the dialog does when the user changes a field.
    bool Change(const char* id, const prsdk::exParamValues& values, std::string* error) {
        prsdk::exParamValues v = values;
        v.arbData = nullptr;
        if (ParamStore::Instance().ChangeParam(kPluginId, kMultiGroup, id, &v) != prsdk::suiteError_NoError)
            return *error = std::string("the host store refused ") + id, false;
        prsdk::exParamChangedRec rec{};
        rec.exporterPluginID = kPluginId;
        rec.privateData = instance_.privateData;
        rec.fileType = fileType_;
        rec.exportAudio = audio_;
        rec.exportVideo = video_;
        rec.multiGroupIndex = kMultiGroup;
        std::strncpy(rec.changedParamIdentifier, id, sizeof rec.changedParamIdentifier - 1);
        const prsdk::int32 r = module_.Call(prsdk::exSelValidateParamChanged, stdParms_, &rec);
        if (r != 0)
            return *error = std::string("the module refused the change of ") + id + ": " + ResultText(r),
                   false;
        return true;
    }

    prsdk::int32 Export(prsdk::exDoExportRec* rec) {
        rec->exporterPluginID = kPluginId;
        rec->privateData = instance_.privateData;
        rec->fileType = fileType_;
        return module_.Call(prsdk::exSelExport, stdParms_, rec);
    }

private:
    const Module& module_;
    prsdk::exportStdParms* stdParms_;
    prsdk::uint32 fileType_ = 0;
    prsdk::exExporterInstanceRec instance_{};
    prsdk::int32 audio_ = 1;
    prsdk::int32 video_ = 1;
};

bool FindParam(const char* id, StoredParam* out) {
    const std::vector<MultiGroup> groups = ParamStore::Instance().Snapshot(kPluginId);
    if (groups.empty())
        return false;
    for (const StoredParam& p : groups.front().entries) {
        if (p.identifier == id && !p.group)
            return *out = p, true;
    }
    return false;
}

bool GetValues(const char* id, prsdk::exParamValues* values) {
    return ParamStore::Instance().GetParamValue(kPluginId, kMultiGroup, id, values) ==
           prsdk::suiteError_NoError;
}

// A user's text for a field of the dialog: one of its offered choices, or a value within its range. A
// disabled field accepts only the value it shows.
bool SetFromText(Session& session, const char* id, const std::string& option, const std::string& text,
                 std::string* error) {
    StoredParam p;
    prsdk::exParamValues values;
    if (!FindParam(id, &p) || !GetValues(id, &values))
        return *error = "the module has no parameter " + std::string(id) + " for " + option, false;
    if (!ParseUserValue(p, text, &values, error)) {
        *error = option + ": " + *error;
        return false;
    }
    if (p.values.disabled) {
        if (ValueText(p, values.value) == ValueText(p, p.values.value))
            return true;
        return *error = option + " " + text + " is not allowed with this codec (" + id + " is fixed at " +
                        ValueText(p, p.values.value) + ")",
               false;
    }
    return session.Change(id, values, error);
}

// A value set as it is, where the dialog's own list cannot express it (the sample type list).
bool SetValue(Session& session, const char* id, const prsdk::exOneParamValueRec& value, std::string* error) {
    prsdk::exParamValues values;
    if (!GetValues(id, &values))
        return *error = "the module has no parameter " + std::string(id), false;
    values.value = value;
    return session.Change(id, values, error);
}

// The codec by its four characters (exactly, then ignoring case) or by its name in the list.
bool SetCodec(Session& session, const std::string& wanted, std::string* error) {
    StoredParam p;
    prsdk::exParamValues values;
    if (!FindParam("ADBEVideoCodec", &p) || !GetValues("ADBEVideoCodec", &values))
        return *error = "the module offers no codec parameter", false;
    for (const bool ignoreCase : {false, true}) {
        for (const ConstrainedValue& c : p.choices) {
            const std::string code = CodeText(static_cast<std::uint32_t>(c.value.intValue));
            bool same = code.size() == wanted.size();
            for (std::size_t i = 0; same && i < code.size(); ++i)
                same = ignoreCase ? std::tolower(static_cast<unsigned char>(code[i])) ==
                                        std::tolower(static_cast<unsigned char>(wanted[i]))
                                  : code[i] == wanted[i];
            if (same) {
                values.value = c.value;
                return session.Change("ADBEVideoCodec", values, error);
            }
        }
    }
    if (!ParseUserValue(p, wanted, &values, error)) {
        std::string offered;
        for (const ConstrainedValue& c : p.choices)
            offered += (offered.empty() ? "" : ", ") + CodeText(static_cast<std::uint32_t>(c.value.intValue));
        *error = "unknown codec: " + wanted + " (choices: " + offered + ")";
        return false;
    }
    return session.Change("ADBEVideoCodec", values, error);
}

// A field the user left alone keeps its value when the codec offers it, else takes the first offered one,
// as the dialog shows it.
bool KeepOffered(Session& session, const char* id, std::string* error) {
    StoredParam p;
    if (!FindParam(id, &p) || p.choices.empty() || p.values.disabled || ChoiceIndex(p, p.values.value) >= 0)
        return true;
    prsdk::exParamValues values;
    if (!GetValues(id, &values))
        return true;
    values.value = p.choices.front().value;
    return session.Change(id, values, error);
}

std::string FieldChoice(const std::string& field) {
    return field == "upper" ? "Upper" : field == "lower" ? "Lower" : "Progressive";
}

struct Settings {
    std::uint32_t codec = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
    std::int64_t ticksPerFrame = 0;
    std::int32_t parNumerator = 1;
    std::int32_t parDenominator = 1;
    std::int32_t fieldType = 0;
};

Settings ReadSettings() {
    Settings s;
    prsdk::exParamValues v;
    if (GetValues("ADBEVideoCodec", &v))
        s.codec = static_cast<std::uint32_t>(v.value.intValue);
    if (GetValues("ADBEVideoWidth", &v))
        s.width = v.value.intValue;
    if (GetValues("ADBEVideoHeight", &v))
        s.height = v.value.intValue;
    if (GetValues("ADBEVideoFPS", &v))
        s.ticksPerFrame = v.value.timeValue;
    if (GetValues("ADBEVideoAspect", &v))
        s.parNumerator = v.value.ratioValue.numerator, s.parDenominator = v.value.ratioValue.denominator;
    if (GetValues("ADBEVideoFieldType", &v))
        s.fieldType = v.value.intValue;
    return s;
}

// Applies the user's choices in the order a user works through the dialog: codec first, as it decides
// what the others may be.
bool ApplyChoices(Session& session, const ExportOptions& o, std::string* error) {
    if (!o.codec.empty() && !SetCodec(session, o.codec, error))
        return false;
    if (o.haveSize && (!SetFromText(session, "ADBEVideoWidth", "--size", std::to_string(o.width), error) ||
                       !SetFromText(session, "ADBEVideoHeight", "--size", std::to_string(o.height), error)))
        return false;
    if (o.aspect.empty() ? !KeepOffered(session, "ADBEVideoAspect", error)
                         : !SetFromText(session, "ADBEVideoAspect", "--aspect", o.aspect, error))
        return false;
    if (o.haveRate ? !SetFromText(session, "ADBEVideoFPS", "--rate", o.rate, error)
                   : !KeepOffered(session, "ADBEVideoFPS", error))
        return false;
    if (o.haveField ? !SetFromText(session, "ADBEVideoFieldType", "--field", FieldChoice(o.field), error)
                    : !KeepOffered(session, "ADBEVideoFieldType", error))
        return false;
    prsdk::exOneParamValueRec v{};
    v.intValue = o.sampleType;
    if (!SetValue(session, "ADBEAudioSampleType", v, error))
        return false;
    v = {};
    v.intValue = o.channelType == 0 ? prsdk::kPrAudioChannelType_Stereo : o.channelType;
    if (!SetValue(session, "ADBEAudioNumChannels", v, error))
        return false;
    v = {};
    v.floatValue = o.sampleRate;
    if (!SetValue(session, "ADBEAudioRatePerSecond", v, error))
        return false;
    // Checked last, so that a mistake in the other options is reported on every build.
    if (const DvFormat* dv = FindDvFormat(ReadSettings().codec); dv && !HostCompressesDv()) {
        *error =
            "codec " + std::string(dv->code) +
            " is compressed by the host, and this qvnhost was built without libavcodec: DVCPRO codecs need "
            "the native qvnhost";
        return false;
    }
    return true;
}

void PrintSummary(const ExportOptions& o, const Settings& s, std::int64_t frames, prsdk::int32 result,
                  double seconds, const RenderHostReport& render, const AudioHostReport& audio) {
    std::printf("output:   %s\n", o.out.c_str());
    std::printf(
        "video:    %s",
        o.exportVideo
            ? (CodeText(s.codec) + ", " + std::to_string(s.width) + "x" + std::to_string(s.height)).c_str()
            : "none");
    if (o.exportVideo)
        std::printf(", %.6g fps, field type %d, pixel aspect %d/%d",
                    static_cast<double>(kTicksPerSecond) / static_cast<double>(s.ticksPerFrame), s.fieldType,
                    s.parNumerator, s.parDenominator);
    std::printf("\nframes:   %" PRId64 " from frame %" PRId64 "; %" PRIu64 " rendered, %" PRIu64
                " failed, up to %d at once on %d threads\n",
                frames, o.startFrame, render.requests, render.failedRenders, render.mostConcurrent,
                o.threads);
    static const char* const kChannels[] = {"none", "mono", "stereo", "5.1"};
    std::printf("audio:    %s", kChannels[o.channelType]);
    if (o.channelType != 0)
        std::printf(", %.0f Hz, sample type %d; %" PRIu64 " sample frames in %" PRIu64 " blocks",
                    o.sampleRate, o.sampleType, audio.sampleFrames, audio.blocks);
    std::printf("\nresult:   %s in %.2f s", ResultText(result).c_str(), seconds);
    if (o.exportVideo && seconds > 0)
        std::printf(" (%.1f frames/s)", static_cast<double>(render.completed.size()) / seconds);
    std::printf("\n");
}

// With --graph: the module builds and opens its graph before it asks for anything, and asks on the thread
// that built it, so the first request is where the running graph is printed.
void ArmGraphReport(bool wanted) {
#ifdef QVNHOST_HAS_GRAPH_REPORT
    if (wanted) {
        ArmFirstRequestHook([] {
            const std::string report = OwnFilterGraphReport();
            std::fputs(report.c_str(), stdout);
            if (report == kNoGraphLine)
                std::fputs("graph: this export does not go through a DirectShow graph\n", stdout);
            std::fflush(stdout);
        });
        return;
    }
#endif
    (void)wanted;
    ArmFirstRequestHook(nullptr);
}

int Run(int argc, char** argv) {
    if (ExportHelpRequested(argc, argv))
        return PrintHelp(ExportHelpText());
    ExportOptions o;
    std::string error;
    if (!ParseExportOptions(argc, argv, &o, &error))
        return UsageError(error);
    o.source.rawWidth = o.width;
    o.source.rawHeight = o.height;
    if (o.source.kind == SourceKind::Raw && !o.haveSize)
        return UsageError("raw input needs --size WxH, the size of its frames");

    SequenceSource source;
    if (!source.Open(o.source, &error))
        return UsageError(error);
    if (source.RawFrameCount() >= 0 && source.RawFrameCount() <= o.startFrame)
        return UsageError("nothing to export: the raw input has " + std::to_string(source.RawFrameCount()) +
                          " frames");
    source.SetFirstFrame(o.startFrame);

    Module module;
    if (!module.Load(o.modulePath, &error))
        return UsageError(error);

    // The sequence as the user describes it; the export settings start from it.
    SequenceInfo& seq = CurrentSequence();
    seq = SequenceInfo{};
    seq.width = o.width;
    seq.height = o.height;
    seq.ticksPerFrame = o.ticksPerFrame;
    seq.fieldType = o.field == "upper" ? 1 : o.field == "lower" ? 2 : 0;
    seq.audioChannelType = o.channelType == 0 ? prsdk::kPrAudioChannelType_Stereo : o.channelType;
    seq.audioSampleRate = o.sampleRate;
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(std::filesystem::u8path(o.out), ec);
    const std::u8string path8 = (ec ? std::filesystem::u8path(o.out) : absolute).u8string();
    seq.outputPath.assign(path8.begin(), path8.end());

    SuiteBroker& broker = SuiteBroker::Instance();
    RegisterInstanceSuites();
    RegisterRenderSuites();
    broker.ClearEvents();
    ParamStore::Instance().Reset();
    ResetRenderHost();
    ResetAudioHost();
    FrameRegistry::Instance().Reset();

    const bool audio = o.channelType != 0;
    Session session(module, broker.StdParms());
    if (!session.Begin(&error)) {
        std::fprintf(stderr, "qvnhost: %s\n", error.c_str());
        return 1;
    }
    if (!session.Defaults(audio, o.exportVideo, &error)) {
        session.End();
        std::fprintf(stderr, "qvnhost: %s\n", error.c_str());
        return 1;
    }
    if (!ApplyChoices(session, o, &error)) {
        session.End();
        return UsageError(error);
    }
    const Settings settings = ReadSettings();
    if (settings.ticksPerFrame <= 0 || settings.width <= 0 || settings.height <= 0) {
        session.End();
        std::fprintf(stderr, "qvnhost: the module left no frame size or rate in its settings\n");
        return 1;
    }
    // The sequence now matches what will be exported, as a user would have set it up.
    seq.width = settings.width;
    seq.height = settings.height;
    seq.ticksPerFrame = settings.ticksPerFrame;
    seq.fieldType = settings.fieldType;
    seq.pixelAspectNumerator = settings.parNumerator;
    seq.pixelAspectDenominator = settings.parDenominator;
    const std::int64_t frames = FrameCountOf(o, source.RawFrameCount(), settings.ticksPerFrame);
    seq.videoDurationTicks = (o.startFrame + frames) * settings.ticksPerFrame;
    seq.audioDurationTicks = seq.videoDurationTicks;

    RenderHostOptions render;
    render.threads = o.threads;
    render.seed = o.seed;
    render.forcedFormat = o.hostFormat;
    render.rowPadding = o.rowPadding;
    render.unaligned = o.unaligned;
    render.failRenderAt = o.failRenderAt;
    ConfigureRenderHost(render, &source);
    ProgressOptions progress;
    progress.firstFrame = o.startFrame;
    progress.frameCount = frames;
    progress.cancelAt = o.cancelAt;
    progress.suspendAt = o.suspendAt;
    progress.display = QVN::StandardErrorIsTerminal() ? ProgressDisplay::Bar : ProgressDisplay::Lines;
    ConfigureProgress(progress);
    QVN::ResetInterrupt();
    ArmGraphReport(o.graph);

    const PlatformFilters platformFilters(o.forceStandIns);
    for (const std::string& line : platformFilters.Problems())
        std::fprintf(stderr, "qvnhost: %s\n", line.c_str());
    if (o.graph) {
        // The stand-ins carry the platform filters' class identifiers, so the graph alone cannot tell them.
        std::string names;
        for (const std::string& name : platformFilters.Registered())
            names += (names.empty() ? "" : ", ") + name;
        std::printf("graph: qvnhost's stand-ins for this export: %s\n",
                    names.empty() ? "none" : names.c_str());
    }
    prsdk::exDoExportRec rec{};
    rec.exportAudio = audio ? 1 : 0;
    rec.exportVideo = o.exportVideo ? 1 : 0;
    rec.startTime = o.startFrame * settings.ticksPerFrame;
    rec.endTime = (o.startFrame + frames) * settings.ticksPerFrame;
    rec.fileObject = kFileObject;
    const std::uint64_t started = QVN::MonotonicMs();
    const prsdk::int32 result = session.Export(&rec);
    const double seconds = static_cast<double>(QVN::MonotonicMs() - started) / 1000.0;
    FinishProgressDisplay();
    session.End();
    if (o.graph && !RequestSeen())
        std::printf("graph: not looked for: the module asked for no frame and no audio\n");
    ArmFirstRequestHook(nullptr);

    const RenderHostReport renderReport = RenderHostState();
    const AudioHostReport audioReport = AudioHostState();
    PrintSummary(o, settings, frames, result, seconds, renderReport, audioReport);

    std::vector<std::string> problems = broker.Outstanding();
    for (std::string& line : problems)
        line = "suite " + line;
    problems.insert(problems.end(), renderReport.problems.begin(), renderReport.problems.end());
    problems.insert(problems.end(), audioReport.problems.begin(), audioReport.problems.end());
    if (const std::size_t live = FrameRegistry::Instance().Live(); live != 0)
        problems.push_back(std::to_string(live) + " rendered frames never disposed of");
    if (const std::uint64_t bad = FrameRegistry::Instance().BadDisposals(); bad != 0)
        problems.push_back(std::to_string(bad) + " disposals of frames that were not live");
    if (!renderReport.sourceError.empty())
        std::fprintf(stderr, "qvnhost: source: %s\n", renderReport.sourceError.c_str());
    for (const std::string& line : problems)
        std::fprintf(stderr, "qvnhost: %s\n", line.c_str());
    if (result != 0)
        std::fprintf(stderr, "qvnhost: export failed: the module answered %s\n", ResultText(result).c_str());
    // Renderers the module left behind stop here, before the source they draw from goes.
    ResetRenderHost();
    ConfigureRenderHost(render, nullptr);
    ResetAudioHost();
    FrameRegistry::Instance().Reset();
    return result == 0 && problems.empty() ? 0 : 1;
}

} // namespace
} // namespace qvnhost

int QvnExportCommand(int argc, char** argv) {
    return qvnhost::Run(argc, argv);
}
