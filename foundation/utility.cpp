#include "foundation/utility.h"

#include <signal.h>
#include <sys/utsname.h>

#include <cwchar>

bool Utility::isSupporFullRangePixelFormat() {
    static const bool supported = [] {
        struct utsname name;
        return ::uname(&name) == 0;
    }();
    return supported;
}

bool Utility::kill(int argc, const wchar_t** argv, int& exitCode) {
    static constexpr wchar_t kPrefix[] = L"-kill:";
    static constexpr size_t kPrefixLength = sizeof kPrefix / sizeof kPrefix[0] - 1;
    if (argc != 2 || argv == nullptr || argv[1] == nullptr) return false;
    if (std::wcsncmp(argv[1], kPrefix, kPrefixLength) != 0) return false;
    const long pid = std::wcstol(argv[1] + kPrefixLength, nullptr, 10);
    // A pid that does not fit pid_t is not a process of this system.
    if (pid < 1 || pid != static_cast<long>(static_cast<pid_t>(pid))) {
        exitCode = 1;
        return true;
    }
    exitCode = ::kill(static_cast<pid_t>(pid), SIGTERM) == 0 ? 0 : 1;
    return true;
}
