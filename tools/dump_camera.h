#pragma once

namespace MP4 {
class Container;
}

// Prints the camera's own boxes of a parsed movie: the maker record of every
// "moov.udta.KMKN" box, and the record count and byte order of every sensor
// box "KDTB", "KDTC", "KDTD".
void dumpCameraMeta(MP4::Container& container);
