#pragma once

// Wide printf into a string, for text that is built here and written
// elsewhere (notices, dump lines).
#include <cstdarg>
#include <string>

namespace QVMX {

std::wstring format(const wchar_t* fmt, ...);
std::wstring vformat(const wchar_t* fmt, va_list args);

}  // namespace QVMX
