// tavrel without re-encoding options: the output carries every packet of
// the source unchanged and the camera metadata as each generation needs it,
// read back by ffmpeg, exiftool and the tests' own box reader.
#include <gtest/gtest.h>

#include <sstream>

#include "box_walk.h"
#include "camera_boxes.h"
#include "movie_oracles.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

using testsupport::readFile;

// Both top-level boxes there, the first one before the second.
void expectInOrder(const std::vector<Box>& top, const std::string& first, const std::string& second) {
    auto at = [&top](const std::string& type) {
        for (size_t i = 0; i < top.size(); ++i) {
            if (top[i].type == type) return static_cast<int>(i);
        }
        return -1;
    };
    ASSERT_GE(at(first), 0) << first;
    ASSERT_GE(at(second), 0) << second;
    EXPECT_LT(at(first), at(second));
}

std::vector<const Box*> uuidBoxes(const std::string& file, const std::vector<Box>& top, const std::string& path,
                                  const std::string& id) {
    std::vector<const Box*> out;
    for (const Box* box : findBoxes(top, path)) {
        if (uuidOf(file, *box) == id) out.push_back(box);
    }
    return out;
}

// The spherical XML of the video track (the first track): empty when absent.
std::string sphericalXml(const std::string& file, const std::vector<Box>& top) {
    const auto tracks = findBoxes(top, "moov.trak");
    if (tracks.empty()) return "";
    for (const auto& child : tracks.front()->children) {
        if (uuidOf(file, child) == kSphericalXmlUuid) return payloadOf(file, child);
    }
    return "";
}

std::vector<double> numbers(const std::string& text) {
    std::istringstream in(text);
    std::vector<double> out;
    for (double v; in >> v;) out.push_back(v);
    return out;
}

// The XML as the output needs it: the fixed properties, then blank padding
// up to exactly 1000 characters.
void expectPaddedSphericalXml(const std::string& xml) {
    ASSERT_EQ(xml.size(), 1000u);
    EXPECT_EQ(xml.rfind("<rdf:SphericalVideo", 0), 0u) << xml;
    const size_t end = xml.find("</rdf:SphericalVideo>\n");
    ASSERT_NE(end, std::string::npos);
    const size_t padding = end + std::string("</rdf:SphericalVideo>\n").size();
    EXPECT_EQ(xml.find_first_not_of(' ', padding), std::string::npos);
    EXPECT_TRUE(contains(xml, "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>"));
}

// exiftool's reading of the position (from the XMP packet and, with
// location boxes, from them too), the XMP flag and the spherical XML.
void expectExiftoolReadsPositionAndSphere(const std::filesystem::path& movie, bool locationBoxes) {
    std::string tags = "-XMP-exif:GPSLatitude -XMP-exif:GPSLongitude -XMP:VideoReEncorded -XMP-GSpherical:Spherical "
                       "-XMP-GSpherical:ProjectionType -XMP-GSpherical:StitchingSoftware";
    if (locationBoxes) tags += " -QuickTime:GPSCoordinates";
    std::istringstream text(exiftoolValues(movie, tags));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), locationBoxes ? 7u : 6u) << text.str();
    EXPECT_NEAR(std::stod(lines[0]), 35.6586, 1e-4);
    EXPECT_NEAR(std::stod(lines[1]), 139.7454, 1e-4);
    EXPECT_EQ(std::vector<std::string>(lines.begin() + 2, lines.begin() + 6),
              (std::vector<std::string>{"false", "true", "equirectangular", "KORVA PANOX::Seamwright"}));
    if (locationBoxes) {
        const auto position = numbers(lines[6]);
        ASSERT_EQ(position.size(), 2u);
        EXPECT_NEAR(position[0], 35.6586, 1e-4);
        EXPECT_NEAR(position[1], 139.7454, 1e-4);
    }
}

class OlderGeneration : public testing::TestWithParam<Source> {};

TEST_P(OlderGeneration, KeepsEveryPacketAndWritesTheMovieBoxFirstWithTheCameraMetadata) {
    Workspace work(GetParam());
    const auto run = work.convert();
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "source movie model: " + modelOf(GetParam()))) << run.output;
    EXPECT_TRUE(contains(run.output, "Appned New GVF-BOX.\n")) << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));

    const std::string in = readFile(work.source());
    const std::string out = readFile(work.output());
    const auto src = walkBoxes(in);
    const auto top = walkBoxes(out);
    expectInOrder(top, "moov", "mdat");

    expectPaddedSphericalXml(sphericalXml(out, top));

    const auto xmp = uuidBoxes(out, top, "uuid", kXmpUuid);
    ASSERT_EQ(xmp.size(), 1u);
    EXPECT_TRUE(contains(payloadOf(out, *xmp[0]), "<VideoReEncorded>false</VideoReEncorded>"));
    // The AXIS stream goes over as it was.
    const auto axisIn = uuidBoxes(in, src, "uuid", kAxisUuid);
    const auto axisOut = uuidBoxes(out, top, "uuid", kAxisUuid);
    ASSERT_EQ(axisIn.size(), 1u);
    ASSERT_EQ(axisOut.size(), 1u);
    EXPECT_EQ(payloadOf(out, *axisOut[0]), payloadOf(in, *axisIn[0]));

    // The short loci is replaced by the full one, beside the other two
    // location forms; the maker boxes stay as they were.
    const auto loci = findBoxes(top, "moov.udta.loci");
    ASSERT_EQ(loci.size(), 1u);
    EXPECT_EQ(loci[0]->size, 32u);
    const auto xyz = findBoxes(top, "moov.udta.@xyz");
    ASSERT_EQ(xyz.size(), 1u);
    EXPECT_EQ(payloadOf(out, *xyz[0]), "+35.6586+139.7454+040.000/");
    EXPECT_EQ(findBoxes(top, "moov.udta.\xA9xyz").size(), 1u);
    for (const char* path : {"moov.udta.@mod", "moov.udta.KMKN"}) {
        const auto before = findBoxes(src, path);
        const auto after = findBoxes(top, path);
        ASSERT_EQ(after.size(), 1u) << path;
        EXPECT_EQ(payloadOf(out, *after[0]), payloadOf(in, *before[0])) << path;
    }

    expectExiftoolReadsPositionAndSphere(work.output(), true);
    expectSourcesCreationTime(work.output());
}

INSTANTIATE_TEST_SUITE_P(EachLayout, OlderGeneration,
                         testing::Values(Source::A10, Source::A10MoovFirst, Source::B, Source::BMoovFirst,
                                         Source::BC, Source::BCMoovFirst),
                         [](const auto& source) { return sourceName(source.param); });

TEST(NewestGeneration, CopiesTheUserDataWithTheMakerRecordPatchedAndCarriesTheSpatialBlock) {
    Workspace work(Source::Newest);
    const auto run = work.convert();
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "source movie model: KORVA PANOX D (20001)\n")) << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));

    const std::string in = readFile(work.source());
    const std::string out = readFile(work.output());
    const auto src = walkBoxes(in);
    const auto top = walkBoxes(out);
    // The newest cameras keep their media data first.
    expectInOrder(top, "mdat", "moov");
    expectPaddedSphericalXml(sphericalXml(out, top));

    const auto udtaIn = findBoxes(src, "moov.udta");
    const auto udtaOut = findBoxes(top, "moov.udta");
    ASSERT_EQ(udtaIn.size(), 1u);
    ASSERT_EQ(udtaOut.size(), 1u);
    ASSERT_EQ(udtaOut[0]->children.size(), udtaIn[0]->children.size());
    for (size_t i = 0; i < udtaIn[0]->children.size(); ++i) {
        const Box& before = udtaIn[0]->children[i];
        const Box& after = udtaOut[0]->children[i];
        SCOPED_TRACE(before.type);
        EXPECT_EQ(after.type, before.type);
        ASSERT_EQ(after.size, before.size);
        const std::string was = payloadOf(in, before);
        const std::string is = payloadOf(out, after);
        if (before.type == "KMKN") {
            // Only the projection type changed: its SHORT value 3 became 1.
            std::vector<size_t> changed;
            for (size_t b = 0; b < was.size(); ++b) {
                if (was[b] != is[b]) changed.push_back(b);
            }
            ASSERT_EQ(changed.size(), 1u);
            EXPECT_EQ(was[changed[0]], 3);
            EXPECT_EQ(is[changed[0]], 1);
        } else if (before.type == "KTHU") {
            EXPECT_EQ(is.substr(0, 2), "\xFF\xD8");
        } else if (before.type == "KDT9") {
            EXPECT_EQ(is.substr(16), was.substr(16));
        } else {
            EXPECT_EQ(is, was);
        }
    }

    // The thumbnail is a decodable JPEG of the movie's first frame, which
    // fits 640 x 320 as it is.
    const Box* thumbnail = findBoxes(top, "moov.udta.KTHU").front();
    testsupport::writeFile(work.file("thumbnail.jpg"), payloadOf(out, *thumbnail));
    const Fields jpeg = streamFields(work.file("thumbnail.jpg"), "v:0");
    EXPECT_EQ(jpeg.at("codec_name"), "mjpeg");
    EXPECT_EQ(jpeg.at("width"), "512");
    EXPECT_EQ(jpeg.at("height"), "256");
    EXPECT_EQ(decodeErrors(work.file("thumbnail.jpg")), "");

    // The whole spatial block, pointing at its new place.
    const SpatialBlock before = readSpatialBlock(in, src);
    const SpatialBlock after = readSpatialBlock(out, top);
    ASSERT_TRUE(after.found);
    EXPECT_EQ(kdt9Locator(out, top), std::make_pair(after.start, after.size));
    EXPECT_EQ(after.audio, before.audio);
    EXPECT_EQ(after.sampleCount, 3 * kSpatialRate);
    ASSERT_FALSE(after.chunkOffsets.empty());
    for (size_t i = 0; i < after.chunkOffsets.size(); ++i) {
        EXPECT_EQ(after.chunkOffsets[i], after.audioStart + i * 1536 * kSpatialSampleSize);
        EXPECT_LT(after.chunkOffsets[i], after.audioStart + after.audio.size());
    }

    ASSERT_EQ(uuidBoxes(out, top, "uuid", kXmpUuid).size(), 1u);
    expectExiftoolReadsPositionAndSphere(work.output(), false);
    expectSourcesCreationTime(work.output());
}

TEST(NewestGeneration, AThumbnailBoxWithoutRoomForAJpegBecomesFreeSpace) {
    Workspace work(Source::NewestNoRoom);
    const auto run = work.convert();
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string out = readFile(work.output());
    const auto top = walkBoxes(out);
    EXPECT_TRUE(findBoxes(top, "moov.udta.KTHU").empty());
    const auto free = findBoxes(top, "moov.udta.free");
    ASSERT_EQ(free.size(), 1u);
    EXPECT_EQ(free[0]->size, 64u + 8u);
    EXPECT_EQ(payloadOf(out, *free[0]), std::string(64, '\0'));
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
}

TEST(NonCameraMovie, A2To1MovieGetsTheSphericalXmlAndXmpButNoLocation) {
    Workspace work(Source::Plain);
    const auto run = work.convert();
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "KMKN not found.\n")) << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
    const std::string out = readFile(work.output());
    const auto top = walkBoxes(out);
    expectInOrder(top, "moov", "mdat");
    expectPaddedSphericalXml(sphericalXml(out, top));
    EXPECT_TRUE(findBoxes(top, "moov.udta.loci").empty());
    EXPECT_TRUE(findBoxes(top, "moov.udta.@xyz").empty());
    const auto xmp = uuidBoxes(out, top, "uuid", kXmpUuid);
    ASSERT_EQ(xmp.size(), 1u);
    EXPECT_FALSE(contains(payloadOf(out, *xmp[0]), "GPSLatitude"));
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP:VideoReEncorded -XMP-GSpherical:Stitched"), "false\ntrue\n");
}

TEST(NonCameraMovie, A16To9MovieIsNotSphericalAndGetsNoXml) {
    Workspace work(Source::Wide);
    const auto run = work.convert();
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(contains(run.output, "MP4: Not a spherical video.\n")) << run.output;
    EXPECT_FALSE(contains(run.output, "GVF-BOX")) << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
    const std::string out = readFile(work.output());
    const auto top = walkBoxes(out);
    EXPECT_EQ(sphericalXml(out, top), "");
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP-GSpherical:all"), "");
    EXPECT_EQ(exiftoolValues(work.output(), "-XMP:VideoReEncorded"), "false\n");
}

// A second run over an output finds every box there already and adds none;
// a movie that lacks only the XMP packet gets it in a complete output, and
// the source stays untouched although the one edit is made in place.
class SecondRun : public testing::TestWithParam<Source> {};

TEST_P(SecondRun, AddsNothingTwiceAndMissingOnlyXmpStillGivesACompleteOutput) {
    Workspace work(GetParam());
    ASSERT_EQ(work.run("source.mp4 first.mp4").status, 0);
    const std::string first = readFile(work.file("first.mp4"));
    const auto firstBoxes = walkBoxes(first);
    const auto xmp = uuidBoxes(first, firstBoxes, "uuid", kXmpUuid);
    ASSERT_EQ(xmp.size(), 1u);

    const auto again = work.run("first.mp4 second.mp4");
    ASSERT_EQ(again.status, 0) << again.output;
    EXPECT_TRUE(contains(again.output, "MP4: XMP is existed.\n")) << again.output;
    EXPECT_EQ(readFile(work.file("first.mp4")), first);
    EXPECT_EQ(readFile(work.file("second.mp4")), first);

    // The XMP box was appended last: without it the movie needs only that.
    ASSERT_EQ(xmp[0]->start + xmp[0]->size, first.size());
    const std::string withoutXmp = first.substr(0, xmp[0]->start);
    testsupport::writeFile(work.file("no-xmp.mp4"), withoutXmp);
    const auto run = work.run("no-xmp.mp4 third.mp4");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(readFile(work.file("no-xmp.mp4")), withoutXmp);
    EXPECT_EQ(readFile(work.file("third.mp4")), first);
}

INSTANTIATE_TEST_SUITE_P(OlderAndNewest, SecondRun, testing::Values(Source::B, Source::Newest),
                         [](const auto& source) { return sourceName(source.param); });

}  // namespace
}  // namespace e2e
