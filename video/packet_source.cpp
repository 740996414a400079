#include "video/packet_source.h"

namespace QVMX {

PacketSource::PacketSource(AVFormatContext* format)
    : format_(format),
      parked_(format->nb_streams),
      enabled_(format->nb_streams, false),
      scratch_(ff::makePacket()) {
    for (unsigned i = 0; i < format->nb_streams; ++i) format->streams[i]->discard = AVDISCARD_ALL;
}

void PacketSource::enable(int streamIndex) {
    if (streamIndex < 0 || static_cast<size_t>(streamIndex) >= enabled_.size()) return;
    enabled_[streamIndex] = true;
    format_->streams[streamIndex]->discard = AVDISCARD_DEFAULT;
}

void PacketSource::disable(int streamIndex) {
    if (streamIndex < 0 || static_cast<size_t>(streamIndex) >= enabled_.size()) return;
    enabled_[streamIndex] = false;
    parked_[streamIndex].clear();
    format_->streams[streamIndex]->discard = AVDISCARD_ALL;
}

size_t PacketSource::parkedCount() const {
    size_t n = 0;
    for (const auto& queue : parked_) n += queue.size();
    return n;
}

bool PacketSource::takeParked(int streamIndex, AVPacket* packet) {
    if (streamIndex < 0 || static_cast<size_t>(streamIndex) >= parked_.size()) return false;
    auto& mine = parked_[streamIndex];
    if (mine.empty()) return false;
    av_packet_move_ref(packet, mine.front().get());
    mine.pop_front();
    return true;
}

int PacketSource::next(int streamIndex, AVPacket* packet) {
    if (streamIndex < 0 || static_cast<size_t>(streamIndex) >= enabled_.size() || !enabled_[streamIndex]) {
        return 0;
    }
    auto& mine = parked_[streamIndex];
    if (!mine.empty()) {
        av_packet_move_ref(packet, mine.front().get());
        mine.pop_front();
        return 1;
    }
    if (!scratch_) return AVERROR(ENOMEM);
    while (!ended_) {
        const int result = av_read_frame(format_, scratch_.get());
        if (result == AVERROR_EOF) {
            ended_ = true;
            break;
        }
        if (result < 0) return result;
        if ((scratch_->flags & AV_PKT_FLAG_CORRUPT) != 0) {
            av_packet_unref(scratch_.get());
            return AVERROR_INVALIDDATA;
        }
        const int index = scratch_->stream_index;
        if (index == streamIndex) {
            av_packet_move_ref(packet, scratch_.get());
            return 1;
        }
        if (index >= 0 && static_cast<size_t>(index) < enabled_.size() && enabled_[index]) {
            ff::PacketPtr held = ff::makePacket();
            if (!held) return AVERROR(ENOMEM);
            av_packet_move_ref(held.get(), scratch_.get());
            parked_[index].push_back(std::move(held));
        } else {
            av_packet_unref(scratch_.get());
        }
    }
    return 0;
}

}  // namespace QVMX
