#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "foundation/byte_array.h"

// The first frame of a movie as a JPEG, either as a full-size file or as
// bytes that must fit a given length.
class Thumbnailer {
public:
    explicit Thumbnailer(const std::wstring& path) : moviePath(path) {}

    // The first frame at the movie's size as a JPEG file.
    bool saveFrame(const std::wstring& jpegPath);
    // The first frame scaled to fit width x width/2, encoded at falling
    // quality until, stripped of its application segments, it is at most
    // targetSize bytes. out keeps the last attempt when none fits.
    bool saveFrame(ByteArray& out, int width, size_t targetSize);

    // Drops the application segments (APP0 to APP15) that directly follow
    // the start-of-image marker; answers the new length.
    static size_t removeAPPX(ByteArray& jpeg);

    std::wstring moviePath;
    // When set, the colour range the movie is to declare once written (a
    // re-encode's scratch file before its metadata step): the buffer form
    // reads the picture in it.
    std::optional<bool> fullRange;
};
