#pragma once

// Placeholders in the tool's options, filled in for each movie, so that one
// option such as -thumb:{dir}/{stem}.jpg names a picture per movie.
//   {name}  the source's file name          clip.MP4
//   {stem}  the same without its extension  clip
//   {dir}   the output movie's folder       out/card/DCIM
//   {rel}   the output's path inside the output folder, without extension
//                                           card/DCIM/clip
//   {{ }}   a brace
#include <string>
#include <vector>

namespace batch {

struct PatternValues {
    std::string name, stem, dir, rel;
};

// Why arg is no usable pattern (an unknown placeholder, a lone brace); empty
// when it is.
std::string patternProblem(const std::string& arg);

// arg with its placeholders replaced (arg must have no pattern problem).
std::string expandPattern(const std::string& arg, const PatternValues& values);

// The tool's command line for one movie: options, source, output.
std::vector<std::string> toolCommandLine(const std::string& tool, const std::vector<std::string>& options,
                                         const PatternValues& values, const std::string& source,
                                         const std::string& output);

}  // namespace batch
