#pragma once

#include "mp4/box.h"

namespace MP4 {

class Container;

// The first box at path (starting "uuid.") whose parent is the spatial-data
// uuid box; KADT and KATR are only looked at when they are at least 9 bytes.
BOX* firstSpatialChild(Container& container, const char* path);

}  // namespace MP4
