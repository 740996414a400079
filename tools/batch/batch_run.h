#pragma once

// One batch from start to end: list the movies, take this shard's, pass over
// those done before, run the rest, keep the journal, report.
#include <string>

#include "tools/batch/batch_options.h"

namespace batch {

// The exit status: 0 only when every movie succeeded (or was done before).
int runBatch(const BatchOptions& options, const std::string& tool);

}  // namespace batch
