#pragma once

// Running tavrel-batch in tests: the command, its journal's lines, schema
// checks with an independent validator, and fake tools that misbehave.
#include <filesystem>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "support/run_command.h"

namespace e2e {

// "cd DIR && [ENV] tavrel-batch ARGUMENTS" with both streams.
testsupport::CommandResult runBatch(const std::filesystem::path& dir, const std::string& arguments,
                                    const std::string& environment = "");
std::string batchCommand();

// Every line of a JSON Lines file, parsed.
std::vector<nlohmann::json> jsonLines(const std::filesystem::path& file);
nlohmann::json jsonFile(const std::filesystem::path& file);
// The entry for the source whose path ends in suffix; fails the test when there is none.
nlohmann::json entryFor(const std::vector<nlohmann::json>& entries, const std::string& suffix);

// Empty when the file matches docs/SCHEMA (each line against $defs/DEFINITION
// when one is named); else the validator's complaint.
std::string schemaProblem(const std::string& schema, const std::filesystem::path& file,
                          const std::string& definition = "");

// Paths under dir of hidden temporary files tavrel leaves only when killed.
std::vector<std::string> leftovers(const std::filesystem::path& dir);

// An executable shell script.
void writeScript(const std::filesystem::path& path, const std::string& body);

}  // namespace e2e
