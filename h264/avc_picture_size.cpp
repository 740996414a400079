// The output picture size of an H.264 sequence parameter set: macroblocks
// (or field pairs of them) less the frame cropping.
#include "h264/crop_window.h"
#include "h264/picture_size.h"
#include "h264/rbsp_reader.h"

namespace H264 {

namespace {

constexpr uint32_t kSpsType = 7;
// Larger pictures than this are no movie's: taken as a damaged set.
constexpr uint64_t kMaxSide = 1u << 16;

// The profiles whose SPS carries the chroma format, bit depths and scaling
// matrices.
bool hasChromaFields(uint32_t profile) {
    switch (profile) {
        case 44: case 83: case 86: case 100: case 110: case 118: case 122: case 128:
        case 134: case 135: case 138: case 139: case 244:
            return true;
        default:
            return false;
    }
}

void skipScalingList(RbspReader& r, int size) {
    int32_t last = 8;
    int32_t next = 8;
    for (int j = 0; j < size && !r.failed(); ++j) {
        if (next != 0) next = (last + r.se() % 256 + 512) % 256;
        last = next == 0 ? last : next;
    }
}

}  // namespace

std::optional<PictureSize> avcPictureSize(const uint8_t* nal, size_t size) {
    RbspReader r(nal, size);
    r.skip(3);  // forbidden_zero_bit, nal_ref_idc
    if (r.bits(5) != kSpsType) return std::nullopt;
    const uint32_t profile = r.bits(8);
    r.skip(16);  // constraint flags, level_idc
    r.ue();      // seq_parameter_set_id
    uint32_t chromaFormat = 1;
    bool separatePlanes = false;
    if (hasChromaFields(profile)) {
        chromaFormat = r.ue();
        if (chromaFormat > 3) return std::nullopt;
        if (chromaFormat == 3) separatePlanes = r.flag();
        r.ue();  // bit_depth_luma_minus8
        r.ue();  // bit_depth_chroma_minus8
        r.flag();  // qpprime_y_zero_transform_bypass_flag
        if (r.flag()) {
            for (int i = 0; i < (chromaFormat == 3 ? 12 : 8); ++i) {
                if (r.flag()) skipScalingList(r, i < 6 ? 16 : 64);
            }
        }
    }
    r.ue();  // log2_max_frame_num_minus4
    const uint32_t pocType = r.ue();
    if (pocType == 0) {
        r.ue();  // log2_max_pic_order_cnt_lsb_minus4
    } else if (pocType == 1) {
        r.flag();
        r.se();
        r.se();
        const uint32_t cycle = r.ue();
        if (cycle > 255) return std::nullopt;
        for (uint32_t i = 0; i < cycle && !r.failed(); ++i) r.se();
    }
    r.ue();    // max_num_ref_frames
    r.flag();  // gaps_in_frame_num_value_allowed_flag
    const uint64_t widthInMbs = uint64_t(r.ue()) + 1;
    const uint64_t heightInMapUnits = uint64_t(r.ue()) + 1;
    const bool frameMbsOnly = r.flag();
    if (!frameMbsOnly) r.flag();  // mb_adaptive_frame_field_flag
    r.flag();                     // direct_8x8_inference_flag
    const CropWindow window = readCropWindow(r);
    if (r.failed()) return std::nullopt;

    const uint64_t width = widthInMbs * 16;
    const uint64_t height = (frameMbsOnly ? 1 : 2) * heightInMapUnits * 16;
    if (width > kMaxSide || height > kMaxSide) return std::nullopt;
    // Crop units: whole chroma samples, and field lines twice over.
    const uint32_t arrayType = separatePlanes ? 0 : chromaFormat;
    const uint64_t unitX = arrayType == 1 || arrayType == 2 ? 2 : 1;
    const uint64_t unitY = (arrayType == 1 ? 2 : 1) * (frameMbsOnly ? 1 : 2);
    return croppedSize(width, height, window, unitX, unitY);
}

std::optional<PictureSize> avcConfigPictureSize(const uint8_t* record, size_t size) {
    // version, profile, compatibility, level, length size, then the SPS count.
    if (size < 6 || (record[5] & 0x1F) == 0) return std::nullopt;
    if (size < 8) return std::nullopt;
    const size_t length = size_t(record[6]) << 8 | record[7];
    if (length > size - 8) return std::nullopt;
    return avcPictureSize(record + 8, length);
}

}  // namespace H264
