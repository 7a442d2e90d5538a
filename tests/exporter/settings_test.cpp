// The settings dialog through the module's entry point, against the host simulator's parameter store: the
// tree and its defaults, labels and lists, the lists each codec allows, changes reaching the settings record,
// the summary lines and the output settings.
#include <gtest/gtest.h>

#include <cstring>
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

constexpr prsdk::uint32 kPlugin = 7;
constexpr prsdk::int64 kHostTicks = 254016000000LL;

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
    void Begin() {
        instance_ = {kPlugin, 0, nullptr};
        ASSERT_EQ(Call(prsdk::exSelBeginInstance, &instance_), 0);
    }
    void Generate() {
        prsdk::exGenerateDefaultParamRec rec{kPlugin, instance_.privateData, 0};
        ASSERT_EQ(Call(prsdk::exSelGenerateDefaultParams, &rec), 0);
    }
    void PostProcess() {
        prsdk::exPostProcessParamsRec rec{kPlugin, instance_.privateData, 0, 1, 1};
        ASSERT_EQ(Call(prsdk::exSelPostProcessParams, &rec), 0);
    }
    void OpenDialog() {
        Begin();
        Generate();
        PostProcess();
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
    std::vector<std::string> ChoiceNames(const std::string& id) {
        std::vector<std::string> names;
        for (const auto& c : Param(id).choices)
            names.push_back(QVN::Utf16ToUtf8(c.name));
        return names;
    }
    // What the user's dialog does: store the value, then tell the module which parameter changed.
    template <class Set> prsdk::int32 Change(const std::string& id, Set set) {
        prsdk::exParamValues v;
        EXPECT_EQ(ParamStore::Instance().GetParamValue(kPlugin, 0, id.c_str(), &v), 0) << id;
        set(v.value);
        EXPECT_EQ(ParamStore::Instance().ChangeParam(kPlugin, 0, id.c_str(), &v), 0) << id;
        prsdk::exParamChangedRec rec{};
        rec.exporterPluginID = kPlugin;
        rec.privateData = instance_.privateData;
        std::strcpy(rec.changedParamIdentifier, id.c_str());
        return Call(prsdk::exSelValidateParamChanged, &rec);
    }
    void ChangeInt(const std::string& id, prsdk::int32 value) {
        EXPECT_EQ(Change(id, [value](prsdk::exOneParamValueRec& v) { v.intValue = value; }), 0);
    }

    prsdk::exExporterInstanceRec instance_{};
};

TEST_F(Settings, GenerateBuildsTheTreeWithTheSourceDefaults) {
    Begin();
    Generate();

    struct Node {
        const char* id;
        const char* parent;
        prsdk::exParamType type;
        const char* groupName;
    };
    const Node tree[] = {
        {"ADBEVideoTabGroup", "ADBETopParamGroup", prsdk::exParamType_group,
         "Sample top-level video param group"},
        {"ADBEVideoCodecGroup", "ADBEVideoTabGroup", prsdk::exParamType_group, "Sample Video codec group"},
        {"ADBEVideoCodec", "ADBEVideoCodecGroup", prsdk::exParamType_int, ""},
        {"ADBEBasicVideoGroup", "ADBEVideoTabGroup", prsdk::exParamType_group, "Video settings"},
        {"ADBEVideoWidth", "ADBEBasicVideoGroup", prsdk::exParamType_int, ""},
        {"ADBEVideoHeight", "ADBEBasicVideoGroup", prsdk::exParamType_int, ""},
        {"ADBEVideoFieldType", "ADBEBasicVideoGroup", prsdk::exParamType_int, ""},
        {"ADBEVideoAspect", "ADBEBasicVideoGroup", prsdk::exParamType_ratio, ""},
        {"ADBEVideoFPS", "ADBEBasicVideoGroup", prsdk::exParamType_ticksFrameRate, ""},
        {"ADBEAudioTabGroup", "ADBETopParamGroup", prsdk::exParamType_group, "Audio tab"},
        {"ADBEBasicAudioGroup", "ADBEAudioTabGroup", prsdk::exParamType_group, "Audio settings"},
        {"ADBEAudioSampleType", "ADBEBasicAudioGroup", prsdk::exParamType_int, ""},
        {"ADBEAudioNumChannels", "ADBEBasicAudioGroup", prsdk::exParamType_int, ""},
        {"ADBEAudioRatePerSecond", "ADBEBasicAudioGroup", prsdk::exParamType_float, ""},
    };
    const auto groups = ParamStore::Instance().Snapshot(kPlugin);
    ASSERT_EQ(groups.size(), 1u);
    ASSERT_EQ(groups[0].entries.size(), std::size(tree) + 1); // and the host's top group
    for (const Node& n : tree) {
        const StoredParam p = Param(n.id);
        EXPECT_EQ(p.parent, n.parent) << n.id;
        EXPECT_EQ(p.type, n.type) << n.id;
        EXPECT_EQ(QVN::Utf16ToUtf8(p.name), n.groupName) << n.id;
        EXPECT_FALSE(p.values.disabled || p.values.hidden) << n.id;
    }

    EXPECT_EQ(Param("ADBEVideoCodec").values.value.intValue, Code("UYVY"));
    const StoredParam width = Param("ADBEVideoWidth");
    EXPECT_EQ(width.values.value.intValue, 720);
    EXPECT_EQ(width.values.rangeMin.intValue, 16);
    EXPECT_EQ(width.values.rangeMax.intValue, 4096);
    EXPECT_EQ(Param("ADBEVideoHeight").values.value.intValue, 576);
    EXPECT_EQ(Param("ADBEVideoFieldType").values.value.intValue, 2);
    EXPECT_EQ(Param("ADBEVideoAspect").values.value.ratioValue.numerator, 1024);
    EXPECT_EQ(Param("ADBEVideoAspect").values.value.ratioValue.denominator, 702);
    EXPECT_EQ(prsdk::int64{Param("ADBEVideoFPS").values.value.timeValue}, 10160640000);
    EXPECT_EQ(Param("ADBEAudioSampleType").values.value.intValue, 3);
    EXPECT_EQ(Param("ADBEAudioNumChannels").values.value.intValue, 3);
    EXPECT_EQ(double{Param("ADBEAudioRatePerSecond").values.value.floatValue}, 44100.0);

    const QVN::ExportSettings& s = Record();
    EXPECT_EQ(s.pluginId, kPlugin);
    EXPECT_EQ(s.width, 720);
    EXPECT_EQ(s.height, 576);
    EXPECT_EQ(s.codec, static_cast<prsdk::uint32>(Code("UYVY")));
    EXPECT_EQ(s.pixelAspectNumerator, 1024);
    EXPECT_EQ(s.pixelAspectDenominator, 702);
    EXPECT_EQ(s.ticksPerSecond, kHostTicks);
    EXPECT_EQ(s.ticksPerFrame, 10160640000);
    EXPECT_EQ(s.fieldType, 2);
    EXPECT_EQ(s.audioSampleType, 3);
    EXPECT_EQ(s.audioChannelType, 3);
    EXPECT_EQ(s.audioSampleRate, 44100.0);
}

TEST_F(Settings, PostProcessLabelsEveryFieldAndFillsTheLists) {
    Begin();
    Generate();
    PostProcess();
    PostProcess(); // the lists are cleared first, never doubled

    const std::pair<const char*, const char*> labels[] = {
        {"ADBEVideoCodecGroup", "Video codec"},
        {"ADBEVideoCodec", "Codec"},
        {"ADBEBasicVideoGroup", "Video settings"},
        {"ADBEVideoWidth", "Width"},
        {"ADBEVideoHeight", "Height"},
        {"ADBEVideoFieldType", "Field Order"},
        {"ADBEVideoAspect", "Aspect ratio"},
        {"ADBEVideoFPS", "Frame rate"},
        {"ADBEBasicAudioGroup", "Audio settings"},
        {"ADBEAudioRatePerSecond", "Sample rate"},
        {"ADBEAudioSampleType", "Sample type"},
        {"ADBEAudioNumChannels", "Channels"},
        {"ADBEVideoTabGroup", "Sample top-level video param group"},
        {"ADBEAudioTabGroup", "Audio tab"},
    };
    for (const auto& [id, label] : labels)
        EXPECT_EQ(QVN::Utf16ToUtf8(Param(id).name), label) << id;

    const std::vector<std::pair<const char*, const char*>> codecs = {{"UYVY", "Uncompressed 8-bit SD YUV"},
                                                                     {"HDYC", "Uncompressed 8-bit HD YUV"},
                                                                     {"v210", "Uncompressed 10-bit YUV"},
                                                                     {"r210", "Uncompressed 10-bit RGB"},
                                                                     {"MJPG", "Motion JPEG"},
                                                                     {"dvn1", "DVCPROHD 1080i 60Hz"},
                                                                     {"dvp1", "DVCPROHD 1080i 50Hz"},
                                                                     {"dvn7", "DVCPROHD 720p 60Hz"},
                                                                     {"dvp7", "DVCPROHD 720p 50Hz"},
                                                                     {"dvn5", "DVCPRO50 NTSC"},
                                                                     {"dvp5", "DVCPRO50 PAL"},
                                                                     {"dvsd", "DV"}};
    const StoredParam codec = Param("ADBEVideoCodec");
    ASSERT_EQ(codec.choices.size(), codecs.size());
    for (std::size_t i = 0; i < codecs.size(); ++i) {
        const std::string fourcc(reinterpret_cast<const char*>(&codec.choices[i].value.intValue), 4);
        EXPECT_EQ(fourcc, codecs[i].first);
        EXPECT_EQ(QVN::Utf16ToUtf8(codec.choices[i].name), codecs[i].second);
    }

    // Before any codec is chosen the video lists are the unrestricted ones.
    EXPECT_EQ(ChoiceNames("ADBEVideoAspect"), (std::vector<std::string>{"Square", "HD 3:2", "HD 4:3", "PAL",
                                                                        "PAL wide", "NTSC", "NTSC wide"}));
    const std::pair<prsdk::int32, prsdk::int32> ratios[] = {{1, 1},      {3, 2},   {4, 3},  {768, 702},
                                                            {1024, 702}, {10, 11}, {40, 33}};
    for (std::size_t i = 0; i < std::size(ratios); ++i) {
        EXPECT_EQ(Param("ADBEVideoAspect").choices[i].value.ratioValue.numerator, ratios[i].first);
        EXPECT_EQ(Param("ADBEVideoAspect").choices[i].value.ratioValue.denominator, ratios[i].second);
    }
    EXPECT_EQ(ChoiceNames("ADBEVideoFPS"),
              (std::vector<std::string>{"23.976", "24", "25", "29.97", "30", "50", "59.94", "60"}));
    EXPECT_EQ(ChoiceNames("ADBEVideoFieldType"), (std::vector<std::string>{"Progressive", "Upper", "Lower"}));
    for (prsdk::int32 i = 0; i < 3; ++i)
        EXPECT_EQ(Param("ADBEVideoFieldType").choices[static_cast<std::size_t>(i)].value.intValue, i);

    // Every sample type entry carries the codec list's last value, and the default 3 is none of them.
    EXPECT_EQ(ChoiceNames("ADBEAudioSampleType"),
              (std::vector<std::string>{"16Bit", "24Bit", "32Bit", "32Bit float"}));
    for (const auto& c : Param("ADBEAudioSampleType").choices)
        EXPECT_EQ(c.value.intValue, Code("dvsd"));
    EXPECT_EQ(Param("ADBEAudioSampleType").values.value.intValue, 3);

    const StoredParam rate = Param("ADBEAudioRatePerSecond");
    ASSERT_EQ(rate.choices.size(), 1u);
    EXPECT_EQ(double{rate.choices[0].value.floatValue}, 48000.0);
    EXPECT_EQ(QVN::Utf16ToUtf8(rate.choices[0].name), "48000Hz");

    EXPECT_EQ(ChoiceNames("ADBEAudioNumChannels"),
              (std::vector<std::string>{"Mono", "Stereo", "5.1 Channels"}));
    for (prsdk::int32 i = 0; i < 3; ++i)
        EXPECT_EQ(Param("ADBEAudioNumChannels").choices[static_cast<std::size_t>(i)].value.intValue, i + 1);
}

TEST_F(Settings, EachCodecNarrowsSizeAspectRateAndFieldLists) {
    OpenDialog();
    using Names = std::vector<std::string>;
    const Names allAspects = {"Square", "HD 3:2", "HD 4:3", "PAL", "PAL wide", "NTSC", "NTSC wide"};
    const Names allRates = {"23.976", "24", "25", "29.97", "30", "50", "59.94", "60"};
    const Names allFields = {"Progressive", "Upper", "Lower"};
    struct Case {
        const char* codec;
        prsdk::int32 width, height; // 0: free
        Names aspects, rates, fields;
    };
    // In this order the free codecs follow fixed ones, so re-enabling is checked too ("UYVY" after "dvp5").
    const Case cases[] = {
        {"dvn1", 1280, 1080, {"HD 3:2"}, {"23.976", "29.97"}, {"Progressive", "Upper"}},
        {"dvp1", 1440, 1080, {"HD 4:3"}, {"25"}, {"Upper"}},
        {"HDYC", 0, 0, allAspects, allRates, allFields},
        {"dvn7", 960, 720, {"HD 4:3"}, {"59.94"}, {"Progressive"}},
        {"dvp7", 960, 720, {"HD 4:3"}, {"59.94"}, {"Progressive"}},
        {"dvn5", 720, 480, {"NTSC", "NTSC wide"}, {"29.97"}, {"Lower"}},
        {"dvsd", 0, 0, {"PAL", "PAL wide", "NTSC", "NTSC wide"}, {"25", "29.97"}, {"Lower"}},
        {"dvp5", 720, 576, {"PAL", "PAL wide"}, {"25"}, {"Lower"}},
        {"UYVY", 0, 0, allAspects, allRates, allFields},
        {"v210", 0, 0, allAspects, allRates, allFields},
        {"r210", 0, 0, allAspects, allRates, allFields},
        {"MJPG", 0, 0, allAspects, allRates, allFields},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.codec);
        ChangeInt("ADBEVideoCodec", Code(c.codec));
        for (const auto& [id, fixed] :
             {std::pair{"ADBEVideoWidth", c.width}, {"ADBEVideoHeight", c.height}}) {
            const StoredParam p = Param(id);
            EXPECT_EQ(p.values.disabled != 0, fixed != 0) << id;
            if (fixed != 0) {
                EXPECT_EQ(p.values.value.intValue, fixed) << id;
            } else {
                EXPECT_EQ(p.values.rangeMin.intValue, 16) << id;
                EXPECT_EQ(p.values.rangeMax.intValue, 4096) << id;
            }
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

TEST_F(Settings, FrameRatesDivideBeforeMultiplyingAndFollowTheTimeBase) {
    gTicksPerSecond = 240240;
    OpenDialog();
    std::vector<prsdk::int64> ticks;
    for (const auto& c : Param("ADBEVideoFPS").choices)
        ticks.push_back(prsdk::int64{c.value.timeValue});
    // 240240 / 24000 = 10 (truncated) then x 1001; multiplying first would give 10020.
    EXPECT_EQ(ticks, (std::vector<prsdk::int64>{10010, 10010, 9609, 8008, 8008, 4804, 4004, 4004}));

    // A codec change recomputes the list from the time base the host reports now.
    gTicksPerSecond = kHostTicks;
    ChangeInt("ADBEVideoCodec", Code("dvn1"));
    const StoredParam fps = Param("ADBEVideoFPS");
    ASSERT_EQ(fps.choices.size(), 2u);
    EXPECT_EQ(prsdk::int64{fps.choices[0].value.timeValue}, 10594584000);
    EXPECT_EQ(prsdk::int64{fps.choices[1].value.timeValue}, 8475667200);

    // A frame-rate change fetches the time base again.
    gTicksPerSecond = 240240;
    EXPECT_EQ(Change("ADBEVideoFPS", [](prsdk::exOneParamValueRec& v) { v.timeValue = 8008; }), 0);
    EXPECT_EQ(Record().ticksPerSecond, 240240);
    EXPECT_EQ(Record().ticksPerFrame, 8008);
}

TEST_F(Settings, ChangesReachTheRecordAndUnknownIdentifiersChangeNothing) {
    OpenDialog();
    ChangeInt("ADBEVideoWidth", 1000);
    ChangeInt("ADBEVideoHeight", 500);
    ChangeInt("ADBEVideoFieldType", 1);
    ChangeInt("ADBEAudioSampleType", 5);
    ChangeInt("ADBEAudioNumChannels", 1);
    EXPECT_EQ(Change("ADBEVideoAspect", [](prsdk::exOneParamValueRec& v) { v.ratioValue = {40, 33}; }), 0);
    EXPECT_EQ(Change("ADBEAudioRatePerSecond", [](prsdk::exOneParamValueRec& v) { v.floatValue = 32000.5; }),
              0);
    const QVN::ExportSettings& s = Record();
    EXPECT_EQ(s.width, 1000);
    EXPECT_EQ(s.height, 500);
    EXPECT_EQ(s.fieldType, 1);
    EXPECT_EQ(s.audioSampleType, 5);
    EXPECT_EQ(s.audioChannelType, 1);
    EXPECT_EQ(s.pixelAspectNumerator, 40);
    EXPECT_EQ(s.pixelAspectDenominator, 33);
    EXPECT_EQ(s.audioSampleRate, 32000.5);

    const QVN::ExportSettings before = s;
    prsdk::exParamChangedRec rec{};
    rec.exporterPluginID = kPlugin;
    rec.privateData = instance_.privateData;
    for (const char* id : {"ADBEVideoTabGroup", "NoSuchParam", ""}) {
        std::strcpy(rec.changedParamIdentifier, id);
        EXPECT_EQ(Call(prsdk::exSelValidateParamChanged, &rec), 0) << id;
    }
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
        return std::pair{text(rec.videoSummaryLine1), text(rec.audioSummaryLine2)};
    };
    EXPECT_EQ(summary(), (std::pair<std::string, std::string>{"720x576 1.4587 ,Lower", "48000.000000 Hz"}));

    ChangeInt("ADBEVideoFieldType", 0);
    EXPECT_EQ(summary().first, "720x576 1.4587 ,Progressive");
    ChangeInt("ADBEVideoFieldType", 1);
    EXPECT_EQ(summary().first, "720x576 1.4587 ,Upper");
    ChangeInt("ADBEVideoFieldType", 3);
    EXPECT_EQ(summary().first, "720x576 1.4587 ,Unknown");
    // 9/160 is 0.05625: the single-precision quotient lies below it and prints 0.0562, the double 0.0563.
    EXPECT_EQ(Change("ADBEVideoAspect", [](prsdk::exOneParamValueRec& v) { v.ratioValue = {9, 160}; }), 0);
    EXPECT_EQ(summary().first, "720x576 0.0562 ,Unknown");

    EXPECT_EQ(Change("ADBEAudioRatePerSecond", [](prsdk::exOneParamValueRec& v) { v.floatValue = 44100.0; }),
              0);
    EXPECT_EQ(Record().audioSampleRate, 44100.0);
    EXPECT_EQ(summary().second, "48000.000000 Hz");
}

TEST_F(Settings, OutputSettingsComeFromTheParametersWithFloatStereoAudio) {
    OpenDialog();
    // Stored without telling the module: the answer must come from the parameters, not the record.
    const auto store = [](const char* id, auto set) {
        prsdk::exParamValues v;
        ASSERT_EQ(ParamStore::Instance().GetParamValue(kPlugin, 0, id, &v), 0);
        set(v.value);
        ASSERT_EQ(ParamStore::Instance().ChangeParam(kPlugin, 0, id, &v), 0);
    };
    store("ADBEVideoWidth", [](auto& v) { v.intValue = 1280; });
    store("ADBEVideoHeight", [](auto& v) { v.intValue = 720; });
    store("ADBEVideoFPS", [](auto& v) { v.timeValue = 4237833600; });
    store("ADBEVideoAspect", [](auto& v) { v.ratioValue = {10, 11}; });
    store("ADBEVideoFieldType", [](auto& v) { v.intValue = 1; });
    store("ADBEAudioRatePerSecond", [](auto& v) { v.floatValue = 32000.0; });

    prsdk::exQueryOutputSettingsRec rec;
    std::memset(&rec, 0x33, sizeof rec);
    rec.exporterPluginID = kPlugin;
    rec.privateData = instance_.privateData;
    rec.inMultiGroupIndex = 0;
    rec.inExportAudio = rec.inExportVideo = 1;
    ASSERT_EQ(Call(prsdk::exSelQueryOutputSettings, &rec), 0);
    EXPECT_EQ(rec.outVideoWidth, 1280);
    EXPECT_EQ(rec.outVideoHeight, 720);
    EXPECT_EQ(prsdk::int64{rec.outVideoFrameRate}, 4237833600);
    EXPECT_EQ(rec.outVideoAspectNum, 10);
    EXPECT_EQ(rec.outVideoAspectDen, 11);
    EXPECT_EQ(rec.outVideoFieldType, 1);
    EXPECT_EQ(double{rec.outAudioSampleRate}, 32000.0);
    EXPECT_EQ(rec.outAudioSampleType, 6);
    EXPECT_EQ(rec.outAudioChannelType, 2) << "stereo, though the channels parameter says 5.1";
    EXPECT_EQ(rec.outBitratePerSecond, 0x33333333u);

    const QVN::ExportSettings& s = Record();
    EXPECT_EQ(s.width, 1280);
    EXPECT_EQ(s.height, 720);
    EXPECT_EQ(s.ticksPerFrame, 4237833600);
    EXPECT_EQ(s.pixelAspectNumerator, 10);
    EXPECT_EQ(s.pixelAspectDenominator, 11);
    EXPECT_EQ(s.fieldType, 1);
    EXPECT_EQ(s.audioSampleRate, 32000.0);
    EXPECT_EQ(s.audioSampleType, 6);
    EXPECT_EQ(s.audioChannelType, 3) << "only the sample type follows the answer";
}

} // namespace
