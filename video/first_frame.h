#pragma once

#include <string>

#include "video/ffmpeg.h"

namespace QVMX {

// The first picture of the movie's first video stream, decoded from format
// (opened from path); nullptr when none decodes. The last picture decoded is
// kept for the next asker of the same unchanged file (same device, inode,
// size and modification time): the probe decodes it for the size and the
// maker thumbnail needs it again, and at a camera's 5.7K one decode costs
// about 30 ms. The answer shares its pixels with the kept one: read only.
ff::FramePtr firstVideoFrame(const std::string& path, AVFormatContext* format, int streamIndex);

// The kept picture when it is path's and the file is unchanged, without
// opening the movie; nullptr otherwise.
ff::FramePtr keptFirstVideoFrame(const std::string& path);

// Lets the kept picture go, for a run about to need the memory.
void forgetFirstVideoFrame();

}  // namespace QVMX
