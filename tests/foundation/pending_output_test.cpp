#include "foundation/pending_output.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>

#include "support/test_files.h"

using QVMX::PendingOutput;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

namespace {

namespace fs = std::filesystem;

mode_t modeOf(const fs::path& path) {
    struct stat st {};
    EXPECT_EQ(::lstat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
}

std::set<std::string> namesIn(const fs::path& dir) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir)) names.insert(entry.path().filename().string());
    return names;
}

// Sets the umask for one scope.
class Umask {
public:
    explicit Umask(mode_t mask) : previous_(::umask(mask)) {}
    ~Umask() { ::umask(previous_); }

private:
    mode_t previous_;
};

// A process id that no longer names a process.
pid_t endedProcess() {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(0);
    int status = 0;
    ::waitpid(child, &status, 0);
    return child;
}

}  // namespace

TEST(PendingOutput, WritesBesideThePathUnderAHiddenNameUntilCommitted) {
    TempDir dir;
    const fs::path out = dir.file("out.mp4");
    PendingOutput pending(out.string());
    ASSERT_TRUE(pending.isOpen()) << pending.cause();
    const fs::path temporary = pending.temporaryPath();
    EXPECT_EQ(temporary.parent_path(), dir.path());
    const std::string prefix = ".out.mp4.tavrel-" + std::to_string(::getpid()) + "-";
    EXPECT_EQ(temporary.filename().string().rfind(prefix, 0), 0u) << temporary;
    // Only its owner can read it while it is being written.
    EXPECT_EQ(modeOf(temporary), 0600u);
    EXPECT_FALSE(fs::exists(out));

    writeFile(temporary, "result");
    ASSERT_TRUE(pending.commit()) << pending.cause();
    EXPECT_EQ(readFile(out), "result");
    EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"out.mp4"});
    EXPECT_FALSE(pending.isOpen());
}

TEST(PendingOutput, CommitKeepsTheReplacedFilesModeOrTakesTheUmasksForANewOne) {
    TempDir dir;
    const auto commitInto = [&](const fs::path& out) {
        PendingOutput pending(out.string());
        EXPECT_TRUE(pending.isOpen()) << pending.cause();
        writeFile(pending.temporaryPath(), "new");
        EXPECT_TRUE(pending.commit()) << pending.cause();
        EXPECT_EQ(readFile(out), "new");
        return modeOf(out);
    };
    {
        Umask mask(022);
        EXPECT_EQ(commitInto(dir.file("a.mp4")), 0644u);
    }
    {
        Umask mask(077);
        EXPECT_EQ(commitInto(dir.file("b.mp4")), 0600u);
        // A file already there keeps its bits, whatever the umask says.
        writeFile(dir.file("c.mp4"), "old");
        fs::permissions(dir.file("c.mp4"), static_cast<fs::perms>(0754));
        EXPECT_EQ(commitInto(dir.file("c.mp4")), 0754u);
        writeFile(dir.file("d.mp4"), "old");
        fs::permissions(dir.file("d.mp4"), static_cast<fs::perms>(0400));
        EXPECT_EQ(commitInto(dir.file("d.mp4")), 0400u);
    }
}

TEST(PendingOutput, ASymbolicLinkAtThePathIsReplacedAndItsTargetKept) {
    TempDir dir;
    writeFile(dir.file("real.mp4"), "target");
    fs::permissions(dir.file("real.mp4"), static_cast<fs::perms>(0700));
    fs::create_symlink("real.mp4", dir.file("out.mp4"));
    Umask mask(022);
    PendingOutput pending(dir.file("out.mp4").string());
    ASSERT_TRUE(pending.isOpen()) << pending.cause();
    writeFile(pending.temporaryPath(), "result");
    ASSERT_TRUE(pending.commit()) << pending.cause();
    EXPECT_FALSE(fs::is_symlink(dir.file("out.mp4")));
    EXPECT_EQ(readFile(dir.file("out.mp4")), "result");
    // The new file is not the link's target: its mode is a new file's.
    EXPECT_EQ(modeOf(dir.file("out.mp4")), 0644u);
    EXPECT_EQ(readFile(dir.file("real.mp4")), "target");
    EXPECT_EQ(modeOf(dir.file("real.mp4")), 0700u);
}

TEST(PendingOutput, ARunThatDoesNotCommitLeavesWhatStoodThereAndNoTemporary) {
    TempDir dir;
    const fs::path out = dir.file("out.mp4");
    writeFile(out, "before");
    {
        PendingOutput dropped(out.string());
        ASSERT_TRUE(dropped.isOpen());
        writeFile(dropped.temporaryPath(), "half");
        writeFile(dropped.temporaryPath() + ".tmp.mp4", "a rewrite of it");
    }
    PendingOutput discarded(out.string());
    ASSERT_TRUE(discarded.isOpen());
    writeFile(discarded.temporaryPath(), "half");
    discarded.discard();
    EXPECT_FALSE(discarded.isOpen());
    EXPECT_FALSE(discarded.commit());
    EXPECT_EQ(readFile(out), "before");
    EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"out.mp4"});

    // A rename that fails (a folder stands at the path) is reported and
    // leaves no temporary either.
    fs::create_directories(dir.file("folder/inside"));
    PendingOutput blocked(dir.file("folder").string());
    ASSERT_TRUE(blocked.isOpen());
    writeFile(blocked.temporaryPath(), "result");
    EXPECT_FALSE(blocked.commit());
    EXPECT_FALSE(blocked.cause().empty());
    EXPECT_TRUE(fs::is_directory(dir.file("folder/inside")));
    EXPECT_EQ(namesIn(dir.path()), (std::set<std::string>{"folder", "out.mp4"}));
}

TEST(PendingOutput, RemovesLeftoversOfEndedProcessesOnlyAndForItsOwnNameOnly) {
    TempDir dir;
    const std::string ended = std::to_string(endedProcess());
    const std::string leftovers[] = {
        ".out.mp4.tavrel-" + ended + "-a1b2c3",
        ".out.mp4.tavrel-" + ended + "-a1b2c3.tmp.mp4",
    };
    const std::set<std::string> kept = {
        ".out.mp4.tavrel-" + std::to_string(::getpid()) + "-d4e5f6",  // a live run's
        ".out.mp4.tavrel-1-g7h8i9",                                  // another live one's
        ".other.mp4.tavrel-" + ended + "-a1b2c3",                    // another output's
        ".out.mp4.tavrel-notapid",
        "out.mp4.tavrel-" + ended + "-a1b2c3",
    };
    for (const std::string& name : leftovers) writeFile(dir.file(name), "left");
    for (const std::string& name : kept) writeFile(dir.file(name), "kept");

    PendingOutput pending(dir.file("out.mp4").string());
    ASSERT_TRUE(pending.isOpen());
    std::set<std::string> expected = kept;
    expected.insert(fs::path(pending.temporaryPath()).filename().string());
    EXPECT_EQ(namesIn(dir.path()), expected);
}

TEST(PendingOutput, AnOutputThatCannotBeMadeSaysWhy) {
    TempDir dir;
    PendingOutput missing(dir.file("no/such/folder/out.mp4").string());
    EXPECT_FALSE(missing.isOpen());
    EXPECT_EQ(missing.cause(), "No such file or directory");
    EXPECT_FALSE(missing.commit());
    EXPECT_FALSE(PendingOutput(dir.path().string() + "/").isOpen());
}

// A signal ends the run in a child process: the temporary goes, the output
// stays as it was, and the one line says so.
TEST(PendingOutput, AnInterruptRemovesTheTemporariesAndExitsOne) {
    TempDir dir;
    const fs::path out = dir.file("out.mp4");
    writeFile(out, "before");
    int pipeEnds[2];
    ASSERT_EQ(::pipe(pipeEnds), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(pipeEnds[1], STDOUT_FILENO);
        PendingOutput::installInterruptHandler();
        PendingOutput pending(out.string());
        writeFile(pending.temporaryPath(), "half");
        writeFile(pending.temporaryPath() + ".tmp.mp4", "half");
        ::raise(SIGTERM);
        ::_exit(0);
    }
    ::close(pipeEnds[1]);
    std::string said;
    char buffer[256];
    for (ssize_t n; (n = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0;) said.append(buffer, static_cast<size_t>(n));
    ::close(pipeEnds[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(said, "\n" + out.string() + ": the run was interrupted; nothing was written.\n");
    EXPECT_EQ(readFile(out), "before");
    EXPECT_EQ(namesIn(dir.path()), std::set<std::string>{"out.mp4"});
}

TEST(OutputChecks, NameWhatStandsInTheWay) {
    TempDir dir;
    const std::string out = dir.file("out.mp4").string();
    EXPECT_EQ(QVMX::outputPathProblem(out), "");
    EXPECT_EQ(QVMX::outputPathProblem(dir.path().string()), "it is a folder");
    EXPECT_EQ(QVMX::outputPathProblem(dir.file("missing/out.mp4").string()), "its folder does not exist");
    writeFile(dir.file("plain"), "a file");
    EXPECT_EQ(QVMX::outputPathProblem(dir.file("plain/out.mp4").string()), "its folder does not exist");

    EXPECT_EQ(QVMX::roomProblem(out, 1), "");
    const std::string absurd = QVMX::roomProblem(out, 1ull << 62);
    EXPECT_EQ(absurd.rfind("its file system has room for ", 0), 0u) << absurd;
    EXPECT_NE(absurd.find(", the result needs about 4398046511104 MiB"), std::string::npos) << absurd;
    // The temporary folder is not full, but has not the room for an absurd
    // result either.
    EXPECT_EQ(QVMX::fullDiskCause(out), "");
    EXPECT_EQ(QVMX::fullDiskCause(out, 1ull << 62), "No space left on device");
}
