#pragma once

#include "meta/exif_parser.h"

namespace MP4 {
class Container;
}

// Prints the camera's own boxes of a parsed movie: the maker record of every
// "moov.udta.KMKN" box, and the record count and byte order of every sensor
// box "KDTB", "KDTC", "KDTD".
void dumpCameraMeta(MP4::Container& container);

// The fields of a maker record, each line after prefix; form names the
// block's layout.
void dumpPanoxRecord(const wchar_t* prefix, const wchar_t* form, const ExifParser::PANOX& record);
