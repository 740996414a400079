#pragma once

#include <string>

// Prints what the movie probe reads of a movie: the camera model and its
// code, the codec, the frame rate and size, and the maker record. False when
// the probe found no picture size.
bool dumpSummary(const std::wstring& path);
