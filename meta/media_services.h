#pragma once

// What the camera-metadata code asks of the video pipeline, which is built
// above it (and not at all in the core build). The program installs the
// pipeline's answers at start; without them the probe knows only the sizes
// that movies declare, and no thumbnail can be made.
#include <cstddef>
#include <functional>
#include <optional>
#include <string>

#include "foundation/byte_array.h"

// The width of the maker thumbnail put into the newest cameras' user data.
inline constexpr int kMakerThumbnailWidth = 640;

struct MovieDescription {
    float frameRate = 0.0f;
    int width = 0;
    int height = 0;
};

// A maker thumbnail made beside the writing of the output. fill is called
// when the copy reaches its box: it waits for the JPEG and gives it (true),
// or says that none was made (false: the box becomes free space).
struct DeferredThumbnail {
    std::function<bool(ByteArray& jpeg)> fill;
};

struct MediaServices {
    // Frame rate and picture size of the movie's first video track.
    std::function<bool(const std::wstring& movie, MovieDescription& out)> describe;
    // The movie's first frame as JPEG bytes of at most target bytes, scaled
    // to width x width/2.
    std::function<bool(const std::wstring& movie, ByteArray& out, int width, size_t target)> thumbnail;
    // Set when that thumbnail is being made beside the writing of the
    // output, and then how it reaches its box (DeferredThumbnail).
    std::function<std::optional<DeferredThumbnail>(const std::wstring& movie, int width, size_t target)>
        deferThumbnail;
};

// The process's services; empty until installed.
MediaServices& mediaServices();
