#include "tools/dump_facts.h"

#include <algorithm>
#include <cmath>
#include <cwchar>

#include "foundation/file_io.h"
#include "geo/gps_info.h"
#include "geo/view_heading.h"
#include "h264/parameter_sets.h"
#include "meta/accel_sensor_stream.h"
#include "mp4/avcc_box.h"
#include "meta/metadata_uuids.h"
#include "mp4/container.h"
#include "mp4/user_data_boxes.h"
#include "mp4/uuid_box.h"

namespace {

// Longer location texts than this are not positions.
constexpr uint64_t kMaxLocationText = 4096;

// The box's payload as far as the file holds it, at most limit bytes.
std::string payloadOf(const std::wstring& path, const MP4::BOX& box, uint64_t limit = ~uint64_t(0)) {
    QVMX::FileIO file(path, 'r');
    if (!file.isOpen()) return {};
    const uint64_t from = MP4::addClamped(box.start, box.headerSize());
    const uint64_t end = std::min(box.end(), file.length());
    if (end <= from || !file.seek_set(from)) return {};
    std::string out(static_cast<size_t>(std::min(end - from, limit)), '\0');
    uint64_t done = 0;
    while (done < out.size()) {
        const uint64_t n = file.read(reinterpret_cast<uint8_t*>(out.data()) + done, out.size() - done);
        if (n == 0 || n == QVMX::FileIO::kError) break;
        done += n;
    }
    out.resize(static_cast<size_t>(done));
    return out;
}

// Location texts are bytes from the file: anything but printable ASCII shows as "?".
std::wstring questioned(const std::string& text) {
    std::wstring out;
    for (const char c : text) out.push_back(c >= 0x20 && c < 0x7F ? wchar_t(c) : L'?');
    return out;
}

LocationFact location(const wchar_t* box, const std::string& text) {
    GPSInfo gps;
    gps.attachRXYZ(text.c_str());
    LocationFact fact;
    fact.box = box;
    fact.text = questioned(text);
    fact.hasLatitude = gps.latitude.valid;
    fact.latitude = gps.latitude.value;
    fact.hasLongitude = gps.longitude.valid;
    fact.longitude = gps.longitude.value;
    fact.hasAltitude = gps.altitude.valid;
    fact.altitude = gps.altitude.value;
    return fact;
}

MakerFact makerRecord(const std::wstring& path, const MP4::BOX& box) {
    MakerFact fact;
    fact.start = box.start;
    fact.size = box.size;
    const std::string payload = payloadOf(path, box);
    ExifParser parser;
    try {
        parser.attachKMKN(reinterpret_cast<const unsigned char*>(payload.data()), payload.size());
        parser.readPNAOX(fact.record);
    } catch (const char* message) {
        fact.stopped = message != nullptr ? message : "";
    }
    fact.form = parser.isOnlyMakerNote() ? L"maker-note"
                : parser.isBigEndian()   ? L"tiff-big-endian"
                                         : L"tiff-little-endian";
    fact.model = escapedText(fact.record.model);
    fact.software = escapedText(fact.record.software);
    return fact;
}

template <typename Record>
SensorFact sensor(const std::wstring& path, const MP4::BOX& box) {
    using Header = AccelSensorStreamEmbed::Header;
    SensorFact fact;
    fact.name = box.wname();
    fact.start = box.start;
    fact.size = box.size;
    const std::string payload = payloadOf(path, box);
    if (payload.size() < Header::kSize) return fact;
    const Header header = Header::decode(reinterpret_cast<const unsigned char*>(payload.data()));
    fact.hasHeader = true;
    fact.records = header.count;
    fact.holds = (payload.size() - Header::kSize) / Record::kSize;
    fact.bigEndian = header.bigEndian;
    fact.value = unsigned(header.value);
    return fact;
}

}  // namespace

std::wstring escapedText(const std::string& text) {
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

std::vector<LocationFact> readLocations(MP4::Container& container) {
    std::vector<LocationFact> facts;
    const std::wstring path = container.path();
    container.find("moov.udta.@xyz", [&](MP4::BOX& box) {
        facts.push_back(location(L"@xyz", payloadOf(path, box, kMaxLocationText)));
        return false;
    });
    container.find("moov.udta.\xA9xyz", [&](MP4::BOX& box) {
        if (const auto* xyz = dynamic_cast<MP4::XYZ*>(&box)) facts.push_back(location(L"\u00A9xyz", xyz->text));
        return false;
    });
    return facts;
}

std::vector<ViewFact> readViews(MP4::Container& container) {
    std::vector<ViewFact> facts;
    container.find("moov.trak.uuid", [&](MP4::BOX& box) {
        const auto* uuid = dynamic_cast<MP4::UUID*>(&box);
        if (uuid == nullptr || !uuid->isKind(meta::kSphericalXmlUuid)) return true;
        ViewHeading view;
        view.attach(std::string(uuid->payload.view()));
        facts.push_back({view.heading, view.pitch, view.horizontalFOV, view.cameraDolly, view.timestamp,
                         questioned(view.stitchingSoftware)});
        return false;
    });
    return facts;
}

bool readSphericalV2Boxes(MP4::Container& container, meta::SphericalV2& out) {
    ByteArray entry;
    if (!container.readVideoSampleEntry(entry)) return false;
    out = meta::readSphericalV2(entry.data, entry.size);
    return out.hasStereo || out.hasSpherical;
}

const char* projectionName(meta::V2Projection projection) {
    switch (projection) {
        case meta::V2Projection::Equirectangular: return "equirectangular";
        case meta::V2Projection::Cubemap: return "cubemap";
        case meta::V2Projection::Mesh: return "mesh";
        case meta::V2Projection::Unreadable: return "unreadable";
        case meta::V2Projection::None: break;
    }
    return "none";
}

std::vector<MakerFact> readMakerRecords(MP4::Container& container) {
    std::vector<MakerFact> facts;
    const std::wstring path = container.path();
    container.find("moov.udta.KMKN", [&](MP4::BOX& box) {
        facts.push_back(makerRecord(path, box));
        return true;
    });
    return facts;
}

std::vector<SensorFact> readSensors(MP4::Container& container) {
    std::vector<SensorFact> facts;
    const std::wstring path = container.path();
    container.find("moov.udta.KDTB", [&](MP4::BOX& box) {
        facts.push_back(sensor<AccelSensorStreamEmbed::Gyro>(path, box));
        return true;
    });
    container.find("moov.udta.KDTC", [&](MP4::BOX& box) {
        facts.push_back(sensor<AccelSensorStreamEmbed::Ecompass>(path, box));
        return true;
    });
    container.find("moov.udta.KDTD", [&](MP4::BOX& box) {
        facts.push_back(sensor<AccelSensorStreamEmbed::TopBottomCorrection>(path, box));
        return true;
    });
    return facts;
}

AvcCFact readAvcC(const MP4::AVCC& box) {
    AvcCFact fact;
    fact.start = box.start;
    fact.size = box.size;
    H264::AVCC record;
    H264::SPS sps;
    if (const QVMX::Status decoded = box.decode(record, sps); !decoded) {
        fact.failure = decoded.failure().where + L" failed: " + decoded.failure().cause;
        return fact;
    }
    fact.decoded = true;
    fact.profileIdc = sps.profile_idc.value;
    fact.levelIdc = sps.level_idc.value;
    const unsigned rest = sps.constraint_set4_to_reserved;
    const unsigned sets[6] = {sps.constraint_set0_flag.value, sps.constraint_set1_flag.value,
                              sps.constraint_set2_flag.value, sps.constraint_set3_flag.value, (rest >> 3) & 1,
                              (rest >> 2) & 1};
    std::copy(std::begin(sets), std::end(sets), fact.constraintSets);
    // Map units are field macroblock rows when frames may be coded as fields.
    fact.widthMbs = sps.pic_width_in_mbs_minus1.value + 1ull;
    fact.heightMbs = (sps.pic_height_in_map_units_minus1.value + 1ull) * (2 - sps.frame_mbs_only_flag.value);
    fact.frameMbsOnly = sps.frame_mbs_only_flag.value;
    const bool vui = sps.vui_parameters_present_flag == 1;
    const bool signal = vui && sps.vui.video_signal_type_present_flag == 1;
    fact.vui = vui ? 1 : 0;
    fact.videoSignalType = signal ? 1 : 0;
    fact.videoFormat = signal ? sps.vui.video_format.value : 0;
    fact.videoFullRange = signal ? sps.vui.video_full_range_flag.value : 0;
    return fact;
}

std::vector<AvcCFact> readParameterSets(MP4::Container& container) {
    std::vector<AvcCFact> facts;
    container.find("moov.trak.mdia.minf.stbl.stsd.avc1.avcC", [&](MP4::BOX& box) {
        if (const auto* avcc = dynamic_cast<const MP4::AVCC*>(&box)) facts.push_back(readAvcC(*avcc));
        return true;
    });
    return facts;
}
