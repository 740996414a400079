// Every container edit checked by readers this project did not write:
// ffmpeg must find the same packets in source and result, byte for byte,
// and exiftool must read back the position, XMP and Spherical Video XML we
// stored, in a movie with its media data first and one with it last.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "foundation/wchar.h"
#include "geo/gps_info.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "mp4/uuid_box.h"
#include "support/movie_file.h"
#include "support/run_command.h"
#include "tools/builders/box_builder.h"
#include "tools/builders/spatial_builder.h"

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

const std::vector<Layout>& layouts() {
    static std::vector<Layout> all;
    if (!all.empty()) return all;
    TempDir dir;
    const std::string make =
        "ffmpeg -v error -f lavfi -i testsrc=size=128x64:rate=30 -f lavfi -i sine=frequency=440:sample_rate=48000 "
        "-t 1 -pix_fmt yuv420p -c:v libx264 -preset ultrafast -c:a aac -shortest ";
    EXPECT_EQ(runCommand(make + shellQuote(dir.file("tail.mp4").string())).status, 0);
    EXPECT_EQ(runCommand(make + "-movflags +faststart " + shellQuote(dir.file("head.mp4").string())).status, 0);
    all = {{"mdat first", readFile(dir.file("tail.mp4")), true}, {"moov first", readFile(dir.file("head.mp4")), false}};
    return all;
}

const std::string& referencePackets() {
    static const std::string packets = [] {
        TempDir dir;
        writeFile(dir.file("m.mp4"), layouts()[0].bytes);
        return framemd5(dir.file("m.mp4"));
    }();
    return packets;
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

using Edit = std::function<bool(MP4::Container&, const std::filesystem::path& dir)>;

// In an order in which each keeps what the ones before it wrote.
const std::vector<std::pair<std::string, Edit>>& edits() {
    static const std::vector<std::pair<std::string, Edit>> all = {
        {"updateTimeStamp", [](MP4::Container& c, auto&) { return c.updateTimeStamp(3600); }},
        {"removeBadLOCI",
         [](MP4::Container& c, auto&) {
             // The short loci form is put in first, then taken out.
             const Bytes udta = box("udta", box("loci", Bytes(20, '\0')) + box("KMKN", Bytes(64, 'k')));
             bool left = false;
             const bool ok = c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())) && c.removeBadLOCI();
             c.find("moov.udta.loci", [&left](MP4::BOX&) { return !(left = true); });
             return ok && !left;
         }},
        {"appendAxis", [](MP4::Container& c, auto&) { return c.appendAxis(Bytes(300, 'a')); }},
        {"appendLocationAndSphericalVideoXML",
         [](MP4::Container& c, auto&) { return c.appendLocationAndSphericalVideoXML(position(), kSphericalXml); }},
        {"appendLocations", [](MP4::Container& c, auto&) { return c.appendLocations(position()); }},
        {"appendSpatialData",
         [](MP4::Container& c, const std::filesystem::path& dir) {
             // The block comes from another movie that carries it at its end.
             const Bytes base = readFile(std::filesystem::path(QVMX::wchar::wcs2mbs(c.path()).c_str()));
             const Bytes katr = container("KATR", {container("mdia", {container("minf", {container("stbl", {co64({base.size() + 32})})})})});
             const Bytes block = uuidBox(Bytes(MP4::SpatialData::_UUID.begin(), MP4::SpatialData::_UUID.end()),
                                         box("KADT", Bytes(4096, 'p')) + katr);
             writeFile(dir / "spatial-source.mp4", base + block);
             QVMX::FileIO source(widen((dir / "spatial-source.mp4").string()), 'r');
             return c.appendSpatialData(source, base.size(), block.size()) && c.isSpatialDataExist();
         }},
        {"appendSphericalVideoXML", [](MP4::Container& c, auto&) { return c.appendSphericalVideoXML(kSphericalXml); }},
        {"appendXMP", [](MP4::Container& c, auto&) { return c.appendXMP(position().to_XMP_string("Tavrel", true)); }},
        {"trimSpatialData",
         [](MP4::Container& c, const std::filesystem::path& dir) {
             // Half a second to two seconds of another movie's spatial audio.
             writeFile(dir / "spatial-camera.mp4", spatialMovie({}));
             const std::wstring path = widen((dir / "spatial-camera.mp4").string());
             MP4::SpatialSound sound;
             QVMX::FileIO source(path, 'r');
             return sound.attach(path, 0.5, 2.0) && c.trimSpatialData(source, 20, sound) && c.isSpatialDataExist();
         }},
    };
    return all;
}

TEST(Oracle, EveryEditToANewFileKeepsEveryPacketAndTheSource) {
    for (const auto& layout : layouts()) {
        MovieFile m(layout.bytes);
        EXPECT_EQ(framemd5(m.path), referencePackets()) << layout.name;
        EXPECT_EQ(m.container.isMdatFirst(), layout.mdatFirst) << layout.name;
        for (const auto& [name, edit] : edits()) {
            SCOPED_TRACE(layout.name + ": " + name);
            MovieFile source(layout.bytes);
            const auto output = source.dir.file("out.mp4");
            source.container.setOutputPath(widen(output.string()));
            EXPECT_TRUE(edit(source.container, source.dir.path()));
            EXPECT_EQ(source.bytes(), layout.bytes);
            EXPECT_FALSE(source.temporaryLeft());
            EXPECT_EQ(framemd5(output), referencePackets());
        }
    }
}

TEST(Oracle, AllEditsInARowInPlaceAreReadBackByExiftool) {
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        MovieFile m(layout.bytes);
        // Moving the movie box first is an edit of its own, only for a movie that needs it.
        EXPECT_EQ(m.container.moovFirst(), layout.mdatFirst);
        EXPECT_FALSE(m.container.isMdatFirst());
        for (const auto& [name, edit] : edits()) EXPECT_TRUE(edit(m.container, m.dir.path())) << name;
        EXPECT_FALSE(m.temporaryLeft());
        EXPECT_EQ(framemd5(m.path), referencePackets());
        std::istringstream tags(runCommand("exiftool -n -s3 -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude -XMP-exif:GPSAltitude "
                                           "-XMP-exif:GPSAltitudeRef -XMP-exif:GPSImgDirection -XMP-GSpherical:ProjectionType "
                                           "-XMP-GSpherical:InitialViewHeadingDegrees -UserData:GPSCoordinates " +
                                           shellQuote(m.path.string())).output);
        // 33 deg 52.05' S, 70 deg 30' W, 5.5 m below sea level, heading 123.5.
        for (const double expected : {-33.8675, -70.5, 5.5, 1.0, 123.5}) {
            double read = 0;
            tags >> read;
            EXPECT_NEAR(read, expected, 1e-6);
        }
        const std::string rest(std::istreambuf_iterator<char>(tags), {});
        EXPECT_TRUE(rest.starts_with("\nequirectangular\n90\n-33.8675 -70.5")) << rest;
    }
}

}  // namespace
