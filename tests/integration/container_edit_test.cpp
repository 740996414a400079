// Every container edit made in place, one after the other, on a movie with
// its media data first and one with it last: ffmpeg must find the same
// packets after each, so an edit that moves the media data must have moved
// the chunk offsets with it.
#include <gtest/gtest.h>

#include <functional>

#include "geo/gps_info.h"
#include "box_walk.h"
#include "meta/location_edits.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "support/movie_file.h"
#include "tavrel_fixture.h"
#include "tools/builders/box_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

GPSInfo position() {
    GPSInfo gps;
    gps.attachRXYZ("-33.8675-070.5000-005.500/");
    return gps;
}

const Bytes kXml = "<rdf:SphericalVideo><GSpherical:Spherical>true</GSpherical:Spherical></rdf:SphericalVideo>";

}  // namespace

TEST(Oracle, EveryEditInPlaceKeepsEveryPacket) {
    using Edit = std::function<QVMX::Status(MP4::Container&)>;
    // The short loci form is put in first, then taken out.
    const Bytes udta = box("udta", box("loci", Bytes(20, '\0')) + box("KMKN", Bytes(64, 'k')));
    const std::pair<const char*, Edit> edits[] = {
        {"updateTimeStamp", [](MP4::Container& c) { return c.updateTimeStamp(3600); }},
        {"replaceUdta", [&](MP4::Container& c) { return c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())); }},
        {"removeBadLOCI", [](MP4::Container& c) { return meta::removeBadLOCI(c); }},
        {"appendLocations", [](MP4::Container& c) { return meta::appendLocations(c, position()); }},
        {"appendLocationAndSphericalVideoXML",
         [](MP4::Container& c) { return meta::appendLocationAndSphericalVideoXML(c, position(), kXml); }},
        {"appendSphericalVideoXML", [](MP4::Container& c) { return meta::appendSphericalVideoXML(c, kXml + "  "); }},
        {"appendXMP", [](MP4::Container& c) { return meta::appendXMP(c, position().to_XMP_string("Tavrel", true)); }},
    };
    for (const e2e::Source source : {e2e::Source::A10, e2e::Source::A10MoovFirst}) {
        SCOPED_TRACE(e2e::sourceName(source));
        MovieFile m(readFile(e2e::sourceMovie(source)));
        const auto reference = e2e::packetHashes(m.path);
        // Moving the movie box first is an edit of its own, only for a movie that needs it.
        EXPECT_EQ(m.container.moovFirst().ok(), source == e2e::Source::A10);
        EXPECT_EQ(e2e::packetHashes(m.path), reference);
        for (const auto& [name, edit] : edits) {
            EXPECT_TRUE(edit(m.container)) << name;
            EXPECT_EQ(e2e::packetHashes(m.path), reference) << name;
        }
        EXPECT_FALSE(m.container.isMdatFirst());
        EXPECT_FALSE(m.temporaryLeft());
    }
}

// The benchmarks' one-edit tool: the edit lands in the named output with every
// packet, the source stays as it was, and what it cannot do ends in exit 1
// without an output.
TEST(TavrelEdit, EditsIntoTheOutputAndRefusesWhatItCannotDo) {
    e2e::Workspace work(e2e::Source::A10);
    const auto edit = [&](const std::string& arguments) {
        return runCommand("cd " + shellQuote(work.dir().string()) + " && " + e2e::toolCommand("tavrel-edit") + " " +
                              arguments,
                          true);
    };
    const auto moved = edit("moovfirst source.mp4 moved.mp4");
    ASSERT_EQ(moved.status, 0) << moved.output;
    const auto top = e2e::walkBoxes(readFile(work.file("moved.mp4")));
    ASSERT_FALSE(top.empty());
    const auto moov = e2e::findBoxes(top, "moov"), mdat = e2e::findBoxes(top, "mdat");
    ASSERT_EQ(moov.size() + mdat.size(), 2u);
    EXPECT_LT(moov[0]->start, mdat[0]->start);
    EXPECT_EQ(e2e::packetHashes(work.file("moved.mp4")), e2e::packetHashes(work.source()));

    const std::pair<const char*, const char*> refused[] = {
        {"frobnicate source.mp4 x.mp4", "usage: tavrel-edit"},
        {"moovfirst source.mp4", "usage: tavrel-edit"},
        {"xmp source.mp4 x.mp4", "usage: tavrel-edit"},
        {"xmp source.mp4 x.mp4 missing.xml", "tavrel-edit: cannot read missing.xml"},
        {"moovfirst missing.mp4 x.mp4", "open(missing.mp4, 'r') failed."},
        {"moovfirst junk.mp4 x.mp4",
         "tavrel-edit: moovfirst failed.\n"
         "x.mp4: the moovfirst edit failed: there is no movie box; nothing was written.\n"},
    };
    writeFile(work.file("junk.mp4"), "no boxes here");
    for (const auto& [arguments, says] : refused) {
        SCOPED_TRACE(arguments);
        const auto run = edit(arguments);
        EXPECT_EQ(run.status, 1);
        EXPECT_TRUE(e2e::contains(run.output, says)) << run.output;
        EXPECT_FALSE(std::filesystem::exists(work.file("x.mp4")));
    }
}
