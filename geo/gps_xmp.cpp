// The XMP forms of a GPSInfo.
#include <cmath>
#include <cstdio>

#include "geo/c_locale.h"
#include "geo/gps_info.h"
#include "geo/saturate.h"

namespace {

constexpr size_t kGroupBuffer = 512;

template <typename... Args>
void appendFormatted(std::string& out, const char* format, Args... args) {
    char buffer[kGroupBuffer];
    std::snprintf(buffer, sizeof buffer, format, args...);
    out += buffer;
}

}  // namespace

std::string GPSInfo::to_XMP_part() const {
    const geo::CLocaleScope c;
    std::string out;
    // The longitude's own flag is not consulted: a position is written
    // whenever the latitude is known.
    if (latitude.valid) {
        appendFormatted(out,
                        "      <exif:GPSLatitude>%s%c</exif:GPSLatitude>\n"
                        "      <exif:GPSLongitude>%s%c</exif:GPSLongitude>\n",
                        latitude.toAbsBase60().c_str(), latitude.value < 0 ? 'S' : 'N',
                        longitude.toAbsBase60().c_str(), longitude.value < 0 ? 'W' : 'E');
    }
    if (altitude.valid) {
        appendFormatted(out,
                        "      <exif:GPSAltitude>%u/100</exif:GPSAltitude>\n"
                        "      <exif:GPSAltitudeRef>%c</exif:GPSAltitudeRef>\n",
                        geo::truncateSaturated<unsigned>(std::fabs(altitude.value) * 100),
                        altitude.value < 0 ? '1' : '0');
    }
    if (compass.valid) {
        appendFormatted(out,
                        "      <exif:GPSImgDirection>%d/10</exif:GPSImgDirection>\n"
                        "      <exif:GPSImgDirectionRef>T</exif:GPSImgDirectionRef>\n",
                        geo::truncateSaturated<int>(compass.value * 10 + 0.5));
    }
    return out;
}

std::string GPSInfo::to_XMP_string(const char* creatorTool, bool reEncoded) const {
    std::string out;
    appendFormatted(out,
                    "<?xpacket begin='\xEF\xBB\xBF' id='W5M0MpCehiHzreSzNTczkc9d'?>\n"
                    "<x:xmpmeta xmlns:x='adobe:ns:meta/'>\n"
                    "  <rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'>\n"
                    "    <rdf:Description rdf:about='' xmlns:exif='http://ns.adobe.com/exif/1.0/'>\n"
                    "      <x:CreatorTool>%s</x:CreatorTool>\n",
                    creatorTool != nullptr ? creatorTool : "");
    out += to_XMP_part();
    // "VideoReEncorded" is spelled so on purpose: readers of the camera's
    // files look for exactly this element.
    appendFormatted(out,
                    "    </rdf:Description>\n"
                    "  </rdf:RDF>\n"
                    "  <VideoReEncorded>%s</VideoReEncorded>\n"
                    "</x:xmpmeta>\n"
                    "<?xpacket end='w'?>\n",
                    reEncoded ? "true" : "false");
    return out;
}
