#include "video/jpeg_encoder.h"

#include <fcntl.h>
#include <turbojpeg.h>
#include <unistd.h>

#include <memory>

namespace QVMX {

namespace {

struct HandleDeleter {
    void operator()(void* handle) const { tjDestroy(static_cast<tjhandle>(handle)); }
};
struct JpegBufferDeleter {
    void operator()(unsigned char* buffer) const { tjFree(buffer); }
};

constexpr int kFileQuality = 90;

}  // namespace

bool encodeJpeg(const StillImage& image, int quality, ByteArray& out) {
    if (image.width < 1 || image.height < 1 || quality < 1 || quality > 100 ||
        image.rgb.size() != static_cast<size_t>(image.width) * image.height * 3) {
        return false;
    }
    std::unique_ptr<void, HandleDeleter> handle(tjInitCompress());
    if (!handle) return false;
    unsigned char* raw = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(static_cast<tjhandle>(handle.get()), image.rgb.data(), image.width,
                                   image.width * 3, image.height, TJPF_RGB, &raw, &size, TJSAMP_420, quality, 0);
    std::unique_ptr<unsigned char, JpegBufferDeleter> jpeg(raw);
    if (result != 0 || jpeg == nullptr) return false;
    ByteArray bytes(jpeg.get(), size);
    if (bytes.size != size) return false;
    out = std::move(bytes);
    return true;
}

bool writeJpegFile(const StillImage& image, const std::string& path) {
    ByteArray jpeg;
    if (!encodeJpeg(image, kFileQuality, jpeg)) return false;
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    uint64_t done = 0;
    while (done < jpeg.size) {
        const ssize_t n = ::write(fd, jpeg.data + done, jpeg.size - done);
        if (n <= 0) break;
        done += static_cast<uint64_t>(n);
    }
    const bool closed = ::close(fd) == 0;
    return done == jpeg.size && closed;
}

}  // namespace QVMX
