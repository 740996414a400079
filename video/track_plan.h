#pragma once

// What a re-encode does with each track of the source, decided from facts
// about the track alone (no FFmpeg types here, so the rules can be checked
// on their own).
#include <string>
#include <vector>

namespace QVMX {

enum class TrackKind { Video, Audio, Subtitle, Data, Other };

struct TrackFacts {
    int index = 0;            // the stream's position in the file, from 0
    TrackKind kind = TrackKind::Other;
    std::string tag;          // the sample entry's four characters, trailing blanks cut
    std::string codec;        // the decoder's name for the codec
    std::string handler;      // the track's handler name, as written
    bool attachedPicture = false;
    bool muxerCarries = false;  // the output container takes the codec as it is
};

enum class TrackRole {
    EncodedVideo,  // the first video: decoded, scaled, encoded
    EncodedAudio,  // the first audio: decoded and encoded to AAC
    Copied,        // its packets go into the output as they are, cut to the range
    ReencodedAudio,  // further audio the output cannot take as it is: an AAC track of its own
    Timecode,      // kept as the video's timecode tag, from which the muxer makes its own track
    Dropped,
};

struct TrackChoice {
    int index = 0;
    TrackRole role = TrackRole::Dropped;
    std::string tag;
    std::string reason;  // for a dropped track: what it holds, in a few words
};

std::vector<TrackChoice> planTracks(const std::vector<TrackFacts>& tracks);

// "track 3 (camm, camera motion) is not kept by a re-encode".
std::string droppedLine(const TrackChoice& choice);

}  // namespace QVMX
