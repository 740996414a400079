#include "meta/sphere_xml_pixels.h"

#include <cmath>
#include <cstdlib>

namespace {

struct PixelField {
    const char* name;
    bool across;
};

constexpr PixelField kFields[] = {
    {"CroppedAreaImageWidthPixels", true}, {"CroppedAreaImageHeightPixels", false},
    {"FullPanoWidthPixels", true},         {"FullPanoHeightPixels", false},
    {"CroppedAreaLeftPixels", true},       {"CroppedAreaTopPixels", false},
};

// Scales the number inside every <prefix:name>...</prefix:name> element.
void scaleField(std::string& xml, const std::string& name, double factor) {
    size_t at = 0;
    while ((at = xml.find(name + ">", at)) != std::string::npos) {
        // An opening tag is "<prefix:name>": the character before the
        // prefix is '<', not "</".
        const size_t open = xml.rfind('<', at);
        const size_t valueStart = at + name.size() + 1;
        if (open == std::string::npos || xml.compare(open, 2, "</") == 0) {
            at = valueStart;
            continue;
        }
        const size_t valueEnd = xml.find('<', valueStart);
        if (valueEnd == std::string::npos) return;
        const std::string text = xml.substr(valueStart, valueEnd - valueStart);
        char* end = nullptr;
        const double value = std::strtod(text.c_str(), &end);
        if (end != text.c_str() && std::isfinite(value)) {
            const std::string scaled = std::to_string(std::llround(value * factor));
            xml.replace(valueStart, valueEnd - valueStart, scaled);
            at = valueStart + scaled.size();
        } else {
            at = valueEnd;
        }
    }
}

}  // namespace

std::string scaleSphereXmlPixels(const std::string& xml, double sx, double sy) {
    std::string out = xml;
    if (!(sx > 0) || !(sy > 0) || !std::isfinite(sx) || !std::isfinite(sy)) return out;
    for (const PixelField& field : kFields) scaleField(out, field.name, field.across ? sx : sy);
    return out;
}
