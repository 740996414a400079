// The output picture size of an HEVC sequence parameter set: the luma
// samples less the conformance window.
#include "h264/crop_window.h"
#include "h264/picture_size.h"
#include "h264/rbsp_reader.h"

namespace H264 {

namespace {

constexpr uint32_t kSpsType = 33;
constexpr uint64_t kMaxSide = 1u << 16;
constexpr int kMaxSubLayers = 7;
// general_profile_space through general_inbld_flag; then the level.
constexpr int kProfileBits = 88;
constexpr int kLevelBits = 8;

void skipProfileTierLevel(RbspReader& r, int subLayersMinus1) {
    r.skip(kProfileBits + kLevelBits);
    bool profilePresent[kMaxSubLayers] = {};
    bool levelPresent[kMaxSubLayers] = {};
    for (int i = 0; i < subLayersMinus1; ++i) {
        profilePresent[i] = r.flag();
        levelPresent[i] = r.flag();
    }
    if (subLayersMinus1 > 0) r.skip(2 * (8 - subLayersMinus1));  // reserved_zero_2bits
    for (int i = 0; i < subLayersMinus1; ++i) {
        if (profilePresent[i]) r.skip(kProfileBits);
        if (levelPresent[i]) r.skip(kLevelBits);
    }
}

}  // namespace

std::optional<PictureSize> hevcPictureSize(const uint8_t* nal, size_t size) {
    RbspReader r(nal, size);
    r.skip(1);  // forbidden_zero_bit
    if (r.bits(6) != kSpsType) return std::nullopt;
    r.skip(9);  // nuh_layer_id, nuh_temporal_id_plus1
    r.skip(4);  // sps_video_parameter_set_id
    const int subLayersMinus1 = static_cast<int>(r.bits(3));
    if (subLayersMinus1 >= kMaxSubLayers) return std::nullopt;
    r.flag();  // sps_temporal_id_nesting_flag
    skipProfileTierLevel(r, subLayersMinus1);
    r.ue();  // sps_seq_parameter_set_id
    const uint32_t chromaFormat = r.ue();
    if (chromaFormat > 3) return std::nullopt;
    if (chromaFormat == 3) r.flag();  // separate_colour_plane_flag: 4:4:4 units either way
    const uint64_t width = r.ue();
    const uint64_t height = r.ue();
    const CropWindow window = readCropWindow(r);
    if (r.failed() || width == 0 || height == 0 || width > kMaxSide || height > kMaxSide) return std::nullopt;

    // The window is counted in chroma samples.
    const uint64_t unitX = chromaFormat == 1 || chromaFormat == 2 ? 2 : 1;
    const uint64_t unitY = chromaFormat == 1 ? 2 : 1;
    return croppedSize(width, height, window, unitX, unitY);
}

std::optional<PictureSize> hevcConfigPictureSize(const uint8_t* record, size_t size) {
    // 22 bytes of profile, level and stream fields, then the arrays of
    // parameter sets, each a type byte and a count of length-prefixed units.
    constexpr size_t kArrays = 22;
    if (size <= kArrays) return std::nullopt;
    const unsigned arrays = record[kArrays];
    size_t at = kArrays + 1;
    for (unsigned a = 0; a < arrays; ++a) {
        if (size - at < 3) return std::nullopt;
        const unsigned units = unsigned(record[at + 1]) << 8 | record[at + 2];
        at += 3;
        for (unsigned u = 0; u < units; ++u) {
            if (size - at < 2) return std::nullopt;
            const size_t length = size_t(record[at]) << 8 | record[at + 1];
            at += 2;
            if (length > size - at) return std::nullopt;
            if (length >= 1 && ((record[at] >> 1) & 0x3F) == kSpsType) return hevcPictureSize(record + at, length);
            at += length;
        }
    }
    return std::nullopt;
}

}  // namespace H264
