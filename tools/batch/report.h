#pragma once

// The counts of a batch, its --json document, and its last line.
#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tools/batch/journal.h"

namespace batch {

// Bumped when a member changes meaning or goes away (docs/tavrel-batch.schema.json).
inline constexpr int kBatchJsonVersion = 1;

struct Summary {
    size_t total = 0, ok = 0, refused = 0, failed = 0, interrupted = 0, skipped = 0;
    uint64_t bytesWritten = 0;
    double seconds = 0;  // the whole batch, wall clock
    void add(const Entry& entry);
    // Every movie succeeded or had been done before.
    bool allGood() const { return ok + skipped == total; }
};

nlohmann::ordered_json batchDocument(const std::vector<Entry>& entries, const Summary& summary);

// Writes the document whole or not at all (a temporary beside it, renamed);
// an empty string or the cause.
std::string writeDocument(const std::string& path, const nlohmann::ordered_json& document);

// "100 movies: 97 ok, 1 refused, 1 failed, 0 interrupted, 1 skipped; 1.2 GB written in 12.3 s"
std::string summaryLine(const Summary& summary);

// 1234567 -> "1.2 MB"
std::string bytesText(uint64_t bytes);

}  // namespace batch
