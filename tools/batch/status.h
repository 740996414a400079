#pragma once

#include <string>

namespace batch {

// What became of one movie. Refused: tavrel (or the batch, before running it)
// declined and wrote nothing, saying why. Failed: the run did not end
// normally (it crashed, hung, could not start) or an input could not be read.
enum class Status { Ok, Refused, Failed, Interrupted, Skipped };

const char* statusName(Status status);
// False for a name that is none of them.
bool statusFromName(const std::string& name, Status& status);

}  // namespace batch
