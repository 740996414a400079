#pragma once

#include <cstdio>

namespace QVMX::PlatformLog {

// One diagnostic line on standard error (the console stays on standard
// output). The format carries its own "%s: " for the caller's full name; the
// line end is added here, as the system log does.
void write(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Where write() goes; standard error unless redirected (tests read it back).
FILE* stream();
void setStream(FILE* stream);

}  // namespace QVMX::PlatformLog
