#include "foundation/wchar.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace QVMX::wchar {

namespace {
constexpr size_t kLimit = 2048;
}

std::string wcs2mbs(const std::wstring& text) {
    const size_t capacity = std::min(text.size() * 6, kLimit);
    std::string out(capacity, '\0');
    if (capacity == 0) return out;
    // wcstombs stops at a character it cannot fit, so the cut is always on a
    // character boundary; it may leave the buffer unterminated when full.
    const size_t written = std::wcstombs(out.data(), text.c_str(), capacity);
    if (written == static_cast<size_t>(-1)) std::fill(out.begin(), out.end(), '\0');
    return out;
}

std::wstring mbs2wcs(const char* text) {
    if (text == nullptr) return {};
    const size_t capacity = std::min(std::strlen(text) * 2, kLimit);
    std::vector<wchar_t> buffer(capacity + 1, L'\0');
    if (capacity > 0) {
        const size_t n = std::mbstowcs(buffer.data(), text, capacity);
        if (n == static_cast<size_t>(-1)) buffer.assign(capacity + 1, L'\0');
    }
    return std::wstring(buffer.data());
}

}  // namespace QVMX::wchar
