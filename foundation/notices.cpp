#include "foundation/notices.h"

#include <cstdarg>
#include <utility>

#include "foundation/console.h"
#include "foundation/wide_format.h"

namespace QVMX::Notices {
namespace {

Sink& current() {
    static Sink sink;
    return sink;
}

}  // namespace

Sink install(Sink sink) { return std::exchange(current(), std::move(sink)); }

void post(const wchar_t* fmt, ...) {
    if (!current()) return;
    va_list args;
    va_start(args, fmt);
    std::wstring line = vformat(fmt, args);
    va_end(args);
    current()(line);
}

void postLine(const std::wstring& line) {
    if (current()) current()(line);
}

Sink toConsole() {
    return [](const std::wstring& line) { Console::out(L"%ls", line.c_str()); };
}

Capture::Capture() {
    previous_ = install([this](const std::wstring& line) { lines_.push_back(line); });
}

Capture::~Capture() { install(std::move(previous_)); }

std::wstring Capture::text() const {
    std::wstring all;
    for (const auto& line : lines_) all += line;
    return all;
}

}  // namespace QVMX::Notices
