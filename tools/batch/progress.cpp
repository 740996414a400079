#include "tools/batch/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>

#include "tools/batch/report.h"

namespace batch {

std::string durationText(double seconds) {
    const long long whole = std::llround(std::max(0.0, seconds));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60, whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    }
    return text;
}

Progress::Progress(std::FILE* out, bool terminal, size_t total) : out_(out), terminal_(terminal), total_(total) {}

void Progress::started(const std::string& source) {
    current_ = std::filesystem::path(source).filename().string();
    if (terminal_) draw();
}

void Progress::finished(const Entry& entry) {
    ++done_;
    if (entry.status == Status::Ok) bytes_ += entry.bytesWritten;
    const char* status = statusName(entry.status);
    if (terminal_) {
        // Successes are counted on the line; the rest are worth a line each.
        if (entry.status != Status::Ok) {
            clear();
            // Most messages name the movie already.
            if (entry.message.rfind(entry.source, 0) == 0) {
                std::fprintf(out_, "%s %s\n", status, entry.message.c_str());
            } else {
                std::fprintf(out_, "%s %s: %s\n", status, entry.source.c_str(), entry.message.c_str());
            }
        }
        draw();
        return;
    }
    std::fprintf(out_, "[%zu/%zu] %s %s -> %s (%.2f s, %s)%s%s\n", done_, total_, status, entry.source.c_str(),
                 entry.output.c_str(), entry.seconds, bytesText(entry.bytesWritten).c_str(),
                 entry.message.empty() ? "" : ": ", entry.message.c_str());
    std::fflush(out_);
}

void Progress::tick() {
    if (terminal_) draw();
}

void Progress::close(const std::string& summary) {
    if (terminal_) clear();
    std::fprintf(out_, "%s\n", summary.c_str());
    std::fflush(out_);
}

void Progress::clear() {
    std::fputs("\r\033[K", out_);
}

void Progress::draw() {
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun_).count();
    std::string left = "--:--";
    if (done_ > 0 && done_ < total_) left = durationText(elapsed / double(done_) * double(total_ - done_));
    if (done_ >= total_) left = "0:00";
    char head[160];
    std::snprintf(head, sizeof head, "[%zu/%zu] %s, %s left, ", done_, total_, bytesText(bytes_).c_str(),
                  left.c_str());
    std::string line = head + current_;
    winsize size{};
    const size_t width = ::ioctl(fileno(out_), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
    if (line.size() >= width) line.resize(width - 1);
    clear();
    std::fputs(line.c_str(), out_);
    std::fflush(out_);
}

}  // namespace batch
