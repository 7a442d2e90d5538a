#include "host/command_line.h"

#include <cstdio>
#include <cstring>

namespace qvnhost {

int UsageError(const std::string& message) {
    std::fprintf(stderr, "qvnhost: %s\n", message.c_str());
    return kExitUsage;
}

bool TakeOption(int argc, char** argv, int& i, const char* name, std::string* value, bool* missing) {
    const std::size_t n = std::strlen(name);
    const char* arg = argv[i];
    if (std::strncmp(arg, name, n) != 0)
        return false;
    if (arg[n] == '=') {
        *value = arg + n + 1;
        return true;
    }
    if (arg[n] != '\0')
        return false;
    if (i + 1 >= argc) {
        *missing = true;
        return true;
    }
    *value = argv[++i];
    return true;
}

bool HelpRequested(int argc, char** argv, const std::vector<std::string>& valueOptions) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h")
            return true;
        for (const std::string& name : valueOptions) {
            if (arg == name) {
                ++i;
                break;
            }
        }
    }
    return false;
}

int PrintHelp(const std::string& text) {
    std::fputs(text.c_str(), stdout);
    return 0;
}

std::string FourCCHighFirst(unsigned int code) {
    std::string s;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const char c = static_cast<char>((code >> shift) & 0xFF);
        s += (c >= 32 && c < 127) ? c : '?';
    }
    return s;
}

} // namespace qvnhost
