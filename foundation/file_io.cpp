#include "foundation/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "foundation/console.h"
#include "foundation/wchar.h"

namespace QVMX {

bool FileIO_show_process_file_name = false;

namespace {

constexpr uint64_t kCopyChunk = 65536;

void printSeekFailure(const wchar_t* format, long long offset, int err) {
    const std::wstring text = wchar::mbs2wcs(std::strerror(err));
    Console::out(format, offset, text.c_str(), err);
}

bool openScoped(const std::wstring& path, int mode, const std::function<void(FileIO&)>& fn) {
    FileIO file(path, mode);
    if (!file.isOpen()) return false;
    if (FileIO_show_process_file_name) Console::out(L"processing %ls ...\n", path.c_str());
    fn(file);
    return true;
}

}  // namespace

FileIO::FileIO(const std::wstring& path, int mode) : path_(path), mode_(mode) {
    const std::string native = wchar::wcs2mbs(path);
    int fd;
    if (mode == 'a') {
        fd = ::open(native.c_str(), O_RDWR | O_CLOEXEC);
    } else if (mode == 'w') {
        // An empty file is not truncated: on some file systems (ext4) a
        // truncation to zero makes the later close wait for the data to
        // reach the disk, and the run's temporary files start out empty.
        fd = ::open(native.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        struct stat st {};
        if (fd >= 0 && (::fstat(fd, &st) != 0 || (st.st_size != 0 && ::ftruncate(fd, 0) != 0))) {
            ::close(fd);
            fd = -1;
        }
    } else {
        fd = ::open(native.c_str(), O_RDONLY | O_CLOEXEC);
    }
    if (fd < 0) {
        error_ = errno;
        Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), mode);
        return;
    }
    // Descriptor 0 means "not open" in this class; stdin is never ours to
    // take, so move such a descriptor out of the way.
    if (fd == 0) {
        const int moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
        ::close(fd);
        if (moved < 0) {
            error_ = errno;
            Console::out(L"open(%ls, '%c') failed.\n", path.c_str(), mode);
            return;
        }
        fd = moved;
    }
    descriptor_ = fd;
}

FileIO::~FileIO() {
    if (descriptor_ != 0) ::close(descriptor_);
}

uint64_t FileIO::length() const {
    if (descriptor_ == 0) return 0;
    struct stat st {};
    if (::fstat(descriptor_, &st) != 0) return 0;
    return static_cast<uint64_t>(st.st_size);
}

uint64_t FileIO::read(uint8_t* buffer, uint64_t length) {
    if (descriptor_ == 0) return kError;
    const ssize_t n = ::pread(descriptor_, buffer, static_cast<size_t>(length),
                              static_cast<off_t>(position_));
    if (n > 0) position_ += static_cast<uint64_t>(n);
    if (n < 0) error_ = errno;
    return static_cast<uint64_t>(n);
}

uint64_t FileIO::write(const uint8_t* buffer, uint64_t length) {
    if (descriptor_ == 0) return kError;
    ++writeGeneration_;
    const ssize_t n = ::pwrite(descriptor_, buffer, static_cast<size_t>(length),
                               static_cast<off_t>(position_));
    if (n > 0) position_ += static_cast<uint64_t>(n);
    if (n < 0) error_ = errno;
    return static_cast<uint64_t>(n);
}

bool FileIO::seek_set(uint64_t offset) {
    if (descriptor_ == 0) return false;
    const off_t result = ::lseek(descriptor_, static_cast<off_t>(offset), SEEK_SET);
    if (result < 0) {
        error_ = errno;
        printSeekFailure(L"seek_set(%lld) failed - %ls(%d)\n", static_cast<long long>(offset), error_);
        return false;
    }
    position_ = static_cast<uint64_t>(result);
    return true;
}

bool FileIO::seek_cur(int64_t offset) {
    if (descriptor_ == 0) return false;
    // Reads and writes are positional, so the descriptor's own offset is
    // brought to the tracked position before moving relative to it.
    off_t result = ::lseek(descriptor_, static_cast<off_t>(position_), SEEK_SET);
    if (result >= 0) result = ::lseek(descriptor_, static_cast<off_t>(offset), SEEK_CUR);
    if (result < 0) {
        error_ = errno;
        printSeekFailure(L"seek_cur(%lld) failed - %ls(%d)\n", static_cast<long long>(offset), error_);
        return false;
    }
    position_ = static_cast<uint64_t>(result);
    return true;
}

uint64_t FileIO::copyTo(FileIO& dst, uint64_t size) {
    if (size == 0) return 0;
    const auto buffer = std::make_unique<uint8_t[]>(kCopyChunk);
    uint64_t total = 0;
    for (uint64_t done = 0; done < size; done += kCopyChunk) {
        const uint64_t chunk = std::min(kCopyChunk, size - done);
        const uint64_t got = read(buffer.get(), chunk);
        if (got != chunk) {
            // A short read (end of file, I/O error) must not smuggle stale
            // buffer bytes into the destination: stop and report what was
            // really copied, so callers comparing against size fail.
            if (got != kError && got > 0) {
                const uint64_t put = dst.write(buffer.get(), got);
                if (put != kError) total += put;
            }
            break;
        }
        const uint64_t put = dst.write(buffer.get(), chunk);
        if (put == kError) break;
        total += put;
        if (put != chunk) break;
    }
    return total;
}

bool FileIO::open(const std::wstring& path, const std::function<void(FileIO&)>& fn) {
    return openScoped(path, 'r', fn);
}

bool FileIO::open_w(const std::wstring& path, const std::function<void(FileIO&)>& fn) {
    return openScoped(path, 'w', fn);
}

bool FileIO::open_a(const std::wstring& path, const std::function<void(FileIO&)>& fn) {
    return openScoped(path, 'a', fn);
}

bool FileIO::exist(const std::wstring& path) {
    return open(path, [](FileIO&) {});
}

bool FileIO::rename(const std::wstring& from, const std::wstring& to) {
    const std::string a = wchar::wcs2mbs(from);
    const std::string b = wchar::wcs2mbs(to);
    return ::rename(a.c_str(), b.c_str()) == 0;
}

bool FileIO::unlink(const std::wstring& path) {
    const std::string p = wchar::wcs2mbs(path);
    return ::unlink(p.c_str()) == 0;
}

}  // namespace QVMX
