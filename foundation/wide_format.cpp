#include "foundation/wide_format.h"

#include <cwchar>

namespace QVMX {

std::wstring vformat(const wchar_t* fmt, va_list args) {
    // vswprintf reports a short buffer only by failing, so grow until it
    // fits; past a megabyte the failure is the format's, not the length's.
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
        if (text.size() >= (1u << 20)) return {};
        text.resize(text.size() * 4);
    }
}

std::wstring format(const wchar_t* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    std::wstring text = vformat(fmt, args);
    va_end(args);
    return text;
}

}  // namespace QVMX
