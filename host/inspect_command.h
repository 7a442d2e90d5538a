// qvnhost inspect: prints the RIFF structure of any AVI file and checks that its indexes and counters agree
// with the chunks they describe. Exit code 0: consistent; 1: problems found, or not a readable AVI file;
// 2: usage error.
#pragma once

int QvnInspectCommand(int argc, char** argv);
