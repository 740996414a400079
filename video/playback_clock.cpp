#include "video/playback_clock.h"

namespace QVMX {

void PlaybackClock::play() {
    if (playing_) return;
    since_ = Clock::now();
    playing_ = true;
}

void PlaybackClock::pause() {
    if (!playing_) return;
    played_ += Clock::now() - since_;
    playing_ = false;
}

MediaTime PlaybackClock::currentTime() const {
    Clock::duration elapsed = played_;
    if (playing_) elapsed += Clock::now() - since_;
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count();
    return origin_ + MediaTime::make(micros, 1000000);
}

}  // namespace QVMX
