// tavrel-batch when things go wrong: a tool that crashes, hangs or is
// interrupted, inputs that cannot be run, outputs that cannot be made. Each
// movie gets its entry and message, the rest of the batch goes on, and no
// hidden temporary file is left behind.
#include <gtest/gtest.h>

#include <filesystem>

#include "batch_support.h"
#include "support/test_files.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testsupport::shellQuote;

// Behaves by the source's name: "crash" dies of SIGSEGV, "hang" leaves a
// temporary file as tavrel does and then ignores SIGTERM, "slow" waits and
// honours SIGTERM as tavrel does; anything else is copied.
const char* kFakeTool = R"(src="${@: -2:1}"; out="${@: -1}"
tmp="$(dirname "$out")/.$(basename "$out").tavrel-$$-abcdef"
case "$src" in
  *crash*) kill -SEGV $$ ;;
  *hang*) : > "$tmp"; trap '' TERM; exec sleep 30 ;;
  *slow*) : > "$tmp"
          trap 'kill $child; rm -f "$tmp"; echo "$out: the run was interrupted; nothing was written."; exit 1' TERM
          sleep 30 & child=$!; wait ;;
esac
cp "$src" "$out"
)";

fs::path fakeTool(const testsupport::TempDir& dir) {
    writeScript(dir.file("fake-tavrel"), kFakeTool);
    return dir.file("fake-tavrel");
}

void movie(const testsupport::TempDir& dir, const std::string& name) {
    fs::create_directories(dir.file(name).parent_path());
    testsupport::writeFile(dir.file(name), "movie bytes of " + name);
}

TEST(BatchBadInput, EachProblemIsOneEntryAndTheRestOfTheBatchRuns) {
    testsupport::TempDir dir;
    const fs::path tool = fakeTool(dir);
    for (const char* name : {"card/a.mp4", "card/crash.mp4", "card/hang.MOV", "other/a.mp4", "third/a.mp4", "card/deep/b.mp4"}) {
        movie(dir, name);
    }
    // An output folder that cannot be made: a file stands where it would go.
    fs::create_directories(dir.file("out/card"));
    testsupport::writeFile(dir.file("out/card/deep"), "a file, not a folder");
    const auto run = runBatch(dir.path(),
                              "card other/a.mp4 third/a.mp4 card/a.mp4 ./card/../card/a.mp4 missing.mp4 -o out -j 3 --timeout 1 "
                              "--json report.json",
                              "TAVREL_BATCH_TOOL=" + shellQuote(tool.string()));
    EXPECT_EQ(run.status, 1) << run.output;
    const nlohmann::json report = jsonFile(dir.file("report.json"));
    const std::vector<nlohmann::json> entries(report["entries"].begin(), report["entries"].end());
    ASSERT_EQ(entries.size(), 9u) << report.dump(1);

    auto expect = [&](const std::string& suffix, const std::string& status, const std::string& message, int nth = 0) {
        int seen = 0;
        for (const nlohmann::json& entry : entries) {
            const std::string source = entry["source"];
            if (source.size() < suffix.size() || source.compare(source.size() - suffix.size(), suffix.size(), suffix) != 0) continue;
            if (seen++ != nth) continue;
            EXPECT_EQ(entry["status"], status) << entry;
            EXPECT_TRUE(contains(entry["message"], message)) << entry;
            return;
        }
        ADD_FAILURE() << "no entry " << nth << " for " << suffix;
    };
    expect("/card/a.mp4", "ok", "");
    expect("/card/crash.mp4", "failed", "the tool was ended by SIGSEGV");
    expect("/card/hang.MOV", "failed", "stopped after the time allowed (1 s); ended by SIGKILL");
    expect("/card/deep/b.mp4", "refused", "the folder cannot be made");
    // A single file named like another input's movie would land on the same output.
    expect("/other/a.mp4", "ok", "");
    expect("/third/a.mp4", "refused", "/out/a.mp4: already the output of");
    // Given again, by the same path or another: done once.
    expect("/card/a.mp4", "skipped", "the same movie as", 1);
    expect("/card/a.mp4", "skipped", "the same movie as", 2);
    expect("/missing.mp4", "failed", "No such file or directory");
    EXPECT_EQ(testsupport::readFile(dir.file("out/card/a.mp4")), "movie bytes of card/a.mp4");
    EXPECT_EQ(testsupport::readFile(dir.file("out/a.mp4")), "movie bytes of other/a.mp4");
    EXPECT_EQ(report["summary"]["ok"], 2);
    EXPECT_TRUE(leftovers(dir.path()).empty()) << leftovers(dir.path())[0];
    EXPECT_EQ(schemaProblem("tavrel-batch.schema.json", dir.file("report.json")), "");
    // Skipped repeats are not finished movies: the journal has the other seven.
    EXPECT_EQ(jsonLines(dir.file("out/journal.jsonl")).size(), 7u);
}

TEST(BatchBadInput, AnInterruptStopsTheChildrenAndKeepsTheJournal) {
    testsupport::TempDir dir;
    const fs::path tool = fakeTool(dir);
    for (const char* name : {"card/1-slow.mp4", "card/2-slow.mp4", "card/3.mp4", "card/4.mp4"}) movie(dir, name);
    const auto run = testsupport::runCommand(
        "cd " + shellQuote(dir.path().string()) + " && (TAVREL_BATCH_TOOL=" + shellQuote(tool.string()) + " " +
            shellQuote(batchCommand()) + " card -o out -j 2 --json report.json & pid=$!; sleep 1; kill -INT $pid; " +
            "wait $pid; echo \"status=$?\")",
        true);
    EXPECT_TRUE(contains(run.output, "status=1")) << run.output;
    EXPECT_TRUE(contains(run.output, "interrupted: 4 movies: 0 ok, 0 refused, 0 failed, 4 interrupted")) << run.output;
    const std::vector<nlohmann::json> journal = jsonLines(dir.file("out/journal.jsonl"));
    ASSERT_EQ(journal.size(), 2u);  // the two that ran; the others never started
    for (const nlohmann::json& entry : journal) {
        EXPECT_EQ(entry["status"], "interrupted");
        EXPECT_TRUE(contains(entry["message"], "the run was interrupted; nothing was written.")) << entry;
    }
    const nlohmann::json report = jsonFile(dir.file("report.json"));
    EXPECT_EQ(entryFor({report["entries"].begin(), report["entries"].end()}, "3.mp4")["message"],
              "not started: the batch was interrupted");
    EXPECT_TRUE(leftovers(dir.path()).empty());
    EXPECT_FALSE(fs::exists(dir.file("out/card/3.mp4")));
}

TEST(BatchBadInput, UnusableCommandLinesAndToolsAreRefusedBeforeAnything) {
    testsupport::TempDir dir;
    movie(dir, "card/a.mp4");
    const auto noTool = runBatch(dir.path(), "card -o out --tool ./none");
    EXPECT_EQ(noTool.status, 1);
    EXPECT_TRUE(contains(noTool.output, "tavrel-batch: ./none: cannot be run\nusage: tavrel-batch")) << noTool.output;
    const auto badPattern = runBatch(dir.path(), "card -o out -- -thumb:{base}.jpg");
    EXPECT_EQ(badPattern.status, 1);
    EXPECT_TRUE(contains(badPattern.output, "unknown placeholder {base}")) << badPattern.output;
    EXPECT_FALSE(fs::exists(dir.file("out")));
}

}  // namespace
}  // namespace e2e
