// The host's parameter store: what the Export Param Suite keeps for each exporter instance. Each instance
// (by plug-in identifier) has multigroups; each multigroup a tree of groups and parameters under the
// implicit "ADBETopParamGroup", in the order they were added.
//
// Like Premiere, the store keeps what the module gives it: values outside a parameter's range or its
// constrained list are stored as they are. Checking what a user types is the dialog's job (qvnhost params).
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "prsdk/prsdk.h"

namespace qvnhost {

struct ConstrainedValue {
    prsdk::exOneParamValueRec value;
    std::u16string name;
};

struct StoredParam {
    std::string identifier;
    std::string parent; // empty for the top group
    bool group = false;
    std::u16string name;
    prsdk::exParamType type = prsdk::exParamType_undefined; // exParamType_group for groups
    prsdk::int32 flags = 0;
    // Value, range, string, disabled, hidden and optional flag; arbData/arbDataSize are answered from
    // arbData below.
    prsdk::exParamValues values{};
    std::vector<ConstrainedValue> choices;
    bool choicesOptional = false;
    bool paramPairGroup = false;
    std::vector<unsigned char> arbData;
};

struct MultiGroup {
    std::vector<StoredParam> entries; // the top group first, then in the order added
};

class ParamStore {
public:
    static ParamStore& Instance();

    // Forgets every instance's parameters.
    void Reset();

    // The Export Param Suite's operations; results are the suite's error codes.
    prsdk::prSuiteError SetParamsVersion(prsdk::uint32 plugin, prsdk::int32 version);
    prsdk::prSuiteError GetParamsVersion(prsdk::uint32 plugin, prsdk::int32* version);
    prsdk::prSuiteError AddMultiGroup(prsdk::uint32 plugin, prsdk::int32* index);
    prsdk::prSuiteError CountMultiGroups(prsdk::uint32 plugin, prsdk::int32* count);
    prsdk::prSuiteError AddParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* group,
                                 const prsdk::exNewParamInfo* info);
    prsdk::prSuiteError AddParamGroup(prsdk::uint32 plugin, prsdk::int32 mg, const char* parent,
                                      const char* group, const prsdk::prUTF16Char* name, bool hidden,
                                      bool disabled, bool paramPair);
    prsdk::prSuiteError ChangeParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                    const prsdk::exParamValues* values);
    prsdk::prSuiteError GetParamValue(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                      prsdk::exParamValues* values);
    prsdk::prSuiteError GetParamType(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                     prsdk::exParamType* type);
    prsdk::prSuiteError ClearParamGroupChildren(prsdk::uint32 plugin, prsdk::int32 mg, const char* group);
    prsdk::prSuiteError SetParamName(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                     const prsdk::prUTF16Char* name);
    prsdk::prSuiteError AddConstrainedValuePair(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                const prsdk::exOneParamValueRec* value,
                                                const prsdk::prUTF16Char* name);
    prsdk::prSuiteError ClearConstrainedValues(prsdk::uint32 plugin, prsdk::int32 mg, const char* id);
    prsdk::prSuiteError GetConstrainedValueCount(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                 prsdk::int32* count);
    // name, when given, receives up to 255 characters and a terminating zero.
    prsdk::prSuiteError GetConstrainedValue(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                            prsdk::int32 index, prsdk::exOneParamValueRec* value,
                                            prsdk::prUTF16Char* name);
    prsdk::prSuiteError GetConstrainedValueDisplayName(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                       prsdk::int32 index, prsdk::prUTF16Char* name);
    prsdk::prSuiteError SetConstrainedListIsOptional(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                     bool optional);
    // With a null buffer the size is answered; otherwise *size must hold the stored size.
    prsdk::prSuiteError GetArbData(prsdk::uint32 plugin, prsdk::int32 mg, const char* id, prsdk::int32* size,
                                   void* data);
    prsdk::prSuiteError SetArbData(prsdk::uint32 plugin, prsdk::int32 mg, const char* id, prsdk::int32 size,
                                   const void* data);

    // A copy of one instance's multigroups, for display; empty when the instance has none.
    std::vector<MultiGroup> Snapshot(prsdk::uint32 plugin) const;

private:
    struct PluginParams {
        prsdk::int32 paramsVersion = 0;
        std::vector<MultiGroup> multiGroups;
    };

    ParamStore() = default;
    // The entry named id in plugin's multigroup mg, or nullptr.
    StoredParam* Find(prsdk::uint32 plugin, prsdk::int32 mg, const char* id);
    MultiGroup* FindMultiGroup(prsdk::uint32 plugin, prsdk::int32 mg);
    // A parameter (not a group) named id, or nullptr; *error says why not.
    StoredParam* FindParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* id, prsdk::prSuiteError* error);

    mutable std::mutex mutex_;
    std::map<prsdk::uint32, PluginParams> plugins_;
};

// The host's UTF-16 text of at most `capacity` characters (up to the first zero), as a std::u16string.
std::u16string HostString(const prsdk::prUTF16Char* text, std::size_t capacity = 256);

} // namespace qvnhost
