#pragma once

// Programs run in the background, so that a test can stop, signal or kill
// them at a moment of its choosing; and the big movies such runs take long
// enough over.
#include <sys/types.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace e2e {

class SpawnedRun {
public:
    // Starts program with the arguments, no standard input, and standard
    // output and error both into one pipe.
    SpawnedRun(const std::string& program, const std::vector<std::string>& arguments);
    // Kills and reaps a run that was not waited for.
    ~SpawnedRun();
    SpawnedRun(const SpawnedRun&) = delete;
    SpawnedRun& operator=(const SpawnedRun&) = delete;

    pid_t pid() const { return pid_; }
    bool started() const { return pid_ > 0; }
    void signal(int number) const;
    // Stops it (SIGSTOP) and returns once it has stopped; false when it
    // had ended first.
    bool stop();
    // Reads everything it prints and waits for it to end.
    void wait();
    // Whether it has ended (reaped, so that wait() only collects the output).
    bool ended();

    bool exited() const;        // ended by exiting, with exitStatus()
    int exitStatus() const;
    int endingSignal() const;   // 0 unless a signal ended it
    const std::string& output() const { return output_; }

private:
    pid_t pid_ = -1;
    int pipe_ = -1;
    int status_ = 0;
    bool reaped_ = false;
    std::string output_;
};

// A movie of about mib MiB, its movie box last, made by looping (stream
// copy) a four-second lossless clip with AAC audio.
void makeBigMovie(const std::filesystem::path& out, int mib, const std::string& size = "1440x720");

// The names of a folder's entries.
std::set<std::string> entriesOf(const std::filesystem::path& dir);
// Whether two files hold the same bytes.
bool sameBytes(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace e2e
