// The metadata a movie gains through edits, in every layout: location
// boxes, the spherical XML, the XMP and AXIS boxes, and several of them
// batched into one copy.
#include <gtest/gtest.h>

#include <algorithm>

#include "foundation/notices.h"
#include "geo/gps_info.h"
#include "meta/location_edits.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "mp4/header_boxes.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "tools/builders/spatial_builder.h"
#include "support/movie_file.h"
#include "support/movie_layouts.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

MovieShape with(MovieShape s, const Bytes& udtaChildren) {
    s.udtaChildren = udtaChildren;
    return s;
}

Bytes id(const MP4::UserType& t) { return Bytes(t.begin(), t.end()); }
Bytes loci(size_t size) { return box("loci", Bytes(size - 8, '\0')); }

GPSInfo position() {
    GPSInfo gps;
    gps.attachRXYZ("+35.5000+139.2500+012.000/");
    return gps;
}

// The three location boxes worked out by hand: the text as given; 16.16
// fixed point of 139.25, 35.5 and 12 in loci; the 0xA9 text without the
// altitude, language "eng".
const Bytes kXyz = box("@xyz", "+35.5000+139.2500+012.000/");
const Bytes kLoci =
    box("loci", Bytes(8, '\0') + be32(0x008B4000) + be32(0x00238000) + be32(0x000C0000) + Bytes(4, '\0'));
const Bytes kCxyz = box("\xA9xyz", be16(18) + be16(0x15C7) + "+35.5000+139.2500/");
const Bytes kLocations = kXyz + kLoci + kCxyz;
const std::string kXml =
    "<rdf:SphericalVideo>\n  <GSpherical:Spherical>true</GSpherical:Spherical>\n</rdf:SphericalVideo>";

}  // namespace

TEST(RemoveBadLoci, OnlyTheShortFormGoesAndEverySampleStays) {
    for (const MovieShape& layout : kLayouts) {
        SCOPED_TRACE(layoutName(layout));
        // The short loci in the middle of the user data, and ending the movie
        // box right before the media data, which then moves.
        for (const Bytes& after : {box("free", "x"), Bytes()}) {
            const MovieShape shape = with(layout, box("@mod", "m") + loci(28) + after);
            MovieFile m(buildMovie(shape));
            const uint64_t udta = m.first("moov.udta")->size;
            const uint64_t mdat = m.container.mdat()->start;
            EXPECT_TRUE(meta::removeBadLOCI(m.container));
            EXPECT_EQ(m.first("moov.udta.loci"), nullptr);
            EXPECT_EQ(m.first("moov.udta")->size, udta - 28);
            // Media data that moves keeps its place within the page behind
            // a free box.
            const uint64_t padding = layout.moovFirst ? MP4::alignmentPadding(mdat, mdat - 28) : 0;
            EXPECT_EQ(m.bytes().size(), m.original.size() - 28 + padding);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
        }
    }
    // Longer forms, a short one after a longer one, and none at all.
    for (const Bytes& children : {loci(30), loci(32) + loci(28), Bytes()}) {
        MovieFile m(buildMovie({.udtaChildren = children}));
        EXPECT_TRUE(meta::removeBadLOCI(m.container));
        EXPECT_EQ(m.bytes(), m.original);
    }
}

TEST(AppendLocations, BoxesAlreadyThereAreNotAddedAgainAndAMovieWithoutMediaIsRefused) {
    MovieFile some(buildMovie({.udtaChildren = kLoci + kXyz}));
    EXPECT_TRUE(meta::appendLocations(some.container, position()));
    EXPECT_EQ(some.payload("moov.udta"), kLoci + kXyz + kCxyz);
    MovieFile all(buildMovie({.udtaChildren = kCxyz + kXyz + kLoci}));
    QVMX::Notices::Capture notices;
    EXPECT_TRUE(meta::appendLocations(all.container, position()));
    EXPECT_EQ(notices.text(), L"MP4: No location-boxes were appended.\n");
    EXPECT_EQ(all.bytes(), all.original);
    MovieFile noMedia(box("ftyp", "isom") + box("moov", box("udta", "")));
    EXPECT_FALSE(meta::appendLocations(noMedia.container, position()));
    EXPECT_EQ(noMedia.bytes(), noMedia.original);
}

TEST(SphericalVideoXml, GoesIntoTheVideoTrackWithTheLocationsInOneRewrite) {
    const Bytes sphere = uuidBox(id(meta::kSphericalXmlUuid), kXml);
    for (MovieShape shape : kLayouts) {
        for (bool withUdta : {true, false}) {
            shape.withUdta = withUdta;
            SCOPED_TRACE(layoutName(shape));
            MovieFile m(buildMovie(shape));
            EXPECT_TRUE(meta::appendLocationAndSphericalVideoXML(m.container, position(), kXml));
            const auto& video = static_cast<MP4::NestedBox&>(*m.container.videoTrack());
            EXPECT_EQ(m.bytes().substr(video.children.back()->start), sphere + m.bytes().substr(video.end()));
            const Bytes udta = m.payload("moov.udta");
            EXPECT_EQ(udta.substr(udta.size() - kLocations.size()), kLocations);
            EXPECT_EQ(allSamples(m.path), movieSamples(shape));
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
    // A second text replaces the first.
    MovieFile m(buildMovie({}));
    const Bytes other = "<rdf:SphericalVideo>changed, and longer than before</rdf:SphericalVideo>";
    EXPECT_TRUE(meta::appendSphericalVideoXML(m.container, kXml));
    EXPECT_TRUE(meta::appendSphericalVideoXML(m.container, other));
    const Bytes b = m.bytes();
    EXPECT_EQ(b.find(kXml), std::string::npos);
    EXPECT_NE(b.find(other), std::string::npos);
    EXPECT_EQ(b.find(id(meta::kSphericalXmlUuid)), b.rfind(id(meta::kSphericalXmlUuid)));
    EXPECT_EQ(allSamples(m.path), movieSamples({}));
}

TEST(AppendXmpAndAxis, EachGoesToTheEndOfTheFileOnceClosingAnOpenMediaDataFirst) {
    // moov first, then an mdat whose size field says "to the end".
    Bytes movie = buildMovie({});
    const size_t mdatAt = movie.rfind("mdat") - 4;
    movie.replace(mdatAt, 4, be32(0));
    MovieFile m(movie);
    EXPECT_TRUE(meta::appendXMP(m.container, "<x:xmpmeta/>"));
    EXPECT_TRUE(meta::appendAxis(m.container, "\x01\x02\x03"));
    const Bytes added =
        uuidBox(id(meta::kXmpUuid), "<x:xmpmeta/>") + uuidBox(id(meta::kAxisUuid), "\x01\x02\x03");
    Bytes expected = movie + added;
    expected.replace(mdatAt, 4, be32(uint32_t(movie.size() - mdatAt)));
    EXPECT_EQ(m.bytes(), expected);
    EXPECT_EQ(allSamples(m.path), movieSamples({}));

    QVMX::Notices::Capture notices;
    EXPECT_TRUE(meta::appendXMP(m.container, "other") && meta::appendAxis(m.container, "other"));
    EXPECT_EQ(notices.text(), L"MP4: XMP is existed.\nMP4: AXIS is existed.\n");
    EXPECT_EQ(m.bytes(), expected);
}

TEST(EditBatch, OneCopyMakesWhatSeparateRewritesMakeWithOrWithoutTheRelayout) {
    const auto edits = [](MP4::Container& c, bool relayout) {  // relayout: the media data comes first
        EXPECT_EQ(c.moovFirst().ok(), relayout);
        EXPECT_TRUE(meta::removeBadLOCI(c));
        EXPECT_TRUE(meta::removeBadLOCI(c));  // already on its way out when batched: nothing more
        EXPECT_TRUE(meta::appendLocationAndSphericalVideoXML(c, position(), "<rdf:SphericalVideo/>"));
    };
    const Bytes children = box("@xyz", "+1+2/") + loci(28);
    for (const MovieShape& layout : kLayouts) {
        SCOPED_TRACE(layoutName(layout));
        const MovieShape shape = with(layout, children);
        MovieFile separate(buildMovie(shape));
        edits(separate.container, !shape.moovFirst);
        MovieFile batched(buildMovie(shape));
        batched.container.beginEdits();
        edits(batched.container, !shape.moovFirst);
        EXPECT_EQ(batched.bytes(), batched.original);  // nothing written before the commit
        ASSERT_TRUE(batched.container.commitEdits());
        EXPECT_EQ(batched.bytes(), separate.bytes());
        EXPECT_FALSE(batched.container.isMdatFirst());
        EXPECT_NE(batched.bytes().find(kLoci.substr(0, 8)), std::string::npos);  // a full loci instead
        EXPECT_EQ(allSamples(batched.path), movieSamples(shape));
        EXPECT_FALSE(batched.temporaryLeft());
    }
}

TEST(EditBatch, AnEmptyBatchWritesNothingAndAClashingOneWritesNothingEither) {
    MovieFile m(buildMovie({.udtaChildren = loci(28)}));
    m.container.beginEdits();
    EXPECT_FALSE(m.container.moovFirst());  // already in front: no relayout
    EXPECT_TRUE(m.container.commitEdits());
    EXPECT_EQ(m.bytes(), m.original);
    // The loci lies inside the user data that is replaced: the edits overlap.
    m.container.beginEdits();
    EXPECT_TRUE(meta::removeBadLOCI(m.container));
    EXPECT_TRUE(m.container.replaceUdta(16, ByteArray("\0\0\0\x10udta\0\0\0\x08"
                                                      "free",
                                                      16)));
    const QVMX::Status clash = m.container.commitEdits();
    ASSERT_FALSE(clash);
    EXPECT_EQ(clash.failure().text(),
              L"removeBadLOCI+replaceUdta_Replace: an edit does not fit the movie, or could not be made");
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
}

