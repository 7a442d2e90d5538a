// The plug-in entry as the host sees it: the start-up and extension records byte for byte, unsupported
// selectors, and begin/end instance against a scripted suite broker that can refuse any suite.
#include <gtest/gtest.h>

#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "exporter/premiere_exporter.h"
#include "prsdk/prsdk.h"

PR_EXPORT prsdk::int32 xSDKExport(prsdk::int32 selector, prsdk::exportStdParms* stdParms, void* param1,
                                  void* param2);

namespace {

// The suites in the order an instance must acquire them, with their versions.
const std::vector<std::pair<std::string, int>> kInstanceSuites = {
    {"MediaCore Export Param Suite", 3}, {"MediaCore Export File Suite", 1},
    {"MediaCore Export Info Suite", 1},  {"Premiere PPix Suite", 1},
    {"Premiere Time Suite", 1},          {"Premiere Memory Manager Suite", 3},
    {"Premiere Window Suite", 1}};

struct ScriptedBroker {
    std::vector<std::string> log; // "+name vN" for each grant, "-name vN" for each release, "!name" refusals
    std::string refuse;           // this suite is refused
    bool throwOnAcquire = false;
    unsigned char dummySuite[256] = {};
};
ScriptedBroker* gBroker = nullptr;

prsdk::SPErr Acquire(const char* name, prsdk::int32 version, const void** suite) {
    if (gBroker->throwOnAcquire)
        throw std::bad_alloc();
    if (gBroker->refuse == name) {
        gBroker->log.push_back(std::string("!") + name);
        return prsdk::kSPSuiteNotFoundError;
    }
    gBroker->log.push_back("+" + std::string(name) + " v" + std::to_string(version));
    *suite = gBroker->dummySuite;
    return prsdk::kSPNoError;
}
prsdk::SPErr Release(const char* name, prsdk::int32 version) {
    gBroker->log.push_back("-" + std::string(name) + " v" + std::to_string(version));
    return prsdk::kSPNoError;
}
prsdk::SPBasicSuite gBasic = {Acquire, Release, nullptr, nullptr, nullptr, nullptr, nullptr};
prsdk::SPBasicSuite* GetBasic() {
    return &gBasic;
}
prsdk::SPBasicSuite* GetNothing() {
    return nullptr;
}

class Entry : public testing::Test {
protected:
    void SetUp() override { gBroker = &broker; }
    void TearDown() override { gBroker = nullptr; }
    ScriptedBroker broker;
    prsdk::exportStdParms std{prsdk::EXPORTMOD_VERSION_CS5, GetBasic};
    prsdk::exportStdParms noBroker{prsdk::EXPORTMOD_VERSION_CS5, GetNothing};
};

std::u16string WideField(const prsdk::prUTF16Char* text) {
    std::u16string s;
    while (*text)
        s += static_cast<char16_t>(*text++);
    return s;
}

// Every byte of `bytes` in [from, to) still holds `fill`.
void ExpectUntouched(const void* record, std::initializer_list<std::pair<std::size_t, std::size_t>> ranges,
                     unsigned char fill = 0xA5) {
    const auto* bytes = static_cast<const unsigned char*>(record);
    for (const auto& [from, to] : ranges)
        for (std::size_t i = from; i < to; ++i)
            ASSERT_EQ(bytes[i], fill) << "byte " << i << " was written";
}

TEST_F(Entry, StartupAndTheExtensionQueryFillTheirFieldsAndLeaveEveryOtherByteAlone) {
    prsdk::exExporterInfoRec info;
    std::memset(&info, 0xA5, sizeof info);
    ASSERT_EQ(xSDKExport(prsdk::exSelStartup, &std, &info, nullptr), 0);
    const auto* bytes = reinterpret_cast<const unsigned char*>(&info);
    // fileType 'AVIV' with 'A' in the most significant byte: little-endian bytes V I V A.
    EXPECT_EQ(std::memcmp(bytes + 4, "VIVA", 4), 0);
    EXPECT_EQ(WideField(info.fileTypeName), u"Quorvane AVI File");
    EXPECT_EQ(WideField(info.fileTypeDefaultExtension), u"avi");
    EXPECT_EQ(std::memcmp(bytes + 1032, "WNVQ", 4), 0) << "class 'QVNW'";
    for (std::size_t offset : {1036, 1040, 1044, 1048})
        EXPECT_EQ(*reinterpret_cast<const prsdk::int32*>(bytes + offset), 0) << "offset " << offset;
    EXPECT_EQ(info.canExportVideo, 1);
    EXPECT_EQ(info.canExportAudio, 1);
    EXPECT_EQ(info.interfaceVersion, 3);
    // Untouched: the leading field, the two after the export flags, everything past the version, and the
    // name buffers past their terminating zeros (after "Quorvane AVI File" and "avi").
    ExpectUntouched(&info,
                    {{0, 4}, {8 + 2 * 18, 520}, {520 + 2 * 4, 1032}, {1060, 1068}, {1072, sizeof info}});
    prsdk::exQueryExportFileExtensionRec rec;
    std::memset(&rec, 0xA5, sizeof rec);
    ASSERT_EQ(xSDKExport(prsdk::exSelQueryExportFileExtension, &std, &rec, nullptr), 0);
    EXPECT_EQ(std::memcmp(reinterpret_cast<const unsigned char*>(&rec) + 16, "a\0v\0i\0\0", 8), 0);
    ExpectUntouched(&rec, {{0, 16}, {24, sizeof rec}});
    EXPECT_TRUE(broker.log.empty()) << "start-up acquires no suite";
}

TEST_F(Entry, UnhandledSelectorsAnswerUnsupportedAndTouchNothing) {
    for (prsdk::int32 selector : {1, 11, 12, 14, 15, 100, -1}) {
        unsigned char record[2048];
        std::memset(record, 0x5C, sizeof record);
        EXPECT_EQ(xSDKExport(selector, &std, record, nullptr), -100) << "selector " << selector;
        ExpectUntouched(record, {{0, sizeof record}}, 0x5C);
    }
    prsdk::exParamButtonRec button;
    std::memset(&button, 0x5C, sizeof button);
    button.privateData = nullptr;
    const prsdk::exParamButtonRec before = button;
    EXPECT_EQ(xSDKExport(prsdk::exSelParamButton, &std, &button, nullptr), 0);
    EXPECT_EQ(std::memcmp(&before, &button, sizeof button), 0) << "the button selector does nothing";
    EXPECT_TRUE(broker.log.empty());
}

TEST_F(Entry, BeginAcquiresSevenSuitesInOrderAndEndReleasesThemWithTheSameVersions) {
    prsdk::exExporterInstanceRec rec{};
    rec.exporterPluginID = 0x1234;
    ASSERT_EQ(xSDKExport(prsdk::exSelBeginInstance, &std, &rec, nullptr), 0);
    ASSERT_NE(rec.privateData, nullptr);
    auto* exporter = static_cast<QVN::PremiereExporter*>(rec.privateData);
    EXPECT_EQ(exporter->pluginId, 0x1234u);
    EXPECT_EQ(exporter->settings.pluginId, 0x1234u);
    EXPECT_TRUE(exporter->settings.width == 0 && exporter->settings.ticksPerFrame == 0 &&
                exporter->settings.audioSampleRate == 0.0);
    const auto expected = [](const char* sign) {
        std::vector<std::string> log;
        for (const auto& [name, version] : kInstanceSuites)
            log.push_back(sign + name + " v" + std::to_string(version));
        return log;
    };
    EXPECT_EQ(broker.log, expected("+"));
    broker.log.clear();
    ASSERT_EQ(xSDKExport(prsdk::exSelEndInstance, &std, &rec, nullptr), 0);
    EXPECT_EQ(broker.log, expected("-"));
    // Without a broker End skips the releases and still succeeds; without an instance it has nothing to do.
    ASSERT_EQ(xSDKExport(prsdk::exSelBeginInstance, &std, &rec, nullptr), 0);
    broker.log.clear();
    EXPECT_EQ(xSDKExport(prsdk::exSelEndInstance, &noBroker, &rec, nullptr), 0);
    EXPECT_TRUE(broker.log.empty());
    prsdk::exExporterInstanceRec empty{};
    EXPECT_EQ(xSDKExport(prsdk::exSelEndInstance, &std, &empty, nullptr), 0);
}

// The exception names the refused suite by its source line.
TEST_F(Entry, ARefusedSuiteFailsBeginWithInternalErrorAndLeavesNoInstance) {
    const int lines[] = {38, 44, 50, 56, 62, 68, 74};
    for (std::size_t refused = 0; refused < kInstanceSuites.size(); ++refused) {
        broker.log.clear();
        broker.refuse = kInstanceSuites[refused].first;
        SCOPED_TRACE(broker.refuse);
        prsdk::exExporterInstanceRec rec{};
        void* const sentinel = &rec;
        rec.privateData = sentinel;
        EXPECT_EQ(xSDKExport(prsdk::exSelBeginInstance, &std, &rec, nullptr), 3);
        EXPECT_EQ(rec.privateData, sentinel) << "no instance may be stored after a refusal";
        // Suites granted before the refusal stay acquired; nothing is released; nothing after it is asked.
        ASSERT_EQ(broker.log.size(), refused + 1);
        for (std::size_t i = 0; i < refused; ++i)
            EXPECT_EQ(broker.log[i][0], '+');
        EXPECT_EQ(broker.log.back(), "!" + broker.refuse);
        try {
            QVN::PremiereExporter exporter(7, &std);
            ADD_FAILURE() << "no exception";
        } catch (const QVN::PrSDKException& e) {
            EXPECT_EQ(e.result, 3);
            EXPECT_EQ(e.line, lines[refused]);
            EXPECT_EQ(e.function, "PremiereExporter::PremiereExporter");
            EXPECT_EQ(e.file, ".\\exporter.cpp");
        }
    }
    prsdk::exExporterInstanceRec rec{};
    EXPECT_EQ(xSDKExport(prsdk::exSelBeginInstance, &noBroker, &rec, nullptr), 3) << "no broker at all";
    EXPECT_EQ(rec.privateData, nullptr);
    try {
        QVN::PremiereExporter exporter(7, &noBroker);
        ADD_FAILURE() << "no exception without a broker";
    } catch (const QVN::PrSDKException& e) {
        EXPECT_EQ(e.line, 32);
    }
    broker.refuse.clear();
    broker.throwOnAcquire = true;
    EXPECT_EQ(xSDKExport(prsdk::exSelBeginInstance, &std, &rec, nullptr), 3)
        << "any exception, not only the module's own, becomes the internal error";
    EXPECT_EQ(rec.privateData, nullptr);
}

} // namespace
