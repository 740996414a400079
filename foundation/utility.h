#pragma once

#include <string>

// Small process-level services of the tool.
class Utility {
public:
    // Full-range pixel formats are offered when the system answers a query
    // for its own version; asked once per process.
    static bool isSupporFullRangePixelFormat();

    // A lone "-kill:PID" argument: sends SIGTERM to PID. True when the run
    // was such a request (exitCode then holds its status: 1 for an id below
    // 1 or a signal that could not be sent, else 0).
    static bool kill(int argc, const wchar_t** argv, int& exitCode);
};
