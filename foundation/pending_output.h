#pragma once

// A file that appears at its path whole or not at all. Everything is
// written into a hidden temporary file in the same folder
// (".NAME.tavrel-PID-XXXXXX"), which one rename puts in place at the end;
// a run that fails, is interrupted or dies leaves the path as it was.
#include <string>

namespace QVMX {

class PendingOutput {
public:
    // Makes the temporary file (exclusively; first removing such files
    // left by runs that no longer exist). On failure, cause says why in a
    // user's words and isOpen() is false.
    explicit PendingOutput(const std::string& path);
    ~PendingOutput();
    PendingOutput(const PendingOutput&) = delete;
    PendingOutput& operator=(const PendingOutput&) = delete;

    bool isOpen() const { return !temporary_.empty(); }
    const std::string& cause() const { return cause_; }
    const std::string& path() const { return path_; }
    // Where the run writes, under any name it likes as long as it starts
    // with this one (rewrites keep their own temporary files beside it).
    const std::string& temporaryPath() const { return temporary_; }
    // A second hidden file beside the temporary, for a step's intermediate
    // result: removed with the temporary on failure, on interruption and by
    // the next run; the step removes it itself when done.
    std::string scratchPath() const;

    // Gives the new file the permission bits of the file it replaces (or
    // 0666 less the umask) and renames it onto the path. A symbolic link at
    // the path is replaced, not followed.
    bool commit();
    // Removes the temporary files now.
    void discard();

    // The line printed when SIGINT, SIGTERM or SIGHUP ends the run, after
    // which every open pending output is removed and the process exits 1.
    static void installInterruptHandler();

private:
    std::string path_;
    std::string temporary_;
    std::string cause_;
    int slot_ = -1;
};

// Why nothing can be written at path: it is a folder, or its folder is
// missing or cannot be written to; empty when it can.
std::string outputPathProblem(const std::string& path);

// Why a file system has no room for bytes more at path's folder; empty when
// it has (or when it cannot tell).
std::string roomProblem(const std::string& path, unsigned long long bytes);

// The cause of the last failed write there, in a user's words, when the
// folder's file system is full or has less room than the needed bytes (a
// step that failed may have removed its own file by then); else empty.
std::string fullDiskCause(const std::string& path, unsigned long long needed = 0);

// The cause a failed run ends with: a full disk whatever step it stopped
// (full while the run's files are still there, or without the room the run
// needed once pending's are discarded, as a step may have removed its own
// file already), else cause. Discards pending.
std::string failureCause(const std::string& output, const std::string& cause, PendingOutput& pending,
                         unsigned long long needed);

}  // namespace QVMX
