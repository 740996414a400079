// The tavrel command as a user meets it: the default paths, the usage text,
// the options that are no paths, the automatic lines, "-kill:", and what
// happens with sources and outputs that cannot work.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "box_walk.h"
#include "movie_oracles.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;
using testsupport::shellQuote;

const std::string kUsage = "usage: Tavrel.osx [options] [source.mp4] [output.mp4]\n";

std::string sphericalXmlOf(const std::filesystem::path& movie) {
    const std::string file = readFile(movie);
    const auto top = walkBoxes(file);
    for (const Box* track : findBoxes(top, "moov.trak")) {
        for (const auto& child : track->children) {
            if (uuidOf(file, child) == kSphericalXmlUuid) return payloadOf(file, child);
        }
    }
    return "";
}

std::vector<std::string> namesIn(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
        names.push_back(entry.path().lexically_relative(dir).string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(CommandLine, WithoutArgumentsTheImagesFolderIsProcessed) {
    Workspace work(Source::Plain);
    std::filesystem::create_directory(work.file("images"));
    std::filesystem::copy_file(work.source(), work.file("images/source.mp4"));
    const auto run = work.run("");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "key-frame interval: 30\n")) << run.output;
    EXPECT_TRUE(contains(run.output, "video bitrate: 6000000\n")) << run.output;
    // The last line: an empty line, then seconds with four decimals.
    const size_t line = run.output.rfind('\n', run.output.size() - 2);
    double seconds = -1;
    char unit[8] = {};
    ASSERT_NE(line, std::string::npos);
    EXPECT_EQ(run.output.substr(line - 1, 2), "\n\n");
    EXPECT_EQ(std::sscanf(run.output.c_str() + line + 1, "%lf [%7[^]]]", &seconds, unit), 2) << run.output;
    EXPECT_GE(seconds, 0.0);
    EXPECT_STREQ(unit, "sec");
    EXPECT_EQ(run.output.substr(run.output.find('.', line) + 5), " [sec]\n");
    EXPECT_EQ(packetHashes(work.file("images/tavrel.mp4")), packetHashes(work.source()));
    EXPECT_EQ(readFile(work.file("images/source.mp4")), readFile(work.source()));
}

TEST(CommandLine, DashHPrintsTheUsageTextAndExits1) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-h");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.output, "\nTavrel 2.4.0.2018.01.10\n")) << run.output;
    EXPECT_TRUE(contains(run.output, kUsage + "  source.mp4     : input file.\n    source.mp4\n"
                                              "  output.mp4     : output file.\n    out.mp4\n"))
        << run.output;
    EXPECT_FALSE(std::filesystem::exists(work.output()));
}

TEST(CommandLine, H264AloneDoesNotReencode) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-h264");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_FALSE(contains(run.output, "processing frame")) << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
}

TEST(CommandLine, AViewWithOneValueIsRejected) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-view:1");
    EXPECT_EQ(run.status, 1);
    EXPECT_TRUE(contains(run.output, "invalid arguments for -view:\n" "\nTavrel ")) << run.output;
    EXPECT_FALSE(std::filesystem::exists(work.output()));
}

TEST(CommandLine, AViewIsWrittenIntoTheXmlAndCanBeReplacedOrRemovedLater) {
    Workspace work(Source::Plain);
    ASSERT_EQ(work.run("source.mp4 view.mp4 -view:90,10").status, 0);
    std::string xml = sphericalXmlOf(work.file("view.mp4"));
    EXPECT_TRUE(contains(xml, "  <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"))
        << xml;
    EXPECT_TRUE(contains(xml, "  <GSpherical:InitialViewPitchDegrees>10</GSpherical:InitialViewPitchDegrees>\n"))
        << xml;
    EXPECT_EQ(exiftoolValues(work.file("view.mp4"), "-XMP-GSpherical:InitialViewHeadingDegrees "
                                                    "-XMP-GSpherical:InitialViewPitchDegrees"),
              "90\n10\n");

    // A later heading replaces the movie's, the pitch stays.
    ASSERT_EQ(work.run("view.mp4 turned.mp4 -view:180,-5,75").status, 0);
    EXPECT_EQ(exiftoolValues(work.file("turned.mp4"), "-XMP-GSpherical:InitialViewHeadingDegrees "
                                                      "-XMP-GSpherical:InitialViewPitchDegrees "
                                                      "-XMP-GSpherical:InitialHorizontalFOVDegrees"),
              "180\n-5\n75\n");

    ASSERT_EQ(work.run("view.mp4 plain.mp4 -view:-").status, 0);
    xml = sphericalXmlOf(work.file("plain.mp4"));
    EXPECT_TRUE(contains(xml, "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>")) << xml;
    EXPECT_FALSE(contains(xml, "InitialView")) << xml;
    EXPECT_EQ(packetHashes(work.file("plain.mp4")), packetHashes(work.source()));
}

TEST(CommandLine, KillWithIdZeroExits1Silently) {
    Workspace work;
    const auto run = work.run("-kill:0");
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output, "");
}

TEST(CommandLine, KillEndsTheProcessItNames) {
    Workspace work;
    // The child is waited for: its status says the signal ended it.
    const auto run = testsupport::runCommand(
        "sleep 30 & child=$!; " + shellQuote(tavrelExecutable().string()) +
            " -kill:$child; echo \"kill=$?\"; wait $child; echo \"child=$?\"",
        true);
    EXPECT_EQ(run.output, "kill=0\nchild=143\n");
}

TEST(CommandLine, AnOutputNamingTheSourceIsRefused) {
    Workspace work(Source::Plain);
    std::filesystem::create_symlink("source.mp4", work.file("link.mp4"));
    for (const std::string& output :
         std::vector<std::string>{"source.mp4", "./source.mp4", "link.mp4", shellQuote(work.source().string())}) {
        SCOPED_TRACE(output);
        const auto run = work.run("source.mp4 " + output);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_TRUE(contains(run.output, "is the source movie itself")) << run.output;
        EXPECT_TRUE(contains(run.output, kUsage)) << run.output;
    }
    EXPECT_EQ(namesIn(work.dir()), (std::vector<std::string>{"link.mp4", "source.mp4"}));
}

TEST(CommandLine, AnOutputInAMissingFolderFailsAndLeavesNothing) {
    for (const std::string options : {"", "-vw:256"}) {
        SCOPED_TRACE(options);
        Workspace work(Source::A10);
        const auto run = work.run("source.mp4 missing/out.mp4 " + options);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_TRUE(contains(run.output, kUsage)) << run.output;
        EXPECT_EQ(namesIn(work.dir()), std::vector<std::string>{"source.mp4"});
    }
}

TEST(CommandLine, NonAsciiPathsAreProcessed) {
    Workspace work(Source::A10);
    const std::string source = "\xE5\x8B\x95\xE7\x94\xBB.mp4";
    const std::string output = "\xE5\x87\xBA\xE5\x8A\x9B.mp4";
    std::filesystem::copy_file(work.source(), work.file(source));
    const auto run = work.run(source + " " + output + " -thumb:\xE5\x87\xBA.jpg");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(packetHashes(work.file(output)), packetHashes(work.source()));
    EXPECT_EQ(readFile(work.file(source)), readFile(work.source()));
    EXPECT_TRUE(std::filesystem::exists(work.file("\xE5\x87\xBA.jpg")));
}

TEST(CommandLine, ANewestCameraMovieWithItsMovieBoxFirstFailsAndLeavesNothing) {
    Workspace work(Source::NewestMoovFirst);
    const auto run = work.convert();
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_TRUE(contains(run.output, "processing meta    4 40.00/100.00\nupdateMeta failed.\n")) << run.output;
    EXPECT_TRUE(contains(run.output, kUsage)) << run.output;
    EXPECT_EQ(namesIn(work.dir()), std::vector<std::string>{"source.mp4"});
}

// Sources that cannot be processed: each run ends in exit 1 with the usage
// text (never in a crash) and leaves no output.
class BrokenSource : public testing::TestWithParam<std::string> {};

void makeBroken(const Workspace& work, const std::string& kind) {
    const std::string good = readFile(sourceMovie(Source::A10));
    std::string bytes;
    if (kind == "truncated") {
        // The movie box comes last, so half the file has none.
        bytes = good.substr(0, good.size() / 2);
    } else if (kind == "random bytes") {
        uint32_t state = 12345;
        for (int i = 0; i < 100000; ++i) {
            state = state * 1103515245u + 12345u;
            bytes += static_cast<char>(state >> 24);
        }
    } else if (kind == "damaged movie box") {
        // The sample table's sizes claim more than their boxes hold.
        bytes = good;
        const auto top = walkBoxes(bytes);
        for (const char* path : {"moov.trak.mdia.minf.stbl.stsz", "moov.trak.mdia.minf.stbl.stco",
                                 "moov.trak.mdia.minf.stbl.stsc", "moov.trak.mdia.minf.stbl.stts"}) {
            for (const Box* box : findBoxes(top, path)) {
                const uint64_t count = box->payloadStart() + (std::string(path).ends_with("stsz") ? 8 : 4);
                bytes.replace(count, 4, "\x7f\xff\xff\xff", 4);
            }
        }
    } else if (kind == "empty") {
        bytes = "";
    }
    if (kind == "a directory") {
        std::filesystem::create_directory(work.file("in.mp4"));
    } else if (kind != "missing") {
        testsupport::writeFile(work.file("in.mp4"), bytes);
    }
}

TEST_P(BrokenSource, FailsWithTheUsageTextAndLeavesNoOutput) {
    for (const std::string options : {"", "-vw:256"}) {
        SCOPED_TRACE(options);
        Workspace work;
        makeBroken(work, GetParam());
        const auto before = namesIn(work.dir());
        const auto run = work.run("in.mp4 out.mp4 " + options);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_TRUE(contains(run.output, kUsage)) << run.output;
        const auto after = namesIn(work.dir());
        EXPECT_EQ(after, before);
    }
}

INSTANTIATE_TEST_SUITE_P(EachKind, BrokenSource,
                         testing::Values("truncated", "random bytes", "damaged movie box", "empty", "missing",
                                         "a directory"),
                         [](const auto& kind) {
                             std::string name;
                             for (char c : kind.param) name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                             return name;
                         });

}  // namespace
}  // namespace e2e
