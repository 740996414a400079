#pragma once

// What independent programs (ffmpeg, ffprobe, exiftool, sha256sum) read
// from a movie, in forms the whole-program tests compare.
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace e2e {

using Fields = std::map<std::string, std::string>;

// "stream,hash" of every packet of every stream, in ffmpeg's order (the
// packet's bytes alone: side data such as the spherical mapping is not
// part of it).
std::vector<std::string> packetHashes(const std::filesystem::path& movie);

// ffprobe's stream fields (codec_name, profile, width, ...) of one stream,
// e.g. "v:0" or "a:0"; empty when there is no such stream.
Fields streamFields(const std::filesystem::path& movie, const std::string& stream);

// The container's duration in seconds, as ffprobe reports it.
double durationSeconds(const std::filesystem::path& movie);

// Indices of the key-frame packets of the first video stream, and the
// number of its packets.
std::vector<int> keyFrameIndices(const std::filesystem::path& movie, int& packets);

// The fields of the first sequence parameter set, by trace_headers.
Fields spsFields(const std::filesystem::path& movie);

// What decoding every stream prints at the error level: nothing for a
// clean movie.
std::string decodeErrors(const std::filesystem::path& movie);

// exiftool -n -s3 with the given tags: one value per line.
std::string exiftoolValues(const std::filesystem::path& file, const std::string& tags);

std::string sha256(const std::filesystem::path& file);

}  // namespace e2e
