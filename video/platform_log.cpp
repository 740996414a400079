#include "video/platform_log.h"

#include <atomic>
#include <cstdarg>
#include <string>

namespace QVMX::PlatformLog {
namespace {
std::atomic<FILE*> g_stream{nullptr};
}

FILE* stream() {
    FILE* s = g_stream.load();
    return s != nullptr ? s : stderr;
}

void setStream(FILE* s) { g_stream.store(s); }

void write(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(line.data(), line.size() + 1, format, args);
    va_end(args);
    line += '\n';
    // One call per line, so lines from other threads do not interleave.
    FILE* s = stream();
    std::fwrite(line.data(), 1, line.size(), s);
    std::fflush(s);
}

}  // namespace QVMX::PlatformLog
