#pragma once

#include <deque>
#include <vector>

#include "video/ffmpeg.h"

namespace QVMX {

// Hands out the packets of a movie per stream although the file interleaves
// them: packets of another enabled stream met on the way are parked until
// that stream asks. Disabled streams are skipped by the demuxer.
class PacketSource {
public:
    explicit PacketSource(AVFormatContext* format);  // not owned

    void enable(int streamIndex);
    // Drops what is parked for the stream and everything it would get later.
    void disable(int streamIndex);

    // 1: the stream's next packet is in packet; 0: the stream has no more;
    // negative: an FFmpeg error (a packet cut short by the end of the file
    // counts as AVERROR_INVALIDDATA).
    int next(int streamIndex, AVPacket* packet);
    // The stream's oldest parked packet, without reading the file; false
    // when none is parked.
    bool takeParked(int streamIndex, AVPacket* packet);

    // Parked packets over all streams (how far the reading runs ahead).
    size_t parkedCount() const;

private:
    AVFormatContext* format_;
    std::vector<std::deque<ff::PacketPtr>> parked_;
    std::vector<bool> enabled_;
    ff::PacketPtr scratch_;
    bool ended_ = false;
};

}  // namespace QVMX
