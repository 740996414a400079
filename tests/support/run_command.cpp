#include "support/run_command.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace testsupport {

CommandResult runCommand(const std::string& command, bool withStandardError) {
    CommandResult result;
    const std::string full =
        "( " + command + " ) </dev/null" + (withStandardError ? " 2>&1" : "");
    FILE* pipe = ::popen(full.c_str(), "r");
    if (pipe == nullptr) return result;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) result.output.append(buffer, n);
    const int raw = ::pclose(pipe);
    if (raw != -1 && WIFEXITED(raw)) result.status = WEXITSTATUS(raw);
    return result;
}

std::string shellQuote(const std::string& word) {
    std::string quoted = "'";
    for (char c : word) {
        if (c == '\'') {
            quoted += "'\\''";
        } else {
            quoted += c;
        }
    }
    return quoted + "'";
}

std::string binaryDir() {
    const char* fromEnvironment = std::getenv("TAVREL_BINARY_DIR");
    return fromEnvironment != nullptr ? fromEnvironment : TAVREL_BINARY_DIR;
}

}  // namespace testsupport
