#pragma once

// tavrel-batch's command line: its own options and inputs before "--", the
// tool's options after it.
#include <string>
#include <vector>

#include "tools/batch/shard.h"

namespace batch {

// tavrel reads nine arguments; two of them are the source and the output.
inline constexpr size_t kMaxToolOptions = 7;

struct BatchOptions {
    std::vector<std::string> inputs;
    std::string outputFolder;
    unsigned jobs = 0;  // 0: the number of cores
    std::string jsonFile;
    bool dryRun = false;
    Shard shard;
    double timeoutSeconds = 0;  // 0: none
    bool fsync = false;
    std::string tool;  // empty: found beside the program
    std::vector<std::string> toolOptions;
    bool help = false;
};

struct ParsedOptions {
    BatchOptions options;
    std::string error;  // empty when the command line is usable
};

// args without the program name.
ParsedOptions parseBatchOptions(const std::vector<std::string>& args);

const char* batchUsage();

}  // namespace batch
