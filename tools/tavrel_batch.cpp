// tavrel-batch [OPTIONS] INPUT... -o DIR [-- TAVREL-OPTIONS]: runs tavrel
// over many movies, each in a process of its own, with a journal that lets
// the same command resume and shards that split the work between machines.
#include <unistd.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "tools/batch/batch_options.h"
#include "tools/batch/batch_run.h"

namespace fs = std::filesystem;

namespace {

// --tool, then TAVREL_BATCH_TOOL, then tavrel beside this program or in the
// build tree's app/ folder.
std::string findTool(const std::string& given) {
    if (!given.empty()) return given;
    if (const char* env = std::getenv("TAVREL_BATCH_TOOL"); env != nullptr && *env != '\0') return env;
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) return {};
    for (const fs::path& candidate : {self.parent_path() / "tavrel", self.parent_path().parent_path() / "app" / "tavrel"}) {
        if (::access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
    return {};
}

int usage(const std::string& problem) {
    if (!problem.empty()) std::fprintf(stderr, "tavrel-batch: %s\n", problem.c_str());
    std::fputs(batch::batchUsage(), stderr);
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    const batch::ParsedOptions parsed = batch::parseBatchOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (parsed.options.help) return usage("");
    if (!parsed.error.empty()) return usage(parsed.error);
    batch::BatchOptions options = parsed.options;
    if (options.jobs == 0) {
        const long cores = ::sysconf(_SC_NPROCESSORS_ONLN);
        options.jobs = cores > 0 ? static_cast<unsigned>(cores) : 1;
    }
    std::string tool = findTool(options.tool);
    if (tool.empty()) return usage("tavrel was not found beside tavrel-batch; name it with --tool or TAVREL_BATCH_TOOL");
    // Children run in the same folder, so a tool named by a relative path stays valid.
    if (tool.find('/') == std::string::npos) return usage("the tool must be named by a path: " + tool);
    if (::access(tool.c_str(), X_OK) != 0) return usage(tool + ": cannot be run");
    return batch::runBatch(options, tool);
}
