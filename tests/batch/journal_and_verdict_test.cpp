// The journal's lines, which earlier results let a run skip a movie, and
// what a child's ending means for its movie.
#include <gtest/gtest.h>

#include <fstream>
#include <optional>

#include "support/test_files.h"
#include "tools/batch/journal.h"
#include "tools/batch/verdict.h"

namespace batch {
namespace {

Movie movie() {
    Movie m;
    m.source = "/in/card/a.mp4";
    m.output = "/out/card/a.mp4";
    m.size = 1000;
    m.mtimeNs = 1700000000123456789;
    return m;
}

Entry okEntry() {
    Entry e;
    e.source = "/in/card/a.mp4";
    e.size = 1000;
    e.mtimeNs = 1700000000123456789;
    e.output = "/out/card/a.mp4";
    e.options = {"-vw:256"};
    e.status = Status::Ok;
    e.exitStatus = 0;
    e.bytesWritten = 1200;
    return e;
}

TEST(Journal, EntriesSurviveTheirLineAndTornLinesAreIgnored) {
    testsupport::TempDir dir;
    Entry refused = okEntry();
    refused.status = Status::Refused;
    refused.exitStatus.reset();
    refused.message = "a \"quoted\" \xC3\xA9 message";
    {
        JournalWriter writer;
        std::string cause;
        ASSERT_TRUE(writer.open(dir.file(journalName({2, 3})).string(), false, cause)) << cause;
        ASSERT_TRUE(writer.append(okEntry()));
        ASSERT_TRUE(writer.append(refused));
    }
    std::ofstream(dir.file("journal.jsonl")) << "{\"source\":\"/x\",\"size\":1\n";  // cut short by a kill
    std::ofstream(dir.file("other.jsonl")) << "not read\n";
    const std::vector<Entry> read = readJournals(dir.path().string());
    ASSERT_EQ(read.size(), 2u);
    const Entry& back = read[0].status == Status::Ok ? read[1] : read[0];
    EXPECT_EQ(back.message, refused.message);
    EXPECT_FALSE(back.exitStatus);
    EXPECT_EQ(back.mtimeNs, refused.mtimeNs);
    EXPECT_EQ(back.options, refused.options);
}

TEST(Journal, OnlyAnOkRunOfTheSameSourceOutputAndOptionsWithItsOutputInPlaceCounts) {
    // A changed source time and other options are tried end to end (BatchRun).
    const std::vector<std::string> options{"-vw:256"};
    Movie bigger = movie(), elsewhere = movie();
    bigger.size += 1;
    elsewhere.output = "/elsewhere/a.mp4";
    Entry failed = okEntry();
    failed.status = Status::Failed;
    const struct {
        const char* what;
        std::vector<Entry> entries;
        Movie movie;
        std::vector<std::string> options;
        std::optional<uint64_t> outputSize;
        bool done;
    } cases[] = {
        {"the same", {okEntry()}, movie(), options, 1200, true},
        {"output gone", {okEntry()}, movie(), options, std::nullopt, false},
        {"output replaced", {okEntry()}, movie(), options, 1199, false},
        {"no options", {okEntry()}, movie(), {}, 1200, false},
        {"source grown", {okEntry()}, bigger, options, 1200, false},
        {"output elsewhere", {okEntry()}, elsewhere, options, 1200, false},
        {"failed", {failed}, movie(), options, 1200, false},
        // A later failure does not undo an output that a run finished whole.
        {"ok, then failed", {okEntry(), failed}, movie(), options, 1200, true},
    };
    for (const auto& c : cases) EXPECT_EQ(DoneIndex(c.entries).done(c.movie, c.options, c.outputSize), c.done) << c.what;
}

ChildOutcome exited(int code, const std::string& output) {
    ChildOutcome outcome;
    outcome.exited = true;
    outcome.exitCode = code;
    outcome.output = output;
    return outcome;
}

TEST(Verdict, EachEndingHasItsStatusAndMessage) {
    EXPECT_EQ(judge(exited(0, "processing meta 100\n"), 0).status, Status::Ok);

    const Verdict refused =
        judge(exited(1, "source movie model: X\rprocessing 5\r/in/a.mp4: it is not a movie; nothing was written.\n"
                        "usage: tavrel [options]\n  -vw:WIDTH\n"),
              0);
    EXPECT_EQ(refused.status, Status::Refused);
    EXPECT_EQ(refused.exitStatus, 1);
    EXPECT_EQ(refused.message, "/in/a.mp4: it is not a movie; nothing was written.");

    const Verdict other = judge(exited(2, "first\nlast words  \n\n"), 0);
    EXPECT_EQ(other.status, Status::Failed);
    EXPECT_EQ(other.message, "the tool exited with status 2: last words");

    // A crash and a timeout are judged end to end (BatchBadInput).
    ChildOutcome stopped = exited(1, "/out/a.mp4: the run was interrupted; nothing was written.\n");
    stopped.interrupted = true;
    EXPECT_EQ(judge(stopped, 0).status, Status::Interrupted);
    EXPECT_EQ(judge(stopped, 0).message, "/out/a.mp4: the run was interrupted; nothing was written.");
    stopped.exitCode = 0;  // it finished before the signal came
    EXPECT_EQ(judge(stopped, 0).status, Status::Ok);

    ChildOutcome missing;
    missing.startError = "No such file or directory";
    EXPECT_EQ(judge(missing, 0).message, "the tool could not be started: No such file or directory");
}

}  // namespace
}  // namespace batch
