// Bulk copies between files: the kernel's file-to-file copy where it works,
// copies through memory where it does not, and the same result either way.
#include <gtest/gtest.h>

#include "mp4/byte_copy.h"
#include "support/test_files.h"

using namespace testsupport;

namespace {

// More than one memory step, and no pattern that repeats at a page.
std::string pattern(size_t n) {
    std::string s(n, '\0');
    uint32_t x = 12345;
    for (auto& c : s) {
        x = x * 1103515245u + 12345u;
        c = static_cast<char>(x >> 24);
    }
    return s;
}

constexpr uint64_t kSize = (3u << 20) + 123;

}  // namespace

TEST(CopyBytes, OffsetsThatAreNotPageAlignedToEachOtherCopyExactly) {
    TempDir dir;
    const std::string source = pattern(kSize + 1000);
    writeFile(dir.file("in"), source);
    writeFile(dir.file("out"), std::string(777, 'x'));
    {
        QVMX::FileIO from(dir.wfile("in"), 'r');
        QVMX::FileIO to(dir.wfile("out"), 'a');
        ASSERT_TRUE(from.seek_set(1000) && to.seek_set(777));
        EXPECT_EQ(MP4::copyBytes(from, to, kSize), kSize);
        EXPECT_EQ(from.position(), 1000 + kSize);
        EXPECT_EQ(to.position(), 777 + kSize);
    }
    EXPECT_EQ(readFile(dir.file("out")), std::string(777, 'x') + source.substr(1000));
}

TEST(CopyBytes, AShortSourceCopiesWhatIsThereAndStops) {
    TempDir dir;
    const std::string source = pattern(5000);
    writeFile(dir.file("in"), source);
    {
        QVMX::FileIO from(dir.wfile("in"), 'r');
        QVMX::FileIO to(dir.wfile("out"), 'w');
        ASSERT_TRUE(from.seek_set(100));
        EXPECT_EQ(MP4::copyBytes(from, to, kSize), 4900u);
        EXPECT_EQ(from.position(), 5000u);
        EXPECT_EQ(to.position(), 4900u);
    }
    EXPECT_EQ(readFile(dir.file("out")), source.substr(100));
}

TEST(CopyBytes, DevicesTakeTheCopyThroughMemory) {
    // The kernel refuses file-to-file copies into a device.
    TempDir dir;
    writeFile(dir.file("in"), pattern(kSize));
    QVMX::FileIO from(dir.wfile("in"), 'r');
    QVMX::FileIO sink(L"/dev/null", 'a');
    EXPECT_EQ(MP4::copyBytes(from, sink, kSize), kSize);
    EXPECT_EQ(from.position(), kSize);

    QVMX::FileIO again(dir.wfile("in"), 'r');
    QVMX::FileIO full(L"/dev/full", 'a');
    EXPECT_EQ(MP4::copyBytes(again, full, kSize), 0u);
    EXPECT_EQ(again.position(), 0u);
}
