#pragma once

// tavrel-dump --json: one object per movie, the same facts as the text dump.
#include <nlohmann/json.hpp>
#include <string>

// Bumped when a member changes meaning or goes away (docs/tavrel-dump.schema.json).
inline constexpr int kDumpJsonVersion = 1;

// Why a path cannot be dumped: a stable code and a message; code empty when
// it can.
struct DumpProblem {
    std::string code;
    std::string message;
};
DumpProblem dumpProblem(const std::string& path);

// The object for one file, "file" first; an unreadable one carries "error".
nlohmann::ordered_json dumpJson(const std::string& path);
