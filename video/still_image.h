#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "video/frame_size.h"

namespace QVMX {

// A decoded picture as 8-bit RGB, rows packed.
struct StillImage {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgb;  // width x height x 3
};

}  // namespace QVMX

// The movie's picture at time zero, scaled down (keeping its aspect ratio)
// to fit maximumSize; 0 x 0 means no limit. nullptr when there is none.
// fullRange, when set: the colour range the movie is to declare once
// written, which its picture is read in.
std::unique_ptr<QVMX::StillImage> buildFrame(const std::wstring& moviePath, QVMX::FrameSize maximumSize,
                                             std::optional<bool> fullRange = std::nullopt);
