#include "foundation/file_io.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>

#include "foundation/console.h"
#include "foundation/wchar.h"
#include "support/test_files.h"

using QVMX::FileIO;
using testsupport::ConsoleCapture;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

TEST(Console, WritesWideFormatsToTheRedirectedStream) {
    ConsoleCapture capture;
    QVMX::Console::out(L"%ls=%d %s\n", L"name", 42, "narrow");
    QVMX::Console::out(L"progress\r");
    EXPECT_EQ(capture.text(), "name=42 narrow\nprogress\r");
}

TEST(FileIOOpen, MissingFileInReadModeIsUnusableAndSaysSo) {
    TempDir dir;
    const std::wstring path = dir.wfile("missing.mp4");
    ConsoleCapture capture;
    FileIO file(path, 'r');
    EXPECT_FALSE(file.isOpen());
    EXPECT_EQ(file.descriptor(), 0);
    EXPECT_EQ(file.length(), 0u);
    uint8_t b[4];
    EXPECT_EQ(file.read(b, 4), FileIO::kError);
    EXPECT_EQ(file.write(b, 4), FileIO::kError);
    EXPECT_FALSE(file.seek_set(0));
    EXPECT_EQ(capture.text(), "open(" + dir.file("missing.mp4").string() + ", 'r') failed.\n");
}

TEST(FileIOOpen, UpdateModeNeverCreatesAndWritesFromTheStart) {
    TempDir dir;
    {
        ConsoleCapture capture;
        FileIO missing(dir.wfile("a.bin"), 'a');
        EXPECT_FALSE(missing.isOpen());
        EXPECT_NE(capture.text().find("'a') failed."), std::string::npos);
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("a.bin")));

    writeFile(dir.file("a.bin"), "abcdef");
    {
        FileIO file(dir.wfile("a.bin"), 'a');
        ASSERT_TRUE(file.isOpen());
        EXPECT_EQ(file.write(reinterpret_cast<const uint8_t*>("XY"), 2), 2u);
        EXPECT_EQ(file.position(), 2u);
        EXPECT_EQ(file.length(), 6u);
    }
    EXPECT_EQ(readFile(dir.file("a.bin")), "XYcdef");
}

TEST(FileIOOpen, WriteModeTruncatesAndUnknownModesRead) {
    TempDir dir;
    writeFile(dir.file("w.bin"), "old content");
    {
        FileIO file(dir.wfile("w.bin"), 'w');
        ASSERT_TRUE(file.isOpen());
        EXPECT_EQ(file.length(), 0u);
        file.write(reinterpret_cast<const uint8_t*>("new"), 3);
    }
    EXPECT_EQ(readFile(dir.file("w.bin")), "new");
    FileIO reader(dir.wfile("w.bin"), 'x');
    ASSERT_TRUE(reader.isOpen());
    uint8_t b[8] = {};
    EXPECT_EQ(reader.read(b, 8), 3u);
    EXPECT_EQ(reader.read(b, 8), 0u);  // end of file
    EXPECT_EQ(reader.write(b, 1), FileIO::kError);
}

TEST(FileIOSeek, FailuresPrintTheOffsetAndTheSystemReason) {
    TempDir dir;
    writeFile(dir.file("s.bin"), "0123456789");
    FileIO file(dir.wfile("s.bin"), 'r');
    ASSERT_TRUE(file.seek_set(4));
    ASSERT_TRUE(file.seek_cur(2));
    EXPECT_EQ(file.position(), 6u);
    uint8_t b = 0;
    file.read(&b, 1);
    EXPECT_EQ(b, '6');

    ConsoleCapture capture;
    EXPECT_FALSE(file.seek_cur(-100));
    EXPECT_EQ(file.position(), 7u);
    EXPECT_EQ(capture.text(), "seek_cur(-100) failed - Invalid argument(22)\n");
}

TEST(FileIOCopy, CopiesInWholeChunksAndAPartialOne) {
    TempDir dir;
    std::string data(65537, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = char(i * 7);
    writeFile(dir.file("src"), data);
    FileIO src(dir.wfile("src"), 'r');
    FileIO dst(dir.wfile("dst"), 'w');
    EXPECT_EQ(src.copyTo(dst, 65537), 65537u);
    EXPECT_EQ(src.copyTo(dst, 0), 0u);
    EXPECT_EQ(readFile(dir.file("dst")), data);
}

TEST(FileIOCopy, ShortSourceCopiesOnlyWhatIsThere) {
    TempDir dir;
    writeFile(dir.file("src"), std::string(100, 'x'));
    FileIO src(dir.wfile("src"), 'r');
    FileIO dst(dir.wfile("dst"), 'w');
    src.seek_set(40);
    EXPECT_EQ(src.copyTo(dst, 1000), 60u);
    EXPECT_EQ(readFile(dir.file("dst")), std::string(60, 'x'));
}

TEST(FileIOScoped, OpenRunsTheCallbackOnlyWhenTheFileOpened) {
    TempDir dir;
    writeFile(dir.file("f"), "x");
    int calls = 0;
    EXPECT_TRUE(FileIO::open(dir.wfile("f"), [&](FileIO& f) {
        ++calls;
        EXPECT_EQ(f.mode(), 'r');
    }));
    ConsoleCapture capture;
    EXPECT_FALSE(FileIO::open_a(dir.wfile("none"), [&](FileIO&) { ++calls; }));
    EXPECT_EQ(calls, 1);
    EXPECT_FALSE(FileIO::exist(dir.wfile("none")));
    EXPECT_TRUE(FileIO::exist(dir.wfile("f")));
    EXPECT_NE(capture.text().find("none, 'r') failed.\n"), std::string::npos);

    QVMX::FileIO_show_process_file_name = true;
    EXPECT_TRUE(FileIO::open_w(dir.wfile("g"), [](FileIO&) {}));
    QVMX::FileIO_show_process_file_name = false;
    EXPECT_NE(capture.text().find("processing " + dir.file("g").string() + " ...\n"),
              std::string::npos);
}

TEST(FileIOScoped, RenameAndUnlink) {
    TempDir dir;
    writeFile(dir.file("a"), "1");
    EXPECT_TRUE(FileIO::rename(dir.wfile("a"), dir.wfile("b")));
    EXPECT_FALSE(FileIO::rename(dir.wfile("a"), dir.wfile("c")));
    EXPECT_TRUE(FileIO::unlink(dir.wfile("b")));
    EXPECT_FALSE(FileIO::unlink(dir.wfile("b")));
}

class Utf8Locale : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no UTF-8 locale";
    }
    void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(Utf8Locale, NonAsciiPathsOpen) {
    TempDir dir;
    const std::string name = "\xE5\x8B\x95\xE7\x94\xBB.mp4";  // a Japanese file name
    writeFile(dir.file(name), "movie");
    FileIO file(dir.wfile(name), 'r');
    EXPECT_TRUE(file.isOpen());
    EXPECT_EQ(file.length(), 5u);
}

TEST_F(Utf8Locale, ConversionsKeepTheirBufferRules) {
    const std::string mb = QVMX::wchar::wcs2mbs(L"\u52d5abc");
    EXPECT_EQ(mb.size(), 24u);  // 6 x 4 characters, zero-filled
    EXPECT_STREQ(mb.c_str(), "\xE5\x8B\x95" "abc");
    EXPECT_EQ(QVMX::wchar::mbs2wcs("\xE5\x8B\x95" "abc"), L"\u52d5abc");

    // A multibyte form longer than 2048 bytes is cut at 2048.
    const std::string cut = QVMX::wchar::wcs2mbs(std::wstring(1000, L'\u52d5'));
    EXPECT_EQ(cut.size(), 2048u);
    EXPECT_EQ(std::strlen(cut.c_str()), 2046u);  // 682 whole characters
    EXPECT_EQ(QVMX::wchar::mbs2wcs(std::string(3000, 'a').c_str()).size(), 2048u);
}
