#pragma once

namespace QVMX {

// A picture size in pixels, held as two doubles as the callers pass it.
struct FrameSize {
    double width = 0.0;
    double height = 0.0;
};

}  // namespace QVMX
