// Movies in every top-level layout writers use: made by ffmpeg itself, by
// GStreamer's muxers and by AtomicParsley from one ffmpeg movie, and by the
// test builders for what no tool here writes (several media-data boxes
// between free, skip, wide and uuid boxes, 64-bit box sizes, 64-bit chunk
// offsets, a last box sized to the end of the file, a movie over 4 GiB).
// The metadata path must keep every packet of each, as ffprobe reads them.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "box_walk.h"
#include "run_outcome.h"
#include "support/movie_samples.h"
#include "tavrel_fixture.h"
#include "tools/builders/box_builder.h"

namespace e2e {
namespace {

using namespace builders;
using testsupport::readFile;
using testsupport::shellQuote;

void expectKept(const Workspace& work) {
    const auto run = runIn(work, tavrelCommand() + " " + shellQuote(work.source().filename().string()) + " out.mp4");
    ASSERT_EQ(run.status, 0) << run.out << run.err;
    expectSamePackets(work.source(), work.output());
    EXPECT_EQ(namesIn(work.dir()), (std::vector<std::string>{work.source().filename().string(), "out.mp4"}));
}

// A built movie of 2:1 H.264 (a real encoder's parameter sets before
// samples of recognisable bytes) and PCM sound, in many chunks.
MovieShape shapeOf(bool use64) {
    return {.use64 = use64, .videoSamples = 30, .audioSamples = 20,
            .avcC = readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/baseline_64x32.bin")};
}

struct Layout {
    std::string name;
    std::vector<Bytes> boxes;  // as buildLaidOutMovie takes them
    bool co64 = false;
};

const Bytes kFtyp = box("ftyp", Bytes("isom") + be32(0x200) + "isomiso2avc1mp41");
const Bytes kFree = box("free", std::string(24, '\0'));
const Bytes kSkip = box("skip", "skipped bytes");
const Bytes kWide = box("wide", "");
const Bytes kUuid = uuidBox("\x5a\x1e\x07\x3c\x9b\x44\x4d\x21\x8e\x60\x3f\x12\xa4\x77\x0b\xd5", "any payload");
// The last media-data box of this layout is sized to the end of the file.
const std::string kToEnd = "LastMdatSizedToTheEndOfTheFile";

std::vector<Layout> builtLayouts() {
    return {
        {"SeveralMdatsBetweenFreeSkipWideAndUuid",
         {kFtyp, kFree, "mdat", kSkip, kWide, "mdat", kUuid, "mdat", kFree, "moov"}},
        {"SeveralMdatsAfterTheMovieBox", {kFtyp, kWide, "moov", kFree, "mdat", kSkip, "mdat", kUuid}},
        {"MdatWith64BitSize", {kFtyp, kFree, "mdat64", "moov"}},
        {"MdatWith64BitSizeAfterTheMovieBox", {kFtyp, "moov", "mdat64"}},
        {"ChunkOffsets64", {kFtyp, kWide, "mdat", "moov"}, true},
        {"ChunkOffsets64MovieBoxFirst", {kFtyp, "moov", kFree, "mdat64", "mdat"}, true},
        {"MdatFreeMoov", {kFtyp, "mdat", kFree, "moov"}},
        {"MovieBoxThenFreeAtTheEnd", {kFtyp, "mdat", "moov", kFree}},
        {kToEnd, {kFtyp, "moov", kFree, "mdat"}},
    };
}

void PrintTo(const Layout& l, std::ostream* os) { *os << l.name; }

class BuiltLayout : public testing::TestWithParam<Layout> {};

TEST_P(BuiltLayout, MetadataPathKeepsEveryPacket) {
    const Layout& layout = GetParam();
    const MovieShape shape = shapeOf(layout.co64);
    Bytes movie = buildLaidOutMovie(shape, layout.boxes);
    if (layout.name == kToEnd) movie.replace(movie.rfind("mdat") - 4, 4, be32(0));
    Workspace work;
    testsupport::writeFile(work.file("layout.mp4"), movie);
    ASSERT_EQ(testsupport::allSamples(work.file("layout.mp4")), movieSamples(shape));
    // ffprobe reads every sample as a packet: the comparison is not of two empty lists.
    const auto packets = packetsByStream(work.file("layout.mp4"));
    ASSERT_EQ(packets.size(), 2u);
    ASSERT_EQ(packets.at(0).size() + packets.at(1).size(), movieSamples(shape).size());
    work.adopt("layout.mp4");
    expectKept(work);
}

INSTANTIATE_TEST_SUITE_P(Layouts, BuiltLayout, testing::ValuesIn(builtLayouts()),
                         [](const auto& p) { return p.param.name; });

// What a tool makes from the ffmpeg source, as a shell command reading
// "in.mp4" and writing "layout.mp4" in the working directory.
struct ToolLayout {
    std::string name;
    std::string command;
};

std::string remux(const std::string& muxer) {
    // The demuxer's H.264 is already in access units; without a parser here
    // the muxer only needs to be told so.
    return "timeout 60 gst-launch-1.0 -q filesrc location=in.mp4 ! qtdemux name=d " + muxer +
           " name=m ! filesink location=layout.mp4 d.video_0 ! queue ! capssetter "
           "caps='video/x-h264,parsed=(boolean)true' ! m.video_0 d.audio_0 ! queue ! aacparse ! m.audio_0";
}

std::vector<ToolLayout> toolLayouts() {
    const std::string ffmpeg = "ffmpeg -nostdin -v error -y -i in.mp4 -map 0 -c copy ";
    const std::string tag = "AtomicParsley in.mp4 --title Layout --artwork cover.jpg ";
    return {
        {"FfmpegMoovFirst", ffmpeg + "-movflags +faststart layout.mp4"},
        {"FfmpegMoovFirstWithRoomReserved", ffmpeg + "-moov_size 16384 layout.mp4"},
        {"FfmpegFragmented", ffmpeg + "-movflags +frag_keyframe+empty_moov+default_base_moof layout.mp4"},
        // Track-fragment headers that name absolute positions, and an index.
        {"FfmpegFragmentedAtAbsolutePositions", ffmpeg + "-movflags +frag_keyframe layout.mp4"},
        {"FfmpegMov", ffmpeg + "-f mov layout.mp4"},
        {"GStreamerMp4mux", remux("mp4mux")},
        {"GStreamerQtmux", remux("qtmux")},
        {"GStreamerMp4muxFaststart", remux("mp4mux faststart=true")},
        {"GStreamerMp4muxFragmented", remux("mp4mux fragment-duration=500")},
        {"GStreamerQtmuxMoovFirstWithRoomReserved",
         remux("qtmux reserved-max-duration=10000000000 reserved-moov-update-period=100000000")},
        {"AtomicParsleyTagged", tag + "-o layout.mp4"},
        {"AtomicParsleyTaggedWithRoomToGrow", "AP_PADDING=DEFAULT_PAD=8192 " + tag + "--freefree -o layout.mp4"},
        {"AtomicParsleyTaggedKeepingTheMovieBoxLast", tag + "--preventOptimizing -o layout.mp4"},
        {"AtomicParsleyTaggedTwice",
         tag + "-o tagged.mp4 && AtomicParsley tagged.mp4 --artist Layout --comment Again -o layout.mp4 && rm tagged.mp4"},
    };
}

void PrintTo(const ToolLayout& l, std::ostream* os) { *os << l.name; }

class ToolMadeLayout : public testing::TestWithParam<ToolLayout> {};

TEST_P(ToolMadeLayout, MetadataPathKeepsEveryPacket) {
    Workspace work;
    std::filesystem::copy_file(sourceMovie(Source::Plain), work.file("in.mp4"));
    const auto made = testsupport::runCommand(
        "cd " + shellQuote(work.dir().string()) +
            " && ffmpeg -nostdin -v error -f lavfi -i testsrc2=size=64x64 -frames:v 1 cover.jpg && " +
            GetParam().command + " >/dev/null && rm in.mp4 cover.jpg",
        true);
    ASSERT_EQ(made.status, 0) << GetParam().command << "\n" << made.output;
    // Artwork comes as a stream of its own.
    ASSERT_GE(packetsByStream(work.file("layout.mp4")).size(), 2u) << "the tool lost a stream";
    work.adopt("layout.mp4");
    expectKept(work);
}

INSTANTIATE_TEST_SUITE_P(Layouts, ToolMadeLayout, testing::ValuesIn(toolLayouts()),
                         [](const auto& p) { return p.param.name; });

// An encrypted movie as ffmpeg writes it: the sample auxiliary information
// (the initialisation vectors) lies in the movie box and is found through
// saio tables of absolute offsets, which must point at the same bytes in
// the output, as a player that decrypts through them reads them.
TEST(EncryptedMovie, AuxiliaryInformationIsFoundAtItsNewPlace) {
    Workspace work;
    std::filesystem::copy_file(sourceMovie(Source::Plain), work.file("in.mp4"));
    const auto made = testsupport::runCommand(
        "cd " + shellQuote(work.dir().string()) +
            " && ffmpeg -nostdin -v error -i in.mp4 -map 0 -c copy -encryption_scheme cenc-aes-ctr"
            " -encryption_key 76a6c65c5ea762046bd749a2e632ccbb -encryption_kid a7e61c373e219033c21091fa607bf3b8"
            " encrypted.mp4 && rm in.mp4",
        true);
    ASSERT_EQ(made.status, 0) << made.output;
    work.adopt("encrypted.mp4");
    expectKept(work);
    // The 16 bytes at each offset of each table.
    auto pointedAt = [](const std::string& file) {
        const std::string bytes = readFile(file);
        std::vector<std::string> found;
        const std::vector<Box> top = walkBoxes(bytes);
        for (const Box* saio : findBoxes(top, "moov.trak.mdia.minf.stbl.saio")) {
            const std::string p = payloadOf(bytes, *saio);
            const size_t countAt = 4 + ((readBE32(p, 0) & 1) ? 8 : 0);
            const bool wide = p[0] != 0;
            for (uint32_t i = 0; i < readBE32(p, countAt); ++i) {
                uint64_t offset = readBE32(p, countAt + 4 + i * (wide ? 8 : 4));
                if (wide) offset = offset << 32 | readBE32(p, countAt + 8 + i * 8);
                found.push_back(bytes.substr(offset, 16));
            }
        }
        return found;
    };
    const auto before = pointedAt(work.source().string());
    ASSERT_FALSE(before.empty()) << "ffmpeg wrote no saio";
    EXPECT_EQ(pointedAt(work.output().string()), before);
}

// Slow: a movie over 4 GiB with its movie box last, made sparse: a free box
// of 4.25 GiB, left unwritten, lies between its two media-data boxes, so the
// second one's chunk offsets need 64 bits.
TEST(SlowLayout, MoovLastOver4GiB) {
    const uint64_t hole = (uint64_t{17} << 28);
    const auto space = std::filesystem::space(std::filesystem::temp_directory_path());
    if (space.available < 3 * hole) GTEST_SKIP() << "not enough free space for a copy of a 4 GiB movie";
    const MovieShape shape = shapeOf(true);
    // Built with an empty free box of a 64-bit size, which then grows by
    // the hole: its size, and the chunk offsets behind it, move with it.
    Bytes movie = buildLaidOutMovie(shape, {kFtyp, kFree, "mdat64", largeBox("free"), "mdat64", "moov"});
    const auto top = walkBoxes(movie);
    const Box* grown = findBoxes(top, "free").at(1);
    movie.replace(grown->start + 8, 8, be64(grown->size + hole));
    for (const Box* table : findBoxes(top, "moov.trak.mdia.minf.stbl.co64")) {
        for (uint64_t at = table->payloadStart() + 8; at + 8 <= table->start + table->size; at += 8) {
            const uint64_t offset = uint64_t(readBE32(movie, at)) << 32 | readBE32(movie, at + 4);
            if (offset > grown->start) movie.replace(at, 8, be64(offset + hole));
        }
    }
    Workspace work;
    {
        std::ofstream out(work.file("big.mp4"), std::ios::binary);
        out.write(movie.data(), std::streamsize(grown->start + grown->size));
        out.seekp(std::streamoff(hole), std::ios::cur);
        out.write(movie.data() + grown->start + grown->size, std::streamsize(movie.size() - grown->start - grown->size));
        ASSERT_TRUE(out.good());
    }
    ASSERT_GT(std::filesystem::file_size(work.file("big.mp4")), hole);
    ASSERT_EQ(testsupport::allSamples(work.file("big.mp4")), movieSamples(shape));
    ASSERT_EQ(packetsByStream(work.file("big.mp4")).size(), 2u);
    work.adopt("big.mp4");
    expectKept(work);
}

}  // namespace
}  // namespace e2e
