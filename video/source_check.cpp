#include "video/source_check.h"

#include "video/ffmpeg.h"
#include "video/first_frame.h"
#include "video/movie_file.h"
#include "video/packet_source.h"

namespace QVMX {

namespace {

std::string tagText(uint32_t tag) {
    std::string text;
    for (int i = 0; i < 4; ++i) {
        const char c = static_cast<char>((tag >> (8 * i)) & 0xFF);
        if (c < 0x20 || c > 0x7E) return "";
        text += c;
    }
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

std::string metadata(const AVStream* stream, const char* key) {
    const AVDictionaryEntry* entry = av_dict_get(stream->metadata, key, nullptr, 0);
    return entry != nullptr && entry->value != nullptr ? entry->value : "";
}

TrackKind kindOf(AVMediaType type) {
    switch (type) {
        case AVMEDIA_TYPE_VIDEO:
            return TrackKind::Video;
        case AVMEDIA_TYPE_AUDIO:
            return TrackKind::Audio;
        case AVMEDIA_TYPE_SUBTITLE:
            return TrackKind::Subtitle;
        case AVMEDIA_TYPE_DATA:
            return TrackKind::Data;
        default:
            return TrackKind::Other;
    }
}

std::vector<TrackFacts> factsOf(const AVFormatContext* format) {
    const AVOutputFormat* mp4 = av_guess_format("mp4", nullptr, nullptr);
    std::vector<TrackFacts> facts;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        const AVCodecParameters* p = stream->codecpar;
        TrackFacts t;
        t.index = static_cast<int>(i);
        t.kind = kindOf(p->codec_type);
        t.tag = tagText(p->codec_tag);
        t.codec = avcodec_get_name(p->codec_id);
        t.handler = metadata(stream, "handler_name");
        t.attachedPicture = (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
        t.muxerCarries = mp4 != nullptr && p->codec_id != AV_CODEC_ID_NONE &&
                         avformat_query_codec(mp4, p->codec_id, FF_COMPLIANCE_NORMAL) == 1;
        facts.push_back(t);
    }
    return facts;
}

bool streamsEncrypted(const AVFormatContext* format) {
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const AVStream* stream = format->streams[i];
        const std::string tag = tagText(stream->codecpar->codec_tag);
        if (tag == "encv" || tag == "enca") return true;
        if (av_stream_get_side_data(stream, AV_PKT_DATA_ENCRYPTION_INIT_INFO, nullptr) != nullptr) return true;
    }
    return false;
}

// The samples themselves say so when the headers do not.
bool firstPacketEncrypted(const std::string& url, int videoIndex) {
    std::string error;
    ff::InputPtr format = openMovieHeaders(url, error);
    if (!format || videoIndex >= static_cast<int>(format->nb_streams)) return false;
    PacketSource packets(format.get());
    packets.enable(videoIndex);
    ff::PacketPtr packet = ff::makePacket();
    if (!packet || packets.next(videoIndex, packet.get()) != 1) return false;
    return av_packet_get_side_data(packet.get(), AV_PKT_DATA_ENCRYPTION_INFO, nullptr) != nullptr;
}

std::string timecodeOf(const AVFormatContext* format, int videoIndex) {
    std::string timecode = metadata(format->streams[videoIndex], "timecode");
    for (unsigned i = 0; i < format->nb_streams && timecode.empty(); ++i) {
        if (tagText(format->streams[i]->codecpar->codec_tag) == "tmcd") timecode = metadata(format->streams[i], "timecode");
    }
    return timecode;
}

}  // namespace

SourceReport inspectSource(const std::string& url) {
    SourceReport report;
    std::string error;
    ff::InputPtr format = openMovieHeaders(url, error);
    if (!format) return report;
    const int videoIndex = firstStreamOf(format.get(), AVMEDIA_TYPE_VIDEO);
    if (videoIndex < 0) {
        report.problem = SourceReport::kNoVideo;
        return report;
    }
    const AVStream* video = format->streams[videoIndex];
    report.videoCodec = avcodec_get_name(video->codecpar->codec_id);
    report.tracks = planTracks(factsOf(format.get()));
    report.timecode = timecodeOf(format.get(), videoIndex);
    report.frameRate = nominalFrameRate(video);
    if (video->duration != AV_NOPTS_VALUE && video->duration > 0) {
        report.videoDuration = ff::toMediaTime(video->duration, video->time_base);
    } else {
        report.videoDuration = movieDuration(format.get());
    }
    if (streamsEncrypted(format.get()) || firstPacketEncrypted(url, videoIndex)) {
        report.problem = SourceReport::kEncrypted;
        return report;
    }
    ff::FramePtr first = avcodec_find_decoder(video->codecpar->codec_id) != nullptr
                             ? firstVideoFrame(url, format.get(), videoIndex)
                             : nullptr;
    if (!first) {
        report.problem = SourceReport::kUndecodable;
        return report;
    }
    const int64_t pts = first->best_effort_timestamp != AV_NOPTS_VALUE ? first->best_effort_timestamp : first->pts;
    MediaTime time = ff::toMediaTime(pts, video->time_base);
    if (!time.isNumeric() && video->start_time != AV_NOPTS_VALUE) {
        time = ff::toMediaTime(video->start_time, video->time_base);
    }
    report.firstFrame = time.isNumeric() ? time : MediaTime::zero();
    report.problem = SourceReport::kNone;
    return report;
}

}  // namespace QVMX
