#pragma once

struct Option;

// Re-encodes the source into the output as the options ask.
class TavrelTranscoder {
public:
    // The number of frames handed to the writer; 0 on failure.
    static unsigned int trim(const Option& option);
};
