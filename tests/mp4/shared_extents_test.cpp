// Copies that share the source's blocks give the bytes that copies through
// the kernel or memory give. The test folder decides which way is taken:
// ext4 and tmpfs refuse to share, so the copy falls back; with TMPDIR on a
// file system that shares blocks (XFS with reflink, btrfs), the blocks are
// shared, and only there does the second test run.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <vector>

#include "foundation/file_io.h"
#include "mp4/byte_copy.h"
#include "support/test_files.h"

using namespace testsupport;

namespace {

constexpr uint64_t kSize = (4u << 20) + 123;

std::string pattern(size_t n) {
    std::string s(n, '\0');
    uint32_t x = 12345;
    for (auto& c : s) c = static_cast<char>((x = x * 1103515245u + 12345u) >> 24);
    return s;
}

struct Case {
    const char* what;
    uint64_t inAt, outAt, size;
};

// Every way through the copy: shared to the source's end, shared with
// copied edges, copied for offsets that differ within a block, and copied
// for a range too small to share.
const Case kCases[] = {
    {"the whole file", 0, 0, kSize},
    {"a head, then to the end", 1000, 1000 + 3 * 4096, kSize - 1000},
    {"a head and a tail", 1000, 1000 + 4096, kSize - 6000},
    {"offsets apart within a block", 1000, 777, kSize - 1000},
    {"an output just short of 64 KiB", 1000, 65536 - 100, kSize - 1000},
    {"a small range", 4096, 0, 64 << 10},
};

// Copies the case's range into a file holding outAt bytes of 'x'; what it
// then holds.
std::string copied(const TempDir& dir, const Case& c, const std::string& source) {
    writeFile(dir.file("out"), std::string(c.outAt, 'x'));
    QVMX::FileIO from(dir.wfile("in"), 'r');
    QVMX::FileIO to(dir.wfile("out"), 'a');
    EXPECT_TRUE(from.seek_set(c.inAt) && to.seek_set(c.outAt));
    EXPECT_EQ(MP4::copyBytes(from, to, c.size), c.size);
    EXPECT_EQ(from.position(), c.inAt + c.size);
    EXPECT_EQ(to.position(), c.outAt + c.size);
    EXPECT_EQ(readFile(dir.file("in")), source);
    return readFile(dir.file("out"));
}

bool canShareBlocks(const TempDir& dir) {
    writeFile(dir.file("probe-a"), std::string(4096, 'p'));
    writeFile(dir.file("probe-b"), "");
    const int a = ::open(dir.file("probe-a").c_str(), O_RDONLY | O_CLOEXEC);
    const int b = ::open(dir.file("probe-b").c_str(), O_WRONLY | O_CLOEXEC);
    const bool ok = a >= 0 && b >= 0 && ::ioctl(b, FICLONE, a) == 0;
    if (a >= 0) ::close(a);
    if (b >= 0) ::close(b);
    return ok;
}

// Whether any extent of the file is shared with another file.
bool sharesBlocks(const std::filesystem::path& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    constexpr unsigned kExtents = 64;
    std::vector<uint8_t> buffer(sizeof(fiemap) + kExtents * sizeof(fiemap_extent));
    auto* map = reinterpret_cast<fiemap*>(buffer.data());
    map->fm_length = FIEMAP_MAX_OFFSET;
    map->fm_flags = FIEMAP_FLAG_SYNC;
    map->fm_extent_count = kExtents;
    bool shared = false;
    if (::ioctl(fd, FS_IOC_FIEMAP, map) == 0) {
        for (unsigned i = 0; i < map->fm_mapped_extents; ++i) {
            shared = shared || (map->fm_extents[i].fe_flags & FIEMAP_EXTENT_SHARED) != 0;
        }
    }
    ::close(fd);
    return shared;
}

}  // namespace

TEST(SharedExtents, EveryWayThroughTheCopyGivesTheSourcesBytes) {
    const std::string source = pattern(kSize);
    TempDir dir;
    writeFile(dir.file("in"), source);
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(copied(dir, c, source), std::string(c.outAt, 'x') + source.substr(c.inAt, c.size));
    }
}

TEST(SharedExtents, ASourceThatRunsOutIsCopiedAsFarAsItGoes) {
    const std::string source = pattern(kSize);
    TempDir dir;
    writeFile(dir.file("in"), source);
    writeFile(dir.file("out"), "");
    {
        QVMX::FileIO from(dir.wfile("in"), 'r');
        QVMX::FileIO to(dir.wfile("out"), 'a');
        ASSERT_TRUE(from.seek_set(kSize - 5000));
        EXPECT_EQ(MP4::copyBytes(from, to, kSize), 5000u);
        EXPECT_EQ(from.position(), kSize);
    }
    EXPECT_EQ(readFile(dir.file("out")), source.substr(kSize - 5000));
}

TEST(SharedExtents, RangesAlikeWithinABlockShareTheSourcesBlocks) {
    TempDir dir;
    if (!canShareBlocks(dir)) GTEST_SKIP() << dir.path() << " cannot share blocks between files";
    const std::string source = pattern(kSize);
    writeFile(dir.file("in"), source);
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(copied(dir, c, source), std::string(c.outAt, 'x') + source.substr(c.inAt, c.size));
        // A small range may or may not be shared (the kernel's own copy
        // shares where it can); offsets apart within a block never are.
        const bool alike = c.inAt % 4096 == c.outAt % 4096;
        if (!alike || c.size > (1u << 20)) {
            EXPECT_EQ(sharesBlocks(dir.file("out")), alike);
        }
    }
}
