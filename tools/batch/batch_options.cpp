#include "tools/batch/batch_options.h"

#include <getopt.h>

#include <charconv>
#include <cmath>
#include <cstdlib>

#include "tools/batch/tool_arguments.h"

namespace batch {

namespace {

enum LongOnly { kJson = 256, kDryRun, kShard, kTimeout, kFsync, kTool };

const option kLongOptions[] = {
    {"output", required_argument, nullptr, 'o'}, {"jobs", required_argument, nullptr, 'j'},
    {"json", required_argument, nullptr, kJson}, {"dry-run", no_argument, nullptr, kDryRun},
    {"shard", required_argument, nullptr, kShard}, {"timeout", required_argument, nullptr, kTimeout},
    {"fsync", no_argument, nullptr, kFsync},     {"tool", required_argument, nullptr, kTool},
    {"help", no_argument, nullptr, 'h'},         {nullptr, 0, nullptr, 0},
};

bool parseJobs(const std::string& text, unsigned& jobs) {
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, jobs);
    return error == std::errc() && stop == end && jobs >= 1 && jobs <= 4096;
}

bool parseSeconds(const std::string& text, double& seconds) {
    char* end = nullptr;
    seconds = std::strtod(text.c_str(), &end);
    return !text.empty() && end == text.c_str() + text.size() && std::isfinite(seconds) && seconds > 0;
}

}  // namespace

ParsedOptions parseBatchOptions(const std::vector<std::string>& args) {
    ParsedOptions parsed;
    BatchOptions& o = parsed.options;
    // Everything after the first "--" is the tool's, untouched by getopt.
    std::vector<std::string> own;
    bool toolPart = false;
    for (const std::string& arg : args) {
        if (toolPart) {
            o.toolOptions.push_back(arg);
        } else if (arg == "--") {
            toolPart = true;
        } else {
            own.push_back(arg);
        }
    }

    std::vector<char*> argv;
    std::string name = "tavrel-batch";
    argv.push_back(name.data());
    for (std::string& arg : own) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int argc = static_cast<int>(argv.size()) - 1;

    optind = 0;  // a fresh scan every call
    opterr = 0;
    auto fail = [&](const std::string& error) {
        parsed.error = error;
        return parsed;
    };
    for (;;) {
        const int c = getopt_long(argc, argv.data(), ":o:j:h", kLongOptions, nullptr);
        if (c == -1) break;
        const std::string value = optarg != nullptr ? optarg : "";
        switch (c) {
            case 'o':
                o.outputFolder = value;
                break;
            case 'j':
                if (!parseJobs(value, o.jobs)) return fail("-j wants a number of jobs from 1, not '" + value + "'");
                break;
            case kJson:
                o.jsonFile = value;
                break;
            case kDryRun:
                o.dryRun = true;
                break;
            case kShard:
                if (!parseShard(value, o.shard)) return fail("--shard wants K/N with 1 <= K <= N, not '" + value + "'");
                break;
            case kTimeout:
                if (!parseSeconds(value, o.timeoutSeconds)) {
                    return fail("--timeout wants seconds above 0, not '" + value + "'");
                }
                break;
            case kFsync:
                o.fsync = true;
                break;
            case kTool:
                o.tool = value;
                break;
            case 'h':
                o.help = true;
                return parsed;
            case ':':
                return fail("option " + std::string(argv[optind - 1]) + " needs a value");
            default:
                return fail("unknown option " + std::string(argv[optind - 1]));
        }
    }
    for (int i = optind; i < argc; ++i) o.inputs.emplace_back(argv[i]);

    if (o.inputs.empty()) return fail("no movie or folder given");
    if (o.outputFolder.empty()) return fail("no output folder given (-o DIR)");
    if (o.toolOptions.size() > kMaxToolOptions) {
        return fail("tavrel takes at most " + std::to_string(kMaxToolOptions) + " options besides the two paths");
    }
    for (const std::string& arg : o.toolOptions) {
        if (const std::string error = patternProblem(arg); !error.empty()) return fail(error);
    }
    return parsed;
}

const char* batchUsage() {
    return "usage: tavrel-batch [OPTIONS] INPUT... -o DIR [-- TAVREL-OPTIONS]\n"
           "  INPUT            a movie, or a folder searched for .mp4/.mov files\n"
           "  -o, --output DIR where the outputs, journal.jsonl and thumbnails go\n"
           "  -j, --jobs N     movies at a time (default: the number of cores)\n"
           "  --json FILE      write every movie's result as one JSON document\n"
           "  --dry-run        print what would be done; run nothing\n"
           "  --shard K/N      take only the K-th of N shares of the movies\n"
           "  --timeout S      stop a movie's run after S seconds\n"
           "  --fsync          flush every output to disk before it counts as done\n"
           "  --tool PATH      the tavrel program to run (also TAVREL_BATCH_TOOL)\n"
           "  TAVREL-OPTIONS   passed to tavrel for every movie; {name}, {stem}, {dir},\n"
           "                   {rel} and {{ }} are replaced in them (see README)\n";
}

}  // namespace batch
