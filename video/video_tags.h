#pragma once

#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

// Gives the encoded video what the source's video carried beside its
// pictures: the sphere mapping and stereo layout, and the start timecode
// (from which the muxer writes its own timecode track). True when a mapping
// was carried: the muxer writes it only when unofficial boxes are allowed.
bool carryVideoTags(const AVStream* source, AVStream* output, const std::string& timecode);

}  // namespace QVMX
