#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace QVMX {

// When set, the scoped open operations name each file they open.
extern bool FileIO_show_process_file_name;

// A file opened from a wide path with a one-letter mode:
//   'r' read only, 'w' create or truncate (write only), 'a' read-write on an
//   existing file (no create, no truncate, writes go where the position is).
// Failures are results, never exceptions: reads and writes give all-ones,
// seeks false, and the open failure prints one console line.
class FileIO {
public:
    static constexpr uint64_t kError = ~uint64_t(0);

    FileIO(const std::wstring& path, int mode);
    FileIO(const FileIO&) = delete;
    FileIO& operator=(const FileIO&) = delete;
    virtual ~FileIO();

    bool isOpen() const { return descriptor_ != 0; }
    int descriptor() const { return descriptor_; }
    const std::wstring& path() const { return path_; }
    int mode() const { return mode_; }
    uint64_t position() const { return position_; }

    // The errno of the last open, read, write or seek of this file that
    // failed (0 while none has), so that a step that failed can say why.
    int error() const { return error_; }
    // For code that works on descriptor() itself.
    void noteError(int error) { error_ = error; }

    // The file's size from fstat (0 when not open or fstat fails).
    uint64_t length() const;

    // One read or write at the tracked position; the raw result is returned
    // (0 at end of file, all-ones on error) and a positive one advances it.
    uint64_t read(uint8_t* buffer, uint64_t length);
    uint64_t write(const uint8_t* buffer, uint64_t length);

    bool seek_set(uint64_t offset);
    bool seek_cur(int64_t offset);

    // Copies size bytes from this position to dst's position through one
    // 64 KiB buffer; returns the sum of what the writes reported.
    uint64_t copyTo(FileIO& dst, uint64_t size);

    // Scoped operations: open, run fn, close. False only when the open failed.
    static bool open(const std::wstring& path, const std::function<void(FileIO&)>& fn);
    static bool open_w(const std::wstring& path, const std::function<void(FileIO&)>& fn);
    static bool open_a(const std::wstring& path, const std::function<void(FileIO&)>& fn);
    static bool exist(const std::wstring& path);
    static bool rename(const std::wstring& from, const std::wstring& to);
    static bool unlink(const std::wstring& path);

protected:
    // Counts writes, so a reader that caches file bytes can tell when they
    // may have changed underneath it.
    uint64_t writeGeneration() const { return writeGeneration_; }
    void setPosition(uint64_t position) { position_ = position; }

private:
    int descriptor_ = 0;
    std::wstring path_;
    int mode_;
    uint64_t position_ = 0;
    uint64_t writeGeneration_ = 0;
    int error_ = 0;
};

}  // namespace QVMX
