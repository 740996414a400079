#pragma once

#include <cstdio>

namespace QVMX::Console {

// The one console routine: wide printf, flushed after every call so that
// progress lines ending in "\r" show at once. Messages carry their own "\n".
void out(const wchar_t* format, ...);

// Where out() writes; standard output unless redirected (tests capture the
// console this way without disturbing the test runner's own output).
FILE* stream();
void setStream(FILE* stream);

}  // namespace QVMX::Console
