#include "foundation/file_io.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstring>

#include "foundation/wchar.h"
#include "support/test_files.h"

using QVMX::FileIO;
using testsupport::ConsoleCapture;
using testsupport::readFile;
using testsupport::TempDir;
using testsupport::writeFile;

TEST(FileIOOpen, ReadNeedsTheFileUpdateNeverCreatesWriteTruncates) {
    TempDir dir;
    uint8_t b[8] = {};
    {
        ConsoleCapture capture;
        FileIO missing(dir.wfile("a.bin"), 'r');
        EXPECT_FALSE(missing.isOpen());
        EXPECT_EQ(missing.read(b, 4), FileIO::kError);
        EXPECT_FALSE(FileIO(dir.wfile("a.bin"), 'a').isOpen());
        EXPECT_EQ(capture.text(), "open(" + dir.file("a.bin").string() + ", 'r') failed.\nopen(" +
                                      dir.file("a.bin").string() + ", 'a') failed.\n");
    }
    EXPECT_FALSE(std::filesystem::exists(dir.file("a.bin")));

    writeFile(dir.file("a.bin"), "abcdef");
    FileIO(dir.wfile("a.bin"), 'a').write(reinterpret_cast<const uint8_t*>("XY"), 2);
    EXPECT_EQ(readFile(dir.file("a.bin")), "XYcdef");
    {
        FileIO file(dir.wfile("a.bin"), 'w');
        EXPECT_EQ(file.length(), 0u);
        file.write(reinterpret_cast<const uint8_t*>("new"), 3);
    }
    FileIO reader(dir.wfile("a.bin"), 'x');  // an unknown mode reads
    EXPECT_EQ(reader.read(b, 8), 3u);
    EXPECT_EQ(reader.read(b, 8), 0u);
    EXPECT_EQ(reader.write(b, 1), FileIO::kError);
}

TEST(FileIOSeek, FailuresPrintTheOffsetAndTheSystemReason) {
    TempDir dir;
    writeFile(dir.file("s.bin"), "0123456789");
    FileIO file(dir.wfile("s.bin"), 'r');
    ASSERT_TRUE(file.seek_set(7));
    ConsoleCapture capture;
    EXPECT_FALSE(file.seek_cur(-100));
    EXPECT_EQ(file.position(), 7u);
    EXPECT_EQ(capture.text(), "seek_cur(-100) failed - Invalid argument(22)\n");
}

TEST(FileIOCopy, WholeChunksAPartialOneAndAShortSource) {
    TempDir dir;
    std::string data(65537, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = char(i * 7);
    writeFile(dir.file("src"), data);
    {
        FileIO src(dir.wfile("src"), 'r');
        FileIO dst(dir.wfile("dst"), 'w');
        EXPECT_EQ(src.copyTo(dst, 65537), 65537u);
    }
    EXPECT_EQ(readFile(dir.file("dst")), data);
    FileIO src(dir.wfile("src"), 'r');
    FileIO dst(dir.wfile("tail"), 'w');
    src.seek_set(65500);
    EXPECT_EQ(src.copyTo(dst, 1000), 37u);
}

TEST(FileIOScoped, OpenRunsTheCallbackOnlyWhenTheFileOpened) {
    TempDir dir;
    writeFile(dir.file("f"), "x");
    int calls = 0;
    EXPECT_TRUE(FileIO::open(dir.wfile("f"), [&](FileIO&) { ++calls; }));
    ConsoleCapture capture;
    EXPECT_FALSE(FileIO::open_a(dir.wfile("none"), [&](FileIO&) { ++calls; }));
    EXPECT_EQ(calls, 1);
    EXPECT_NE(capture.text().find("none, 'a') failed.\n"), std::string::npos);
    EXPECT_TRUE(FileIO::rename(dir.wfile("f"), dir.wfile("g")));
    EXPECT_TRUE(FileIO::unlink(dir.wfile("g")));
    EXPECT_FALSE(FileIO::unlink(dir.wfile("g")));
}

class Utf8Locale : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::setlocale(LC_ALL, "C.UTF-8") == nullptr) GTEST_SKIP() << "no UTF-8 locale";
    }
    void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(Utf8Locale, NonAsciiPathsAndTheConversionBufferLimits) {
    TempDir dir;
    writeFile(dir.file("\xE5\x8B\x95.mp4"), "movie");
    EXPECT_TRUE(FileIO(dir.wfile("\xE5\x8B\x95.mp4"), 'r').isOpen());

    const std::string mb = QVMX::wchar::wcs2mbs(L"\u52d5abc");
    EXPECT_EQ(mb.size(), 24u);  // 6 x 4 characters, zero-filled
    EXPECT_EQ(QVMX::wchar::mbs2wcs("\xE5\x8B\x95" "abc"), L"\u52d5abc");

    // A multibyte form longer than 2048 bytes is cut at 2048.
    const std::string cut = QVMX::wchar::wcs2mbs(std::wstring(1000, L'\u52d5'));
    EXPECT_EQ(cut.size(), 2048u);
    EXPECT_EQ(std::strlen(cut.c_str()), 2046u);  // 682 whole characters
    EXPECT_EQ(QVMX::wchar::mbs2wcs(std::string(3000, 'a').c_str()).size(), 2048u);
}
