// Loading the records of the sensor boxes from the movie file.
#include <algorithm>
#include <string>

#include "foundation/file_io.h"
#include "foundation/wide_format.h"
#include "foundation/wchar.h"
#include "meta/accel_sensor_stream.h"
#include "mp4/container.h"

namespace {

// Boxes shorter than this hold no header to read.
constexpr uint64_t kMinBoxSize = 24;
// Records are read this many bytes at a time, whatever the count claims.
constexpr uint64_t kChunk = 64 * 1024;

bool readFully(QVMX::FileIO& file, uint8_t* out, uint64_t length) {
    while (length > 0) {
        const uint64_t n = file.read(out, length);
        if (n == 0 || n == QVMX::FileIO::kError || n > length) return false;
        out += n;
        length -= n;
    }
    return true;
}

template <typename T>
void loadBox(QVMX::FileIO& file, const MP4::BOX& box, std::vector<T>& out, unsigned short& value) {
    using Header = AccelSensorStreamEmbed::Header;
    const uint64_t payload = MP4::addClamped(box.start, box.headerSize());
    if (!file.seek_set(payload)) return;
    uint8_t head[Header::kSize];
    if (!readFully(file, head, Header::kSize)) return;
    const Header header = Header::decode(head);
    value = header.value;
    if (header.count == 0) return;

    // The count is believed only as far as the box (and the file) hold records.
    const uint64_t end = std::min(box.end(), file.length());
    const uint64_t first = payload + Header::kSize;
    const uint64_t fit = end > first ? (end - first) / T::kSize : 0;
    uint64_t left = std::min<uint64_t>(header.count, fit);
    std::vector<uint8_t> buffer;
    while (left > 0) {
        const uint64_t n = std::min(left, kChunk / T::kSize);
        buffer.resize(n * T::kSize);
        if (!readFully(file, buffer.data(), buffer.size())) return;
        for (uint64_t i = 0; i < n; ++i) out.push_back(T::decode(buffer.data() + i * T::kSize, header.bigEndian));
        left -= n;
    }
}

}  // namespace

template <typename T>
QVMX::Status AccelSensorStreamEmbed::loadZ83_KDT_xyzt(MP4::Container& container, const char* name,
                                                      std::vector<T>& out, unsigned short& value) {
    out.clear();
    value = 0;
    QVMX::Status status;
    container.find(std::string("moov.udta.") + name, [&](MP4::BOX& box) {
        if (box.size < kMinBoxSize) {
            if (status) {
                status = QVMX::Failure{QVMX::wchar::mbs2wcs(name),
                                       QVMX::format(L"Not enough length. except less than %u, but %u.",
                                                    unsigned(kMinBoxSize), unsigned(box.size))};
            }
            return true;
        }
        QVMX::FileIO file(container.path(), 'r');
        if (file.isOpen()) loadBox(file, box, out, value);
        return true;
    });
    return status;
}

template QVMX::Status AccelSensorStreamEmbed::loadZ83_KDT_xyzt<AccelSensorStreamEmbed::Gyro>(
    MP4::Container&, const char*, std::vector<Gyro>&, unsigned short&);
template QVMX::Status AccelSensorStreamEmbed::loadZ83_KDT_xyzt<AccelSensorStreamEmbed::Ecompass>(
    MP4::Container&, const char*, std::vector<Ecompass>&, unsigned short&);
template QVMX::Status AccelSensorStreamEmbed::loadZ83_KDT_xyzt<AccelSensorStreamEmbed::TopBottomCorrection>(
    MP4::Container&, const char*, std::vector<TopBottomCorrection>&, unsigned short&);

QVMX::Status AccelSensorStreamEmbed::loadZ83_KDTB(MP4::Container& container, std::vector<Gyro>& out,
                                                  unsigned short& value) {
    return loadZ83_KDT_xyzt(container, Gyro::kBox, out, value);
}

QVMX::Status AccelSensorStreamEmbed::loadZ83_KDTC(MP4::Container& container, std::vector<Ecompass>& out,
                                                  unsigned short& value) {
    return loadZ83_KDT_xyzt(container, Ecompass::kBox, out, value);
}

QVMX::Status AccelSensorStreamEmbed::loadZ83_KDTD(MP4::Container& container, std::vector<TopBottomCorrection>& out,
                                                  unsigned short& value) {
    return loadZ83_KDT_xyzt(container, TopBottomCorrection::kBox, out, value);
}
