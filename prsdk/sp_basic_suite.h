// The suite broker ("SP Basic Suite") and the standard parameters record through which the module reaches it.
#pragma once

#include "prsdk/sdk_types.h"

namespace prsdk {

#pragma pack(push, 1)

struct SPBasicSuite {
    SPErr (*AcquireSuite)(const char* name, int32 version, const void** suite);
    SPErr (*ReleaseSuite)(const char* name, int32 version);
    int32 (*IsEqual)(const char* token1, const char* token2);
    SPErr (*AllocateBlock)(std::size_t size, void** block);
    SPErr (*FreeBlock)(void* block);
    SPErr (*ReallocateBlock)(void* block, std::size_t newSize, void** newblock);
    SPErr (*Undefined)(void);
};

struct exportStdParms {
    int32 interfaceVer;
    SPBasicSuite* (*getSPBasicSuite)(void);
};

#pragma pack(pop)

static_assert(sizeof(SPBasicSuite) == 56);
static_assert(sizeof(exportStdParms) == 12);
static_assert(offsetof(exportStdParms, getSPBasicSuite) == 4);

using ExportEntryFunc = int32 (*)(int32 selector, exportStdParms* stdParms, void* param1, void* param2);

} // namespace prsdk
