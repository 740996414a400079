// Every container edit made in place, one after the other, on a movie with
// its media data first and one with it last: ffmpeg must find the same
// packets after each, so an edit that moves the media data must have moved
// the chunk offsets with it.
#include <gtest/gtest.h>

#include <functional>

#include "geo/gps_info.h"
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
    using Edit = std::function<bool(MP4::Container&)>;
    // The short loci form is put in first, then taken out.
    const Bytes udta = box("udta", box("loci", Bytes(20, '\0')) + box("KMKN", Bytes(64, 'k')));
    const std::pair<const char*, Edit> edits[] = {
        {"updateTimeStamp", [](MP4::Container& c) { return c.updateTimeStamp(3600); }},
        {"replaceUdta", [&](MP4::Container& c) { return c.replaceUdta(udta.size(), ByteArray(udta.data(), udta.size())); }},
        {"removeBadLOCI", [](MP4::Container& c) { return c.removeBadLOCI(); }},
        {"appendLocations", [](MP4::Container& c) { return c.appendLocations(position()); }},
        {"appendLocationAndSphericalVideoXML",
         [](MP4::Container& c) { return c.appendLocationAndSphericalVideoXML(position(), kXml); }},
        {"appendSphericalVideoXML", [](MP4::Container& c) { return c.appendSphericalVideoXML(kXml + "  "); }},
        {"appendXMP", [](MP4::Container& c) { return c.appendXMP(position().to_XMP_string("Tavrel", true)); }},
    };
    for (const e2e::Source source : {e2e::Source::A10, e2e::Source::A10MoovFirst}) {
        SCOPED_TRACE(e2e::sourceName(source));
        MovieFile m(readFile(e2e::sourceMovie(source)));
        const auto reference = e2e::packetHashes(m.path);
        // Moving the movie box first is an edit of its own, only for a movie that needs it.
        EXPECT_EQ(m.container.moovFirst(), source == e2e::Source::A10);
        EXPECT_EQ(e2e::packetHashes(m.path), reference);
        for (const auto& [name, edit] : edits) {
            EXPECT_TRUE(edit(m.container)) << name;
            EXPECT_EQ(e2e::packetHashes(m.path), reference) << name;
        }
        EXPECT_FALSE(m.container.isMdatFirst());
        EXPECT_FALSE(m.temporaryLeft());
    }
}
