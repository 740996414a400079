// The rewrite frame and the bulk copy under it: what reaches the disk, what
// is left when a step fails, and how a commit's target keeps the source
// untouched.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"

using namespace testsupport;
using namespace builders;
using MP4::BinFile;
using MP4::Container;

namespace {

const Container::FixFn kFixOk = [](Container&, BinFile&) { return true; };
const Bytes kOther = box("ftyp", "isom") + box("free", "replacement");

// A copy step that writes the given bytes as the whole new file, the new
// content starting at position.
Container::CopyFn writeAll(const Bytes& bytes, uint64_t position = 0) {
    return [bytes, position](BinFile&, BinFile& to, uint64_t& pos) {
        pos = position;
        return to.writeBytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    };
}

// Whether fn fails, saying the file grew too large, in a child process
// whose files cannot grow past limit bytes, as on a full disk.
bool failsUnderFileSizeLimit(rlim_t limit, const std::function<QVMX::Status()>& fn) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlimit r{limit, limit};
        ::setrlimit(RLIMIT_FSIZE, &r);
        ConsoleCapture quiet;
        const QVMX::Status status = fn();
        ::_exit(!status && status.failure().cause == QVMX::systemCause(EFBIG) ? 0 : 1);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

TEST(CopyFrame, ReplacesTheFileByRenameKeepingItsPermissionsAndFixesSeeTheirBoxes) {
    MovieFile m(buildMovie({}));
    ::chmod(m.path.c_str(), 0640);
    struct stat before {};
    ::stat(m.path.c_str(), &before);
    const Bytes a = box("free", "aaaa"), b = box("skip", "bb"), c = box("free", "c");
    size_t firstCount = 0, secondCount = 0;
    EXPECT_TRUE(m.container.modifyContainer(
        L"test", writeAll(a + b + c, a.size() + b.size()),
        [&](Container& t, BinFile&) { return firstCount = t.root()->children.size(), true; },
        [&](Container& t, BinFile&) { return secondCount = t.root()->children.size(), true; }));
    EXPECT_EQ(firstCount, 2u);  // only the boxes before the new content
    EXPECT_EQ(secondCount, 3u);
    EXPECT_EQ(m.bytes(), a + b + c);
    struct stat after {};
    ::stat(m.path.c_str(), &after);
    EXPECT_NE(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode & 0777, 0640u);
    EXPECT_FALSE(m.temporaryLeft());
    EXPECT_EQ(m.container.root()->children.size(), 3u);  // the tree describes the new file
}

TEST(CopyFrame, AFailureAtAnyStepLeavesTheSourceAndNoTemporary) {
    const Container::FixFn fail = [](Container&, BinFile&) { return false; };
    const Container::CopyFn halfCopy = [](BinFile&, BinFile& to, uint64_t&) {
        to.writeBytes(reinterpret_cast<const uint8_t*>("abcdefgh"), 8);
        return false;
    };
    struct Case {
        const char* step;
        Container::CopyFn copy;
        Container::FixFn fixA, fixB;
        const wchar_t* cause;
    } cases[] = {{"copy", halfCopy, kFixOk, kFixOk, L"an edit does not fit the movie, or could not be made"},
                 {"fixA", writeAll(kOther), fail, kFixOk, L"a box holding an edit cannot take its new size"},
                 {"fixB", writeAll(kOther), kFixOk, fail, L"a chunk offset table could not be mapped"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.step);
        MovieFile m(buildMovie({}));
        ConsoleCapture console;
        const QVMX::Status status = m.container.modifyContainer(widen(c.step), c.copy, c.fixA, c.fixB);
        ASSERT_FALSE(status);
        EXPECT_EQ(status.failure().text(), widen(c.step) + L": " + c.cause);
        EXPECT_EQ(m.bytes(), m.original);
        EXPECT_FALSE(m.temporaryLeft());
        EXPECT_EQ(console.text(), "Container::modifyContainer::" + std::string(c.step) + "(" +
                                      m.path.string() + " to " + m.path.string() + ".tmp.mp4) failed.\n");
        EXPECT_NE(m.container.moov(), nullptr);  // parsed again: the old file
    }
    // A temporary name that cannot be created.
    MovieFile m(buildMovie({}));
    std::filesystem::create_directory(m.dir.file("movie.mp4.tmp.mp4"));
    ConsoleCapture console;
    const QVMX::Status status = m.container.modifyContainer(L"test", writeAll(kOther), kFixOk, kFixOk);
    ASSERT_FALSE(status);
    EXPECT_EQ(status.failure().cause, QVMX::systemCause(EISDIR));
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_TRUE(std::filesystem::is_directory(m.dir.file("movie.mp4.tmp.mp4")));
}

TEST(CopyFrame, ASourceCutShortSinceItWasReadFailsSayingSo) {
    MovieFile m(buildMovie({.moovFirst = false}));
    ASSERT_EQ(::truncate(m.path.c_str(), static_cast<off_t>(m.original.size() - 8)), 0);
    const auto output = m.dir.file("out.mp4");
    m.container.beginEdits();
    ASSERT_TRUE(m.container.moovFirst());
    ConsoleCapture console;
    const QVMX::Status status = m.container.commitEdits(widen(output.string()));
    ASSERT_FALSE(status);
    EXPECT_EQ(status.failure().text(), L"moovFirst: the source ended before the copy did");
    EXPECT_EQ(m.container.path(), m.wpath());
}

TEST(CopyFrame, AFullDiskFailsSayingWhyAndLeavesTheFileAsItWas) {
    MovieFile m(buildMovie({.moovFirst = false, .videoSamples = 400}));
    EXPECT_TRUE(failsUnderFileSizeLimit(m.original.size() / 2, [&] {
        MP4::Container c;
        c.attach(m.wpath());
        return c.moovFirst();
    }));
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
    // An append fails the same way.
    const Bytes big = uuidBox("0123456789abcdef", Bytes(64 * 1024, 'x'));
    EXPECT_TRUE(failsUnderFileSizeLimit(m.original.size() + 1000, [&] {
        MP4::Container c;
        c.attach(m.wpath());
        return c.appendTopLevel(L"append", ByteArray(big.data(), big.size()));
    }));
    EXPECT_EQ(m.bytes(), m.original);
}

TEST(CommitTarget, TheSourceIsNeverWrittenAndTheTreeDescribesTheTarget) {
    const Bytes xmp = uuidBox("0123456789abcdef", "packet");
    for (bool withEdits : {true, false}) {
        SCOPED_TRACE(withEdits ? "an append" : "nothing recorded: a plain copy");
        MovieFile m(buildMovie({}));
        const auto output = m.dir.file("out.mp4");
        writeFile(output, "old output");
        m.container.beginEdits();
        if (withEdits) {
            ASSERT_TRUE(m.container.appendTopLevel(L"append", ByteArray(xmp.data(), xmp.size())));
        }
        EXPECT_TRUE(m.container.commitEdits(widen(output.string())));
        EXPECT_EQ(readFile(output), withEdits ? m.original + xmp : m.original);
        EXPECT_EQ(m.bytes(), m.original);
        EXPECT_EQ(m.container.path(), widen(output.string()));
        EXPECT_FALSE(m.temporaryLeft());
    }
}

TEST(CommitTarget, ATargetThatCannotTakeTheFileFailsWithoutRemovingIt) {
    for (bool withEdits : {true, false}) {
        SCOPED_TRACE(withEdits ? "an edit" : "a plain copy");
        MovieFile m(buildMovie({}));
        m.container.beginEdits();
        if (withEdits) {
            ASSERT_TRUE(m.container.updateTimeStamp(7));
        }
        ConsoleCapture console;
        const QVMX::Status status = m.container.commitEdits(L"/dev/full");
        ASSERT_FALSE(status);
        EXPECT_EQ(status.failure().text(),
                  withEdits ? L"updateTimeStamp: the target is not a regular file" : L"copy: No space left on device");
        EXPECT_EQ(m.bytes(), m.original);
        EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
        EXPECT_EQ(m.container.path(), m.wpath());
    }
}
