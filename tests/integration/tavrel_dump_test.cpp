// tavrel-dump as a user runs it: exit status and the tree it prints.
#include <gtest/gtest.h>

#include "tools/builders/box_builder.h"
#include "support/run_command.h"
#include "support/test_files.h"

namespace {

using namespace testsupport;
using namespace builders;

std::string dumpCommand(const std::string& arguments) {
    return "LC_ALL=C.UTF-8 " + shellQuote(binaryDir() + "/tools/tavrel-dump") + " " + arguments;
}

TEST(TavrelDump, PrintsTheTreeOfAMovieWithANonAsciiName) {
    TempDir dir;
    const std::string name = "\xE5\x8B\x95\xE7\x94\xBB.mp4";
    writeFile(dir.file(name), buildMovie(MovieShape{}));
    const auto result = runCommand(dumpCommand(shellQuote(dir.file(name).string())));
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.output.find("MP4: == 'root': start=0"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("MP4:     <'trak': start="), std::string::npos) << result.output;
}

TEST(TavrelDump, UnreadablePathsFailWithALineEachButTheOthersAreStillDumped) {
    TempDir dir;
    writeFile(dir.file("good.mp4"), buildMovie(MovieShape{}));
    const auto result = runCommand(dumpCommand(shellQuote(dir.file("missing.mp4").string()) + " " +
                                               shellQuote(dir.path().string()) + " " +
                                               shellQuote(dir.file("good.mp4").string())));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("cannot open " + dir.file("missing.mp4").string()),
              std::string::npos)
        << result.output;
    EXPECT_NE(result.output.find("is a directory"), std::string::npos) << result.output;
    EXPECT_NE(result.output.find("MP4: == 'root'"), std::string::npos) << result.output;
}

TEST(TavrelDump, NoArgumentsPrintsUsage) {
    const auto result = runCommand(dumpCommand(""));
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.output.find("usage: tavrel-dump [--summary] FILE..."), std::string::npos);
}

}  // namespace
