// qvnhost convert: raw host frames from a file through the exporter's pixel converters into a raw file.
#pragma once

// argv[0] is "convert". Returns 0, 2 for bad input (usage, sizes, short input, unknown names) or 1 when a
// file cannot be written or a converter refuses the frame.
int QvnConvertCommand(int argc, char** argv);
