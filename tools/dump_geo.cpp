#include "tools/dump_geo.h"

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <string>
#include <vector>

#include "foundation/console.h"
#include "geo/gps_info.h"
#include "geo/view_heading.h"
#include "mp4/container.h"
#include "mp4/user_data_boxes.h"
#include "mp4/uuid_box.h"

namespace {

// Longer location texts than this are not positions.
constexpr uint64_t kMaxLocationText = 4096;

// Box texts are bytes from the file: anything but printable ASCII shows as "?".
std::wstring printable(const std::string& text) {
    std::wstring out;
    for (const char c : text) out.push_back(c >= 0x20 && c < 0x7F ? wchar_t(c) : L'?');
    return out;
}

std::wstring number(bool valid, double value) {
    if (!valid) return L"none";
    wchar_t buffer[64];
    std::swprintf(buffer, 64, L"%.6f", value);
    return buffer;
}

std::wstring number(float value) { return number(!std::isnan(value), value); }

// The payload of a plain box, as far as the file holds it.
std::string payloadOf(const MP4::Container& container, const MP4::BOX& box) {
    if (box.size <= box.headerSize()) return {};
    QVMX::FileIO file(container.path(), 'r');
    const uint64_t from = box.start + box.headerSize();
    const uint64_t length = file.length();
    if (!file.isOpen() || from >= length) return {};
    const uint64_t count = std::min({box.size - box.headerSize(), length - from, kMaxLocationText});
    std::string bytes(static_cast<size_t>(count), '\0');
    if (!file.seek_set(from)) return {};
    const uint64_t got = file.read(reinterpret_cast<uint8_t*>(bytes.data()), count);
    if (got == QVMX::FileIO::kError) return {};
    bytes.resize(static_cast<size_t>(got));
    return bytes;
}

void printLocation(const wchar_t* boxName, const std::string& text) {
    GPSInfo gps;
    gps.attachRXYZ(text.c_str());
    QVMX::Console::out(L"location: %ls '%ls' latitude=%ls longitude=%ls altitude=%ls\n", boxName,
                       printable(text).c_str(), number(gps.latitude.valid, gps.latitude.value).c_str(),
                       number(gps.longitude.valid, gps.longitude.value).c_str(),
                       number(gps.altitude.valid, gps.altitude.value).c_str());
}

}  // namespace

void dumpGeo(MP4::Container& container) {
    container.find("moov.udta.@xyz", [&container](MP4::BOX& box) {
        printLocation(L"@xyz", payloadOf(container, box));
        return false;
    });
    container.find("moov.udta.\xA9xyz", [](MP4::BOX& box) {
        if (const auto* xyz = dynamic_cast<MP4::XYZ*>(&box)) printLocation(L"\u00A9xyz", xyz->text);
        return false;
    });

    container.find("moov.trak.uuid", [](MP4::BOX& box) {
        const auto* uuid = dynamic_cast<MP4::UUID*>(&box);
        if (uuid == nullptr || !uuid->isKind(MP4::SphericalXML::_UUID)) return true;
        ViewHeading view;
        view.attach(std::string(uuid->payload.view()));
        QVMX::Console::out(
            L"view: heading=%ls pitch=%ls horizontalFOV=%ls cameraDolly=%ls timestamp=%llu "
            L"stitchingSoftware='%ls'\n",
            number(view.heading).c_str(), number(view.pitch).c_str(),
            number(view.horizontalFOV).c_str(), number(view.cameraDolly).c_str(),
            static_cast<unsigned long long>(view.timestamp), printable(view.stitchingSoftware).c_str());
        return false;
    });
}
