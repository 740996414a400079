// Trimming the spatial audio track: the kept byte range and the rebuilt
// KATR, against numbers worked out by hand for each fixture.
#include <gtest/gtest.h>

#include "foundation/file_io.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "tools/builders/spatial_builder.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;

namespace {

struct Trim {
    TempDir dir;
    MP4::SpatialSound sound;
    bool result = false;
    std::string console;

    Trim(const Bytes& movie, double start, double end) {
        writeFile(dir.file("m.mp4"), movie);
        ConsoleCapture capture;
        result = sound.attach(dir.wfile("m.mp4"), start, end);
        console = capture.text();
    }
};

struct Case {
    uint8_t mdhdVersion;
    uint32_t timeScale;
    double start, end;
    uint32_t startByte, endByte, samples, chunks, lastChunkBytes;
    std::vector<uint64_t> offsets;
};

// 4000 samples of 8 bytes; a chunk is 1536 * 8 = 12288 bytes; the KADT
// payload starts at 52.
//   0.5 s..4.0 s at 1000/s: bytes 4000..32000 = 3500 samples, 2 full chunks
//     and 28000 - 24576 = 3424 bytes;
//   1.0 s..end: bytes 8000..32000 = 3000 samples, 1 chunk and 11712 bytes;
//   0..1.0 s at 1536/s: 1536 samples, one full chunk and an empty last one;
//   0.0015 s..0.0029 s: cut to whole samples, 1..2.
class Trims : public testing::TestWithParam<Case> {};

TEST_P(Trims, KeptRangeAndRebuiltTrack) {
    const Case& c = GetParam();
    SpatialShape shape;
    shape.mdhdVersion = c.mdhdVersion;
    shape.timeScale = c.timeScale;
    Trim t(spatialMovie(shape), c.start, c.end);
    ASSERT_TRUE(t.result) << t.console;
    EXPECT_TRUE(t.sound.built);
    EXPECT_EQ(t.console, "");
    EXPECT_EQ(t.sound.startByte, c.startByte);
    EXPECT_EQ(t.sound.endByte, c.endByte);
    EXPECT_EQ(t.sound.sampleCount, c.samples);
    EXPECT_EQ(t.sound.chunkCount, c.chunks);
    EXPECT_EQ(t.sound.lastChunkBytes, c.lastChunkBytes);
    EXPECT_EQ(t.sound.dataOffset, 52u);
    const Bytes stbl = katrStsd() + stts({{c.samples, 1}}) +
                       stsc({{1, 1536, 1}, {c.chunks, c.lastChunkBytes, 1}}) + stsz(8, {}, c.samples) +
                       co64(c.offsets);
    const Bytes expected =
        box("KATR", katrTkhd() + box("mdia", mdhd(c.mdhdVersion, 3600, c.timeScale, c.samples) + katrHdlr() +
                                                 box("minf", katrSmhd() + katrDinf() + box("stbl", stbl))));
    EXPECT_EQ(Bytes(t.sound.trimmedKATR.view()), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Ranges, Trims,
    testing::Values(Case{0, 1000, 0.5, 4.0, 4000, 32000, 3500, 3, 3424, {52, 12340, 24628}},
                    Case{1, 1000, 0.5, 4.0, 4000, 32000, 3500, 3, 3424, {52, 12340, 24628}},
                    Case{0, 1000, 1.0, -1, 8000, 32000, 3000, 2, 11712, {52, 12340}},
                    Case{0, 1536, 0, 1.0, 0, 12288, 1536, 2, 0, {52, 12340}},
                    Case{0, 1000, 0.0015, 0.0029, 8, 16, 1, 1, 8, {52}}));

TEST(SpatialTrim, NothingToDoIsSuccessWithNothingBuilt) {
    const Bytes plain = box("ftyp", "isom") + box("mdat", "x");
    for (const auto& [movie, start, end] : {std::tuple{spatialMovie({}), 0.0, -1.0},
                                            std::tuple{plain, 0.0, -1.0}, std::tuple{plain, 1.0, 2.0}}) {
        Trim t(movie, start, end);
        EXPECT_TRUE(t.result);
        EXPECT_FALSE(t.sound.built);
        EXPECT_TRUE(t.sound.trimmedKATR.empty());
        EXPECT_EQ(t.console, "");
    }
}

TEST(SpatialTrim, BadRangesAndBadTracksFail) {
    // start after end; end or start beyond the 4 s of audio.
    for (const auto& [start, end] : {std::pair{5.0, 2.0}, std::pair{0.0, 4.001}, std::pair{4.5, -1.0},
                                     std::pair{1e300, -1.0}}) {
        Trim t(spatialMovie({}), start, end);
        EXPECT_FALSE(t.result) << start << " " << end;
        EXPECT_EQ(t.console, "");
    }
    // A KADT holding 20000 of the 32000 bytes the track claims.
    SpatialShape shortKadt;
    shortKadt.storedBytes = 20000;
    EXPECT_TRUE(Trim(spatialMovie(shortKadt), 0.5, 2.5).result);
    EXPECT_FALSE(Trim(spatialMovie(shortKadt), 0.5, 2.501).result);
    EXPECT_FALSE(Trim(spatialMovie(shortKadt), 0.5, -1).result);
    // A file cut inside the KATR's tables.
    const Bytes whole = spatialMovie({});
    Trim cut(whole.substr(0, whole.size() - 30), 0.5, 1.0);
    EXPECT_FALSE(cut.result);
    EXPECT_TRUE(cut.sound.trimmedKATR.empty());

    SpatialShape noStsz, noMdhd;
    noStsz.withStsz = false;
    noMdhd.withMdhd = false;
    for (const auto& shape : {noStsz, noMdhd}) {
        Trim t(spatialMovie(shape), 0.5, 1.0);
        EXPECT_FALSE(t.result);
        EXPECT_EQ(t.console, "No Spatial Metadata.\n");
    }
}

TEST(SpatialTrimOutput, RebuiltBoxDumpLineAndWav) {
    Trim t(spatialMovie({}), 0.5, 4.0);
    ASSERT_TRUE(t.result);
    bool ok = false;
    QVMX::FileIO::open_w(t.dir.wfile("katr"), [&](QVMX::FileIO& f) { ok = t.sound.writeTrimmedKATR(f); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(readFile(t.dir.file("katr")), Bytes(t.sound.trimmedKATR.view()));
    QVMX::FileIO::open_w(L"/dev/full", [&](QVMX::FileIO& f) { ok = t.sound.writeTrimmedKATR(f); });
    EXPECT_FALSE(ok);
    {
        ConsoleCapture capture;
        t.sound.dump(L"spatial");
        EXPECT_EQ(capture.text(), "'spatial': start=4000 bytes=28000\n");
    }
    MP4::Container container;
    ASSERT_TRUE(container.attach(t.dir.wfile("m.mp4")));
    ASSERT_TRUE(t.sound.dumpWAV(container, t.dir.wfile("a.wav")));
    const Bytes wav = readFile(t.dir.file("a.wav"));
    // RIFF size 36 + 28000 = 0x6D84; 4 channels, 1000/s, 8000 bytes/s,
    // blocks of 8, 16 bits; data size 28000 = 0x6D60.
    const Bytes header = Bytes("RIFF\x84\x6D\0\0WAVEfmt ", 16) +
                         Bytes("\x10\0\0\0\x01\0\x04\0\xE8\x03\0\0\x40\x1F\0\0\x08\0\x10\0", 20) +
                         Bytes("data\x60\x6D\0\0", 8);
    ASSERT_EQ(wav.size(), 44u + 28000u);
    EXPECT_EQ(wav.substr(0, 44), header);
    EXPECT_EQ(wav.substr(44), spatialAudio(32000).substr(4000));
}

}  // namespace
