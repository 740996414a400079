// The full-range and constraint_set1 rewrite checked by FFmpeg on real
// libx264 movies: its own SPS parser must read the flags we set and every
// other field unchanged, ffprobe must report the range, and every packet
// and every decoded frame must stay what it was.
#include <gtest/gtest.h>

#include <sstream>

#include "mp4/container.h"
#include "tavrel_fixture.h"
#include "meta/full_range_edit.h"

using namespace testsupport;

namespace {

using e2e::field;
using Fields = e2e::SpsFields;

std::string run(const std::string& command) {
    const auto r = runCommand(command);
    EXPECT_EQ(r.status, 0) << command;
    return r.output;
}

std::string quoted(const std::filesystem::path& p) { return shellQuote(p.string()); }

// Whether the SPS already says what the rewrite would set.
bool nothingToDo(const Fields& before, bool fullRange) {
    return field(before, "constraint_set1_flag") == "1" && (field(before, "video_full_range_flag") == "1") == fullRange;
}

// What the rewrite must make of the fields: constraint_set1 and the signal
// type set, video_format 0 turned into 5, everything else the same.
Fields expectedAfter(const Fields& before, bool fullRange) {
    if (nothingToDo(before, fullRange)) return before;
    Fields out;
    for (const auto& [name, value] : before) {
        if (name == "video_signal_type_present_flag" && value == "0") {
            out.insert(out.end(), {{name, "1"}, {"video_format", "5"}, {"video_full_range_flag", fullRange ? "1" : "0"},
                                   {"colour_description_present_flag", "0"}});
        } else {
            std::string now = value;
            if (name == "constraint_set1_flag") now = "1";
            if (name == "video_full_range_flag") now = fullRange ? "1" : "0";
            if (name == "video_format" && value == "0") now = "5";
            out.emplace_back(name, now);
        }
    }
    return out;
}

// Every packet's hash, the sample description's line left out; then every
// decoded frame's, a decoder complaint failing the run.
std::string packetsAndFrames(const std::filesystem::path& m) {
    std::istringstream lines(run("ffmpeg -v error -nostdin -i " + quoted(m) + " -map 0:v -c copy -f framemd5 -"));
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("#extradata", 0) != 0) kept += line + "\n";
    }
    const auto frames = runCommand("ffmpeg -v error -nostdin -xerror -i " + quoted(m) + " -map 0:v -f framemd5 - 2>&1");
    EXPECT_EQ(frames.status, 0) << frames.output;
    EXPECT_EQ(frames.output.find("rror"), std::string::npos) << frames.output;
    return kept + frames.output;
}

std::string colourRange(const std::filesystem::path& m) {
    return run("ffprobe -v error -select_streams v:0 -show_entries stream=color_range -of csv=p=0 " + quoted(m));
}

std::string encode(const TempDir& dir, const std::string& x264) {
    run("ffmpeg -v error -nostdin -y -f lavfi -i testsrc=size=128x64:rate=30 -frames:v 12 " + x264 + " -c:v libx264 " +
        quoted(dir.file("source.mp4")));
    return readFile(dir.file("source.mp4"));
}

bool rewrite(const TempDir& dir, bool fullRange) {
    ConsoleCapture quiet;
    MP4::Container c;
    c.attach(dir.wfile("m.mp4"));
    return meta::declareRange(c, fullRange).ok();
}

}  // namespace

TEST(FullRangeOracle, FfmpegReadsTheFlagsAndEverythingElseUnchanged) {
    TempDir dir;
    for (const std::string& x264 : std::vector<std::string>{
             "-s 128x64 -pix_fmt yuv420p -profile:v baseline",
             "-s 100x60 -pix_fmt yuv420p -profile:v main -x264-params bframes=0",  // cropped
             "-s 128x64 -pix_fmt yuv420p -profile:v high -color_range pc",         // already full range
             "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params "
             "videoformat=component:colorprim=bt709:transfer=bt709:colormatrix=bt709",
             "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params sar=7/5:nal-hrd=vbr:vbv-maxrate=400:vbv-bufsize=800:pic-struct=1",
             "-s 128x64 -pix_fmt yuv420p -profile:v high -x264-params interlaced=1",
             "-s 64x64 -pix_fmt yuv444p -profile:v high444 -x264-params cqm=jvt",  // scaling matrices
         }) {
        const std::string original = encode(dir, x264);
        const auto before = e2e::spsFields(dir.file("source.mp4"));
        ASSERT_GT(before.size(), 30u) << x264;
        const std::string media = packetsAndFrames(dir.file("source.mp4"));
        for (bool fullRange : {true, false}) {
            SCOPED_TRACE(x264 + (fullRange ? ", full range" : ", video range"));
            writeFile(dir.file("m.mp4"), original);
            EXPECT_TRUE(rewrite(dir, fullRange));
            EXPECT_EQ(e2e::spsFields(dir.file("m.mp4")), expectedAfter(before, fullRange));
            const bool kept = nothingToDo(before, fullRange);
            EXPECT_TRUE(!kept || readFile(dir.file("m.mp4")) == original);
            const bool signalled = !kept || field(before, "video_signal_type_present_flag") == "1";
            EXPECT_EQ(colourRange(dir.file("m.mp4")), !signalled ? "unknown\n" : fullRange ? "pc\n" : "tv\n");
            EXPECT_EQ(packetsAndFrames(dir.file("m.mp4")), media);
        }
    }
}
