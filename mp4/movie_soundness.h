#pragma once

// Whether a rewrite that moves whole top-level boxes can keep every sample
// of a movie: every chunk of every track inside the file and inside one box
// other than the movie box, sample tables that agree on their counts, and
// fragments that find their samples relative to themselves.
#include <string>

#include "mp4/bin_file.h"
#include "mp4/container.h"

namespace MP4 {

// What is wrong with the movie, in a user's words and without the file's
// name ("track 2 points past the end of the file: the movie is truncated");
// empty when nothing is. The container holds the tree of file.
std::string soundnessProblem(Container& container, BinFile& file);

// Why the file at path cannot be a movie at all (missing, a folder); empty
// when it may be one.
std::string sourceFileProblem(const std::wstring& path);

// The same as soundnessProblem for a movie at path; a file that cannot be
// read says so.
std::string soundnessProblem(const std::wstring& path);

}  // namespace MP4
