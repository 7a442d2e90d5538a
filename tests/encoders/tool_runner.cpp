#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

#include "test_files.h"

namespace avitest {

namespace {

std::string ReadText(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

} // namespace

CommandResult Run(const std::string& command) {
    static int counter = 0;
    const auto base = std::filesystem::temp_directory_path() /
                      ("qvn-avi-run-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    const std::string out = base.string() + ".out", err = base.string() + ".err";
    CommandResult r;
    const int status = std::system((command + " >" + out + " 2>" + err).c_str());
    r.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.output = ReadText(out);
    r.errors = ReadText(err);
    std::filesystem::remove(out);
    std::filesystem::remove(err);
    return r;
}

bool HaveTool(const char* name) {
    return Run(std::string("command -v ") + name).exitCode == 0;
}

std::string Quote(const std::filesystem::path& path) {
    return "'" + path.string() + "'";
}

} // namespace avitest
