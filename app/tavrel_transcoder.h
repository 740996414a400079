#pragma once

#include <string>

struct Option;

// What a re-encode came to: the frames handed to the writer, or why none
// were (a cause in the user's words, without the file's name).
struct TrimResult {
    unsigned int frames = 0;
    std::wstring problem;
};

// Re-encodes the source into the output as the options ask.
class TavrelTranscoder {
public:
    // A source that cannot be re-encoded is refused before anything is
    // written; a failure later leaves the output for the caller to remove.
    // The movie goes to writeTo (the run's temporary file); the lines
    // printed name option.output.
    static TrimResult trim(const Option& option, const std::wstring& writeTo);
};
