// The COM classes this module serves: one factory template per class (for DllGetClassObject) and what
// registration writes for it.
#pragma once

#include "dshow/base/class_factory.h"

struct ComClassRegistration {
    const CFactoryTemplate* factory; // class id, filter set-up (name, merit, pins)
    const wchar_t* description;      // the class key's default value
    const wchar_t* progId;
    const wchar_t* versionIndependentProgId;
    const wchar_t* threadingModel;
};

extern const CFactoryTemplate g_Templates[];
extern const int g_cTemplates;
extern const ComClassRegistration g_Registrations[];
extern const int g_cRegistrations;
