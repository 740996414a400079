#pragma once

// What one child's ending means for its movie: the status, the exit status
// and the message the journal keeps.
#include <optional>
#include <string>

#include "tools/batch/child_runs.h"
#include "tools/batch/status.h"

namespace batch {

struct Verdict {
    Status status = Status::Failed;
    std::optional<int> exitStatus;
    std::string message;
};

Verdict judge(const ChildOutcome& outcome, double timeoutSeconds);

// The last line of the tool's output that ends in "nothing was written.";
// empty when there is none. Lines end at "\n" or "\r" (progress lines).
std::string refusalLine(const std::string& output);

// The last line with something on it.
std::string lastLine(const std::string& output);

}  // namespace batch
