#pragma once

#include <string>

namespace QVMX {

// The timecode seconds later at the frame rate ("11:12:47:22" two seconds
// on at 30 fps is "11:12:49:22"); the text as it was when it cannot be read.
std::string advanceTimecode(const std::string& timecode, double frameRate, double seconds);

}  // namespace QVMX
