#pragma once

// The last line of a tool's run that wrote nothing: "OUTPUT: CAUSE; nothing
// was written.", naming a full disk instead of the step's own cause when
// that is what stopped it.
#include <string>

#include "foundation/pending_output.h"

// Prints the line and gives the exit status, 1.
int refuseOutput(const std::string& output, const std::string& cause, QVMX::PendingOutput* pending = nullptr,
                 unsigned long long needed = 0);
