#include "tools/batch/report.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace batch {

void Summary::add(const Entry& entry) {
    ++total;
    switch (entry.status) {
        case Status::Ok:
            ++ok;
            break;
        case Status::Refused:
            ++refused;
            break;
        case Status::Failed:
            ++failed;
            break;
        case Status::Interrupted:
            ++interrupted;
            break;
        case Status::Skipped:
            ++skipped;
            break;
    }
    // A skipped movie's output was written by an earlier run.
    if (entry.status == Status::Ok) bytesWritten += entry.bytesWritten;
}

nlohmann::ordered_json batchDocument(const std::vector<Entry>& entries, const Summary& summary) {
    nlohmann::ordered_json document;
    document["version"] = kBatchJsonVersion;
    nlohmann::ordered_json list = nlohmann::ordered_json::array();
    for (const Entry& entry : entries) list.push_back(toJson(entry));
    document["entries"] = std::move(list);
    document["summary"] = {{"total", summary.total},
                           {"ok", summary.ok},
                           {"refused", summary.refused},
                           {"failed", summary.failed},
                           {"interrupted", summary.interrupted},
                           {"skipped", summary.skipped},
                           {"bytes_written", summary.bytesWritten},
                           {"seconds", summary.seconds}};
    return document;
}

std::string writeDocument(const std::string& path, const nlohmann::ordered_json& document) {
    const std::string text = document.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
    const std::string temporary = path + ".tavrel-batch-" + std::to_string(::getpid());
    const int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) return std::strerror(errno);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<size_t>(n);
    }
    const int writeError = done == text.size() ? 0 : errno;
    if (::close(fd) != 0 || writeError != 0 || ::rename(temporary.c_str(), path.c_str()) != 0) {
        const std::string cause = std::strerror(writeError != 0 ? writeError : errno);
        ::unlink(temporary.c_str());
        return cause;
    }
    return {};
}

std::string bytesText(uint64_t bytes) {
    static const char* const kUnits[] = {"B", "kB", "MB", "GB", "TB", "PB"};
    double value = double(bytes);
    int unit = 0;
    while (value >= 1000 && unit < 5) {
        value /= 1000;
        ++unit;
    }
    char text[32];
    if (unit == 0) {
        std::snprintf(text, sizeof text, "%llu B", static_cast<unsigned long long>(bytes));
    } else {
        std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    }
    return text;
}

std::string summaryLine(const Summary& s) {
    char text[256];
    std::snprintf(text, sizeof text, "%zu movie%s: %zu ok, %zu refused, %zu failed, %zu interrupted, %zu skipped; %s written in %.1f s",
                  s.total, s.total == 1 ? "" : "s", s.ok, s.refused, s.failed, s.interrupted, s.skipped,
                  bytesText(s.bytesWritten).c_str(), s.seconds);
    return text;
}

}  // namespace batch
