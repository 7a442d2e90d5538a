#include "host/suite_broker.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace qvnhost {

SuiteBroker& SuiteBroker::Instance() {
    static SuiteBroker broker;
    return broker;
}

SuiteBroker::SuiteBroker() {
    basic_ = {AcquireSuite, ReleaseSuite, IsEqual, AllocateBlock, FreeBlock, ReallocateBlock, Undefined};
    stdParms_ = {prsdk::EXPORTMOD_VERSION_CS5, GetBroker};
    noBroker_ = {prsdk::EXPORTMOD_VERSION_CS5, GetNoBroker};
}

prsdk::SPBasicSuite* SuiteBroker::GetBroker() {
    return &Instance().basic_;
}
prsdk::SPBasicSuite* SuiteBroker::GetNoBroker() {
    return nullptr;
}

void SuiteBroker::Register(const std::string& name, prsdk::int32 version, const void* suite) {
    std::lock_guard<std::mutex> hold(mutex_);
    suites_[{name, version}] = suite;
}

void SuiteBroker::Refuse(const std::string& name) {
    std::lock_guard<std::mutex> hold(mutex_);
    refused_.push_back(name);
}

void SuiteBroker::ClearRefusals() {
    std::lock_guard<std::mutex> hold(mutex_);
    refused_.clear();
}

std::vector<SuiteBroker::Event> SuiteBroker::Events() const {
    std::lock_guard<std::mutex> hold(mutex_);
    return events_;
}

void SuiteBroker::ClearEvents() {
    std::lock_guard<std::mutex> hold(mutex_);
    events_.clear();
    balance_.clear();
}

std::vector<std::string> SuiteBroker::Outstanding() const {
    std::lock_guard<std::mutex> hold(mutex_);
    std::vector<std::string> out;
    for (const auto& [key, count] : balance_) {
        if (count != 0)
            out.push_back(key.first + " v" + std::to_string(key.second) +
                          (count > 0 ? " not released" : " over-released"));
    }
    return out;
}

prsdk::SPErr SuiteBroker::AcquireSuite(const char* name, prsdk::int32 version, const void** suite) {
    SuiteBroker& self = Instance();
    std::lock_guard<std::mutex> hold(self.mutex_);
    const std::string key = name ? name : "";
    const auto found = self.suites_.find({key, version});
    const bool refused = std::find(self.refused_.begin(), self.refused_.end(), key) != self.refused_.end();
    const bool granted = found != self.suites_.end() && !refused;
    self.events_.push_back({true, key, version, granted});
    if (!granted) {
        if (suite)
            *suite = nullptr;
        return prsdk::kSPSuiteNotFoundError;
    }
    self.balance_[{key, version}] += 1;
    *suite = found->second;
    return prsdk::kSPNoError;
}

prsdk::SPErr SuiteBroker::ReleaseSuite(const char* name, prsdk::int32 version) {
    SuiteBroker& self = Instance();
    std::lock_guard<std::mutex> hold(self.mutex_);
    const std::string key = name ? name : "";
    self.events_.push_back({false, key, version, true});
    self.balance_[{key, version}] -= 1;
    return prsdk::kSPNoError;
}

prsdk::int32 SuiteBroker::IsEqual(const char* a, const char* b) {
    return a && b && std::strcmp(a, b) == 0;
}

prsdk::SPErr SuiteBroker::AllocateBlock(std::size_t size, void** block) {
    *block = std::malloc(size ? size : 1);
    return *block ? prsdk::kSPNoError : prsdk::suiteError_OutOfMemory;
}

prsdk::SPErr SuiteBroker::FreeBlock(void* block) {
    std::free(block);
    return prsdk::kSPNoError;
}

prsdk::SPErr SuiteBroker::ReallocateBlock(void* block, std::size_t size, void** newBlock) {
    void* grown = std::realloc(block, size ? size : 1);
    if (!grown)
        return prsdk::suiteError_OutOfMemory;
    *newBlock = grown;
    return prsdk::kSPNoError;
}

prsdk::SPErr SuiteBroker::Undefined() {
    return prsdk::suiteError_NotImplemented;
}

} // namespace qvnhost
