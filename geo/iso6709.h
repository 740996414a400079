#pragma once

#include <utility>

// Reads one signed decimal-degrees number of an ISO 6709 position ("+35.5",
// "-139.25") and moves the cursor past it. Only the degrees form with 2 or 3
// integer digits is valid; forms with minutes or seconds are not. The cursor
// never moves past the text's terminating zero.
std::pair<bool, double> from_iso6709(const char*& cursor);
