#pragma once

namespace MP4 {
class Container;
}

// Prints, after the tree, what a movie says about where it was taken and
// how it should first be shown: the text of each location box with its
// decoded coordinates, and the view values of the spherical-video XML.
void dumpGeo(MP4::Container& container);
