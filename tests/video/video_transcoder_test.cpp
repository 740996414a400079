// The read-process-write loop: callbacks, results, and a spent transcoder.
// The time-range cut and a source cut short are checked on the reader, and
// end to end by the pipeline's integration tests.
#include "video/video_transcoder.h"

#include <gtest/gtest.h>

#include "movie_fixtures.h"
#include "support/test_files.h"

using QVMX::MediaTime;
using QVMX::MediaTimeRange;
using videotest::Fixture;
using videotest::LogCapture;
using videotest::makeMovie;

namespace {

struct Counts {
    int frames = 0;
    int finally = 0;
};

// Runs the whole movie; each frame is written and the callback answers keepGoing.
bool run(QVMXVideoTranscoder& t, const std::string& out, Counts& c, bool keepGoing = true) {
    return t.process(
        out, 1.0f, MediaTime::zero(), MediaTimeRange::invalid(), false,
        [&c, keepGoing](const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer, const MediaTime& time) {
            ++c.frames;
            writer.processFrame(&frame, time);
            return keepGoing;
        },
        [](const QVMX::SampleBuffer* s, QVMXVideoWriter& writer, const MediaTime&) { return writer.processAudio(s); },
        [&c](QVMXVideoWriter& w) {
            ++c.finally;
            EXPECT_TRUE(w.isReadyForMoreFrame());
        });
}

int framesIn(const std::string& path) {
    QVMXVideoReader reader;
    int n = 0;
    if (!reader.start(path, {32, 16})) return -1;
    while (reader.loadNextFrame(nullptr)) ++n;
    return n;
}

}  // namespace

TEST(VideoTranscoder, AFrameCallbackAnsweringNoEndsTheLoopButNotTheFileAndSpendsTheTranscoder) {
    testsupport::TempDir dir;
    const auto movie = makeMovie(dir.path(), "m.mp4", Fixture{});
    QVMXVideoTranscoder t;
    LogCapture log;
    EXPECT_FALSE(t.attachSource(dir.file("none.mp4").string()));
    EXPECT_TRUE(log.contains(": Failed to detect frameSize: " + dir.file("none.mp4").string())) << log.text();
    ASSERT_TRUE(t.attachSource(movie.string()));
    Counts c;
    EXPECT_FALSE(run(t, dir.file("out.mp4").string(), c, false));
    EXPECT_EQ(c.frames, 1);
    EXPECT_EQ(c.finally, 1);
    EXPECT_EQ(framesIn(dir.file("out.mp4").string()), 1);  // the writer was still finished properly
    // Spent: the reader and writer went with the first call.
    EXPECT_FALSE(t.process2(dir.file("again.mp4").string(), 1.0f, false, nullptr, nullptr, nullptr));

    // An output that cannot be opened: no frame is read.
    QVMXVideoTranscoder noDir;
    ASSERT_TRUE(noDir.attachSource(movie.string()));
    Counts none;
    EXPECT_FALSE(run(noDir, dir.file("no/such/dir/out.mp4").string(), none));
    EXPECT_EQ(none.frames, 0);
    EXPECT_TRUE(log.contains(": open failed(2)"));
}
