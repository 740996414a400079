#pragma once

// FFmpeg objects owned through unique_ptr, so no path can leak them. Only
// video/ sources include this.
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#include <memory>
#include <string>

#include "video/media_time.h"

namespace QVMX::ff {

struct InputDeleter {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct OutputDeleter {
    void operator()(AVFormatContext* c) const;
};
struct CodecDeleter {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct FrameDeleter {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};
struct PacketDeleter {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct SwsDeleter {
    void operator()(SwsContext* c) const { sws_freeContext(c); }
};
struct SwrDeleter {
    void operator()(SwrContext* c) const { swr_free(&c); }
};
struct FifoDeleter {
    void operator()(AVAudioFifo* f) const { av_audio_fifo_free(f); }
};
struct DictDeleter {
    void operator()(AVDictionary* d) const { av_dict_free(&d); }
};

using InputPtr = std::unique_ptr<AVFormatContext, InputDeleter>;
using OutputPtr = std::unique_ptr<AVFormatContext, OutputDeleter>;
using CodecPtr = std::unique_ptr<AVCodecContext, CodecDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using SwsPtr = std::unique_ptr<SwsContext, SwsDeleter>;
using SwrPtr = std::unique_ptr<SwrContext, SwrDeleter>;
using FifoPtr = std::unique_ptr<AVAudioFifo, FifoDeleter>;

inline FramePtr makeFrame() { return FramePtr(av_frame_alloc()); }
inline PacketPtr makePacket() { return PacketPtr(av_packet_alloc()); }

// FFmpeg's message for an error code.
std::string errorText(int code);

// Keeps the libraries' own logging to real errors (the encoders' statistics
// would otherwise fill standard error); called before any other use.
void quietLibraries();

// A stream timestamp as a media time (the time base's denominator becomes
// the timescale when it fits).
MediaTime toMediaTime(int64_t timestamp, AVRational timeBase);
// A media time in a time base, rounded to the nearest tick.
int64_t fromMediaTime(const MediaTime& time, AVRational timeBase);

}  // namespace QVMX::ff
