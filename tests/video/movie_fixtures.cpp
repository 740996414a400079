#include "movie_fixtures.h"

#include <stdexcept>

#include "support/run_command.h"
#include "support/test_files.h"

namespace videotest {

std::filesystem::path makeMovie(const std::filesystem::path& dir, const std::string& name, const Fixture& f) {
    using testsupport::shellQuote;
    const auto path = dir / name;
    std::string video = f.video;
    video.replace(video.find("{size}"), 6, std::to_string(f.width) + "x" + std::to_string(f.height));
    video.replace(video.find("{fps}"), 5, std::to_string(f.fps));
    std::string command = "ffmpeg -nostdin -v error -y -f lavfi -i " + shellQuote(video);
    const std::string rate = std::to_string(f.sampleRate);
    if (f.audio) command += " -f lavfi -i " + shellQuote("sine=frequency=440:sample_rate=" + rate);
    command += " -t " + std::to_string(f.seconds) + " -c:v libx264 -preset ultrafast -pix_fmt yuv420p -g " +
               std::to_string(f.fps);
    // moov before mdat, so a cut file still opens.
    if (f.audio) command += " -c:a aac -ac 2 -ar " + rate;
    command += " -movflags +faststart -f mp4 " + shellQuote(path.string());
    const auto result = testsupport::runCommand(command, true);
    if (result.status != 0) throw std::runtime_error("ffmpeg failed: " + command + "\n" + result.output);
    return path;
}

}  // namespace videotest

#include "video/platform_log.h"

namespace videotest {

LogCapture::LogCapture() : previous_(QVMX::PlatformLog::stream()), file_(std::tmpfile()) {
    if (file_ == nullptr) throw std::runtime_error("tmpfile failed");
    QVMX::PlatformLog::setStream(file_);
}

LogCapture::~LogCapture() {
    QVMX::PlatformLog::setStream(previous_ == stderr ? nullptr : previous_);
    std::fclose(file_);
}

std::string LogCapture::text() const {
    std::fflush(file_);
    std::string out;
    std::rewind(file_);
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, file_)) > 0) out.append(buffer, n);
    std::fseek(file_, 0, SEEK_END);
    return out;
}

}  // namespace videotest

// libx265 loses one small block per opened encoder inside its own code (the
// ffmpeg command shows the same); that is not ours to report.
extern "C" const char* __lsan_default_suppressions() { return "leak:libx265.so\n"; }
