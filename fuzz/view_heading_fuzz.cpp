// Reads arbitrary text as spherical-video XML, overlays it on a record and
// writes the XML again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "geo/view_heading.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string xml(reinterpret_cast<const char*>(data), size);
    ViewHeading view;
    view.attach(xml);
    const std::string written = view.toString();
    if (written.rfind("<rdf:SphericalVideo", 0) != 0) std::abort();

    ViewHeading base;
    base.heading = 90;
    base.timestamp = 1;
    base.attach(view);
    ViewHeading again;
    again.attach(base.toString());

    std::string out;
    writeValue<int>(out, ViewHeading::kHeadingFormat, readValue<int>(xml, ViewHeading::kHeadingFormat));
    writeValue<float>(out, ViewHeading::kCameraDollyFormat,
                      readValue<float>(xml, ViewHeading::kCameraDollyFormat));
    return 0;
}
