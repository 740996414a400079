#pragma once

// The entry point of the tavrel-media plugin: 1 with the movie's frame rate
// and decoded picture size, 0 when the movie cannot be described.
extern "C" {
using DescribeMovieFn = int (*)(const char* path, float* frameRate, int* width, int* height);
}
inline constexpr const char* kDescribeMovieSymbol = "tavrel_describe_movie";

// Loads the plugin from beside the running program and installs its
// description into the media services; false (nothing installed) when the
// plugin is missing or unusable.
bool loadMediaPlugin();
