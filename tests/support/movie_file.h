#pragma once

// A movie written into a private directory and attached to a container, for
// tests of edits: what the file holds now, and whether a rewrite left a
// temporary file behind.
#include <filesystem>
#include <string>

#include "mp4/container.h"
#include "support/test_files.h"

namespace testsupport {

struct MovieFile {
    explicit MovieFile(const std::string& bytes, const std::string& name = "movie.mp4");

    std::string bytes() const { return readFile(path); }
    std::wstring wpath() const { return widen(path.string()); }
    // Any "*.tmp.mp4" left in the directory.
    bool temporaryLeft() const;
    // The first box found under a dotted path, or null.
    MP4::BOX* first(const char* boxPath);
    // The payload of that box as the file holds it now; empty when absent.
    std::string payload(const char* boxPath);

    TempDir dir;
    std::filesystem::path path;
    std::string original;
    MP4::Container container;
};

}  // namespace testsupport
