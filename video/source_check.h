#pragma once

// A look at a movie before a re-encode writes anything: can it be
// re-encoded at all, where does its first frame lie, and what becomes of
// each of its tracks.
#include <string>
#include <vector>

#include "video/media_time.h"
#include "video/track_plan.h"

namespace QVMX {

struct SourceReport {
    enum Problem { kNone, kUnreadable, kNoVideo, kEncrypted, kUndecodable };
    Problem problem = kUnreadable;
    std::string videoCodec;  // the codec's name, e.g. "h263"
    // The first frame's presentation time; the range of a re-encode counts from it.
    MediaTime firstFrame = MediaTime::zero();
    // How long the video runs from its first frame; invalid when unknown.
    MediaTime videoDuration = MediaTime::invalid();
    float frameRate = 0.0f;
    std::vector<TrackChoice> tracks;
    std::string timecode;  // the video's start timecode, when it has one
};

SourceReport inspectSource(const std::string& url);

}  // namespace QVMX
