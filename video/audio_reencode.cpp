#include "video/audio_reencode.h"

#include <algorithm>

#include "video/audio_encoder.h"
#include "video/audio_mix.h"
#include "video/movie_muxer.h"
#include "video/packet_source.h"

namespace QVMX {

struct AudioReencode::Track {
    int input = -1;
    std::unique_ptr<AudioMix> decode;  // one track: its own rate and channels
    AudioEncoder encoder;
    AVStream* output = nullptr;
    SampleBuffer sample;
    MediaTime reached = MediaTime::zero();
    bool ended = false;
};

AudioReencode::AudioReencode(const MediaTime& start, const MediaTime& end, uint64_t bitRate)
    : start_(start), end_(end), bitRate_(bitRate) {}

AudioReencode::~AudioReencode() = default;

bool AudioReencode::addStreams(const AVFormatContext* input, const std::vector<int>& indices, MovieMuxer& muxer,
                               std::string& error) {
    for (int index : indices) {
        if (index < 0 || static_cast<unsigned>(index) >= input->nb_streams) continue;
        const AVStream* source = input->streams[index];
        auto track = std::make_unique<Track>();
        track->input = index;
        // AAC takes rates up to 96 kHz; more than two channels are folded to two.
        const int rate = std::clamp(source->codecpar->sample_rate, 8000, 96000);
        const int channels = std::clamp(source->codecpar->ch_layout.nb_channels, 1, 2);
        track->decode = std::make_unique<AudioMix>(rate, channels);
        track->decode->setRange(start_, end_);
        if (!track->decode->addTrack(source, error) ||
            !track->encoder.open(rate, channels, bitRate_, muxer.wantsGlobalHeader(), error) ||
            (track->output = muxer.addStream(track->encoder.context(), 0)) == nullptr) {
            if (error.empty()) error = "no AAC track can be made";
            return false;
        }
        for (const char* key : {"language", "handler_name"}) {
            const AVDictionaryEntry* entry = av_dict_get(source->metadata, key, nullptr, 0);
            if (entry != nullptr) av_dict_set(&track->output->metadata, key, entry->value, 0);
        }
        tracks_.push_back(std::move(track));
    }
    return true;
}

void AudioReencode::enable(PacketSource& packets) const {
    for (const auto& track : tracks_) packets.enable(track->input);
}

bool AudioReencode::pump(PacketSource& packets, MovieMuxer& muxer, const MediaTime& until, std::string& error) {
    for (auto& track : tracks_) {
        Track& t = *track;
        auto sink = [&](AVPacket* p) { return muxer.write(p, t.output, t.encoder.context()->time_base, error); };
        while (!t.ended && (!until.isNumeric() || t.reached <= until)) {
            const int result = t.decode->next(packets, t.sample);
            if (result < 0) {
                error = ff::errorText(result);
                return false;
            }
            if (result == 0) {
                t.ended = true;
                break;
            }
            t.reached = t.sample.presentationTime;
            const double offset = (t.sample.presentationTime - start_).seconds();
            if (!t.encoder.append(t.sample, offset > 0.0 ? offset : 0.0, sink, error)) return false;
        }
    }
    return true;
}

bool AudioReencode::finish(PacketSource& packets, MovieMuxer& muxer, std::string& error) {
    if (!pump(packets, muxer, MediaTime::invalid(), error)) return false;
    for (auto& track : tracks_) {
        Track& t = *track;
        auto sink = [&](AVPacket* p) { return muxer.write(p, t.output, t.encoder.context()->time_base, error); };
        if (!t.encoder.finish(sink, error)) return false;
        packets.disable(t.input);
    }
    return true;
}

}  // namespace QVMX
