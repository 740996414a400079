// Location boxes of the user data.
#include <gtest/gtest.h>

#include "geo/gps_info.h"
#include "mp4/container.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

Bytes loci(size_t size) { return box("loci", Bytes(size - 8, '\0')); }

const char* const kPosition = "+35.5000+139.2500+012.000/";

GPSInfo position() {
    GPSInfo gps;
    gps.attachRXYZ(kPosition);
    return gps;
}

// The three boxes as a player expects them, worked out by hand: 16.16 fixed
// point of 139.25, 35.5 and 12 in loci; the location string in the
// 0xA9 box without the altitude, language "eng".
const Bytes kXyz = box("@xyz", kPosition);
const Bytes kLoci = box("loci", Bytes(8, '\0') + be32(0x008B4000) + be32(0x00238000) + be32(0x000C0000) +
                                    Bytes(4, '\0'));
const Bytes kCxyz = box("\xA9xyz", be16(18) + be16(0x15C7) + "+35.5000+139.2500/");

Bytes payloadOf(MovieFile& m, const char* path) {
    const MP4::BOX* b = m.first(path);
    if (b == nullptr) return {};
    return m.bytes().substr(b->start + 8, b->size - 8);
}

}  // namespace

TEST(RemoveBadLoci, OnlyTheShortFormGoesAndEverySampleStays) {
    for (bool moovFirst : {true, false}) {
        for (bool use64 : {false, true}) {
            SCOPED_TRACE(std::string(moovFirst ? "moov first" : "mdat first") + (use64 ? ", co64" : ""));
            const MovieShape shape{.moovFirst = moovFirst, .use64 = use64,
                                 .udtaChildren = box("@mod", "m") + loci(28) + box("free", "x")};
            // The same loci ending the movie box, right before the media data.
            const MovieShape last{.moovFirst = moovFirst, .use64 = use64, .udtaChildren = box("@mod", "m") + loci(28)};
            MovieFile ending(buildMovie(last));
            EXPECT_TRUE(ending.container.removeBadLOCI());
            EXPECT_EQ(allSamples(ending.path), movieSamples(last));
            MovieFile m(buildMovie(shape));
            const uint64_t udta = m.first("moov.udta")->size;
            EXPECT_TRUE(m.container.removeBadLOCI());
            EXPECT_EQ(m.first("moov.loci"), nullptr);
            EXPECT_EQ(m.first("moov.udta.loci"), nullptr);
            EXPECT_EQ(m.first("moov.udta")->size, udta - 28);
            EXPECT_EQ(m.bytes().size(), m.original.size() - 28);
            EXPECT_NE(m.first("moov.udta.free"), nullptr);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
        }
    }
}

TEST(RemoveBadLoci, LongerFormsAndALaterShortOneAreKept) {
    for (const Bytes& children : {loci(30), loci(32), loci(32) + loci(28), Bytes()}) {
        MovieFile m(buildMovie({.udtaChildren = children}));
        EXPECT_TRUE(m.container.removeBadLOCI());
        EXPECT_EQ(m.bytes(), m.original);
    }
}

TEST(AppendLocations, TheMissingBoxesEndTheUserDataInEveryLayout) {
    for (bool moovFirst : {true, false}) {
        for (bool use64 : {false, true}) {
            SCOPED_TRACE(std::string(moovFirst ? "moov first" : "mdat first") + (use64 ? ", co64" : ""));
            const MovieShape shape{.moovFirst = moovFirst, .use64 = use64, .udtaChildren = box("@mod", "m")};
            MovieFile m(buildMovie(shape));
            const Bytes before = payloadOf(m, "moov.udta");
            EXPECT_TRUE(m.container.appendLocations(position()));
            EXPECT_EQ(payloadOf(m, "moov.udta"), before + kXyz + kLoci + kCxyz);
            EXPECT_EQ(m.bytes().size(), m.original.size() + kXyz.size() + kLoci.size() + kCxyz.size());
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
}

TEST(AppendLocations, BoxesAlreadyThereAreNotAddedAgain) {
    {
        MovieFile m(buildMovie({.udtaChildren = kLoci + kXyz}));
        EXPECT_TRUE(m.container.appendLocations(position()));
        EXPECT_EQ(payloadOf(m, "moov.udta"), kLoci + kXyz + kCxyz);
    }
    MovieFile m(buildMovie({.udtaChildren = kCxyz + kXyz + kLoci}));
    ConsoleCapture console;
    EXPECT_TRUE(m.container.appendLocations(position()));
    EXPECT_EQ(console.text(), "MP4: No location-boxes were appended.\n");
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(AppendLocations, WithoutUserDataANewOneEndsTheMovieBox) {
    for (bool moovFirst : {true, false}) {
        const MovieShape shape{.moovFirst = moovFirst, .withUdta = false};
        MovieFile m(buildMovie(shape));
        EXPECT_TRUE(m.container.appendLocations(position()));
        const MP4::BOX* udta = m.first("moov.udta");
        ASSERT_NE(udta, nullptr);
        EXPECT_EQ(udta->end(), m.first("moov")->end());
        EXPECT_EQ(payloadOf(m, "moov.udta"), kXyz + kLoci + kCxyz);
        EXPECT_EQ(allSamples(m.path), movieSamples(shape));
    }
    MovieFile noMedia(box("ftyp", "isom") + box("moov", box("udta", "")));
    EXPECT_FALSE(noMedia.container.appendLocations(position()));
    EXPECT_EQ(noMedia.bytes(), noMedia.original);
}

TEST(AppendLocationAndSphericalXml, BothInOneRewrite) {
    const std::string xml = "<rdf:SphericalVideo/>";
    for (bool withUdta : {true, false}) {
        for (bool moovFirst : {true, false}) {
            SCOPED_TRACE(std::string(withUdta ? "udta, " : "no udta, ") + (moovFirst ? "moov first" : "mdat first"));
            const MovieShape shape{.moovFirst = moovFirst, .withUdta = withUdta};
            MovieFile m(buildMovie(shape));
            const uint64_t moov = m.first("moov")->size;
            const uint64_t trak = m.first("moov.trak")->size;
            EXPECT_TRUE(m.container.appendLocationAndSphericalVideoXML(position(), xml));
            const Bytes sphere(MP4::SphericalXML(xml).to_byteArray().view());
            EXPECT_EQ(m.first("moov.trak")->size, trak + sphere.size());
            EXPECT_EQ(m.first("moov")->size, moov + sphere.size() + kXyz.size() + kLoci.size() +
                                                  kCxyz.size() + (withUdta ? 0 : 8));
            EXPECT_EQ(payloadOf(m, "moov.trak.uuid"), sphere.substr(8));
            const Bytes udta = payloadOf(m, "moov.udta");
            const Bytes added = kXyz + kLoci + kCxyz;
            ASSERT_GE(udta.size(), added.size());
            EXPECT_EQ(udta.substr(udta.size() - added.size()), added);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
        }
    }
}
