#pragma once

#include <cstdint>

#include "foundation/file_io.h"

namespace MP4 {

// Copies size bytes from from's position to to's position and moves both
// positions past what was copied; returns how many bytes arrived. The kernel
// copies file to file where it can (no trip through user memory); elsewhere
// large buffers keep the number of system calls low. A short result means
// the source ended or a write failed (full disk, file size limit).
uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size);

}  // namespace MP4
