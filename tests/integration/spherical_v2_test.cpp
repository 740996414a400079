// The V2 boxes beside the V1 XML, judged by ffprobe, exiftool and the
// tests' own box reader: one st3d and one sv3d right after the codec
// configuration, the view as a pose, and every packet kept.
#include <gtest/gtest.h>

#include <algorithm>

#include "box_walk.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;
using testsupport::runCommand;
using testsupport::shellQuote;

// The child types of the first video sample entry, read from the bytes.
std::vector<std::string> entryChildren(const std::string& file, std::vector<uint64_t>* starts = nullptr) {
    std::vector<std::string> types;
    for (const Box* stsd : findBoxes(walkBoxes(file), "moov.trak.mdia.minf.stbl.stsd")) {
        const uint64_t entry = stsd->payloadStart() + 8;
        if (entry + 8 > stsd->start + stsd->size) continue;
        const std::string kind = file.substr(entry + 4, 4);
        if (kind != "avc1" && kind != "hvc1" && kind != "hev1" && kind != "avc3") continue;
        const uint64_t end = entry + readBE32(file, entry);
        for (uint64_t at = entry + 8 + 78; at + 8 <= end;) {
            const uint32_t size = readBE32(file, at);
            if (size < 8 || at + size > end) break;
            types.push_back(file.substr(at + 4, 4));
            if (starts != nullptr) starts->push_back(at);
            at += size;
        }
        break;
    }
    return types;
}

std::string sideData(const std::filesystem::path& movie) {
    return runCommand("ffprobe -v error -select_streams v:0 -show_entries stream_side_data -of flat " +
                      shellQuote(movie.string()))
        .output;
}

const std::string kPoseTags = "-Track1:PoseYawDegrees -Track1:PosePitchDegrees -Track1:PoseRollDegrees "
                              "-XMP-GSpherical:InitialViewHeadingDegrees -XMP-GSpherical:InitialViewPitchDegrees";

void expectOneSetAfterTheConfiguration(const std::filesystem::path& movie) {
    const std::vector<std::string> children = entryChildren(readFile(movie));
    ASSERT_GE(children.size(), 3u) << movie;
    EXPECT_TRUE(children[0] == "avcC" || children[0] == "hvcC") << children[0];
    EXPECT_EQ(children[1], "st3d");
    EXPECT_EQ(children[2], "sv3d");
    EXPECT_EQ(std::count(children.begin(), children.end(), "st3d"), 1);
    EXPECT_EQ(std::count(children.begin(), children.end(), "sv3d"), 1);
}

class SphericalV2Layouts : public testing::TestWithParam<Source> {};

// A heading past the half turn and a pitch below the horizon: yaw -90 and
// pitch +10 by the mapping the README gives.
TEST_P(SphericalV2Layouts, TheViewBecomesThePoseAndEveryPacketIsKept) {
    Workspace work(GetParam());
    const auto run = work.convert("-view:270,-10");
    ASSERT_EQ(run.status, 0) << run.output;
    expectOneSetAfterTheConfiguration(work.output());
    const std::string side = sideData(work.output());
    EXPECT_TRUE(contains(side, "side_data_type=\"Spherical Mapping\"")) << side;
    EXPECT_TRUE(contains(side, "projection=\"equirectangular\"")) << side;
    EXPECT_TRUE(contains(side, "yaw=-90")) << side;
    EXPECT_TRUE(contains(side, "pitch=10")) << side;
    EXPECT_TRUE(contains(side, "roll=0")) << side;
    EXPECT_TRUE(contains(side, "type=\"2D\"")) << side;
    EXPECT_EQ(exiftoolValues(work.output(), kPoseTags), "-90\n10\n0\n270\n-10\n");
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
    const std::string dump = runCommand(toolCommand("tavrel-dump") + " " + shellQuote(work.output().string())).output;
    EXPECT_TRUE(contains(dump, "st3d: stereoMode=0\nsv3d: projection=equirectangular yaw=-90.000000 "
                               "pitch=10.000000 roll=0.000000 metadataSource='KORVA PANOX::"))
        << dump;
    EXPECT_EQ(decodeErrors(work.output()), "");
}

INSTANTIATE_TEST_SUITE_P(Sources, SphericalV2Layouts,
                         testing::Values(Source::Plain, Source::A10, Source::A10MoovFirst, Source::BC, Source::Newest),
                         [](const testing::TestParamInfo<Source>& p) { return sourceName(p.param); });

TEST(SphericalV2, RemovedViewValuesGiveAPoseOfZerosAndASecondRunKeepsOneSet) {
    Workspace work(Source::A10);
    ASSERT_EQ(work.convert("-view:90,20").status, 0);
    std::filesystem::rename(work.output(), work.file("first.mp4"));
    work.adopt("first.mp4");
    const auto run = work.run("first.mp4 out.mp4 -view:-");
    ASSERT_EQ(run.status, 0) << run.output;
    expectOneSetAfterTheConfiguration(work.output());
    EXPECT_EQ(exiftoolValues(work.output(), kPoseTags), "0\n0\n0\n");
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.file("first.mp4")));
}

TEST(SphericalV2, AFlatMovieGetsNeitherForm) {
    Workspace work(Source::Wide);
    ASSERT_EQ(work.convert().status, 0);
    const std::vector<std::string> children = entryChildren(readFile(work.output()));
    EXPECT_EQ(std::count(children.begin(), children.end(), "sv3d"), 0);
    EXPECT_EQ(std::count(children.begin(), children.end(), "st3d"), 0);
    EXPECT_EQ(sphericalXml(readFile(work.output()), walkBoxes(readFile(work.output()))), "");
}

TEST(SphericalV2, AReencodeCarriesOneSetWithTheView) {
    Workspace work(Source::Plain);
    const auto run = work.convert("-vw:256 -to:1 -view:90,20");
    ASSERT_EQ(run.status, 0) << run.output;
    expectOneSetAfterTheConfiguration(work.output());
    EXPECT_EQ(exiftoolValues(work.output(), kPoseTags), "90\n-20\n0\n90\n20\n");
    const std::string side = sideData(work.output());
    EXPECT_TRUE(contains(side, "yaw=90")) << side;
    EXPECT_TRUE(contains(side, "pitch=-20")) << side;
}

// A mesh projection is not ours to rewrite: its sv3d stays byte for byte
// but for the pose, and no second V1 box comes.
TEST(SphericalV2, AMeshSourceKeepsItsProjectionAndOnlyItsPoseTurns) {
    const std::filesystem::path movie =
        std::filesystem::path(TAVREL_SOURCE_DIR) / "tests/data/realworld/files/gvr-sphericalv2.mp4";
    Workspace work(movie, "gvr.mp4");
    const auto run = work.run("gvr.mp4 out.mp4 -view:300,-30");
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string in = readFile(work.source()), out = readFile(work.output());
    std::vector<uint64_t> inStarts, outStarts;
    const auto inChildren = entryChildren(in, &inStarts), outChildren = entryChildren(out, &outStarts);
    EXPECT_EQ(outChildren, inChildren);
    const auto sv3d = std::find(inChildren.begin(), inChildren.end(), "sv3d") - inChildren.begin();
    ASSERT_LT(size_t(sv3d), inChildren.size());
    const uint64_t size = readBE32(in, inStarts[sv3d]);
    const std::string before = in.substr(inStarts[sv3d], size), after = out.substr(outStarts[sv3d], size);
    ASSERT_EQ(before.size(), after.size());
    // sv3d(8) svhd(13) proj(8) prhd header(12): the three pose values follow.
    EXPECT_EQ(after.substr(0, 41), before.substr(0, 41));
    EXPECT_EQ(after.substr(53), before.substr(53));
    EXPECT_EQ(exiftoolValues(work.output(), "-Track1:PoseYawDegrees -Track1:PosePitchDegrees"), "-60\n30\n");
    const auto top = walkBoxes(out);
    EXPECT_EQ(uuidBoxes(out, top, "moov.trak.uuid", kSphericalXmlUuid).size(), 1u);
    EXPECT_TRUE(contains(sideData(work.output()), "type=\"top and bottom\""));
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
}

}  // namespace
}  // namespace e2e
