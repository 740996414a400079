#include "video/movie_file.h"

#include "video/packet_source.h"
#include "video/stream_decoder.h"

namespace QVMX {

namespace {

ff::InputPtr openHeaders(const std::string& path, std::string& error) {
    ff::quietLibraries();
    AVFormatContext* raw = nullptr;
    const int result = avformat_open_input(&raw, path.c_str(), nullptr, nullptr);
    if (result < 0) {
        error = ff::errorText(result);
        return nullptr;
    }
    return ff::InputPtr(raw);
}

bool headersSuffice(const AVFormatContext* format) {
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        const AVCodecParameters* p = stream->codecpar;
        if (p->codec_type != AVMEDIA_TYPE_VIDEO && p->codec_type != AVMEDIA_TYPE_AUDIO) continue;
        if (p->codec_id == AV_CODEC_ID_NONE) return false;
        if (p->codec_type == AVMEDIA_TYPE_VIDEO &&
            (p->width < 1 || p->height < 1 || stream->avg_frame_rate.num <= 0 || stream->avg_frame_rate.den <= 0)) {
            return false;
        }
        if (p->codec_type == AVMEDIA_TYPE_AUDIO && (p->sample_rate < 1 || p->ch_layout.nb_channels < 1)) return false;
    }
    return format->nb_streams > 0;
}

ff::InputPtr withStreamInfo(ff::InputPtr format, std::string& error) {
    const int result = avformat_find_stream_info(format.get(), nullptr);
    if (result < 0) {
        error = ff::errorText(result);
        return nullptr;
    }
    return format;
}

}  // namespace

ff::InputPtr openMovie(const std::string& path, std::string& error) {
    ff::InputPtr format = openHeaders(path, error);
    if (!format) return nullptr;
    return withStreamInfo(std::move(format), error);
}

ff::InputPtr openMovieHeaders(const std::string& path, std::string& error) {
    ff::InputPtr format = openHeaders(path, error);
    if (!format || headersSuffice(format.get())) return format;
    return withStreamInfo(std::move(format), error);
}

int firstStreamOf(const AVFormatContext* format, AVMediaType type) {
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        if (stream->codecpar->codec_type != type) continue;
        if (type == AVMEDIA_TYPE_VIDEO && (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) continue;
        return static_cast<int>(i);
    }
    return -1;
}

MediaTime movieDuration(const AVFormatContext* format) {
    MediaTime longest = MediaTime::invalid();
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        if (stream->duration == AV_NOPTS_VALUE || stream->duration < 0) continue;
        const MediaTime d = ff::toMediaTime(stream->duration, stream->time_base);
        if (d.isNumeric() && (!longest.isValid() || d > longest)) longest = d;
    }
    if (longest.isValid()) return longest;
    if (format->duration != AV_NOPTS_VALUE && format->duration >= 0) {
        return MediaTime::make(format->duration, AV_TIME_BASE);
    }
    return MediaTime::invalid();
}

float nominalFrameRate(const AVStream* stream) {
    AVRational rate = stream->avg_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) rate = stream->r_frame_rate;
    if (rate.num <= 0 || rate.den <= 0) return 0.0f;
    return static_cast<float>(av_q2d(rate));
}

ff::FramePtr decodeFirstFrame(AVFormatContext* format, int streamIndex) {
    if (streamIndex < 0 || static_cast<unsigned>(streamIndex) >= format->nb_streams) return nullptr;
    StreamDecoder decoder;
    std::string ignored;
    // One frame is wanted: frame threads would only delay it.
    if (!decoder.open(format->streams[streamIndex], false, ignored)) return nullptr;
    PacketSource packets(format);
    packets.enable(streamIndex);
    ff::FramePtr frame = ff::makeFrame();
    if (!frame || decoder.receive(packets, frame.get()) < 0) return nullptr;
    return frame;
}

}  // namespace QVMX
