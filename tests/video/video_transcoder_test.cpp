// The read-process-write loop: callbacks, results, and a spent transcoder.
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
    int audio = 0;
    int finally = 0;
    double firstFrame = -1;
    double lastFrame = -1;
};

QVMXVideoTranscoder::FrameCallback countFrames(Counts& c, bool keepGoing = true) {
    return [&c, keepGoing](const QVMX::PixelBuffer& frame, QVMXVideoWriter& writer, const MediaTime& t) {
        if (c.frames++ == 0) c.firstFrame = t.seconds();
        c.lastFrame = t.seconds();
        writer.processFrame(&frame, t);
        return keepGoing;
    };
}

QVMXVideoTranscoder::AudioCallback countAudio(Counts& c) {
    return [&c](const QVMX::SampleBuffer* s, QVMXVideoWriter& writer, const MediaTime&) {
        ++c.audio;
        return writer.processAudio(s);
    };
}

int framesIn(const std::string& path) {
    QVMXVideoReader reader;
    int n = 0;
    if (!reader.start(path, {32, 16})) return -1;
    while (reader.loadNextFrame(nullptr)) ++n;
    return n;
}

}  // namespace

TEST(VideoTranscoder, ATrimmedRunStartsAtZeroAndKeepsOnlyTheRange) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 3.0;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoTranscoder t;
    LogCapture log;
    EXPECT_FALSE(t.attachSource(dir.file("none.mp4").string()));
    EXPECT_TRUE(log.contains(": Failed to detect frameSize: " + dir.file("none.mp4").string())) << log.text();
    ASSERT_TRUE(t.attachSource(movie.string()));
    EXPECT_EQ(t.outputFrameSize.height, 64);
    t.setPixelFormatType(QVMX::kPixelFormat420YpCbCr8BiPlanarFullRange);
    t.setKeyFrameInterval(10);
    Counts c;
    const MediaTime start = MediaTime::makeWithSeconds(1.0, t.sourceDuration.timescale);
    const std::string out = dir.file("out.mp4").string();
    ASSERT_TRUE(t.process(out, 1.0f, start, MediaTimeRange::make(start, MediaTime::makeWithSeconds(1.0, 600)),
                          false, countFrames(c), countAudio(c), [&c](QVMXVideoWriter&) { ++c.finally; }));
    EXPECT_EQ(c.frames, 30);
    EXPECT_DOUBLE_EQ(c.firstFrame, 1.0);
    EXPECT_GT(c.audio, 0);
    EXPECT_EQ(c.finally, 1);
    EXPECT_EQ(framesIn(out), 30);

    QVMXVideoReader check;
    ASSERT_TRUE(check.start(out, {32, 16}));
    double first = -1;
    check.loadNextFrame([&](const QVMX::PixelBuffer&, const MediaTime& time) { first = time.seconds(); });
    EXPECT_DOUBLE_EQ(first, 0.0);

    // Spent: the reader and writer went with the first call.
    EXPECT_FALSE(t.process2(dir.file("again.mp4").string(), 1.0f, false, nullptr, nullptr, nullptr));
}

TEST(VideoTranscoder, AFrameCallbackAnsweringNoEndsTheLoopButNotTheFile) {
    testsupport::TempDir dir;
    Fixture f;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    QVMXVideoTranscoder t;
    ASSERT_TRUE(t.attachSource(movie.string()));
    Counts c;
    const std::string out = dir.file("out.mp4").string();
    EXPECT_FALSE(t.process(out, 1.0f, MediaTime::zero(), MediaTimeRange::invalid(), false, countFrames(c, false),
                           countAudio(c), [&c](QVMXVideoWriter& w) {
                               ++c.finally;
                               EXPECT_TRUE(w.isReadyForMoreFrame());
                           }));
    EXPECT_EQ(c.frames, 1);
    EXPECT_EQ(c.finally, 1);
    EXPECT_EQ(framesIn(out), 1);  // the writer was still finished properly
}

TEST(VideoTranscoder, TheShortFormDrawsIntoTheWritersBuffers) {
    testsupport::TempDir dir;
    Fixture f;
    f.seconds = 1.0;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    // The short form goes through the writer's own buffers.
    QVMXVideoTranscoder rendered;
    ASSERT_TRUE(rendered.attachSource(movie.string()));
    int drawn = 0;
    ASSERT_TRUE(rendered.process(dir.file("b.mp4").string(), 1.0f, false,
                                 [&drawn](const QVMX::PixelBuffer& frame, QVMX::PixelBuffer& target, const MediaTime&) {
                                     ++drawn;
                                     return QVMX::copyPixels(frame, target);
                                 },
                                 nullptr));
    EXPECT_EQ(drawn, 30);
    EXPECT_EQ(framesIn(dir.file("b.mp4").string()), 30);
}

TEST(VideoTranscoderBadInput, EndsWithNoAndALogLineButNoCrash) {
    testsupport::TempDir dir;
    Fixture f;
    const auto movie = makeMovie(dir.path(), "m.mp4", f);
    LogCapture log;
    {
        QVMXVideoTranscoder t;  // missing output directory
        ASSERT_TRUE(t.attachSource(movie.string()));
        Counts c;
        EXPECT_FALSE(t.process(dir.file("no/such/dir/out.mp4").string(), 1.0f, MediaTime::zero(),
                               MediaTimeRange::invalid(), false, countFrames(c), countAudio(c), nullptr));
        EXPECT_EQ(c.frames, 0);
        EXPECT_TRUE(log.contains(": open failed(2)"));
    }
    {
        QVMXVideoTranscoder t;  // odd sizes
        ASSERT_TRUE(t.attachSource(movie.string()));
        t.renderFrameSize = t.outputFrameSize = {127, 63};
        EXPECT_FALSE(t.process2(dir.file("odd.mp4").string(), 1.0f, false, nullptr, nullptr, nullptr));
        EXPECT_TRUE(log.contains("need an even size of at least 2x2, not 127x63"))
            << log.text();
    }
    {
        // Cut inside the media data: the reader fails part way.
        const auto cut = videotest::truncated(movie, dir.file("cut.mp4"), std::filesystem::file_size(movie) / 2);
        QVMXVideoTranscoder t;
        ASSERT_TRUE(t.attachSource(cut.string()));
        Counts c;
        EXPECT_FALSE(t.process(dir.file("cut-out.mp4").string(), 1.0f, MediaTime::zero(), MediaTimeRange::invalid(),
                               false, countFrames(c), countAudio(c), nullptr));
        EXPECT_GT(c.frames, 0);
        EXPECT_LT(c.frames, 60);
        EXPECT_TRUE(log.contains("Invalid data found")) << log.text();
    }
}
