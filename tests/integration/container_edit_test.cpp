// Every container edit checked by readers this project did not write:
// ffmpeg must find the same packets in source and result, byte for byte,
// and exiftool must read back the XMP and Spherical Video XML we stored.
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "foundation/wchar.h"
#include "geo/gps_info.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/run_command.h"
#include "tools/builders/spatial_builder.h"
#include "support/test_files.h"
#include "support/wide_offsets.h"

using namespace testsupport;
using namespace builders;

namespace {

struct Layout {
    std::string name;
    Bytes bytes;
    bool mdatFirst;
};

// One packet hash per line, with the stream headers.
std::string framemd5(const std::filesystem::path& movie) {
    const auto r = runCommand("ffmpeg -v error -i " + shellQuote(movie.string()) +
                              " -map 0 -c copy -f framemd5 -");
    EXPECT_EQ(r.status, 0) << movie;
    return r.output;
}

// A real encoded second of video and sound in four layouts: moov after and
// before mdat, each with stco and with co64 tables.
const std::vector<Layout>& layouts() {
    static TempDir dir;
    static std::vector<Layout> all;
    if (!all.empty()) return all;
    const std::string make =
        "ffmpeg -v error -f lavfi -i testsrc=size=128x64:rate=30 -f lavfi "
        "-i sine=frequency=440:sample_rate=48000 -t 1 -pix_fmt yuv420p -c:v libx264 "
        "-preset ultrafast -c:a aac -shortest ";
    const auto tail = dir.file("tail.mp4"), head = dir.file("head.mp4");
    EXPECT_EQ(runCommand(make + shellQuote(tail.string())).status, 0);
    EXPECT_EQ(runCommand(make + "-movflags +faststart " + shellQuote(head.string())).status, 0);
    const Bytes t = readFile(tail), h = readFile(head);
    all = {{"mdat first, stco", t, true}, {"mdat first, co64", withCo64(t), true},
           {"moov first, stco", h, false}, {"moov first, co64", withCo64(h), false}};
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

const Bytes kXmp =
    "<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
    "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
    "  <rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
    "    <rdf:Description rdf:about='' xmlns:exif='http://ns.adobe.com/exif/1.0/'>\n"
    "      <exif:GPSLatitude>35,30.000000N</exif:GPSLatitude>\n"
    "      <exif:GPSLongitude>139,15.000000E</exif:GPSLongitude>\n"
    "    </rdf:Description>\n  </rdf:RDF>\n</x:xmpmeta>\n<?xpacket end='w'?>\n";
const Bytes kSphericalXml =
    "<rdf:SphericalVideo xmlns:GSpherical='http://ns.google.com/videos/1.0/spherical/'\n"
    "  xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
    "  <GSpherical:Spherical>true</GSpherical:Spherical>\n"
    "  <GSpherical:Stitched>true</GSpherical:Stitched>\n"
    "  <GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n"
    "  <GSpherical:InitialViewHeadingDegrees>90</GSpherical:InitialViewHeadingDegrees>\n"
    "</rdf:SphericalVideo>";
const Bytes kSpatialId(MP4::SpatialData::_UUID.begin(), MP4::SpatialData::_UUID.end());

// A spatial-data block for the end of a movie of the given length.
Bytes spatialBlock(uint64_t at) {
    const Bytes pcm(4096, 'p');
    const Bytes katr = container(
        "KATR", {container("mdia", {container("minf", {container("stbl", {co64({at + 32})})})})});
    return uuidBox(kSpatialId, box("KADT", pcm) + katr);
}

GPSInfo position() {
    GPSInfo gps;
    gps.attachRXYZ("+35.5000+139.2500+012.000/");
    return gps;
}

using Edit = std::function<bool(MP4::Container&, const std::filesystem::path& dir)>;

const std::map<std::string, Edit>& edits() {
    static const std::map<std::string, Edit> all = {
        {"updateTimeStamp", [](MP4::Container& c, auto&) { return c.updateTimeStamp(3600); }},
        {"replaceUdta",
         [](MP4::Container& c, auto&) {
             const Bytes udta = box("udta", box("KMKN", Bytes(64, 'k')));
             return c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size()));
         }},
        {"removeBadLOCI",
         [](MP4::Container& c, auto&) {
             // The short loci form is put in first, then taken out.
             const Bytes udta = box("udta", box("loci", Bytes(20, '\0')) + box("free", "x"));
             bool left = false;
             const bool ok = c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())) &&
                             c.removeBadLOCI();
             c.find("moov.udta.loci", [&left](MP4::BOX&) {
                 left = true;
                 return false;
             });
             return ok && !left;
         }},
        {"appendXMP", [](MP4::Container& c, auto&) { return c.appendXMP(kXmp); }},
        {"appendAxis", [](MP4::Container& c, auto&) { return c.appendAxis(Bytes(300, 'a')); }},
        {"appendSphericalVideoXML",
         [](MP4::Container& c, auto&) { return c.appendSphericalVideoXML(kSphericalXml); }},
        {"appendLocations", [](MP4::Container& c, auto&) { return c.appendLocations(position()); }},
        {"appendLocationAndSphericalVideoXML",
         [](MP4::Container& c, auto&) {
             return c.appendLocationAndSphericalVideoXML(position(), kSphericalXml);
         }},
        {"trimSpatialData",
         [](MP4::Container& c, const std::filesystem::path& dir) {
             // Half a second to two seconds of another movie's spatial audio.
             writeFile(dir / "spatial-camera.mp4", spatialMovie({}));
             const std::wstring path = widen((dir / "spatial-camera.mp4").string());
             MP4::SpatialSound sound;
             QVMX::FileIO source(path, 'r');
             return sound.attach(path, 0.5, 2.0) && c.trimSpatialData(source, 20, sound) &&
                    c.isSpatialDataExist();
         }},
        {"appendSpatialData",
         [](MP4::Container& c, const std::filesystem::path& dir) {
             // The block comes from another movie that carries it at its end.
             const Bytes base = readFile(std::filesystem::path(QVMX::wchar::wcs2mbs(c.path()).c_str()));
             const Bytes block = spatialBlock(base.size());
             writeFile(dir / "spatial-source.mp4", base + block);
             QVMX::FileIO source(widen((dir / "spatial-source.mp4").string()), 'r');
             return c.appendSpatialData(source, base.size(), block.size()) &&
                    c.isSpatialDataExist();
         }},
    };
    return all;
}

}  // namespace

TEST(Oracle, TheFourLayoutsHoldTheSamePackets) {
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        TempDir dir;
        writeFile(dir.file("m.mp4"), layout.bytes);
        EXPECT_EQ(framemd5(dir.file("m.mp4")), referencePackets());
        MP4::Container c;
        c.attach(dir.wfile("m.mp4"));
        EXPECT_EQ(c.isMdatFirst(), layout.mdatFirst);
    }
    EXPECT_GT(std::count(referencePackets().begin(), referencePackets().end(), '\n'), 40);
}

TEST(Oracle, EveryEditKeepsEveryPacketAndTheSource) {
    for (const auto& layout : layouts()) {
        for (const auto& [name, edit] : edits()) {
            SCOPED_TRACE(layout.name + ": " + name);
            MovieFile m(layout.bytes);
            const auto output = m.dir.file("out.mp4");
            m.container.setOutputPath(widen(output.string()));
            EXPECT_TRUE(edit(m.container, m.dir.path()));
            EXPECT_EQ(m.bytes(), layout.bytes);
            EXPECT_FALSE(m.temporaryLeft());
            EXPECT_EQ(framemd5(output), referencePackets());
        }
    }
}

TEST(Oracle, MoovFirstKeepsEveryPacket) {
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        MovieFile m(layout.bytes);
        const auto output = m.dir.file("out.mp4");
        m.container.setOutputPath(widen(output.string()));
        EXPECT_EQ(m.container.moovFirst(), layout.mdatFirst);
        EXPECT_EQ(m.bytes(), layout.bytes);
        if (layout.mdatFirst) {
            EXPECT_FALSE(m.container.isMdatFirst());
            EXPECT_EQ(framemd5(output), referencePackets());
        } else {
            EXPECT_FALSE(std::filesystem::exists(output));
        }
    }
}

TEST(Oracle, AllEditsInARowInPlaceAreReadBackByExiftool) {
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        MovieFile m(layout.bytes);
        if (layout.mdatFirst) {
            EXPECT_TRUE(m.container.moovFirst());
        }
        for (const auto& [name, edit] : edits()) EXPECT_TRUE(edit(m.container, m.dir.path())) << name;
        EXPECT_FALSE(m.temporaryLeft());
        EXPECT_EQ(framemd5(m.path), referencePackets());
        const auto tags = runCommand(
            "exiftool -j -n -G1 -XMP-exif:GPSLatitude -XMP-exif:GPSLongitude "
            "-XMP-GSpherical:ProjectionType -XMP-GSpherical:InitialViewHeadingDegrees " +
            shellQuote(m.path.string()));
        EXPECT_EQ(tags.status, 0);
        EXPECT_NE(tags.output.find("\"XMP-exif:GPSLatitude\": 35.5,"), std::string::npos) << tags.output;
        EXPECT_NE(tags.output.find("\"XMP-exif:GPSLongitude\": 139.25,"), std::string::npos);
        EXPECT_NE(tags.output.find("\"XMP-GSpherical:ProjectionType\": \"equirectangular\""),
                  std::string::npos);
        EXPECT_NE(tags.output.find("\"XMP-GSpherical:InitialViewHeadingDegrees\": 90"),
                  std::string::npos);
    }
}

TEST(Oracle, ExiftoolReadsTheLocationBoxes) {
    for (const auto& layout : layouts()) {
        SCOPED_TRACE(layout.name);
        MovieFile m(layout.bytes);
        ASSERT_TRUE(m.container.appendLocations(position()));
        const auto tags = runCommand("exiftool -j -n -G1 -UserData:GPSCoordinates " + shellQuote(m.path.string()));
        EXPECT_NE(tags.output.find("\"UserData:GPSCoordinates\": \"35.5 139.25"), std::string::npos)
            << tags.output;
    }
}

TEST(Oracle, TavrelEditMovesTheMovieBoxFromTheCommandLine) {
    TempDir dir;
    writeFile(dir.file("in.mp4"), layouts()[0].bytes);
    const std::string edit = shellQuote(binaryDir() + "/tools/tavrel-edit");
    const auto ok = runCommand(edit + " moovfirst " + shellQuote(dir.file("in.mp4").string()) + " " +
                               shellQuote(dir.file("out.mp4").string()));
    EXPECT_EQ(ok.status, 0) << ok.output;
    EXPECT_EQ(framemd5(dir.file("out.mp4")), referencePackets());
    const auto again = runCommand(edit + " moovfirst " + shellQuote(dir.file("out.mp4").string()) +
                                  " " + shellQuote(dir.file("again.mp4").string()));
    EXPECT_EQ(again.status, 1);
    EXPECT_NE(again.output.find("tavrel-edit: moovfirst failed."), std::string::npos);
}
