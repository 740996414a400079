#include "geo/view_heading.h"

#include <cstdio>
#include <cstring>
#include <type_traits>

#include "geo/c_locale.h"
#include "geo/saturate.h"

namespace {

constexpr char kStitchingTag[] = "GSpherical:StitchingSoftware";
constexpr size_t kStitchingTagLength = sizeof kStitchingTag - 1;
constexpr char kTimestampKey[] = "  <GSpherical:Timestamp>";

// Scans one value of format from text; true when it was read.
template <typename T>
bool scanOne(const char* text, const char* format, T& value) {
    const geo::CLocaleScope c;
    return std::sscanf(text, format, &value) == 1;
}

template <typename... Args>
void appendFormatted(std::string& out, size_t bufferSize, const char* format, Args... args) {
    char buffer[256];
    if (bufferSize > sizeof buffer) bufferSize = sizeof buffer;
    const geo::CLocaleScope c;
    std::snprintf(buffer, bufferSize, format, args...);
    out += buffer;
}

// The name between "<GSpherical:StitchingSoftware>" and its closing tag;
// empty when the closing tag is missing.
std::string stitchingSoftwareOf(const std::string& xml) {
    const size_t open = xml.find(kStitchingTag);
    if (open == std::string::npos) return {};
    const size_t begin = open + kStitchingTagLength + 1;  // past the tag name and ">"
    const size_t close = xml.find(kStitchingTag, open + kStitchingTagLength);
    if (close == std::string::npos || close < 2) return {};
    const size_t end = close - 2;  // before "</"
    if (begin > end) return {};
    return xml.substr(begin, end - begin);
}

}  // namespace

template <typename T>
float readValue(const std::string& xml, const char* format) {
    const char* percent = std::strchr(format, '%');
    const std::string key(format, percent != nullptr ? percent - format : std::strlen(format));
    const size_t at = xml.find(key);
    if (at == std::string::npos) return NAN;
    T value{};
    if (!scanOne(xml.c_str() + at, format, value)) return NAN;
    return static_cast<float>(value);
}

template <typename T>
void writeValue(std::string& out, const char* format, float value) {
    if (std::isnan(value)) return;
    if constexpr (std::is_same_v<T, int>) {
        appendFormatted(out, 128, format, geo::truncateSaturated<int>(value));
    } else {
        appendFormatted(out, 128, format, static_cast<double>(value));
    }
}

template float readValue<int>(const std::string&, const char*);
template float readValue<float>(const std::string&, const char*);
template void writeValue<int>(std::string&, const char*, float);
template void writeValue<float>(std::string&, const char*, float);

void ViewHeading::attach(const std::string& xml) {
    stitchingSoftware = stitchingSoftwareOf(xml);
    heading = readValue<int>(xml, kHeadingFormat);
    pitch = readValue<int>(xml, kPitchFormat);
    horizontalFOV = readValue<int>(xml, kHorizontalFOVFormat);
    cameraDolly = readValue<float>(xml, kCameraDollyFormat);

    timestamp = 0;
    const size_t at = xml.find(kTimestampKey);
    unsigned long value = 0;
    if (at != std::string::npos && scanOne(xml.c_str() + at, kTimestampFormat, value)) {
        timestamp = value;
    }
}

void ViewHeading::attach(const ViewHeading& other) {
    if (!std::isnan(other.heading)) heading = other.heading;
    if (!std::isnan(other.pitch)) pitch = other.pitch;
    if (!std::isnan(other.horizontalFOV)) horizontalFOV = other.horizontalFOV;
    if (!std::isnan(other.cameraDolly)) cameraDolly = other.cameraDolly;
    if (other.timestamp != 0) timestamp = other.timestamp;
    if (!other.stitchingSoftware.empty()) stitchingSoftware = other.stitchingSoftware;
}

std::string ViewHeading::toString() const {
    std::string out =
        "<rdf:SphericalVideo xmlns:GSpherical='http://ns.google.com/videos/1.0/spherical/'\n"
        "  xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
        "  <GSpherical:Spherical>true</GSpherical:Spherical>\n"
        "  <GSpherical:Stitched>true</GSpherical:Stitched>\n"
        "  <GSpherical:ProjectionType>equirectangular</GSpherical:ProjectionType>\n";
    if (!stitchingSoftware.empty()) {
        appendFormatted(out, 256,
                        "  <GSpherical:StitchingSoftware>%s</GSpherical:StitchingSoftware>\n"
                        "  <GSpherical:SourceCount>1</GSpherical:SourceCount>\n",
                        stitchingSoftware.c_str());
    }
    if (timestamp != 0) {
        appendFormatted(out, 128, kTimestampFormat, static_cast<unsigned long>(timestamp));
    }
    writeValue<int>(out, kHeadingFormat, heading);
    writeValue<int>(out, kPitchFormat, pitch);
    writeValue<int>(out, kHorizontalFOVFormat, horizontalFOV);
    writeValue<float>(out, kCameraDollyFormat, cameraDolly);
    out += "</rdf:SphericalVideo>";
    return out;
}
