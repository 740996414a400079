// The tavrel command as a user meets it: the default paths, non-ASCII
// names, the view option, "-kill:", and the runs that must be refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <optional>

#include "box_walk.h"
#include "run_outcome.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;

const std::string kUsage = "usage: Tavrel.osx [options] [source.mp4] [output.mp4]\n";


TEST(CommandLine, WithoutArgumentsTheImagesFolderIsProcessedAndTheTimeTaken) {
    Workspace work(Source::Plain);
    std::filesystem::create_directory(work.file("images"));
    std::filesystem::copy_file(work.source(), work.file("images/source.mp4"));
    const auto run = work.run("");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "key-frame interval: 30\nvideo bitrate: 6000000\n")) << run.output;
    // The last line: an empty line, then seconds with four decimals.
    EXPECT_TRUE(std::regex_search(run.output, std::regex("\n\n[0-9]+\\.[0-9]{4} \\[sec\\]\n$"))) << run.output;
    EXPECT_EQ(packetHashes(work.file("images/tavrel.mp4")), packetHashes(work.source()));
    EXPECT_EQ(readFile(work.file("images/source.mp4")), readFile(work.source()));
}

TEST(CommandLine, NonAsciiPathsAreProcessed) {
    Workspace work(Source::A10);
    const std::string source = "\xE5\x8B\x95\xE7\x94\xBB.mp4", output = "\xE5\x87\xBA\xE5\x8A\x9B.mp4";
    std::filesystem::copy_file(work.source(), work.file(source));
    const auto run = work.run(source + " " + output + " -thumb:\xE5\x87\xBA.jpg");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(packetHashes(work.file(output)), packetHashes(work.source()));
    EXPECT_EQ(readFile(work.file(source)), readFile(work.source()));
    EXPECT_TRUE(std::filesystem::exists(work.file("\xE5\x87\xBA.jpg")));
}

TEST(CommandLine, AViewIsWrittenIntoTheXmlAndCanBeReplacedOrRemovedLater) {
    Workspace work(Source::Plain);
    const std::string view = "-XMP-GSpherical:InitialViewHeadingDegrees -XMP-GSpherical:InitialViewPitchDegrees ";
    ASSERT_EQ(work.run("source.mp4 view.mp4 -view:90,10").status, 0);
    EXPECT_EQ(exiftoolValues(work.file("view.mp4"), view), "90\n10\n");
    // A later heading replaces the movie's, the pitch stays.
    ASSERT_EQ(work.run("view.mp4 turned.mp4 -view:180,-5,75").status, 0);
    EXPECT_EQ(exiftoolValues(work.file("turned.mp4"), view + "-XMP-GSpherical:InitialHorizontalFOVDegrees"),
              "180\n-5\n75\n");
    ASSERT_EQ(work.run("view.mp4 plain.mp4 -view:-").status, 0);
    const std::string plain = readFile(work.file("plain.mp4"));
    const std::string xml = sphericalXml(plain, walkBoxes(plain));
    EXPECT_TRUE(contains(xml, "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>")) << xml;
    EXPECT_FALSE(contains(xml, "InitialView")) << xml;
    EXPECT_EQ(packetHashes(work.file("plain.mp4")), packetHashes(work.source()));
}

TEST(CommandLine, KillEndsTheProcessItNamesAndIdZeroExits1Silently) {
    const auto zero = testsupport::runCommand(tavrelExecutable().string() + " -kill:0", true);
    EXPECT_EQ(zero.status, 1);
    EXPECT_EQ(zero.output, "");
    // The child is waited for: its status says the signal ended it. (The
    // shell's own "Terminated" notice goes to standard error, left out.)
    const auto run = testsupport::runCommand("sleep 30 & child=$!; " + testsupport::shellQuote(tavrelExecutable().string()) +
                                             " -kill:$child 2>&1; echo \"kill=$?\"; wait $child; echo \"child=$?\"");
    EXPECT_EQ(run.output, "kill=0\nchild=143\n");
}

// Runs that cannot work: each ends in exit 1 with the usage text (never in
// a crash, whatever a step let escape), writes nothing and leaves no
// temporary file.
struct Refusal {
    std::string name;
    Source source;
    std::string broken;  // a kind of broken source.mp4 instead of the source
    std::string arguments;
    std::string says;
};

void makeBroken(const Workspace& work, const std::string& kind) {
    const std::string good = readFile(sourceMovie(Source::A10));
    std::string bytes;
    if (kind == "Truncated") {
        // The movie box comes last, so half the file has none.
        bytes = good.substr(0, good.size() / 2);
    } else if (kind == "RandomBytes") {
        uint32_t state = 12345;
        for (int i = 0; i < 100000; ++i) bytes += static_cast<char>((state = state * 1103515245u + 12345u) >> 24);
    } else if (kind == "DamagedMovieBox") {
        // The sample table's counts claim more than their boxes hold.
        bytes = good;
        const auto top = walkBoxes(bytes);
        for (const char* type : {"stsz", "stco", "stsc", "stts"}) {
            for (const Box* box : findBoxes(top, std::string("moov.trak.mdia.minf.stbl.") + type)) {
                bytes.replace(box->payloadStart() + (type == std::string("stsz") ? 8 : 4), 4, "\x7f\xff\xff\xff", 4);
            }
        }
    }
    if (kind == "Directory") {
        std::filesystem::create_directory(work.source());
    } else if (kind != "Missing") {
        testsupport::writeFile(work.source(), bytes);
    }
}

std::vector<Refusal> refusals() {
    const std::string usedPaths = "  source.mp4     : input file.\n    source.mp4\n  output.mp4     : output file.\n    out.mp4\n";
    std::vector<Refusal> all = {
        {"Help", Source::Plain, "", "source.mp4 out.mp4 -h", "\nTavrel 2.4.0.2018.01.10\n  Copyright (c) 2026 the Tavrel developers. License: GNU GPL version 2 or later.\n" + kUsage + usedPaths},
        {"ViewWithOneValue", Source::Plain, "", "source.mp4 out.mp4 -view:1", "invalid arguments for -view:\n\nTavrel "},
        {"OutputIsTheSourceDotted", Source::Plain, "", "source.mp4 ./source.mp4", "is the source movie itself"},
        {"OutputIsALinkToTheSource", Source::Plain, "", "source.mp4 link.mp4", "is the source movie itself"},
        {"OutputInAMissingFolder", Source::A10, "", "source.mp4 missing/out.mp4",
         "missing/out.mp4: its folder does not exist; nothing was written.\n\nTavrel "},
        {"OutputIsAFolder", Source::A10, "", "source.mp4 .", ".: it is a folder; nothing was written.\n\nTavrel "},
        {"NewestWithItsMovieBoxFirst", Source::NewestMoovFirst, "", "source.mp4 out.mp4",
         "processing meta    4 40.00/100.00\n"
         "source.mp4: its metadata could not be brought up to date: its movie box comes before its media data; "
         "nothing was written.\n"},
        {"StartAtTheEnd", Source::LowRate, "", "source.mp4 out.mp4 -ss:3",
         "source.mp4: the range -ss:3 holds no frame; nothing was written.\n"},
        {"EndBeforeStart", Source::LowRate, "", "source.mp4 out.mp4 -ss:2 -to:1",
         "source.mp4: the range -ss:2 -to:1 holds no frame; nothing was written.\n"},
    };
    const std::pair<const char*, std::string> broken[] = {
        {"Truncated", "it holds no movie box: it is not a movie"},
        {"RandomBytes", "it holds no movie box: it is not a movie"},
        {"DamagedMovieBox", "track 1's sample tables are cut short"},
        {"Empty", "it holds no movie box: it is not a movie"},
        {"Missing", "there is no such file"},
        {"Directory", "it is a folder, not a movie"},
    };
    for (const auto& [kind, cause] : broken) {
        // One line naming the file and the cause, then the usage.
        const std::string says = "source.mp4: " + cause + "; nothing was written.\n\nTavrel ";
        all.push_back({kind, Source::Plain, kind, "source.mp4 out.mp4", says});
        all.push_back({std::string(kind) + "Reencoding", Source::Plain, kind, "source.mp4 out.mp4 -vw:256", says});
    }
    return all;
}

class Refused : public testing::TestWithParam<Refusal> {};

TEST_P(Refused, ExitsWith1AndTheUsageAndWritesNothing) {
    const Refusal& r = GetParam();
    std::optional<Workspace> work;
    if (r.broken.empty()) {
        work.emplace(r.source);
    } else {
        work.emplace();
        makeBroken(*work, r.broken);
    }
    std::filesystem::create_symlink("source.mp4", work->file("link.mp4"));
    const auto before = namesIn(work->dir());
    const auto run = work->run(r.arguments);
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_TRUE(contains(run.output, kUsage)) << run.output;
    EXPECT_TRUE(contains(run.output, r.says)) << run.output;
    EXPECT_EQ(namesIn(work->dir()), before);
}

INSTANTIATE_TEST_SUITE_P(EachCase, Refused, testing::ValuesIn(refusals()),
                         [](const auto& p) { return p.param.name; });

}  // namespace
}  // namespace e2e
