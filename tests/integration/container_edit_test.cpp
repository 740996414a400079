// Every container edit checked by readers this project did not write:
// ffmpeg must find the same packets before and after, byte for byte, and
// exiftool must read back the position, XMP and Spherical Video XML we
// stored, in a movie with its media data first and one with it last.
#include <gtest/gtest.h>

#include <functional>

#include "geo/gps_info.h"
#include "mp4/container.h"
#include "support/movie_file.h"
#include "support/run_command.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

// One packet hash per line, with the stream headers.
std::string framemd5(const std::filesystem::path& movie) {
    const auto r = runCommand("ffmpeg -v error -i " + shellQuote(movie.string()) + " -map 0 -c copy -f framemd5 -");
    EXPECT_EQ(r.status, 0) << movie;
    return r.output;
}

// A real encoded second of video and sound, its movie box after and before
// the media data.
struct Layout {
    std::string name;
    Bytes bytes;
    bool mdatFirst;
};

std::vector<Layout> layouts() {
    TempDir dir;
    const std::string make =
        "ffmpeg -v error -f lavfi -i testsrc=size=128x64:rate=30 -f lavfi -i sine=frequency=440:sample_rate=48000 "
        "-t 1 -pix_fmt yuv420p -c:v libx264 -preset ultrafast -c:a aac -shortest ";
    EXPECT_EQ(runCommand(make + shellQuote(dir.file("tail.mp4").string())).status, 0);
    EXPECT_EQ(runCommand(make + "-movflags +faststart " + shellQuote(dir.file("head.mp4").string())).status, 0);
    return {{"mdat first", readFile(dir.file("tail.mp4")), true}, {"moov first", readFile(dir.file("head.mp4")), false}};
}

const Bytes kSphericalXml =
    "<rdf:SphericalVideo xmlns:GSpherical='http://ns.google.com/videos/1.0/spherical/'\n"
    "  xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
    "  <GSpherical:Spherical>true</GSpherical:Spherical>\n"
    "  <GSpherical:Stitched>true</GSpherical:Stitched>\n"
    "  <GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n"
    "  <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
    "</rdf:SphericalVideo>";

// South, west and below the sea, with a heading: every sign is in play.
GPSInfo position() {
    GPSInfo gps;
    gps.attachRXYZ("-33.8675-070.5000-005.500/");
    gps.attachCompass(123.46);
    return gps;
}

using Edit = std::function<bool(MP4::Container&)>;

// In an order in which each keeps what the ones before it wrote.
const std::vector<std::pair<std::string, Edit>>& edits() {
    static const std::vector<std::pair<std::string, Edit>> all = {
        {"updateTimeStamp", [](MP4::Container& c) { return c.updateTimeStamp(3600); }},
        {"removeBadLOCI",
         [](MP4::Container& c) {
             // The short loci form is put in first, then taken out.
             const Bytes udta = box("udta", box("loci", Bytes(20, '\0')) + box("KMKN", Bytes(64, 'k')));
             bool left = false;
             const bool ok = c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())) && c.removeBadLOCI();
             c.find("moov.udta.loci", [&left](MP4::BOX&) { return !(left = true); });
             return ok && !left;
         }},
        {"appendAxis", [](MP4::Container& c) { return c.appendAxis(Bytes(300, 'a')); }},
        {"appendLocationAndSphericalVideoXML",
         [](MP4::Container& c) { return c.appendLocationAndSphericalVideoXML(position(), kSphericalXml); }},
        {"appendLocations", [](MP4::Container& c) { return c.appendLocations(position()); }},
        {"appendSphericalVideoXML", [](MP4::Container& c) { return c.appendSphericalVideoXML(kSphericalXml); }},
        {"appendXMP", [](MP4::Container& c) { return c.appendXMP(position().to_XMP_string("Tavrel", true)); }},
    };
    return all;
}

}  // namespace

// Each edit is made in place, one after the other, and ffmpeg must find the
// same packets after each: an edit that moves the media data must move the
// chunk offsets with it. exiftool then reads back what they stored.
TEST(Oracle, EveryEditKeepsEveryPacketAndExiftoolReadsWhatTheyStored) {
    std::string reference;
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        MovieFile m(layout.bytes);
        if (reference.empty()) reference = framemd5(m.path);
        EXPECT_EQ(framemd5(m.path), reference);
        EXPECT_EQ(m.container.isMdatFirst(), layout.mdatFirst);
        // Moving the movie box first is an edit of its own, only for a movie that needs it.
        EXPECT_EQ(m.container.moovFirst(), layout.mdatFirst);
        EXPECT_FALSE(m.container.isMdatFirst());
        for (const auto& [name, edit] : edits()) {
            EXPECT_TRUE(edit(m.container)) << name;
            EXPECT_EQ(framemd5(m.path), reference) << name;
        }
        EXPECT_FALSE(m.temporaryLeft());
        // 33 deg 52.05' S, 70 deg 30' W, 5.5 m below sea level, heading 123.5.
        EXPECT_EQ(runCommand("exiftool -s3 -c %+.4f -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude -XMP-exif:GPSAltitude "
                             "-XMP-exif:GPSAltitudeRef -XMP-exif:GPSImgDirection -XMP-GSpherical:ProjectionType "
                             "-XMP-GSpherical:InitialViewHeadingDegrees -UserData:GPSCoordinates " + shellQuote(m.path.string()))
                      .output,
                  "-33.8675\n-70.5000\n5.5 m\nBelow Sea Level\n123.5\nequirectangular\n90\n-33.8675, -70.5000\n");
    }
}
