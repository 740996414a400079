// The rewrite frames: what reaches the disk, what is left when a step fails,
// and how an output path keeps the source untouched.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "mp4/container.h"
#include "tools/builders/box_builder.h"
#include "support/movie_file.h"
#include "support/movie_samples.h"

using namespace testsupport;
using namespace builders;
using MP4::BinFile;
using MP4::Container;

namespace {

const Container::FixFn kFixOk = [](Container&, BinFile&) { return true; };

// A copy step that writes the given bytes as the whole new file.
Container::CopyFn writeAll(const Bytes& bytes, uint64_t position = 0) {
    return [bytes, position](BinFile&, BinFile& to, uint64_t& pos) {
        pos = position;
        return to.writeBytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    };
}

ino_t inodeOf(const std::filesystem::path& p) {
    struct stat st {};
    return ::stat(p.c_str(), &st) == 0 ? st.st_ino : 0;
}

const Bytes kOther = box("ftyp", "isom") + box("free", "replacement");

}  // namespace

TEST(CopyFrame, ReplacesTheFileByRenameKeepingItsPermissions) {
    MovieFile m(buildMovie({}));
    ::chmod(m.path.c_str(), 0640);
    const ino_t before = inodeOf(m.path);

    EXPECT_TRUE(m.container.modifyContainer(L"test", writeAll(kOther), kFixOk, kFixOk));
    EXPECT_EQ(m.bytes(), kOther);
    EXPECT_NE(inodeOf(m.path), before);
    struct stat st {};
    ::stat(m.path.c_str(), &st);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    EXPECT_FALSE(m.temporaryLeft());
    // The tree describes the new file.
    ASSERT_EQ(m.container.root()->children.size(), 2u);
    EXPECT_EQ(m.container.moov(), nullptr);
}

TEST(CopyFrame, AFailureAtAnyStepLeavesTheSourceAndNoTemporary) {
    const Container::FixFn fail = [](Container&, BinFile&) { return false; };
    // The copy writes half of the file and then gives up.
    const Container::CopyFn halfCopy = [](BinFile&, BinFile& to, uint64_t&) {
        to.writeBytes(reinterpret_cast<const uint8_t*>("abcdefgh"), 8);
        return false;
    };
    struct Case {
        const char* step;
        Container::CopyFn copy;
        Container::FixFn fixA, fixB;
    } cases[] = {{"copy", halfCopy, kFixOk, kFixOk},
                 {"fixA", writeAll(kOther), fail, kFixOk},
                 {"fixB", writeAll(kOther), kFixOk, fail}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.step);
        MovieFile m(buildMovie({}));
        ConsoleCapture console;
        EXPECT_FALSE(m.container.modifyContainer(widen(c.step), c.copy, c.fixA, c.fixB));
        EXPECT_EQ(m.bytes(), m.original);
        EXPECT_FALSE(m.temporaryLeft());
        EXPECT_EQ(console.text(), "Container::modifyContainer::" + std::string(c.step) + "(" +
                                      m.path.string() + " to " + m.path.string() +
                                      ".tmp.mp4) failed.\n");
        EXPECT_NE(m.container.moov(), nullptr);  // parsed again: the old file
    }
}

TEST(CopyFrame, TheFirstFixSeesOnlyTheBoxesBeforeTheNewContent) {
    MovieFile m(buildMovie({}));
    const Bytes a = box("free", "aaaa"), b = box("skip", "bb"), c = box("free", "c");
    size_t firstCount = 0, secondCount = 0;
    EXPECT_TRUE(m.container.modifyContainer(
        L"test", writeAll(a + b + c, a.size() + b.size()),
        [&](Container& t, BinFile&) { return firstCount = t.root()->children.size(), true; },
        [&](Container& t, BinFile&) { return secondCount = t.root()->children.size(), true; }));
    EXPECT_EQ(firstCount, 2u);
    EXPECT_EQ(secondCount, 3u);
}

TEST(CopyFrame, ATemporaryNameThatCannotBeCreatedFailsCleanly) {
    MovieFile m(buildMovie({}));
    std::filesystem::create_directory(m.dir.file("movie.mp4.tmp.mp4"));
    ConsoleCapture console;
    EXPECT_FALSE(m.container.modifyContainer(L"test", writeAll(kOther), kFixOk, kFixOk));
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_TRUE(std::filesystem::is_directory(m.dir.file("movie.mp4.tmp.mp4")));
    EXPECT_NE(console.text().find("Container::modifyContainer::test("), std::string::npos);
}

TEST(CopyFrame, AFullDiskFailsAndLeavesNothingBehind) {
    // A file size limit makes the writes fail part way, as a full disk does.
    MovieFile m(buildMovie({.moovFirst = false, .videoSamples = 400}));
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        const rlim_t limit = m.original.size() / 2;
        const rlimit r{limit, limit};
        ::setrlimit(RLIMIT_FSIZE, &r);
        ConsoleCapture quiet;
        MP4::Container c;
        c.attach(m.wpath());
        ::_exit(c.moovFirst() ? 1 : 0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "moovFirst reported success";
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
}

TEST(OutputPath, TheSourceIsNeverWrittenAndLaterEditsGoToTheOutput) {
    MovieFile m(buildMovie({}));
    const auto output = m.dir.file("out.mp4");
    m.container.setOutputPath(widen(output.string()));

    EXPECT_TRUE(m.container.modifyContainer(L"first", writeAll(kOther), kFixOk, kFixOk));
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_EQ(readFile(output), kOther);
    EXPECT_EQ(m.container.path(), widen(output.string()));
    EXPECT_TRUE(m.container.outputPath().empty());

    // The next rewrite replaces the output through its own temporary file.
    const Bytes third = box("free", "third");
    EXPECT_TRUE(m.container.modifyContainer(L"second", writeAll(third), kFixOk, kFixOk));
    EXPECT_EQ(readFile(output), third);
    EXPECT_EQ(m.bytes(), m.original);
    EXPECT_FALSE(m.temporaryLeft());
}

TEST(OutputPath, AnInPlaceEditFirstCopiesTheWholeFileToTheOutput) {
    MovieFile m(buildMovie({}));
    const auto output = m.dir.file("out.mp4");
    m.container.setOutputPath(widen(output.string()));
    EXPECT_TRUE(m.container.modifyContainer(L"poke", [](BinFile& f) {
        f.seek(9);  // inside the ftyp brand
        return f.write8('!');
    }));
    EXPECT_EQ(m.bytes(), m.original);
    Bytes expected = m.original;
    expected[9] = '!';
    EXPECT_EQ(readFile(output), expected);
    EXPECT_EQ(m.container.path(), widen(output.string()));
    EXPECT_TRUE(m.container.outputPath().empty());
    EXPECT_NE(m.container.moov(), nullptr);
}

TEST(OutputPath, AnOutputThatCannotTakeTheFileFailsWithoutTouchingAnything) {
    // /dev/full takes no bytes; it must not be removed after the failure.
    for (bool inPlace : {false, true}) {
        SCOPED_TRACE(inPlace ? "in place" : "copy");
        MovieFile m(buildMovie({}));
        m.container.setOutputPath(L"/dev/full");
        ConsoleCapture console;
        const bool ok = inPlace ? m.container.modifyContainer(L"poke", [](BinFile&) { return true; })
                                : m.container.modifyContainer(L"copy", writeAll(kOther), kFixOk, kFixOk);
        EXPECT_FALSE(ok);
        EXPECT_EQ(m.bytes(), m.original);
        struct stat st {};
        ASSERT_EQ(::stat("/dev/full", &st), 0);
        EXPECT_TRUE(S_ISCHR(st.st_mode));
        EXPECT_NE(console.text().find("to /dev/full) failed.\n"), std::string::npos);
        EXPECT_EQ(m.container.path(), m.wpath());
    }
}

TEST(OutputPath, AnOutputNamingTheSourceItselfIsAnInPlaceEdit) {
    MovieFile m(buildMovie({}));
    m.container.setOutputPath(widen((m.dir.path() / "." / "movie.mp4").string()));
    EXPECT_TRUE(m.container.modifyContainer(L"same", writeAll(kOther), kFixOk, kFixOk));
    EXPECT_EQ(m.bytes(), kOther);
    EXPECT_FALSE(m.temporaryLeft());
}

TEST(InPlaceFrame, AFailureIsReportedAndWhatWasWrittenStays) {
    MovieFile m(buildMovie({}));
    ConsoleCapture console;
    EXPECT_FALSE(m.container.modifyContainer(L"poke", [](BinFile& f) {
        f.seek(0);
        f.write8(0);
        return false;
    }));
    EXPECT_EQ(console.text(), "Container::modifyContainer::poke(" + m.path.string() + ") failed.\n");
    EXPECT_EQ(m.bytes()[0], '\0');
}

TEST(InsertBox, InsertsAfterABoxOrInItsPlace) {
    const Bytes ftyp = box("ftyp", "isom"), junk = box("free", "junk"), rest = box("skip", "zz");
    const auto write = [](BinFile& f) { return f.writeBytes(reinterpret_cast<const uint8_t*>("NEW"), 3); };
    {
        MovieFile m(ftyp + junk + rest);
        EXPECT_TRUE(m.container.insertBox(L"after", *m.first("free"), false, write, kFixOk, kFixOk));
        EXPECT_EQ(m.bytes(), ftyp + junk + "NEW" + rest);
    }
    {
        MovieFile m(ftyp + junk + rest);
        EXPECT_TRUE(m.container.insertBox(L"drop", *m.first("free"), true,
                                          [](BinFile&) { return true; }, kFixOk, kFixOk));
        EXPECT_EQ(m.bytes(), ftyp + rest);
    }
}

TEST(InsertBox, ABoxRunningPastTheFileIsNotCopied) {
    const Bytes bytes = box("ftyp", "isom") + be32(500) + "free" + "short";
    MovieFile m(bytes);
    ConsoleCapture console;
    EXPECT_FALSE(m.container.insertBox(L"after", *m.first("free"), false,
                                       [](BinFile&) { return true; }, kFixOk, kFixOk));
    EXPECT_EQ(m.bytes(), bytes);
    EXPECT_FALSE(m.temporaryLeft());
}
