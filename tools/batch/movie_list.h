#pragma once

// The movies a batch works on: each input file, and every .mp4/.mov file
// (any case) under each input folder; where each one's output goes; and the
// movies that cannot be run at all, with why.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/batch/status.h"

namespace batch {

struct Movie {
    std::string input;     // the input as given
    std::string source;    // absolute
    std::string relative;  // inside its input folder; a single file's name
    std::string output;    // absolute
    uint64_t size = 0;
    int64_t mtimeNs = 0;
    // Set when the movie is not to be run: its result and message.
    std::optional<Status> verdict;
    std::string message;
};

// Whether the name ends in .mp4 or .mov, in any case.
bool isMovieName(const std::string& name);

// Where a movie lands: DIR/<the folder's name>/<relative> for one found in an
// input folder, DIR/<its name> for an input file. Paths are absolute.
std::string outputPathFor(const std::string& outputFolder, const std::string& inputFolder,
                          const std::string& relative);
std::string outputPathFor(const std::string& outputFolder, const std::string& inputFile);

// Every input's movies in the order given (a folder's sorted by path), the
// output folder never searched. Inputs that cannot be read, the same movie
// named twice, and movies whose output another one already has get their
// verdict here.
std::vector<Movie> listMovies(const std::vector<std::string>& inputs, const std::string& outputFolder);

}  // namespace batch
