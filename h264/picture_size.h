#pragma once

// The size of the pictures a decoder puts out, read from the sequence
// parameter set alone: the coded size less the frame cropping (H.264) or the
// conformance window (HEVC). Cropping that would leave nothing is ignored,
// as decoders do.
#include <cstddef>
#include <cstdint>
#include <optional>

namespace H264 {

struct PictureSize {
    uint32_t width = 0;
    uint32_t height = 0;
};

// From one SPS NAL unit, header included and emulation-prevention bytes
// still in; nothing when it is not an SPS or ends before its cropping.
std::optional<PictureSize> avcPictureSize(const uint8_t* nal, size_t size);
std::optional<PictureSize> hevcPictureSize(const uint8_t* nal, size_t size);

// From the first SPS of a decoder configuration record: the payload of an
// avcC or hvcC box.
std::optional<PictureSize> avcConfigPictureSize(const uint8_t* record, size_t size);
std::optional<PictureSize> hevcConfigPictureSize(const uint8_t* record, size_t size);

}  // namespace H264
