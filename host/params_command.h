#pragma once

// qvnhost params [--module PATH] [--codec C] [--set ID=VALUE ...]: builds the exporter's settings dialog
// through its selectors, applies the choices as a user would make them, and prints the dialog, the summary
// lines and the output settings. argv[0] is "params". Exit 0, 1 when the module misbehaved, 2 on bad input.
int QvnParamsCommand(int argc, char** argv);
