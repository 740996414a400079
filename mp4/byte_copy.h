#pragma once

#include <cstdint>

#include "foundation/file_io.h"

namespace MP4 {

// Copies size bytes from from's position to to's position and moves both
// positions past what was copied; returns how many bytes arrived, in large
// steps so that a gigabyte costs a few hundred system calls. A short result
// means the source ended or a write failed (full disk, file size limit).
uint64_t copyBytes(QVMX::FileIO& from, QVMX::FileIO& to, uint64_t size);

}  // namespace MP4
