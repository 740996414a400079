// tavrel-batch with the real tavrel: folders and files in, outputs where the
// mapping says, a journal entry per movie that matches the schema, and a
// second run of the same command that redoes only what is not done.
#include <gtest/gtest.h>

#include <filesystem>

#include "batch_support.h"
#include "support/test_files.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testsupport::shellQuote;

void place(const fs::path& from, const fs::path& to) {
    fs::create_directories(to.parent_path());
    fs::copy_file(from, to);
}

TEST(BatchRun, RunsFoldersAndFilesRecordsEachMovieAndResumesWhereItStopped) {
    testsupport::TempDir dir;
    place(sourceMovie(Source::Newest), dir.file("card/DCIM/NEWEST.MP4"));
    place(sourceMovie(Source::A10), dir.file("card/DCIM/sub/older.mov"));
    place(sourceMovie(Source::Plain), dir.file("single.mp4"));
    testsupport::writeFile(dir.file("card/notes.txt"), "not a movie, not taken");
    testsupport::writeFile(dir.file("card/broken.mp4"), "not a movie either, but named like one");

    // The output folder lies inside the input folder: it is never taken as input.
    const std::string command = "card single.mp4 -o card/processed -j 2 --json report.json -- -view:90,-10 "
                                "-thumb:{dir}/{stem}.jpg";
    const auto first = runBatch(dir.path(), command);
    EXPECT_EQ(first.status, 1) << first.output;  // broken.mp4 is refused
    EXPECT_TRUE(contains(first.output, "4 movies: 3 ok, 1 refused, 0 failed, 0 interrupted, 0 skipped")) << first.output;
    EXPECT_TRUE(contains(first.output, "[4/4] ")) << first.output;

    const fs::path out = dir.file("card/processed");
    for (const char* made : {"card/DCIM/NEWEST.MP4", "card/DCIM/NEWEST.jpg", "card/DCIM/sub/older.mov",
                             "card/DCIM/sub/older.jpg", "single.mp4", "single.jpg"}) {
        EXPECT_TRUE(fs::is_regular_file(out / made)) << made;
    }
    EXPECT_FALSE(fs::exists(out / "card/broken.mp4"));
    // The tool options reached tavrel.
    const auto dump = testsupport::runCommand(toolCommand("tavrel-dump") + " " + shellQuote((out / "single.mp4").string()));
    EXPECT_TRUE(contains(dump.output, "view: heading=90.000000 pitch=-10.000000")) << dump.output;

    const std::vector<nlohmann::json> journal = jsonLines(out / "journal.jsonl");
    ASSERT_EQ(journal.size(), 4u);
    const nlohmann::json newest = entryFor(journal, "/card/DCIM/NEWEST.MP4");
    EXPECT_EQ(newest["status"], "ok");
    EXPECT_EQ(newest["exit_status"], 0);
    EXPECT_EQ(newest["output"], (out / "card/DCIM/NEWEST.MP4").string());
    EXPECT_EQ(newest["size"], fs::file_size(dir.file("card/DCIM/NEWEST.MP4")));
    EXPECT_EQ(newest["bytes_written"], fs::file_size(out / "card/DCIM/NEWEST.MP4"));
    EXPECT_EQ(newest["options"], (nlohmann::json{"-view:90,-10", "-thumb:{dir}/{stem}.jpg"}));
    const nlohmann::json broken = entryFor(journal, "/card/broken.mp4");
    EXPECT_EQ(broken["status"], "refused");
    EXPECT_EQ(broken["exit_status"], 1);
    EXPECT_TRUE(contains(broken["message"], "broken.mp4: ")) << broken;
    EXPECT_TRUE(contains(broken["message"], "; nothing was written.")) << broken;
    EXPECT_EQ(schemaProblem("tavrel-batch.schema.json", out / "journal.jsonl", "entry"), "");
    EXPECT_EQ(schemaProblem("tavrel-batch.schema.json", dir.file("report.json")), "");
    const nlohmann::json report = jsonFile(dir.file("report.json"));
    EXPECT_EQ(report["version"], 1);
    EXPECT_EQ(report["entries"].size(), 4u);
    EXPECT_EQ(report["summary"]["ok"], 3);

    // Again: the done movies are skipped; a source touched since is redone.
    fs::last_write_time(dir.file("single.mp4"), fs::last_write_time(dir.file("single.mp4")) + std::chrono::seconds(5));
    const auto second = runBatch(dir.path(), command);
    EXPECT_EQ(second.status, 1) << second.output;
    EXPECT_TRUE(contains(second.output, "4 movies: 1 ok, 1 refused, 0 failed, 0 interrupted, 2 skipped")) << second.output;
    const std::vector<nlohmann::json> again = jsonLines(out / "journal.jsonl");
    ASSERT_EQ(again.size(), 6u);  // skipped movies are not written again
    EXPECT_EQ(again[4]["status"].get<std::string>() + again[5]["status"].get<std::string>(),
              again[4]["source"] == broken["source"] ? "refusedok" : "okrefused");
    // Other tool options are another job.
    const auto third = runBatch(dir.path(), "card single.mp4 -o card/processed --dry-run -- -view:0,0");
    EXPECT_EQ(third.status, 0) << third.output;
    EXPECT_TRUE(contains(third.output, "4 to run, 0 not")) << third.output;
    EXPECT_TRUE(leftovers(dir.path()).empty());
}

TEST(BatchRun, OnATerminalOneLineIsRedrawnAndOnlyTheFailuresGetLinesOfTheirOwn) {
    testsupport::TempDir dir;
    writeScript(dir.file("tool"), "[[ $1 == *bad* ]] && { echo \"$1: no; nothing was written.\"; exit 1; }\ncp \"$1\" \"$2\"\n");
    for (const char* name : {"card/1.mp4", "card/2-bad.mp4", "card/3.mp4"}) {
        fs::create_directories(dir.file(name).parent_path());
        testsupport::writeFile(dir.file(name), name);
    }
    // script(1) gives the batch a terminal.
    const auto run = testsupport::runCommand(
        "cd " + shellQuote(dir.path().string()) + " && TAVREL_BATCH_TOOL=./tool script -qec " +
        shellQuote(shellQuote(batchCommand()) + " card -o out -j 1") + " /dev/null");
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_TRUE(contains(run.output, "\r\033[K[1/3] 10 B, ")) << run.output;
    EXPECT_TRUE(contains(run.output, "\r\033[Krefused " + dir.file("card/2-bad.mp4").string() + ": no; nothing was written.\r\n"))
        << run.output;
    EXPECT_TRUE(contains(run.output, "\r\033[K3 movies: 2 ok, 1 refused")) << run.output;
    EXPECT_FALSE(contains(run.output, "ok " + dir.file("card/1.mp4").string())) << run.output;
}

TEST(DumpJson, EveryFileGetsItsObjectMatchingTheSchemaAndTheTextDump) {
    testsupport::TempDir dir;
    fs::copy_file(sourceMovie(Source::Newest), dir.file("newest.mp4"));
    fs::copy_file(sourceMovie(Source::A10), dir.file("a10.mp4"));
    const auto run = testsupport::runCommand("cd " + shellQuote(dir.path().string()) + " && " +
                                             toolCommand("tavrel-dump") +
                                             " --json newest.mp4 missing.mp4 a10.mp4 . > dump.json");
    EXPECT_EQ(run.status, 1);  // two paths cannot be read
    EXPECT_EQ(schemaProblem("tavrel-dump.schema.json", dir.file("dump.json")), "");
    const nlohmann::json all = jsonFile(dir.file("dump.json"));
    ASSERT_EQ(all.size(), 4u);
    EXPECT_EQ(nlohmann::ordered_json::parse(testsupport::readFile(dir.file("dump.json")))[0].begin().key(), "file");
    EXPECT_EQ(all[1]["file"], "missing.mp4");
    EXPECT_EQ(all[1]["error"]["code"], "cannot-open");
    EXPECT_EQ(all[3]["error"]["code"], "is-a-folder");

    const nlohmann::json& newest = all[0];
    EXPECT_EQ(newest["summary"]["model"], "KORVA PANOX D");
    EXPECT_EQ(newest["summary"]["code"], 0x20001);
    EXPECT_EQ(newest["summary"]["codec"], "H.264");
    EXPECT_EQ(newest["summary"]["width"], 512);
    EXPECT_EQ(newest["summary"]["record"]["projectionType"], 3);
    ASSERT_EQ(newest["camera"]["sensors"].size(), 3u);
    for (const auto& sensor : newest["camera"]["sensors"]) EXPECT_EQ(sensor["records"], kSensorRecords) << sensor;
    EXPECT_EQ(newest["camera"]["makerRecords"][0]["record"]["model"], "KORVA PANOX D");
    bool spatial = false;
    for (const auto& box : newest["boxes"]) spatial = spatial || box.contains("uuid");
    EXPECT_TRUE(spatial) << "the spatial-data block is a uuid box with its identifier";
    EXPECT_EQ(newest["parameterSets"][0]["decoded"], true);

    // The same facts as the text dump prints.
    const auto text = testsupport::runCommand(toolCommand("tavrel-dump") + " " + shellQuote(dir.file("a10.mp4").string()));
    const nlohmann::json& a10 = all[2];
    ASSERT_FALSE(a10["locations"].empty());
    const auto& location = a10["locations"][0];
    char line[200];
    std::snprintf(line, sizeof line, "location: %s '%s' latitude=%.6f longitude=%.6f", location["box"].get<std::string>().c_str(),
                  location["text"].get<std::string>().c_str(), location["latitude"].get<double>(),
                  location["longitude"].get<double>());
    EXPECT_TRUE(contains(text.output, line)) << line << "\n" << text.output;
}

TEST(DumpJson, MoviesFromOtherSoftwareAndHostileFilesAllMatchTheSchema) {
    const std::string root = TAVREL_SOURCE_DIR;
    for (const std::string& files : {root + "/tests/data/realworld/files", root + "/fuzz/corpus/box_tree_fuzz",
                                    root + "/fuzz/corpus/meta_builder_fuzz"}) {
        testsupport::TempDir dir;
        const auto run = testsupport::runCommand(toolCommand("tavrel-dump") + " --json " + shellQuote(files) +
                                                 "/* > " + shellQuote(dir.file("dump.json").string()));
        EXPECT_EQ(run.status, 0) << files;
        EXPECT_EQ(schemaProblem("tavrel-dump.schema.json", dir.file("dump.json")), "") << files;
        size_t count = 0;
        for ([[maybe_unused]] const auto& file : fs::directory_iterator(files)) ++count;
        EXPECT_EQ(jsonFile(dir.file("dump.json")).size(), count) << files;
    }
}

}  // namespace
}  // namespace e2e
