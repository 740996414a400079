// Location boxes of the user data.
#include <gtest/gtest.h>

#include "mp4/container.h"
#include "support/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;

namespace {

Bytes loci(size_t size) { return box("loci", Bytes(size - 8, '\0')); }

}  // namespace

TEST(RemoveBadLoci, OnlyTheShortFormGoesAndEverySampleStays) {
    for (bool moovFirst : {true, false}) {
        for (bool use64 : {false, true}) {
            SCOPED_TRACE(std::string(moovFirst ? "moov first" : "mdat first") + (use64 ? ", co64" : ""));
            const MovieSpec spec{.moovFirst = moovFirst, .use64 = use64,
                                 .udtaChildren = box("@mod", "m") + loci(28) + box("free", "x")};
            MovieFile m(buildMovie(spec));
            const uint64_t udta = m.first("moov.udta")->size;
            EXPECT_TRUE(m.container.removeBadLOCI());
            EXPECT_EQ(m.first("moov.loci"), nullptr);
            EXPECT_EQ(m.first("moov.udta.loci"), nullptr);
            EXPECT_EQ(m.first("moov.udta")->size, udta - 28);
            EXPECT_EQ(m.bytes().size(), m.original.size() - 28);
            EXPECT_NE(m.first("moov.udta.free"), nullptr);
            EXPECT_EQ(allSamples(m.path), movieSamples(spec));
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
