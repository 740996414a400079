// An output on a file system too small for it: on a small tmpfs mounted for
// the test (skipped where mounting is refused), a run is refused up front
// when the result cannot fit, and a run whose file system fills up while it
// writes ends with exit 1, one line naming the output and the full disk, no
// output and no temporary file; the source keeps its bytes either way.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "mp4/container.h"
#include "spawned_run.h"
#include "tavrel_fixture.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using testsupport::runCommand;
using testsupport::shellQuote;

constexpr int kMovieMiB = 40;

// A tmpfs of the given size at a fresh folder, unmounted and removed when
// the object goes away.
class SmallDisk {
public:
    SmallDisk(const fs::path& dir, const std::string& size) : dir_(dir) {
        fs::create_directories(dir_);
        const auto mounted = runCommand("mount -t tmpfs -o size=" + size + " tmpfs " + shellQuote(dir_.string()), true);
        mounted_ = mounted.status == 0;
        refusal_ = mounted.output;
    }
    ~SmallDisk() {
        if (mounted_) runCommand("umount " + shellQuote(dir_.string()) + " || umount -l " + shellQuote(dir_.string()));
        std::error_code ignored;
        fs::remove_all(dir_, ignored);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool mounted() const { return mounted_; }
    const std::string& refusal() const { return refusal_; }
    fs::path file(const std::string& name) const { return dir_ / name; }

    // Takes all but a few KiB of what is left.
    bool fill() const {
        struct statvfs fs {};
        if (::statvfs(dir_.c_str(), &fs) != 0) return false;
        const off_t left = static_cast<off_t>(fs.f_bavail * fs.f_frsize);
        const int fd = ::open(file("filler").c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0) return false;
        const bool filled = left <= 16384 || ::posix_fallocate(fd, 0, left - 16384) == 0;
        ::close(fd);
        return filled;
    }

private:
    fs::path dir_;
    bool mounted_ = false;
    std::string refusal_;
};

class FullDisk : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        shared_ = new testsupport::TempDir;
        makeBigMovie(source(), kMovieMiB);
        sourceHash_ = sha256(source());
    }
    static void TearDownTestSuite() {
        delete shared_;
        shared_ = nullptr;
    }
    static fs::path source() { return shared_->file("source.mp4"); }
    static const std::string& sourceHash() { return sourceHash_; }

    // tavrel, and the one-edit tool, each on the source into output.
    static std::vector<std::pair<std::string, std::vector<std::string>>> commands(const fs::path& output) {
        return {{tavrelExecutable().string(), {source().string(), output.string()}},
                {testsupport::binaryDir() + "/tools/tavrel-edit", {"moovfirst", source().string(), output.string()}}};
    }

private:
    static testsupport::TempDir* shared_;
    static std::string sourceHash_;
};

testsupport::TempDir* FullDisk::shared_ = nullptr;
std::string FullDisk::sourceHash_;

TEST_F(FullDisk, AResultTooBigForTheFileSystemIsRefusedBeforeAnythingIsWritten) {
    testsupport::TempDir work;
    SmallDisk disk(work.file("disk"), "3m");
    if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs was refused: " << disk.refusal();
    const fs::path out = disk.file("out.mp4");
    for (const auto& [program, arguments] : commands(out)) {
        SCOPED_TRACE(program);
        SpawnedRun run(program, arguments);
        run.wait();
        EXPECT_EQ(run.exitStatus(), 1) << run.output();
        const std::string line = out.string() + ": its file system has room for 3 MiB, the result needs about ";
        const size_t at = run.output().find(line);
        ASSERT_NE(at, std::string::npos) << run.output();
        const int needs = std::atoi(run.output().c_str() + at + line.size());
        EXPECT_TRUE(needs >= kMovieMiB + 4 && needs <= kMovieMiB + 5) << run.output();
        EXPECT_TRUE(contains(run.output().substr(at), " MiB; nothing was written.\n")) << run.output();
        EXPECT_TRUE(entriesOf(work.file("disk")).empty());
    }
    EXPECT_EQ(sha256(source()), sourceHash());
}

// The run is held still the moment its temporary file appears, the file
// system is filled, and the run goes on into a full disk.
TEST_F(FullDisk, AFileSystemThatFillsDuringTheRunEndsItWithNothingWritten) {
    testsupport::TempDir work;
    SmallDisk disk(work.file("disk"), std::to_string(kMovieMiB + 24) + "m");
    if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs was refused: " << disk.refusal();
    const fs::path out = disk.file("out.mp4");
    for (const auto& [program, arguments] : commands(out)) {
        SCOPED_TRACE(program);
        SpawnedRun run(program, arguments);
        ASSERT_TRUE(run.started());
        const auto writing = [&] {
            for (const std::string& name : entriesOf(work.file("disk"))) {
                if (name.rfind(".out.mp4.tavrel-", 0) == 0) return true;
            }
            return false;
        };
        while (!writing() && !run.ended()) std::this_thread::sleep_for(std::chrono::microseconds(100));
        // Still, not only told to stop: a write in flight would take the
        // room the filler is given.
        ASSERT_TRUE(run.stop()) << "the run ended before its temporary file was seen\n" << run.output();
        ASSERT_TRUE(disk.fill());
        run.signal(SIGCONT);
        run.wait();
        EXPECT_EQ(run.exitStatus(), 1) << run.output();
        EXPECT_TRUE(contains(run.output(), out.string() + ": No space left on device; nothing was written.\n"))
            << run.output();
        EXPECT_EQ(entriesOf(work.file("disk")), std::set<std::string>{"filler"});
        fs::remove(disk.file("filler"));
    }
    EXPECT_EQ(sha256(source()), sourceHash());
}

// The commit itself says why it stopped: the step and the system's words
// for a full disk, which the programs' refusal lines carry.
TEST_F(FullDisk, ACommitIntoAFullFileSystemSaysSo) {
    testsupport::TempDir work;
    SmallDisk disk(work.file("disk"), "8m");
    if (!disk.mounted()) GTEST_SKIP() << "mounting a tmpfs was refused: " << disk.refusal();
    ASSERT_TRUE(disk.fill());
    MP4::Container movie;
    ASSERT_TRUE(movie.attach(testsupport::widen(source().string())));
    movie.beginEdits();
    ASSERT_TRUE(movie.moovFirst());
    const QVMX::Status committed = movie.commitEdits(testsupport::widen(disk.file("out.mp4").string()));
    ASSERT_FALSE(committed);
    EXPECT_EQ(committed.failure().text(), L"moovFirst: " + QVMX::systemCause(ENOSPC));
    EXPECT_EQ(sha256(source()), sourceHash());
}

}  // namespace
}  // namespace e2e
