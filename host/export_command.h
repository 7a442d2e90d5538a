#pragma once

// qvnhost export --out FILE [options]: loads the exporter module, sets its export settings through the
// settings dialog's selectors, and runs one export (selector 9) against the simulated sequence: rendered
// test patterns or raw frames, audio tones, progress with cancel and suspend. argv[0] is "export".
// Exit 0 when the module answered 0 and gave back everything it took, 1 when it did not, 2 on bad input.
int QvnExportCommand(int argc, char** argv);
