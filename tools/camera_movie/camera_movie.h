#pragma once

// Turns an ordinary encoded movie into one laid out as the cameras write
// theirs: a user-data box with the model, the maker record, the location,
// the sensor streams, the maker thumbnail and the spatial-data locator; the
// spatial-data block after the movie box; an AXIS box; either box order.
// Used by the demo generator, the whole-program tests and the benchmarks.
#include <cstddef>
#include <cstdint>
#include <string>

namespace cameramovie {

struct Dressing {
    std::string model = "KORVA PANOX D";  // "@mod" text; none when empty
    bool makerRecord = true;                 // "KMKN"
    uint16_t projectionType = 1;             // the maker record's projection type
    std::string location = "+35.6586+139.7454+040.000/";  // "@xyz"; none when empty
    bool badLoci = false;                    // a 28-byte "loci" for the tool to drop
    size_t sensorRecords = 0;                // "KDTB", "KDTC", "KDTD"; none when 0
    size_t thumbnailBytes = 0;               // "KTHU" payload; none when 0
    double spatialSeconds = 0;               // "KDT9" and the spatial-data block; none when 0
    size_t axisRecords = 0;                  // an AXIS box at the end; none when 0
    bool moovFirst = false;                  // movie box before the media data
};

// The dressings of each camera generation: the older ones in either box
// order, the newest with its media data first.
Dressing olderCamera(const std::string& model, bool moovFirst);
Dressing newestCamera(size_t sensorRecords, double spatialSeconds);

// Writes movie, dressed, to out. False with a reason when a step fails.
bool dress(const std::string& movie, const std::string& out, const Dressing& dressing, std::string& error);

}  // namespace cameramovie
