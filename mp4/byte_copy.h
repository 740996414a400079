#pragma once

#include <cstdint>

#include "foundation/file_io.h"

namespace MP4 {

// Copies size bytes from from's position to to's position and moves both
// positions past what was copied; returns how many bytes arrived, in large
// steps so that a gigabyte costs a few hundred system calls. A short result
// means the source ended or a write failed (full disk, file size limit); a
// read or write error is left in the file's error().
// Where the file system shares blocks between files and the two offsets lie
// alike within a block, the whole blocks are shared rather than copied.
uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size);

}  // namespace MP4
