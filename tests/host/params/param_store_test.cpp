// The host's parameter store as the Export Param Suite presents it to a module.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "host/instance_suites.h"
#include "host/param_store.h"

namespace {

using prsdk::exOneParamValueRec;
using prsdk::exParamValues;

constexpr prsdk::uint32 kPlugin = 3;
const prsdk::prUTF16Char kName[] = {'N', 'a', 'm', 'e', 0};

class ParamSuite : public testing::Test {
protected:
    void SetUp() override {
        qvnhost::ParamStore::Instance().Reset();
        ASSERT_EQ(s->AddMultiGroup(kPlugin, &mg), 0);
        ASSERT_EQ(mg, 0);
    }
    prsdk::prSuiteError AddInt(const char* group, const char* id, prsdk::int32 value, prsdk::int32 min = 0,
                               prsdk::int32 max = 0) {
        prsdk::exNewParamInfo info;
        std::memset(&info, 0, sizeof info);
        info.structVersion = 1;
        std::strcpy(info.identifier, id);
        info.name[0] = 'W';
        info.paramType = prsdk::exParamType_int;
        info.paramValues.value.intValue = value;
        info.paramValues.rangeMin.intValue = min;
        info.paramValues.rangeMax.intValue = max;
        return s->AddParam(kPlugin, mg, group, &info);
    }
    prsdk::prSuiteError Group(const char* parent, const char* id, bool hidden = false,
                              bool disabled = false) {
        return s->AddParamGroup(kPlugin, mg, parent, id, kName, hidden, disabled, 0);
    }
    // Value, range, disabled and hidden of an integer.
    static std::vector<int> Values(const exParamValues& v) {
        return {v.value.intValue, v.rangeMin.intValue, v.rangeMax.intValue, v.disabled, v.hidden};
    }
    exParamValues Get(const char* id) {
        exParamValues v{};
        EXPECT_EQ(s->GetParamValue(kPlugin, mg, id, &v), 0) << id;
        return v;
    }
    const prsdk::ExportParamSuite* s = qvnhost::ExportParamSuiteTable();
    prsdk::int32 mg = -1;
};

// The tree, the values and the choices as the module builds them are pinned through the settings dialog
// (tests/exporter); here, what a module could get wrong, and the calls it does not make.
TEST_F(ParamSuite, ErrorsForWhatDoesNotExistOrIsOfTheWrongKind) {
    const auto bad = prsdk::suiteError_InvalidParms;
    const auto wrongKind = prsdk::suiteError_InvalidCall;
    EXPECT_EQ(Group("ADBETopParamGroup", "Tab", true, true), 0);
    EXPECT_EQ(Group("Tab", "Inner"), 0);
    EXPECT_EQ(AddInt("Inner", "Width", 1920, 16, 4096), 0);
    EXPECT_EQ(Group("NoParent", "Other"), bad);
    EXPECT_EQ(Group("Tab", "Inner"), bad) << "duplicate group";
    EXPECT_EQ(AddInt("Inner", "Width", 1), bad) << "duplicate parameter";
    EXPECT_EQ(AddInt("Missing", "X", 1), bad);
    EXPECT_EQ(AddInt("Width", "X", 1), wrongKind) << "a parameter is no group";
    EXPECT_EQ(s->AddParam(kPlugin, 1, "Inner", nullptr), bad);
    const auto entries = qvnhost::ParamStore::Instance().Snapshot(kPlugin).at(0).entries;
    ASSERT_EQ(entries.size(), 4u);
    EXPECT_TRUE(entries[1].values.hidden && entries[1].values.disabled);
    prsdk::exParamType type = prsdk::exParamType_undefined;
    EXPECT_EQ(s->GetParamType(kPlugin, mg, "Tab", &type), 0);
    EXPECT_EQ(type, prsdk::exParamType_group);
    exParamValues v{};
    EXPECT_EQ(s->GetParamValue(kPlugin, mg, "Nope", &v), bad);
    EXPECT_EQ(s->GetParamValue(kPlugin, mg, "Tab", &v), wrongKind);
    EXPECT_EQ(s->GetParamValue(kPlugin, 1, "Width", &v), bad) << "no such multigroup";
    EXPECT_EQ(s->GetParamValue(kPlugin + 1, mg, "Width", &v), bad) << "another instance's parameters";
    EXPECT_EQ(s->ChangeParam(kPlugin, mg, "Nope", &v), bad);
    EXPECT_EQ(s->SetParamName(kPlugin, mg, "Nope", kName), bad);
    EXPECT_EQ(s->ClearConstrainedValues(kPlugin, mg, "Nope"), bad);
    EXPECT_EQ(s->ClearParamGroupChildren(kPlugin, mg, "Width"), wrongKind);
    EXPECT_EQ(s->SetParamName(kPlugin, mg, "Tab", kName), 0) << "groups have names too";
    // Out of range and disabled: the store keeps what the module says, as Premiere does.
    v = Get("Width");
    v.value.intValue = 99999;
    v.disabled = v.hidden = 1;
    ASSERT_EQ(s->ChangeParam(kPlugin, mg, "Width", &v), 0);
    EXPECT_EQ(Values(Get("Width")), (std::vector<int>{99999, 16, 4096, 1, 1}));
}

TEST_F(ParamSuite, MultigroupsVersionsArbitraryDataChoicesAndClearingAGroup) {
    ASSERT_EQ(Group("ADBETopParamGroup", "Video"), 0);
    ASSERT_EQ(Group("Video", "Basic"), 0);
    ASSERT_EQ(AddInt("Basic", "Width", 1), 0);
    ASSERT_EQ(AddInt("Video", "Codec", 1), 0);
    ASSERT_EQ(AddInt("ADBETopParamGroup", "Field", 0), 0);
    prsdk::int32 second = -1, count = 0, other = -1, version = -1;
    ASSERT_EQ(s->AddMultiGroup(kPlugin, &second), 0);
    EXPECT_EQ(s->CountMultiGroups(kPlugin, &count) | s->CountMultiGroups(kPlugin + 1, &other), 0);
    EXPECT_EQ(std::vector<int>({second, count, other}), (std::vector<int>{1, 2, 0}));
    exParamValues v{};
    EXPECT_EQ(s->GetParamValue(kPlugin, second, "Width", &v), prsdk::suiteError_InvalidParms);
    EXPECT_EQ(s->SetParamsVersion(kPlugin, 4) | s->GetParamsVersion(kPlugin, &version), 0);
    EXPECT_EQ(version, 4);
    const unsigned char blob[3] = {1, 2, 3};
    unsigned char back[8] = {};
    prsdk::int32 size = 0;
    EXPECT_EQ(s->SetArbData(kPlugin, mg, "Width", 3, blob), 0);
    EXPECT_EQ(s->GetArbData(kPlugin, mg, "Width", &size, nullptr), 0);
    EXPECT_EQ(size, 3);
    size = 2;
    EXPECT_EQ(s->GetArbData(kPlugin, mg, "Width", &size, back), prsdk::suiteError_InvalidParms)
        << "too small";
    size = 8;
    EXPECT_EQ(s->GetArbData(kPlugin, mg, "Width", &size, back), 0);
    EXPECT_EQ(std::vector<int>({size, back[0], back[2], Get("Width").arbDataSize}),
              (std::vector<int>{3, 1, 3, 3}));
    // Choices by index, within bounds only.
    const prsdk::prUTF16Char up[] = {'U', 'p', 0};
    exOneParamValueRec one{}, two{}, got{};
    one.intValue = 1;
    two.intValue = 2;
    ASSERT_EQ(s->AddConstrainedValuePair(kPlugin, mg, "Field", &one, up), 0);
    ASSERT_EQ(s->AddConstrainedValuePair(kPlugin, mg, "Field", &two, kName), 0);
    EXPECT_EQ(s->GetConstrainedValueCount(kPlugin, mg, "Field", &count), 0);
    EXPECT_EQ(count, 2);
    prsdk::prUTF16Char name[256];
    EXPECT_EQ(s->GetConstrainedValue(kPlugin, mg, "Field", 1, &got, name), 0);
    EXPECT_EQ(std::pair(got.intValue, qvnhost::HostString(name)), std::pair(2, std::u16string(u"Name")));
    EXPECT_EQ(s->GetConstrainedValueDisplayName(kPlugin, mg, "Field", 0, name), 0);
    EXPECT_EQ(qvnhost::HostString(name), u"Up");
    EXPECT_EQ(s->GetConstrainedValue(kPlugin, mg, "Field", 2, &got, name), prsdk::suiteError_InvalidParms);
    EXPECT_EQ(s->GetConstrainedValue(kPlugin, mg, "Field", -1, &got, name), prsdk::suiteError_InvalidParms);
    EXPECT_EQ(s->SetConstrainedListIsOptional(kPlugin, mg, "Field", 1), 0);
    // Clearing a group removes every descendant and nothing else; the identifiers are free again.
    ASSERT_EQ(s->ClearParamGroupChildren(kPlugin, mg, "Video"), 0);
    std::vector<std::string> left;
    const auto snapshot = qvnhost::ParamStore::Instance().Snapshot(kPlugin);
    for (const auto& p : snapshot[0].entries)
        left.push_back(p.identifier + (p.choicesOptional ? "?" : ""));
    EXPECT_EQ(left, (std::vector<std::string>{"ADBETopParamGroup", "Video", "Field?"}));
    EXPECT_EQ(AddInt("Video", "Width", 2), 0);
}

} // namespace
