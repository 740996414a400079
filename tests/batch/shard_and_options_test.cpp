// The command line and the shard choice: what is accepted, what is refused
// with a reason, and that N shards split any list exactly.
#include <gtest/gtest.h>

#include "tools/batch/batch_options.h"
#include "tools/batch/shard.h"

namespace batch {
namespace {

TEST(Shard, ParsesOnlyKOfNFromOne) {
    Shard shard;
    EXPECT_TRUE(parseShard("2/5", shard));
    EXPECT_EQ(shard.index, 2u);
    EXPECT_EQ(shard.count, 5u);
    for (const char* bad : {"0/3", "4/3", "1/0", "1", "/3", "1/", "a/3", "1/3x", "-1/3", "+1/3", "1/ 3", ""}) {
        Shard untouched;
        EXPECT_FALSE(parseShard(bad, untouched)) << bad;
        EXPECT_EQ(untouched.count, 1u) << bad;
    }
}

TEST(Shard, HashIsTheFixedFnv1a) {
    // Published FNV-1a 64-bit values: shards must agree across machines and builds.
    EXPECT_EQ(fnv1a64(""), 0xcbf29ce484222325ull);
    EXPECT_EQ(fnv1a64("a"), 0xaf63dc4c8601ec8cull);
    EXPECT_EQ(fnv1a64("foobar"), 0x85944171f73967e8ull);
}

// That shards split a list exactly is tried end to end (BatchShards).

ParsedOptions parse(std::vector<std::string> args) { return parseBatchOptions(args); }

TEST(BatchOptions, OwnOptionsBeforeTheSeparatorToolOptionsAfter) {
    const ParsedOptions parsed = parse({"card", "-o", "out", "-j", "3", "--json", "r.json", "--dry-run", "--shard",
                                        "2/4", "--timeout", "1.5", "--fsync", "more.mp4", "--", "-vw:256", "-o",
                                        "--", "-thumb:{dir}/{stem}.jpg"});
    // What each option does is tried end to end (BatchRun, BatchBadInput, BatchShards).
    ASSERT_EQ(parsed.error, "");
    const BatchOptions& o = parsed.options;
    EXPECT_EQ(o.inputs, (std::vector<std::string>{"card", "more.mp4"}));
    EXPECT_EQ(o.outputFolder, "out");
    EXPECT_TRUE(o.dryRun && o.fsync);
    // After "--" nothing is the batch's, not even "-o" or a second "--".
    EXPECT_EQ(o.toolOptions, (std::vector<std::string>{"-vw:256", "-o", "--", "-thumb:{dir}/{stem}.jpg"}));
    // A second parse starts afresh.
    EXPECT_EQ(parse({"a", "-o", "b"}).options.inputs, std::vector<std::string>{"a"});
}

TEST(BatchOptions, RefusesWithAReason) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-o", "out"}, "no movie or folder given"},
        {{"card"}, "no output folder given"},
        {{"card", "-o", "out", "-j", "0"}, "-j wants a number"},
        {{"card", "-o", "out", "-j", "2x"}, "-j wants a number"},
        {{"card", "-o", "out", "--shard", "3/2"}, "--shard wants K/N"},
        {{"card", "-o", "out", "--timeout", "-1"}, "--timeout wants seconds"},
        {{"card", "-o", "out", "--timeout", "nan"}, "--timeout wants seconds"},
        {{"card", "-o", "out", "--bogus"}, "unknown option --bogus"},
        {{"card", "-o"}, "needs a value"},
        {{"card", "-o", "out", "--", "-thumb:{base}.jpg"}, "unknown placeholder {base}"},
        {{"card", "-o", "out", "--", "1", "2", "3", "4", "5", "6", "7", "8"}, "at most 7 options"},
    };
    for (const auto& [args, reason] : cases) {
        const ParsedOptions parsed = parse(args);
        EXPECT_NE(parsed.error.find(reason), std::string::npos) << parsed.error << " / " << reason;
    }
    EXPECT_TRUE(parse({"-h"}).options.help);
}

}  // namespace
}  // namespace batch
