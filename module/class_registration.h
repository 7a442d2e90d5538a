// Writes and removes what the module's COM classes need in the registry: the class key (description,
// in-process server with its threading model, ProgIDs), both ProgID keys, and for a filter its entry in
// the DirectShow filter list (legacy filter category), made through the platform's filter mapper so that
// graph tools and intelligent connect read it as they read any filter's.
#pragma once

#include "module/com_classes.h"

// Registers every class for the module at modulePath. On failure whatever was written is removed again.
HRESULT RegisterComClasses(const wchar_t* modulePath);
// Removes every key registration writes; keys already missing are no error.
HRESULT UnregisterComClasses();
