#include "foundation/console.h"

#include <atomic>
#include <cstdarg>
#include <cwchar>

namespace QVMX::Console {
namespace {
std::atomic<FILE*> g_stream{nullptr};
}

FILE* stream() {
    FILE* s = g_stream.load();
    return s != nullptr ? s : stdout;
}

void setStream(FILE* s) { g_stream.store(s); }

void out(const wchar_t* format, ...) {
    FILE* s = stream();
    va_list args;
    va_start(args, format);
    std::vfwprintf(s, format, args);
    va_end(args);
    std::fflush(s);
}

}  // namespace QVMX::Console
