// Setting the full-range and constraint_set1 flags in a movie's avcC box.
#include <gtest/gtest.h>

#include "h264/parameter_sets.h"
#include "mp4/avcc_box.h"
#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"
#include "support/test_files.h"
#include "meta/full_range_edit.h"

using namespace testsupport;
using namespace builders;

namespace {

constexpr const char* kAvcC = "moov.trak.mdia.minf.stbl.stsd.avc1.avcC";

Bytes vector(const std::string& name) {
    return readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/" + name + ".bin");
}

// The SPS the movie's avcC box holds now.
H264::SPS spsOf(MP4::Container& c) {
    H264::SPS sps;
    c.find(kAvcC, [&sps](MP4::BOX& box) {
        H264::AVCC record;
        EXPECT_TRUE(static_cast<MP4::AVCC&>(box).decode(record, sps));
        return true;
    });
    return sps;
}

// The console line of a rewrite (into target, or in place), or "failed".
std::string rewrite(MovieFile& m, const std::wstring& target = {}) {
    ConsoleCapture capture;
    m.container.beginEdits();
    const bool ok = meta::declareRange(m.container, true) && m.container.commitEdits(target);
    return ok ? capture.text() : "failed";
}

std::string line(const char* fullRange, const char* set1) {
    return std::string("Container::appendFullRangeAndConstrainedSet1Flag: ") + fullRange +
           ", constrained_set1_flag:  " + set1 + "\n";
}

}  // namespace

TEST(FullRangeRewrite, TheNewBoxKeepsEverySampleWhereverTheMediaDataLies) {
    struct Case {
        const char* name;
        const char* vector;
        bool moovFirst, withUdta;
        bool roomy;      // a udta of 100 bytes behind the avcC box
        bool fileGrows;  // by the one byte the SPS grows
        const char* set1;
    } cases[] = {
        // video_format 0 becomes 5 and two flags flip in a High SPS: not a bit more.
        {"same size", "high_colour_component", true, true, false, false, "0 - 1"},
        {"grows, user data behind", "baseline_512x256", true, true, true, true, "1 - 1"},
        {"grows, user data behind, mdat first", "baseline_512x256", false, true, true, true, "1 - 1"},
        {"grows, no udta, moov first", "baseline_512x256", true, false, false, true, "1 - 1"},
        {"grows, no udta, mdat first", "baseline_512x256", false, false, false, true, "1 - 1"}};
    for (const auto& c : cases) {
        for (bool withOutput : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (withOutput ? ", output path" : ", in place"));
            const MovieShape shape{.moovFirst = c.moovFirst,
                                   .withUdta = c.withUdta,
                                   .udtaChildren = c.roomy ? box("KMKN", Bytes(84, 'k')) : "",
                                   .avcC = vector(c.vector)};
            MovieFile m(buildMovie(shape));
            const auto result = withOutput ? m.dir.file("out.mp4") : m.path;
            const uint64_t moov = m.container.moov()->size;
            const uint64_t mdat = m.container.mdat()->start;
            auto offsets = chunkOffsets(m.path);
            // Media data that moves keeps its place within the page behind
            // a free box.
            const uint64_t moved = c.fileGrows && c.moovFirst ? 1 + MP4::alignmentPadding(mdat, mdat + 1) : 0;
            EXPECT_EQ(rewrite(m, withOutput ? widen(result.string()) : std::wstring()), line("0 - 1", c.set1));
            if (withOutput) {
                EXPECT_EQ(m.bytes(), m.original);
            }
            EXPECT_EQ(readFile(result).size(), m.original.size() + (c.moovFirst ? moved : c.fileGrows));
            EXPECT_EQ(m.container.moov()->size, moov + c.fileGrows);
            if (c.roomy) {
                EXPECT_EQ(m.first("moov.udta")->size, 100u);
            }
            for (auto& track : offsets) {
                for (auto& o : track) o += moved;
            }
            EXPECT_EQ(chunkOffsets(result), offsets);
            EXPECT_EQ(allSamples(result), movieSamples(shape));
            const H264::SPS sps = spsOf(m.container);
            EXPECT_EQ(sps.constraint_set1_flag, 1u);
            EXPECT_EQ(sps.vui.video_full_range_flag, 1u);
            EXPECT_EQ(sps.vui.time_scale, 60u);
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
}

TEST(FullRangeRewrite, FlagsAlreadySetOrNoAvcCLeaveTheFileAlone) {
    MovieFile m(buildMovie({.avcC = vector("high_full_range")}));
    EXPECT_NE(rewrite(m), "failed");
    const Bytes once = m.bytes();
    EXPECT_EQ(rewrite(m), line("1 - 1", "1 - 1"));
    EXPECT_EQ(m.bytes(), once);
    MovieFile none(buildMovie({}));
    EXPECT_EQ(rewrite(none), "");
    EXPECT_EQ(none.bytes(), none.original);
}

// The reasons themselves are the parameter-set tests' business.
TEST(FullRangeRewrite, UnreadableRecordsAreReportedAndTheFileKept) {
    Bytes noSps = vector("baseline_64x32").substr(0, 6) + '\0';
    noSps[5] = char(0xE0);
    for (const auto& [avcC, step] : {std::pair{noSps.substr(0, 5), "parse"}, std::pair{noSps, "sps_parse"}}) {
        MovieFile m(buildMovie({.avcC = avcC}));
        EXPECT_EQ(rewrite(m).rfind(std::string("avcc.") + step + "() failed: ", 0), 0u);
        EXPECT_EQ(m.bytes(), m.original);
    }
}

TEST(FullRangeRewrite, AnSpsWithoutVuiGainsAFreshOne) {
    // The encoder's baseline SPS with its VUI taken away.
    H264::AVCC record;
    H264::SPS sps;
    H264::GolombBitStream in, out;
    const Bytes encoded = vector("baseline_64x32");
    in.attach(ByteArray(encoded.data(), encoded.size()));
    record.parse(in);
    record.sps_parse(sps);
    sps.vui_parameters_present_flag = 0;
    record.sps_store(sps);
    record.to_s(out);
    ByteArray noVui;
    out.bytes(noVui);

    MovieFile m(buildMovie({.avcC = Bytes(noVui.view())}));
    EXPECT_EQ(rewrite(m), line("0 - 1", "1 - 1"));
    // A VUI of signal type alone: format 5, full range, nothing else.
    const H264::SPS now = spsOf(m.container);
    const auto& vui = now.vui;
    EXPECT_EQ((std::vector<uint32_t>{now.vui_parameters_present_flag, vui.aspect_ratio_info_present_flag,
                                     vui.video_signal_type_present_flag, vui.video_format, vui.video_full_range_flag,
                                     vui.colour_description_present_flag, vui.timing_info_present_flag,
                                     vui.bitstream_restriction_flag}),
              (std::vector<uint32_t>{1, 0, 1, 5, 1, 0, 0, 0}));
    EXPECT_EQ(uint32_t(now.pic_width_in_mbs_minus1), uint32_t(sps.pic_width_in_mbs_minus1));
}
