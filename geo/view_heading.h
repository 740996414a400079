#pragma once

#include <cmath>
#include <cstdint>
#include <string>

// The spherical-video properties carried from a source's Spherical Video V1
// XML into the output, which the user may override: initial view heading,
// pitch, horizontal field of view (degrees), camera dolly, stitching software
// and a time stamp. Absent values: NaN, empty name, time stamp 0.
class ViewHeading {
public:
    // Element formats, shared by reading and writing. The search key is the
    // text before the "%", so the two leading spaces are part of it.
    static constexpr const char* kHeadingFormat =
        "  <GSpherical:InitialViewHeadingDegrees>%d</GSpherical:InitialViewHeadingDegrees>\n";
    static constexpr const char* kPitchFormat =
        "  <GSpherical:InitialViewPitchDegrees>%d</GSpherical:InitialViewPitchDegrees>\n";
    static constexpr const char* kHorizontalFOVFormat =
        "  <GSpherical:InitialHorizontalFOVDegrees>%d</GSpherical:InitialHorizontalFOVDegrees>\n";
    static constexpr const char* kCameraDollyFormat =
        "  <GSpherical:InitialCameraDolly>%f</GSpherical:InitialCameraDolly>\n";
    static constexpr const char* kTimestampFormat =
        "  <GSpherical:Timestamp>%lu</GSpherical:Timestamp>\n";

    // Replaces the record by what the XML holds.
    void attach(const std::string& xml);
    // Lays the present values of other over this record.
    void attach(const ViewHeading& other);
    // The complete XML text for the output.
    std::string toString() const;

    std::string stitchingSoftware;
    float heading = NAN;
    float pitch = NAN;
    float horizontalFOV = NAN;
    float cameraDolly = NAN;
    uint64_t timestamp = 0;
};

// Finds the element of format in xml and scans its value as T (int or
// float); NaN when the element is missing or holds no number.
template <typename T>
float readValue(const std::string& xml, const char* format);

// Appends the element of format holding value (as T: an int is truncated
// toward zero); nothing when value is NaN.
template <typename T>
void writeValue(std::string& out, const char* format, float value);
