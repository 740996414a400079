#pragma once

#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

// The MPEG-4 file being written: streams, header, interleaved packets,
// trailer.
class MovieMuxer {
public:
    bool create(const std::string& path, std::string& error);
    // Encoders must set AV_CODEC_FLAG_GLOBAL_HEADER when this is true.
    bool wantsGlobalHeader() const;
    // A stream carrying what the opened encoder produces; nullptr on failure.
    AVStream* addStream(const AVCodecContext* encoder, uint32_t codecTag);
    // A stream taking another file's packets as they are (the muxer picks
    // the sample entry); nullptr when this container cannot hold the codec.
    AVStream* addCopiedStream(const AVStream* source);
    // Lets the muxer write boxes no standard names, such as the sphere
    // mapping of the video.
    void allowUnofficial();
    // Opens the file and writes the header; moovFirst puts the movie box
    // before the media data (a second pass when the trailer is written).
    bool begin(bool moovFirst, std::string& error);
    // Takes the packet's data; its timestamps are in the encoder's time base.
    bool write(AVPacket* packet, AVStream* stream, AVRational encoderTimeBase, std::string& error);
    // Writes the trailer and closes the file.
    bool finish(std::string& error);

private:
    ff::OutputPtr format_;
    bool begun_ = false;
};

}  // namespace QVMX
