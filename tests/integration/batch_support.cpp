#include "batch_support.h"

#include <fstream>

#include <gtest/gtest.h>

#include "support/test_files.h"

namespace e2e {

std::string batchCommand() { return testsupport::binaryDir() + "/tools/tavrel-batch"; }

testsupport::CommandResult runBatch(const std::filesystem::path& dir, const std::string& arguments,
                                    const std::string& environment) {
    return testsupport::runCommand("cd " + testsupport::shellQuote(dir.string()) + " && " + environment + " " +
                                       testsupport::shellQuote(batchCommand()) + " " + arguments,
                                   true);
}

std::vector<nlohmann::json> jsonLines(const std::filesystem::path& file) {
    std::vector<nlohmann::json> lines;
    std::ifstream in(file);
    std::string line;
    while (std::getline(in, line)) lines.push_back(nlohmann::json::parse(line));
    return lines;
}

nlohmann::json jsonFile(const std::filesystem::path& file) {
    std::ifstream in(file);
    return nlohmann::json::parse(in);
}

nlohmann::json entryFor(const std::vector<nlohmann::json>& entries, const std::string& suffix) {
    for (const nlohmann::json& entry : entries) {
        const std::string source = entry.at("source");
        if (source.size() >= suffix.size() && source.compare(source.size() - suffix.size(), suffix.size(), suffix) == 0) {
            return entry;
        }
    }
    ADD_FAILURE() << "no entry for " << suffix;
    return nlohmann::json::object();
}

std::string schemaProblem(const std::string& schema, const std::filesystem::path& file, const std::string& definition) {
    const std::string source = TAVREL_SOURCE_DIR;
    const auto run = testsupport::runCommand(
        "python3 " + testsupport::shellQuote(source + "/tests/integration/validate_json.py") + " " +
            testsupport::shellQuote(source + "/docs/" + schema) + " " + testsupport::shellQuote(file.string()) + " " +
            definition,
        true);
    return run.status == 0 ? std::string() : "status " + std::to_string(run.status) + ": " + run.output;
}

std::vector<std::string> leftovers(const std::filesystem::path& dir) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        if (entry.path().filename().string().find(".tavrel-") != std::string::npos) found.push_back(entry.path());
    }
    return found;
}

void writeScript(const std::filesystem::path& path, const std::string& body) {
    testsupport::writeFile(path, "#!/bin/bash\n" + body);
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

}  // namespace e2e
