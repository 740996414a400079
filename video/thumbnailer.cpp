#include "video/thumbnailer.h"

#include <cmath>
#include <cstring>

#include "foundation/wchar.h"
#include "video/jpeg_encoder.h"
#include "video/platform_log.h"
#include "video/still_image.h"

namespace {
// How the buffer form names itself in its two messages.
constexpr const char* kSaveFrameName = "bool Thumbnailer::saveFrame(ByteArray &, int, size_t)";
}  // namespace

bool Thumbnailer::saveFrame(const std::wstring& jpegPath) {
    std::unique_ptr<QVMX::StillImage> image = buildFrame(moviePath, QVMX::FrameSize{0.0, 0.0});
    if (!image) return false;
    return QVMX::writeJpegFile(*image, QVMX::wchar::wcs2mbs(jpegPath).c_str());
}

bool Thumbnailer::saveFrame(ByteArray& out, int width, size_t targetSize) {
    const QVMX::FrameSize box{static_cast<double>(width), static_cast<double>(width / 2)};
    std::unique_ptr<QVMX::StillImage> image = buildFrame(moviePath, box, fullRange);
    if (!image) return false;

    // Single precision on purpose: 0.8 minus fourteen steps of 0.05 lands
    // just below 0.1, which ends the search after the attempt at 0.15.
    float factor = 0.8f;
    for (;;) {
        out.clear();
        QVMX::encodeJpeg(*image, static_cast<int>(std::lround(factor * 100.0f)), out);
        const size_t length = removeAPPX(out);
        if (length <= targetSize) {
            QVMX::PlatformLog::write("%s: targetSize:%lu->%lu", kSaveFrameName,
                                     static_cast<unsigned long>(targetSize), static_cast<unsigned long>(length));
            return true;
        }
        factor = factor - 0.05f;
        if (!(factor > 0.1f)) {
            QVMX::PlatformLog::write("%s failed - targetSize:%lu", kSaveFrameName,
                                     static_cast<unsigned long>(targetSize));
            return false;
        }
    }
}

size_t Thumbnailer::removeAPPX(ByteArray& jpeg) {
    if (jpeg.size <= 1) {
        jpeg.clear();
        return 0;
    }
    const uint8_t* d = jpeg.data;
    const uint64_t end = jpeg.size;
    if (d[0] != 0xFF || d[1] != 0xD8) return static_cast<size_t>(end);
    uint64_t pos = 2;
    while (end - pos >= 4 && d[pos] == 0xFF && d[pos + 1] >= 0xE0 && d[pos + 1] <= 0xEF) {
        const uint64_t segment = ((static_cast<uint64_t>(d[pos + 2]) << 8) | d[pos + 3]) + 2;
        if (segment > end - pos) break;
        pos += segment;
    }
    if (pos > 2) {
        ByteArray shorter;
        if (shorter.append(jpeg.data, 2) && shorter.append(jpeg.data + pos, end - pos)) {
            jpeg = std::move(shorter);
        } else {
            // No memory for a fitted copy: close the gap in place.
            std::memmove(jpeg.data + 2, jpeg.data + pos, static_cast<size_t>(end - pos));
            jpeg.size = end - (pos - 2);
        }
    }
    return static_cast<size_t>(jpeg.size);
}
