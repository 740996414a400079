#pragma once

#include <string>
#include <vector>

#include "video/ffmpeg.h"

namespace QVMX {

class MovieMuxer;
class PacketSource;

// Tracks a re-encode keeps as they are: their packets whose time falls in
// [start, end) go into the output shifted back by start, like the frames.
class StreamCopy {
public:
    // end may be invalid: no limit.
    StreamCopy(const MediaTime& start, const MediaTime& end);

    // An output stream for each input stream named; false when the muxer
    // takes one of them not.
    bool addStreams(const AVFormatContext* input, const std::vector<int>& indices, MovieMuxer& muxer,
                    std::string& error);
    // Asks the packet source to keep these streams' packets.
    void enable(PacketSource& packets) const;

    // Writes what the reading of the other streams has parked.
    bool pump(PacketSource& packets, MovieMuxer& muxer, std::string& error);
    // Reads each stream on to the end of the range and writes what is in it.
    bool finish(PacketSource& packets, MovieMuxer& muxer, std::string& error);

    // Packets written for the input stream.
    int written(int inputIndex) const;

private:
    struct Stream {
        int input = -1;
        AVRational timeBase{0, 1};
        AVStream* output = nullptr;
        int written = 0;
        bool past = false;  // a packet at or after the end was seen
    };
    // Writes the packet when it lies in the range, else drops it.
    bool put(Stream& stream, AVPacket* packet, MovieMuxer& muxer, std::string& error);

    MediaTime start_;
    MediaTime end_;
    std::vector<Stream> streams_;
    ff::PacketPtr packet_ = ff::makePacket();
};

}  // namespace QVMX
