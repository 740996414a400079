#include "tools/dump_json.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "foundation/wchar.h"
#include "meta/meta_probe.h"
#include "mp4/container.h"
#include "mp4/uuid_box.h"
#include "tools/dump_facts.h"

using nlohmann::ordered_json;

namespace {

// Dump texts hold code points below 0x100 (box types are Latin-1 bytes).
std::string utf8(const std::wstring& text) {
    std::string out;
    for (const wchar_t wc : text) {
        const auto c = static_cast<uint32_t>(wc);
        if (c < 0x80) {
            out.push_back(char(c));
        } else if (c < 0x800) {
            out.push_back(char(0xC0 | (c >> 6)));
            out.push_back(char(0x80 | (c & 0x3F)));
        } else {
            out += "\xEF\xBF\xBD";  // nothing the dump makes; a stand-in rather than bad UTF-8
        }
    }
    return out;
}

std::string boxType(const MP4::BOX& box) { return utf8(box.wname()); }

// Absent values are null, as the text dump's "none".
ordered_json number(bool valid, double value) { return valid && std::isfinite(value) ? ordered_json(value) : nullptr; }
ordered_json number(float value) { return number(!std::isnan(value), double(value)); }

std::string uuidText(const MP4::UserType& u) {
    char text[40];
    std::snprintf(text, sizeof text, "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", u[0],
                  u[1], u[2], u[3], u[4], u[5], u[6], u[7], u[8], u[9], u[10], u[11], u[12], u[13], u[14], u[15]);
    return text;
}

ordered_json boxJson(const MP4::BOX& box) {
    ordered_json out;
    out["type"] = boxType(box);
    out["start"] = box.start;
    out["size"] = box.size;
    if (const auto* uuid = dynamic_cast<const MP4::UUID*>(&box); uuid != nullptr && box.size >= MP4::UUID::kHeaderSize) {
        out["uuid"] = uuidText(uuid->userType);
    }
    if (box.hasChild()) {
        ordered_json children = ordered_json::array();
        for (const auto& child : static_cast<const MP4::NestedBox&>(box).children) {
            if (child->type != MP4::FourCC{0, 0, 0, 0}) children.push_back(boxJson(*child));
        }
        out["children"] = std::move(children);
    }
    return out;
}

const char* codecName(int32_t codec) {
    switch (codec) {
        case MetaProbe::kCodecH264:
            return "H.264";
        case MetaProbe::kCodecHEVC:
            return "H.265/HEVC";
        default:
            return "unknown";
    }
}

ordered_json recordJson(const std::wstring& form, const ExifParser::PANOX& record) {
    return {{"form", utf8(form)},
            {"model", utf8(escapedText(record.model))},
            {"software", utf8(escapedText(record.software))},
            {"projectionType", record.projectionType},
            {"zenithAngles", {number(record.zenithAngles[0]), number(record.zenithAngles[1])}},
            {"compass", number(record.compass)},
            {"heading", number(record.heading)},
            {"topBottomCorrection", static_cast<int>(record.topBottomCorrection)},
            {"videoStabilization", static_cast<int>(record.videoStabilization)},
            {"stabilizationFlags", {record.stabilizationFlag1 ? 1 : 0, record.stabilizationFlag2 ? 1 : 0}}};
}

ordered_json summaryJson(const std::wstring& path) {
    MetaProbe probe;
    const bool described = probe.probe(path);
    return {{"model", utf8(escapedText(probe.model))},
            {"code", probe.modelCode},
            {"codec", codecName(probe.codec)},
            {"frameRate", number(true, double(probe.frameRate))},
            {"width", probe.width},
            {"height", probe.height},
            {"described", described},
            {"record", recordJson(L"panox", probe.record)}};
}

ordered_json cameraJson(MP4::Container& container) {
    ordered_json makers = ordered_json::array();
    for (const MakerFact& fact : readMakerRecords(container)) {
        ordered_json maker{{"start", fact.start}, {"size", fact.size}, {"record", recordJson(fact.form, fact.record)}};
        maker["stopped"] = fact.stopped.empty() ? ordered_json(nullptr) : ordered_json(utf8(escapedText(fact.stopped)));
        makers.push_back(std::move(maker));
    }
    ordered_json sensors = ordered_json::array();
    for (const SensorFact& fact : readSensors(container)) {
        ordered_json sensor{{"box", utf8(fact.name)}, {"start", fact.start}, {"size", fact.size}};
        if (fact.hasHeader) {
            sensor["records"] = fact.records;
            sensor["holds"] = fact.holds;
            sensor["byteOrder"] = fact.bigEndian ? "big-endian" : "little-endian";
            sensor["value"] = fact.value;
        } else {
            sensor["records"] = nullptr;
        }
        sensors.push_back(std::move(sensor));
    }
    return {{"makerRecords", std::move(makers)}, {"sensors", std::move(sensors)}};
}

void geoJson(MP4::Container& container, ordered_json& out) {
    ordered_json locations = ordered_json::array();
    for (const LocationFact& fact : readLocations(container)) {
        locations.push_back({{"box", utf8(fact.box)},
                             {"text", utf8(fact.text)},
                             {"latitude", number(fact.hasLatitude, fact.latitude)},
                             {"longitude", number(fact.hasLongitude, fact.longitude)},
                             {"altitude", number(fact.hasAltitude, fact.altitude)}});
    }
    out["locations"] = std::move(locations);
    ordered_json views = ordered_json::array();
    for (const ViewFact& view : readViews(container)) {
        views.push_back({{"heading", number(view.heading)},
                         {"pitch", number(view.pitch)},
                         {"horizontalFOV", number(view.horizontalFOV)},
                         {"cameraDolly", number(view.cameraDolly)},
                         {"timestamp", view.timestamp},
                         {"stitchingSoftware", utf8(view.stitchingSoftware)}});
    }
    out["views"] = std::move(views);
}

ordered_json parameterSetsJson(MP4::Container& container) {
    ordered_json sets = ordered_json::array();
    for (const AvcCFact& fact : readParameterSets(container)) {
        ordered_json set{{"start", fact.start}, {"size", fact.size}, {"decoded", fact.decoded}};
        if (fact.decoded) {
            set["profile_idc"] = fact.profileIdc;
            set["constraint_sets"] = fact.constraintSets;
            set["level_idc"] = fact.levelIdc;
            set["macroblocks"] = {fact.widthMbs, fact.heightMbs};
            set["frame_mbs_only"] = fact.frameMbsOnly;
            set["vui"] = fact.vui;
            set["video_signal_type"] = fact.videoSignalType;
            set["video_format"] = fact.videoFormat;
            set["video_full_range"] = fact.videoFullRange;
        }
        sets.push_back(std::move(set));
    }
    return sets;
}

}  // namespace

DumpProblem dumpProblem(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) return {"cannot-open", "cannot open " + path + ": " + std::strerror(errno)};
    std::fclose(file);
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return {"is-a-folder", path + " is a directory"};
    return {};
}

ordered_json dumpJson(const std::string& path) {
    ordered_json out;
    out["file"] = path;
    if (const DumpProblem problem = dumpProblem(path); !problem.code.empty()) {
        out["error"] = {{"code", problem.code}, {"message", problem.message}};
        return out;
    }
    const std::wstring wide = QVMX::wchar::mbs2wcs(path.c_str());
    MP4::Container container;
    if (!container.attach(wide) || container.root() == nullptr) {
        out["error"] = {{"code", "cannot-read"}, {"message", "cannot read " + path}};
        return out;
    }
    std::error_code error;
    out["size"] = std::filesystem::file_size(path, error);
    out["boxes"] = boxJson(*container.root())["children"];
    out["summary"] = summaryJson(wide);
    out["camera"] = cameraJson(container);
    geoJson(container, out);
    out["parameterSets"] = parameterSetsJson(container);
    return out;
}
