#pragma once

// Runs a shell command for whole-program tests and oracle checks.
#include <string>

namespace testsupport {

struct CommandResult {
    int status = -1;     // exit status, or -1 when the command did not exit normally
    std::string output;  // standard output (standard error too when asked)
};

// Runs command through /bin/sh with no standard input.
CommandResult runCommand(const std::string& command, bool withStandardError = false);

// Quotes one word for the shell.
std::string shellQuote(const std::string& word);

// The directory the build put the executables in (tools/, app/ below it).
std::string binaryDir();

}  // namespace testsupport
