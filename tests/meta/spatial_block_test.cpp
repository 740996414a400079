// The spatial-audio block: trimming its track, carrying it into another
// movie with its chunk offsets and KDT9 locator, and the locator following
// the block when an edit moves it.
#include <gtest/gtest.h>

#include <memory>
#include <optional>

#include "foundation/file_io.h"
#include "meta/spatial_block.h"
#include "meta/spatial_sound.h"
#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "tools/builders/spatial_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;

namespace {

// Every movie of these tests is parsed with the block's track seen.
const bool known = (meta::knowSpatialBlock(), true);

const Bytes kPcm = "0123456789abcdefghijklmnopqrstuvwxyz";

// A block placed at blockStart whose track has chunks at the given offsets
// into the KADT payload.
Bytes spatialBlock(uint64_t blockStart, std::vector<uint64_t> chunks) {
    for (auto& c : chunks) c += blockStart + 24 + 8;
    return uuidBox(kSpatialDataUuid,
                   box("KADT", kPcm) + box("KATR", box("mdia", box("minf", box("stbl", co64(chunks))))));
}

Bytes kdt9(uint64_t offset, uint64_t size) { return box("KDT9", be64(offset) + be64(size) + "rest"); }

uint64_t be64At(const Bytes& b, size_t at) {
    uint64_t v = 0;
    for (size_t i = 0; i < 8; ++i) v = (v << 8) | uint8_t(b[at + i]);
    return v;
}

// A movie ending with a block, its KDT9 locating it; offset and size of the
// block.
struct Source {
    Bytes bytes;
    uint64_t offset, size;
};

Source spatialSource(bool moovFirst = true) {
    // The locator's size does not depend on its values: build twice.
    const uint64_t offset = buildMovie({.moovFirst = moovFirst, .udtaChildren = kdt9(0, 0)}).size();
    const Bytes block = spatialBlock(offset, {0, 10, 20});
    return {buildMovie({.moovFirst = moovFirst, .udtaChildren = kdt9(offset, block.size())}) + block, offset,
            block.size()};
}

// The trim of a movie's spatial track to start..end seconds.
struct Trim {
    MovieFile movie;
    meta::SpatialSound sound;
    bool result;
    std::string console;
    Trim(const Bytes& bytes, double start, double end) : movie(bytes, "source.mp4") {
        ConsoleCapture capture;
        MP4::Container container;
        container.attach(movie.wpath());
        result = sound.attach(container, start, end);
        console = capture.text();
    }
};

// The source's block appended to out in one batch, whole or cut to sound;
// where it landed, or nothing when it was refused.
std::optional<meta::BlockPlace> carry(MovieFile& out, const std::wstring& source, const meta::SpatialSound& sound) {
    MP4::Container from;
    if (!from.attach(source)) return std::nullopt;
    auto file = std::make_shared<QVMX::FileIO>(source, 'r');
    meta::BlockPlace place;
    MP4::BoxEdit block;
    out.container.beginEdits();
    const bool ok = out.container.plannedAppendOffset(place.start) &&
                    meta::spatialBlockEdit(from, file, sound, place, block) &&
                    out.container.appendTopLevel(L"spatialData", std::move(block));
    if (!out.container.commitEdits() || !ok) return std::nullopt;
    return place;
}

}  // namespace

TEST(SpatialTrim, KeptRangeAndRebuiltTrackWorkedOutByHand) {
    // 4000 samples of 8 bytes; a chunk is 1536 * 8 = 12288 bytes; the KADT
    // payload starts at 52.
    //   0.5 s..4.0 s at 1000/s: bytes 4000..32000 = 3500 samples, 2 full
    //     chunks and 28000 - 24576 = 3424 bytes (also read from an mdhd of version 1);
    //   1.0 s..end: 3000 samples, 1 chunk and 11712 bytes;
    //   0..1.0 s at 1536/s: one full chunk and an empty last one;
    //   0.0015 s..0.0029 s: cut to whole samples, 1..2.
    struct Case {
        uint8_t mdhdVersion;
        uint32_t timeScale;
        double start, end;
        uint32_t startByte, endByte, samples, chunks, lastChunkBytes;
        std::vector<uint64_t> offsets;
    } cases[] = {{0, 1000, 0.5, 4.0, 4000, 32000, 3500, 3, 3424, {52, 12340, 24628}},
                 {1, 1000, 0.5, 4.0, 4000, 32000, 3500, 3, 3424, {52, 12340, 24628}},
                 {0, 1000, 1.0, -1, 8000, 32000, 3000, 2, 11712, {52, 12340}},
                 {0, 1536, 0, 1.0, 0, 12288, 1536, 2, 0, {52, 12340}},
                 {0, 1000, 0.0015, 0.0029, 8, 16, 1, 1, 8, {52}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + ".." + std::to_string(c.end));
        Trim t(spatialMovie({.timeScale = c.timeScale, .mdhdVersion = c.mdhdVersion}), c.start, c.end);
        ASSERT_TRUE(t.result) << t.console;
        EXPECT_TRUE(t.sound.built);
        EXPECT_EQ(t.sound.startByte, c.startByte);
        EXPECT_EQ(t.sound.endByte, c.endByte);
        const Bytes stbl = katrStsd() + stts({{c.samples, 1}}) +
                           stsc({{1, 1536, 1}, {c.chunks, c.lastChunkBytes, 1}}) + stsz(8, {}, c.samples) +
                           co64(c.offsets);
        EXPECT_EQ(Bytes(t.sound.trimmedKATR.view()),
                  box("KATR", katrTkhd() +
                                  box("mdia", mdhd(c.mdhdVersion, 3600, c.timeScale, c.samples) + katrHdlr() +
                                                  box("minf", katrSmhd() + katrDinf() + box("stbl", stbl)))));
    }
}

TEST(SpatialTrim, NothingToDoSucceedsAndBadRangesOrTracksFail) {
    const Bytes whole = spatialMovie({}), plain = box("ftyp", "isom") + box("mdat", "x");
    const Bytes shortKadt = spatialMovie({.storedBytes = 20000});  // 20000 of the 32000 bytes claimed
    struct Case {
        Bytes movie;
        double start, end;
        bool result, built;
    } cases[] = {{whole, 0, -1, true, false},
                 {plain, 0, -1, true, false},
                 {shortKadt, 0.5, 2.5, true, true},
                 {shortKadt, 0.5, 2.501, false, false},
                 {shortKadt, 0.5, -1, false, false},
                 {whole, 5, 2, false, false},
                 {whole, 0, 4.001, false, false},
                 {whole.substr(0, whole.size() - 30), 0.5, 1, false, false}};  // cut inside the tables
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.start) + ".." + std::to_string(c.end));
        Trim t(c.movie, c.start, c.end);
        EXPECT_EQ(t.result, c.result);
        EXPECT_EQ(t.sound.built, c.built);
        EXPECT_EQ(t.console, "");
    }
    for (const SpatialShape& shape : {SpatialShape{.withMdhd = false}, SpatialShape{.withStsz = false}}) {
        Trim t(spatialMovie(shape), 0.5, 1.0);
        EXPECT_FALSE(t.result);
        EXPECT_EQ(t.console, "No Spatial Metadata.\n");
    }
}

TEST(SpatialData, TheBlockArrivesWithItsTrackPointingAtItsOwnAudio) {
    const Source src = spatialSource();
    MovieFile source(src.bytes, "source.mp4");
    const MovieShape outShape{.moovFirst = false};
    MovieFile out(buildMovie(outShape));
    EXPECT_EQ(meta::spatialBlock(out.container), nullptr);
    const auto place = carry(out, source.wpath(), meta::SpatialSound{});
    ASSERT_TRUE(place);
    EXPECT_NE(meta::spatialBlock(out.container), nullptr);

    const Bytes b = out.bytes();
    const uint64_t newStart = out.original.size();
    EXPECT_EQ(place->start, newStart);
    EXPECT_EQ(place->size, src.size);
    EXPECT_EQ(b.substr(newStart), spatialBlock(newStart, {0, 10, 20}));
    const size_t co64At = b.find("co64", newStart) + 12;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(b.substr(be64At(b, co64At + 8 * i), 5), kPcm.substr(10 * i, 5));  // the same audio bytes
    }
    EXPECT_EQ(allSamples(out.path), movieSamples(outShape));

    // The locator in a copy of the user data names the new place.
    const Bytes udta = box("udta", box("KMKN", "m") + kdt9(1, 2));
    ByteArray copy(udta.data(), udta.size());
    ASSERT_TRUE(meta::pointLocator(copy, *place));
    EXPECT_EQ(Bytes(copy.view()), box("udta", box("KMKN", "m") + box("KDT9", be64(newStart) + be64(src.size) + "rest")));
    // Following it changes only a start that named the old place.
    ASSERT_TRUE(meta::followLocator(copy, newStart, 7));
    ASSERT_TRUE(meta::followLocator(copy, newStart, 9));
    EXPECT_EQ(Bytes(copy.view()), box("udta", box("KMKN", "m") + box("KDT9", be64(7) + be64(src.size) + "rest")));
    ByteArray shortOne = ByteArray(box("udta", box("KDT9", "short")).data(), 21);
    EXPECT_FALSE(meta::pointLocator(shortOne, *place));
}

TEST(SpatialData, WhatIsNotOneWholeBlockWithItsTrackIsNotCopied) {
    const Source src = spatialSource();
    Bytes broken = src.bytes;  // the track's chunk table claims more entries than it holds
    broken.replace(broken.find("co64", src.offset) + 8, 4, be32(5000));
    Bytes cut = src.bytes.substr(0, src.bytes.size() - 4);
    Bytes noTrack = src.bytes;
    noTrack.replace(noTrack.find("KATR", src.offset), 4, "KXTR");
    struct Case {
        const char* what;
        Bytes source;
    } cases[] = {{"track cannot follow", broken},
                 {"block cut short", cut},
                 {"no track", noTrack},
                 {"no block", buildMovie({})}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        MovieFile source(c.source, "source.mp4");
        MovieFile out(buildMovie({}));
        ConsoleCapture console;
        EXPECT_FALSE(carry(out, source.wpath(), meta::SpatialSound{}));
        EXPECT_EQ(out.bytes(), out.original);
        EXPECT_FALSE(out.temporaryLeft());
    }
}

TEST(SpatialData, ATrimmedBlockHoldsTheKeptAudioAndItsRebuiltTrack) {
    Trim t(spatialMovie({}), 0.5, 4.0);  // bytes 4000..32000: two chunks of 12288 and 3424 more
    ASSERT_TRUE(t.result);
    const MovieShape outShape{.moovFirst = true};
    MovieFile out(buildMovie(outShape));
    const auto place = carry(out, t.movie.wpath(), t.sound);
    ASSERT_TRUE(place);
    const Bytes b = out.bytes();
    const uint64_t newStart = out.original.size();
    const Bytes kept = spatialAudio(32000).substr(4000);
    const uint64_t blockSize = 32 + kept.size() + t.sound.trimmedKATR.size;
    ASSERT_EQ(b.size(), newStart + blockSize);
    EXPECT_EQ(place->size, blockSize);
    EXPECT_EQ(b.substr(newStart, 32 + kept.size()),
              be32(uint32_t(blockSize)) + "uuid" + kSpatialDataUuid + box("KADT", kept));
    const size_t co64At = b.find("co64", newStart) + 12;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(be64At(b, co64At + 8 * i), newStart + 32 + 12288 * i);
    }
    EXPECT_EQ(allSamples(out.path), movieSamples(outShape));
    // The same audio as a WAV file: RIFF size 36 + 28000, 4 channels,
    // 1000/s, 8000 bytes/s, blocks of 8, 16 bits, data size 28000.
    ASSERT_TRUE(t.sound.dumpWAV(t.movie.container, t.movie.dir.wfile("a.wav")));
    EXPECT_EQ(readFile(t.movie.dir.file("a.wav")),
              Bytes("RIFF\x84\x6D\0\0WAVEfmt \x10\0\0\0\x01\0\x04\0\xE8\x03\0\0\x40\x1F\0\0\x08\0\x10\0"
                    "data\x60\x6D\0\0",
                    44) + kept);

    // A kept range that is not in the source's audio: nothing is written.
    meta::SpatialSound past = t.sound;
    past.endByte = past.startByte - 1;
    MovieFile none(buildMovie({}));
    EXPECT_FALSE(carry(none, t.movie.wpath(), past));
    EXPECT_EQ(none.bytes(), none.original);
}

TEST(SpatialData, TheLocatorFollowsItsBlockWhenAnEditInTheMovieBoxMovesIt) {
    // Media data first, then the movie box, then the block: growing the
    // video track moves the block by the inserted length, alone or batched
    // with the relayout.
    for (bool relayout : {false, true}) {
        SCOPED_TRACE(relayout ? "batched with the relayout" : "alone");
        const Source src = spatialSource(false);
        MovieFile m(src.bytes);
        const uint64_t mdat = m.container.mdat()->start, moov = m.container.moov()->size;
        const std::string xml = "<rdf:SphericalVideo/>";
        const MP4::UserType kind{'s', 'p', 'h', 'e', 'r', 'i', 'c', 'a', 'l', ' ', 'v', 'i', 'd', 'e', 'o', '1'};
        const Bytes sphere = uuidBox(std::string(kind.begin(), kind.end()), xml);
        m.container.beginEdits();
        if (relayout) {
            ASSERT_TRUE(m.container.moovFirst());
        }
        std::vector<MP4::BoxEdit> edit(1);
        ASSERT_TRUE(m.container.trackUuidEdit(ByteArray(sphere.data(), sphere.size()), kind, edit[0]));
        ASSERT_TRUE(m.container.applyEdits(L"trackUuid", edit));
        ASSERT_TRUE(meta::followLocator(m.container));
        ASSERT_TRUE(m.container.commitEdits());
        const Bytes b = m.bytes();
        // The relayout puts padding in front of the media data, which keeps
        // its place within the page.
        const uint64_t grown = 24 + xml.size();
        const uint64_t padding = relayout ? MP4::alignmentPadding(mdat, mdat + moov + grown) : 0;
        const uint64_t moved = src.offset + grown + padding;
        EXPECT_EQ(b.substr(moved), spatialBlock(moved, {0, 10, 20}));
        EXPECT_EQ(b.substr(b.find("KDT9") + 4, 16), be64(moved) + be64(src.size));
        EXPECT_EQ(allSamples(m.path), movieSamples({.moovFirst = relayout, .udtaChildren = kdt9(0, 0)}));
    }
}
