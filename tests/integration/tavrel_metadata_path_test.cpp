// tavrel without re-encoding options: the output carries every packet of
// the source unchanged and the camera metadata as each generation needs it,
// read back by ffmpeg, exiftool and the tests' own box reader.
#include <gtest/gtest.h>

#include "box_walk.h"
#include "tavrel_fixture.h"
#include "tools/camera_movie/camera_movie.h"

namespace e2e {
namespace {

using testsupport::readFile;

struct MetadataRun {
    Source source;
    std::string options;
    std::vector<std::string> says;  // lines the run prints
    std::string exiftool;           // what exiftool reads: kTags
};

// The position from the XMP packet, the XMP flag, the spherical XML, and
// the position from the location boxes.
const std::string kTags = "-c %+.4f -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude -XMP:VideoReEncorded "
                          "-XMP-GSpherical:Spherical -XMP-GSpherical:ProjectionType "
                          "-XMP-GSpherical:StitchingSoftware -QuickTime:GPSCoordinates";
const std::string kSphere = "false\ntrue\nequirectangular\nKORVA PANOX::Seamwright\n";
const std::string kOlderTags = "+35.6586\n+139.7454\n" + kSphere + "+35.6586, +139.7454\n";
const std::string kNewestTags = "+35.6586\n+139.7454\n" + kSphere + "+35.6586, +139.7454, 40 m Above Sea Level\n";

std::string nameOf(const testing::TestParamInfo<MetadataRun>& info) { return sourceName(info.param.source); }

bool moovBeforeMdat(const std::vector<Box>& top) {
    const auto moov = findBoxes(top, "moov"), mdat = findBoxes(top, "mdat");
    EXPECT_EQ(moov.size() + mdat.size(), 2u);
    return !moov.empty() && !mdat.empty() && moov[0]->start < mdat[0]->start;
}

// The XML as the output needs it: the fixed properties, then blank padding
// up to exactly 1000 characters.
void expectPaddedSphericalXml(const std::string& xml) {
    ASSERT_EQ(xml.size(), 1000u);
    EXPECT_EQ(xml.rfind("<rdf:SphericalVideo", 0), 0u) << xml;
    const std::string end = "</rdf:SphericalVideo>\n";
    ASSERT_TRUE(contains(xml, end));
    EXPECT_EQ(xml.find_first_not_of(' ', xml.find(end) + end.size()), std::string::npos);
    EXPECT_TRUE(contains(xml, "<GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>"));
}

// The older cameras: the short loci replaced by the full one beside the two
// other location forms; the maker boxes and the AXIS stream as they were.
void expectOlderCameraBoxes(const std::string& in, const std::string& out) {
    const auto src = walkBoxes(in), top = walkBoxes(out);
    const auto axisIn = uuidBoxes(in, src, "uuid", kAxisUuid), axisOut = uuidBoxes(out, top, "uuid", kAxisUuid);
    ASSERT_EQ(axisIn.size(), 1u);
    ASSERT_EQ(axisOut.size(), 1u);
    EXPECT_EQ(payloadOf(out, *axisOut[0]), payloadOf(in, *axisIn[0]));
    const auto loci = findBoxes(top, "moov.udta.loci");
    ASSERT_EQ(loci.size(), 1u);
    EXPECT_EQ(loci[0]->size, 32u);
    const auto xyz = findBoxes(top, "moov.udta.@xyz");
    ASSERT_EQ(xyz.size(), 1u);
    EXPECT_EQ(payloadOf(out, *xyz[0]), "+35.6586+139.7454+040.000/");
    EXPECT_EQ(findBoxes(top, "moov.udta.\xA9xyz").size(), 1u);
    for (const char* path : {"moov.udta.@mod", "moov.udta.KMKN"}) {
        const auto before = findBoxes(src, path), after = findBoxes(top, path);
        ASSERT_EQ(after.size(), 1u) << path;
        EXPECT_EQ(payloadOf(out, *after[0]), payloadOf(in, *before[0])) << path;
    }
}

// The newest cameras: the user data copied box for box with the maker
// record's projection type patched and a JPEG of the first frame in KTHU
// (free space when KTHU has no room for one); the spatial block carried
// over with KDT9 and its chunk offsets pointing at its new place.
void expectNewestCameraBoxes(const Workspace& work, bool roomForJpeg) {
    const std::string in = readFile(work.source()), out = readFile(work.output());
    const auto src = walkBoxes(in), top = walkBoxes(out);
    const auto udtaIn = findBoxes(src, "moov.udta"), udtaOut = findBoxes(top, "moov.udta");
    ASSERT_EQ(udtaIn.size(), 1u);
    ASSERT_EQ(udtaOut.size(), 1u);
    ASSERT_EQ(udtaOut[0]->children.size(), udtaIn[0]->children.size());
    for (size_t i = 0; i < udtaIn[0]->children.size(); ++i) {
        const Box& before = udtaIn[0]->children[i];
        const Box& after = udtaOut[0]->children[i];
        SCOPED_TRACE(before.type);
        ASSERT_EQ(after.size, before.size);
        const std::string was = payloadOf(in, before), is = payloadOf(out, after);
        if (before.type == "KTHU" && !roomForJpeg) {
            EXPECT_EQ(after.type, "free");
            EXPECT_EQ(is, std::string(is.size(), '\0'));
            continue;
        }
        EXPECT_EQ(after.type, before.type);
        if (before.type == "KTHU") {
            // The movie's first frame, which fits 640 x 320 as it is.
            testsupport::writeFile(work.file("thumbnail.jpg"), is);
            expectJpeg(work.file("thumbnail.jpg"), "512", "256");
        } else if (before.type == "KMKN") {
            // Only the projection type changed: its SHORT value 3 became 1.
            std::vector<size_t> changed;
            for (size_t b = 0; b < was.size(); ++b) {
                if (was[b] != is[b]) changed.push_back(b);
            }
            ASSERT_EQ(changed.size(), 1u);
            EXPECT_EQ(was[changed[0]], 3);
            EXPECT_EQ(is[changed[0]], 1);
        } else if (before.type == "KDT9") {
            EXPECT_EQ(is.substr(16), was.substr(16));
        } else {
            EXPECT_EQ(is, was);
        }
    }
    SpatialBlock before = readSpatialBlock(in, src), after = readSpatialBlock(out, top);
    ASSERT_TRUE(after.found);
    EXPECT_EQ(after.kdt9, std::make_pair(after.start, after.size));
    EXPECT_EQ(after.audio, before.audio);
    ASSERT_FALSE(after.chunkOffsets.empty());
    for (auto& o : before.chunkOffsets) o += after.audioStart - before.audioStart;
    EXPECT_EQ(after.chunkOffsets, before.chunkOffsets);
}

class MetadataPath : public testing::TestWithParam<MetadataRun> {};

TEST_P(MetadataPath, KeepsEveryPacketAndWritesTheMetadataTheMovieNeeds) {
    const MetadataRun& param = GetParam();
    const Source source = param.source;
    Workspace work(source);
    const auto run = work.convert(param.options);
    ASSERT_EQ(run.status, 0) << run.output;
    for (const auto& line : param.says) EXPECT_TRUE(contains(run.output, line)) << line << "\n" << run.output;
    EXPECT_EQ(packetHashes(work.output()), packetHashes(work.source()));
    EXPECT_EQ(exiftoolValues(work.output(), kTags), param.exiftool);

    const std::string out = readFile(work.output());
    const auto top = walkBoxes(out);
    // The newest cameras keep their media data first; all others get the movie box first.
    EXPECT_EQ(moovBeforeMdat(top), !isNewest(source));
    const auto xmp = uuidBoxes(out, top, "uuid", kXmpUuid);
    ASSERT_EQ(xmp.size(), 1u);
    EXPECT_TRUE(contains(payloadOf(out, *xmp[0]), "<VideoReEncorded>false</VideoReEncorded>"));
    if (source == Source::Wide) {
        // 16:9 is no sphere.
        EXPECT_FALSE(contains(run.output, "GVF-BOX")) << run.output;
        EXPECT_EQ(sphericalXml(out, top), "");
        return;
    }
    expectPaddedSphericalXml(sphericalXml(out, top));
    expectSourcesCreationTime(work.output());
    if (contains(param.options, "-thumb:first.jpg")) expectJpeg(work.file("first.jpg"), "512", "256");
    if (isNewest(source)) {
        expectNewestCameraBoxes(work, source == Source::Newest);
    } else if (source != Source::Plain) {
        expectOlderCameraBoxes(readFile(work.source()), out);
    } else {
        EXPECT_TRUE(findBoxes(top, "moov.udta.loci").empty());
    }
}

const std::string kGvf = "Appned New GVF-BOX.\n";
const std::string kModel = "source movie model: KORVA PANOX ";

INSTANTIATE_TEST_SUITE_P(
    EachSource, MetadataPath,
    testing::Values(MetadataRun{Source::A10, "-h264", {kModel + "a10 (1)\n", kGvf}, kOlderTags},
                    MetadataRun{Source::A10MoovFirst, "", {kModel + "a10", kGvf}, kOlderTags},
                    MetadataRun{Source::B, "", {kModel + "B", kGvf}, kOlderTags},
                    MetadataRun{Source::BMoovFirst, "", {kModel + "B", kGvf}, kOlderTags},
                    MetadataRun{Source::BC, "", {kModel + "BC", kGvf}, kOlderTags},
                    MetadataRun{Source::BCMoovFirst, "", {kModel + "BC", kGvf}, kOlderTags},
                    MetadataRun{Source::Newest, "", {kModel + "D (20001)\n"}, kNewestTags},
                    MetadataRun{Source::NewestNoRoom, "", {kModel + "D (20001)\n"}, kNewestTags},
                    MetadataRun{Source::Plain, "-thumb:first.jpg", {"KMKN not found.\n", kGvf}, kSphere},
                    // A thumbnail that cannot be written does not fail the run.
                    MetadataRun{Source::Wide, "-thumb:missing/first.jpg",
                                {"MP4: Not a spherical video.\n", "thumbnailer(missing/first.jpg) failed.\n"}, "false\n"}),
    nameOf);

// South, west and below the sea: every sign survives into the XMP packet
// and the location boxes as exiftool reads them.
TEST(MetadataPathPosition, SouthWestBelowSeaLevelKeepsItsSigns) {
    for (const bool newest : {false, true}) {
        SCOPED_TRACE(newest ? "newest" : "older");
        Workspace work;
        cameramovie::Dressing dressing =
            newest ? cameramovie::newestCamera(kSensorRecords, 3.0) : cameramovie::olderCamera("KORVA PANOX B", false);
        dressing.location = "-33.8568-151.2153-012.500/";
        std::string error;
        ASSERT_TRUE(cameramovie::dress(sourceMovie(Source::Plain).string(), work.source().string(), dressing, error))
            << error;
        const auto run = work.convert();
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(exiftoolValues(work.output(),
                                 "-c %+.4f -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude -QuickTime:GPSCoordinates"),
                  "-33.8568\n-151.2153\n-33.8568, -151.2153" +
                      std::string(newest ? ", 12.5 m Below Sea Level" : "") + "\n");
    }
}

// A second run over an output finds every box there already and adds none;
// a movie that lacks only the XMP packet gets it in a complete output, and
// the source stays untouched although the one edit is made in place.
class SecondRun : public testing::TestWithParam<Source> {};

TEST_P(SecondRun, AddsNothingTwiceAndMissingOnlyXmpStillGivesACompleteOutput) {
    Workspace work(GetParam());
    ASSERT_EQ(work.run("source.mp4 first.mp4").status, 0);
    const std::string first = readFile(work.file("first.mp4"));
    const auto xmp = uuidBoxes(first, walkBoxes(first), "uuid", kXmpUuid);
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
