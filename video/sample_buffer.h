#pragma once

#include <cstdint>
#include <vector>

#include "video/media_time.h"

namespace QVMX {

// Decoded audio: 16-bit signed linear PCM, channels interleaved.
struct SampleBuffer {
    std::vector<int16_t> samples;  // frameCount() x channels values
    int channels = 0;
    int sampleRate = 0;
    MediaTime presentationTime;

    size_t frameCount() const { return channels > 0 ? samples.size() / static_cast<size_t>(channels) : 0; }
};

// Passed in place of a sample when audio is held back because it is already
// further ahead of the video than allowed: the pointer value 1, never
// dereferenced.
inline const SampleBuffer* heldBackMarker() {
    return reinterpret_cast<const SampleBuffer*>(static_cast<uintptr_t>(1));
}
inline bool isHeldBackMarker(const SampleBuffer* sample) { return sample == heldBackMarker(); }

}  // namespace QVMX
