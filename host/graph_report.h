// What `qvnhost export --graph` prints: the DirectShow filter graphs a process registered in the
// running-object table, read through the platform's COM (Windows only).
#pragma once

#include <string>

// The platform's AM_MEDIA_TYPE, declared here by its tag so that callers need no OS header.
struct _AMMediaType;

namespace qvnhost {

// The line printed when no graph of the process is registered.
extern const char kNoGraphLine[];

// One media type on one line: major type, subtype (by name, or as four characters, or as a GUID), format
// type, then the picture's size and bit count or the sound's channels, rate and bits when the format block
// is large enough to hold them.
std::string DescribeMediaType(const _AMMediaType& type);

// Each running-object-table entry whose display name holds "FilterGraph" and "pid <processId as %08x>":
// its filters (the name each was added under and its class or "(no class)") and their pins (name,
// direction, the connected "Filter.Pin" and the agreed media type). kNoGraphLine when there is none.
// Initialises COM on the calling thread when it is not yet.
std::string FilterGraphReport(unsigned long processId);

// The report for the calling process.
std::string OwnFilterGraphReport();

} // namespace qvnhost
