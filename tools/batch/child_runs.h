#pragma once

// Runs the tool once per movie, each in a child process of its own, at most
// a given number at a time: a child that crashes or hangs costs only its own
// movie. A hung child gets SIGTERM at its deadline and SIGKILL a little later.
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace batch {

// How one child ended.
struct ChildOutcome {
    std::string startError;  // set when it could not be started
    pid_t pid = 0;
    bool exited = false;
    int exitCode = 0;
    int signal = 0;              // the signal that ended it, when it did not exit
    bool timedOut = false;       // it outlived its deadline
    bool interrupted = false;    // the batch was interrupted while it ran
    std::string output;          // the end of what it printed (both streams)
    double seconds = 0;
};

struct ChildJob {
    size_t index = 0;  // the caller's
    std::vector<std::string> argv;
};

struct RunSettings {
    unsigned jobs = 1;
    double timeoutSeconds = 0;  // 0: none
    double killAfterSeconds = 3;  // from SIGTERM to SIGKILL
    double tickSeconds = 0;       // calls onTick this often while waiting; 0: never
};

struct RunCallbacks {
    std::function<void(const ChildJob&)> started;
    std::function<void(const ChildJob&, const ChildOutcome&)> finished;
    std::function<void()> tick;
};

// Runs the jobs in order. SIGINT, SIGTERM or SIGHUP stop it: no new child
// starts, the running ones get SIGTERM (SIGKILL a little later, at once on a
// second signal) and are waited for. Returns false when it was interrupted;
// the jobs not started then have no outcome.
bool runChildren(const std::vector<ChildJob>& jobs, const RunSettings& settings, const RunCallbacks& callbacks);

}  // namespace batch
