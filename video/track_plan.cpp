#include "video/track_plan.h"

#include <algorithm>
#include <cctype>

namespace QVMX {

namespace {

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A few words on what a track that cannot stay holds.
std::string describe(const TrackFacts& t) {
    if (t.attachedPicture) return "cover art";
    if (t.tag == "camm") return "camera motion";
    if (t.tag == "mebx") return "metadata";
    if (t.tag == "fdsc") return "GoPro file description";
    if (t.tag == "rtp" || t.tag == "rtcp" || t.tag == "srtp" || lower(t.handler).find("hint") != std::string::npos) {
        return "hint";
    }
    if (t.tag == "c608" || t.tag == "c708") return "closed captions";
    switch (t.kind) {
        case TrackKind::Video:
            return "second video";
        case TrackKind::Subtitle:
            return "subtitles the output cannot hold";
        case TrackKind::Data:
            return "data";
        case TrackKind::Audio:  // every audio track is kept
        case TrackKind::Other:
            break;
    }
    return "unknown content";
}

}  // namespace

std::vector<TrackChoice> planTracks(const std::vector<TrackFacts>& tracks) {
    std::vector<TrackChoice> plan;
    bool haveVideo = false, haveAudio = false, haveTimecode = false;
    for (const TrackFacts& t : tracks) {
        TrackChoice c{t.index, TrackRole::Dropped, t.tag.empty() ? t.codec : t.tag, ""};
        if (t.kind == TrackKind::Video && !t.attachedPicture && !haveVideo) {
            c.role = TrackRole::EncodedVideo;
            haveVideo = true;
        } else if (t.kind == TrackKind::Audio && !haveAudio) {
            c.role = TrackRole::EncodedAudio;
            haveAudio = true;
        } else if (t.tag == "tmcd") {
            // The muxer writes one timecode track from the video's tag; a
            // copy would be a second.
            c.role = haveTimecode ? TrackRole::Dropped : TrackRole::Timecode;
            if (haveTimecode) c.reason = "second timecode";
            haveTimecode = true;
        } else if (t.kind == TrackKind::Video || t.attachedPicture) {
            c.reason = describe(t);
        } else if (t.muxerCarries && t.kind != TrackKind::Other) {
            c.role = TrackRole::Copied;
        } else if (t.kind == TrackKind::Audio) {
            c.role = TrackRole::ReencodedAudio;
        } else {
            c.reason = describe(t);
        }
        plan.push_back(c);
    }
    return plan;
}

std::string droppedLine(const TrackChoice& choice) {
    return "track " + std::to_string(choice.index + 1) + " (" + choice.tag + ", " + choice.reason +
           ") is not kept by a re-encode";
}

}  // namespace QVMX
