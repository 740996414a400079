// The video pipeline's description of a movie, as a plugin that tavrel-dump
// loads only when a summary asks for it: the dump itself then starts without
// the media libraries, whose loading costs more than parsing a movie.
#include <string>
#include <type_traits>

#include "app/video_services.h"
#include "foundation/wchar.h"
#include "tools/media_plugin.h"

extern "C" __attribute__((visibility("default"))) int tavrel_describe_movie(const char* path, float* frameRate,
                                                                           int* width, int* height) {
    if (path == nullptr || frameRate == nullptr || width == nullptr || height == nullptr) return 0;
    MovieDescription description;
    if (!describeMovie(QVMX::wchar::mbs2wcs(path), description)) return 0;
    *frameRate = description.frameRate;
    *width = description.width;
    *height = description.height;
    return 1;
}

// The loader calls it through this type.
static_assert(std::is_same_v<decltype(&tavrel_describe_movie), DescribeMovieFn>);
