#pragma once

#include <memory>
#include <string>
#include <vector>

#include "video/ffmpeg.h"

namespace QVMX {

class MovieMuxer;
class PacketSource;

// Further audio tracks the output cannot take as they are: each one decoded
// and encoded to AAC on its own, cut to [start, end) and moved back by start
// like the frames.
class AudioReencode {
public:
    AudioReencode(const MediaTime& start, const MediaTime& end, uint64_t bitRate);
    ~AudioReencode();

    bool addStreams(const AVFormatContext* input, const std::vector<int>& indices, MovieMuxer& muxer,
                    std::string& error);
    void enable(PacketSource& packets) const;
    // Encodes each track's sound up to until (all that is left when until
    // is invalid); at the end the encoders are drained.
    bool pump(PacketSource& packets, MovieMuxer& muxer, const MediaTime& until, std::string& error);
    bool finish(PacketSource& packets, MovieMuxer& muxer, std::string& error);

private:
    struct Track;
    MediaTime start_;
    MediaTime end_;
    uint64_t bitRate_;
    std::vector<std::unique_ptr<Track>> tracks_;
};

}  // namespace QVMX
