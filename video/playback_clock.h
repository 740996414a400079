#pragma once

#include <chrono>

#include "video/media_time.h"

namespace QVMX {

// The clock of audio playback, against which frames are paced when the
// reader plays the movie: it runs from the range start while playing.
class PlaybackClock {
public:
    explicit PlaybackClock(const MediaTime& origin) : origin_(origin.isNumeric() ? origin : MediaTime::zero()) {}

    void play();
    void pause();
    bool isPlaying() const { return playing_; }
    MediaTime currentTime() const;

private:
    using Clock = std::chrono::steady_clock;
    MediaTime origin_;
    Clock::duration played_{};
    Clock::time_point since_{};
    bool playing_ = false;
};

}  // namespace QVMX
