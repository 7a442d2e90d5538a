// Small helpers shared by the qvnhost commands: usage errors and option parsing.
#pragma once

#include <string>
#include <vector>

namespace qvnhost {

// Exit status for bad input (usage errors, missing or unloadable modules).
inline constexpr int kExitUsage = 2;

// Prints "qvnhost: <message>" on standard error and returns kExitUsage.
int UsageError(const std::string& message);

// Parses "--name VALUE" or "--name=VALUE" at argv[i]; advances i past the value. False when argv[i] is not
// this option; sets *missing when the value is absent.
bool TakeOption(int argc, char** argv, int& i, const char* name, std::string* value, bool* missing);

// Whether -h or --help stands in argv[1..] where an option may, rather than as the value of one of
// valueOptions (those given as "--name VALUE" take the next argument).
bool HelpRequested(int argc, char** argv, const std::vector<std::string>& valueOptions);

// Prints a command's help on standard output; answers 0, the exit status of --help.
int PrintHelp(const std::string& text);

// Four characters of a code whose first character is in the most significant byte, for display.
std::string FourCCHighFirst(unsigned int code);

} // namespace qvnhost
