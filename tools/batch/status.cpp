#include "tools/batch/status.h"

namespace batch {

namespace {
constexpr const char* kNames[] = {"ok", "refused", "failed", "interrupted", "skipped"};
}

const char* statusName(Status status) { return kNames[static_cast<int>(status)]; }

bool statusFromName(const std::string& name, Status& status) {
    for (int i = 0; i < 5; ++i) {
        if (name == kNames[i]) {
            status = static_cast<Status>(i);
            return true;
        }
    }
    return false;
}

}  // namespace batch
