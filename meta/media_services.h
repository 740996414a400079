#pragma once

// What the camera-metadata code asks of the video pipeline, which is built
// above it (and not at all in the core build). The program installs the
// pipeline's answers at start; without them the probe knows only the sizes
// that movies declare, and no thumbnail can be made.
#include <cstddef>
#include <functional>
#include <string>

#include "foundation/byte_array.h"

// The width of the maker thumbnail put into the newest cameras' user data.
inline constexpr int kMakerThumbnailWidth = 640;

struct MovieDescription {
    float frameRate = 0.0f;
    int width = 0;
    int height = 0;
};

struct MediaServices {
    // Frame rate and picture size of the movie's first video track.
    std::function<bool(const std::wstring& movie, MovieDescription& out)> describe;
    // The movie's first frame as JPEG bytes of at most target bytes, scaled
    // to width x width/2.
    std::function<bool(const std::wstring& movie, ByteArray& out, int width, size_t target)> thumbnail;
    // True when that thumbnail is being made beside the writing of the
    // output and will be put into its box afterwards: the box is then
    // written as it is before the JPEG goes in (zero-filled).
    std::function<bool(const std::wstring& movie, int width, size_t target)> deferThumbnail;
};

// The process's services; empty until installed.
MediaServices& mediaServices();
