// The platform's DirectShow and COM declarations, included in the one order that works with MinGW-w64:
// windows.h first, dshow.h before ksmedia.h (which otherwise redeclares DirectDraw's pixel format), strsafe's
// deprecations of sprintf/swprintf switched off before dshow.h pulls it in.
#pragma once

#ifndef STRSAFE_NO_DEPRECATE
#define STRSAFE_NO_DEPRECATE
#endif
// clang-format off
#include <windows.h>
#include <mmreg.h>
#include <dshow.h>
#include <dvdmedia.h>
#include <ks.h>
#include <ksmedia.h>
// clang-format on
