#include "tools/dump_camera.h"

#include <algorithm>
#include <cwchar>
#include <string>
#include <vector>

#include "foundation/console.h"
#include "foundation/file_io.h"
#include "meta/accel_sensor_stream.h"
#include "meta/exif_parser.h"
#include "mp4/container.h"

namespace {

// The box's payload as far as the file holds it.
std::vector<unsigned char> payloadOf(const std::wstring& path, const MP4::BOX& box) {
    std::vector<unsigned char> out;
    QVMX::FileIO file(path, 'r');
    if (!file.isOpen()) return out;
    const uint64_t from = MP4::addClamped(box.start, box.headerSize());
    const uint64_t end = std::min(box.end(), file.length());
    if (end <= from || !file.seek_set(from)) return out;
    out.resize(end - from);
    uint64_t done = 0;
    while (done < out.size()) {
        const uint64_t n = file.read(out.data() + done, out.size() - done);
        if (n == 0 || n == QVMX::FileIO::kError) break;
        done += n;
    }
    out.resize(done);
    return out;
}

// Text up to its first NUL; other bytes outside printable ASCII as \xNN.
std::wstring printable(const std::string& text) {
    std::wstring out;
    for (const char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (c == 0) break;
        if (c >= 0x20 && c < 0x7F && c != '\\' && c != '"') {
            out.push_back(wchar_t(c));
        } else {
            wchar_t escaped[8];
            std::swprintf(escaped, 8, L"\\x%02x", c);
            out += escaped;
        }
    }
    return out;
}

void dumpKMKN(const std::wstring& path, const MP4::BOX& box) {
    QVMX::Console::out(L"KMKN: start=%llu bytes=%llu\n", static_cast<unsigned long long>(box.start),
                       static_cast<unsigned long long>(box.size));
    const std::vector<unsigned char> payload = payloadOf(path, box);
    ExifParser parser;
    ExifParser::PANOX record;
    const char* error = nullptr;
    try {
        parser.attachKMKN(payload.data(), payload.size());
        parser.readPNAOX(record);
    } catch (const char* message) {
        error = message;
    }
    const wchar_t* form = parser.isOnlyMakerNote() ? L"maker-note"
                          : parser.isBigEndian()   ? L"tiff-big-endian"
                                                   : L"tiff-little-endian";
    dumpPanoxRecord(L"KMKN:     ", form, record);
    if (error != nullptr) QVMX::Console::out(L"KMKN:     stopped: %s\n", error);
}

template <typename Record>
void dumpSensor(const std::wstring& path, const MP4::BOX& box) {
    using Header = AccelSensorStreamEmbed::Header;
    const std::wstring name = box.wname();
    QVMX::Console::out(L"%ls: start=%llu bytes=%llu", name.c_str(), static_cast<unsigned long long>(box.start),
                       static_cast<unsigned long long>(box.size));
    const std::vector<unsigned char> payload = payloadOf(path, box);
    if (payload.size() < Header::kSize) {
        QVMX::Console::out(L" no header\n");
        return;
    }
    const Header header = Header::decode(payload.data());
    const uint64_t holds = (payload.size() - Header::kSize) / Record::kSize;
    QVMX::Console::out(L" records=%u holds=%llu byteOrder=%ls value=%u\n", header.count,
                       static_cast<unsigned long long>(holds), header.bigEndian ? L"big-endian" : L"little-endian",
                       unsigned(header.value));
}

}  // namespace

void dumpPanoxRecord(const wchar_t* prefix, const wchar_t* form, const ExifParser::PANOX& record) {
    QVMX::Console::out(L"%lsform=%ls model=\"%ls\" software=\"%ls\"\n", prefix, form,
                       printable(record.model).c_str(), printable(record.software).c_str());
    QVMX::Console::out(L"%lsprojectionType=%u zenithAngles=%.2f,%.2f compass=%.2f heading=%.2f\n", prefix,
                       record.projectionType, double(record.zenithAngles[0]), double(record.zenithAngles[1]),
                       double(record.compass), double(record.heading));
    QVMX::Console::out(L"%lstopBottomCorrection=%d videoStabilization=%d stabilizationFlags=%d,%d\n", prefix,
                       static_cast<int>(record.topBottomCorrection), static_cast<int>(record.videoStabilization),
                       record.stabilizationFlag1 ? 1 : 0, record.stabilizationFlag2 ? 1 : 0);
}

void dumpCameraMeta(MP4::Container& container) {
    const std::wstring path = container.path();
    container.find("moov.udta.KMKN", [&](MP4::BOX& box) {
        dumpKMKN(path, box);
        return true;
    });
    container.find("moov.udta.KDTB", [&](MP4::BOX& box) {
        dumpSensor<AccelSensorStreamEmbed::Gyro>(path, box);
        return true;
    });
    container.find("moov.udta.KDTC", [&](MP4::BOX& box) {
        dumpSensor<AccelSensorStreamEmbed::Ecompass>(path, box);
        return true;
    });
    container.find("moov.udta.KDTD", [&](MP4::BOX& box) {
        dumpSensor<AccelSensorStreamEmbed::TopBottomCorrection>(path, box);
        return true;
    });
}
