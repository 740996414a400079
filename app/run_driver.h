#pragma once

struct Option;

// The job of one run: optional re-encoding, the camera metadata written into
// the output, the optional thumbnail. False when a step failed (its line has
// been printed).
bool runJob(const Option& option);

// Whether source and output name one file (the same device and inode, so
// links and differently written paths count). A missing output is not the
// source.
bool namesSameFile(const Option& option);
