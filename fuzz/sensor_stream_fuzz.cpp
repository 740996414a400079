// Loads the sensor boxes of a movie. The first byte chooses the form: even,
// the rest is the movie file as it is; odd, the rest is split into the
// payloads of "KDTC", "KDTD" and "KDTB" (two 16-bit lengths first), which are
// wrapped in a small moov.udta so that the record parsing is reached at once.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/fuzz_file.h"
#include "meta/accel_sensor_stream.h"
#include "mp4/container.h"

namespace {

std::string box(const char* type, const std::string& payload) {
    const uint32_t size = uint32_t(payload.size() + 8);
    std::string out{char(size >> 24), char(size >> 16), char(size >> 8), char(size)};
    return out + type + payload;
}

std::string wrap(const uint8_t* data, size_t size) {
    const auto take = [&](size_t n) {
        n = std::min(n, size);
        std::string part(reinterpret_cast<const char*>(data), n);
        data += n;
        size -= n;
        return part;
    };
    const std::string lengths = take(4);
    const size_t lengthC = lengths.size() == 4 ? size_t(uint8_t(lengths[0]) << 8 | uint8_t(lengths[1])) : 0;
    const size_t lengthD = lengths.size() == 4 ? size_t(uint8_t(lengths[2]) << 8 | uint8_t(lengths[3])) : 0;
    const std::string c = take(lengthC);
    const std::string d = take(lengthD);
    const std::string b = take(size);
    return box("moov", box("udta", box("KDTC", c) + box("KDTD", d) + box("KDTB", b)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzzsupport::silenceConsole();
    if (size == 0) return 0;
    const int divisor = int8_t(data[0]) >> 1;
    std::string movie;
    if (data[0] % 2 == 0) {
        movie.assign(reinterpret_cast<const char*>(data + 1), size - 1);
    } else {
        movie = wrap(data + 1, size - 1);
    }
    fuzzsupport::InputFile input(reinterpret_cast<const uint8_t*>(movie.data()), movie.size());
    MP4::Container container;
    container.attach(input.wpath());

    unsigned short value = 0;
    std::vector<AccelSensorStreamEmbed::Gyro> gyro;
    (void)AccelSensorStreamEmbed::loadZ83_KDTB(container, gyro, value);
    AccelSensorStreamEmbed stream;
    (void)stream.loadZ83(container, divisor);
    for (int i = -1; i <= int(std::min<size_t>(stream.samples.size(), 4)); ++i) stream.axis(i);
    return 0;
}
