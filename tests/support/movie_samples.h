#pragma once

// Reads every sample of every ordinary track back through the movie's own
// tables (stsc, stsz, stco/co64), so a test can tell whether an edit kept
// the chunk offsets pointing at the right bytes.
#include <filesystem>
#include <string>
#include <vector>

namespace testsupport {

// The samples of every track in file order, tracks in the order of the
// moov: track 0's samples, then track 1's, ...; a sample that lies outside
// the file comes back as "<outside>".
std::vector<std::string> allSamples(const std::filesystem::path& movie);

// The chunk offsets of every ordinary track, tracks in order.
std::vector<std::vector<uint64_t>> chunkOffsets(const std::filesystem::path& movie);

}  // namespace testsupport
