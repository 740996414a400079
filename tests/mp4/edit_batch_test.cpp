// Several rewrites recorded together and written in one copy give the file
// that making them one after the other gives.
#include <gtest/gtest.h>

#include "geo/gps_info.h"
#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

GPSInfo tokyo() {
    GPSInfo gps;
    gps.attachRXYZ("+35.6586+139.7454/");
    return gps;
}

void dropLociAddLocationAndXml(MP4::Container& c) {
    c.removeBadLOCI();
    c.appendLocationAndSphericalVideoXML(tokyo(), "<rdf:SphericalVideo/>");
    c.replaceUdta(16, ByteArray("\0\0\0\x10udta\0\0\0\x08" "free", 16));
}

}  // namespace

TEST(EditBatch, OneCopyMakesWhatSeparateRewritesMake) {
    for (bool moovFirst : {true, false}) {
        SCOPED_TRACE(moovFirst);
        const MovieShape shape{.moovFirst = moovFirst, .udtaChildren = box("@xyz", "+1+2/") + box("loci", Bytes(20, '\0'))};
        MovieFile separate(buildMovie(shape));
        // The user data is replaced last here, so do the same without it.
        separate.container.removeBadLOCI();
        separate.container.appendLocationAndSphericalVideoXML(tokyo(), "<rdf:SphericalVideo/>");

        MovieFile batched(buildMovie(shape));
        batched.container.beginEdits();
        batched.container.removeBadLOCI();
        batched.container.removeBadLOCI();  // already on its way out: nothing more
        batched.container.appendLocationAndSphericalVideoXML(tokyo(), "<rdf:SphericalVideo/>");
        EXPECT_EQ(batched.bytes(), batched.original);  // nothing written before the commit
        ASSERT_TRUE(batched.container.commitEdits());

        EXPECT_EQ(batched.bytes(), separate.bytes());
        // The removed loci is replaced by a full one.
        EXPECT_NE(batched.bytes().find(be32(32) + "loci"), std::string::npos);
        EXPECT_EQ(allSamples(batched.path), movieSamples(shape));
        EXPECT_FALSE(batched.temporaryLeft());
    }
}

TEST(EditBatch, AnEmptyBatchWritesNothingAndAClashingOneWritesNothingEither) {
    MovieFile m(buildMovie({.udtaChildren = box("loci", Bytes(20, '\0'))}));
    m.container.beginEdits();
    EXPECT_TRUE(m.container.commitEdits());
    EXPECT_EQ(m.bytes(), m.original);

    // The loci lies inside the user data that is replaced: the edits overlap.
    m.container.beginEdits();
    dropLociAddLocationAndXml(m.container);
    EXPECT_FALSE(m.container.commitEdits());
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
}

TEST(EditBatch, TheRelayoutAndTheEditsAreOneCopyToo) {
    for (bool use64 : {false, true}) {
        SCOPED_TRACE(use64);
        const MovieShape shape{.moovFirst = false, .use64 = use64,
                             .udtaChildren = box("@xyz", "+1+2/") + box("loci", Bytes(20, '\0'))};
        MovieFile separate(buildMovie(shape));
        EXPECT_TRUE(separate.container.moovFirst());
        separate.container.removeBadLOCI();
        separate.container.appendLocationAndSphericalVideoXML(tokyo(), "<rdf:SphericalVideo/>");

        MovieFile batched(buildMovie(shape));
        batched.container.beginEdits();
        EXPECT_TRUE(batched.container.moovFirst());
        batched.container.removeBadLOCI();
        batched.container.appendLocationAndSphericalVideoXML(tokyo(), "<rdf:SphericalVideo/>");
        ASSERT_TRUE(batched.container.commitEdits());

        EXPECT_EQ(batched.bytes(), separate.bytes());
        EXPECT_FALSE(batched.container.isMdatFirst());
        EXPECT_EQ(allSamples(batched.path), movieSamples(shape));
        EXPECT_FALSE(batched.temporaryLeft());
    }
    // Already in front: the batch has only its edits.
    MovieFile front(buildMovie({.moovFirst = true}));
    front.container.beginEdits();
    EXPECT_FALSE(front.container.moovFirst());
    EXPECT_TRUE(front.container.commitEdits());
    EXPECT_EQ(front.bytes(), front.original);
}
