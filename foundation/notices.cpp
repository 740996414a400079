#include "foundation/notices.h"

#include <cstdarg>
#include <cwchar>
#include <utility>

#include "foundation/console.h"

namespace QVMX::Notices {
namespace {

Sink& current() {
    static Sink sink;
    return sink;
}

// vswprintf reports a short buffer only by failing, so grow until it fits.
std::wstring format(const wchar_t* fmt, va_list args) {
    std::wstring text(256, L'\0');
    while (true) {
        va_list copy;
        va_copy(copy, args);
        const int n = std::vswprintf(text.data(), text.size(), fmt, copy);
        va_end(copy);
        if (n >= 0 && static_cast<size_t>(n) < text.size()) {
            text.resize(static_cast<size_t>(n));
            return text;
        }
        if (text.size() >= (1u << 20)) return {};  // a format error, not a long line
        text.resize(text.size() * 4);
    }
}

}  // namespace

Sink install(Sink sink) { return std::exchange(current(), std::move(sink)); }

void post(const wchar_t* fmt, ...) {
    if (!current()) return;
    va_list args;
    va_start(args, fmt);
    std::wstring line = format(fmt, args);
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
