#pragma once

// Gives the camera-metadata code the video pipeline's answers: the probe's
// frame rate and size, and the maker thumbnail.
#include <string>

#include "meta/media_services.h"

void installVideoServices();

// The frame rate and decoded picture size of the movie's first video track.
bool describeMovie(const std::wstring& movie, MovieDescription& out);
