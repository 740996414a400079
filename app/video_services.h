#pragma once

// Gives the camera-metadata code the video pipeline's answers: the probe's
// frame rate and size, and the maker thumbnail.
void installVideoServices();
