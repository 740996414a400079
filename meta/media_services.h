#pragma once

// What the camera-metadata code asks of the video pipeline, which is built
// above it (and not at all in the core build). The program installs the
// pipeline's answers at start; without them the probe knows no picture size
// and no thumbnail can be made.
#include <cstddef>
#include <functional>
#include <string>

#include "foundation/byte_array.h"

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
};

// The process's services; empty until installed.
MediaServices& mediaServices();
