#pragma once

// A video track's nominal frame rate from its sample tables alone, and from
// the runs of its movie fragments for a fragmented movie.
#include <cstddef>
#include <cstdint>
#include <vector>

#include "mp4/sample_table_boxes.h"

namespace MP4 {

// Samples and their summed durations, in the media's time scale.
struct SampleSpan {
    uint64_t duration = 0;
    uint64_t samples = 0;
};

// Adds the samples of the track's runs in one movie fragment (the payload
// of a moof box): each sample's own duration, else the fragment's default,
// else defaultDuration (the track's in its trex box). Damaged boxes add
// what they hold up to the damage.
void addFragmentSamples(const uint8_t* moof, size_t size, uint32_t trackId, uint32_t defaultDuration,
                        SampleSpan& span);

// The default sample duration of the track in the payload of an mvex box;
// 0 when it names none.
uint32_t trexDefaultDuration(const uint8_t* mvex, size_t size, uint32_t trackId);

// Samples a second over the whole time-to-sample table and the fragments'
// runs, in the media's time scale (a scale of 0, or one too large for a
// signed 32-bit field, counts as 1). A table whose samples last no time at
// all gives the one delta of a table of one entry (or of one entry and a
// lone last sample) instead; 0 when neither gives a rate.
float nominalFrameRate(uint32_t timeScale, const std::vector<STTS::Entry>& entries, const SampleSpan& fragments = {});

}  // namespace MP4
