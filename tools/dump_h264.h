#pragma once

#include "mp4/container.h"

// For each avcC box: the essentials of its first SPS.
void dumpParameterSets(MP4::Container& container);
