#pragma once

#include <string>

#include "foundation/byte_array.h"
#include "video/still_image.h"

namespace QVMX {

// Baseline JPEG with 4:2:0 chroma at a quality of 1 to 100; false when the
// encoder refuses.
bool encodeJpeg(const StillImage& image, int quality, ByteArray& out);

// The image as a JPEG file at the quality files get by default (90); false
// when the file cannot be created or fully written.
bool writeJpegFile(const StillImage& image, const std::string& path);

}  // namespace QVMX
