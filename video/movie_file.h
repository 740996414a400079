#pragma once

#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

// Opens a movie file and reads its stream information; nullptr with the
// reason in error.
ff::InputPtr openMovie(const std::string& path, std::string& error);

// The same, for a look at the first frame and the declared rates: the
// stream information is read only when the container's headers leave a
// stream without its codec, picture size, frame rate or sample rate. Reading
// it decodes frames, which costs more than the one frame wanted.
ff::InputPtr openMovieHeaders(const std::string& path, std::string& error);

// Index of the first stream of the type (cover pictures are not video), or -1.
int firstStreamOf(const AVFormatContext* format, AVMediaType type);

// The longest stream's duration, else the container's; invalid when neither
// is known.
MediaTime movieDuration(const AVFormatContext* format);

// Average frame rate, else the base rate; 0 when neither is known.
float nominalFrameRate(const AVStream* stream);

// The stream's first picture in presentation order; nullptr when none can be
// decoded. Reads the movie from where it stands.
ff::FramePtr decodeFirstFrame(AVFormatContext* format, int streamIndex);

}  // namespace QVMX
