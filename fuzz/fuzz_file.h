#pragma once

// Fuzz targets hand the parsers a real file: the input is written to a
// private temporary file, and the console goes to /dev/null.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "foundation/console.h"

namespace fuzzsupport {

class InputFile {
public:
    InputFile(const uint8_t* data, size_t size) {
        char name[] = "/tmp/tavrel-fuzz-XXXXXX";
        const int fd = ::mkstemp(name);
        if (fd < 0) std::abort();
        path_ = name;
        size_t done = 0;
        while (done < size) {
            const ssize_t n = ::write(fd, data + done, size - done);
            if (n <= 0) std::abort();
            done += static_cast<size_t>(n);
        }
        ::close(fd);
    }
    ~InputFile() { ::unlink(path_.c_str()); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    const std::string& path() const { return path_; }
    std::wstring wpath() const { return std::wstring(path_.begin(), path_.end()); }

private:
    std::string path_;
};

inline void silenceConsole() {
    static FILE* sink = std::fopen("/dev/null", "w");
    QVMX::Console::setStream(sink);
}

}  // namespace fuzzsupport
