// A File Writer that behaves as Windows' does in the encoder graph, for platforms whose own cannot report
// its file name (Wine's answers GetCurFile with E_NOTIMPL and has no IFileSinkFilter2). It belongs to the
// host and the tests, never to the module: the host registers its class object in-process under
// CLSID_FileWriter, so that CoCreateInstance(CLSID_FileWriter) made in that apartment creates it.
//
// The filter: IFileSinkFilter and IFileSinkFilter2 (the name and media type given to SetFileName come back
// from GetCurFile in task memory; SetMode takes 0 or AM_FILE_OVERWRITE), one input pin ("in") for
// MEDIATYPE_Stream / MEDIASUBTYPE_Avi, and IAMFilterMiscFlags calling itself a renderer, so the graph waits
// for its EC_COMPLETE. End of stream becomes EC_COMPLETE; one that arrives before the graph runs is held
// until Run (the graph discards earlier completions), and an unconnected writer completes at Run. In this
// graph the multiplexer writes the file itself and sends no data: samples are accepted and counted, and the
// stand-in never opens the file, so it never stands in the multiplexer's way.
#pragma once

#include "host/dshow_standins/standin_registration.h"

#include "dshow/base/dshow_headers.h"

namespace qvn_standins {

// Windows' File Writer class, {8596E5F0-0DA5-11D0-BD21-00A0C911CE86}.
extern const CLSID kClsidFileWriter;

// True when the platform's File Writer (created in-process) reports the file name it was given: SetFileName
// followed by GetCurFile answers the same name.
bool PlatformFileWriterReportsName();

// The stand-in's registration (see StandInRegistration).
class FileWriterStandInRegistration : public StandInRegistration {
public:
    FileWriterStandInRegistration();
};

} // namespace qvn_standins
