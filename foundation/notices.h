#pragma once

// Lines that library code has for the user during normal work (progress,
// warnings, "already there" notes). The library hands them here; the program
// installs where they go, tests install a capture. With no sink installed
// they are dropped.
#include <functional>
#include <string>
#include <vector>

namespace QVMX::Notices {

// Receives one whole line, with its own "\n" (or "\r" for progress).
using Sink = std::function<void(const std::wstring& line)>;

// Returns the sink that was installed before.
Sink install(Sink sink);

// Wide printf, like Console::out.
void post(const wchar_t* format, ...);
void postLine(const std::wstring& line);

// Sends the lines to the console, unchanged: what the programs install.
Sink toConsole();

// Collects the lines posted while it lives, then puts the previous sink back.
class Capture {
public:
    Capture();
    ~Capture();
    Capture(const Capture&) = delete;
    Capture& operator=(const Capture&) = delete;

    const std::vector<std::wstring>& lines() const { return lines_; }
    std::wstring text() const;

private:
    std::vector<std::wstring> lines_;
    Sink previous_;
};

}  // namespace QVMX::Notices
