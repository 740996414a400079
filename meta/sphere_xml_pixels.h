#pragma once

// The pixel sizes a Spherical Video XML gives for its frame (the cropped
// area and the full panorama, in pixels), brought to a frame of another size.
#include <string>

// Every pixel field scaled by sx across and sy down, rounded to whole
// pixels; the rest of the text as it was.
std::string scaleSphereXmlPixels(const std::string& xml, double sx, double sy);
