#pragma once

// Turns every stco table of a movie into a co64 table holding the same
// offsets (moved by however much the tables grew, when they lie in front of
// the media data), so real encoded movies can be tried with both widths.
// Written on plain bytes, independent of the code under test.
#include <string>

namespace testsupport {

std::string withCo64(const std::string& movie);

}  // namespace testsupport
