#pragma once

// What tavrel-dump reads of a parsed movie beyond its box tree, gathered once
// and then printed as text or JSON. Texts are already in the form the dump
// shows them (bytes outside printable ASCII escaped or replaced).
#include <cstdint>
#include <string>
#include <vector>

#include "meta/exif_parser.h"
#include "meta/spherical_v2.h"

namespace MP4 {
class Container;
class AVCC;
}

struct LocationFact {
    std::wstring box;   // "@xyz" or "\u00A9xyz"
    std::wstring text;  // non-printable bytes as "?"
    bool hasLatitude = false, hasLongitude = false, hasAltitude = false;
    double latitude = 0, longitude = 0, altitude = 0;
};

// The view values of one track's spherical-video XML; NaN when absent.
struct ViewFact {
    float heading, pitch, horizontalFOV, cameraDolly;
    uint64_t timestamp = 0;
    std::wstring stitchingSoftware;
};

struct MakerFact {
    uint64_t start = 0, size = 0;
    std::wstring form;  // "maker-note", "tiff-big-endian", "tiff-little-endian"
    ExifParser::PANOX record;
    std::wstring model, software;  // the record's, escaped as \xNN
    std::string stopped;           // the message that ended the read, if any
};

struct SensorFact {
    std::wstring name;  // "KDTB", "KDTC", "KDTD"
    uint64_t start = 0, size = 0;
    bool hasHeader = false;
    uint32_t records = 0;  // the count the header claims
    uint64_t holds = 0;    // the records the payload really holds
    bool bigEndian = false;
    unsigned value = 0;
};

struct AvcCFact {
    uint64_t start = 0, size = 0;
    bool decoded = false;
    // Why not: "STEP failed: CAUSE".
    std::wstring failure;
    unsigned profileIdc = 0, levelIdc = 0;
    unsigned constraintSets[6] = {};
    unsigned long long widthMbs = 0, heightMbs = 0;
    unsigned frameMbsOnly = 0, vui = 0, videoSignalType = 0, videoFormat = 0, videoFullRange = 0;
};

std::vector<LocationFact> readLocations(MP4::Container& container);
std::vector<ViewFact> readViews(MP4::Container& container);
// The V2 boxes of the video sample entry; false when it has none.
bool readSphericalV2Boxes(MP4::Container& container, meta::SphericalV2& out);
// "equirectangular", "cubemap", "mesh", "unreadable", "none".
const char* projectionName(meta::V2Projection projection);
std::vector<MakerFact> readMakerRecords(MP4::Container& container);
std::vector<SensorFact> readSensors(MP4::Container& container);
std::vector<AvcCFact> readParameterSets(MP4::Container& container);
// One avcC box and its first SPS.
AvcCFact readAvcC(const MP4::AVCC& box);

// Maker-record text as the dump shows it: up to its first NUL, other bytes
// outside printable ASCII as \xNN.
std::wstring escapedText(const std::string& text);
