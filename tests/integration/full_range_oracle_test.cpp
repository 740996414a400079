// The full-range and constraint_set1 rewrite checked by FFmpeg on real
// libx264 movies: its own SPS parser must read the flags we set and every
// other field unchanged, ffprobe must report the range, and every packet
// and every decoded frame must stay what it was.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <utility>
#include <vector>

#include "mp4/container.h"
#include "support/run_command.h"
#include "support/test_files.h"

using namespace testsupport;

namespace {

using Fields = std::vector<std::pair<std::string, std::string>>;

// The SPS of the sample description as FFmpeg's trace_headers filter reads
// it: (name, value) in syntax order.
Fields traceSps(const std::filesystem::path& movie) {
    const auto r = runCommand("ffmpeg -v info -nostdin -i " + shellQuote(movie.string()) +
                                  " -c copy -bsf:v trace_headers -f null - 2>&1",
                              false);
    EXPECT_EQ(r.status, 0) << r.output;
    Fields fields;
    std::istringstream lines(r.output);
    std::string line;
    bool inSps = false;
    while (std::getline(lines, line)) {
        const size_t tag = line.find("[trace_headers @ ");
        if (tag == std::string::npos) continue;
        std::istringstream words(line.substr(line.find("] ", tag) + 2));
        std::string position, name, bits, equals, value;
        words >> position;
        if (!std::isdigit(static_cast<unsigned char>(position[0]))) {
            if (inSps) break;  // the next header: only the first SPS counts
            inSps = line.find("Sequence Parameter Set") != std::string::npos;
            continue;
        }
        if (!inSps) continue;
        words >> name >> bits >> equals >> value;
        // Padding after the stop bit: how much depends on where it falls.
        if (name != "rbsp_alignment_zero_bit") fields.emplace_back(name, value);
    }
    return fields;
}

std::string field(const Fields& fields, const std::string& name) {
    for (const auto& [n, v] : fields) {
        if (n == name) return v;
    }
    return "";
}

// Whether the SPS already says what the rewrite would set.
bool nothingToDo(const Fields& before, bool fullRange) {
    return field(before, "constraint_set1_flag") == "1" &&
           (field(before, "video_full_range_flag") == "1") == fullRange;
}

// What the rewrite must make of the fields: constraint_set1 and the signal
// type set, video_format 0 turned into 5, everything else the same.
Fields expectedAfter(const Fields& before, bool fullRange) {
    if (nothingToDo(before, fullRange)) return before;
    Fields out;
    for (size_t i = 0; i < before.size(); ++i) {
        const auto& [name, value] = before[i];
        if (name == "constraint_set1_flag") {
            out.emplace_back(name, "1");
        } else if (name == "video_signal_type_present_flag" && value == "0") {
            out.emplace_back(name, "1");
            out.emplace_back("video_format", "5");
            out.emplace_back("video_full_range_flag", fullRange ? "1" : "0");
            out.emplace_back("colour_description_present_flag", "0");
        } else if (name == "video_format") {
            out.emplace_back(name, value == "0" ? "5" : value);
        } else if (name == "video_full_range_flag") {
            out.emplace_back(name, fullRange ? "1" : "0");
        } else {
            out.emplace_back(name, value);
        }
    }
    return out;
}

std::string run(const std::string& command) {
    const auto r = runCommand(command);
    EXPECT_EQ(r.status, 0) << command;
    return r.output;
}

// Every packet's hash; the sample description's line is left out.
std::string packets(const std::filesystem::path& m) {
    std::istringstream lines(
        run("ffmpeg -v error -nostdin -i " + shellQuote(m.string()) + " -map 0:v -c copy -f framemd5 -"));
    std::string kept, line;
    while (std::getline(lines, line)) {
        if (line.rfind("#extradata", 0) != 0) kept += line + "\n";
    }
    return kept;
}

// Decoded frames; a decoder complaint fails the run.
std::string frames(const std::filesystem::path& m) {
    const auto r = runCommand("ffmpeg -v error -nostdin -xerror -i " + shellQuote(m.string()) +
                                  " -map 0:v -f framemd5 - 2>&1",
                              false);
    EXPECT_EQ(r.status, 0) << r.output;
    EXPECT_EQ(r.output.find("rror"), std::string::npos) << r.output;
    return r.output;
}

std::string colourRange(const std::filesystem::path& m) {
    return run("ffprobe -v error -select_streams v:0 -show_entries stream=color_range -of csv=p=0 " +
               shellQuote(m.string()));
}

struct Source {
    std::string name;
    std::string x264;  // the encoder's options
};

const std::vector<Source> kSources = {
    {"baseline", "-s 128x64 -pix_fmt yuv420p -profile:v baseline"},
    {"main, cropped", "-s 100x60 -pix_fmt yuv420p -profile:v main -x264-params bframes=0"},
    {"high, b-frames", "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params bframes=2"},
    {"high, full range", "-s 128x64 -pix_fmt yuv420p -profile:v high -color_range pc"},
    {"high, component colour",
     "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params "
     "videoformat=component:colorprim=bt709:transfer=bt709:colormatrix=bt709"},
    {"high, aspect and HRD",
     "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params "
     "sar=7/5:nal-hrd=vbr:vbv-maxrate=400:vbv-bufsize=800:pic-struct=1"},
    {"high, interlaced", "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params interlaced=1"},
    {"high 4:4:4, matrices", "-s 64x64 -pix_fmt yuv444p -profile:v high444 -x264-params cqm=jvt"},
};

std::string encode(const TempDir& dir, const Source& s, const std::string& file,
                   const std::string& muxer = "") {
    const auto path = dir.file(file);
    run("ffmpeg -v error -nostdin -y -f lavfi -i testsrc=size=128x64:rate=30 -frames:v 12 " + s.x264 +
        " -c:v libx264 " + muxer + " " + shellQuote(path.string()));
    return readFile(path);
}

bool rewrite(const std::filesystem::path& movie, bool fullRange) {
    ConsoleCapture quiet;
    MP4::Container c;
    c.attach(widen(movie.string()));
    return c.appendFullRangeAndConstrainedSet1Flag(fullRange);
}

}  // namespace

TEST(FullRangeOracle, FfmpegReadsTheFlagsAndEverythingElseUnchanged) {
    TempDir dir;
    for (const auto& source : kSources) {
        const std::string original = encode(dir, source, "source.mp4");
        const auto before = traceSps(dir.file("source.mp4"));
        ASSERT_GT(before.size(), 30u) << source.name;
        const std::string packetsBefore = packets(dir.file("source.mp4"));
        const std::string framesBefore = frames(dir.file("source.mp4"));
        for (bool fullRange : {true, false}) {
            SCOPED_TRACE(source.name + (fullRange ? ", full range" : ", video range"));
            writeFile(dir.file("m.mp4"), original);
            EXPECT_TRUE(rewrite(dir.file("m.mp4"), fullRange));
            EXPECT_EQ(traceSps(dir.file("m.mp4")), expectedAfter(before, fullRange));
            const bool kept = nothingToDo(before, fullRange);
            if (kept) {
                EXPECT_EQ(readFile(dir.file("m.mp4")), original);
            }
            const bool signalled = !kept || field(before, "video_signal_type_present_flag") == "1";
            EXPECT_EQ(colourRange(dir.file("m.mp4")), !signalled ? "unknown\n" : fullRange ? "pc\n" : "tv\n");
            EXPECT_EQ(packets(dir.file("m.mp4")), packetsBefore);
            EXPECT_EQ(frames(dir.file("m.mp4")), framesBefore);
        }
    }
}

TEST(FullRangeOracle, EachWayOfMakingRoomKeepsEveryPacket) {
    TempDir dir;
    const Source& baseline = kSources[0];
    const Source& sameSize = kSources[4];
    struct Case {
        std::string name;
        const Source* source;
        std::string muxer;
        // Prepares the movie: udta renamed away, or replaced by an empty one.
        std::string udta;
        int64_t growth;   // of the file
        bool freeBox;     // the user data became a free box
        bool offsetsMove;
    };
    const std::vector<Case> cases = {
        {"same size", &sameSize, "", "", 0, false, false},
        {"user data reused, mdat first", &baseline, "", "", 0, true, false},
        {"user data reused, moov first", &baseline, "-movflags +faststart", "", 0, true, false},
        {"new file, mdat first", &baseline, "", "none", 1, false, false},
        {"new file, moov first", &baseline, "-movflags +faststart", "none", 1, false, true},
        {"user data too small, moov first", &baseline, "-movflags +faststart", "empty", 1, false, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::string movie = encode(dir, *c.source, "source.mp4", c.muxer);
        if (c.udta == "none") {
            const size_t at = movie.find("udta");
            ASSERT_NE(at, std::string::npos);
            movie.replace(at, 4, "free");
        }
        writeFile(dir.file("m.mp4"), movie);
        if (c.udta == "empty") {
            MP4::Container edit;
            edit.attach(dir.wfile("m.mp4"));
            ASSERT_TRUE(edit.replaceUdta(8, ByteArray("\0\0\0\x08udta", 8)));
            movie = readFile(dir.file("m.mp4"));
        }
        const std::string packetsBefore = packets(dir.file("m.mp4"));
        const std::string framesBefore = frames(dir.file("m.mp4"));
        MP4::Container before;
        before.attach(dir.wfile("m.mp4"));
        const uint64_t mdatBefore = before.mdat()->start;

        writeFile(dir.file("out.mp4"), "");
        {
            ConsoleCapture quiet;
            MP4::Container c2;
            c2.attach(dir.wfile("m.mp4"));
            c2.setOutputPath(dir.wfile("out.mp4"));
            EXPECT_TRUE(c2.appendFullRangeAndConstrainedSet1Flag(true));
        }
        EXPECT_EQ(readFile(dir.file("m.mp4")), movie);
        const std::string out = readFile(dir.file("out.mp4"));
        EXPECT_EQ(int64_t(out.size()) - int64_t(movie.size()), c.growth);
        MP4::Container after;
        after.attach(dir.wfile("out.mp4"));
        EXPECT_EQ(after.mdat()->start - mdatBefore, c.offsetsMove ? 1u : 0u);
        bool freeInMoov = false;
        after.find("moov.free", [&freeInMoov](MP4::BOX&) {
            freeInMoov = true;
            return true;
        });
        EXPECT_EQ(freeInMoov, c.freeBox || c.udta == "none");
        EXPECT_EQ(colourRange(dir.file("out.mp4")), "pc\n");
        EXPECT_EQ(packets(dir.file("out.mp4")), packetsBefore);
        EXPECT_EQ(frames(dir.file("out.mp4")), framesBefore);
    }
}

TEST(FullRangeOracle, TavrelDumpShowsTheSpsBeforeAndAfterTavrelEdit) {
    TempDir dir;
    encode(dir, kSources[6], "in.mp4");  // interlaced High: map units are field rows
    const std::string tools = binaryDir() + "/tools/";
    const auto edit = runCommand(shellQuote(tools + "tavrel-edit") + " fullrange " +
                                 shellQuote(dir.file("in.mp4").string()) + " " +
                                 shellQuote(dir.file("out.mp4").string()) + " 1");
    EXPECT_EQ(edit.status, 0) << edit.output;
    EXPECT_NE(edit.output.find("Container::appendFullRangeAndConstrainedSet1Flag: 0 - 1, "
                               "constrained_set1_flag:  0 - 1"),
              std::string::npos)
        << edit.output;
    const auto dump = [&](const char* name) {
        const auto r = runCommand(shellQuote(tools + "tavrel-dump") + " " + shellQuote(dir.file(name).string()));
        EXPECT_EQ(r.status, 0);
        return r.output.substr(r.output.find("avcC: start="));
    };
    const std::string before = dump("in.mp4");
    EXPECT_NE(before.find("avcC:     profile_idc=100 constraint_set0..5=000000 level_idc="),
              std::string::npos)
        << before;
    EXPECT_NE(before.find("avcC:     macroblocks=8x4 frame_mbs_only=0\n"), std::string::npos) << before;
    EXPECT_NE(before.find("avcC:     vui=1 video_signal_type=0 video_format=0 video_full_range=0\n"),
              std::string::npos)
        << before;
    const std::string after = dump("out.mp4");
    EXPECT_NE(after.find("avcC:     profile_idc=100 constraint_set0..5=010000 level_idc="),
              std::string::npos)
        << after;
    EXPECT_NE(after.find("avcC:     vui=1 video_signal_type=1 video_format=5 video_full_range=1\n"),
              std::string::npos)
        << after;
}
