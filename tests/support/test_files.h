#pragma once

// Temporary directories, whole-file reads and writes, and console capture.
#include <cstdio>
#include <filesystem>
#include <string>

#include "foundation/notices.h"

namespace testsupport {

// A fresh directory under the system's temporary folder, removed with its
// contents when the object goes away.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path file(const std::string& name) const { return path_ / name; }
    // Wide form of file(name), as the project's file layer takes it.
    std::wstring wfile(const std::string& name) const;

private:
    std::filesystem::path path_;
};

void writeFile(const std::filesystem::path& path, const std::string& bytes);
std::string readFile(const std::filesystem::path& path);
std::wstring widen(const std::string& utf8);

// Captures everything written through QVMX::Console::out while alive.
class ConsoleCapture {
public:
    ConsoleCapture();
    ~ConsoleCapture();
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

    // The text written so far, in the locale's multibyte form.
    std::string text() const;

private:
    FILE* previous_;
    FILE* file_;
    // Library notices reach the captured console too, as the programs
    // send them there.
    QVMX::Notices::Sink previousNotices_;
};

}  // namespace testsupport
