// The settings dialog through the module's entry point, against the host simulator's parameter store: the
// tree and its defaults, labels and lists, the lists each codec allows, changes reaching the settings record,
// the summary lines and the output settings.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "exporter/premiere_exporter.h"
#include "host/instance_suites.h"
#include "host/param_store.h"
#include "host/suite_broker.h"
#include "platform/text_encoding.h"
#include "prsdk/prsdk.h"

PR_EXPORT prsdk::int32 xSDKExport(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1,
                                  void* param2);

namespace {

// The records are packed: their 64-bit fields are copied out (prsdk::int64{...}) before gtest binds a
// reference to them.
using qvnhost::ParamStore;
using qvnhost::StoredParam;
using Names = std::vector<std::string>;
using Value = prsdk::exOneParamValueRec;

constexpr prsdk::uint32 kPlugin = 7;
constexpr prsdk::int64 kHostTicks = 254016000000LL;
const Names kAspects = {"Square", "HD 3:2", "HD 4:3", "PAL", "PAL wide", "NTSC", "NTSC wide"};
const Names kRates = {"23.976", "24", "25", "29.97", "30", "50", "59.94", "60"};
const Names kFields = {"Progressive", "Upper", "Lower"};

prsdk::int32 Code(const char* c) {
    return static_cast<prsdk::int32>(prsdk::MakeFourCC(c[0], c[1], c[2], c[3]));
}

// A time base the test can change while an instance holds the suite.
prsdk::PrTime gTicksPerSecond = kHostTicks;
prsdk::prSuiteError TestTicksPerSecond(prsdk::PrTime* ticks) {
    *ticks = gTicksPerSecond;
    return prsdk::suiteError_NoError;
}
const prsdk::TimeSuite kTestTime = {TestTicksPerSecond, nullptr, nullptr};

// Every field of the settings record.
std::string Describe(const QVN::ExportSettings& s) {
    std::ostringstream o;
    o.precision(17);
    o << "plugin " << s.pluginId << ", " << s.width << "x" << s.height << ", "
      << std::string(reinterpret_cast<const char*>(&s.codec), 4) << ", aspect " << s.pixelAspectNumerator
      << "/" << s.pixelAspectDenominator << ", " << s.ticksPerFrame << " of " << s.ticksPerSecond
      << ", field " << s.fieldType << ", audio " << s.audioSampleType << " " << s.audioChannelType << " "
      << s.audioSampleRate;
    return o.str();
}

// A parameter's value as text; codes print as their four characters.
std::string ValueText(prsdk::exParamType type, const Value& v) {
    std::ostringstream o;
    o.precision(17);
    if (type == prsdk::exParamType_int && v.intValue > 0x20202020)
        o << std::string(reinterpret_cast<const char*>(&v.intValue), 4);
    else if (type == prsdk::exParamType_int)
        o << v.intValue;
    else if (type == prsdk::exParamType_ratio)
        o << v.ratioValue.numerator << "/" << v.ratioValue.denominator;
    else if (type == prsdk::exParamType_ticksFrameRate)
        o << prsdk::int64{v.timeValue};
    else if (type == prsdk::exParamType_float)
        o << double{v.floatValue};
    return o.str();
}
std::string ValueText(const StoredParam& p) {
    return ValueText(p.type, p.values.value);
}

class Settings : public testing::Test {
protected:
    void SetUp() override {
        qvnhost::RegisterInstanceSuites();
        qvnhost::SuiteBroker::Instance().Register(prsdk::kTimeSuite, prsdk::kTimeSuiteVersion, &kTestTime);
        gTicksPerSecond = kHostTicks;
        ParamStore::Instance().Reset();
        qvnhost::SequenceInfo& s = qvnhost::CurrentSequence();
        s = qvnhost::SequenceInfo{};
        s.width = 720;
        s.height = 576;
        s.ticksPerFrame = kHostTicks / 25;
        s.fieldType = 2;
        s.pixelAspectNumerator = 1024;
        s.pixelAspectDenominator = 702;
        s.audioChannelType = 3;
        s.audioSampleRate = 44100.0;
    }
    void TearDown() override {
        if (instance_.privateData) {
            EXPECT_EQ(Call(prsdk::exSelEndInstance, &instance_), 0);
        }
        qvnhost::CurrentSequence() = qvnhost::SequenceInfo{};
        qvnhost::RegisterInstanceSuites();
    }
    prsdk::int32 Call(prsdk::int32 selector, void* record) {
        return xSDKExport(selector, qvnhost::SuiteBroker::Instance().StdParms(), record, nullptr);
    }
    // Begin and generate; then post-process `postProcess` times.
    void OpenDialog(int postProcess = 1) {
        instance_ = {kPlugin, 0, nullptr};
        ASSERT_EQ(Call(prsdk::exSelBeginInstance, &instance_), 0);
        prsdk::exGenerateDefaultParamRec generate{kPlugin, instance_.privateData, 0};
        ASSERT_EQ(Call(prsdk::exSelGenerateDefaultParams, &generate), 0);
        prsdk::exPostProcessParamsRec post{kPlugin, instance_.privateData, 0, 1, 1};
        for (int i = 0; i < postProcess; ++i)
            ASSERT_EQ(Call(prsdk::exSelPostProcessParams, &post), 0);
    }
    QVN::ExportSettings& Record() {
        return static_cast<QVN::PremiereExporter*>(instance_.privateData)->settings;
    }
    StoredParam Param(const std::string& id) {
        const auto groups = ParamStore::Instance().Snapshot(kPlugin);
        for (const StoredParam& p : groups.at(0).entries) {
            if (p.identifier == id)
                return p;
        }
        ADD_FAILURE() << "no parameter " << id;
        return {};
    }
    // Each choice as "name=value", or its name alone.
    Names Choices(const std::string& id, bool values = true) {
        Names choices;
        const StoredParam p = Param(id);
        for (const auto& c : p.choices)
            choices.push_back(QVN::Utf16ToUtf8(c.name) + (values ? "=" + ValueText(p.type, c.value) : ""));
        return choices;
    }
    Names ChoiceNames(const std::string& id) { return Choices(id, false); }
    // Stores a value as the user's dialog does; `notify` then tells the module which parameter changed.
    template <class Set> prsdk::int32 Change(const std::string& id, Set set, bool notify = true) {
        prsdk::exParamValues v;
        EXPECT_EQ(ParamStore::Instance().GetParamValue(kPlugin, 0, id.c_str(), &v), 0) << id;
        set(v.value);
        EXPECT_EQ(ParamStore::Instance().ChangeParam(kPlugin, 0, id.c_str(), &v), 0) << id;
        return notify ? Changed(id) : 0;
    }
    prsdk::int32 Changed(const std::string& id) {
        prsdk::exParamChangedRec rec{};
        rec.exporterPluginID = kPlugin;
        rec.privateData = instance_.privateData;
        std::strcpy(rec.changedParamIdentifier, id.c_str());
        return Call(prsdk::exSelValidateParamChanged, &rec);
    }
    void ChangeInt(const std::string& id, prsdk::int32 value) {
        EXPECT_EQ(Change(id, [value](Value& v) { v.intValue = value; }), 0);
    }
    prsdk::exExporterInstanceRec instance_{};
};

TEST_F(Settings, GenerateBuildsTheTreeWithTheSourceDefaultsAndPostProcessLabelsItAndFillsTheLists) {
    OpenDialog(0);
    struct Node {
        const char *id, *parent;
        prsdk::exParamType type;
        const char *generated, *label, *value; // Generate's name, PostProcess's, and the default
    };
    const prsdk::exParamType group = prsdk::exParamType_group, integer = prsdk::exParamType_int;
    const Node tree[] = {
        {"ADBEVideoTabGroup", "ADBETopParamGroup", group, "Sample top-level video param group",
         "Sample top-level video param group", ""},
        {"ADBEVideoCodecGroup", "ADBEVideoTabGroup", group, "Sample Video codec group", "Video codec", ""},
        {"ADBEVideoCodec", "ADBEVideoCodecGroup", integer, "", "Codec", "UYVY"},
        {"ADBEBasicVideoGroup", "ADBEVideoTabGroup", group, "Video settings", "Video settings", ""},
        {"ADBEVideoWidth", "ADBEBasicVideoGroup", integer, "", "Width", "720"},
        {"ADBEVideoHeight", "ADBEBasicVideoGroup", integer, "", "Height", "576"},
        {"ADBEVideoFieldType", "ADBEBasicVideoGroup", integer, "", "Field Order", "2"},
        {"ADBEVideoAspect", "ADBEBasicVideoGroup", prsdk::exParamType_ratio, "", "Aspect ratio", "1024/702"},
        {"ADBEVideoFPS", "ADBEBasicVideoGroup", prsdk::exParamType_ticksFrameRate, "", "Frame rate",
         "10160640000"},
        {"ADBEAudioTabGroup", "ADBETopParamGroup", group, "Audio tab", "Audio tab", ""},
        {"ADBEBasicAudioGroup", "ADBEAudioTabGroup", group, "Audio settings", "Audio settings", ""},
        {"ADBEAudioSampleType", "ADBEBasicAudioGroup", integer, "", "Sample type", "3"},
        {"ADBEAudioNumChannels", "ADBEBasicAudioGroup", integer, "", "Channels", "3"},
        {"ADBEAudioRatePerSecond", "ADBEBasicAudioGroup", prsdk::exParamType_float, "", "Sample rate",
         "44100"},
    };
    const auto groups = ParamStore::Instance().Snapshot(kPlugin);
    ASSERT_EQ(groups.size(), 1u);
    ASSERT_EQ(groups[0].entries.size(), std::size(tree) + 1); // and the host's top group
    for (const Node& n : tree) {
        const StoredParam p = Param(n.id);
        EXPECT_EQ(p.parent, n.parent) << n.id;
        EXPECT_EQ(p.type, n.type) << n.id;
        EXPECT_EQ(QVN::Utf16ToUtf8(p.name), n.generated) << n.id;
        EXPECT_FALSE(p.values.disabled || p.values.hidden) << n.id;
        EXPECT_EQ(ValueText(p), n.value) << n.id;
    }
    EXPECT_EQ(Describe(Record()), "plugin 7, 720x576, UYVY, aspect 1024/702, 10160640000 of 254016000000, "
                                  "field 2, audio 3 3 44100");
    prsdk::exPostProcessParamsRec post{kPlugin, instance_.privateData, 0, 1, 1};
    for (int i = 0; i < 2; ++i) // the lists are cleared first, never doubled
        ASSERT_EQ(Call(prsdk::exSelPostProcessParams, &post), 0);
    for (const Node& n : tree)
        EXPECT_EQ(QVN::Utf16ToUtf8(Param(n.id).name), n.label) << n.id;
    EXPECT_EQ(Choices("ADBEVideoCodec"),
              (Names{"Uncompressed 8-bit SD YUV=UYVY", "Uncompressed 8-bit HD YUV=HDYC",
                     "Uncompressed 10-bit YUV=v210", "Uncompressed 10-bit RGB=r210", "Motion JPEG=MJPG",
                     "DVCPROHD 1080i 60Hz=dvn1", "DVCPROHD 1080i 50Hz=dvp1", "DVCPROHD 720p 60Hz=dvn7",
                     "DVCPROHD 720p 50Hz=dvp7", "DVCPRO50 NTSC=dvn5", "DVCPRO50 PAL=dvp5", "DV=dvsd"}));
    // Before any codec is chosen the video lists are the unrestricted ones.
    EXPECT_EQ(Choices("ADBEVideoAspect"), (Names{"Square=1/1", "HD 3:2=3/2", "HD 4:3=4/3", "PAL=768/702",
                                                 "PAL wide=1024/702", "NTSC=10/11", "NTSC wide=40/33"}));
    EXPECT_EQ(ChoiceNames("ADBEVideoFPS"), kRates);
    EXPECT_EQ(Choices("ADBEVideoFieldType"), (Names{"Progressive=0", "Upper=1", "Lower=2"}));
    EXPECT_EQ(Choices("ADBEAudioNumChannels"), (Names{"Mono=1", "Stereo=2", "5.1 Channels=3"}));
    // Every sample type entry carries the codec list's last value, and the default 3 is none of them.
    EXPECT_EQ(Choices("ADBEAudioSampleType"),
              (Names{"16Bit=dvsd", "24Bit=dvsd", "32Bit=dvsd", "32Bit float=dvsd"}));
    EXPECT_EQ(ValueText(Param("ADBEAudioSampleType")), "3");
    EXPECT_EQ(Choices("ADBEAudioRatePerSecond"), Names{"48000Hz=48000"});
}

TEST_F(Settings, EachCodecNarrowsSizeAspectRateAndFieldLists) {
    OpenDialog();
    struct Case {
        const char* codec;
        prsdk::int32 width, height; // 0: free
        Names aspects, rates, fields;
    };
    // In this order the free codecs follow fixed ones, so re-enabling is checked too ("UYVY" after "dvp5").
    const Case cases[] = {
        {"dvn1", 1280, 1080, {"HD 3:2"}, {"23.976", "29.97"}, {"Progressive", "Upper"}},
        {"dvp1", 1440, 1080, {"HD 4:3"}, {"25"}, {"Upper"}},
        {"HDYC", 0, 0, kAspects, kRates, kFields},
        {"dvn7", 960, 720, {"HD 4:3"}, {"59.94"}, {"Progressive"}},
        {"dvp7", 960, 720, {"HD 4:3"}, {"59.94"}, {"Progressive"}},
        {"dvn5", 720, 480, {"NTSC", "NTSC wide"}, {"29.97"}, {"Lower"}},
        {"dvsd", 0, 0, {"PAL", "PAL wide", "NTSC", "NTSC wide"}, {"25", "29.97"}, {"Lower"}},
        {"dvp5", 720, 576, {"PAL", "PAL wide"}, {"25"}, {"Lower"}},
        {"UYVY", 0, 0, kAspects, kRates, kFields},
        {"v210", 0, 0, kAspects, kRates, kFields},
        {"r210", 0, 0, kAspects, kRates, kFields},
        {"MJPG", 0, 0, kAspects, kRates, kFields},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.codec);
        ChangeInt("ADBEVideoCodec", Code(c.codec));
        for (const auto& [id, fixed] :
             {std::pair{"ADBEVideoWidth", c.width}, {"ADBEVideoHeight", c.height}}) {
            const prsdk::exParamValues v = Param(id).values;
            EXPECT_EQ(v.disabled != 0, fixed != 0) << id;
            if (fixed != 0)
                EXPECT_EQ(v.value.intValue, fixed) << id;
            else
                EXPECT_EQ(std::pair(v.rangeMin.intValue, v.rangeMax.intValue), std::pair(16, 4096)) << id;
        }
        EXPECT_EQ(ChoiceNames("ADBEVideoAspect"), c.aspects);
        EXPECT_EQ(ChoiceNames("ADBEVideoFPS"), c.rates);
        EXPECT_EQ(ChoiceNames("ADBEVideoFieldType"), c.fields);
    }
    // A free size keeps the value the last fixed one left; the record's codec is left to the export run.
    EXPECT_EQ(Param("ADBEVideoWidth").values.value.intValue, 720);
    EXPECT_EQ(Param("ADBEVideoHeight").values.value.intValue, 576);
    EXPECT_EQ(Record().codec, static_cast<prsdk::uint32>(Code("UYVY")));
    ChangeInt("ADBEVideoCodec", Code("dvp1"));
    EXPECT_EQ(Record().codec, static_cast<prsdk::uint32>(Code("UYVY")));
    EXPECT_EQ(Record().width, 720);
}

TEST_F(Settings, FrameRatesDivideBeforeMultiplyingAndFollowTheTimeBaseAndChangesReachTheRecord) {
    gTicksPerSecond = 240240;
    OpenDialog();
    const auto ticks = [this] {
        std::vector<prsdk::int64> t;
        for (const auto& c : Param("ADBEVideoFPS").choices)
            t.push_back(prsdk::int64{c.value.timeValue});
        return t;
    };
    // 240240 / 24000 = 10 (truncated) then x 1001; multiplying first would give 10020.
    EXPECT_EQ(ticks(), (std::vector<prsdk::int64>{10010, 10010, 9609, 8008, 8008, 4804, 4004, 4004}));
    // A codec change recomputes the list from the time base the host reports now.
    gTicksPerSecond = kHostTicks;
    ChangeInt("ADBEVideoCodec", Code("dvn1"));
    EXPECT_EQ(ticks(), (std::vector<prsdk::int64>{10594584000, 8475667200}));
    // A frame-rate change fetches the time base again.
    gTicksPerSecond = 240240;
    EXPECT_EQ(Change("ADBEVideoFPS", [](Value& v) { v.timeValue = 8008; }), 0);
    EXPECT_EQ(Record().ticksPerSecond, 240240);
    EXPECT_EQ(Record().ticksPerFrame, 8008);
    // Every other parameter reaches the record; unknown identifiers change nothing.
    ChangeInt("ADBEVideoCodec", Code("UYVY"));
    ChangeInt("ADBEVideoWidth", 1000);
    ChangeInt("ADBEVideoHeight", 500);
    ChangeInt("ADBEVideoFieldType", 1);
    ChangeInt("ADBEAudioSampleType", 5);
    ChangeInt("ADBEAudioNumChannels", 1);
    EXPECT_EQ(Change("ADBEVideoAspect", [](Value& v) { v.ratioValue = {40, 33}; }), 0);
    EXPECT_EQ(Change("ADBEAudioRatePerSecond", [](Value& v) { v.floatValue = 32000.5; }), 0);
    EXPECT_EQ(Describe(Record()), "plugin 7, 1000x500, UYVY, aspect 40/33, 8008 of 240240, "
                                  "field 1, audio 5 1 32000.5");
    const QVN::ExportSettings before = Record();
    for (const char* id : {"ADBEVideoTabGroup", "NoSuchParam", ""})
        EXPECT_EQ(Changed(id), 0) << id;
    EXPECT_EQ(std::memcmp(&before, &Record(), sizeof before), 0);
}

TEST_F(Settings, SummaryLines) {
    OpenDialog();
    const auto summary = [this] {
        prsdk::exParamSummaryRec rec;
        std::memset(&rec, 0x5A, sizeof rec);
        rec.exporterPluginID = kPlugin;
        rec.privateData = instance_.privateData;
        EXPECT_EQ(Call(prsdk::exSelGetParamSummary, &rec), 0);
        for (std::size_t i = 0; i < std::size(rec.bitrateSummaryLine3); ++i)
            EXPECT_EQ(static_cast<std::uint16_t>(rec.bitrateSummaryLine3[i]), 0x5A5A)
                << "line 3 is left alone";
        const auto text = [](const prsdk::prUTF16Char* t) {
            return QVN::Utf16ToUtf8(qvnhost::HostString(t));
        };
        return text(rec.videoSummaryLine1) + " | " + text(rec.audioSummaryLine2);
    };
    EXPECT_EQ(summary(), "720x576 1.4587 ,Lower | 48000.000000 Hz");
    for (const auto& [field, name] : {std::pair{0, "Progressive"}, {1, "Upper"}, {3, "Unknown"}}) {
        ChangeInt("ADBEVideoFieldType", field);
        EXPECT_EQ(summary(), std::string("720x576 1.4587 ,") + name + " | 48000.000000 Hz");
    }
    // 9/160 is 0.05625: the single-precision quotient lies below it and prints 0.0562, the double 0.0563.
    EXPECT_EQ(Change("ADBEVideoAspect", [](Value& v) { v.ratioValue = {9, 160}; }), 0);
    EXPECT_EQ(Change("ADBEAudioRatePerSecond", [](Value& v) { v.floatValue = 44100.0; }), 0);
    EXPECT_EQ(Record().audioSampleRate, 44100.0);
    EXPECT_EQ(summary(), "720x576 0.0562 ,Unknown | 48000.000000 Hz");
}

TEST_F(Settings, OutputSettingsComeFromTheParametersWithFloatStereoAudio) {
    OpenDialog();
    // Stored without telling the module: the answer must come from the parameters, not the record.
    const auto store = [this](const char* id, auto set) { Change(id, set, false); };
    store("ADBEVideoWidth", [](Value& v) { v.intValue = 1280; });
    store("ADBEVideoHeight", [](Value& v) { v.intValue = 720; });
    store("ADBEVideoFPS", [](Value& v) { v.timeValue = 4237833600; });
    store("ADBEVideoAspect", [](Value& v) { v.ratioValue = {10, 11}; });
    store("ADBEVideoFieldType", [](Value& v) { v.intValue = 1; });
    store("ADBEAudioRatePerSecond", [](Value& v) { v.floatValue = 32000.0; });
    prsdk::exQueryOutputSettingsRec rec;
    std::memset(&rec, 0x33, sizeof rec);
    rec.exporterPluginID = kPlugin;
    rec.privateData = instance_.privateData;
    rec.inMultiGroupIndex = 0;
    rec.inExportAudio = rec.inExportVideo = 1;
    ASSERT_EQ(Call(prsdk::exSelQueryOutputSettings, &rec), 0);
    std::ostringstream answer; // stereo, though the channels parameter says 5.1; the bit rate left alone
    answer << rec.outVideoWidth << "x" << rec.outVideoHeight << ", " << prsdk::int64{rec.outVideoFrameRate}
           << ", aspect " << rec.outVideoAspectNum << "/" << rec.outVideoAspectDen << ", field "
           << rec.outVideoFieldType << ", audio " << double{rec.outAudioSampleRate} << " "
           << rec.outAudioSampleType << " " << rec.outAudioChannelType << ", bit rate " << std::hex
           << rec.outBitratePerSecond;
    EXPECT_EQ(answer.str(),
              "1280x720, 4237833600, aspect 10/11, field 1, audio 32000 6 2, bit rate 33333333");
    // Only the sample type follows the answer: the channels stay 5.1.
    EXPECT_EQ(Describe(Record()), "plugin 7, 1280x720, UYVY, aspect 10/11, 4237833600 of 254016000000, "
                                  "field 1, audio 6 3 32000");
}

} // namespace
