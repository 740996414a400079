#include "video/movie_muxer.h"

#include <sys/stat.h>

namespace QVMX {

bool MovieMuxer::create(const std::string& path, std::string& error) {
    AVFormatContext* raw = nullptr;
    const int result = avformat_alloc_output_context2(&raw, nullptr, "mp4", path.c_str());
    if (result < 0 || raw == nullptr) {
        error = ff::errorText(result);
        return false;
    }
    format_.reset(raw);
    begun_ = false;
    return true;
}

bool MovieMuxer::wantsGlobalHeader() const {
    return format_ && (format_->oformat->flags & AVFMT_GLOBALHEADER) != 0;
}

AVStream* MovieMuxer::addStream(const AVCodecContext* encoder, uint32_t codecTag) {
    if (!format_) return nullptr;
    AVStream* stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr) return nullptr;
    if (avcodec_parameters_from_context(stream->codecpar, encoder) < 0) return nullptr;
    stream->codecpar->codec_tag = codecTag;
    stream->time_base = encoder->time_base;
    return stream;
}

AVStream* MovieMuxer::addCopiedStream(const AVStream* source) {
    if (!format_) return nullptr;
    const AVCodecParameters* in = source->codecpar;
    if (avformat_query_codec(format_->oformat, in->codec_id, FF_COMPLIANCE_NORMAL) != 1) return nullptr;
    AVStream* stream = avformat_new_stream(format_.get(), nullptr);
    if (stream == nullptr || avcodec_parameters_copy(stream->codecpar, in) < 0) return nullptr;
    stream->codecpar->codec_tag = 0;
    stream->time_base = source->time_base;
    stream->disposition = source->disposition;
    for (const char* key : {"language", "handler_name"}) {
        const AVDictionaryEntry* entry = av_dict_get(source->metadata, key, nullptr, 0);
        if (entry != nullptr) av_dict_set(&stream->metadata, key, entry->value, 0);
    }
    return stream;
}

void MovieMuxer::allowUnofficial() {
    if (format_) format_->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
}

bool MovieMuxer::begin(bool moovFirst, std::string& error) {
    // The run's temporary file starts out empty; truncating it anyway would
    // make its close wait for the disk on some file systems (ext4).
    AVDictionary* openOptions = nullptr;
    struct stat st {};
    if (::stat(format_->url, &st) == 0 && S_ISREG(st.st_mode) && st.st_size == 0) {
        av_dict_set(&openOptions, "truncate", "0", 0);
    }
    int result = avio_open2(&format_->pb, format_->url, AVIO_FLAG_WRITE, nullptr, &openOptions);
    av_dict_free(&openOptions);
    if (result < 0) {
        error = ff::errorText(result);
        return false;
    }
    AVDictionary* raw = nullptr;
    if (moovFirst) av_dict_set(&raw, "movflags", "+faststart", 0);
    result = avformat_write_header(format_.get(), &raw);
    std::unique_ptr<AVDictionary, ff::DictDeleter> options(raw);
    if (result < 0) {
        error = ff::errorText(result);
        return false;
    }
    // An option the muxer did not take is left in the dictionary.
    if (av_dict_count(options.get()) != 0) {
        error = std::string("muxer ignored option ") + av_dict_get(options.get(), "", nullptr, AV_DICT_IGNORE_SUFFIX)->key;
        return false;
    }
    begun_ = true;
    return true;
}

bool MovieMuxer::write(AVPacket* packet, AVStream* stream, AVRational encoderTimeBase, std::string& error) {
    if (!begun_) {
        av_packet_unref(packet);
        error = "not started";
        return false;
    }
    av_packet_rescale_ts(packet, encoderTimeBase, stream->time_base);
    packet->stream_index = stream->index;
    const int result = av_interleaved_write_frame(format_.get(), packet);
    if (result < 0) {
        error = ff::errorText(result);
        return false;
    }
    return true;
}

bool MovieMuxer::finish(std::string& error) {
    if (!begun_) {
        error = "not started";
        return false;
    }
    begun_ = false;
    int result = av_write_trailer(format_.get());
    const int closed = avio_closep(&format_->pb);
    if (result >= 0) result = closed;
    format_.reset();
    if (result < 0) {
        error = ff::errorText(result);
        return false;
    }
    return true;
}

}  // namespace QVMX
