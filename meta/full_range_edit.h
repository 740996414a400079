#pragma once

// Declaring the colour range (and constraint_set1) in the SPS of the movie's
// H.264 configuration box, as an edit of the container.
#include <optional>
#include <vector>

#include "foundation/failure.h"
#include "mp4/box_edits.h"

namespace MP4 {
class Container;
}

namespace meta {

// Prints the flags the movie declared and the ones it gets, and adds the
// edit that declares them to edits. None is added when the SPS already says
// so or there is no readable avc1 configuration; false when the box cannot
// be replaced.
bool rangeEdit(MP4::Container& movie, bool fullRange, std::vector<MP4::BoxEdit>& edits);

// The range the movie's SPS declares once rangeEdit's edit is written:
// fullRange when rangeEdit makes one, none when it leaves the movie as it
// is (another codec, an unreadable record, nothing to change). Prints
// nothing.
std::optional<bool> declaredRange(MP4::Container& movie, bool fullRange);

// rangeEdit written at once (or, in a batch, recorded for its copy).
QVMX::Status declareRange(MP4::Container& movie, bool fullRange);

}  // namespace meta
