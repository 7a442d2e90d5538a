#include "module/com_classes.h"

#include "dshow/qvn_avi_writer.h"

namespace {

// The multiplexer takes any number of video and audio streams (it adds an input pin for each) and writes
// the file itself; its output only tells the graph where the file writer is. Graph tools list it, but
// intelligent connect never picks it by itself (merit "do not use"), as with the platform's own AVI Mux.
const REGPINTYPES kInputTypes[] = {{&MEDIATYPE_Video, &MEDIASUBTYPE_NULL},
                                   {&MEDIATYPE_Audio, &MEDIASUBTYPE_NULL}};
const REGPINTYPES kOutputTypes[] = {{&MEDIATYPE_Stream, &MEDIASUBTYPE_Avi}};

const REGFILTERPINS kMuxPins[] = {
    {const_cast<LPWSTR>(L"Input"), FALSE, FALSE, FALSE, TRUE, &CLSID_NULL, nullptr, 2, kInputTypes},
    {const_cast<LPWSTR>(L"Output"), FALSE, TRUE, FALSE, FALSE, &CLSID_NULL, nullptr, 1, kOutputTypes},
};

const AMOVIESETUP_FILTER kMuxSetup = {&CLSID_QVNAVIWriter, L"QVN AVI Mux Filter", MERIT_DO_NOT_USE, 2,
                                      kMuxPins};

} // namespace

const CFactoryTemplate g_Templates[] = {
    {L"QVN AVI Mux Filter", &CLSID_QVNAVIWriter, CQVNAVIWriter::CreateInstance, nullptr, &kMuxSetup},
};
const int g_cTemplates = sizeof(g_Templates) / sizeof(g_Templates[0]);

const ComClassRegistration g_Registrations[] = {
    {&g_Templates[0], L"CQVNAVIWriter Object", L"AVIWriter.QVNAVIWriter.1", L"AVIWriter.QVNAVIWriter",
     L"Both"},
};
const int g_cRegistrations = sizeof(g_Registrations) / sizeof(g_Registrations[0]);
