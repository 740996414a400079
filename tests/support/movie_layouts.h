#pragma once

// The four shapes of the built movies that every movie edit is tried on:
// movie box first or last, 32- or 64-bit chunk offsets.
#include <string>

#include "tools/builders/box_builder.h"

namespace testsupport {

inline const builders::MovieShape kLayouts[] = {{.moovFirst = true},
                                                {.moovFirst = true, .use64 = true},
                                                {.moovFirst = false},
                                                {.moovFirst = false, .use64 = true}};

inline std::string layoutName(const builders::MovieShape& s) {
    return std::string(s.moovFirst ? "moov first" : "mdat first") + (s.use64 ? ", co64" : ", stco") +
           (s.withUdta ? "" : ", no udta");
}

}  // namespace testsupport
