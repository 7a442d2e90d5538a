#include "host/param_store.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace qvnhost {
namespace {

using prsdk::prSuiteError;

constexpr prSuiteError kOk = prsdk::suiteError_NoError;
constexpr prSuiteError kBadArgument = prsdk::suiteError_InvalidParms;
// The identifier names a group where a parameter is needed, or the other way round.
constexpr prSuiteError kWrongKind = prsdk::suiteError_InvalidCall;

void CopyName(const std::u16string& name, prsdk::prUTF16Char* out) {
    const std::size_t n = std::min<std::size_t>(name.size(), 255);
    for (std::size_t i = 0; i < n; ++i)
        out[i] = static_cast<prsdk::prUTF16Char>(name[i]);
    out[n] = 0;
}

bool SettableType(prsdk::exParamType type) {
    return type >= prsdk::exParamType_bool && type <= prsdk::exParamType_ratio &&
           type != prsdk::exParamType_group && type != prsdk::exParamType_multiGroup;
}

} // namespace

std::u16string HostString(const prsdk::prUTF16Char* text, std::size_t capacity) {
    std::u16string out;
    for (std::size_t i = 0; text && i < capacity && text[i] != 0; ++i)
        out += static_cast<char16_t>(text[i]);
    return out;
}

ParamStore& ParamStore::Instance() {
    static ParamStore store;
    return store;
}

void ParamStore::Reset() {
    std::lock_guard<std::mutex> hold(mutex_);
    plugins_.clear();
}

MultiGroup* ParamStore::FindMultiGroup(prsdk::uint32 plugin, prsdk::int32 mg) {
    const auto found = plugins_.find(plugin);
    if (found == plugins_.end() || mg < 0 || static_cast<std::size_t>(mg) >= found->second.multiGroups.size())
        return nullptr;
    return &found->second.multiGroups[static_cast<std::size_t>(mg)];
}

StoredParam* ParamStore::Find(prsdk::uint32 plugin, prsdk::int32 mg, const char* id) {
    MultiGroup* group = FindMultiGroup(plugin, mg);
    if (!group || !id)
        return nullptr;
    for (StoredParam& p : group->entries) {
        if (p.identifier == id)
            return &p;
    }
    return nullptr;
}

StoredParam* ParamStore::FindParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                   prSuiteError* error) {
    StoredParam* p = Find(plugin, mg, id);
    *error = !p ? kBadArgument : p->group ? kWrongKind : kOk;
    return *error == kOk ? p : nullptr;
}

prSuiteError ParamStore::SetParamsVersion(prsdk::uint32 plugin, prsdk::int32 version) {
    std::lock_guard<std::mutex> hold(mutex_);
    plugins_[plugin].paramsVersion = version;
    return kOk;
}

prSuiteError ParamStore::GetParamsVersion(prsdk::uint32 plugin, prsdk::int32* version) {
    std::lock_guard<std::mutex> hold(mutex_);
    if (!version)
        return kBadArgument;
    const auto found = plugins_.find(plugin);
    *version = found == plugins_.end() ? 0 : found->second.paramsVersion;
    return kOk;
}

prSuiteError ParamStore::AddMultiGroup(prsdk::uint32 plugin, prsdk::int32* index) {
    std::lock_guard<std::mutex> hold(mutex_);
    if (!index)
        return kBadArgument;
    auto& groups = plugins_[plugin].multiGroups;
    StoredParam top;
    top.identifier = prsdk::ADBETopParamGroup;
    top.group = true;
    top.type = prsdk::exParamType_group;
    groups.push_back(MultiGroup{{top}});
    *index = static_cast<prsdk::int32>(groups.size() - 1);
    return kOk;
}

prSuiteError ParamStore::CountMultiGroups(prsdk::uint32 plugin, prsdk::int32* count) {
    std::lock_guard<std::mutex> hold(mutex_);
    if (!count)
        return kBadArgument;
    const auto found = plugins_.find(plugin);
    *count = found == plugins_.end() ? 0 : static_cast<prsdk::int32>(found->second.multiGroups.size());
    return kOk;
}

prSuiteError ParamStore::AddParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* group,
                                  const prsdk::exNewParamInfo* info) {
    std::lock_guard<std::mutex> hold(mutex_);
    if (!info || !SettableType(info->paramType))
        return kBadArgument;
    const StoredParam* parent = Find(plugin, mg, group);
    if (!parent)
        return kBadArgument;
    if (!parent->group)
        return kWrongKind;
    const std::string id(info->identifier,
                         std::find(std::begin(info->identifier), std::end(info->identifier), '\0'));
    if (id.empty() || Find(plugin, mg, id.c_str()))
        return kBadArgument;

    StoredParam p;
    p.identifier = id;
    p.parent = group;
    p.name = HostString(info->name);
    p.type = info->paramType;
    p.flags = info->flags;
    p.values = info->paramValues;
    if (p.values.arbData && p.values.arbDataSize > 0) {
        const auto* bytes = static_cast<const unsigned char*>(p.values.arbData);
        p.arbData.assign(bytes, bytes + p.values.arbDataSize);
    }
    p.values.arbData = nullptr;
    FindMultiGroup(plugin, mg)->entries.push_back(std::move(p));
    return kOk;
}

prSuiteError ParamStore::AddParamGroup(prsdk::uint32 plugin, prsdk::int32 mg, const char* parent,
                                       const char* group, const prsdk::prUTF16Char* name, bool hidden,
                                       bool disabled, bool paramPair) {
    std::lock_guard<std::mutex> hold(mutex_);
    const StoredParam* up = Find(plugin, mg, parent);
    if (!up || !group || !*group || Find(plugin, mg, group))
        return kBadArgument;
    if (!up->group)
        return kWrongKind;
    StoredParam g;
    g.identifier = group;
    g.parent = parent;
    g.group = true;
    g.type = prsdk::exParamType_group;
    g.name = HostString(name);
    g.values.structVersion = 1;
    g.values.hidden = hidden;
    g.values.disabled = disabled;
    g.paramPairGroup = paramPair;
    FindMultiGroup(plugin, mg)->entries.push_back(std::move(g));
    return kOk;
}

prSuiteError ParamStore::ChangeParam(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                     const prsdk::exParamValues* values) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!values)
        return kBadArgument;
    p->values = *values;
    if (values->arbData) {
        const auto* bytes = static_cast<const unsigned char*>(values->arbData);
        const prsdk::int32 size = values->arbDataSize;
        p->arbData.assign(bytes, bytes + std::max(size, 0));
    }
    p->values.arbData = nullptr;
    return kOk;
}

prSuiteError ParamStore::GetParamValue(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                       prsdk::exParamValues* values) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!values)
        return kBadArgument;
    *values = p->values;
    values->arbData = p->arbData.empty() ? nullptr : p->arbData.data();
    values->arbDataSize = static_cast<prsdk::int32>(p->arbData.size());
    return kOk;
}

prSuiteError ParamStore::GetParamType(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                      prsdk::exParamType* type) {
    std::lock_guard<std::mutex> hold(mutex_);
    const StoredParam* p = Find(plugin, mg, id);
    if (!p || !type)
        return kBadArgument;
    *type = p->type;
    return kOk;
}

prSuiteError ParamStore::ClearParamGroupChildren(prsdk::uint32 plugin, prsdk::int32 mg, const char* group) {
    std::lock_guard<std::mutex> hold(mutex_);
    const StoredParam* g = Find(plugin, mg, group);
    if (!g)
        return kBadArgument;
    if (!g->group)
        return kWrongKind;
    // Entries come after their parents, so one pass in order finds every descendant.
    std::vector<std::string> doomed{group};
    auto& entries = FindMultiGroup(plugin, mg)->entries;
    std::vector<StoredParam> kept;
    for (StoredParam& p : entries) {
        if (std::find(doomed.begin(), doomed.end(), p.parent) != doomed.end()) {
            if (p.group)
                doomed.push_back(p.identifier);
            continue;
        }
        kept.push_back(std::move(p));
    }
    entries = std::move(kept);
    return kOk;
}

prSuiteError ParamStore::SetParamName(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                      const prsdk::prUTF16Char* name) {
    std::lock_guard<std::mutex> hold(mutex_);
    StoredParam* p = Find(plugin, mg, id);
    if (!p || !name)
        return kBadArgument;
    p->name = HostString(name);
    return kOk;
}

prSuiteError ParamStore::AddConstrainedValuePair(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                 const prsdk::exOneParamValueRec* value,
                                                 const prsdk::prUTF16Char* name) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!value || !name)
        return kBadArgument;
    p->choices.push_back({*value, HostString(name)});
    return kOk;
}

prSuiteError ParamStore::ClearConstrainedValues(prsdk::uint32 plugin, prsdk::int32 mg, const char* id) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    p->choices.clear();
    return kOk;
}

prSuiteError ParamStore::GetConstrainedValueCount(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                  prsdk::int32* count) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    const StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!count)
        return kBadArgument;
    *count = static_cast<prsdk::int32>(p->choices.size());
    return kOk;
}

prSuiteError ParamStore::GetConstrainedValue(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                             prsdk::int32 index, prsdk::exOneParamValueRec* value,
                                             prsdk::prUTF16Char* name) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    const StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!value || index < 0 || static_cast<std::size_t>(index) >= p->choices.size())
        return kBadArgument;
    const ConstrainedValue& c = p->choices[static_cast<std::size_t>(index)];
    *value = c.value;
    if (name)
        CopyName(c.name, name);
    return kOk;
}

prSuiteError ParamStore::GetConstrainedValueDisplayName(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                        prsdk::int32 index, prsdk::prUTF16Char* name) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    const StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!name || index < 0 || static_cast<std::size_t>(index) >= p->choices.size())
        return kBadArgument;
    CopyName(p->choices[static_cast<std::size_t>(index)].name, name);
    return kOk;
}

prSuiteError ParamStore::SetConstrainedListIsOptional(prsdk::uint32 plugin, prsdk::int32 mg, const char* id,
                                                      bool optional) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    p->choicesOptional = optional;
    return kOk;
}

prSuiteError ParamStore::GetArbData(prsdk::uint32 plugin, prsdk::int32 mg, const char* id, prsdk::int32* size,
                                    void* data) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    const StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (!size)
        return kBadArgument;
    const auto stored = static_cast<prsdk::int32>(p->arbData.size());
    if (!data) {
        *size = stored;
        return kOk;
    }
    if (*size < stored)
        return kBadArgument;
    if (stored > 0)
        std::memcpy(data, p->arbData.data(), p->arbData.size());
    *size = stored;
    return kOk;
}

prSuiteError ParamStore::SetArbData(prsdk::uint32 plugin, prsdk::int32 mg, const char* id, prsdk::int32 size,
                                    const void* data) {
    std::lock_guard<std::mutex> hold(mutex_);
    prSuiteError error = kOk;
    StoredParam* p = FindParam(plugin, mg, id, &error);
    if (!p)
        return error;
    if (size < 0 || (size > 0 && !data))
        return kBadArgument;
    const auto* bytes = static_cast<const unsigned char*>(data);
    p->arbData.assign(bytes, bytes + size);
    return kOk;
}

std::vector<MultiGroup> ParamStore::Snapshot(prsdk::uint32 plugin) const {
    std::lock_guard<std::mutex> hold(mutex_);
    const auto found = plugins_.find(plugin);
    return found == plugins_.end() ? std::vector<MultiGroup>{} : found->second.multiGroups;
}

} // namespace qvnhost
