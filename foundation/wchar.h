#pragma once

#include <string>

namespace QVMX::wchar {

// Wide to multibyte through the current locale. The result keeps the whole
// zero-filled buffer of min(6 x length, 2048) bytes; callers use it as a
// zero-terminated string (c_str()).
std::string wcs2mbs(const std::wstring& text);

// Multibyte to wide: min(2 x length, 2048) characters, zero-filled, then
// trimmed at the first zero so the result can be used as an ordinary string.
std::wstring mbs2wcs(const char* text);

}  // namespace QVMX::wchar
