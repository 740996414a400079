// Trimming the spatial audio track: the kept byte range and the rebuilt
// KATR, checked against numbers worked out by hand for each fixture.
#include <gtest/gtest.h>

#include "foundation/file_io.h"
#include "mp4/container.h"
#include "mp4/spatial_sound.h"
#include "support/spatial_builder.h"
#include "support/test_files.h"

using namespace testsupport;

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
    Bytes katr() const { return Bytes(sound.trimmedKATR.view()); }
};

// The KATR expected after a trim, from the numbers of the trimmed track.
Bytes expectedKatr(uint8_t mdhdVersion, uint32_t timeScale, uint32_t sampleSize, uint32_t samples,
                   uint32_t chunks, uint32_t lastChunkBytes, const std::vector<uint64_t>& offsets) {
    const Bytes stbl = katrStsd() + stts({{samples, 1}}) +
                       stsc({{1, 1536, 1}, {chunks, lastChunkBytes, 1}}) +
                       stsz(sampleSize, {}, samples) + co64(offsets);
    const Bytes minf = box("minf", katrSmhd() + katrDinf() + box("stbl", stbl));
    return box("KATR", katrTkhd() + box("mdia", mdhd(mdhdVersion, 3600, timeScale, samples) +
                                                   katrHdlr() + minf));
}

class BothEnds : public testing::TestWithParam<uint8_t> {};

// 4000 samples of 8 bytes at 1000 per second; keep 0.5 s to 4.0 s:
//   bytes 500*8 = 4000 to 4000*8 = 32000, 28000 bytes = 3500 samples;
//   a chunk is 1536*8 = 12288 bytes: 2 full ones and 28000 - 24576 = 3424
//   bytes left, so 3 chunks at 52, 52 + 12288, 52 + 24576.
TEST_P(BothEnds, KeptRangeAndRebuiltTrack) {
    SpatialSpec spec;
    spec.mdhdVersion = GetParam();
    Trim t(spatialMovie(spec), 0.5, 4.0);
    ASSERT_TRUE(t.result) << t.console;
    EXPECT_TRUE(t.sound.built);
    EXPECT_EQ(t.console, "");
    EXPECT_EQ(t.sound.startByte, 4000u);
    EXPECT_EQ(t.sound.endByte, 32000u);
    EXPECT_EQ(t.sound.sampleSize, 8u);
    EXPECT_EQ(t.sound.sampleCount, 3500u);
    EXPECT_EQ(t.sound.chunkCount, 3u);
    EXPECT_EQ(t.sound.lastChunkBytes, 3424u);
    EXPECT_EQ(t.sound.dataOffset, 52u);
    EXPECT_EQ(t.katr(), expectedKatr(spec.mdhdVersion, 1000, 8, 3500, 3, 3424, {52, 12340, 24628}));
}

INSTANTIATE_TEST_SUITE_P(MediaHeaderVersions, BothEnds, testing::Values(0, 1));

// Keep from 1.0 s to the end: bytes 8000 to 32000, 3000 samples, one full
// chunk and 24000 - 12288 = 11712 bytes.
TEST(SpatialTrim, ANegativeEndKeepsToTheEnd) {
    Trim t(spatialMovie({}), 1.0, -1);
    ASSERT_TRUE(t.result);
    EXPECT_EQ(t.sound.startByte, 8000u);
    EXPECT_EQ(t.sound.endByte, 32000u);
    EXPECT_EQ(t.katr(), expectedKatr(0, 1000, 8, 3000, 2, 11712, {52, 12340}));
}

// 1536 samples exactly: one full chunk and an empty last one.
TEST(SpatialTrim, ExactlyOneChunkStillCountsAnEmptyLastChunk) {
    SpatialSpec spec;
    spec.timeScale = 1536;
    Trim t(spatialMovie(spec), 0, 1.0);
    ASSERT_TRUE(t.result);
    EXPECT_EQ(t.sound.endByte, 12288u);
    EXPECT_EQ(t.sound.chunkCount, 2u);
    EXPECT_EQ(t.sound.lastChunkBytes, 0u);
    EXPECT_EQ(t.katr(), expectedKatr(0, 1536, 8, 1536, 2, 0, {52, 12340}));
}

// Fractions of a sample are cut: 0.0015 s at 1000/s is 1.5 samples -> 1.
TEST(SpatialTrim, TimesAreCutToWholeSamples) {
    Trim t(spatialMovie({}), 0.0015, 0.0029);
    ASSERT_TRUE(t.result);
    EXPECT_EQ(t.sound.startByte, 8u);
    EXPECT_EQ(t.sound.endByte, 16u);
    EXPECT_EQ(t.sound.sampleCount, 1u);
}

TEST(SpatialTrim, NothingToDo) {
    const Bytes plain = box("ftyp", "isom") + box("mdat", "x");
    for (const auto& [movie, start, end] :
         {std::tuple{spatialMovie({}), 0.0, -1.0}, std::tuple{plain, 0.0, -1.0},
          std::tuple{plain, 1.0, 2.0}}) {
        Trim t(movie, start, end);
        EXPECT_TRUE(t.result);
        EXPECT_FALSE(t.sound.built);
        EXPECT_TRUE(t.sound.trimmedKATR.empty());
        EXPECT_EQ(t.console, "");
    }
}

TEST(SpatialTrim, RefusedRanges) {
    // start after end; end beyond the 4 s of audio; start beyond it.
    for (const auto& [start, end] : {std::pair{5.0, 2.0}, std::pair{0.0, 4.001},
                                     std::pair{4.5, -1.0}, std::pair{1e300, -1.0}}) {
        Trim t(spatialMovie({}), start, end);
        EXPECT_FALSE(t.result) << start << " " << end;
        EXPECT_TRUE(t.sound.trimmedKATR.empty());
        EXPECT_EQ(t.console, "");
    }
}

TEST(SpatialTrim, AKadtShorterThanTheRangeIsRefused) {
    SpatialSpec spec;
    spec.storedBytes = 20000;  // the track claims 32000
    EXPECT_TRUE(Trim(spatialMovie(spec), 0.5, 2.5).result);  // bytes 4000..20000 are there
    EXPECT_FALSE(Trim(spatialMovie(spec), 0.5, 2.501).result);
    EXPECT_FALSE(Trim(spatialMovie(spec), 0.5, -1).result);

    // A KADT, last in its block, that declares all 32000 bytes while the
    // file ends after 20000 of them.
    const Bytes ftyp = box("ftyp", Bytes("isom") + be32(0x200) + "isom");
    const Bytes katr = katrBox({}, 20 + 24 + 100000);  // offsets are not looked at here
    const Bytes kadt = box("KADT", spatialAudio(32000));
    const Bytes block = uuidBox(kSpatialDataUuid, katr + kadt);
    const Bytes cut = (ftyp + block).substr(0, 20 + 24 + katr.size() + 8 + 20000);
    EXPECT_TRUE(Trim(cut, 0.5, 2.5).result);
    EXPECT_FALSE(Trim(cut, 0.5, 2.501).result);
}

TEST(SpatialTrim, ATrackWithoutSizesOrTimeScaleHasNoSpatialMetadata) {
    SpatialSpec noStsz;
    noStsz.withStsz = false;
    SpatialSpec noMdhd;
    noMdhd.withMdhd = false;
    SpatialSpec zeroScale;
    zeroScale.timeScale = 0;
    for (const auto& spec : {noStsz, noMdhd, zeroScale}) {
        Trim t(spatialMovie(spec), 0.5, 1.0);
        EXPECT_FALSE(t.result);
        EXPECT_EQ(t.console, "No Spatial Metadata.\n");
    }
}

TEST(SpatialTrim, ATrackBoxRunningPastTheFileIsNotBuilt) {
    // Cut the file in the middle of the KATR's sample tables.
    const Bytes movie = spatialMovie({});
    Trim t(movie.substr(0, movie.size() - 30), 0.5, 1.0);
    EXPECT_FALSE(t.result);
    EXPECT_FALSE(t.sound.built);
    EXPECT_TRUE(t.sound.trimmedKATR.empty());
}

TEST(SpatialTrim, AttachStartsAfresh) {
    Trim t(spatialMovie({}), 0.5, 4.0);
    ASSERT_TRUE(t.sound.built);
    EXPECT_TRUE(t.sound.attach(t.dir.wfile("m.mp4"), 0, -1));
    EXPECT_TRUE(t.sound.trimmedKATR.empty());
    EXPECT_EQ(t.sound.endByte, 0u);
    EXPECT_EQ(t.sound.dataOffset, 0u);
    EXPECT_FALSE(t.sound.built);
}

TEST(SpatialTrimOutput, WritesTheRebuiltBoxWhole) {
    Trim t(spatialMovie({}), 0.5, 4.0);
    ASSERT_TRUE(t.result);
    bool ok = false;
    QVMX::FileIO::open_w(t.dir.wfile("katr"), [&](QVMX::FileIO& f) { ok = t.sound.writeTrimmedKATR(f); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(readFile(t.dir.file("katr")), t.katr());

    QVMX::FileIO::open_w(L"/dev/full", [&](QVMX::FileIO& f) { ok = t.sound.writeTrimmedKATR(f); });
    EXPECT_FALSE(ok);

    MP4::SpatialSound empty;
    QVMX::FileIO::open_w(t.dir.wfile("none"), [&](QVMX::FileIO& f) { ok = empty.writeTrimmedKATR(f); });
    EXPECT_TRUE(ok);
    EXPECT_EQ(readFile(t.dir.file("none")), "");
}

TEST(SpatialTrimOutput, DumpLineAndWav) {
    Trim t(spatialMovie({}), 0.5, 4.0);
    ASSERT_TRUE(t.result);
    {
        ConsoleCapture capture;
        t.sound.dump(L"spatial");
        EXPECT_EQ(capture.text(), "'spatial': start=4000 bytes=28000\n");
    }
    MP4::Container container;
    ASSERT_TRUE(container.attach(t.dir.wfile("m.mp4")));
    ASSERT_TRUE(t.sound.dumpWAV(container, t.dir.wfile("a.wav")));
    const Bytes wav = readFile(t.dir.file("a.wav"));
    // 4 channels, 16 bits, 1000 samples/s of 8 bytes: 8000 bytes/s.
    const Bytes header = Bytes("RIFF") + Bytes("\x84\x6D\x00\x00", 4) + "WAVEfmt " +
                         Bytes("\x10\0\0\0\x01\0\x04\0\xE8\x03\0\0\x40\x1F\0\0\x08\0\x10\0", 20) +
                         "data" + Bytes("\x60\x6D\0\0", 4);
    ASSERT_EQ(wav.size(), 44u + 28000u);
    EXPECT_EQ(wav.substr(0, 44), header);
    EXPECT_EQ(wav.substr(44), spatialAudio(32000).substr(4000));
}

}  // namespace
