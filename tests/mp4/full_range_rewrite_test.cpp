// Setting the full-range and constraint_set1 flags in a movie's avcC box,
// by each of the three ways the box's new size is absorbed.
#include <gtest/gtest.h>

#include "h264/parameter_sets.h"
#include "mp4/avcc_box.h"
#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"
#include "support/test_files.h"

using namespace testsupport;
using namespace builders;

namespace {

Bytes vector(const std::string& name) {
    return readFile(std::string(TAVREL_SOURCE_DIR) + "/tests/h264/data/" + name + ".bin");
}

ByteArray bytesOf(const Bytes& b) { return ByteArray(b.data(), b.size()); }

// The SPS the record of the movie's avcC box holds now.
H264::SPS spsOf(MP4::Container& c) {
    H264::SPS sps;
    c.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [&sps](MP4::BOX& box) {
        H264::AVCC record;
        EXPECT_TRUE(static_cast<MP4::AVCC&>(box).decode(record, sps));
        return true;
    });
    return sps;
}

uint64_t sizeAt(MovieFile& m, const char* path) {
    const MP4::BOX* b = m.first(path);
    return b ? b->size : 0;
}

const char* const kHolders[] = {"moov.trak", "moov.trak.mdia", "moov.trak.mdia.minf",
                                "moov.trak.mdia.minf.stbl", "moov.trak.mdia.minf.stbl.stsd",
                                "moov.trak.mdia.minf.stbl.stsd.avc1"};

struct Rewrite {
    std::string console;
    bool ok = false;
};

Rewrite rewrite(MovieFile& m, bool fullRange) {
    ConsoleCapture capture;
    Rewrite r;
    r.ok = m.container.appendFullRangeAndConstrainedSet1Flag(fullRange);
    r.console = capture.text();
    return r;
}

}  // namespace

TEST(FullRangeRewrite, SameSizeRewritesTheBoxInPlace) {
    // video_format 0 becomes 5 and two flags flip: not a bit more.
    const MovieShape layout{.avcC = vector("high_colour_component")};
    for (bool withOutput : {false, true}) {
        SCOPED_TRACE(withOutput ? "output path" : "in place");
        MovieFile m(buildMovie(layout));
        const auto output = m.dir.file("out.mp4");
        if (withOutput) m.container.setOutputPath(widen(output.string()));
        const uint64_t at = m.first("moov.trak.mdia.minf.stbl.stsd.avc1.avcC")->start;
        const auto r = rewrite(m, true);
        EXPECT_TRUE(r.ok);
        EXPECT_EQ(r.console,
                  "Container::appendFullRangeAndConstrainedSet1Flag: 0 - 1, constrained_set1_flag:  0 - 1\n");
        const Bytes after = readFile(withOutput ? output : m.path);
        EXPECT_EQ(m.bytes(), withOutput ? m.original : after);
        ASSERT_EQ(after.size(), m.original.size());
        EXPECT_EQ(after.substr(0, at + 8), m.original.substr(0, at + 8));
        const uint64_t end = at + 8 + layout.avcC.size();
        EXPECT_EQ(after.substr(end), m.original.substr(end));
        EXPECT_FALSE(m.temporaryLeft());
        const H264::SPS sps = spsOf(m.container);
        EXPECT_EQ(sps.constraint_set1_flag, 1u);
        EXPECT_EQ(sps.vui.video_format, 5u);
        EXPECT_EQ(sps.vui.video_full_range_flag, 1u);
        EXPECT_EQ(sps.vui.colour_primaries, 1u);
    }
}

TEST(FullRangeRewrite, GrowthIsTakenFromTheUserDataBehind) {
    for (bool moovFirst : {true, false}) {
        for (bool withOutput : {false, true}) {
            SCOPED_TRACE(std::string(moovFirst ? "moov first" : "mdat first") +
                         (withOutput ? ", output path" : ", in place"));
            const MovieShape layout{.moovFirst = moovFirst, .udtaChildren = box("KMKN", Bytes(84, 'k')),
                                 .avcC = vector("baseline_512x256")};
            MovieFile m(buildMovie(layout));
            const auto output = m.dir.file("out.mp4");
            if (withOutput) m.container.setOutputPath(widen(output.string()));
            std::vector<uint64_t> sizes;
            for (const char* p : kHolders) sizes.push_back(sizeAt(m, p));
            const uint64_t moov = m.container.moov()->size;
            const auto offsets = chunkOffsets(m.path);
            ASSERT_EQ(sizeAt(m, "moov.udta"), 100u);

            const auto r = rewrite(m, true);
            EXPECT_TRUE(r.ok);
            EXPECT_EQ(r.console,
                      "Container::appendFullRangeAndConstrainedSet1Flag: 0 - 1, constrained_set1_flag:  1 - 1\n");
            if (withOutput) {
                EXPECT_EQ(m.bytes(), m.original);
            }
            EXPECT_EQ(m.container.path(), widen((withOutput ? output : m.path).string()));
            const uint64_t growth = sizeAt(m, "moov.trak.mdia.minf.stbl.stsd.avc1.avcC") - 8 -
                                    layout.avcC.size();
            EXPECT_EQ(growth, 1u);
            for (size_t i = 0; i < sizes.size(); ++i) EXPECT_EQ(sizeAt(m, kHolders[i]), sizes[i] + growth);
            EXPECT_EQ(m.container.moov()->size, moov);
            EXPECT_EQ(m.first("moov.udta"), nullptr);
            EXPECT_EQ(sizeAt(m, "moov.free"), 100 - growth);
            const Bytes after = readFile(withOutput ? output : m.path);
            EXPECT_EQ(after.size(), m.original.size());
            EXPECT_EQ(chunkOffsets(withOutput ? output : m.path), offsets);
            EXPECT_EQ(allSamples(withOutput ? output : m.path), movieSamples(layout));
            EXPECT_EQ(spsOf(m.container).vui.video_full_range_flag, 1u);
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
}

TEST(FullRangeRewrite, WithoutRoomTheMovieIsWrittenAgain) {
    struct Case {
        const char* name;
        bool moovFirst;
        bool withUdta;
        Bytes udtaChildren;
    };
    // An empty udta leaves 7 bytes: too few for a box header.
    const Case cases[] = {{"no udta, moov first", true, false, {}},
                          {"no udta, mdat first", false, false, {}},
                          {"udta too small, moov first", true, true, {}}};
    for (const auto& c : cases) {
        for (bool withOutput : {false, true}) {
            SCOPED_TRACE(std::string(c.name) + (withOutput ? ", output path" : ", in place"));
            const MovieShape layout{.moovFirst = c.moovFirst, .withUdta = c.withUdta,
                                 .udtaChildren = c.udtaChildren, .avcC = vector("baseline_512x256")};
            MovieFile m(buildMovie(layout));
            const auto output = m.dir.file("out.mp4");
            if (withOutput) m.container.setOutputPath(widen(output.string()));
            const auto offsets = chunkOffsets(m.path);
            const uint64_t moov = m.container.moov()->size;
            EXPECT_TRUE(rewrite(m, true).ok);
            if (withOutput) {
                EXPECT_EQ(m.bytes(), m.original);
            }
            const auto result = withOutput ? output : m.path;
            EXPECT_EQ(readFile(result).size(), m.original.size() + 1);
            EXPECT_EQ(m.container.moov()->size, moov + 1);
            EXPECT_EQ(sizeAt(m, "moov.udta"), c.withUdta ? 8u : 0u);
            auto expected = offsets;
            if (c.moovFirst) {
                for (auto& track : expected) {
                    for (auto& o : track) ++o;
                }
            }
            EXPECT_EQ(chunkOffsets(result), expected);
            EXPECT_EQ(allSamples(result), movieSamples(layout));
            const H264::SPS sps = spsOf(m.container);
            EXPECT_EQ(sps.vui.video_signal_type_present_flag, 1u);
            EXPECT_EQ(sps.vui.video_full_range_flag, 1u);
            EXPECT_EQ(sps.vui.time_scale, 60u);
            EXPECT_FALSE(m.temporaryLeft());
        }
    }
}

TEST(FullRangeRewrite, NothingToDoLeavesTheFileAlone) {
    // After one rewrite the flags are as asked: the second finds nothing to do.
    const MovieShape layout{.avcC = vector("high_full_range")};
    MovieFile m(buildMovie(layout));
    EXPECT_TRUE(rewrite(m, true).ok);
    const Bytes once = m.bytes();
    EXPECT_NE(once, m.original);
    const auto r = rewrite(m, true);
    EXPECT_TRUE(r.ok);
    EXPECT_EQ(r.console,
              "Container::appendFullRangeAndConstrainedSet1Flag: 1 - 1, constrained_set1_flag:  1 - 1\n");
    EXPECT_EQ(m.bytes(), once);

    // No avcC box (an H.265 movie) and no movie at all.
    MovieFile none(buildMovie(MovieShape{}));
    const auto quiet = rewrite(none, true);
    EXPECT_TRUE(quiet.ok);
    EXPECT_EQ(quiet.console, "");
    EXPECT_EQ(none.bytes(), none.original);
}

TEST(FullRangeRewrite, UnreadableRecordsAreReportedAndTheFileKept) {
    const Bytes good = vector("baseline_64x32");
    Bytes noSps = good.substr(0, 6);
    noSps[5] = char(0xE0);
    noSps += '\0';
    Bytes cutSps = good.substr(0, 8 + 6);
    cutSps[7] = 6;
    cutSps += Bytes("\x01\x00\x00", 3);
    Bytes hugeLength = good;
    hugeLength[6] = hugeLength[7] = char(0xFF);
    const std::pair<Bytes, std::string> cases[] = {
        {good.substr(0, 5), "avcc.parse() failed: no more data\n"},
        {noSps, "avcc.sps_parse() failed: no sequence parameter set\n"},
        {cutSps, "avcc.sps_parse() failed: no more data\n"},
        {hugeLength, "avcc.parse() failed: no more data\n"},
    };
    for (const auto& [avcC, message] : cases) {
        SCOPED_TRACE(message);
        MovieFile m(buildMovie(MovieShape{.avcC = avcC}));
        const auto r = rewrite(m, true);
        EXPECT_TRUE(r.ok);
        EXPECT_EQ(r.console, message);
        EXPECT_EQ(m.bytes(), m.original);
        // The dump shows the header line and the reason; its SPS text keeps
        // only the first character of the message.
        ConsoleCapture capture;
        m.first("moov.trak.mdia.minf.stbl.stsd.avc1.avcC")->dump();
        const std::string dumped = capture.text();
        EXPECT_NE(dumped.find("<'avcC': start="), std::string::npos);
        const bool thrown = message.find("no more data") != std::string::npos;
        const std::string shown = thrown && message.rfind("avcc.sps_parse", 0) == 0
                                      ? message.substr(0, message.find(": ") + 3) + "\n"
                                      : message;
        EXPECT_EQ(dumped.substr(dumped.find('\n') + 1), shown);
    }
    // A healthy box dumps as its header line alone.
    MovieFile healthy(buildMovie(MovieShape{.avcC = good}));
    ConsoleCapture capture;
    healthy.first("moov.trak.mdia.minf.stbl.stsd.avc1.avcC")->dump();
    const std::string text = capture.text();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
}

TEST(FullRangeRewrite, AnSpsWithoutVuiGainsAFreshOne) {
    // The encoder's baseline SPS with its VUI taken away.
    ByteArray payload = bytesOf(vector("baseline_64x32"));
    H264::AVCC record;
    H264::SPS sps;
    H264::GolombBitStream in;
    in.attach(payload);
    record.parse(in);
    record.sps_parse(sps);
    sps.vui_parameters_present_flag = 0;
    record.sps_store(sps);
    const ByteArray noVuiSps = record.sequenceParameterSets.front().bytes;
    H264::GolombBitStream out;
    record.to_s(out);
    ByteArray noVui;
    out.bytes(noVui);

    MovieFile m(buildMovie(MovieShape{.avcC = Bytes(noVui.view())}));
    unsigned char profile = 0;
    bool set1 = true, full = true;
    auto* avcc = static_cast<MP4::AVCC*>(m.first("moov.trak.mdia.minf.stbl.stsd.avc1.avcC"));
    ASSERT_TRUE(avcc->get_profile_idc_and_constrained_set1_flag(profile, set1, full));
    EXPECT_EQ(profile, 66);
    EXPECT_TRUE(set1);
    EXPECT_FALSE(full);
    ByteArray rewritten;
    bool wasFull = true, wasSet1 = false;
    ASSERT_TRUE(avcc->assign_fullRange_and_constrained_set1_flag(rewritten, true, wasFull, wasSet1));
    EXPECT_FALSE(wasFull);
    EXPECT_TRUE(wasSet1);

    // The SPS bits up to the VUI flag stay; then the flag, a VUI of
    // aspect 0, overscan 0, signal type 1, format 5, full range 1, colour 0,
    // chroma location 0, timing 0, both HRDs 0, pic_struct 0, restriction
    // 0, and the stop bit.
    auto bitsOf = [](const uint8_t* p, uint64_t n) {
        std::string s;
        for (uint64_t i = 0; i < n; ++i) {
            for (int b = 7; b >= 0; --b) s += ((p[i] >> b) & 1) ? '1' : '0';
        }
        return s;
    };
    const std::string before = bitsOf(noVuiSps.data, noVuiSps.size);
    const size_t vuiFlag = before.find_last_of('1') - 1;  // the flag, then the stop bit
    const uint64_t newLength = uint64_t(rewritten.data[6]) << 8 | rewritten.data[7];
    const std::string after = bitsOf(rewritten.data + 8, newLength);
    EXPECT_EQ(after.substr(0, vuiFlag), before.substr(0, vuiFlag));
    EXPECT_EQ(after.substr(vuiFlag), "1" "0" "0" "1" "101" "1" "0" "0" "0" "0" "0" "0" "0" "1" +
                                         std::string((8 - (vuiFlag + 16) % 8) % 8, '0'));
}
