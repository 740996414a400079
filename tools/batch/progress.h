#pragma once

// What a person watching sees. On a terminal: one line, redrawn, with the
// movies done and their total, the bytes written, the movie running and the
// time left; the movies that did not succeed are printed above it. In a pipe
// or a log: one plain line per finished movie.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

#include "tools/batch/journal.h"

namespace batch {

class Progress {
public:
    Progress(std::FILE* out, bool terminal, size_t total);

    void started(const std::string& source);
    // done: how many have finished, this one included.
    void finished(const Entry& entry);
    // Redraws the line (the time left moves on).
    void tick();
    // Clears the progress line and prints the last one.
    void close(const std::string& summary);

private:
    void draw();
    void clear();

    std::FILE* out_;
    bool terminal_;
    size_t total_;
    size_t done_ = 0;
    uint64_t bytes_ = 0;
    std::string current_;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

// "1:05" / "1:02:03"
std::string durationText(double seconds);

}  // namespace batch
