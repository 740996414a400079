#include "video/stream_copy.h"

#include "video/movie_muxer.h"
#include "video/packet_source.h"

namespace QVMX {

StreamCopy::StreamCopy(const MediaTime& start, const MediaTime& end) : start_(start), end_(end) {}

bool StreamCopy::addStreams(const AVFormatContext* input, const std::vector<int>& indices, MovieMuxer& muxer,
                            std::string& error) {
    for (int index : indices) {
        if (index < 0 || static_cast<unsigned>(index) >= input->nb_streams) continue;
        const AVStream* source = input->streams[index];
        AVStream* output = muxer.addCopiedStream(source);
        if (output == nullptr) {
            error = std::string("the output cannot hold a ") + avcodec_get_name(source->codecpar->codec_id) +
                    " track";
            return false;
        }
        streams_.push_back(Stream{index, source->time_base, output, 0, false});
    }
    return true;
}

void StreamCopy::enable(PacketSource& packets) const {
    for (const Stream& s : streams_) packets.enable(s.input);
}

bool StreamCopy::put(Stream& stream, AVPacket* packet, MovieMuxer& muxer, std::string& error) {
    const int64_t stamp = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    const MediaTime time = ff::toMediaTime(stamp, stream.timeBase);
    if (!time.isNumeric() || time < start_) {
        av_packet_unref(packet);
        return true;
    }
    if (end_.isNumeric() && time >= end_) {
        stream.past = true;
        av_packet_unref(packet);
        return true;
    }
    const int64_t shift = ff::fromMediaTime(start_, stream.timeBase);
    if (packet->pts != AV_NOPTS_VALUE) packet->pts -= shift;
    if (packet->dts != AV_NOPTS_VALUE) packet->dts -= shift;
    // A track's first sample cannot decode before the movie starts.
    if (packet->dts != AV_NOPTS_VALUE && packet->dts < 0) packet->dts = packet->pts != AV_NOPTS_VALUE ? packet->pts : 0;
    packet->pos = -1;
    if (!muxer.write(packet, stream.output, stream.timeBase, error)) return false;
    ++stream.written;
    return true;
}

bool StreamCopy::pump(PacketSource& packets, MovieMuxer& muxer, std::string& error) {
    if (!packet_) return false;
    for (Stream& s : streams_) {
        while (packets.takeParked(s.input, packet_.get())) {
            if (!put(s, packet_.get(), muxer, error)) return false;
        }
    }
    return true;
}

bool StreamCopy::finish(PacketSource& packets, MovieMuxer& muxer, std::string& error) {
    if (!packet_) return false;
    for (Stream& s : streams_) {
        while (!s.past) {
            const int result = packets.next(s.input, packet_.get());
            if (result == 0) break;
            if (result < 0) {
                error = ff::errorText(result);
                return false;
            }
            if (!put(s, packet_.get(), muxer, error)) return false;
        }
        packets.disable(s.input);
    }
    return true;
}

int StreamCopy::written(int inputIndex) const {
    for (const Stream& s : streams_) {
        if (s.input == inputIndex) return s.written;
    }
    return 0;
}

}  // namespace QVMX
