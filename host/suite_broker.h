// The host's suite broker: hands out suites by name and version, and keeps an account of every acquire and
// release so that a run can prove the module gave back everything it took, with the version it took.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "prsdk/prsdk.h"

namespace qvnhost {

class SuiteBroker {
public:
    static SuiteBroker& Instance();

    // Offers a suite under a name and version. The pointer must outlive the broker's use.
    void Register(const std::string& name, prsdk::int32 version, const void* suite);
    // Makes the next acquire of this suite (any version) fail, to test the module's failure paths.
    void Refuse(const std::string& name);
    void ClearRefusals();

    prsdk::exportStdParms* StdParms() { return &stdParms_; }
    // Standard parameters whose broker getter answers null.
    prsdk::exportStdParms* StdParmsWithoutBroker() { return &noBroker_; }

    struct Event {
        bool acquire;
        std::string name;
        prsdk::int32 version;
        bool granted;
    };
    std::vector<Event> Events() const;
    void ClearEvents();
    // Suites acquired and not released with the same version, as "name vN" lines; empty when balanced.
    std::vector<std::string> Outstanding() const;

private:
    SuiteBroker();
    static prsdk::SPErr AcquireSuite(const char* name, prsdk::int32 version, const void** suite);
    static prsdk::SPErr ReleaseSuite(const char* name, prsdk::int32 version);
    static prsdk::int32 IsEqual(const char* a, const char* b);
    static prsdk::SPErr AllocateBlock(std::size_t size, void** block);
    static prsdk::SPErr FreeBlock(void* block);
    static prsdk::SPErr ReallocateBlock(void* block, std::size_t size, void** newBlock);
    static prsdk::SPErr Undefined();
    static prsdk::SPBasicSuite* GetBroker();
    static prsdk::SPBasicSuite* GetNoBroker();

    mutable std::mutex mutex_;
    std::map<std::pair<std::string, prsdk::int32>, const void*> suites_;
    std::vector<std::string> refused_;
    std::vector<Event> events_;
    std::map<std::pair<std::string, prsdk::int32>, int> balance_;
    prsdk::SPBasicSuite basic_;
    prsdk::exportStdParms stdParms_;
    prsdk::exportStdParms noBroker_;
};

} // namespace qvnhost
