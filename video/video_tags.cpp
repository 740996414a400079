#include "video/video_tags.h"

#include <cstring>

namespace QVMX {

namespace {

bool copySideData(const AVStream* source, AVStream* output, AVPacketSideDataType type) {
    size_t size = 0;
    const uint8_t* data = av_stream_get_side_data(source, type, &size);
    if (data == nullptr || size == 0) return false;
    uint8_t* copy = av_stream_new_side_data(output, type, size);
    if (copy == nullptr) return false;
    // Equirectangular bounds are fractions of the picture, so the scaled
    // frame keeps them; tile and padding values of other projections are
    // copied as they are.
    std::memcpy(copy, data, size);
    return true;
}

}  // namespace

bool carryVideoTags(const AVStream* source, AVStream* output, const std::string& timecode) {
    if (source == nullptr) return false;
    if (!timecode.empty()) {
        // The muxer counts the timecode in frames at the stream's rate.
        AVRational rate = source->avg_frame_rate;
        if (rate.num <= 0 || rate.den <= 0) rate = source->r_frame_rate;
        if (rate.num > 0 && rate.den > 0) {
            output->avg_frame_rate = rate;
            av_dict_set(&output->metadata, "timecode", timecode.c_str(), 0);
        }
    }
    const bool mapped = copySideData(source, output, AV_PKT_DATA_SPHERICAL);
    const bool stereo = copySideData(source, output, AV_PKT_DATA_STEREO3D);
    return mapped || stereo;
}

}  // namespace QVMX
