// Carrying the spatial-data block into another movie: its bytes, its track's
// chunk offsets and the KDT9 locator.
#include <gtest/gtest.h>

#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "mp4/uuid_box.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"
#include "tools/builders/spatial_builder.h"

using namespace testsupport;
using namespace builders;

namespace {

const Bytes kSpatialId("\x28\xf3\x11\xe2\xb7\x91\x4f\x6f\x94\xe2\x4f\x5d\xea\xcb\x3c\x01", 16);
const Bytes kPcm = "0123456789abcdefghijklmnopqrstuvwxyz";

// A spatial-data block placed at blockStart whose track has chunks at the
// given offsets into the KADT payload.
Bytes spatialBlock(uint64_t blockStart, std::vector<uint64_t> chunks, const Bytes& pcm = kPcm) {
    for (auto& c : chunks) c += blockStart + 24 + 8;
    const Bytes katr = container(
        "KATR", {container("mdia", {container("minf", {container("stbl", {co64(chunks)})})})});
    return uuidBox(kSpatialId, box("KADT", pcm) + katr);
}

Bytes kdt9(uint64_t offset, uint64_t size) { return box("KDT9", be64(offset) + be64(size) + "rest"); }

// A source movie ending with a spatial block, its KDT9 locating it.
struct Source {
    Bytes bytes;
    uint64_t offset = 0;
    uint64_t size = 0;
};

Source spatialSource(const std::vector<uint64_t>& chunks = {0, 10, 20}) {
    // The locator's size does not depend on its values: build twice.
    const Bytes probe = buildMovie({.udtaChildren = kdt9(0, 0)});
    const Bytes block = spatialBlock(probe.size(), chunks);
    Source s;
    s.offset = probe.size();
    s.size = block.size();
    s.bytes = buildMovie({.udtaChildren = kdt9(s.offset, s.size)}) + block;
    return s;
}

uint64_t be64At(const Bytes& b, size_t at) {
    uint64_t v = 0;
    for (size_t i = 0; i < 8; ++i) v = (v << 8) | uint8_t(b[at + i]);
    return v;
}

}  // namespace

TEST(SpatialData, TheBlockArrivesWithItsTrackAndLocatorPointingAtItself) {
    const Source src = spatialSource();
    MovieFile source(src.bytes, "source.mp4");
    const MovieShape outShape{.moovFirst = false, .udtaChildren = kdt9(0, 0)};
    MovieFile out(buildMovie(outShape));
    EXPECT_FALSE(out.container.isSpatialDataExist());

    QVMX::FileIO file(source.wpath(), 'r');
    EXPECT_TRUE(out.container.appendSpatialData(file, src.offset, src.size));
    EXPECT_TRUE(out.container.isSpatialDataExist());

    const Bytes b = out.bytes();
    const uint64_t newStart = out.original.size();
    EXPECT_EQ(b.substr(newStart), spatialBlock(newStart, {0, 10, 20}));
    // Each chunk offset of the carried track reaches the same audio bytes.
    const size_t co64At = b.find("co64", newStart) + 12;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(b.substr(be64At(b, co64At + 8 * i), 5), kPcm.substr(10 * i, 5));
    }
    const size_t locator = b.find("KDT9") + 4;
    EXPECT_EQ(be64At(b, locator), newStart);
    EXPECT_EQ(be64At(b, locator + 8), src.size);
    EXPECT_EQ(b.substr(locator + 16, 4), "rest");
    EXPECT_EQ(allSamples(out.path), movieSamples(outShape));

    ConsoleCapture console;
    EXPECT_TRUE(out.container.appendSpatialData(file, src.offset, src.size));
    EXPECT_EQ(console.text(), "MP4: SpatialData is existed.\n");
    EXPECT_EQ(out.bytes(), b);
}

TEST(SpatialData, WhatIsNotOneWholeBlockIsNotCopied) {
    const Source src = spatialSource();
    MovieFile source(src.bytes, "source.mp4");
    QVMX::FileIO file(source.wpath(), 'r');
    struct Case {
        const char* what;
        uint64_t offset, size;
    } cases[] = {{"size differs from the box", src.offset, src.size - 1},
                 {"not a uuid box", 0, src.size},
                 {"past the end", src.offset, src.size + 100},
                 {"offset beyond the file", src.bytes.size() + 5, 30}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MovieFile out(buildMovie({}));
        EXPECT_FALSE(out.container.appendSpatialData(file, c.offset, c.size));
        EXPECT_EQ(out.bytes(), out.original);
    }
}

TEST(SpatialData, ABlockWhoseTrackCannotFollowIsTakenOutAgain) {
    // The track's chunk table claims more entries than it holds.
    Source src = spatialSource();
    const size_t countAt = src.bytes.find("co64", src.offset) + 8;
    src.bytes.replace(countAt, 4, be32(5000));
    MovieFile source(src.bytes, "source.mp4");
    QVMX::FileIO file(source.wpath(), 'r');
    MovieFile out(buildMovie({}));
    ConsoleCapture console;
    EXPECT_FALSE(out.container.appendSpatialData(file, src.offset, src.size));
    EXPECT_EQ(out.bytes(), out.original);
    EXPECT_NE(console.text().find("overwriteSpatialDataOffset_KADT"), std::string::npos);
}

TEST(SpatialData, ALocatorTooShortForItsNumbersIsNotWritten) {
    const Source src = spatialSource();
    MovieFile source(src.bytes, "source.mp4");
    QVMX::FileIO file(source.wpath(), 'r');
    MovieFile out(buildMovie({.udtaChildren = box("KDT9", "short")}));
    EXPECT_FALSE(out.container.appendSpatialData(file, src.offset, src.size));
    EXPECT_EQ(out.bytes(), out.original);
}

TEST(SpatialData, MovingTheBlockBackShiftsTheTrackBack) {
    // overwriteSpatialDataOffset on a movie whose block was moved by hand.
    const Source src = spatialSource({4});
    Bytes moved = src.bytes;
    moved.insert(src.offset, box("free", "12345678"));  // the block is now 16 bytes later
    MovieFile m(moved);
    EXPECT_TRUE(m.container.overwriteSpatialDataOffset(src.offset));
    const Bytes b = m.bytes();
    const size_t co64At = b.find("co64", src.offset) + 12;
    EXPECT_EQ(b.substr(be64At(b, co64At), 3), "456");
    EXPECT_EQ(be64At(b, b.find("KDT9") + 4), src.offset + 16);

    MovieFile none(buildMovie({}));
    EXPECT_FALSE(none.container.overwriteSpatialDataOffset(0));
}

// A source of 4000 eight-byte samples at 1000/s cut to 0.5 s..4.0 s keeps
// bytes 4000..32000: two full chunks of 12288 bytes and 3424 more.
TEST(SpatialData, ATrimmedBlockHoldsTheKeptAudioAndItsRebuiltTrack) {
    MovieFile source(spatialMovie({}), "source.mp4");
    MP4::SpatialSound sound;
    ASSERT_TRUE(sound.attach(source.wpath(), 0.5, 4.0));
    const MovieShape outShape{.moovFirst = true, .udtaChildren = kdt9(0, 0)};
    MovieFile out(buildMovie(outShape));

    QVMX::FileIO file(source.wpath(), 'r');
    ASSERT_TRUE(out.container.trimSpatialData(file, 20, sound));
    const Bytes b = out.bytes();
    const uint64_t newStart = out.original.size();
    const Bytes kept = spatialAudio(32000).substr(4000);
    const Bytes katr(sound.trimmedKATR.view());
    EXPECT_EQ(b.substr(newStart), be32(uint32_t(kept.size() + katr.size() + 32)) + "uuid" + kSpatialId +
                                      box("KADT", kept) + b.substr(newStart + 32 + kept.size()));
    EXPECT_EQ(b.size(), newStart + 32 + kept.size() + katr.size());
    const size_t co64At = b.find("co64", newStart) + 12;
    for (int i = 0; i < 3; ++i) {
        const uint64_t chunk = be64At(b, co64At + 8 * i);
        EXPECT_EQ(chunk, newStart + 32 + 12288 * i);
        EXPECT_EQ(b.substr(chunk, 16), kept.substr(12288 * i, 16));
    }
    const size_t locator = b.find("KDT9") + 4;
    EXPECT_EQ(be64At(b, locator), newStart);
    EXPECT_EQ(be64At(b, locator + 8), b.size() - newStart);
    EXPECT_EQ(allSamples(out.path), movieSamples(outShape));

    ConsoleCapture console;
    EXPECT_TRUE(out.container.trimSpatialData(file, 20, sound));
    EXPECT_EQ(console.text(), "MP4: SpatialData is existed.\n");
    EXPECT_EQ(out.bytes(), b);
}

TEST(SpatialData, ATrimWithoutARangeOrABlockWritesNothing) {
    MovieFile source(spatialMovie({}), "source.mp4");
    QVMX::FileIO file(source.wpath(), 'r');
    MP4::SpatialSound sound;
    ASSERT_TRUE(sound.attach(source.wpath(), 0.5, 4.0));
    MP4::SpatialSound nothing;
    ASSERT_TRUE(nothing.attach(source.wpath(), 0, -1));  // the whole track: nothing built
    struct Case {
        const char* what;
        MP4::SpatialSound& sound;
        uint64_t offset;
    } cases[] = {{"nothing built", nothing, 20}, {"not a block at the offset", sound, 0},
                 {"offset beyond the file", sound, source.original.size() + 8}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MovieFile out(buildMovie({}));
        EXPECT_FALSE(out.container.trimSpatialData(file, c.offset, c.sound));
        EXPECT_EQ(out.bytes(), out.original);
        EXPECT_FALSE(out.temporaryLeft());
    }
}

TEST(SpatialData, ALocatorFollowsItsBlockWhenAnEditInTheMovieBoxMovesIt) {
    // Media data first, then the movie box, then the block: growing the
    // video track moves the block by the inserted length.
    const MovieShape shape{.moovFirst = false, .udtaChildren = kdt9(0, 0)};
    const Bytes movie = buildMovie(shape);
    const Bytes block = spatialBlock(movie.size(), {0, 10});
    Bytes withBlock = movie + block;
    const size_t locator = withBlock.find("KDT9") + 4;
    withBlock.replace(locator, 16, be64(movie.size()) + be64(block.size()));
    MovieFile m(withBlock);

    const std::string xml = "<rdf:SphericalVideo/>";
    ASSERT_TRUE(m.container.appendSphericalVideoXML(xml));
    const Bytes b = m.bytes();
    const uint64_t moved = movie.size() + 24 + xml.size();
    EXPECT_EQ(b.substr(moved, 4), be32(uint32_t(block.size())));
    EXPECT_EQ(be64At(b, b.find("KDT9") + 4), moved);
    EXPECT_EQ(be64At(b, b.find("KDT9") + 12), block.size());
    const size_t co64At = b.find("co64", moved) + 12;
    EXPECT_EQ(b.substr(be64At(b, co64At + 8), 5), kPcm.substr(10, 5));
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}

TEST(SpatialData, ARelayoutWithEditsCarriesTheBlockAndItsLocatorAlong) {
    const MovieShape shape{.moovFirst = false, .udtaChildren = kdt9(0, 0)};
    const Bytes movie = buildMovie(shape);
    const Bytes block = spatialBlock(movie.size(), {0, 10});
    Bytes withBlock = movie + block;
    withBlock.replace(withBlock.find("KDT9") + 4, 16, be64(movie.size()) + be64(block.size()));
    MovieFile m(withBlock);

    const std::string xml = "<rdf:SphericalVideo/>";
    m.container.beginEdits();
    ASSERT_TRUE(m.container.moovFirst());
    ASSERT_TRUE(m.container.appendSphericalVideoXML(xml));
    ASSERT_TRUE(m.container.commitEdits());
    EXPECT_FALSE(m.container.isMdatFirst());
    const Bytes b = m.bytes();
    const uint64_t moved = movie.size() + 24 + xml.size();
    EXPECT_EQ(b.substr(moved, 4), be32(uint32_t(block.size())));
    EXPECT_EQ(be64At(b, b.find("KDT9") + 4), moved);
    const size_t co64At = b.find("co64", moved) + 12;
    EXPECT_EQ(b.substr(be64At(b, co64At + 8), 5), kPcm.substr(10, 5));
    EXPECT_EQ(allSamples(m.path), movieSamples(shape));
}
