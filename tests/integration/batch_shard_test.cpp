// Shards run side by side by GNU parallel, as on several machines: together
// they write exactly what one unsharded run writes, and their journals are
// disjoint and cover every movie.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>

#include "batch_support.h"
#include "support/test_files.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testsupport::shellQuote;

// Every movie under the folder by its path there, with its hash.
std::map<std::string, std::string> movies(const fs::path& folder) {
    std::map<std::string, std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().extension() != ".jsonl") {
            found[entry.path().lexically_relative(folder).string()] = sha256(entry.path());
        }
    }
    return found;
}

TEST(BatchShards, GnuParallelShardsTogetherMakeExactlyTheWholeRun) {
    testsupport::TempDir dir;
    const Source kinds[] = {Source::Plain, Source::A10, Source::B, Source::Newest};
    for (int i = 0; i < 8; ++i) {
        const fs::path to = dir.file("card/DCIM/" + std::to_string(100 + i) + (i % 2 ? "/CLIP.MP4" : "/clip.mov"));
        fs::create_directories(to.parent_path());
        fs::copy_file(sourceMovie(kinds[i % 4]), to);
    }
    const auto whole = runBatch(dir.path(), "card -o whole -j 2 --fsync -- -view:45,0");
    ASSERT_EQ(whole.status, 0) << whole.output;

    const auto shards = testsupport::runCommand(
        "cd " + shellQuote(dir.path().string()) + " && HOME=" + shellQuote(dir.path().string()) +
            " parallel --will-cite -j 3 " + shellQuote(batchCommand()) +
            " card -o sharded -j 1 --shard {}/3 -- -view:45,0 ::: 1 2 3",
        true);
    ASSERT_EQ(shards.status, 0) << shards.output;

    EXPECT_EQ(movies(dir.file("sharded")), movies(dir.file("whole")));
    EXPECT_EQ(movies(dir.file("whole")).size(), 8u);

    std::set<std::string> everyShard;
    size_t entries = 0;
    for (int k = 1; k <= 3; ++k) {
        const fs::path journal = dir.file("sharded/journal-" + std::to_string(k) + "-of-3.jsonl");
        ASSERT_TRUE(fs::exists(journal)) << journal;
        EXPECT_EQ(schemaProblem("tavrel-batch.schema.json", journal, "entry"), "");
        for (const nlohmann::json& entry : jsonLines(journal)) {
            EXPECT_EQ(entry["status"], "ok") << entry;
            everyShard.insert(entry["source"].get<std::string>());
            ++entries;
        }
    }
    std::set<std::string> unsharded;
    for (const nlohmann::json& entry : jsonLines(dir.file("whole/journal.jsonl"))) unsharded.insert(entry["source"]);
    EXPECT_EQ(entries, everyShard.size()) << "a movie was done by two shards";
    EXPECT_EQ(everyShard, unsharded);
    EXPECT_FALSE(fs::exists(dir.file("sharded/journal.jsonl")));

    // An unsharded run over the shards' output folder finds everything done.
    const auto after = runBatch(dir.path(), "card -o sharded -- -view:45,0");
    EXPECT_EQ(after.status, 0) << after.output;
    EXPECT_TRUE(contains(after.output, "8 movies: 0 ok, 0 refused, 0 failed, 0 interrupted, 8 skipped")) << after.output;
}

}  // namespace
}  // namespace e2e
