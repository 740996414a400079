// What a re-encode does with each kind of track, and how a dropped one is named.
#include "video/track_plan.h"

#include <gtest/gtest.h>

using QVMX::TrackFacts;
using QVMX::TrackKind;
using QVMX::TrackRole;

namespace {

TrackFacts track(int index, TrackKind kind, const std::string& tag, bool carries = false) {
    TrackFacts t;
    t.index = index;
    t.kind = kind;
    t.tag = tag;
    t.codec = "codec" + std::to_string(index);
    t.muxerCarries = carries;
    return t;
}

}  // namespace

TEST(TrackPlan, FirstVideoAndAudioAreEncodedCarriedTracksCopiedOneTimecodeKept) {
    TrackFacts cover = track(0, TrackKind::Video, "", true);
    cover.attachedPicture = true;
    const auto plan = QVMX::planTracks({cover, track(1, TrackKind::Video, "avc1", true),
                                        track(2, TrackKind::Audio, "mp4a", true), track(3, TrackKind::Audio, "mp4a", true),
                                        track(4, TrackKind::Data, "tmcd"), track(5, TrackKind::Data, "gpmd", true),
                                        track(6, TrackKind::Subtitle, "tx3g", true), track(7, TrackKind::Data, "tmcd"),
                                        track(8, TrackKind::Video, "hvc1", true), track(9, TrackKind::Audio, "sowt")});
    std::vector<TrackRole> roles;
    for (const auto& c : plan) roles.push_back(c.role);
    EXPECT_EQ(roles, (std::vector<TrackRole>{TrackRole::Dropped, TrackRole::EncodedVideo, TrackRole::EncodedAudio,
                                             TrackRole::Copied, TrackRole::Timecode, TrackRole::Copied,
                                             TrackRole::Copied, TrackRole::Dropped, TrackRole::Dropped,
                                             TrackRole::ReencodedAudio}));
    // A picture without a sample entry is named by its codec.
    EXPECT_EQ(QVMX::droppedLine(plan[0]), "track 1 (codec0, cover art) is not kept by a re-encode");
    EXPECT_EQ(QVMX::droppedLine(plan[7]), "track 8 (tmcd, second timecode) is not kept by a re-encode");
    EXPECT_EQ(QVMX::droppedLine(plan[8]), "track 9 (hvc1, second video) is not kept by a re-encode");
}

TEST(TrackPlan, TracksTheOutputCannotHoldAreNamedByWhatTheyHold) {
    TrackFacts hint = track(5, TrackKind::Data, "");
    hint.handler = "Hint Media Handler";
    const std::vector<std::pair<TrackFacts, std::string>> cases = {
        {track(1, TrackKind::Data, "camm"), "track 2 (camm, camera motion) is not kept by a re-encode"},
        {track(2, TrackKind::Data, "mebx"), "track 3 (mebx, metadata) is not kept by a re-encode"},
        {track(3, TrackKind::Data, "fdsc"), "track 4 (fdsc, GoPro file description) is not kept by a re-encode"},
        {track(4, TrackKind::Data, "rtp"), "track 5 (rtp, hint) is not kept by a re-encode"},
        {hint, "track 6 (codec5, hint) is not kept by a re-encode"},
        {track(6, TrackKind::Subtitle, "c608"), "track 7 (c608, closed captions) is not kept by a re-encode"},
        // A data codec the muxer would take still needs a known kind.
        {track(7, TrackKind::Other, "xyzw", true), "track 8 (xyzw, unknown content) is not kept by a re-encode"},
    };
    for (const auto& [facts, line] : cases) {
        // Behind an encoded video, so the track is never the first of its kind.
        const auto plan = QVMX::planTracks({track(0, TrackKind::Video, "avc1", true), facts});
        ASSERT_EQ(plan.size(), 2u);
        EXPECT_EQ(plan[1].role, TrackRole::Dropped) << line;
        EXPECT_EQ(QVMX::droppedLine(plan[1]), line);
    }
}
