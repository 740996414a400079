// camera-dress LAYOUT SECONDS MOVIE OUT
// Writes MOVIE (media data before the movie box) to OUT dressed as one camera
// layout, so that the benchmarks can start from any large encoded movie:
//   older-mdat-first "KORVA PANOX BC", media data first
//   older-moov-first "KORVA PANOX BC", movie box first
//   newest           "KORVA PANOX D", sensor boxes and a spatial-data block
// SECONDS is the movie's length: the sensor streams and the spatial data
// cover it as the camera's would.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tools/camera_movie/camera_movie.h"

namespace {

// The sensor builders space their records 33 ms apart.
constexpr double kSensorRecordsPerSecond = 30.0;

bool dressingFor(const std::string& layout, double seconds, cameramovie::Dressing& out) {
    if (layout == "older-mdat-first" || layout == "older-moov-first") {
        out = cameramovie::olderCamera("KORVA PANOX BC", layout == "older-moov-first");
    } else if (layout == "newest") {
        out = cameramovie::newestCamera(static_cast<size_t>(seconds * kSensorRecordsPerSecond), seconds);
    } else {
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        std::fprintf(stderr, "usage: camera-dress older-mdat-first|older-moov-first|newest SECONDS MOVIE OUT\n");
        return 2;
    }
    const double seconds = std::atof(argv[2]);
    cameramovie::Dressing dressing;
    if (!(seconds > 0) || !dressingFor(argv[1], seconds, dressing)) {
        std::fprintf(stderr, "camera-dress: unknown layout %s or bad length %s\n", argv[1], argv[2]);
        return 2;
    }
    std::string error;
    if (!cameramovie::dress(argv[3], argv[4], dressing, error)) {
        std::fprintf(stderr, "camera-dress: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
