// The picture size read from H.264 and HEVC parameter sets, on arbitrary
// bytes. The first byte chooses the reader: an avcC or hvcC record, or one
// SPS NAL unit of either codec; the rest is its input. Besides not crashing:
// a size given is a picture's, and a record gives what its SPS gives.
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "h264/picture_size.h"

namespace {

constexpr uint32_t kMaxSide = 1u << 16;

void check(const std::optional<H264::PictureSize>& size) {
    if (size && (size->width == 0 || size->height == 0 || size->width > kMaxSide || size->height > kMaxSide)) {
        std::abort();
    }
}

bool same(const std::optional<H264::PictureSize>& a, const std::optional<H264::PictureSize>& b) {
    return a.has_value() == b.has_value() && (!a || (a->width == b->width && a->height == b->height));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const uint8_t* input = data + 1;
    const size_t length = size - 1;
    switch (data[0] % 4) {
        case 0: {
            const auto fromRecord = H264::avcConfigPictureSize(input, length);
            check(fromRecord);
            // The first SPS, as the record frames it.
            if (length >= 8 && (input[5] & 0x1F) != 0) {
                const size_t n = size_t(input[6]) << 8 | input[7];
                if (n <= length - 8 && !same(fromRecord, H264::avcPictureSize(input + 8, n))) std::abort();
            }
            break;
        }
        case 1:
            check(H264::hevcConfigPictureSize(input, length));
            break;
        case 2:
            check(H264::avcPictureSize(input, length));
            break;
        default:
            check(H264::hevcPictureSize(input, length));
            break;
    }
    return 0;
}
