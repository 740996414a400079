#pragma once

// Small source movies made with the ffmpeg command for the pipeline's tests.
#include <cstdio>
#include <filesystem>
#include <string>

namespace videotest {

struct Fixture {
    int width = 128;
    int height = 64;
    int fps = 30;
    double seconds = 2.0;
    bool audio = true;
    int sampleRate = 48000;
    std::string video = "testsrc=size={size}:rate={fps}";
};

// Writes the movie; throws std::runtime_error when ffmpeg fails.
std::filesystem::path makeMovie(const std::filesystem::path& dir, const std::string& name, const Fixture& f);

// Collects what the pipeline writes to its diagnostic log while alive.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;
    std::string text() const;
    bool contains(const std::string& piece) const { return text().find(piece) != std::string::npos; }

private:
    FILE* previous_;
    FILE* file_;
};

}  // namespace videotest
